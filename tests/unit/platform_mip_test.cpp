// SPDX-License-Identifier: GPL-2.0-only
// The secondary-IP service, its file, and interface indices.
#include "support/fc2_rig.h"

#include "brim/ifindex.h"
#include "brim/mip_intf.h"

namespace {

using wire::hex;

constexpr char file[] = "brim_sw/secondary_ip";

std::vector<std::string> calls;
int answer = 0;

std::string text_of(const char* verb, const mip_mapping_t* mapping)
{
    char text[160];
    const std::uint8_t* mac = mapping->source_mac.ether_addr_octet;
    std::snprintf(text, sizeof text, "%s type %u %02x:%02x:%02x:%02x:%02x:%02x data %08x if %08x",
                  verb, mapping->ip_addr.addr_type, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5],
                  mapping->add_data, mapping->ifindex);
    return text;
}

int32_t add(mip_mapping_t* mapping)
{
    calls.push_back(text_of("add", mapping));
    return answer;
}

int32_t del(mip_mapping_t* mapping)
{
    calls.push_back(text_of("del", mapping));
    return answer;
}

class PlatformMipTest : public TwinTest {
protected:
    PlatformMipTest()
    {
        calls.clear();
        answer = 0;
        EXPECT_EQ(brim_platform_start(&link), 0);
        EXPECT_EQ(mip_register_opt({add, del, 8}), 0);
    }

    void tidy() override
    {
        mip_unregister_opt();
        brim_platform_stop();
    }

    static long write(const std::string& text) { return twin::proc_write(file, text); }

    twin::Fabric fabric;
    brim_link link{fabric};
};

const std::string add_ipv4 = "add 10 10.10.0.77 02:00:00:00:00:77 0x0a0077\n";

TEST_F(PlatformMipTest, an_address_is_added_removed_and_listed)
{
    EXPECT_EQ(write(add_ipv4), static_cast<long>(add_ipv4.size()));
    EXPECT_EQ(twin::proc_read(file), "10 10.10.0.77 02:00:00:00:00:77 0x0a0077\n");
    EXPECT_EQ(write("add 4095 fd00::1:77 2:0:0:0:0:78 a0078"), 38);
    EXPECT_EQ(twin::proc_read(file), "10 10.10.0.77 02:00:00:00:00:77 0x0a0077\n"
                                     "4095 fd00:0:0:0:0:0:1:77 02:00:00:00:00:78 0x0a0078\n");
    EXPECT_EQ(write("del 10 10.10.0.77\n"), 18);
    EXPECT_EQ(twin::proc_read(file), "4095 fd00:0:0:0:0:0:1:77 02:00:00:00:00:78 0x0a0078\n");
    const std::vector<std::string> expected = {
        "add type 1 02:00:00:00:00:77 data 77000a00 if 0800000a",
        "add type 2 02:00:00:00:00:78 data 78000a00 if 08000fff",
        "del type 1 02:00:00:00:00:77 data 77000a00 if 0800000a",
    };
    EXPECT_EQ(calls, expected);
}

TEST_F(PlatformMipTest, lines_that_are_no_command_are_refused_and_call_nobody)
{
    const char* const lines[] = {
        "",
        "\n",
        "add",
        "put 10 10.10.0.77 02:00:00:00:00:77 0x0a0077",
        "add 4096 10.10.0.77 02:00:00:00:00:77 0x0a0077",
        "add x 10.10.0.77 02:00:00:00:00:77 0x0a0077",
        "add 10 10.10.0 02:00:00:00:00:77 0x0a0077",
        "add 10 10.10.0.256 02:00:00:00:00:77 0x0a0077",
        "add 10 10.10.0.7.7 02:00:00:00:00:77 0x0a0077",
        "add 10 fd00::1::2 02:00:00:00:00:77 0x0a0077",
        "add 10 1:2:3:4:5:6:7 02:00:00:00:00:77 0x0a0077",
        "add 10 1:2:3:4:5:6:7:8:9 02:00:00:00:00:77 0x0a0077",
        "add 10 1:2:3:4:5:6:7:8:: 02:00:00:00:00:77 0x0a0077",
        "add 10 fd00::12345 02:00:00:00:00:77 0x0a0077",
        "add 10 fd00::1: 02:00:00:00:00:77 0x0a0077",
        "add 10 : 02:00:00:00:00:77 0x0a0077",
        "add 10 10.10.0.77 02:00:00:00:00 0x0a0077",
        "add 10 10.10.0.77 02:00:00:00:00:77:88 0x0a0077",
        "add 10 10.10.0.77 02:00:00:00:00:777 0x0a0077",
        "add 10 10.10.0.77 02:00:00:00:00:77 0x1000000",
        "add 10 10.10.0.77 02:00:00:00:00:77 0x",
        "add 10 10.10.0.77 02:00:00:00:00:77",
        "add 10 10.10.0.77 02:00:00:00:00:77 0x0a0077 more",
        "del 10",
        "del 10 10.10.0.77 more",
    };
    for (const char* line : lines)
        EXPECT_EQ(write(line), -22) << line;
    EXPECT_EQ(write(std::string(200, 'a')), -22);
    EXPECT_TRUE(calls.empty());
}

TEST_F(PlatformMipTest, ipv6_addresses_are_read_in_all_their_forms)
{
    const struct {
        const char* written;
        const char* listed;
    } rows[] = {
        {"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"},
        {"::", "0:0:0:0:0:0:0:0"},
        {"::1", "0:0:0:0:0:0:0:1"},
        {"1::", "1:0:0:0:0:0:0:0"},
        {"1:2::7:8", "1:2:0:0:0:0:7:8"},
        {"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8"},
        {"FE80::ABCD", "fe80:0:0:0:0:0:0:abcd"},
    };
    for (const auto& row : rows) {
        const std::string address = row.written;
        EXPECT_GT(write("add 10 " + address + " 02:00:00:00:00:77 0x0a0077\n"), 0) << address;
        EXPECT_EQ(twin::proc_read(file),
                  std::string("10 ") + row.listed + " 02:00:00:00:00:77 0x0a0077\n");
        EXPECT_GT(write("del 10 " + address + "\n"), 0) << address;
    }
}

TEST_F(PlatformMipTest, an_address_is_there_once_in_each_vsan)
{
    EXPECT_GT(write(add_ipv4), 0);
    EXPECT_EQ(write(add_ipv4), -17);
    EXPECT_GT(write("add 11 10.10.0.77 02:00:00:00:00:77 0x0a0077\n"), 0);
    EXPECT_EQ(write("del 12 10.10.0.77\n"), -99);
    EXPECT_EQ(write("del 10 10.10.0.78\n"), -99);
    EXPECT_EQ(calls.size(), 2u);
}

TEST_F(PlatformMipTest, what_the_driver_refuses_is_not_kept)
{
    answer = -22;
    EXPECT_EQ(write(add_ipv4), -22);
    answer = 17;
    EXPECT_EQ(write(add_ipv4), -17);
    EXPECT_EQ(twin::proc_read(file), "");
}

TEST_F(PlatformMipTest, without_a_driver_nothing_is_added)
{
    EXPECT_GT(write(add_ipv4), 0);
    mip_unregister_opt();
    EXPECT_EQ(twin::proc_read(file), "");
    EXPECT_EQ(write(add_ipv4), -19);
    EXPECT_EQ(mip_register_opt({add, del, 8}), 0);
    EXPECT_EQ(mip_register_opt({add, del, 8}), -16);
}

TEST_F(PlatformMipTest, packets_from_a_secondary_address_are_recognised)
{
    EXPECT_GT(write(add_ipv4), 0);
    EXPECT_GT(write("add 10 fd00:10::77 02:00:00:00:00:78 0x0a0078\n"), 0);
    const struct {
        const char* name;
        std::uint16_t ethertype;
        const char* packet;
        int flag;
        std::uint32_t data;
    } rows[] = {
        {"IPv4", 0x0800, "4500001400000000400100000a0a004d0a0a0002", 1, 0x77000a00},
        {"IPv4 to it", 0x0800, "4500001400000000400100000a0a00020a0a004d", 0, 0},
        {"IPv6", 0x86DD,
         "6000000000003a40fd000010000000000000000000000077fd000010000000000000000000000002", 1,
         0x78000a00},
        {"another IPv6", 0x86DD,
         "6000000000003a40fd000010000000000000000000000076fd000010000000000000000000000002", 0, 0},
        {"ARP", 0x0806,
         "001208000c04000120000000000000000000 00000a0a004d 0000000000000000000000000a0a0002", 1,
         0x77000a00},
        {"another protocol", 0x0801, "4500001400000000400100000a0a004d0a0a0002", 0, 0},
    };
    for (const auto& row : rows) {
        const twin::Bytes packet = hex(row.packet);
        mip_mapping_t mapping = {};
        int flag = 7;
        EXPECT_EQ(mip_lookup(row.ethertype, packet.data(), &mapping, &flag), 0) << row.name;
        EXPECT_EQ(flag, row.flag) << row.name;
        EXPECT_EQ(mapping.add_data, row.data) << row.name;
        EXPECT_EQ(mapping.next, nullptr) << row.name;
    }
}

TEST_F(PlatformMipTest, interface_indices_of_vsans_give_their_vsan_and_others_an_error)
{
    vsan_id_t vsan = -1;
    EXPECT_EQ(if_index_vsan_get_vsan(0x08000000, &vsan), 0);
    EXPECT_EQ(vsan, 0);
    EXPECT_EQ(if_index_vsan_get_vsan(0x08000FFF, &vsan), 0);
    EXPECT_EQ(vsan, 4095);
    vsan = -1;
    for (if_index_t index : {0x08001000u, 0x0700000Au, 0x0Au, 0xFFFFFFFFu, 0x0880000Au})
        EXPECT_EQ(if_index_vsan_get_vsan(index, &vsan), 22) << index;
    EXPECT_EQ(vsan, -1);
    EXPECT_EQ(if_index_of_vsan(10), 0x0800000Au);
}

} // namespace
