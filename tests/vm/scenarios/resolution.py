# SPDX-License-Identifier: GPL-2.0-only
"""Packets for ports that nobody has announced are parked, resolved by the daemon, and sent.

      switch a                              switch b
    +------------------------+            +-----------------------+
    | packet --- vsan10      |            |       vsan10          |
    | ipfc-resolverd         |            |       packet listen   |
    |   |  name_server  eth0 +---- FCoE --+ eth0  name_server     |
    +------------------------+            +-----------------------+
"""

import re
import struct

from harness import Switch, expect, programs
from harness.unannounced import echo_reply_pattern, echo_request, frame, name_of, text_of, wire_name

VSAN, DEVICE = 10, "vsan10"
NAMES = "/proc/brim_sw/name_server"
NOBODY = bytes.fromhex("100003000000ff01")
PLACES = 10


def scenario(lab):
    a, b = lab.boot("a", "b", kind=Switch, files=programs("device", "device32", "packet"))
    for switch in (a, b):
        switch.load()
        switch.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
        port = switch.create_vsan(VSAN, addresses=False)
        switch.run(f"ip addr add {port.ipv4}/24 dev {DEVICE}")
    names_travel(a, b)
    ten_wait_and_the_eleventh_is_refused(a, b)
    the_daemon_dies_and_comes_back(a, b)
    an_unknown_port_drops_the_packet(a)
    the_peer_answers(a, b)
    answers_through_the_compatibility_entry(a, b)
    stop_daemon(a)
    for switch in (a, b):
        switch.unload()


def line_of(port):
    return f"{VSAN} {port.port_name} {port.fcid:#08x}"


def send(switch, whole, times=1):
    result = switch.run(f"packet raw {DEVICE} 800 {whole.hex()} {times:x}").strip()
    expect(result == str(len(whole)), f"the packet socket takes {len(whole)} bytes: {result}")


def dropped(switch):
    return switch.link(DEVICE)["stats64"]["tx"]["dropped"]


def start_daemon(switch, number=[0]):
    number[0] += 1
    switch.background(f"daemon{number[0]}", "ipfc-resolverd")
    switch.wait_until("pidof ipfc-resolverd")


def stop_daemon(switch, signal="TERM"):
    switch.run(f"killall -{signal} ipfc-resolverd")
    switch.wait_until("! pidof ipfc-resolverd")


def names_travel(a, b):
    """Each switch comes to know the other's port, whoever was first."""
    for switch in (a, b):
        for port in (a.port(VSAN), b.port(VSAN)):
            switch.wait_until(f"grep -qx '{line_of(port)}' {NAMES}")
    b.create_vsan(20, addresses=False)
    moved = f"20 {b.port(20).port_name} {b.port(20).fcid:#08x}"
    a.wait_until(f"grep -qx '{moved}' {NAMES}")
    b.delete_vsan(20)
    a.wait_until(f"! grep -q '^20 ' {NAMES}")


def listen(switch, name, count):
    switch.background(name, f"packet listen {DEVICE} {count:x}")
    switch.wait_until(f"grep -q ready /run/background/{name}")


def heard(switch, name, packet, times):
    wanted = f"0 0800 18 {packet.hex()}"
    switch.wait_until(f"[ $(grep -cx '{wanted}' /run/background/{name}) -eq {times} ]")


def ten_wait_and_the_eleventh_is_refused(a, b):
    """What was parked arrives byte for byte once the daemon runs."""
    packet = bytes([0x45]) + bytes(range(1, 200))
    whole = frame(name_of(a.port(VSAN)), wire_name(b.port(VSAN)), packet)
    before = dropped(a)
    listen(b, "ten", PLACES)
    send(a, whole, PLACES)
    expect(dropped(a) == before, "ten packets find a place")
    send(a, whole)
    expect(dropped(a) == before + 1, "the eleventh is dropped and counted")
    start_daemon(a)
    heard(b, "ten", packet, PLACES)
    expect(dropped(a) == before + 1, "and no other")


def forget(a, b):
    """The mapping goes, so that the next packet is parked again."""
    a.run(f"ipfcctl map delete {VSAN} {text_of(wire_name(b.port(VSAN)))}")


def the_daemon_dies_and_comes_back(a, b):
    """Requests that nobody has read are answered by the next daemon."""
    packet = bytes([0x45]) + bytes(range(100, 160))
    whole = frame(name_of(a.port(VSAN)), wire_name(b.port(VSAN)), packet)
    listen(b, "again", 3)
    a.run("killall -STOP ipfc-resolverd")
    forget(a, b)
    send(a, whole, 3)
    stop_daemon(a, "KILL")
    start_daemon(a)
    heard(b, "again", packet, 3)


def an_unknown_port_drops_the_packet(a):
    before = dropped(a)
    send(a, frame(name_of(a.port(VSAN)), NOBODY, b"whom?" * 8), 2)
    a.wait_until(f"[ $(cat /sys/class/net/{DEVICE}/statistics/tx_dropped) -eq {before + 2} ]")


def the_peer_answers(a, b):
    """The parked packet is one that the peer's kernel understands: it answers it."""
    forget(a, b)
    ours, theirs = a.port(VSAN), b.port(VSAN)
    request = echo_request(ours.ipv4, theirs.ipv4)
    listen(a, "reply", 8)
    send(a, frame(name_of(ours), wire_name(theirs), request))
    a.wait_until(f"grep -q '{echo_reply_pattern(request)}' /run/background/reply")


def answers_through_the_compatibility_entry(a, b):
    """A 32-bit program answers as well as a 64-bit one."""
    packet = bytes([0x45]) + bytes(range(30, 90))
    port = b.port(VSAN)
    whole = frame(name_of(a.port(VSAN)), wire_name(port), packet)
    record = struct.pack("<i8s4s", VSAN, wire_name(port), port.fcid.to_bytes(4, "big")).hex()
    stop_daemon(a)
    for tool in ("device", "device32"):
        forget(a, b)
        listen(b, tool, 1)
        send(a, whole)
        told = a.run(f"printf 'open /dev/ipfc\\nioctl 40105003 edge {record}\\n' | {tool}")
        expect(re.search(r"^0\b", told.splitlines()[1]), f"{tool}: the answer is taken: {told}")
        heard(b, tool, packet, 1)
        # The request itself is still unread, and reading it gives what was asked for.
        asked = struct.pack("<i8s", VSAN, wire_name(port)).hex()
        told = a.run(f"printf 'open /dev/ipfc\\nread c edge {bytes(12).hex()}\\n' | {tool}")
        expect(asked in told, f"{tool}: the request can be read: {told}")
    start_daemon(a)
