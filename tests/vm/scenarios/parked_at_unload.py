# SPDX-License-Identifier: GPL-2.0-only
"""The module goes with packets parked and requests unread, many times over: nothing stays behind.

    +-------------------------------------+
    |   a   packet --- vsan10 (parked)    |
    |       /dev/ipfc (requests unread)   | eth0 ----- (nobody)
    +-------------------------------------+
"""

from harness import Switch, expect, programs
from harness.control import *
from harness.unannounced import frame, name_of

VSAN, DEVICE = 10, "vsan10"
NOBODY = bytes.fromhex("100003000000ff01")

#: At most so many packets are parked at once.
PLACES = 10
#: Times that the module goes; the first ones fill the kernel's own caches and are not counted.
WARM_UP, ROUNDS = 3, 24

#: Caches in which a request (28 bytes), a parked packet's record (40) and its buffer's head lie, on
#: today's kernels and on old ones.
SLABS = ("kmalloc-32", "kmalloc-64", "skbuff_head_cache")
OLD_SLABS = ("size-32", "size-64", "skbuff_head_cache")
#: KiB of data in each packet.
PACKET_KIB = 32


def scenario(lab):
    # One processor: the allocator keeps half-used blocks for each.
    (a,) = lab.boot("a", kind=Switch, cpus=1, files=programs("device", "packet"))
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    a.run("ip link set eth0 mtu 2500 up")
    head = frame(name_of(a.port(VSAN)), NOBODY, b"").hex()
    a.run(f"(printf {head}; head -c {PACKET_KIB * 2048} /dev/zero | tr '\\0' 0) > /tmp/frame")
    really_parked(a)
    rounds(a, WARM_UP)
    before, kib = slabs(a), available(a)
    rounds(a, ROUNDS)
    after, lost = slabs(a), kib - available(a)
    more = {name: after[name] - before[name] for name in before}
    parked = ROUNDS * PLACES
    print(f"after {parked} packets: {more} objects more, {lost} KiB less")
    for name, count in more.items():
        expect(count < parked // 2, f"{name}: {count} objects more after {parked} packets")
    expect(lost < parked * PACKET_KIB // 2, f"{lost} KiB less, of {parked * PACKET_KIB} parked")


def load(a):
    port = a.port(VSAN)
    return (
        "insmod /modules/brim_platform.ko link=eth0 && insmod /modules/ipfc.ko && "
        "until test -c /dev/ipfc; do usleep 1000; done && "
        f"ipfcctl vsan create {VSAN} --wwpn {port.port_name} --wwnn {port.node_name} && "
        f"ipfcctl vsan set-fcid {VSAN} {port.fcid:#08x} && ip link set {DEVICE} mtu 65280 up && "
        f"packet raw {DEVICE} 800 $(cat /tmp/frame) {PLACES:x} > /dev/null"
    )


def really_parked(a):
    """Ten packets have a place, the eleventh has none, and all ten requests can be read."""
    a.run(load(a))
    dropped = f"/sys/class/net/{DEVICE}/statistics/tx_dropped"
    expect(a.run(f"cat {dropped}") == "0\n", "ten are parked")
    a.run(f"packet raw {DEVICE} 800 $(cat /tmp/frame)")
    expect(a.run(f"cat {dropped}") == "1\n", "and no more")
    read = f"read c edge {bytes(12).hex()}"
    answers = Device(a).work("close", "open /dev/ipfc nonblock", *[read] * (PLACES + 1))[2:]
    wanted = [0] * PLACES + [EAGAIN]
    expect([result for result, _ in answers] == wanted, f"ten requests: {answers}")
    a.run("rmmod ipfc && rmmod brim_platform")


def rounds(a, count):
    a.run(
        f"for round in $(seq {count}); do {load(a)} && rmmod ipfc && rmmod brim_platform || exit 1; "
        "done",
        timeout=200,
    )


def slabs(a):
    """Objects in use, the least of several counts: blocks at hand count as used up."""
    names = OLD_SLABS if a.lab.kernel.old else SLABS
    shrink = "true"
    if not a.lab.kernel.old:
        files = " ".join(f"/sys/kernel/slab/{name}*/shrink" for name in names)
        shrink = f"for file in {files}; do echo 1 > $file; done"
    counts = []
    for _ in range(5):
        text = a.run(f"{shrink}; cat /proc/slabinfo")
        lines = [line.split() for line in text.splitlines()]
        counts.append({words[0]: int(words[1]) for words in lines if words[0] in names})
    expect(set(counts[0]) == set(names), f"the caches are there: {counts}")
    return {name: min(count[name] for count in counts) for name in names}


def available(a):
    # An old kernel does not say what could be had, but has just given its caches up.
    a.run("sync; echo 3 > /proc/sys/vm/drop_caches")
    return int(a.run("awk '/^Mem(Free|Available):/ { kib = $2 } END { print kib }' /proc/meminfo"))
