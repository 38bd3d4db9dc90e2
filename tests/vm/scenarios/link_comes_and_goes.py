# SPDX-License-Identifier: GPL-2.0-only
"""The device that the platform's link names may be missing, appear, go and come back.

    +--------+                                     +--------+
    | vsan10 |                                     | vsan10 |
    |   a    | fabric0, then eth0 -- link --- eth0 |   b    |
    +--------+                                     +--------+
"""

from harness import Switch, expect

PROMISC = 0x100


def scenario(lab):
    a, b = lab.boot("a", "b", kind=Switch)
    b.load()
    b.create_vsan(10)

    a.run("insmod /modules/brim_platform.ko link=fabric0 && insmod /modules/ipfc.ko")
    a.wait_until("test -c /dev/ipfc")
    a.create_vsan(10)
    target = b.port(10).ipv4
    expect(a.ping(target, count=1).received == 0, "without a device nobody answers")
    expect(not promiscuous(a, "eth0"), "a device of another name is left alone")

    rename(a, "eth0", "fabric0")
    expect(promiscuous(a, "fabric0"), "the device takes in all frames once it is there")
    expect(a.link("fabric0")["mtu"] == 2500, "its MTU is raised to what a whole frame needs")
    answered(a, target, 9000)

    rename(a, "fabric0", "eth0")
    expect(not promiscuous(a, "eth0"), "the device is let go with its name")
    expect(a.ping(target, count=1).received == 0, "nobody answers without it")

    rename(a, "eth0", "fabric0")
    answered(a, target, 9000)

    # A driver that lets go of the card while it is in use, and finds it again.
    card = a.run("readlink -f /sys/class/net/fabric0/device").strip()
    driver = a.run(f"readlink -f {card}/driver").strip()
    number = card.split("/")[-1]
    a.run(f"echo -n {number} > {driver}/unbind")
    expect("fabric0" not in a.run("ls /sys/class/net").split(), "the card has gone")
    expect(a.ping(target, count=1).received == 0, "nobody answers without a card")
    a.run(f"echo -n {number} > {driver}/bind")
    a.wait_until("test -e /sys/class/net/eth0")
    rename(a, "eth0", "fabric0")
    answered(a, target, 9000)
    for switch in (a, b):
        switch.unload()
    expect(not promiscuous(a, "fabric0"), "the module leaves the device as it was")


def rename(switch, old, new):
    """Not up and down by ip: an old kernel then takes the card's promiscuity for the caller's wish,
    who would have to take it back."""
    switch.run(f"ifconfig {old} down && ip link set {old} name {new} && ifconfig {new} up")


def promiscuous(switch, device):
    return int(switch.run(f"cat /sys/class/net/{device}/flags"), 0) & PROMISC != 0


def answered(switch, target, size):
    """A peer that has been silent is held for unreachable for a while, so this may take some."""
    switch.wait_until(f"ping -c 1 -W 1 -s {size} {target}", timeout=30)
