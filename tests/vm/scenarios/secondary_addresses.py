# SPDX-License-Identifier: GPL-2.0-only
"""A secondary address answers from an N_Port of its own, which logs out when the address goes.

      switch a                                        switch b
    +---------------------------+                   +----------+
    | vsan10  10.10.0.1         |                   | vsan10   |
    |         10.10.0.77 0a0a77 |                   |          |
    |         fd00:10::78 0a0a78| eth0 --- link --- | eth0     |
    +---------------------------+                   +----------+
"""

from harness import Switch, expect
from harness.fc import *

VSAN, DEVICE = 10, "vsan10"
TABLE = "/proc/brim_sw/secondary_ip"
NAMES = "/proc/brim_sw/name_server"

#: Address with its length, MAC address, FC address, ethertype.
SECONDARY = (
    ("10.10.0.77", 24, "02:00:00:00:00:77", 0x0A0A77, IPV4),
    ("fd00:10::78", 64, "02:00:00:00:00:78", 0x0A0A78, IPV6),
)


def scenario(lab):
    a, b = lab.boot("a", "b", kind=Switch)
    for switch in (a, b):
        switch.load()
        switch.create_vsan(VSAN)
    for row in SECONDARY:
        add(a, b, row)
    expect(counted(a) == 2, "two are counted")
    for row in SECONDARY:
        answers(lab, a, b, row)
    expect(b.ping(a.port(VSAN).ipv4).good, "the first address answers as before")
    for left, row in enumerate(reversed(SECONDARY)):
        remove(lab, a, b, row, left)
    refused(a)
    for switch in (a, b):
        switch.unload()


def name_of(mac):
    return bytes.fromhex("1000" + mac.replace(":", ""))


def line_of(mac, fcid):
    return f"{VSAN} 10:00:{mac} {fcid:#08x}"


def add(a, b, row):
    address, length, mac, fcid, _ = row
    a.run(f"ip addr add {address}/{length} dev {DEVICE} {'nodad' if ':' in address else ''}")
    a.run(f"echo 'add {VSAN} {address} {mac} {fcid:#08x}' > {TABLE}")
    for switch in (a, b):
        switch.wait_until(f"grep -qx '{line_of(mac, fcid)}' {NAMES}")


def counted(a):
    return a.json(f"ipfcctl -j vsan show {VSAN}")["secondary_addresses"]


def handles(a, fcid):
    """The exchanges that an address holds, in the interface's report."""
    told = a.run(f"cat /proc/brim_sw/ipfc/{DEVICE}").splitlines()
    return [line for line in told if line.startswith(f"   exch with {fcid:#08x} handle = ")]


def sent_by(lab, fcid, r_ctl, code=None):
    """Frames of an N_Port on the link: those of a link service, or with packets in them."""
    return [
        frame
        for frame in captured(lab.capture)
        if (frame.s_id, frame.r_ctl) == (fcid, r_ctl) and (code is None or frame.data[0] == code)
    ]


def answers(lab, a, b, row):
    address, _, mac, fcid, ethertype = row
    ping = b.ping(address)
    expect(ping.good, f"{address} answers:\n{ping.text}")
    # The first frame of a sequence has the headers.
    packets = [frame for frame in sent_by(lab, fcid, DATA) if frame.seq_cnt == 0]
    answered = [frame for frame in packets if frame.data[22:24] == ethertype.to_bytes(2, "big")]
    expect(len(answered) >= 3, f"every answer comes from {fcid:#08x}: {len(answered)}")
    for frame in packets:
        expect(frame.vsan == VSAN, f"in the VSAN: {frame}")
        source, wanted = frame.data[8:16], name_of(mac)
        if frame.data[22:26] == b"\x08\x06\0\1":
            # An ARP's old form is copied before its source is looked at.
            wanted = b"\x10\x00" + bytes.fromhex(a.port(VSAN).port_name.replace(":", ""))[2:]
        expect(source == wanted, f"the name is formed from the MAC address: {frame}")
    logins = sent_by(lab, fcid, ELS_REQUEST, PLOGI)
    expect(logins, "it has logged in")
    for login in logins:
        told = login.data[20:28], login.data[28:36]
        wanted = name_of(mac), bytes.fromhex(a.port(VSAN).node_name.replace(":", ""))
        expect(told == wanted, f"with its name and the switch's: {told} {wanted}")
    expect(len(handles(a, fcid)) == 1, "it has an exchange of its own")
    expect(sent_by(lab, fcid, ELS_REQUEST, LOGO) == [], "and has not logged out")


def remove(lab, a, b, row, left):
    address, _, mac, fcid, ethertype = row
    before = len(sent_by(lab, fcid, DATA))
    a.run(f"echo 'del {VSAN} {address}' > {TABLE}")
    logouts = sent_by(lab, fcid, ELS_REQUEST, LOGO)
    expect([frame.d_id for frame in logouts] == [b.port(VSAN).fcid], f"it logs out: {logouts}")
    told = logouts[0].data[5:8], logouts[0].data[8:16]
    expect(told == (fcid.to_bytes(3, "big"), name_of(mac)), f"in its own name: {told}")
    expect(handles(a, fcid) == [], "its exchange has gone")
    for switch in (a, b):
        switch.wait_until(f"! grep -q '{line_of(mac, fcid)}' {NAMES}")
    expect(counted(a) == len(SECONDARY) - 1 - left, f"one less is counted: {counted(a)}")
    # The kernel still has the address; the switch's own N_Port speaks for it now.
    ping = b.ping(address)
    expect(ping.good, f"{address} is an address like any other now:\n{ping.text}")
    after = len(sent_by(lab, fcid, DATA))
    expect(after == before, f"nothing more comes from {fcid:#08x}: {after - before}")


def refused(a):
    """What is no command changes nothing."""
    expect(a.run(f"cat {TABLE}") == "", "none is left")
    for line in ("", "add", "add 10 10.10.0.9", "del 10 10.10.0.77", "add 4096 10.10.0.9 2:0:0:0:0:9 9"):
        expect(a.try_run(f"echo '{line}' > {TABLE}").status != 0, f"{line!r} is refused")
    expect(a.run(f"cat {TABLE}") == "", "and adds nothing")
    expect(counted(a) == 0, "none is counted")
