# SPDX-License-Identifier: GPL-2.0-only
"""Both switches reach each other over both VSANs with IPv4 and IPv6, small and large.

    +--------+                             +--------+
    | vsan10 |                             | vsan10 |
    | vsan20 |                             | vsan20 |
    |   a    | eth0 ----- link ------ eth0 |   b    |
    +--------+                             +--------+
"""

from harness import PING_SIZES, Ping, Switch, expect

VSANS = (10, 20)


def scenario(lab):
    switches = a, b = lab.boot("a", "b", kind=Switch)
    for switch in switches:
        switch.load()
        for vsan in VSANS:
            switch.create_vsan(vsan)
    for vsan in VSANS:
        for family in ("IPv4", "IPv6"):
            for size in PING_SIZES:
                both_ways(a, b, vsan, family, size)
    for switch in switches:
        for vsan in VSANS:
            counters = switch.link(f"vsan{vsan}")["stats64"]
            expect(counters["rx"]["errors"] == 0, f"{switch.name} vsan{vsan} received no bad frame")
            expect(counters["tx"]["errors"] == 0, f"{switch.name} vsan{vsan} failed to send nothing")
        switch.unload()


def both_ways(a, b, vsan, family, size):
    there = a.start_ping(b.port(vsan).addresses[family], size)
    back = b.start_ping(a.port(vsan).addresses[family], size)
    for name, pending in (("a to b", there), ("b to a", back)):
        ping = Ping(pending.result().out)
        expect(ping.good, f"{name}: vsan{vsan} {family} {size} bytes answered\n{ping.text}")
