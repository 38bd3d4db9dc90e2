# SPDX-License-Identifier: GPL-2.0-only
"""Programs wait on the control device for mapping requests, in every way; no wake-up is lost.

    +------------------------------------------------+
    |   a                                            |
    |   waiter --- /dev/ipfc --- vsan10 --- packet   | eth0 ----- (nobody)
    +------------------------------------------------+
"""

from harness import Switch, expect, programs
from harness.control import *
from harness.fc import IPV4, hardware_address, network_header

VSAN, DEVICE = 10, "vsan10"
UNKNOWN = bytes.fromhex("100003000000ff01")

#: Requests for each way of waiting.
COUNT = 40


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch, files=programs("device", "packet", "waiter"))
    a.load()
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    port = a.create_vsan(VSAN, addresses=False)
    own_name = bytes.fromhex(port.port_name.replace(":", ""))
    nothing_waits(a)
    for how in ("poll", "select", "epoll", "edge", "read"):
        woken(a, how, packet(own_name, 0))
    several_wait(a, own_name)
    deleted_meanwhile(a, own_name)
    a.unload()


def packet(own_name, number):
    name = UNKNOWN[:-1] + bytes([number])
    headers = network_header(own_name, name, IPV4)
    return (bytes(56) + hardware_address(name, 0) + headers + b"whom?").hex()


def nothing_waits(a):
    # 100 would be added to the second one if the device could ever be written to.
    expect(a.run("waiter idle").strip() == "0 0 0", "nothing to read, and never anything to write")
    expect(a.run("waiter interrupted").strip() == "-1 EINTR", "a signal ends a reader's sleep")
    # With a handler that restarts, and killed in its sleep.
    a.background("sleeper", "waiter read 1")
    a.wait_until("grep ready /run/background/sleeper")
    a.run("killall -KILL waiter")
    a.wait_until("! pidof waiter")


def woken(a, how, frame):
    """Requests that come one by one, each when the one before has been answered, and in bursts."""
    a.background(how, f"waiter {how} {COUNT}")
    a.wait_until(f"grep ready /run/background/{how}")
    a.run(
        f"sent=0; while [ $sent -lt {COUNT} ]; do "
        f"packet raw {DEVICE} 800 {frame} 5 > /dev/null; sent=$((sent + 5)); "
        f"until [ $(grep -c '^{VSAN} ' /run/background/{how}) -ge $sent ]; do usleep 1000; "
        f"grep lost /run/background/{how} && exit 1; done; done",
        timeout=60,
    )
    a.wait_until(f"grep done /run/background/{how}")
    lines = a.run(f"cat /run/background/{how}").splitlines()
    wanted = ["ready", *[f"{VSAN} {(UNKNOWN[:-1] + bytes(1)).hex()}"] * COUNT, "done"]
    expect(lines == wanted, f"{how}: each request once: {lines}")
    expect(Device(a).one("poll") == (0, ""), f"{how}: nothing is left")


def several_wait(a, own_name):
    """Readers share the requests: each goes to one of them, and none stays asleep for ever."""
    for reader in range(4):
        a.background(f"reader{reader}", "waiter read 2")
        a.wait_until(f"grep ready /run/background/reader{reader}")
    for number in range(8):
        a.run(f"packet raw {DEVICE} 800 {packet(own_name, 0x10 + number)}")
    for reader in range(4):
        a.wait_until(f"grep done /run/background/reader{reader}")
    requests = sorted(a.run("cat /run/background/reader? | grep '^10 '").split("\n")[:-1])
    wanted = [f"{VSAN} {(UNKNOWN[:-1] + bytes([0x10 + number])).hex()}" for number in range(8)]
    expect(requests == wanted, f"each request goes to one reader: {requests}")


def deleted_meanwhile(a, own_name):
    """A packet for an interface that has gone is dropped when the answer comes, or at the end."""
    device = Device(a)
    for number in range(3):
        a.run(f"packet raw {DEVICE} 800 {packet(own_name, number)}")
    a.run(f"echo 1 > {DBGTAP}/errors/history_enabled")
    a.delete_vsan(VSAN)
    name = UNKNOWN[:-1] + bytes([1])
    device.refuse(
        (
            f"ioctl {ADD_MAPPING} edge {mapping(VSAN, name, 0x141E01)}",
            0,
            f"VSAN interface {VSAN} doesn't exist",
        ),
    )
    expect(device.one("poll") == (0x41, ""), "the request itself is there as long as nobody reads it")
    # Two packets and three requests are still there when the module goes.
