# SPDX-License-Identifier: GPL-2.0-only
"""Frames that are broken, cut, misaddressed or meaningless do no harm and are told apart.

      the switch                         this program
    +------------+                     +-----------------+
    | vsan10     |                     | 14.0a.01        |
    | 0a.0a.01   |                     | (anything goes) |
    |          a | eth0 ----- link --- |                 |
    +------------+                     +-----------------+
"""

import dataclasses
import random
import struct

from harness import Switch, expect
from harness.control import DBGTAP
from harness.fc import *

VSAN, DEVICE = 10, "vsan10"
OWN_IP, PEER_IP = "10.10.0.1", "10.10.0.101"

#: Seed of the random frames; any other one does as well.
SEED, RANDOM_FRAMES = 20, 3000


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch)
    a.load()
    # Nothing is to answer or to ask by itself.
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    port = a.create_vsan(VSAN, addresses=False)
    a.run(f"ip addr add {port.ipv4}/24 dev {DEVICE}")
    a.run(f"echo 200 > /proc/sys/net/ipv4/neigh/{DEVICE}/delay_first_probe_time")
    a.run(f"echo 1 > {DBGTAP}/errors/history_enabled")
    name = bytes.fromhex(port.port_name.replace(":", ""))
    peer = ForeignPort(lab.peer, VSAN, 0x140A01, bytes.fromhex("2100030000000001"), PEER_IP)
    peer.log_in(port.fcid)
    address = hardware_address(peer.ieee_name, peer.fcid).hex(":")
    a.run(f"ip neigh replace {PEER_IP} lladdr {address} dev {DEVICE}")

    test = Test(a, peer, port.fcid, name)
    test.still_answers()
    broken(test)
    cut(test)
    misaddressed(test)
    of_another_kind(test)
    too_short_within(test)
    from_itself(test)
    with_priority(test)
    link_services(test)
    sequences(test)
    anything(test)
    test.still_answers()
    a.unload()


class Test:
    """What the frames are made from, and where their effects are read."""

    def __init__(self, a, peer, fcid, name):
        self.a, self.peer, self.fcid, self.name = a, peer, fcid, name
        self._number = 0

    def ping(self, **fields):
        """A good frame with an echo request; no two are the same."""
        self._number += 1
        request = icmp_echo(PEER_IP, OWN_IP, b"number %08d" % self._number)
        return self.peer.packet(self.fcid, self.name, IPV4, request, **fields)

    def still_answers(self):
        """Frames are served in order: once this one is answered, all before it have been seen."""
        self.peer.send(self.ping())
        text = b"number %08d" % self._number
        self.peer.wait_data(IPV4, more=lambda frame: frame.data.endswith(text))

    def counters(self):
        told = dict(
            line.rsplit(None, 1)
            for line in self.a.run("cat /proc/brim_sw/fc2").splitlines()
            if line[:1].islower()
        )
        mine = ("packets", "errors", "dropped")
        files = " ".join(f"/sys/class/net/{DEVICE}/statistics/rx_{name}" for name in mine)
        values = self.a.run(f"cat {files}").split()
        return {name: int(value) for name, value in (*told.items(), *zip(mine, values, strict=True))}

    def effect(self, frames, **wanted):
        """Sends the frames and a good one; of the counters `wanted`, each moves by so much.

        Blanks are underscores; the good frame is not counted. With None, the counter is not
        looked at.
        """
        before = self.counters()
        for frame in frames:
            self.peer.send(frame)
        self.still_answers()
        after = self.counters()
        after["units delivered"] -= 1
        after["packets"] -= 1
        wanted = {name.replace("_", " "): by for name, by in wanted.items()}
        for name in (
            "malformed frames", "frames with a bad CRC", "frames for others", "packets", "errors",
            "units that no socket wants", "sequences discarded", "units delivered",
        ):  # fmt: skip
            by = after[name] - before[name]
            expect(wanted.get(name, 0) in (by, None), f"{name}: {wanted.get(name, 0)} more and not {by}")

    def said(self, message):
        history = f"{DBGTAP}/errors/history"
        told = self.a.run(f"cat {history}; echo > {history}").splitlines()
        told = [line for line in told if "dst addr is" not in line]
        expect(set(told) == {message}, f"said: {message!r}; {told}")


def broken(test):
    """One bit is wrong, anywhere behind the Ethernet and FCoE headers."""
    test.a.run(f"echo > {DBGTAP}/errors/history")
    whole = test.ping().encode()
    frames = [
        whole[:i] + bytes([whole[i] ^ 0x10]) + whole[i + 1 :] for i in range(60, len(whole) - 4)
    ]
    test.effect(frames, frames_with_a_bad_CRC=len(frames))
    # In the VFT and FC headers a wrong bit may make it somebody else's before the CRC is looked at.
    for i in range(28, 60):
        test.peer.send(whole[:i] + bytes([whole[i] ^ 0x10]) + whole[i + 1 :])
    test.still_answers()


def cut(test):
    """Frames of every length, from nothing behind the Ethernet header on."""
    whole = test.ping().encode()
    frames = [whole[:length] for length in range(14, 68)]
    # Shorter than 60 bytes is no Ethernet frame, but whatever the card makes of it is too short.
    test.effect(frames, malformed_frames=len(frames))
    # Longer ones end in data, which is neither an EOF nor a multiple of four.
    for length in range(68, len(whole)):
        test.peer.send(whole[:length])
    for extra in (1, 4, 5, 1000, 2300):
        test.peer.send(whole + bytes(extra))
    test.still_answers()


def misaddressed(test):
    good = test.ping()
    other = [dataclasses.replace(good, d_id=d_id) for d_id in (0x0A0A02, 0x140A01, 0xFFFFFC, 0)]
    other += [dataclasses.replace(good, vsan=vsan) for vsan in (0, 9, 11, 4095)]
    test.effect(other, frames_for_others=len(other))
    # Without a sender there is no frame.
    nobody = [dataclasses.replace(good, s_id=s_id) for s_id in (0, BROADCAST)]
    test.effect(nobody, malformed_frames=len(nobody))


def of_another_kind(test):
    """Whole frames for us with something in them that is not IP."""
    good = test.ping()
    kinds = [dataclasses.replace(good, type=kind) for kind in (0, 8, 0x20, 0xFF)]
    ethertypes = [
        test.peer.packet(test.fcid, test.name, ethertype, bytes(40))
        for ethertype in (0, 0x0805, 0x0801, 0x8906, 0x86DE, 0xFFFF)
    ]
    test.effect(kinds + ethertypes, units_that_no_socket_wants=len(kinds + ethertypes))
    # Link control, video and basic link services are not for a socket.
    routing = [dataclasses.replace(good, r_ctl=r_ctl) for r_ctl in (0x40, 0x80, 0xC0, 0xF4)]
    test.effect(routing, frames_for_others=len(routing))
    vft = good.encode()
    frames = [
        # Another ethertype is for somebody else altogether, and is not even counted.
        vft[:12] + b"\x89\x14" + vft[14:],
    ]
    test.effect(frames)
    frames = [
        vft[:14] + b"\x10" + vft[15:],  # version 1
        vft[:27] + b"\x28" + vft[28:],  # SOFf
        vft[:-4] + b"\x50" + vft[-3:],  # EOFa
        vft[:28] + b"\x04" + vft[29:],  # no VFT header
    ]
    test.effect(frames, malformed_frames=len(frames))
    # Of the LLC header, the driver itself looks at the first byte and the ethertype.
    test.a.run(f"echo > {DBGTAP}/errors/history")
    strange = [dataclasses.replace(good, data=good.data[:16] + b"\xab" + good.data[17:])]
    test.effect(strange, units_delivered=1, packets=1, errors=1)
    test.said(f"VSAN {VSAN} Received a pkt with an invalid protocol - pkt dropped")
    lenient = dataclasses.replace(good, data=good.data[:17] + b"\x12\x34\x56\x78\x9a" + good.data[22:])
    test.effect([lenient], units_delivered=1, packets=1)


def too_short_within(test):
    """Good frames whose packets end too early, at every length."""
    head = network_header(test.peer.name, test.name, ARP)
    for ethertype, largest in ((ARP, 40), (IPV4, 40), (IPV6, 60)):
        for size in range(largest):
            test.peer.send(test.peer.packet(test.fcid, test.name, ethertype, b"\0\1" + bytes(size)))
    for size in range(24):
        test.peer.send(test.peer.frame(test.fcid, DATA, TYPE_IP, head[:size], df_ctl=0x20))
    test.still_answers()
    # An ARP of Ethernet's form needs 28 bytes, any ARP 8.
    test.a.run(f"echo > {DBGTAP}/errors/history")
    whole = arp(1, bytes(6), PEER_IP, bytes(6), "10.10.0.99")
    short = [test.peer.packet(test.fcid, test.name, ARP, whole[:size]) for size in (4, 8, 16, 24)]
    test.effect(short, units_delivered=4, packets=4)
    test.said("ipfc_data_ready: Cannot expand skb")


def from_itself(test):
    test.a.run(f"echo > {DBGTAP}/errors/history")
    request = icmp_echo(PEER_IP, OWN_IP, b"itself")
    # The network header has the whole name, and the FC header the address.
    names = b"\x10\x00" + test.name[-6:] + test.name
    data = names + network_header(test.name, test.name, IPV4)[16:] + request
    frame = test.peer.frame(test.fcid, DATA, TYPE_IP, data, df_ctl=0x20)
    test.effect([dataclasses.replace(frame, s_id=test.fcid)], units_delivered=1, packets=1)
    test.said(f"VSAN {VSAN} Received a packet from itself back")


def with_priority(test):
    """The three bits above the number of the virtual fabric are a priority and change nothing."""
    frame = test.ping()
    text = frame.data[-15:]
    test.peer.send(dataclasses.replace(frame, vsan=VSAN | 5 << 12))
    test.peer.wait_data(IPV4, more=lambda answer: answer.data.endswith(text))


def link_services(test):
    """Requests that are too short or unknown are refused; what is no request is not answered."""
    for data in (
        bytes([PLOGI, 0, 0, 0]), test.peer.login_data(PLOGI)[:115], bytes([LOGO, 0, 0, 0]) + bytes(11),
        bytes([0x20, 0, 0, 0]) + bytes(16), bytes(4), bytes([0xFF] * 100),
    ):  # fmt: skip
        answer = test.peer.reply_to(test.peer.request(test.fcid, data))
        expect(answer.data[0] == LS_RJT, f"{data.hex()} is refused: {answer.data.hex()}")
    for size in range(4):
        test.peer.request(test.fcid, bytes(size))
    # Answers that nobody waits for.
    for code in (LS_ACC, LS_RJT, 0x55):
        for size in (4, 8, 116, 200):
            frame = test.peer.frame(
                test.fcid, ELS_REPLY, TYPE_ELS, bytes([code]) + bytes(size - 1),
                f_ctl=RESPONDER | LAST | END,
            )  # fmt: skip
            test.peer.send(frame)
    # A LOGO and a PLOGI from a station that is not known.
    stranger = ForeignPort(test.peer.peer, VSAN, 0x1E0A01, bytes.fromhex("2100030000000099"))
    stranger.log_out(test.fcid)
    stranger.log_in(test.fcid)
    stranger.log_out(test.fcid)
    # Broadcast link services are nobody's business.
    test.peer.request(BROADCAST, test.peer.login_data(PLOGI))
    test.still_answers()


def sequences(test):
    """Sequences of several frames that lack one, have one twice, or never end."""

    def parts(size, count):
        data = test.ping().data[:24] + bytes(size)
        step = -(-len(data) // count // 4) * 4
        head = test.peer.frame(test.fcid, DATA, TYPE_IP, b"", seq_id=9)
        return [
            dataclasses.replace(
                head, data=data[number * step :][:step], seq_cnt=number,
                df_ctl=0x20 if number == 0 else 0, sof=SOF_I3 if number == 0 else SOF_N3,
                f_ctl=FIRST | (END if number == count - 1 else 0),
                eof=EOF_T if number == count - 1 else EOF_N,
            )
            for number in range(count)
        ]  # fmt: skip

    whole = parts(3000, 4)
    test.effect(whole, units_delivered=1, packets=1)
    first, *others = parts(3000, 4)
    test.effect([first, *reversed(others)], units_delivered=1, packets=1)
    one, two = parts(3000, 3), parts(4000, 3)
    mixed = [one[0], two[0], two[1], one[1], one[2], two[2]]
    test.effect(mixed, units_delivered=2, packets=2)
    twice = parts(3000, 4)
    test.effect([*twice[:3], twice[1], twice[0], twice[3]], units_delivered=1, packets=1)
    # Without their first frame the others begin nothing.
    test.effect(parts(3000, 4)[1:])
    # Without one in the middle it is given up, in time, which may come soon or late.
    for lost in range(1, 4):
        left = [frame for frame in parts(3000, 4) if frame.seq_cnt != lost]
        test.effect(left, sequences_discarded=None)
    test.a.wait_until(
        "awk '/sequences discarded/ { if ($NF >= 3) good = 1 } END { exit !good }' /proc/brim_sw/fc2"
    )
    # One after the other is begun, and none ever ends.
    for number in range(200):
        test.peer.send(dataclasses.replace(parts(2000, 2)[0], ox_id=0x6000 + number))
    test.still_answers()
    test.a.wait_until(
        "awk '/sequences discarded/ { if ($NF >= 203) good = 1 } END { exit !good }' /proc/brim_sw/fc2"
    )


def anything(test):
    """Frames with a good CRC and random contents: in headers, in data, in length."""
    print(f"seed {SEED}")
    source = random.Random(SEED)
    with test.peer.peer.swallowing():
        for number in range(RANDOM_FRAMES):
            test.peer.send(random_frame(test, source))
            if number % 100 == 99:
                # Not faster than the machine takes them.
                test.a.run("true")
    history = test.a.run(f"cat {DBGTAP}/errors/history | wc -l")
    expect(int(history) > 100, f"many of them got as far as the driver: {history}")


def random_frame(test, source):
    frame = test.ping()
    random_control = source.randrange(1 << 22) << 2
    for _ in range(source.randrange(1, 4)):
        field, values = source.choice(
            (
                ("r_ctl", (DATA, ELS_REQUEST, ELS_REPLY, source.randrange(256))),
                ("type", (TYPE_ELS, TYPE_IP, source.randrange(256))),
                ("f_ctl", (FIRST | END, 0, END, FIRST, RESPONDER | LAST | END, random_control)),
                ("seq_id", (0, source.randrange(256))),
                ("seq_cnt", (0, 1, 2, 3, 0xFFFF, source.randrange(1 << 16))),
                ("df_ctl", (0, 0x20, source.randrange(256))),
                ("ox_id", (1, 2, 3, 0xFFFF)),
                ("s_id", (0x0A0A01, 0x140A01, 0x1E0A01, source.randrange(1 << 24))),
                ("d_id", (BROADCAST, test.fcid)),
                ("sof", (SOF_I3, SOF_N3)),
                ("eof", (EOF_N, EOF_T)),
                ("data", (random_data(test, source, frame.data),)),
            )
        )
        setattr(frame, field, source.choice(values))
    return frame


def random_data(test, source, data):
    kind = source.randrange(6)
    if kind == 0:
        return source.randbytes(source.randrange(0, 2112))
    if kind == 1:
        return data[: source.randrange(len(data))]
    if kind == 2:
        at = source.randrange(len(data))
        return data[:at] + source.randbytes(1) + data[at + 1 :]
    if kind == 3:
        code = source.choice((PLOGI, LOGO, LS_ACC, LS_RJT, source.randrange(256)))
        return bytes([code]) + source.randbytes(source.randrange(3, 200))
    if kind == 4:
        head = network_header(test.peer.name, test.name, source.choice((ARP, IPV4, IPV6)))
        return head + source.randbytes(source.randrange(0, 100))
    words = struct.pack(">HHBBH", source.choice((1, 18, 6)), IPV4, source.choice((6, 12)), 4, 1)
    words += source.randbytes(source.randrange(40))
    return network_header(test.peer.name, test.name, ARP) + words
