# SPDX-License-Identifier: GPL-2.0-only
"""The control device: its node, every command code, every refusal, from 64-bit and 32-bit programs.

    +------------------------------------+
    |   a                                |
    |   device, device32 --- /dev/ipfc   |
    |                          ipfc      | eth0 ----- (nobody)
    +------------------------------------+
"""

import struct

from harness import Switch, expect, programs
from harness.control import *

PEER = bytes.fromhex("100002aabbccddee")

BAD_MAGIC = "ipfc_chr_ioctl: Invalid Ioctl magic"
BAD_COMMAND = "ipfc_chr_ioctl: Invalid Ioctl cmd"
BAD_DIRECTION = "ipfc_chr_ioctl: Invalid Ioctl direction"
NO_READ = "Failed to read from user space"
NO_WRITE = "Failed to write to user space"
BAD_VSAN = "VSAN number not valid"

#: The last 8 bytes of the addresses that a program may have, and an address beyond them.
LAST, BEYOND = "7fffffffeff8", "ffff800000000000"

#: Rounds of each of the four programs that work at once.
ROUNDS_AT_ONCE = 20


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "device32"))
    before_loading(a)
    a.load()
    the_node(a)
    a.run(f"echo 1 > {DBGTAP}/errors/history_enabled")
    for tool in ("device", "device32"):
        device = Device(a, tool)
        unknown_codes(device)
        bad_addresses(device)
        if tool == "device":
            addresses_out_of_reach(device)
        bad_numbers(device)
        interfaces(a, device)
        results_out(device)
        mappings(a, device)
        hosts(a, device)
        everything_away(a, device)
        reads_and_writes(device)
    two_at_once(a)
    after_unloading(a)


def before_loading(a):
    expect(a.try_run("test -e /dev/ipfc").status != 0, "no device before the module")
    expect("ipfc" not in a.run("cat /proc/devices"), "no number before the module")


def the_node(a):
    mode, kind, owner = a.run("stat -c '%a %F %u:%g' /dev/ipfc").rstrip("\n").split(" ", 2)
    expect(mode == "600", f"only root may use the device: {mode}")
    expect(f"{kind} {owner}" == "character special file 0:0", f"a device of root's: {kind} {owner}")
    major = a.run("cat /sys/module/ipfc/parameters/major").strip()
    expect(int(major) > 0, f"a number was assigned: {major}")
    expect(f"{major} ipfc" in a.run("cat /proc/devices"), "the number is the device's")
    expect(a.run("stat -c %t /dev/ipfc").strip() == f"{int(major):x}", "the node has that number")


def unknown_codes(device):
    device.refuse(
        *(
            (f"ioctl {code} edge {'00' * 64}", ENOTTY, message)
            for code, message in (
                ("40105103", BAD_MAGIC),
                ("00000000", BAD_MAGIC),
                ("ffffffff", BAD_MAGIC),
                ("40345110", BAD_MAGIC),
                ("40105013", BAD_COMMAND),
                ("0000507f", BAD_COMMAND),
                ("c03450ff", BAD_COMMAND),
                # Numbers that exist, with another size or direction.
                ("40105007", None),
                ("00005003", None),
                ("00005000", None),
                ("0000500b", None),
                ("80245000", None),
                ("c0245001", None),
                ("40255002", None),
                ("c004500b", None),
                ("40345008", None),
                ("80005009", None),
                ("40005009", None),
                ("4014500e", None),
                ("c034500f", None),
                ("40345011", None),
                ("80045012", None),
            )
        )
    )


def bad_addresses(device):
    """Nothing is mapped at 0; and of these records the last byte is missing."""
    whole = interface(30)
    rows = [
        (f"ioctl {GET_STATS} edge {'00' * 171}", EFAULT, NO_READ),
        # Encoded with 20 bytes, and yet 52 are wanted.
        (f"ioctl {SET_IP} edge {whole[:40]}", EFAULT, NO_READ),
        (f"ioctl {SET_IP} edge {whole[2:]}", EFAULT, NO_READ),
        (f"ioctl {GET_STATS} none", EFAULT, NO_READ),
        (f"ioctl {SET_IP} none", EFAULT, NO_READ),
        (f"ioctl {HEADROOM} none", EFAULT, NO_WRITE),
        (f"ioctl {HEADROOM} edge 000000", EFAULT, NO_WRITE),
    ]
    for code in (ADD_MAPPING, DEL_MAPPING, UPD_MAPPING, NOT_FOUND):
        rows.append((f"ioctl {code} none", EFAULT, NO_READ))
        rows.append((f"ioctl {code} edge {mapping(30, PEER)[2:]}", EFAULT, NO_READ))
    for code in (CREATE, DELETE, UPDATE, CLEAR_STATS, GET_INTF):
        rows.append((f"ioctl {code} none", EFAULT, NO_READ))
        rows.append((f"ioctl {code} edge {whole[2:]}", EFAULT, NO_READ))
    for code in (ADD_HOST, DEL_HOST):
        rows.append((f"ioctl {code} none", EFAULT, None))
        rows.append((f"ioctl {code} edge {host(30, 1, PEER)[2:]}", EFAULT, None))
    device.refuse(*rows)


def addresses_out_of_reach(device):
    device.refuse(
        *(
            (f"ioctl {code} at {address}", EFAULT, BAD_DIRECTION)
            for code in (
                ADD_MAPPING, DEL_MAPPING, UPD_MAPPING, NOT_FOUND, GET_INTF, GET_STATS, CLEAR_STATS,
                CREATE, DELETE, UPDATE, SET_IP, ADD_HOST, DEL_HOST,
            )
            for address in (LAST, BEYOND, "fffffffffffffff8")
        ),
        (f"ioctl {HEADROOM} at {BEYOND}", EFAULT, BAD_DIRECTION),
        # The reserved commands are looked at for their direction too, before they end everything.
        *(
            (f"ioctl {code} at {BEYOND}", EFAULT, BAD_DIRECTION)
            for code in ("40245000", "40245001", "40245002", "4004500b")
        ),
    )  # fmt: skip


def bad_numbers(device):
    missing = "VSAN interface 30 doesn't exist"
    rows = [
        (f"ioctl {code} edge {record(vsan)}", EINVAL, BAD_VSAN)
        for codes, record in (
            ((ADD_MAPPING, DEL_MAPPING, UPD_MAPPING, NOT_FOUND), lambda vsan: mapping(vsan, PEER)),
            ((CREATE, DELETE, UPDATE, CLEAR_STATS, SET_IP, GET_INTF), interface),
        )
        for code in codes
        for vsan in (4096, -1, -0x80000000)
    ]
    rows += [
        (f"ioctl {DELETE} edge {interface(30)}", 0, "VSAN interface 30 not active"),
        (f"ioctl {UPDATE} edge {interface(30)}", EINVAL, "VSAN Interface 30 not exists"),
        (f"ioctl {CLEAR_STATS} edge {interface(30)}", ENXIO, missing),
        (f"ioctl {SET_IP} edge {interface(30)}", ENXIO, missing),
        (f"ioctl {DEL_MAPPING} edge {mapping(30, PEER)}", ENXIO, missing),
        (f"ioctl {UPD_MAPPING} edge {mapping(30, PEER)}", ENXIO, missing),
        (
            f"ioctl {NOT_FOUND} edge {mapping(30, PEER)}",
            EPERM,
            "VSAN 30 Mapping not found with no requester skb",
        ),
        # Two messages: the interface is missing, and so is a packet that waits.
        (f"ioctl {ADD_MAPPING} edge {mapping(30, PEER)}", EPERM, f"{missing}|Add mapping found no skb"),
    ]
    device.refuse(*rows)
    # A refusal leaves the caller's record alone.
    for code, size in ((GET_INTF, 52), (GET_STATS, 172)):
        for vsan, error in ((30, ENXIO), (4096, EINVAL), (-1, EINVAL)):
            record = struct.pack("<i", vsan).hex() + "a5" * (size - 4)
            answer = device.one(f"ioctl {code} edge {record}")
            expect(answer == (error, record), f"{code} for VSAN {vsan}: {answer}")


def interfaces(a, device):
    device.check(
        (f"ioctl {CREATE} edge {interface(0)}", 0),
        (f"ioctl {CREATE} edge {interface(30)}", 0),
        # Present already: nothing changes.
        (f"ioctl {CREATE} edge {interface(30, wwpn=PEER)}", 0),
        (f"ioctl {CREATE} edge {interface(4095)}", 0),
    )
    for vsan in (0, 30, 4095):
        address = a.link(f"vsan{vsan}")["address"]
        expect(address == "20:0a:02:00:00:00:00:01:00:00:00:00", f"vsan{vsan} is new: {address}")
    device.check(
        (f"ioctl {UPDATE} edge {interface(30, fcid=0x0A1E01, ifindex=7, action=SET_FCID)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, action=ADMIN_UP)}", 0),
        (f"ioctl {UPDATE} edge {interface(30, fcid=0x0B0B0B, action=99)}", 0),
        (f"ioctl {CLEAR_STATS} edge {interface(30)}", 0),
        (f"ioctl {SET_IP} edge {interface(30, ip=bytes(range(1, 21)))}", 0),
        (f"ioctl {DELETE} edge {interface(0)}", 0),
        (f"ioctl {DELETE} edge {interface(4095)}", 0),
    )
    expect(a.run("ls /sys/class/net | grep vsan") == "vsan30\n", "vsan30 alone is left")


def results_out(device):
    thirty = "1e000000"
    told = device.one(f"ioctl {GET_INTF} edge {thirty}{'ff' * 48}")
    wanted = (
        thirty + "01000000" "200a020000000001" "1000020000000001" "000a1e01" "00000000"
        "0102030405060708090a0b0c0d0e0f1011121314"
    )  # fmt: skip
    expect(told == (0, wanted), f"what vsan30 is: {told}")
    for snmp in ("00000000", "01000000", "02000000"):
        told = device.one(f"ioctl {GET_STATS} edge {thirty}{snmp}{'ff' * 164}")
        expect(told == (0, thirty + snmp + "00" * 164), f"nothing has been counted yet: {told}")
    # 64 bytes in front for the frame's headers, 36 of our own, less 8 behind.
    told = device.one(f"ioctl {HEADROOM} edge ffffffff")
    expect(told == (0, "5c000000"), f"headroom: {told}")
    # Readable and not writable: taken in, and lost on the way out.
    device.refuse(
        (f"ioctl {GET_INTF} readonly {thirty}{'00' * 48}", EFAULT, NO_WRITE),
        (f"ioctl {GET_STATS} readonly {thirty}{'00' * 168}", EFAULT, NO_WRITE),
        (f"ioctl {HEADROOM} readonly 00000000", EFAULT, NO_WRITE),
    )


def mappings(a, device):
    def report():
        text = a.run("cat /proc/brim_sw/ipfc/vsan30")
        return [line for line in text.splitlines() if "->" in line and "WW_PN" not in line]

    # Nobody waits for this answer: the mapping is stored all the same.
    add = f"ioctl {ADD_MAPPING} edge {mapping(30, PEER, 0x141E01)}"
    device.refuse((add, EPERM, "Add mapping found no skb"))
    expect(report() == ["10:00:02:aa:bb:cc:dd:ee -> 0x141e01"], f"stored: {report()}")
    device.check((f"ioctl {UPD_MAPPING} edge {mapping(30, PEER, 0x141E02)}", 0))
    expect(report() == ["10:00:02:aa:bb:cc:dd:ee -> 0x141e02"], f"changed: {report()}")
    device.check(
        (f"ioctl {DEL_MAPPING} edge {mapping(30, PEER)}", 0),
        (f"ioctl {DEL_MAPPING} edge {mapping(30, PEER)}", 0),
        (f"ioctl {UPD_MAPPING} edge {mapping(30, PEER, 0x141E03)}", 0),
    )
    expect(report() == [], f"gone: {report()}")


def hosts(a, device):
    def report():
        return a.run("cat /proc/brim_sw/ipfc/ivrip_list").splitlines()[2:]

    device.check(
        (f"ioctl {ADD_HOST} edge {host(30, 0x0A0B0C, PEER)}", 0),
        (f"ioctl {ADD_HOST} edge {host(30, 0x0A0B0C, PEER, '0a000002')}", 0),
        (f"ioctl {ADD_HOST} edge {host(31, 0x0A0B0C, PEER)}", 0),
    )
    rows = report()
    expect(len(rows) == 2, f"two hosts: {rows}")
    row = "       10.0.0.2 10:00:02:aa:bb:cc:dd:ee 0x000a0b0c 0030"
    expect(rows[1] == row, f"the second command's address counts: {rows[1]!r}")
    device.check(
        (f"ioctl {DEL_HOST} edge {host(30, 0x0A0B0C, PEER, 'ffffffff')}", 0),
        (f"ioctl {DEL_HOST} edge {host(31, 0x0A0B0C, PEER)}", 0),
        (f"ioctl {DEL_HOST} edge {host(31, 0x0A0B0C, PEER)}", 0),
    )
    expect(report() == [], "no host is left")


def everything_away(a, device):
    device.check(
        (f"ioctl {CREATE} edge {interface(31)}", 0),
        # No record, so that no address is wrong.
        (f"ioctl {CLEANUP} at fffffff8", 0),
        (f"ioctl {CLEANUP} none", 0),
    )
    expect("vsan" not in a.run("ls /sys/class/net"), "no interface is left")


def reads_and_writes(device):
    device.check(
        ("write 4 edge 00000000", EPERM),
        ("write c edge 000000000000000000000000", EPERM),
        (f"read b edge {'00' * 12}", EPERM),
        (f"read d edge {'00' * 13}", EPERM),
        ("read 0 edge 00", EPERM),
        ("poll", 0),
        ("close", 0),
        ("open /dev/ipfc nonblock", 0),
        (f"read c edge {'00' * 12}", EAGAIN),
        (f"read b edge {'00' * 12}", EPERM),
    )


def two_at_once(a):
    """Programs that make, change and delete the same things get in each other's way nowhere."""
    script = "\n".join(
        (
            "open /dev/ipfc",
            f"ioctl {CREATE} edge {interface(30)}",
            f"ioctl {UPDATE} edge {interface(30, fcid=0x0A1E01, action=SET_FCID)}",
            f"ioctl {ADD_MAPPING} edge {mapping(30, PEER, 0x141E01)}",
            f"ioctl {UPD_MAPPING} edge {mapping(30, PEER, 0x141E02)}",
            f"ioctl {DEL_MAPPING} edge {mapping(30, PEER)}",
            f"ioctl {UPDATE} edge {interface(30, action=REM_FCID)}",
            f"ioctl {DELETE} edge {interface(30)}",
            f"ioctl {CREATE} edge {interface(31)}",
            f"ioctl {CLEANUP} none",
            "close",
        )
    )
    a.run(f"cat > /tmp/script <<'END'\n{script}\nEND")
    rounds = f"{ROUNDS_AT_ONCE:x}"
    jobs = (f"$tool {rounds} < /tmp/script > /tmp/$tool.{job} || touch /tmp/failed &" for job in (1, 2))
    a.run(
        f"for tool in device device32; do {' '.join(jobs)} done; "
        "for job in 1 2 3 4 5 6; do cat /proc/brim_sw/ipfc/* > /dev/null 2>&1; done; wait",
        timeout=120,
    )
    expect(a.try_run("test -e /tmp/failed").status != 0, "every program came to its end")
    Device(a).check((f"ioctl {CLEANUP} none", 0))
    text = a.run("cat /proc/brim_sw/ipfc/statistics")
    expect("mapping obj allocated = 0\nexch obj allocated = 0\n" in text, f"nothing is lost: {text}")
    expect("vsan" not in a.run("ls /sys/class/net"), "no interface is left")


def after_unloading(a):
    number = a.run("stat -c '0x%t' /dev/ipfc").strip()
    a.unload()
    expect(a.try_run("test -e /dev/ipfc").status != 0, "the node goes with the module")
    expect("ipfc" not in a.run("cat /proc/devices"), "and so does the number")
    # A node made by hand leads nowhere.
    a.run(f"mknod /tmp/left c $(({number})) 0")
    answer = a.run("device <<'END'\nopen /tmp/left\nEND").strip()
    expect(answer == str(ENXIO), f"an old node opens nothing: {answer}")
