// SPDX-License-Identifier: GPL-2.0-only
// What an analyser makes of the link: tshark decodes a capture of all that the stack sends.
#include "support/fc2_rig.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace {

using twin::Bytes;
using wire::hex;

using Fields = std::vector<std::string>;

class Fc2CaptureTest : public Fc2Test {
protected:
    Fc2CaptureTest()
        : path(std::filesystem::temp_directory_path() /
               ("fc2_capture_" + std::to_string(getpid()) + ".pcap"))
    {
    }
    ~Fc2CaptureTest() override { std::filesystem::remove(path); }

    // One row of fields for each frame on the link.
    std::vector<Fields> decode(const Fields& names)
    {
        wire::write_pcap(path, fabric.seen);
        std::string command = "tshark -n -r " + path.string() + " -T fields -E separator='|'";
        for (const std::string& name : names)
            command += " -e " + name;
        std::FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
        std::string text;
        std::array<char, 4096> block;
        while (std::size_t length = std::fread(block.data(), 1, block.size(), pipe))
            text.append(block.data(), length);
        EXPECT_EQ(pclose(pipe), 0) << command;
        std::vector<Fields> rows;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            Fields row(1);
            for (char c : line)
                if (c == '|')
                    row.emplace_back();
                else
                    row.back() += c;
            rows.push_back(row);
        }
        return rows;
    }

    const std::filesystem::path path;

    // An ARP request, an IPv4 packet of the length with a good checksum, an ICMPv6 echo request.
    const Bytes arp = hex("1000ffffffffffff 10000200000a0a01 aaaa030000000806"
                          "0012 0800 0c 04 0001 20010200000a0a01000a0a01 0a0a0001"
                          "000000000000000000000000 0a0a0002");
    const Bytes ipv4 = hex("10000200000a1401 10000200000a0a01 aaaa030000000800"
                           "4500001d 00010000 4001 65ca 0a0a0001 0a0a0002"
                           "0800 b6fd 00010001 40");
    const Bytes ipv6 = hex("10000200000a1401 10000200000a0a01 aaaa0300000086dd"
                           "60000000 0008 3a40 fd000010000000000000000000000001"
                           "fd000010000000000000000000000002 8000 8408 00010001");
};

TEST_F(Fc2CaptureTest, every_frame_decodes_with_a_good_crc_and_nothing_malformed)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, broadcast_fcid, arp), 0);
    EXPECT_GE(a->send(10, a_fcid, b_fcid, ipv4), 0);
    EXPECT_GE(a->send(10, a_fcid, b_fcid, ipv6), 0);
    fabric.deliver_all();
    EXPECT_GE(b->send(10, b_fcid, a_fcid, wire::ip_over_fc(0x0800, wire::counting(5001))), 0);
    EXPECT_GE(a->send(10, a_fcid, 0x140A99, ipv4), 0);
    fabric.deliver_all();
    EXPECT_EQ(a->send_logo(10, a_fcid, b_fcid), 0);
    fabric.deliver_all();

    const std::vector<Fields> rows =
        decode({"fc.vft.vf_id", "fcoe.crc.status", "_ws.malformed", "fc.type"});
    ASSERT_EQ(rows.size(), fabric.seen.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i][0], "10") << i;
        EXPECT_EQ(rows[i][1], "1") << "CRC of frame " << i;
        EXPECT_EQ(rows[i][2], "") << "malformed: " << i;
        EXPECT_TRUE(rows[i][3] == "0x01" || rows[i][3] == "0x05") << i;
    }
}

TEST_F(Fc2CaptureTest, packets_decode_down_to_their_own_protocols)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, broadcast_fcid, arp), 0);
    EXPECT_GE(a->send(10, a_fcid, b_fcid, ipv4), 0);
    EXPECT_GE(a->send(10, a_fcid, b_fcid, ipv6), 0);
    fabric.deliver_all();
    EXPECT_EQ(a->send_logo(10, a_fcid, b_fcid), 0);
    fabric.deliver_all();
    const std::vector<Fields> rows =
        decode({"fc.s_id", "fc.d_id", "fcels.opcode", "fcels.npname", "arp.dst.proto_ipv4",
                "ip.dst", "ip.checksum.status", "icmp.type", "ipv6.dst", "icmpv6.type"});
    const std::vector<Fields> expected = {
        {"0a.0a.01", "ff.ff.ff", "", "", "10.10.0.2", "", "", "", "", ""},
        {"0a.0a.01", "14.0a.01", "0x03", "20:01:02:00:00:0a:0a:01", "", "", "", "", "", ""},
        {"14.0a.01", "0a.0a.01", "0x02", "20:01:02:00:00:14:0a:01", "", "", "", "", "", ""},
        {"0a.0a.01", "14.0a.01", "", "", "", "10.10.0.2", "2", "8", "", ""},
        {"0a.0a.01", "14.0a.01", "", "", "", "", "", "", "fd00:10::2", "128"},
        {"0a.0a.01", "14.0a.01", "0x05", "20:01:02:00:00:0a:0a:01", "", "", "", "", "", ""},
        {"14.0a.01", "0a.0a.01", "0x02", "", "", "", "", "", "", ""},
    };
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i], expected[i]) << i;
}

TEST_F(Fc2CaptureTest, a_frame_with_a_bad_crc_is_found)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, broadcast_fcid, arp), 0);
    fabric.seen[0][70] ^= 1;
    EXPECT_EQ(decode({"fcoe.crc.status"}).at(0).at(0), "0");
}

} // namespace
