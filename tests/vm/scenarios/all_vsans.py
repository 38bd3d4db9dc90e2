# SPDX-License-Identifier: GPL-2.0-only
"""Every VSAN that there can be has its interface at once: made, used, and removed again.

      the switch                       this program
    +--------------+                 +-----------------------+
    | vsan0        |                 | one station in each   |
    |  ...         |                 | of some VSANs         |
    | vsan4095   a | eth0 --- link --|                       |
    +--------------+                 +-----------------------+
"""

from harness import Switch, expect, programs
from harness.fc import *

LIMIT = 400
COUNT = 4096

#: Where a station pings the switch.
USED = (0, 1, 255, 256, 2047, 4094, 4095)


def scenario(lab):
    # An interface takes the kernel some 100 KiB; its end waits for every processor that there is.
    (a,) = lab.boot("a", kind=Switch, cpus=1, memory=768, files=programs("fill"))
    # Nothing is to be sent but what is sent here.
    a.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
    a.load()
    if lab.kernel.old:
        # It would run a program for each interface.
        a.run("echo > /proc/sys/kernel/hotplug")
    else:
        a.run("echo 0 > /sys/module/rcutree/parameters/jiffies_till_first_fqs")
    before = a.run("ls /sys/class/net")
    # Each N_Port is announced to a fabric that does not listen.
    with lab.peer.swallowing():
        a.run(f"fill interfaces 0 {COUNT}", timeout=200)
        all_there(a)
    for number, vsan in enumerate(USED):
        used(a, lab.peer, vsan, number)
    for number, vsan in enumerate(USED):
        counted(a, vsan)
    with lab.peer.swallowing():
        # One by one, and all that are left at once.
        a.run(f"fill delete 0 {COUNT // 2}", timeout=200)
        left = a.run("ls /sys/class/net | grep -c vsan").strip()
        expect(left == str(COUNT // 2), f"the other half is still there: {left}")
        a.ctl("cleanup", timeout=200)
    expect(a.run("ls /sys/class/net") == before, "no interface is left")
    expect(a.run("ls /proc/brim_sw/ipfc").split() == ["ivrip_list", "statistics"], "and no report")
    expect(a.json("ipfcctl -j vsan list") == [], "and the tool finds none")
    text = a.run("cat /proc/brim_sw/ipfc/statistics")
    expect("mapping obj allocated = 0\nexch obj allocated = 0\n" in text, f"nothing is lost: {text}")
    expect("N_Port" not in a.run("cat /proc/brim_sw/fc2"), "no N_Port is left")
    a.unload()


def name_of(vsan):
    return bytes.fromhex("200002000000") + vsan.to_bytes(2, "big")


def fcid_of(vsan):
    return 0x0A0000 + vsan


def all_there(a):
    names = {f"vsan{vsan}" for vsan in range(COUNT)}
    expect(names <= set(a.run("ls /sys/class/net").split()), "every interface is there")
    expect(names <= set(a.run("ls /proc/brim_sw/ipfc").split()), "with its report")
    told = a.run("cat /proc/brim_sw/ipfc/vsan* | grep -c '^VSAN Interface'", timeout=60)
    expect(told.strip() == str(COUNT), f"which can be read: {told}")
    listed = a.json("ipfcctl -j vsan list", timeout=60)
    expect(sorted(row["vsan"] for row in listed) == list(range(COUNT)), "the tool lists them all")
    # Each has a name and an address of its own, which the kernel shows.
    told = a.run("cd /sys/class/net; cat vsan*/address | sort -u | wc -l", timeout=60)
    expect(told.strip() == str(COUNT), f"as many addresses: {told}")
    told = a.run(" && ".join(f"cat /sys/class/net/vsan{vsan}/address" for vsan in USED)).split()
    wanted = [hardware_address(name_of(vsan), fcid_of(vsan)).hex(":") for vsan in USED]
    expect(told == wanted, f"the addresses are {wanted}: {told}")
    words = "|".join(map(str, USED))
    told = a.run(f"grep -E '^({words}) ' /proc/brim_sw/name_server", timeout=60).splitlines()
    wanted = [f"{vsan} {name_of(vsan).hex(':')} {fcid_of(vsan):#08x}" for vsan in USED]
    expect(sorted(told) == sorted(wanted), f"known to the fabric: {told}")


def used(a, peer, vsan, number):
    """A station of this VSAN pings, and is answered in this VSAN."""
    own, other = f"10.{number}.0.1", f"10.{number}.0.2"
    station = ForeignPort(peer, vsan, 0x140000 + vsan, b"\x21\x00" + name_of(vsan)[2:], other)
    station.log_in(fcid_of(vsan))
    address = hardware_address(station.ieee_name, station.fcid).hex(":")
    a.run(
        f"ip addr add {own}/24 dev vsan{vsan} && "
        f"ip neigh replace {other} lladdr {address} nud permanent dev vsan{vsan}"
    )
    for round in range(3):
        text = b"VSAN %d, round %d" % (vsan, round)
        request = icmp_echo(other, own, text)
        station.send(station.packet(fcid_of(vsan), name_of(vsan), IPV4, request))
        answer = station.wait_data(IPV4)
        expect(answer.data.endswith(text), f"VSAN {vsan} is answered: {answer}")
        source, destination = answer.data[8:16], answer.data[:8]
        expect(source[2:] == name_of(vsan)[2:], f"by the port of this VSAN: {source.hex()}")
        expect(destination == station.ieee_name, f"to the station: {destination.hex()}")


def counted(a, vsan):
    [told] = a.json(f"ipfcctl -j stats show {vsan}")
    packets = told["counters"]["rx_packets"], told["counters"]["tx_packets"]
    expect(packets == (3, 3), f"VSAN {vsan} counts its own packets and no other's: {packets}")
