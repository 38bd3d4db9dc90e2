# SPDX-License-Identifier: GPL-2.0-only
"""An interface's report is whole and right with 1, 100, 1,000 and 20,000 mappings.

    +----------------------------------------------+
    |   a   fill --- /dev/ipfc                     |
    |       cat  --- /proc/brim_sw/ipfc/vsan10     | eth0 ----- (nobody)
    +----------------------------------------------+
"""

import hashlib

from harness import Switch, expect, programs

VSAN, REPORT = 10, "/proc/brim_sw/ipfc/vsan10"
LIMIT = 400

HEADING = """
VSAN Interface   10 :
fcid = 0x0a000a
WW portname = 20:00:02:00:00:00:00:0a
WW nodename = 10:00:02:00:00:00:00:01
                  WW_PN ->      FCID
"""


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("fill"))
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    a.load()
    with lab.peer.swallowing():
        a.run(f"fill interfaces {VSAN} 1")
        check(a, 0)
        last = 0
        for count in (1, 100, 1000, 20000):
            a.run(f"fill mappings {VSAN} {last} {count - last}", timeout=60)
            last = count
            check(a, count)
        shorter(a, last)
        a.run(f"ipfcctl vsan delete {VSAN}", timeout=60)
    expect(allocated(a) == 0, f"none is lost: {allocated(a)}")
    a.unload()


def name(number):
    return (bytes.fromhex("21000300") + number.to_bytes(4, "big")).hex(":")


def line(number):
    return f"{name(number)} -> {0x140000 + number:#08x}\n"


def allocated(a):
    return int(a.run("sed -n 's/^mapping obj allocated = //p' /proc/brim_sw/ipfc/statistics"))


def digest(lines):
    """What `sort | md5sum` gives for the lines."""
    return hashlib.md5("".join(sorted(lines)).encode()).hexdigest()


def check(a, count):
    """In the largest pieces; and for a report of some pages in small ones, too."""
    expect(allocated(a) == count, f"{count} mappings are there: {allocated(a)}")
    read(a, count, f"cat {REPORT}")
    if count == 1000:
        read(a, count, f"dd if={REPORT} bs=1000 2> /dev/null")
        read(a, count, f"dd if={REPORT} bs=37 count=200 2> /dev/null; tail -c +7401 {REPORT}")
        listed = a.json(f"ipfcctl -j map list {VSAN}")
        wanted = {(name(number), f"{0x140000 + number:#08x}") for number in range(count)}
        expect({(row["wwpn"], row["fcid"]) for row in listed} == wanted, "the tool lists them all")


def read(a, count, command):
    a.run(f"({command}) > /run/report", timeout=200)
    heading = a.run("head -n 6 /run/report")
    expect(heading == HEADING, f"the heading: {heading}")
    # One line for each mapping and no other, in whatever order.
    told = a.run("tail -n +7 /run/report | LC_ALL=C sort | md5sum").split()[0]
    if told != digest(line(number) for number in range(count)):
        size = a.run("wc -lc < /run/report").split()
        expect(False, f"`{command}` gives {count} lines, {len(HEADING) + count * 35} bytes: {size}")


def shorter(a, count):
    half = count // 2
    a.run(f"fill forget {VSAN} 0 {half}", timeout=60)
    expect(allocated(a) == count - half, f"{half} are gone: {allocated(a)}")
    told = a.run(f"tail -n +7 {REPORT} | LC_ALL=C sort | md5sum", timeout=100).split()[0]
    expect(told == digest(line(number) for number in range(half, count)), "the others are still there")
