# SPDX-License-Identifier: GPL-2.0-only
"""After known traffic every counter is what was sent, plain and with what was before a clear.

      the switch                      this program
    +------------+                  +--------------+
    | vsan10     |                  | 14.0a.01     |
    | 0a.0a.01 a | eth0 --- link ---| (a station)  |
    +------------+                  +--------------+
"""

import collections
import dataclasses
import struct

from harness import Switch, expect, programs
from harness.control import *
from harness.fc import *

VSAN, DEVICE = 10, "vsan10"
OWN_IP, PEER_IP = "10.10.0.1", "10.10.0.101"

#: Network header and LLC header, which count as part of every packet.
HEADERS = 24

#: Ten counters of the kernel's and thirteen of the interface group's, in the record's order.
KERNEL = (
    "rx_packets", "tx_packets", "rx_bytes", "tx_bytes", "rx_errors", "tx_errors", "rx_dropped",
    "tx_dropped", "multicast", "collisions",
)  # fmt: skip
MIB = (
    "ifInMulticastPkts", "ifInBroadcastPkts", "ifOutMulticastPkts", "ifOutBroadcastPkts",
    "ifHCInOctets", "ifHCInUcastPkts", "ifHCInMulticastPkts", "ifHCInBroadcastPkts",
    "ifHCOutOctets", "ifHCOutUcastPkts", "ifHCOutMulticastPkts", "ifHCOutBroadcastPkts",
    "ifInUnknownProtos",
)  # fmt: skip


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "device32", "packet"))
    a.load()
    # Nothing is to be sent but what is sent here.
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    port = a.create_vsan(VSAN, addresses=False)
    a.run(f"ip addr add {port.ipv4}/24 brd + dev {DEVICE}")
    name = bytes.fromhex(port.port_name.replace(":", ""))
    peer = ForeignPort(lab.peer, VSAN, 0x140A01, bytes.fromhex("2100030000000001"), PEER_IP)
    peer.log_in(port.fcid)
    address = hardware_address(peer.ieee_name, peer.fcid).hex(":")
    a.run(f"ip neigh replace {PEER_IP} lladdr {address} nud permanent dev {DEVICE}")

    traffic = Traffic(a, peer, port.fcid, name)
    nothing = collections.Counter()
    read(a, plain=nothing, snmp=nothing)
    first = traffic.some(3)
    read(a, plain=first, snmp=first)
    a.ctl(f"stats clear {VSAN}")
    read(a, plain=nothing, snmp=first)
    second = traffic.some(2)
    read(a, plain=second, snmp=first + second)
    Device(a).check((f"ioctl {CLEAR_STATS} edge {interface(VSAN)}", 0))
    # What was before the first clear is forgotten by the second one.
    read(a, plain=nothing, snmp=second)
    third = traffic.some(1)
    read(a, plain=third, snmp=second + third)
    copies(a, traffic)
    a.unload()


class Traffic:
    """Sends packets of every kind, each a different number of times."""

    def __init__(self, a, peer, fcid, name):
        self.a, self.peer, self.fcid, self.name = a, peer, fcid, name
        self.arps = 0

    def some(self, times):
        """Gives what must have been counted."""
        total = collections.Counter()
        for kind, more in (
            (self.answered, 4), (self.heard_by_many, 3), (self.of_no_protocol, 2), (self.asked, 2),
            (self.told_to_all, 3), (self.unknown, 1), (self.of_no_kind, 2),
        ):  # fmt: skip
            for number in range(times + more):
                total += collections.Counter(kind(10 * times + number))
        return total

    def answered(self, size):
        """A ping, and the switch's answer."""
        length = HEADERS + 28 + size
        request = icmp_echo(PEER_IP, OWN_IP, bytes(size))
        self.peer.send(self.peer.packet(self.fcid, self.name, IPV4, request))
        answer = self.peer.wait_data(IPV4)
        expect(len(answer.data) == length, f"the answer is as long as the question: {answer}")
        return {
            "rx_packets": 1, "rx_bytes": length, "ifHCInUcastPkts": 1, "ifHCInOctets": length,
            "tx_packets": 1, "tx_bytes": length, "ifHCOutUcastPkts": 1, "ifHCOutOctets": length,
        }  # fmt: skip

    def heard_by_many(self, size):
        """A broadcast's name differs from the bytes it is compared with: it counts as multicast."""
        packet = icmp_echo(PEER_IP, "10.10.0.255", bytes(size))
        frame = self.peer.packet(BROADCAST, b"\xff" * 8, IPV4, packet)
        self.peer.send(frame)
        return {
            "rx_packets": 1, "rx_bytes": len(frame.data), "multicast": 1, "ifInMulticastPkts": 1,
            "ifHCInMulticastPkts": 1,
        }  # fmt: skip

    def of_no_protocol(self, size):
        frame = self.peer.packet(self.fcid, self.name, IPV4, bytes(size))
        strange = frame.data[:16] + b"\x42" + frame.data[17:]
        self.peer.send(dataclasses.replace(frame, data=strange))
        return {"rx_packets": 1, "rx_bytes": len(strange), "rx_errors": 1, "ifInUnknownProtos": 1}

    def asked(self, number):
        """A question to all of which nobody takes notice; it leaves twice and counts once."""
        self.arps += 1
        sender = hardware_address(self.name, self.fcid)
        question = arp(1, sender, OWN_IP, bytes(12), f"10.10.0.{number + 1}")
        everybody = hardware_address(b"\x10\x00" + b"\xff" * 6, BROADCAST)
        self.a.run(f"packet dgram {DEVICE} {ARP:x} {everybody.hex()} {question.hex()}")
        for length in (40, 28):
            frame = self.peer.wait_data(ARP)
            expect(len(frame.data) == HEADERS + length, f"an ARP of {length} bytes: {frame}")
        return {
            "tx_packets": 1, "tx_bytes": HEADERS + 40, "ifOutBroadcastPkts": 1,
            "ifHCOutBroadcastPkts": 1,
        }  # fmt: skip

    def told_to_all(self, size):
        # That nobody answers is what is to be.
        self.a.run(f"ping -n -q -b -c 1 -W 0.01 -s {size} 10.10.0.255; true")
        length = len(self.peer.wait_data(IPV4).data)
        expect(length == HEADERS + 28 + size, f"a broadcast of {size} bytes: {length}")
        return {
            "tx_packets": 1, "tx_bytes": length, "ifOutBroadcastPkts": 1, "ifHCOutBroadcastPkts": 1,
        }  # fmt: skip

    def unknown(self, number):
        """A packet waits for the address of its destination, and there is none."""
        name = bytes.fromhex("1000030000ff0000")[:-1] + bytes([number])
        whole = bytes(56) + hardware_address(name, 0) + network_header(self.name, name, IPV4)
        self.a.run(f"packet raw {DEVICE} {IPV4:x} {(whole + bytes(40)).hex()}")
        self.a.ctl(f"map not-found {VSAN} {name.hex(':')}")
        return {"tx_dropped": 1}

    def of_no_kind(self, number):
        whole = bytes(56) + hardware_address(self.peer.ieee_name, self.peer.fcid)
        whole += network_header(self.name, self.peer.ieee_name, 0x1234 + number)
        self.a.run(f"packet raw {DEVICE} {IPV4:x} {(whole + bytes(40)).hex()}")
        return {"tx_errors": 1}


def read(a, plain, snmp):
    """Everybody who can read the counters gets these."""
    wanted = {0: [plain[name] for name in (*KERNEL, *MIB)], 1: [snmp[name] for name in (*KERNEL, *MIB)]}
    # The last packets may still be under way.
    files = f"/sys/class/net/{DEVICE}/statistics"
    a.wait_until(
        f"[ $(cat {files}/rx_packets) -eq {plain['rx_packets']} ] && "
        f"[ $(cat {files}/tx_packets) -eq {plain['tx_packets']} ]"
    )
    for tool in ("device", "device32"):
        for flag in (0, 1, 2):
            answer = Device(a, tool).one(f"ioctl {GET_STATS} edge {record(flag)}")
            told = list(struct.unpack("<10Q4I8QI", bytes.fromhex(answer[1])[8:]))
            # Any value but 1 asks for the plain counters.
            compare(f"{tool}, {flag}", told, wanted[flag & 1])
            expect(answer[0] == 0, f"{tool}: {answer}")
    for flag, option in ((0, ""), (1, "--snmp")):
        [told] = a.json(f"ipfcctl -j -s stats show {option} {VSAN}")
        values = [told["counters"][name] for name in KERNEL] + [told["mib"][name] for name in MIB]
        compare(f"ipfcctl {option}", values, wanted[flag])
    words = a.run(f"sed -n 's/^ *{DEVICE}: *//p' /proc/net/dev").split()
    told = {
        "rx_bytes": words[0], "rx_packets": words[1], "rx_errors": words[2], "rx_dropped": words[3],
        "multicast": words[7], "tx_bytes": words[8], "tx_packets": words[9], "tx_errors": words[10],
        "tx_dropped": words[11], "collisions": words[13],
    }  # fmt: skip
    compare("/proc/net/dev", [int(told[name]) for name in KERNEL], wanted[0][: len(KERNEL)])


def record(flag):
    return struct.pack("<iI", VSAN, flag).hex() + "a5" * 164


def compare(reader, told, wanted):
    wrong = [
        f"{name} {value} and not {want}"
        for name, value, want in zip((*KERNEL, *MIB), told, wanted, strict=False)
        if value != want
    ]
    expect(len(told) == len(wanted) and not wrong, f"{reader}: {wrong}")


def copies(a, traffic):
    """The whole module's counts go on through every clear; every ARP was copied."""
    text = a.run("cat /proc/brim_sw/ipfc/statistics")
    packets, size = (int(line.split(" = ")[1]) for line in text.splitlines()[2:4])
    expect(packets >= traffic.arps, f"{traffic.arps} ARPs were copied: {text}")
    expect(size >= traffic.arps * (HEADERS + 40), f"with all of their bytes: {text}")
    tool = a.json("ipfcctl -j stats module")
    expect((tool["packets_copied"], tool["bytes_copied"]) == (packets, size), f"{tool} and {text}")
