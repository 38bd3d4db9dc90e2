# SPDX-License-Identifier: GPL-2.0-only
"""Everything that can be taken away is taken away under full traffic, and comes back.

    +--------+                             +--------+
    | vsan10 | <---- pings both ways ----> | vsan10 |
    | vsan20 |                             | vsan20 |
    |   a    | eth0 ----- link ------ eth0 |   b    |
    +--------+                             +--------+
"""

import re

from harness import VSAN_MTU, Switch, expect

LIMIT = 400
VSANS = (10, 20)

#: (VSAN, bytes): packets of one frame and of several.
STREAMS = ((10, 56), (20, 6000))

#: Seconds from one ping of a stream to the next. Four streams ask for a third of what two emulated
#: machines can do: with more, a busy computer has them fall behind for good.
PERIOD = 0.05


def scenario(lab):
    switches = a, b = lab.boot("a", "b", kind=Switch)
    for switch in switches:
        bring_up(switch)
    all_answered(a, b)
    for switch, other in ((a, b), (b, a)):
        flood(switch, other)
    for disturb in (
        change_fcid, remove_fcid, delete_interface, delete_other_interface, pull_cable,
        change_mapping, lose_device, clear_everything, reload_driver, reload_both,
    ):  # fmt: skip
        disturb(a, b)
        expect_flood(a)
        expect_flood(b)
    stop_flood(a)
    stop_flood(b)
    all_answered(a, b)
    for switch in switches:
        nothing_lost(switch)


def bring_up(switch):
    switch.load()
    for vsan in VSANS:
        again(switch, vsan)


def again(switch, vsan):
    """As create_vsan(), in a single command: nothing is slow about it but the way to the machine."""
    port = switch.port(vsan)
    switch.run(
        f"ipfcctl vsan create {vsan} --wwpn {port.port_name} --wwnn {port.node_name} && "
        f"ipfcctl vsan set-fcid {vsan} {port.fcid:#08x} && ipfcctl vsan up {vsan} && "
        f"ip link set {port.device} mtu {VSAN_MTU} up && "
        f"ip addr add {port.ipv4}/24 dev {port.device} && "
        f"ip -6 addr add {port.ipv6}/64 dev {port.device} nodad"
    )


def flood(switch, other):
    """Pings on both VSANs for ever; their senders survive everything."""
    for vsan, size in STREAMS:
        switch.background(
            f"flood{vsan}",
            f"while true; do ping -n -q -i {PERIOD} -w 5 -s {size} {other.port(vsan).ipv4}; "
            "usleep 20000; done",
        )


def stop_flood(switch):
    # The loops first, or they would begin anew.
    switch.run("for file in /run/background/flood*.pid; do kill $(cat $file); done; killall ping; true")
    switch.wait_until("! pidof ping")


def expect_flood(switch):
    """The senders are alive, whatever became of their packets."""
    for vsan, _ in STREAMS:
        switch.run(f"kill -0 $(cat /run/background/flood{vsan}.pid)")


def all_answered(a, b):
    """Pings come through again, after a while at most."""
    for vsan in VSANS:
        for switch, other in ((a, b), (b, a)):
            port = other.port(vsan)
            for address in (port.ipv4, port.ipv6):
                switch.wait_until(f"ping -n -c 1 -W 2 -s 3000 {address}", timeout=60)


def nothing_lost(switch):
    for vsan in VSANS:
        switch.delete_vsan(vsan)
    text = switch.run("cat /proc/brim_sw/ipfc/statistics")
    found = re.search(r"mapping obj allocated = (-?\d+)\nexch obj allocated = (-?\d+)\n", text)
    expect(found.group(1) == "0", f"{switch.name}: no mapping is lost: {text}")
    switch.unload()


# ---- what is taken away; each leaves everything as it was ----


def change_fcid(a, b):
    """Old addresses stay registered; the first one is refused for that, and in use again."""
    port = a.port(10)
    for number in range(1, 6):
        a.ctl(f"vsan set-fcid 10 {port.fcid + number:#08x}")
    expect(a.try_run(f"ipfcctl vsan set-fcid 10 {port.fcid:#08x}").status == 2, "it is there already")


def remove_fcid(a, b):
    for _ in range(3):
        a.ctl(f"vsan rem-fcid 10 && usleep 20000 && ipfcctl vsan set-fcid 10 {a.port(10).fcid:#08x}")


def delete_interface(a, b):
    for _ in range(2):
        a.delete_vsan(10)
        again(a, 10)


def delete_other_interface(a, b):
    a.delete_vsan(20)
    b.delete_vsan(20)
    again(b, 20)
    again(a, 20)


def pull_cable(a, b):
    for _ in range(2):
        a.set_link(False)
        a.wait_until("[ $(cat /sys/class/net/eth0/carrier) = 0 ]")
        a.set_link(True)
        a.wait_until("[ $(cat /sys/class/net/eth0/carrier) = 1 ]")
        a.run("ip link set eth0 down && usleep 100000 && ip link set eth0 up")


def change_mapping(a, b):
    """The kernel is told wrong addresses for the other side, and right ones again."""
    right = b.port(10).hardware_address
    wrong = right[:-2] + "77"
    for _ in range(3):
        a.run(
            f"ip neigh replace {b.port(10).ipv4} lladdr {wrong} dev vsan10; usleep 50000;"
            f"ip neigh replace {b.port(10).ipv4} lladdr {right} dev vsan10; usleep 50000"
        )
    a.run(f"ip neigh del {b.port(10).ipv4} dev vsan10; true")


def lose_device(a, b):
    """The card is taken out of the kernel's hands and given back."""
    a.run(
        "device=$(readlink -f /sys/class/net/eth0/device); driver=$(readlink -f $device/driver); "
        "echo -n ${device##*/} > $driver/unbind && usleep 200000 && "
        "echo -n ${device##*/} > $driver/bind"
    )
    a.wait_until("test -e /sys/class/net/eth0")
    a.run("ip link set eth0 mtu 2500 up")


def clear_everything(a, b):
    a.ctl("cleanup")
    for vsan in VSANS:
        again(a, vsan)


def reload_driver(a, b):
    a.run("rmmod ipfc && insmod /modules/ipfc.ko")
    a.wait_until("test -c /dev/ipfc")
    for vsan in VSANS:
        again(a, vsan)


def reload_both(a, b):
    a.unload()
    b.unload()
    bring_up(b)
    bring_up(a)
