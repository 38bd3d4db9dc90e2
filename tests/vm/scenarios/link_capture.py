# SPDX-License-Identifier: GPL-2.0-only
"""An analyser decodes everything that two switches say to each other, from login to logout.

    +--------+                             +--------+
    | vsan10 |                             | vsan10 |
    | vsan20 |                             | vsan20 |
    |   a    | eth0 --+-- link ------ eth0 |   b    |
    +--------+        |                    +--------+
                  link.pcap, read by tshark
"""

from harness import Ping, Switch, expect

VSANS = (10, 20)

#: One field of each kind of packet and the values that must be found in it.
KINDS = (
    ("fcels.opcode", {"0x03", "0x02", "0x05"}),
    ("arp.opcode", {"1", "2"}),
    ("icmp.type", {"8", "0"}),
    ("icmpv6.type", {"128", "129", "135", "136"}),
)
FIELDS = (
    "frame.number", "eth.type", "fcoe.crc.status", "_ws.malformed", "fc.vft.vf_id",
    "eth.src", "eth.dst", "fc.s_id", "fc.d_id", *(field for field, _ in KINDS),
)  # fmt: skip


def scenario(lab):
    switches = a, b = lab.boot("a", "b", kind=Switch)
    for switch in switches:
        switch.load()
        for vsan in VSANS:
            switch.create_vsan(vsan)
    for vsan in VSANS:
        for family in ("IPv4", "IPv6"):
            for size in (56, 57, 58, 59, 1472, 9000, 60000):
                ping = Ping(a.start_ping(b.port(vsan).addresses[family], size, 1).result().out)
                expect(ping.good, f"vsan{vsan} {family} {size} bytes answered\n{ping.text}")
    for vsan in VSANS:
        a.delete_vsan(vsan)
    # An answer on the link has been written down before; the logouts are the last frames.
    expect(b.ping(a.port(10).ipv4, count=1).received == 0, "nobody answers after the logout")
    look_at(lab)
    for switch in switches:
        switch.unload()


def look_at(lab):
    text = lab.decode("-T", "fields", "-E", "occurrence=f", *(x for f in FIELDS for x in ("-e", f)))
    rows = [dict(zip(FIELDS, line.split("\t"))) for line in text.splitlines()]
    frames = [row for row in rows if row["eth.type"] == "0x8906"]
    expect(len(frames) > 300, f"the capture holds the traffic: {len(frames)} frames")
    for row in frames:
        number = row["frame.number"]
        expect(row["fcoe.crc.status"] == "1", f"frame {number} has a good CRC")
        expect(not row["_ws.malformed"], f"frame {number} is not malformed")
        expect(int(row["fc.vft.vf_id"], 0) in VSANS, f"frame {number} is of a VSAN that exists")
        for mac, fcid in (("eth.src", "fc.s_id"), ("eth.dst", "fc.d_id")):
            expect(row[mac] == mac_of(row[fcid]), f"{mac} of frame {number} follows from {row[fcid]}")
    for field, values in KINDS:
        found = {row[field] for row in frames}
        expect(values <= found, f"{field} has the values {sorted(values)}: {sorted(found)}")


def mac_of(fcid):
    if fcid == "ff.ff.ff":
        return "ff:ff:ff:ff:ff:ff"
    return "0e:fc:00:" + fcid.replace(".", ":")
