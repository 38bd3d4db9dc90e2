# SPDX-License-Identifier: GPL-2.0-only
"""The modules come and go again and again, with and without interfaces, and leave nothing behind.

    +--------+
    |   a    | eth0 ----- (nobody)
    +--------+
"""

from harness import Switch, expect

ROUNDS = 5
LISTING = "ls /sys/class/net; ls /proc | grep -v '^[0-9]'; cat /proc/devices"


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch)
    before = a.run(LISTING)
    for _ in range(ROUNDS):
        a.load()
        a.unload()
        a.load()
        for vsan in (1, 10, 4095):
            a.create_vsan(vsan, addresses=False)
        a.delete_vsan(10)
        # vsan1 and vsan4095 are up and still there when the module goes.
        a.unload()
        expect(not a.run("ls /dev").split().count("ipfc"), "the device node has gone")
        expect("vsan" not in a.run("ls /sys/class/net"), "all interfaces have gone")
    after = a.run(LISTING)
    expect(after == before, f"nothing is left behind:\n{before}\n{after}")
