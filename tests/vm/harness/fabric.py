# SPDX-License-Identifier: GPL-2.0-only
"""Machines as switches: loading the driver, making VSAN interfaces, pinging.

      switch 1 (a)                                     switch 2 (b)
    +----------------------+                         +----------------------+
    | vsan10  10.10.0.1/24 |                         | vsan10  10.10.0.2/24 |
    |         fd00:10::1   |                         |         fd00:10::2   |
    | vsan20  10.20.0.1/24 |                         | vsan20  10.20.0.2/24 |
    |         fd00:20::1   |                         |         fd00:20::2   |
    |                 eth0 +-------- FCoE, VFT ------+ eth0                 |
    +----------------------+                         +----------------------+

Everything about an interface follows from the number of its switch and its VSAN: Port(1, 10) is
the N_Port of switch 1 in VSAN 10. World-wide names are of the NAA types 1 and 2 over a locally
administered address; the domain of a switch's FC addresses is ten times its number.
"""

import re
import shlex

from .errors import Failure
from .machine import Machine

#: The largest frame on the link, 2112 bytes of data with all the headers around them, does not
#: fit in 1500 bytes.
LINK_MTU = 2500

#: What the pings carry; the last one only fits in a datagram at MTU 65280.
PING_SIZES = (56, 1472, 60000)
VSAN_MTU = 65280


class Port:
    """The names and addresses of one switch's N_Port in one VSAN."""

    def __init__(self, number, vsan):
        self.number, self.vsan = number, vsan
        self.device = f"vsan{vsan}"
        self.port_name = f"20:{vsan & 0xFF:02x}:02:00:00:00:{vsan >> 8:02x}:{number:02x}"
        self.node_name = f"10:00:02:00:00:00:00:{number:02x}"
        self.fcid = number * 10 << 16 | vsan << 8 | 1
        self.ipv4 = f"10.{vsan}.0.{number}"
        self.ipv6 = f"fd00:{vsan}::{number}"

    @property
    def hardware_address(self):
        """The 12 bytes that the kernel shows: the port name, then the FC address in 4 bytes."""
        return f"{self.port_name}:" + ":".join(f"{byte:02x}" for byte in self.fcid.to_bytes(4, "big"))

    @property
    def addresses(self):
        return {"IPv4": self.ipv4, "IPv6": self.ipv6}


class Ping:
    """The outcome of one run of ping."""

    def __init__(self, text):
        found = re.search(r"(\d+) packets transmitted, (\d+) received(.*)", text)
        if not found:
            raise Failure(f"ping printed no summary:\n{text}")
        self.sent, self.received = int(found.group(1)), int(found.group(2))
        # "+1 duplicates", "+2 errors", "+1 corrupted": all of them are wrong here.
        self.trouble = re.findall(r"\+\d+ \w+", found.group(3))
        times = re.search(r"min/avg/max\S* = [\d.]+/([\d.]+)/", text)
        self.average_ms = float(times.group(1)) if times else None
        self.text = text

    @property
    def good(self):
        return self.sent > 0 and self.received == self.sent and not self.trouble


class Switch(Machine):
    """A machine with the driver. `lab.boot("a", "b", kind=Switch)` gives switches 1 and 2."""

    def __init__(self, lab, name, number, *rest, **further):
        super().__init__(lab, name, number, *rest, **further)
        self.number = number + 1

    def port(self, vsan):
        return Port(self.number, vsan)

    def load(self):
        """Loads both modules; returns when the control device is there."""
        self.run(f"ip link set eth0 mtu {LINK_MTU} up")
        self.run("insmod /modules/brim_platform.ko link=eth0")
        self.run("insmod /modules/ipfc.ko")
        self.wait_until("test -c /dev/ipfc")

    def unload(self):
        self.run("rmmod ipfc && rmmod brim_platform")
        left = self.run("ls /sys/module").split()
        if "ipfc" in left or "brim_platform" in left:
            raise Failure(f"{self.name}: a module is still there after its removal")

    def ctl(self, arguments, timeout=30):
        """Runs the administrator's tool; gives its output."""
        return self.run(f"ipfcctl {arguments}", timeout)

    def create_vsan(self, vsan, mtu=VSAN_MTU, addresses=True):
        """Makes an interface with its N_Port, brings it up and gives it its addresses."""
        port = self.port(vsan)
        self.ctl(f"vsan create {vsan} --wwpn {port.port_name} --wwnn {port.node_name}")
        self.ctl(f"vsan set-fcid {vsan} {port.fcid:#08x}")
        self.ctl(f"vsan up {vsan}")
        self.run(f"ip link set {port.device} mtu {mtu} up")
        if addresses:
            # nodad: no waiting for the end of duplicate address detection.
            self.run(
                f"ip addr add {port.ipv4}/24 dev {port.device} && "
                f"ip -6 addr add {port.ipv6}/64 dev {port.device} nodad"
            )
        return port

    def delete_vsan(self, vsan):
        self.ctl(f"vsan delete {vsan}")

    def link(self, device):
        """What the kernel knows of an interface, counters included, as `ip -j` gives it."""
        return self.json(f"ip -j -s link show dev {device}")[0]

    def start_ping(self, address, size=56, count=3):
        """Begins `count` pings, 0.2 s apart; see ping().

        A slow kernel gets more time between them: ping's receive buffer holds two large answers.
        """
        patience = self.lab.kernel.patience
        pace = f"-i {0.2 * patience:.1f} -W {5 * patience}"
        command = f"ping -n -c {count} {pace} -s {size} {shlex.quote(address)}"
        return self.start(command, timeout=count + 20)

    def ping(self, address, size=56, count=3):
        """Sends pings and gives a Ping, whether answered or not."""
        return Ping(self.start_ping(address, size, count).result().out)
