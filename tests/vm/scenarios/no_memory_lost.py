# SPDX-License-Identifier: GPL-2.0-only
"""Interfaces and modules come and go many times over, with traffic: all memory comes back.

      the switch                      this program
    +------------+                  +--------------+
    | vsan10...  |                  | 14.0a.01     |
    |          a | eth0 --- link ---| (pings, bad  |
    +------------+                  |  frames)     |
                                    +--------------+
"""

import re

from harness import Switch, expect, large_blocks, programs
from harness.control import *
from harness.fc import *

PEER = bytes.fromhex("2100030000000001")
FCID = 0x140A01

#: Each deletion of an interface waits for all processors, so there are not many of them.
ROUNDS, INTERFACES, HOSTS = 3, 12, 50

CACHES = {"ipfc_mapping_cache", "exchange_cache", "ivrip_slab"}

#: Twice the noise, and a fraction of what the buffers of all the traffic take.
SLACK_KIB = 1536


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "packet"))
    # The first rounds fill the kernel's own caches.
    a.load()
    expect(own_caches(a) == CACHES, f"the caches: {own_caches(a)}")
    the_module(a, lab)
    a.unload()
    # One that still holds something cannot go, and says so with a warning.
    expect(own_caches(a) == set(), f"no cache of ours is left: {own_caches(a)}")
    round_trip(a, lab)
    before, blocks = free_kib(a), large_blocks(a)
    for _ in range(ROUNDS):
        round_trip(a, lab)
    after = free_kib(a)
    # A device and its private area are in such a block; the noise is a few of them.
    more, devices = large_blocks(a) - blocks, ROUNDS * 2 * INTERFACES
    print(f"{more} large blocks more after {devices} devices")
    expect(more < devices // 2, f"{devices} devices came and went, {more} large blocks are left")
    print(f"{before} KiB free before, {after} KiB after {ROUNDS} rounds")
    expect(before - after < SLACK_KIB, f"{before} KiB free before, {after} after {ROUNDS} rounds")
    # A counter-check of the measurement: memory that is held does show.
    a.run(f"dd if=/dev/zero of=/run/ballast bs=1024 count={2 * SLACK_KIB} 2> /dev/null")
    expect(after - free_kib(a) > SLACK_KIB, "held memory is seen")


def free_kib(a):
    """What is free once every cache that can be given up has been."""
    a.run("sync; for _ in 1 2 3; do echo 3 > /proc/sys/vm/drop_caches; done; sleep 0.3")
    text = a.run("cat /proc/meminfo")
    # Pages on their way between processors and the allocator are in neither.
    return sum(
        int(re.search(rf"^{name}: *(\d+) kB", text, re.MULTILINE).group(1))
        for name in ("MemFree", "SReclaimable")
    )


def own_caches(a):
    names = {line.split()[0] for line in a.run("cat /proc/slabinfo").splitlines()}
    return names & CACHES


def round_trip(a, lab):
    a.load()
    work(a, lab)
    a.unload()


def the_module(a, lab):
    """Within one life of the module, the objects of its caches go with what they were made for."""
    work(a, lab)
    text = a.run("cat /proc/brim_sw/ipfc/statistics")
    found = re.search(r"mapping obj allocated = (-?\d+)\nexch obj allocated = (-?\d+)\n", text)
    expect(found.groups() == ("0", "0"), f"none is left: {text}")
    Device(a).check(*((f"ioctl {DEL_HOST} edge {host(10, number, PEER)}", 0) for number in range(HOSTS)))


def work(a, lab):
    """Some of everything that allocates."""
    device = Device(a)
    vsans = range(10, 10 + INTERFACES)
    device.check(*((f"ioctl {CREATE} edge {interface(vsan)}", 0) for vsan in vsans))
    device.check(
        *(
            (f"ioctl {UPDATE} edge {interface(vsan, fcid=0x0A0001 | vsan << 8, action=SET_FCID)}", 0)
            for vsan in vsans
        )
    )
    device.check(
        *(
            (f"ioctl {ADD_MAPPING} edge {mapping(vsan, PEER[:6] + bytes([number, vsan]), FCID)}", EPERM)
            for vsan in vsans
            for number in range(10)
        )
    )
    device.check(*((f"ioctl {ADD_HOST} edge {host(10, number, PEER)}", 0) for number in range(HOSTS)))
    traffic(a, lab)
    device.check((f"ioctl {CLEANUP} none", 0))
    # Deleted devices stay allocated until the module goes; these come on top of them.
    device.check(*((f"ioctl {CREATE} edge {interface(vsan)}", 0) for vsan in vsans))
    device.check((f"ioctl {CLEANUP} none", 0))


def traffic(a, lab):
    """Broadcasts to all hosts, parked packets, answered pings, sequences that never end."""
    port = a.port(10)
    own_name = WWPN
    a.run(f"ip link set vsan10 mtu 8000 up && ip addr add {port.ipv4}/24 dev vsan10")
    peer = ForeignPort(lab.peer, 10, FCID, PEER, "10.10.0.101")
    peer.log_in(0x0A0A01)
    with lab.peer.swallowing():
        address = hardware_address(peer.ieee_name, FCID).hex(":")
        a.run(f"ip neigh replace {peer.ipv4} lladdr {address} dev vsan10")
        for number in range(20):
            request = icmp_echo(peer.ipv4, port.ipv4, bytes(1000 + number))
            peer.send(peer.packet(0x0A0A01, own_name, IPV4, request))
            # The first frame of a sequence whose others never come.
            open_ended = peer.packet(0x0A0A01, own_name, IPV4, bytes(1000), f_ctl=FIRST, eof=EOF_N)
            peer.send(open_ended)
        a.run("ping -n -c 2 -i 0.2 -W 1 -s 6000 10.10.0.101; ping -n -c 1 -W 1 10.10.0.77; true")
        frame = bytes(56) + hardware_address(PEER, 0) + network_header(own_name, b"\x01" * 8, IPV4)
        a.run(f"packet raw vsan10 800 {frame.hex()} 14")
        a.run("packet garbage vsan10 7")
