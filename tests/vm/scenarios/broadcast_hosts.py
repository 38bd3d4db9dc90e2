# SPDX-License-Identifier: GPL-2.0-only
"""A broadcast goes to everybody in its VSAN, once more to each inter-VSAN host, and counts once.

      the switch                      this program
    +------------+                  +----------------------------+
    | vsan10     |                  | 14.0a.01  hosts of VSAN 10 |
    | vsan20     |                  | 14.0a.02                   |
    |            |                  | 14.0a.03                   |
    |          a | eth0 --- link ---| 14.14.01  host of VSAN 20  |
    +------------+                  +----------------------------+
"""

from harness import Switch, expect, programs
from harness.control import *
from harness.fc import *

VSANS = (10, 20)
#: F_CTL: the parameter field tells where in the sequence the data belongs.
OFFSET = 0x000008

#: (VSAN, FC address): the hosts.
HOSTS = ((10, 0x140A01), (10, 0x140A02), (10, 0x140A03), (20, 0x141401))


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "packet"))
    a.load()
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    for vsan in VSANS:
        port = a.create_vsan(vsan, addresses=False)
        a.run(f"ip addr add {port.ipv4}/24 brd + dev {port.device}")
    stations = Stations(a, lab.peer)

    nobody_listed(stations)
    for vsan, fcid in HOSTS:
        a.ctl(f"ivr add 10.99.0.{fcid & 0xFF} {name_of(fcid).hex(':')} {fcid:#08x} {vsan}")
    ping_reaches(stations, vsan=10, size=100, hosts=(0x140A01, 0x140A02, 0x140A03))
    ping_reaches(stations, vsan=20, size=100, hosts=(0x141401,))
    # More than one frame.
    ping_reaches(stations, vsan=10, size=5000, hosts=(0x140A01, 0x140A02, 0x140A03))
    question_reaches(stations)
    a.ctl("ivr delete 0x140a02 10")
    ping_reaches(stations, vsan=10, size=56, hosts=(0x140A01, 0x140A03))
    # The address alone does not make the host: this one is in another VSAN.
    a.ctl(f"ivr add 10.99.0.9 {name_of(0x140A02).hex(':')} 0x140a02 30")
    ping_reaches(stations, vsan=10, size=56, hosts=(0x140A01, 0x140A03))
    reports(a)
    a.unload()


def name_of(fcid):
    return bytes.fromhex("2100030000") + fcid.to_bytes(3, "big")


class Stations:
    """All hosts at once: they accept every login and keep what they are sent."""

    def __init__(self, a, peer):
        self.a, self._peer = a, peer
        self._ports = {fcid: ForeignPort(peer, vsan, fcid, name_of(fcid)) for vsan, fcid in HOSTS}

    def heard(self, vsan, wanted):
        """Takes frames with packets until there are `wanted`; none must follow."""
        frames = []
        while len(frames) < wanted:
            frames += self._take(self._peer.receive(lambda raw: raw[12:14] == b"\x89\x06"))
        # What the switch answers now comes behind everything that it has sent before.
        marker = self._ports[next(fcid for number, fcid in HOSTS if number == vsan)]
        request = marker.request(self.a.port(vsan).fcid, marker.login_data(PLOGI))
        while True:
            raw = self._peer.receive(lambda raw: raw[12:14] == b"\x89\x06")
            frame = Frame.decode(raw)
            if frame.r_ctl == ELS_REPLY and frame.ox_id == request.ox_id:
                return frames
            frames += self._take(raw)

    def _take(self, raw):
        frame = Frame.decode(raw)
        if frame.r_ctl == ELS_REQUEST and frame.data[0] == PLOGI and frame.d_id in self._ports:
            self._ports[frame.d_id].accept(frame)
        return [frame] if frame.r_ctl == DATA else []


def counters(a, vsan):
    [told] = a.json(f"ipfcctl -j -s stats show {vsan}")
    return {**told["counters"], **told["mib"]}


def counted(a, vsan, before, length):
    """One packet, one broadcast, and no octets among those of unicasts."""
    wanted = {"tx_packets": 1, "tx_bytes": length, "ifOutBroadcastPkts": 1, "ifHCOutBroadcastPkts": 1}
    after = counters(a, vsan)
    moved = {name: after[name] - before[name] for name in after if after[name] != before[name]}
    expect(moved == wanted, f"it counts once: {moved}, not {wanted}")


def nobody_listed(stations):
    """Without hosts there is the broadcast alone."""
    ping_reaches(stations, vsan=10, size=56, hosts=())


def ping_reaches(stations, vsan, size, hosts):
    a, port = stations.a, stations.a.port(vsan)
    before = counters(a, vsan)
    a.run(f"ping -n -q -b -c 1 -W 0.01 -s {size} 10.{vsan}.0.255; true")
    length = 24 + 28 + size
    parts = -(-length // 2112)
    frames = stations.heard(vsan, (1 + len(hosts)) * parts)
    everybody = {fcid: in_order(frames, fcid) for fcid in (BROADCAST, *hosts)}
    expect(sum(map(len, everybody.values())) == len(frames), f"to nobody else: {frames}")
    packet = whole(everybody[BROADCAST], vsan, port)
    expect(len(packet) == length, f"{size} bytes with headers: {len(packet)}")
    expect(packet[:8] == b"\x10\x00" + b"\xff" * 6, f"to all: {packet.hex()}")
    for fcid in hosts:
        copy = whole(everybody[fcid], vsan, port)
        expect(copy == packet, f"{fcid:#08x} gets the same:\n{copy.hex()}\n{packet.hex()}")
    counted(a, vsan, before, length)
    held = a.json(f"ipfcctl -j exchange list {vsan}")
    expect(held == [], f"no exchange is kept for any of them: {held}")


def in_order(frames, fcid):
    return sorted((frame for frame in frames if frame.d_id == fcid), key=lambda frame: frame.seq_cnt)


def whole(frames, vsan, port):
    """The packet in one sequence; a broadcast begins and ends its exchange with it."""
    expect([frame.seq_cnt for frame in frames] == list(range(len(frames))), f"one sequence: {frames}")
    for frame in frames:
        expect((frame.vsan, frame.s_id, frame.type) == (vsan, port.fcid, TYPE_IP), f"from us: {frame}")
        end = END if frame is frames[-1] else 0
        offset = OFFSET if len(frames) > 1 else 0
        expect(frame.f_ctl == FIRST | LAST | end | offset, f"F_CTL: {frame.f_ctl:#x}")
    return b"".join(frame.data for frame in frames)


def question_reaches(stations):
    """An ARP goes to all in two forms and to the hosts in the first one alone."""
    a, port = stations.a, stations.a.port(10)
    name = bytes.fromhex(port.port_name.replace(":", ""))
    before = counters(a, 10)
    question = arp(1, hardware_address(name, port.fcid), port.ipv4, bytes(12), "10.10.0.200")
    everybody = hardware_address(b"\x10\x00" + b"\xff" * 6, BROADCAST)
    a.run(f"packet dgram vsan10 {ARP:x} {everybody.hex()} {question.hex()}")
    frames = stations.heard(10, 5)
    new, old = (frame.data for frame in frames if frame.d_id == BROADCAST)
    expect(new[24:] == question, f"as it was asked: {new.hex()}")
    wanted = arp(1, name[-6:], port.ipv4, b"\xff" * 6, "10.10.0.200")
    expect(old[24:] == wanted, f"and in the old form: {old.hex()}")
    for fcid in (0x140A01, 0x140A02, 0x140A03):
        [copy] = (frame.data for frame in frames if frame.d_id == fcid)
        expect(copy == new, f"{fcid:#08x} gets the first one: {copy.hex()}")
    counted(a, 10, before, len(new))


def reports(a):
    """The newest host comes first; the table and the tool agree."""
    told = a.run("cat /proc/brim_sw/ipfc/ivrip_list").splitlines()
    wanted = [
        "",
        "             IP              PWWN           FCID     VSAN ",
        "      10.99.0.9 21:00:03:00:00:14:0a:02 0x00140a02 0030",
        "      10.99.0.1 21:00:03:00:00:14:14:01 0x00141401 0020",
        "      10.99.0.3 21:00:03:00:00:14:0a:03 0x00140a03 0010",
        "      10.99.0.1 21:00:03:00:00:14:0a:01 0x00140a01 0010",
    ]
    expect(told == wanted, f"the table: {told}")
    listed = a.json("ipfcctl -j ivr list")
    expect(len(listed) == 4, f"as many for the tool: {listed}")
