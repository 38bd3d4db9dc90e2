# SPDX-License-Identifier: GPL-2.0-only
"""Every report is read over and over while packets flow and what it tells of comes and goes.

      switch a                                          switch b
    +--------------------------------+                +--------+
    | vsan10 <------ pings both ways ----------------> vsan10  |
    | cat --- /proc/brim_sw/...      |                |        |
    | mappings, hosts, exchanges,    |                |        |
    | interfaces: there, gone   eth0 +-- link --------+ eth0   |
    +--------------------------------+                +--------+
"""

from harness import Switch, expect, programs
from harness.control import *

VSAN, DEVICE = 10, "vsan10"
REPORTS = "/proc/brim_sw/ipfc"
PEER = bytes.fromhex("100002aabbccdd00")

WWN = "([0-9a-f]{2}:){7}[0-9a-f]{2}"
FCID = "0x[0-9a-f]{6}"
#: What lines of the reports may be, as a whole.
SOUND = (
    "",
    "VSAN Interface +[0-9]+ :",
    f"fcid = {FCID}",
    f"WW (port|node)name = {WWN}",
    " +WW_PN -> +FCID",
    f"{WWN} -> {FCID}",
    f"   exch with {FCID} handle = [0-9a-f]{{8}}",
    "Global IPFC statistics ",
    "(packets|bytes) copied +=  ?-?[0-9]+",
    "(mapping|exch) obj allocated = [0-9]+",
    " +IP +PWWN +FCID +VSAN ",
    f" +([0-9]+\\.){{3}}[0-9]+ {WWN} 0x[0-9a-f]{{8}} [0-9]{{4}}",
)

#: Programs that read for ever, each until it fails once.
READERS = (
    ("whole", f"cat {REPORTS}/{DEVICE} {REPORTS}/statistics {REPORTS}/ivrip_list"),
    # An interface may be gone before it is read.
    ("all", f"cat {REPORTS}/* 2> /dev/null; true"),
    # Pieces of one report may be from different times; that they end is what counts.
    ("pieces", f"dd if={REPORTS}/{DEVICE} bs=61 > /dev/null 2>&1 && cat /proc/brim_sw/[fn]* > /dev/null"),
)

#: At least that often each of them has to come round.
READINGS = 20


def scenario(lab):
    a, b = lab.boot("a", "b", kind=Switch, files=programs("device"))
    for switch in (a, b):
        switch.load()
        switch.create_vsan(VSAN)
    expect(a.ping(b.port(VSAN).ipv4).good, "the switches know each other")
    a.put("/tmp/sound", "".join(f"{line}\n" for line in SOUND).encode())
    a.background("there", f"ping -n -q -i 0.05 -s 3000 {b.port(VSAN).ipv4}")
    b.background("back", f"ping -n -q -i 0.05 -s 100 {a.port(VSAN).ipv4}")
    a.run(f"cat > /tmp/script <<'END'\n{script(b)}\nEND")
    a.background("changing", "while device 5 < /tmp/script > /tmp/results; do :; done; cat /tmp/results")
    for name, command in READERS:
        a.background(name, reader(name, command))
    for name, _ in READERS:
        a.wait_until(f"[ $(wc -l < /tmp/{name}.count) -ge {READINGS} ]", timeout=120)
    seen(a)
    # Before anything is stopped: everybody has lasted until now.
    for name in ("there", "changing", *(name for name, _ in READERS)):
        a.run(f"kill -0 $(cat /run/background/{name}.pid)")
    b.run("kill -0 $(cat /run/background/back.pid)")
    told = a.run("cat /tmp/wrong.* 2> /dev/null; true")
    expect(told == "", f"lines that make no sense:\n{told}")
    stop(a, b)


def script(b):
    """Everything that the reports tell of is made and taken away again."""
    port = b.port(VSAN)
    peer = bytes.fromhex("1000" + port.port_name.replace(":", "")[4:])
    rows = ["open /dev/ipfc", f"ioctl {CREATE} edge {interface(30)}"]
    for number in range(1, 20):
        name = PEER[:7] + bytes([number])
        rows.append(f"ioctl {ADD_MAPPING} edge {mapping(VSAN, name, 0x140000 + number)}")
        rows.append(f"ioctl {ADD_HOST} edge {host(30, 0x140000 + number, name)}")
    # With the mapping of the other switch goes its exchange; the next packet brings them back.
    rows.append(f"ioctl {UPD_MAPPING} edge {mapping(VSAN, peer, 0x141414)}")
    rows.append(f"ioctl {UPD_MAPPING} edge {mapping(VSAN, peer, port.fcid)}")
    for number in range(1, 20):
        name = PEER[:7] + bytes([number])
        rows.append(f"ioctl {DEL_MAPPING} edge {mapping(VSAN, name)}")
        rows.append(f"ioctl {DEL_HOST} edge {host(30, 0x140000 + number, name)}")
    return "\n".join((*rows, f"ioctl {DELETE} edge {interface(30)}", "close"))


def reader(name, command):
    """Reads for ever; keeps lines that are not sound, counts, and what has been seen at all."""
    return (
        f"while ( {command} ) > /tmp/{name}.text; do grep -vxEf /tmp/sound /tmp/{name}.text "
        f">> /tmp/wrong.{name}; cat /tmp/{name}.text >> /tmp/seen; echo >> /tmp/{name}.count; done"
    )


def seen(a):
    """The reports did change under the readers' hands."""
    for pattern in (
        "^   exch with ", "^10:00:02:aa:bb:cc:dd:01 -> ", "^10:00:02:aa:bb:cc:dd:13 -> ",
        " 10:00:02:aa:bb:cc:dd:13 0x", "^VSAN Interface   30 :", "^mapping obj allocated = 1$",
    ):  # fmt: skip
        a.wait_until(f"grep -q '{pattern}' /tmp/seen", timeout=120)
    for report, lines in (("ivrip_list", 2), (DEVICE, 6)):
        a.wait_until(f"[ $(wc -l < {REPORTS}/{report}) -gt {lines} ]")
    a.wait_until(f"! test -e {REPORTS}/vsan30")


def stop(a, b):
    for switch in (a, b):
        switch.run("for file in /run/background/*.pid; do kill $(cat $file); done; killall ping; true")
        switch.wait_until("! pidof ping device")
    expect(a.ping(b.port(VSAN).ipv4).good, "packets still flow")
    a.run("ipfcctl cleanup")
    text = a.run(f"cat {REPORTS}/statistics")
    expect("mapping obj allocated = 0\nexch obj allocated = 0\n" in text, f"nothing is lost: {text}")
    for switch in (a, b):
        switch.unload()
