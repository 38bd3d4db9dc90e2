# SPDX-License-Identifier: GPL-2.0-only
"""A start-up of ipfc.ko that fails leaves nothing behind that points into its memory.

    +--------+
    |   a    | eth0 ----- (nobody)
    +--------+
"""

from harness import Switch, expect
from scenarios import kapi_seam

EXPECTED = [
    (r"kapi_probe: loading out-of-tree module taints kernel\.", "it is no part of the kernel"),
    (r"ipfc - Unable to get major number \d+\. Aborting", "the number is taken on purpose"),
]



def add_address(vsan, last):
    """Refused by the platform as long as no driver has registered its callbacks."""
    line = f"add {vsan} 10.{vsan}.0.{last} 02:00:00:00:00:{last} 0x0a00{last}"
    return f"echo {line} | dd of=/proc/brim_sw/secondary_ip"


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=kapi_seam.build(lab))
    a.load()
    a.create_vsan(10, addresses=False)
    a.run(add_address(10, 77))
    a.run("rmmod ipfc")
    number_taken(a)
    lab.check_logs([pattern for pattern, _ in EXPECTED])
    if lab.kernel.old:
        print("not run: directory_taken; this kernel makes a second directory of the same name")
        return
    directory_taken(a)
    a.expect_death("echo c > /proc/sysrq-trigger", "sysrq triggered crash")


def number_taken(a):
    """The console's number, 5, has long been given away."""
    done = a.try_run("insmod /modules/ipfc.ko major=5")
    expect(done.status != 0 and "busy" in done.err.lower(), f"start-up fails: {done.err}")
    expect("ipfc - Unable to get major number 5. Aborting" in a.log(), "and says why")
    nothing_is_left(a)


def directory_taken(a):
    """The kernel itself complains of a name that is made twice, with a warning, which is let pass
    here; so this comes last, and the machine ends with it."""
    a.run("insmod /modules/kapi_probe.ko && probe ioctl 57 1")
    a.run("echo 0 > /proc/sys/kernel/panic_on_warn")
    for _ in range(3):
        done = a.try_run("insmod /modules/ipfc.ko")
        expect(done.status != 0 and "memory" in done.err.lower(), f"start-up fails: {done.err}")
        nothing_is_left(a)
    log = a.log()
    expect(log.count("<3>") >= 3 and "ipfc - Can not create the proc directory" in log, "says why")
    expect(log.count("WARNING: ") == log.count("'brim_sw/ipfc' already registered"), "no other")
    a.run("probe ioctl 57 0 && insmod /modules/ipfc.ko")
    a.create_vsan(11, addresses=False)
    a.run(add_address(11, 79))
    a.unload()


def nothing_is_left(a):
    for command in ("test -e /dev/ipfc", "test -e /sys/class/ipfc", "test -d /sys/module/ipfc",
                    "grep -w ipfc /proc/devices", "test -e /proc/brim_sw/dbgtap/ipfc"):  # fmt: skip
        expect(a.try_run(command).status != 0, f"nothing is left: {command}")
    added = a.try_run(add_address(10, 78))
    expect(added.status != 0 and "No such device" in added.err, f"no callbacks: {added.err}")
