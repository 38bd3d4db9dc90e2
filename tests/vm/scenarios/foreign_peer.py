# SPDX-License-Identifier: GPL-2.0-only
"""Stations of another make talk to the switch: logins, ARP of both forms, pings, refusals, silence.

      the switch                         this program
    +------------+                     +---------------------------+
    | vsan10     |                     | 14.0a.01  the good one    |
    | 0a.0a.01   |                     | 14.0a.02  a new station   |
    |          a | eth0 ----- link --- | 14.0a.03  refuses logins  |
    +------------+                     | 14.0a.04  says nothing    |
                                       +---------------------------+
"""

from harness import Switch, expect
from harness.fc import *

VSAN = 10
OWN_IP = "10.10.0.1"
DBGTAP = "/proc/brim_sw/dbgtap/ipfc"
LLC_ARP = bytes.fromhex("aaaa030000000806")


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch)
    a.load()
    port = a.create_vsan(VSAN, mtu=1500)
    # The kernel is not to ask again, whenever it likes, for what it has learned.
    a.run(f"echo 200 > /proc/sys/net/ipv4/neigh/vsan{VSAN}/delay_first_probe_time")
    a.run(f"for element in errors events; do echo 1 > {DBGTAP}/$element/history_enabled; done")
    own = Own(bytes.fromhex(port.port_name.replace(":", "")), port.fcid)

    def station(number, ipv4):
        name = bytes.fromhex(f"21000300000000{number:02x}")
        return ForeignPort(lab.peer, VSAN, 0x140A00 + number, name, ipv4)

    good = station(1, "10.10.0.101")
    peer_logs_in(a, own, good)
    peer_asks(a, own, good)
    peer_pings(a, own, good)
    peer_logs_out(a, own, good)
    new_login_ends_exchange(a, own, good)
    switch_asks(a, own, station(2, "10.10.0.102"))
    login_refused(a, own, station(3, "10.10.0.103"))
    nobody_there(a, own, station(4, "10.10.0.104"))
    a.unload()


class Own:
    """The switch's N_Port."""

    def __init__(self, name, fcid):
        self.name, self.fcid = name, fcid
        self.address = hardware_address(name, fcid)


def mappings(a):
    """The lines of the interface's report behind its heading."""
    return a.run(f"cat /proc/brim_sw/ipfc/vsan{VSAN}").splitlines()[6:]


def tx_errors(a):
    return a.link(f"vsan{VSAN}")["stats64"]["tx"]["errors"]


def text(name):
    return ":".join(f"{byte:02x}" for byte in name)


def heard(a, element, message):
    expect(message in a.run(f"cat {DBGTAP}/{element}/history").splitlines(), f"said: {message}")


def peer_logs_in(a, own, good):
    answer = good.log_in(own.fcid)
    expect(answer.data[:4] == bytes([LS_ACC, 0, 0, 0]), f"LS_ACC: {answer.data.hex()}")
    expect(len(answer.data) == 116, f"a whole set of login parameters: {len(answer.data)} bytes")
    expect(answer.f_ctl == RESPONDER | LAST | END, f"the end of the exchange: {answer.f_ctl:#x}")
    expect(answer.data[20:28] == own.name, "the port name")
    expect(answer.data[28:36] == bytes.fromhex("1000020000000001"), "the node name")
    expect(answer.data[8] & 0x02, "the driver's own bit in the common features")
    expect(answer.data[68] & 0x80, "class 3 is offered")
    heard(a, "events", f"VSAN {VSAN}: received PLOGI from WWN = {text(good.name)}")
    expect(mappings(a) == [], f"a login alone makes no mapping: {mappings(a)}")


def peer_asks(a, own, good):
    """An ARP request with 6-byte addresses is understood, and answered in both forms."""
    six = good.name[-6:]
    question = arp(1, six, good.ipv4, bytes(6), OWN_IP)
    expect(len(question) == 28, "an Ethernet ARP")
    good.send(good.packet(BROADCAST, b"\xff" * 8, ARP, question))
    sender = hardware_address(good.ieee_name, good.fcid)

    first = good.wait_data(ARP)
    head = good.ieee_name + b"\x10\x00" + own.name[-6:] + LLC_ARP
    check_frame(first, own, good.fcid, END | FIRST)
    wanted = head + arp(2, own.address, OWN_IP, sender, good.ipv4)
    expect(first.data == wanted, f"the answer:\n{first.data.hex()}\n{wanted.hex()}")

    second = good.wait_data(ARP)
    check_frame(second, own, good.fcid, END | FIRST)
    wanted = head + arp(2, own.name[-6:], OWN_IP, six, good.ipv4)
    expect(second.data == wanted, f"and again:\n{second.data.hex()}\n{wanted.hex()}")
    expect(len(first.data) - len(second.data) == 12, "12 bytes shorter")
    expect(second.data[24:26] == b"\0\1" and second.data[28] == 6, "of Ethernet's form")

    entry = f"{text(good.ieee_name)} -> {good.fcid:#08x}"
    expect(mappings(a)[0] == entry, f"the port is known now: {mappings(a)}")
    expect(mappings(a)[1].startswith(f"   exch with {own.fcid:#08x} handle = "), "with an exchange")
    neighbour = a.json(f"ip -j neigh show {good.ipv4}")[0]["lladdr"]
    expect(neighbour == text(sender), f"and the kernel knows it as {text(sender)}: {neighbour}")


def check_frame(frame, own, d_id, f_ctl):
    """What every frame with a packet has in its header."""
    told = (frame.s_id, frame.d_id, frame.type, frame.df_ctl, frame.cs_ctl, frame.seq_cnt, frame.param)
    wanted = (own.fcid, d_id, TYPE_IP, 0x20, 0, 0, 0)
    expect(told == wanted, f"the FC header is {wanted}: {told}")
    expect(frame.f_ctl == f_ctl, f"F_CTL {f_ctl:#x}: {frame.f_ctl:#x}")
    expect((frame.sof, frame.eof, frame.hops) == (SOF_I3, EOF_T, 0xFF), "SOF, EOF and hop count")


def peer_pings(a, own, good):
    for size in (0, 1, 2, 3, 56, 1472):
        payload = bytes(number % 251 for number in range(size))
        question = icmp_echo(good.ipv4, OWN_IP, payload)
        good.send(good.packet(own.fcid, own.name, IPV4, question))
        answer = good.wait_data(IPV4)
        check_frame(answer, own, good.fcid, END)
        identification = int.from_bytes(answer.data[24 + 4 : 24 + 6], "big")
        echo = icmp_echo(OWN_IP, good.ipv4, payload, reply=True, identification=identification)
        wanted = network_header(own.name, good.name, IPV4) + echo
        expect(answer.data == wanted, f"{size} bytes:\n{answer.data.hex()}\n{wanted.hex()}")


def peer_logs_out(a, own, good):
    expect(mappings(a) != [], "there is a mapping")
    answer = good.log_out(own.fcid)
    expect(answer.data[:4] == bytes([LS_ACC, 0, 0, 0]), f"LS_ACC: {answer.data.hex()}")
    # The name in the LOGO is 21 00, the mapping's 10 00: all eight bytes count here.
    heard(a, "events", f"VSAN {VSAN}: received LOGO from WWN = {text(good.name)}")
    expect(mappings(a)[0].startswith(text(good.ieee_name)), "another name's LOGO removes nothing")
    formal = ForeignPort(good.peer, VSAN, good.fcid, good.ieee_name, good.ipv4)
    formal.log_out(own.fcid)
    heard(a, "events", f"VSAN {VSAN}, mapping removed for WW_PN = {text(formal.name)} - PEER LOGO")
    expect(mappings(a) == [], f"this one's does: {mappings(a)}")
    # The kernel still has the address: what it sends brings mapping and login back.
    pending = a.start(f"ping -n -c 1 -W 5 {good.ipv4}", timeout=20)
    plogi = good.wait_els(PLOGI)
    expect(plogi.data[20:28] == own.name, "the switch logs in with its own name")
    good.accept(plogi)
    echo(good, own, good.wait_data(IPV4))
    pending.wait()
    expect(mappings(a)[0].startswith(text(good.ieee_name)), f"known again: {mappings(a)}")


def echo(port, own, question):
    """Answers an echo request with the same bytes."""
    packet = question.data[24:]
    icmp = b"\0" + packet[21:22] + b"\0\0" + packet[24:]
    icmp = icmp[:2] + checksum(icmp).to_bytes(2, "big") + icmp[4:]
    head = packet[:10] + b"\0\0" + packet[16:20] + packet[12:16]
    head = head[:10] + checksum(head).to_bytes(2, "big") + head[12:]
    port.send(port.packet(own.fcid, own.name, IPV4, head + icmp))


def answer_arp(port, own):
    """Waits for the switch's question about this port, in both forms, and answers the new one."""
    about_us = ip_bytes(port.ipv4)
    head = b"\x10\x00" + b"\xff" * 6 + b"\x10\x00" + own.name[-6:] + LLC_ARP
    first = port.wait_data(ARP, more=lambda frame: frame.data[-4:] == about_us)
    check_frame(first, own, BROADCAST, FIRST | LAST | END)
    wanted = head + arp(1, own.address, OWN_IP, b"\0" * 12, port.ipv4)
    expect(first.data == wanted, f"the question:\n{first.data.hex()}\n{wanted.hex()}")
    second = port.wait_data(ARP, more=lambda frame: frame.data[-4:] == about_us)
    check_frame(second, own, BROADCAST, FIRST | LAST | END)
    wanted = head + arp(1, own.name[-6:], OWN_IP, b"\xff" * 6, port.ipv4)
    expect(second.data == wanted, f"and again:\n{second.data.hex()}\n{wanted.hex()}")
    address = hardware_address(port.name, port.fcid)
    answer = arp(2, address, port.ipv4, own.address, OWN_IP)
    port.send(port.packet(own.fcid, own.name, ARP, answer))


def switch_asks(a, own, new):
    """The switch looks for a station that it has never heard of."""
    pending = a.start(f"ping -n -c 2 -i 0.2 -W 5 {new.ipv4}", timeout=20)
    answer_arp(new, own)
    plogi = new.wait_els(PLOGI)
    expect(len(plogi.data) == 116 and plogi.data[20:28] == own.name, "a PLOGI with our name")
    new.accept(plogi)
    question = new.wait_data(IPV4)
    check_frame(question, own, new.fcid, FIRST | END)
    wanted = network_header(own.name, new.name, IPV4)
    expect(question.data[:24] == wanted, f"headers:\n{question.data[:24].hex()}\n{wanted.hex()}")
    echo(new, own, question)
    question = new.wait_data(IPV4)
    # The exchange is open; the second one goes over it.
    check_frame(question, own, new.fcid, END)
    echo(new, own, question)
    pending.wait()
    # The table has the name as ARP told it, 21 00 in front.
    lines = mappings(a)
    expect(f"{text(new.name)} -> {new.fcid:#08x}" in lines, f"a mapping: {lines}")


def login_refused(a, own, port):
    before = tx_errors(a)
    a.background("refused", f"ping -n -c 30 -i 0.2 -W 1 {port.ipv4}")
    answer_arp(port, own)
    port.refuse(port.wait_els(PLOGI))
    # The next packet is refused with -111: the exchange that the first one opened ends with LOGO.
    logo = port.wait_els(LOGO)
    expect(logo.data[:8] == bytes([LOGO, 0, 0, 0]) + own.fcid.to_bytes(4, "big"), "LOGO's sender")
    expect(logo.data[8:16] == own.name, f"and its name: {logo.data.hex()}")
    a.wait_until(
        f"grep 'ipfc_dev_hard_start_xmit: error:111 - sending pkt to vsan:{VSAN} ' "
        f"{DBGTAP}/errors/history"
    )
    heard(
        a, "events",
        "ipfc_dev_hard_start_xmit: Connection refused. Delete fc2 exch status and send LOGO",
    )  # fmt: skip
    expect(tx_errors(a) > before, "each of them counts as an error")
    expect("peer 0x140a03" in a.run("cat /proc/brim_sw/fc2"), "the stack knows the peer")
    a.run("kill $(cat /run/background/refused.pid); true")


def nobody_there(a, own, port):
    before = tx_errors(a)
    a.background("silent", f"ping -n -c 60 -i 0.2 -W 1 {port.ipv4}")
    answer_arp(port, own)
    for _ in range(3):
        port.wait_els(PLOGI)
    a.wait_until(
        f"grep 'ipfc_dev_hard_start_xmit: error:113 - sending pkt to vsan:{VSAN} ' "
        f"{DBGTAP}/errors/history"
    )
    expect(tx_errors(a) > before, "each of them counts as an error")
    a.run("kill $(cat /run/background/silent.pid); true")
    # No LOGO to somebody who is not there.
    expect(logos(a, "14.0a.03") != "", "the one who refused has got a LOGO")
    expect(logos(a, "14.0a.04") == "", f"a LOGO to nobody:\n{logos(a, '14.0a.04')}")


def logos(a, d_id):
    return a.lab.decode("-Y", f"fcels.opcode == 0x05 and fc.d_id == {d_id}")


def new_login_ends_exchange(a, own, good):
    lines = mappings(a)
    at = next(i for i, line in enumerate(lines) if line.startswith(text(good.ieee_name)))
    expect(lines[at + 1].startswith("   exch with"), f"an exchange is open: {lines}")
    good.log_in(own.fcid)
    lines = mappings(a)
    at = next(i for i, line in enumerate(lines) if line.startswith(text(good.ieee_name)))
    after = lines[at + 1] if at + 1 < len(lines) else ""
    expect(not after.startswith("   exch with"), f"the new login has ended it: {lines}")
    question = icmp_echo(good.ipv4, OWN_IP, b"after")
    good.send(good.packet(own.fcid, own.name, IPV4, question))
    check_frame(good.wait_data(IPV4), own, good.fcid, FIRST | END)
