# SPDX-License-Identifier: GPL-2.0-only
"""Messages and reports: the kernel's log, the histories, the files under /proc, open or not.

    +---------------------------------+
    |   a   /proc/brim_sw/ipfc        |
    |       /proc/brim_sw/dbgtap/ipfc | eth0 ----- (nobody)
    +---------------------------------+
"""

import re

from harness import Switch, expect, programs
from harness.control import *

PEER = bytes.fromhex("100002aabbccddee")
REPORTS = "/proc/brim_sw/ipfc"

#: What creating VSAN 30, giving it an address and deleting it says, word for word.
EVENTS = [
    "ipfc_chr_ioctl: Ioctl received - cmd: 14\n",
    "Add vsan: 30 \n",
    "creating VSAN interface 30\n",
    "ipfc_dev_create_mac wwn: 0x100000000020a20 \n",
    "ipfc_create_vsan_interface created proc entry for device: vsan30 \n",
    "VSAN interface30 created\n",
    "ipfc_chr_ioctl: Ioctl received - cmd: 16\n",
    "Upd vsan: 30, fcid: 0x11e0a00\n",
    "Updating VSAN Interface 30\n",
    "ipfc_dev_update_mac vsan: 30, fcid: 0x11e0a00, addr_fcid: 0x11e0a00 \n",
    "ipfc_chr_ioctl: Ioctl received - cmd: 16\n",
    "Upd vsan: 30, fcid: 0x0\n",
    "Updating VSAN Interface 30\n",
    "ipfc_chr_ioctl: Ioctl received - cmd: 15\n",
    "Del vsan: 30 \n",
    "ipfc_delete_vsan_interface: Removing ALL secondary IPFC interfaces on VSAN 30\n",
    "Removing interface 30\n",
]

REPORT = """
VSAN Interface   30 :
fcid = 0x0a1e01
WW portname = 20:0a:02:00:00:00:00:01
WW nodename = 10:00:02:00:00:00:00:01
                  WW_PN ->      FCID
10:00:02:aa:bb:cc:dd:ee -> 0x141e01
"""

STATISTICS = """
Global IPFC statistics \npackets copied = 0
bytes copied   = 0
mapping obj allocated = 1
exch obj allocated = 0
"""


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device"))
    a.run("dmesg -n 8")
    banners(a)
    device = Device(a)
    kernel_log(a, device)
    histories(a, device)
    both_elements(a, device)
    reports(a, device)
    far_offsets(a)
    open_reports(a, device)
    unread_at_unload(a)


def log_lines(machine, text):
    """The lines of the kernel's log that hold `text`, as (level, message)."""
    found = re.findall(r"^<(\d+)>\[ *[\d.]+\] (.*)$", machine.log(), re.MULTILINE)
    return [(int(level) & 7, message) for level, message in found if text in message]


def banners(a):
    a.load()
    a.unload()
    a.load()
    started = (6, "Vombrel Ipfc ver 0.02 started")
    ended = (6, "Vombrel Ipfc ver 0.02a terminated")
    said = log_lines(a, "Vombrel")
    expect(said == [started, ended, started], f"the banners, at their level: {said}")
    expect(log_lines(a, "<{ipfc}>") == [], "and nothing else, as nobody has asked for it")


def work_thirty(device):
    device.check(
        (f"ioctl {CREATE} edge {interface(30)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, fcid=0x0A1E01, action=SET_FCID)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, action=ADMIN_UP)}", 0),
        (f"ioctl {DELETE} edge {interface(30)}", 0),
    )


def kernel_log(a, device):
    """Every message goes to the kernel's log when that is switched on, at level "debug"."""
    expect(a.run(f"cat {DBGTAP}/*/log_enabled") == "0\n0\n", "off at first")
    a.run(f"echo 1 > {DBGTAP}/events/log_enabled")
    work_thirty(device)
    a.run(f"echo 0 > {DBGTAP}/events/log_enabled")
    said = log_lines(a, "<{ipfc}>")
    wanted = [(7, "<{ipfc}>" + event.rstrip("\n")) for event in EVENTS]
    expect(said == wanted, f"the log:\n{lines_of(said)}\nwanted:\n{lines_of(wanted)}")
    work_thirty(device)
    expect(len(log_lines(a, "<{ipfc}>")) == len(EVENTS), "and no more when it is off again")
    expect(a.run(f"cat {DBGTAP}/*/history") == "", "nothing was kept meanwhile")


def lines_of(rows):
    return "\n".join(str(row) for row in rows)


def histories(a, device):
    """The history keeps the same texts without what goes in front of them in the log."""
    before = len(log_lines(a, "<{ipfc}>"))
    a.run(f"echo 1 > {DBGTAP}/events/history_enabled")
    work_thirty(device)
    a.run(f"echo 0 > {DBGTAP}/events/history_enabled")
    work_thirty(device)
    kept = a.run(f"cat {DBGTAP}/events/history")
    expect(kept == "".join(EVENTS), f"the history:\n{kept}")
    expect(len(log_lines(a, "<{ipfc}>")) == before, "the log stays as it was")
    # Byte by byte it is the same text.
    slowly = a.run(f"dd if={DBGTAP}/events/history bs=7 2> /dev/null")
    expect(slowly == kept, "in small pieces, too")
    a.run(f"echo > {DBGTAP}/events/history")
    expect(a.run(f"cat {DBGTAP}/events/history") == "", "writing empties it")


def both_elements(a, device):
    """Errors and events are switched one by one, and one message may go both ways."""
    a.run(f"cd {DBGTAP}/errors; echo 1 > log_enabled; echo 1 > history_enabled")
    before = len(log_lines(a, "<{ipfc}>"))
    device.check(
        (f"ioctl {CREATE} edge {interface(4096)}", EINVAL),
        ("ioctl 5113 none", ENOTTY),
        ("ioctl 5013 none", ENOTTY),
        (f"ioctl {DELETE} edge {interface(30)}", 0),
    )
    a.run(f"cd {DBGTAP}/errors; echo 0 > log_enabled; echo 0 > history_enabled")
    wanted = [
        "VSAN number not valid",
        "ipfc_chr_ioctl: Invalid Ioctl magic",
        "ipfc_chr_ioctl: Invalid Ioctl cmd",
        "VSAN interface 30 not active",
    ]
    said = log_lines(a, "<{ipfc}>")[before:]
    expect(said == [(7, "<{ipfc}>" + message) for message in wanted], f"the log: {said}")
    kept = a.run(f"cat {DBGTAP}/errors/history").splitlines()
    expect(kept == wanted, f"the history: {kept}")


def reports(a, device):
    expect(a.run(f"ls {REPORTS}").split() == ["ivrip_list", "statistics"], "two reports at first")
    device.check(
        (f"ioctl {CREATE} edge {interface(30)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, fcid=0x0A1E01, action=SET_FCID)}", 0),
        (f"ioctl {ADD_MAPPING} edge {mapping(30, PEER, 0x141E01)}", EPERM),
    )
    expect(a.run(f"ls {REPORTS}").split() == ["ivrip_list", "statistics", "vsan30"], "and a third")
    modes = a.run(f"cd {REPORTS}; stat -c '%a %F' ivrip_list statistics vsan30").splitlines()
    expect(modes == ["444 regular empty file"] * 3, f"everybody may read them: {modes}")
    for name, wanted in (("vsan30", REPORT), ("statistics", STATISTICS)):
        for size in (1, 7, 64, 4096, 65536):
            text = a.run(f"dd if={REPORTS}/{name} bs={size} 2> /dev/null")
            expect(text == wanted, f"{name}, {size} bytes at a time:\n{text}")
        for skip in (1, len(wanted) // 2, len(wanted) - 1, len(wanted), len(wanted) + 1, 5000):
            text = a.run(f"dd if={REPORTS}/{name} bs=1 skip={skip} 2> /dev/null")
            expect(text == wanted[skip:], f"{name} from byte {skip} on: {text!r}")
    expect(a.try_run(f"echo > {REPORTS}/statistics").status != 0, "nothing can be written to them")


def far_offsets(a):
    """Where read_proc never reached there is nothing, and no error either."""
    offsets = (1, 2**31 - 1, 2**31, 2**31 + 1, 2**32, 2**32 + 3, 2**40, 2**62)
    for name in ("vsan30", "statistics", "ivrip_list"):
        size = len(a.run(f"cat {REPORTS}/{name}"))
        told = a.run(
            f"for offset in {' '.join(map(str, offsets))}; do "
            f"dd if={REPORTS}/{name} of=/tmp/far bs=4096 iflag=skip_bytes skip=$offset 2> /dev/null; "
            "echo $?; stat -c %s /tmp/far; done"
        )
        wanted = [0, size - 1] + [0, 0] * (len(offsets) - 1)
        expect([int(word) for word in told.split()] == wanted, f"{name} at {offsets}: {told.split()}")


def open_reports(a, device):
    """A report that is held open may be read whenever, whatever has become of it."""
    a.run("mkfifo /run/go /run/went")
    a.background(
        "holder",
        f"exec 3< {REPORTS}/vsan30 4< {REPORTS}/statistics 5< {DBGTAP}/errors/history; "
        "echo held > /run/went; read word < /run/go; cat <&3; echo; cat <&4; echo end > /run/went; "
        "read word < /run/go; cat <&3; cat <&4; cat <&5; echo end > /run/went",
    )
    a.run("cat /run/went")
    device.check((f"ioctl {DELETE} edge {interface(30)}", 0))
    expect(a.run(f"ls {REPORTS}").split() == ["ivrip_list", "statistics"], "the report has gone")
    a.run("echo go > /run/go; cat /run/went")
    said = a.run("cat /run/background/holder")
    expect("VSAN Interface" not in said, f"nothing is read of a deleted interface: {said}")
    expect("mapping obj allocated = 0\n" in said, f"the others go on: {said}")
    a.unload()
    a.run("echo go > /run/go; cat /run/went")
    said = a.run("cat /run/background/holder")
    expect(said.count("Global IPFC statistics") == 1, f"nothing is read of the module: {said}")
    expect(a.try_run("test -e /proc/brim_sw").status != 0, "everything has gone")
    a.load()
    expect(a.run(f"ls {REPORTS}").split() == ["ivrip_list", "statistics"], "and comes again")


def unread_at_unload(a):
    """A reader at work while the module goes gets whole reports or none."""
    a.run("ipfcctl vsan create 30 --wwpn 20:0a:02:00:00:00:00:01 --wwnn 10:00:02:00:00:00:00:01")
    a.background(
        "reading",
        f"touch /run/reading; while [ -e /run/reading ]; do cat {REPORTS}/* {DBGTAP}/*/* 2>&1; done"
        " | grep -v -e 'No such file' -e 'Input/output error' | sort | uniq -c",
    )
    a.wait_until("test -e /run/reading")
    for _ in range(3):
        a.unload()
        a.load()
    a.run("rm /run/reading")
    a.wait_until("grep 'Global IPFC statistics' /run/background/reading")
    a.unload()
