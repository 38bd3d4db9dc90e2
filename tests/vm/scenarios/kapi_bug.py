# SPDX-License-Identifier: GPL-2.0-only
"""A fatal command ends its caller alone where the kernel is told to live on, else the kernel.

    +--------+
    |   a    | (kapi_probe.ko)
    +--------+
"""

from harness import expect
from scenarios import kapi_seam

EXPECTED = kapi_seam.EXPECTED

BUG = "probe ioctl 52 0"


def scenario(lab):
    (a,) = lab.boot("a", files=kapi_seam.build(lab))
    a.run("insmod /modules/kapi_probe.ko")
    lab.check_logs([pattern for pattern, _ in EXPECTED])

    a.run("echo 0 > /proc/sys/kernel/panic_on_oops")
    expect(a.try_run(BUG).status != 0, "the caller is ended")
    log = a.log()
    expect("kapi_probe: BUG at kapi_probe/probe.cpp:" in log, "the log names the driver's line")
    expect("kernel BUG at" in log, "and has the kernel's report")
    expect(a.run("probe serialised", timeout=60) == "ok 3\n", "nobody waits for the dead caller")
    expect(a.run("probe wakes") == "ok 2\n", "the device works on")
    a.run("rmmod kapi_probe")

    a.run("insmod /modules/kapi_probe.ko; echo 1 > /proc/sys/kernel/panic_on_oops")
    a.expect_death(BUG, "Kernel panic - not syncing: Fatal exception")
