# SPDX-License-Identifier: GPL-2.0-only
"""The seam gives a driver what 2.6.27 gave it, on whatever kernel this is.

    +--------+
    |   a    | kprobe0 (kapi_probe.ko)
    +--------+
"""

import os
import re
import subprocess

from harness import ROOT, Failure, expect, large_blocks

EXPECTED = [
    (r"kapi_probe: loading out-of-tree module taints kernel\.", "it is no part of the kernel"),
    (r"kapi_probe says error 3", "a message of level 3, to see the level arrive"),
    (r"kapi_probe says nothing about its level", "a message without level gets the default, 4"),
]

#: Loads the probe; on an old kernel its node comes a little later.
LOADED = "insmod /modules/kapi_probe.ko && until test -c /dev/kapi_probe; do usleep 10000; done"

SOURCES = ROOT / "tests" / "vm" / "kapi_probe"


def scenario(lab):
    (a,) = lab.boot("a", files=build(lab))
    nothing_answers_before_start_up_is_over(a)
    node_belongs_to_root_alone(a)
    expect(a.run("probe checks").startswith("ok"), "the probe's own checks hold")
    commands_run_one_at_a_time(a)
    expect(a.run("probe wakes") == "ok 2\n", "poll and read wake up")
    packets_keep_their_payload(a)
    driver_decides_the_mtu(a)
    message_levels_arrive(a)
    sleeping_memory_under_a_lock_is_atomic(a)
    reports_read_as_they_did(a)
    removal_under_an_open_report(a)
    unload_under_an_open_report(a)
    failed_start_up_leaves_nothing(a)
    failed_start_up_while_openers_knock(a)
    devices_are_freed_in_the_end(a)


def build(lab):
    """The probe's two halves, as files for the machine."""
    out = lab.kernel.out / "kapi_probe"
    run([ROOT / "scripts/build-modules", "--kdir", lab.kernel.build, "--out", out, "--module", SOURCES])
    program = out / "probe"
    source = SOURCES / "user" / "probe_user.cpp"
    # Renamed when it is whole: another scenario may want it at the same time.
    new = out / f"probe.{os.getpid()}"
    room = ROOT / "tests/vm/programs/room.c"
    run(["c++", "-std=c++20", "-O1", "-Wall", "-Wextra", "-Werror", "-static", "-o", new, source, room])
    new.replace(program)
    return {"modules/kapi_probe.ko": out / "kapi_probe.ko", "bin/probe": program}


def run(command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Failure(f"{command[0]}: {done.stdout}{done.stderr}")


def nothing_answers_before_start_up_is_over(a):
    a.background("load", "insmod /modules/kapi_probe.ko hold=1; echo loaded $?")
    number = a.wait_until("sed -n 's/ kapi_probe$//p' /proc/devices | grep .").strip()
    a.run(f"mknod /run/node c {number} 0; echo {number} > /run/number")
    expect(a.run("probe open /run/node") == "ok 6\n", "opening gives ENXIO")
    a.wait_until("test -e /proc/kapi_probe/whole")
    early = a.try_run("cat /proc/kapi_probe/whole")
    expect("No such device" in early.err and not early.out, f"no report can be read: {early.err}")
    expect("loaded" not in a.run("cat /run/background/load"), "start-up was still under way")
    a.run("echo 0 > /sys/module/kapi_probe/parameters/hold")
    a.wait_until("grep -qx 'loaded 0' /run/background/load")
    expect(a.run("probe open /run/node") == "ok 0\n", "afterwards it opens")


def node_belongs_to_root_alone(a):
    listing = a.run("stat -c '%F %a %u' /dev/kapi_probe")
    expect(listing == "character special file 600 0\n", f"the node is root's: {listing}")


def commands_run_one_at_a_time(a):
    expect(a.run("probe serialised", timeout=60) == "ok 3\n", "no two commands at once")
    expect(a.run("probe compat") == "ok 1000\n", "a 32-bit caller reaches the compatibility entry")


def packets_keep_their_payload(a):
    a.run("ip link set kprobe0 up")
    expect(a.run("probe packet") == "ok 1\n", "header and payload arrive behind each other")
    expect(a.run("probe refused-packet") == "ok 1\n", "a refused header ends at the sender")
    expect(a.run("probe packet") == "ok 2\n", "and nothing is broken by it")
    link = a.json("ip -s -j link show dev kprobe0")[0]
    expect(link["stats64"]["tx"]["packets"] == 2, f"the driver's counters show: {link}")
    expect(link["address"] == "21:00:01:02:03:04:05:06:00:0a:0b:0c", f"its address: {link}")


def driver_decides_the_mtu(a):
    for asked, then in ((8, 8), (7, 8), (65281, 8), (65280, 65280), (1500, 1500)):
        a.run(f"ip link set kprobe0 mtu {asked}")
        mtu = int(a.run("cat /sys/class/net/kprobe0/mtu"))
        expect(mtu == then, f"MTU {asked} asked for: {mtu}")


def message_levels_arrive(a):
    log = [re.sub(r"\[.*?\] ", "", line, count=1) for line in a.log().splitlines()]
    for line in (
        "<3>kapi_probe says error 3",
        "<6>kapi_probe says info 6",
        "<7><{x}>kapi_probe says debug",
        "<4>kapi_probe says nothing about its level",
    ):
        expect(line in log, f"the log has {line!r}")


def sleeping_memory_under_a_lock_is_atomic(a):
    """What the kernel traces of the probe's allocations: 777 and 712 bytes are asked under a lock."""
    if a.lab.kernel.old:
        print("not run: sleeping_memory_under_a_lock_is_atomic; this kernel traces no allocations")
        return
    a.run("mount -t tracefs tracefs /sys/kernel/tracing 2>/dev/null || true")
    a.run(
        "cd /sys/kernel/tracing && echo 'bytes_req == 777 || bytes_req == 778' > events/kmem/kmalloc/filter"
        " && echo 'bytes_req == 712' > events/kmem/kmem_cache_alloc/filter"
        " && echo 1 > events/kmem/kmalloc/enable && echo 1 > events/kmem/kmem_cache_alloc/enable"
    )
    a.run("probe checks")
    trace = a.run("cat /sys/kernel/tracing/trace")
    a.run("cd /sys/kernel/tracing && echo 0 > events/kmem/enable")
    flags = dict(re.findall(r"bytes_req=(\d+) .*gfp_flags=(\S+)", trace))
    expect(flags.get("777") == "GFP_ATOMIC", f"kmalloc under a lock: {trace}")
    expect(flags.get("712") == "GFP_ATOMIC", f"slab cache under a lock: {trace}")
    expect(flags.get("778") == "GFP_KERNEL", f"kmalloc outside: {trace}")


def reports_read_as_they_did(a):
    lines = "".join(f"{number:15d}\n" for number in range(10000))
    folder = "/proc/kapi_probe"
    expect(a.run(f"cat {folder}/whole") == "whole data 0\n", "a short report")
    expect(a.run(f"cat {folder}/long") == lines[:16000], "a report beyond a page")
    expect(a.run(f"cat {folder}/windows") == lines, "a report in windows")
    expect(a.run(f"cat {folder}/steps") == "step 0\nstep 1\nstep 2\n", "a report in steps")
    middle = a.run(f"dd if={folder}/windows bs=7 skip=1000 count=9 2>/dev/null")
    expect(middle == lines[7000:7063], f"a piece from the middle: {middle!r}")
    expect(a.run(f"stat -c %a {folder}/whole") == "444\n", "mode 0 is readable by everybody")
    a.run(f"chmod 644 {folder}/whole; printf 12345 > {folder}/whole")
    expect(a.run(f"cat {folder}/whole") == "whole data 5\n", "writing reaches the driver")
    for offset, length in ((0, 64), (2**31 - 1, 0), (2**31, 0), (2**32, 0), (2**40, 0)):
        read = a.run(f"probe pread {folder}/windows {offset}")
        expect(read == f"ok {length}\n", f"reading at {offset}: {read}")


def hold(a, path):
    a.run("rm -f /run/held /run/gone")
    a.background("hold", f"probe hold {path} /run/gone")
    a.wait_until("test -e /run/held")


def removal_under_an_open_report(a):
    hold(a, "/proc/kapi_probe/doomed")
    a.run("probe ioctl 54 0")
    # On a kernel before 3.2 a name that somebody has open stays, and nobody can open it any more.
    look = "cat" if a.lab.kernel.old else "test -e"
    expect(a.try_run(f"{look} /proc/kapi_probe/doomed").status != 0, "the entry has gone")
    a.run("touch /run/gone")
    a.wait_until("grep -qx 'ok 0' /run/background/hold")


def unload_under_an_open_report(a):
    hold(a, "/proc/kapi_probe/whole")
    a.run("rmmod kapi_probe")
    if not a.lab.kernel.old:
        nothing_is_left(a)
    a.run("touch /run/gone")
    a.wait_until("grep -qx 'ok 0' /run/background/hold")
    nothing_is_left(a)


def nothing_is_left(a):
    expect("kapi_probe" not in a.run("cat /proc/devices /proc/modules"), "no device, no module")
    for path in ("/proc/kapi_probe", "/sys/class/net/kprobe0", "/sys/class/kapi_probe",
                 "/dev/kapi_probe", "/sys/kernel/slab/kapi_probe_cache"):  # fmt: skip
        expect(a.try_run(f"test -e {path}").status != 0, f"{path} has gone")
    expect("kapi_probe_cache" not in a.run("cat /proc/slabinfo"), "no slab cache")


def failed_start_up_leaves_nothing(a):
    for _ in range(3):
        done = a.try_run("insmod /modules/kapi_probe.ko fail=1")
        expect(done.status != 0 and "busy" in done.err.lower(), f"start-up fails: {done.err}")
        nothing_is_left(a)
    a.run(f"{LOADED} && probe checks && rmmod kapi_probe")


def failed_start_up_while_openers_knock(a):
    """None of them is in the module when its memory goes."""
    # Not a program for each opener, to look for the driver of a number that nobody has.
    a.run("echo > /proc/sys/kernel/modprobe")
    for _ in range(2):
        a.run("rm -f /run/gone")
        a.background("load", "insmod /modules/kapi_probe.ko hold=1 fail=1; echo ended $?")
        a.wait_until(f"grep -x '{a.run('cat /run/number').strip()} kapi_probe' /proc/devices")
        a.background("knock", "probe knock /run/node /run/gone")
        a.background("knock2", "probe knock /run/node /run/gone")
        # insmod tries a second way to load when the first one has failed.
        a.run(
            "until grep -q 'ended [1-9]' /run/background/load; do usleep 50000; "
            "echo 0 2> /dev/null > /sys/module/kapi_probe/parameters/hold || true; done"
        )
        nothing_is_left(a)
        a.run("touch /run/gone")
        for name in ("knock", "knock2"):
            a.wait_until(f"grep -x 'ok [1-9][0-9]*' /run/background/{name}")


def devices_are_freed_in_the_end(a):
    """A device is one block of its size class; a hundred that leaked would show."""

    def round_trip():
        a.run(f"{LOADED} && probe ioctl 53 100 && rmmod kapi_probe", timeout=120)

    round_trip()
    before = large_blocks(a)
    round_trip()
    after = large_blocks(a)
    expect(after < before + 50, f"blocks of 4 and 8 KiB: {before}, then {after}")
