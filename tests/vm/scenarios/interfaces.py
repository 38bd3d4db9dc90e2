# SPDX-License-Identifier: GPL-2.0-only
"""What the kernel shows of the interfaces: addresses, flags, MTU limits, names, and their end.

    +-----------------------------+
    |   vsan0 vsan10 vsan4095     |
    |   a        vsan30 (a dummy) | eth0 ----- (nobody)
    +-----------------------------+
"""

import re

from harness import Switch, expect, programs
from harness.control import *

NAME = "20:0a:02:00:00:00:00:01"
BROADCAST = "10:00:ff:ff:ff:ff:ff:ff:00:ff:ff:ff"


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, stock_modules=("dummy",), files=programs("device"))
    a.load()
    device = Device(a)
    as_created(a, device)
    address(a, device)
    largest_packets(a)
    administration(a, device)
    first_and_last(a, device)
    of_any_name(a, device)
    name_taken(a, device)
    renamed_meanwhile(a, device)
    expect("vsan10" not in a.run("ls /sys/class/net"), "the interfaces go with the module")


def sys(a, device, name):
    return a.run(f"cat /sys/class/net/{device}/{name}").strip()


def as_created(a, device):
    device.check((f"ioctl {CREATE} edge {interface(10)}", 0))
    told = a.json("ip -j -d link show dev vsan10")[0]
    expect(told["flags"] == ["BROADCAST"], f"BROADCAST and nothing else: {told['flags']}")
    expect(told["mtu"] == 1500, f"MTU 1500: {told['mtu']}")
    expect(told["link_type"] == "fc" or "18" in told["link_type"], f"type: {told['link_type']}")
    expect(told["address"] == f"{NAME}:00:00:00:00", f"port name, no FCID: {told['address']}")
    expect(told["broadcast"] == BROADCAST, f"broadcast address: {told['broadcast']}")
    # Kernels before 3.2 do not tell.
    if not a.lab.kernel.old:
        expect(told["num_tx_queues"] == 1, f"one queue: {told['num_tx_queues']}")
    names = ("type", "addr_len", "flags", "address", "broadcast", "mtu")
    told = a.run(f"cd /sys/class/net/vsan10; cat {' '.join(names)}").split()
    wanted = ["18", "12", "0x2", f"{NAME}:00:00:00:00", BROADCAST, "1500"]
    expect(told == wanted, f"{names}: {told}")


def address(a, device):
    """The last four bytes follow the FCID when it is set, and stay when it is taken away."""
    for action, fcid, shown in (
        (SET_FCID, 0x0A0B0C, "00:0a:0b:0c"),
        (REM_FCID, 0, "00:0a:0b:0c"),
        (SET_FCID, 0xEF0102, "00:ef:01:02"),
        (REM_FCID, 0x0A0B0C, "00:ef:01:02"),
        (REM_FCID, 0, "00:ef:01:02"),
    ):
        device.check((f"ioctl {UPDATE} edge {interface(10, fcid=fcid, action=action)}", 0))
        expect(sys(a, "vsan10", "address") == f"{NAME}:{shown}", f"the address ends in {shown}")
        own = f"{fcid:06x}" if action == SET_FCID else "000000"
        record = device.one(f"ioctl {GET_INTF} edge 0a000000{'00' * 48}")[1]
        expect(record[48:56] == f"00{own}", f"the interface's own FCID is {own}: {record}")
    # Coming up, the kernel compares the address with a copy of its own.
    a.run("ip link set vsan10 up && ip link set vsan10 down && ip link set vsan10 up")
    expect(sys(a, "vsan10", "address") == f"{NAME}:00:ef:01:02", "and so it stays")
    device.check((f"ioctl {UPDATE} edge {interface(10, fcid=0x0A0A01, action=SET_FCID)}", 0))
    expect(sys(a, "vsan10", "address") == f"{NAME}:00:0a:0a:01", "it changes while up")
    done = a.try_run("ip link set vsan10 address 20:00:00:00:00:00:00:99:00:0a:0a:99")
    expect("Operation not supported" in done.err, f"through the driver alone: {done.err}")
    expect(sys(a, "vsan10", "address") == f"{NAME}:00:0a:0a:01", "so it stays")


def largest_packets(a):
    """8 to 65280; what is out of range changes nothing, and is not refused either."""
    for asked, then in (
        (8, 8), (7, 8), (68, 68), (65280, 65280), (65281, 65280), (0, 65280), (1500, 1500),
        (65536, 1500), (2147483647, 1500), (576, 576),
    ):  # fmt: skip
        told = a.run(
            f"ip link set vsan10 mtu {asked}; echo $?; cat /sys/class/net/vsan10/mtu;"
            f"echo {asked} > /sys/class/net/vsan10/mtu; echo $?; cat /sys/class/net/vsan10/mtu"
        )
        expect(told.split() == ["0", str(then)] * 2, f"MTU {asked} gives {then}: {told.split()}")


def administration(a, device):
    """Administrative state is the driver's own and has nothing to do with the kernel's."""
    for action, state in ((ADMIN_UP, "01"), (ADMIN_DOWN, "00"), (ADMIN_UP, "01")):
        flags = sys(a, "vsan10", "flags")
        device.check((f"ioctl {UPDATE} edge {interface(10, action=action)}", 0))
        record = device.one(f"ioctl {GET_INTF} edge 0a000000{'00' * 48}")[1]
        expect(record[8:10] == state, f"administrative state {state}: {record}")
        expect(sys(a, "vsan10", "flags") == flags, "the kernel's flags do not move")


def first_and_last(a, device):
    device.check(
        (f"ioctl {CREATE} edge {interface(0)}", 0),
        (f"ioctl {CREATE} edge {interface(4095)}", 0),
        (f"ioctl {CREATE} edge {interface(4096)}", EINVAL),
    )
    expect(interfaces(a) == ["vsan0", "vsan10", "vsan4095"], f"both are there: {interfaces(a)}")
    a.run("ip link set vsan0 up && ip link set vsan4095 up")
    device.check(*((f"ioctl {DELETE} edge {interface(vsan)}", 0) for vsan in (0, 4095)))
    expect(interfaces(a) == ["vsan10"], f"and gone: {interfaces(a)}")


def of_any_name(a, device):
    """Port names that would be no good as Ethernet addresses: a group's, one of zeroes."""
    names = ("2100030000000001", "0100030000000001", "ffffffffffffffff", "0000000000000001")
    for vsan, name in enumerate(names, 20):
        record = interface(vsan, fcid=0x0A1400 + vsan, wwpn=bytes.fromhex(name), action=SET_FCID)
        device.check((f"ioctl {CREATE} edge {record}", 0), (f"ioctl {UPDATE} edge {record}", 0))
        a.run(f"ip link set vsan{vsan} up")
        expect(int(sys(a, f"vsan{vsan}", "flags"), 16) & 1, f"{name} is up")
        shown = sys(a, f"vsan{vsan}", "address")
        expect(shown == bytes.fromhex(f"{name}000a14{vsan:02x}").hex(":"), f"{name}: {shown}")
        device.check((f"ioctl {DELETE} edge {record}", 0))


def interfaces(a):
    return re.findall(r"^vsan\d+$", a.run("ls /sys/class/net"), re.MULTILINE)


def name_taken(a, device):
    """The kernel refuses a name that it has already; the driver goes on as if it had not."""
    a.run("ip link add vsan30 type dummy")
    before = a.run("ip -d link show dev vsan30")
    device.check(
        (f"ioctl {CREATE} edge {interface(30)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, fcid=0x0A1E01, action=SET_FCID)}", 0),
    )
    report = a.run("cat /proc/brim_sw/ipfc/vsan30")
    expect("fcid = 0x0a1e01\n" in report, f"the driver has its interface: {report}")
    expect(a.run("ip -d link show dev vsan30") == before, "the other one is as it was")
    device.check((f"ioctl {DELETE} edge {interface(30)}", 0))
    expect(a.run("ip -d link show dev vsan30") == before, "and stays so")
    expect(a.try_run("test -e /proc/brim_sw/ipfc/vsan30").status != 0, "the report has gone")
    # One that was refused, left until the module goes or deleted with all others.
    device.check((f"ioctl {CREATE} edge {interface(30)}", 0), (f"ioctl {CLEANUP} none", 0))
    expect(interfaces(a) == ["vsan30"], f"the dummy alone is left: {interfaces(a)}")
    device.check((f"ioctl {CREATE} edge {interface(30)}", 0))
    a.unload()
    expect(a.run("ip -d link show dev vsan30") == before, "the dummy outlives the module, too")
    a.run("ip link delete vsan30")
    a.run("insmod /modules/brim_platform.ko link=eth0 && insmod /modules/ipfc.ko")


def renamed_meanwhile(a, device):
    """The administrator may call an interface what he likes; its report goes by its own name."""
    device.check((f"ioctl {CREATE} edge {interface(10)}", 0))
    a.run("ip link set vsan10 name fibre0")
    device.check((f"ioctl {UPDATE} edge {interface(10, fcid=0x0A0A01, action=SET_FCID)}", 0))
    expect(sys(a, "fibre0", "address") == f"{NAME}:00:0a:0a:01", "it is still the same")
    device.check((f"ioctl {DELETE} edge {interface(10)}", 0))
    expect("fibre0" not in a.run("ls /sys/class/net"), "and goes under its new name")
    # The old report is looked for under the new name, and stays until the module goes; meanwhile it
    # tells of an interface that is no more, and a fresh one of the old name has none.
    report = a.run("cat /proc/brim_sw/ipfc/vsan10")
    expect("fcid = 0x0a0a01\n" in report, f"the old one's: {report}")
    device.check((f"ioctl {CREATE} edge {interface(10)}", 0))
    expect(sys(a, "vsan10", "address") == f"{NAME}:00:00:00:00", "a fresh one")
    expect(a.run("cat /proc/brim_sw/ipfc/vsan10") == report, "without a report of its own")
    a.unload()
    expect(a.run("ls /proc/brim_sw 2>&1 || true").startswith("ls: "), "everything goes in the end")
