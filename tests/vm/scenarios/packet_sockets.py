# SPDX-License-Identifier: GPL-2.0-only
"""Programs use packet sockets on the interfaces: headers built by the kernel, none, and garbage.

      the switch                          this program
    +--------------------------+        +----------------+
    | packet ---- vsan10       |        |                |
    | waiter      0a.0a.01     |        |  14.0a.01      |
    |                        a | eth0 --| (logged in)    |
    +--------------------------+        +----------------+
"""

import re

from harness import Switch, expect, programs
from harness.control import *
from harness.fc import *

VSAN, DEVICE = 10, "vsan10"
NAME = bytes.fromhex("2100030000000001")
FCID = 0x140A01
UNKNOWN = bytes.fromhex("100003000000ff01")

#: What the kernel pushes in front of a packet: room for the frame's headers less the trailer's,
#: a copy of the address, and the two headers that travel.
RESERVE, COPY = 56, 12


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "packet", "waiter"))
    a.load()
    # Nobody but the programs is to send anything.
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    port = a.create_vsan(VSAN, addresses=False)
    a.run(f"ip addr add {port.ipv4}/24 dev {DEVICE}")
    a.run(f"echo 1 > {DBGTAP}/errors/history_enabled")
    own_name = bytes.fromhex(port.port_name.replace(":", ""))
    peer = ForeignPort(lab.peer, VSAN, FCID, NAME, "10.10.0.101")
    peer.log_in(port.fcid)
    headers_built(a, peer, own_name)
    header_kinds(a)
    whole_frames(a, peer, own_name)
    to_nobody_known(a, peer, own_name)
    what_comes_in(a, peer, port, own_name)
    garbage(a, peer)
    everything_still_works(a, peer, port, own_name)
    a.unload()


def counters(a):
    names = ("packets", "errors", "dropped")
    files = " ".join(f"/sys/class/net/{DEVICE}/statistics/tx_{name}" for name in names)
    return dict(zip(names, map(int, a.run(f"cat {files}").split()), strict=True))


def moved(a, before, **by):
    """The counters have moved by so many since `before`, the others not at all."""
    after = counters(a)
    wanted = {name: before[name] + by.get(name, 0) for name in before}
    expect(after == wanted, f"counters: {after}, not {wanted}")


def built(a, ethertype, payload, address=hardware_address(NAME, FCID)):
    return a.run(f"packet dgram {DEVICE} {ethertype:x} {address.hex()} {payload.hex()}").strip()


def headers_built(a, peer, own_name):
    """The kernel builds the header and puts the payload where it ends, whatever header says."""
    # The first packet enters the name into the table, and travels with 10 00 in front of it; later
    # ones take the name from there, as it is.
    destination = b"\x10\x00" + NAME[2:]
    for ethertype in (IPV4, IPV6, ARP):
        for size in (1, 7, 40, 64, 1500, 3000):
            payload = bytes((number * 7 + size) % 256 for number in range(size))
            before = counters(a)
            expect(built(a, ethertype, payload) == str(size), f"{size} bytes are taken")
            first = whole_sequence(peer, ethertype)
            wanted = destination + network_header(own_name, NAME, ethertype)[8:] + payload
            expect(first == wanted, f"{ethertype:#x}, {size} bytes:\n{first.hex()}\n{wanted.hex()}")
            if ethertype == ARP and size >= 40:
                # Once more, rewritten for stations that know 6-byte addresses alone.
                second = whole_sequence(peer, ethertype)
                expect(len(second) == len(first) - 12, f"{size} bytes: the other form is shorter")
            moved(a, before, packets=1)
            destination = NAME


def whole_sequence(peer, ethertype):
    """The data of one sequence, put together from its frames."""
    frame = peer.wait_data(ethertype)
    data = frame.data
    while not frame.f_ctl & END:
        count, ox_id, seq_id = frame.seq_cnt + 1, frame.ox_id, frame.seq_id
        frame = peer.receive(
            "the next frame of the sequence",
            lambda f: (f.r_ctl, f.seq_cnt, f.ox_id, f.seq_id) == (DATA, count, ox_id, seq_id),
        )
        data += frame.data
    return data


def header_kinds(a):
    """Of another ethertype, nothing is pushed and nothing goes out."""
    for size in (1, 100, 1500):
        before = counters(a)
        expect(built(a, 0x88B5, bytes(size)) == str(size), f"{size} bytes are taken")
        moved(a, before, errors=1)
    said = a.run(f"cat {DBGTAP}/errors/history")
    expect("ipfc_dev_hard_header invalid type:: 0x88b5 \n" in said, f"it is said: {said}")
    expect("vsan:10 - unknown pkt type:0x0 ... dropped\n" in said, f"and dropped: {said}")
    # An address that is too short is the kernel's own refusal, of a newer one.
    if a.lab.kernel.old:
        print("not run: an address of 8 bytes; this kernel takes it for 12")
        return
    expect(built(a, IPV4, bytes(20), address=NAME) == str(EINVAL), "8 bytes are no address")


def whole(destination, fcid, own_name, ethertype, packet):
    """A packet as it lies in front of transmission."""
    copy = hardware_address(destination, fcid)
    headers = destination + network_header(own_name, destination, ethertype)[8:]
    return bytes(RESERVE) + copy + headers + packet


def raw(a, frame, ethertype=IPV4, rounds=1):
    return a.run(f"packet raw {DEVICE} {ethertype:x} {frame.hex()} {rounds:x}").strip()


def whole_frames(a, peer, own_name):
    frame = whole(NAME, FCID, own_name, IPV4, b"raw packet")
    before = counters(a)
    expect(raw(a, frame) == str(len(frame)), "taken")
    data = whole_sequence(peer, IPV4)
    expect(data == frame[RESERVE + COPY :], f"what travels: {data.hex()}")
    moved(a, before, packets=1)
    # The copy says to all.
    frame = whole(b"\xff" * 8, BROADCAST, own_name, IPV4, b"to all")
    expect(raw(a, frame) == str(len(frame)), "taken")
    got = peer.wait_data(IPV4)
    expect((got.d_id, got.f_ctl) == (BROADCAST, FIRST | LAST | END), f"to all: {got}")
    expect(got.data == frame[RESERVE + COPY :], f"what travels: {got.data.hex()}")
    # An unknown ethertype behind whole headers.
    before = counters(a)
    frame = whole(NAME, FCID, own_name, 0x88B5, b"packet")
    expect(raw(a, frame) == str(len(frame)), "taken")
    moved(a, before, errors=1)
    said = a.run(f"cat {DBGTAP}/errors/history")
    expect("vsan:10 - unknown pkt type:0x88b5 ... dropped\n" in said, f"it is said: {said}")


def to_nobody_known(a, peer, own_name):
    """A name that the table does not hold goes to the resolver: ten packets wait, no more."""
    device = Device(a)
    frame = whole(UNKNOWN, 0, own_name, IPV4, b"whom?")
    before = counters(a)
    raw(a, frame, rounds=11)
    moved(a, before, dropped=1)
    request = (b"\x0a\0\0\0" + UNKNOWN).hex()
    answers = device.work("poll", *[f"read c edge {'00' * 12}"] * 10, "poll")
    expect(answers[0] == (0x41, "") and answers[-1] == (0, ""), f"readable, then not: {answers}")
    expect(answers[1:-1] == [(0, request)] * 10, f"ten times the same: {answers}")
    # The answer lets the oldest one go, and stays known.
    answer = f"edge {mapping(VSAN, UNKNOWN, FCID)}"
    device.check((f"ioctl {ADD_MAPPING} {answer}", 0))
    expect(whole_sequence(peer, IPV4) == frame[RESERVE + COPY :], "the packet arrives")
    moved(a, before, dropped=1, packets=1)
    device.check((f"ioctl {ADD_MAPPING} {answer}", 0), *[(f"ioctl {NOT_FOUND} {answer}", 0)] * 8)
    expect(whole_sequence(peer, IPV4) == frame[RESERVE + COPY :], "another one arrives")
    moved(a, before, dropped=9, packets=2)
    device.check(
        (f"ioctl {NOT_FOUND} {answer}", EPERM),
        (f"ioctl {ADD_MAPPING} {answer}", EPERM),
        (f"ioctl {DEL_MAPPING} {answer}", 0),
    )
    # The mapping's exchange ends with LOGO.
    logo = peer.wait_els(LOGO)
    expect(logo.data[8:16] == own_name, f"from us: {logo.data.hex()}")
    peer.answer(logo, bytes([LS_ACC, 0, 0, 0]))


def what_comes_in(a, peer, port, own_name):
    """A program sees arriving packets without their headers, and told apart by destination."""
    a.background("listener", f"packet listen {DEVICE} 4")
    a.wait_until("grep ready /run/background/listener")
    # What is compared begins two bytes further on in the broadcast address, which no group's name
    # can equal: nothing is told to be a broadcast.
    shifted = bytes.fromhex("10001000ffffffff")
    old = arp(2, NAME[-6:], "10.10.0.101", own_name[-6:], "10.10.0.1")
    for destination, ethertype, packet in (
        (own_name, IPV4, b"to you"),
        (shifted, IPV6, b"to the shifted one"),
        (b"\xff" * 8, IPV4, b"to all"),
        (own_name, ARP, old),
    ):
        d_id = BROADCAST if destination == b"\xff" * 8 else port.fcid
        peer.send(peer.packet(d_id, destination, ethertype, packet))
    a.wait_until("[ $(wc -l < /run/background/listener) -eq 5 ]")
    new = arp(
        2, hardware_address(peer.ieee_name, FCID), "10.10.0.101",
        hardware_address(b"\x10\x00" + own_name[-6:], port.fcid), "10.10.0.1",
    )  # fmt: skip
    wanted = [
        f"0 0800 18 {b'to you'.hex()}",
        f"0 86dd 18 {b'to the shifted one'.hex()}",
        f"2 0800 18 {b'to all'.hex()}",
        f"0 0806 18 {new.hex()}",
    ]
    heard = a.run("cat /run/background/listener").splitlines()[1:]
    expect(heard == wanted, f"heard: {heard}\nwanted: {wanted}")


def garbage(a, peer):
    """Bytes of no meaning, of every length: counted, one way or the other, and no harm done."""
    for seed in (1, 2, 3):
        before = counters(a)
        with peer.peer.swallowing():
            told = a.run(f"packet garbage {DEVICE} {seed}", timeout=60)
        sent = int(re.search(r"sent (\d+)", told).group(1))
        # A newer kernel keeps back by itself what is shorter than the headers, 92 bytes.
        shortest = 0 if a.lab.kernel.old else 92
        expect(sent == 4 * (200 - shortest + 1), f"it lets the long ones through: {told}")
        after = counters(a)
        # What is for an unknown port waits for the resolver, unless ten packets do so already.
        waiting = answered(a)
        counted = sum(after.values()) - sum(before.values())
        expect(sent == counted + waiting, f"seed {seed}: {sent} sent, {counted} counted, {waiting} wait")
        expect(after["packets"] > before["packets"], "some have gone out")
        expect(after["errors"] > before["errors"], "some were of an unknown type")


def answered(a):
    """Tells for each request that waits that its port is not known; gives their number."""
    device = Device(a)
    reads = device.work("close", "open /dev/ipfc nonblock", *[f"read c edge {'00' * 12}"] * 11)[2:]
    requests = [told for result, told in reads if result == 0]
    device.check(*((f"ioctl {NOT_FOUND} edge {told}{'00' * 4}", 0) for told in requests))
    return len(requests)


def everything_still_works(a, peer, port, own_name):
    peer.log_in(port.fcid)
    a.run(f"ip neigh replace 10.10.0.101 lladdr {hardware_address(NAME, FCID).hex(':')} dev {DEVICE}")
    peer.send(peer.packet(port.fcid, own_name, IPV4, icmp_echo("10.10.0.101", "10.10.0.1", b"still?")))
    answer = peer.wait_data(IPV4, more=lambda frame: frame.data[24 + 9] == 1)
    expect(answer.data[-6:] == b"still?", "the switch answers pings")
