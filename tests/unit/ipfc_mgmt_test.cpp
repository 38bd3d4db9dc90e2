// SPDX-License-Identifier: GPL-2.0-only
// Identity, statistics and address of an interface, as the control device reports them.
#include "support/control.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using twin::Bytes;

// A member of the statistics record and of the interface: where the record holds it, how wide.
struct Counter {
    const char* name;
    std::size_t offset;
    std::size_t size;
    void* (*live)(kvsan_interface_priv_t* priv);
};

#define LIVE_STAT(member) +[](kvsan_interface_priv_t* priv) -> void* { return &priv->stats.member; }
#define LIVE_MIB(member)                                                                           \
    +[](kvsan_interface_priv_t* priv) -> void* { return &priv->mib_stats.member; }

const Counter counters[] = {
    {"rx_packets", 8, 8, LIVE_STAT(rx_packets)},
    {"tx_packets", 16, 8, LIVE_STAT(tx_packets)},
    {"rx_bytes", 24, 8, LIVE_STAT(rx_bytes)},
    {"tx_bytes", 32, 8, LIVE_STAT(tx_bytes)},
    {"rx_errors", 40, 8, LIVE_STAT(rx_errors)},
    {"tx_errors", 48, 8, LIVE_STAT(tx_errors)},
    {"rx_dropped", 56, 8, LIVE_STAT(rx_dropped)},
    {"tx_dropped", 64, 8, LIVE_STAT(tx_dropped)},
    {"multicast", 72, 8, LIVE_STAT(multicast)},
    {"collisions", 80, 8, LIVE_STAT(collisions)},
    {"ifInMulticastPkts", 88, 4, LIVE_MIB(ifInMulticastPkts)},
    {"ifInBroadcastPkts", 92, 4, LIVE_MIB(ifInBroadcastPkts)},
    {"ifOutMulticastPkts", 96, 4, LIVE_MIB(ifOutMulticastPkts)},
    {"ifOutBroadcastPkts", 100, 4, LIVE_MIB(ifOutBroadcastPkts)},
    {"ifHCInOctets", 104, 8, LIVE_MIB(ifHCInOctets)},
    {"ifHCInUcastPkts", 112, 8, LIVE_MIB(ifHCInUcastPkts)},
    {"ifHCInMulticastPkts", 120, 8, LIVE_MIB(ifHCInMulticastPkts)},
    {"ifHCInBroadcastPkts", 128, 8, LIVE_MIB(ifHCInBroadcastPkts)},
    {"ifHCOutOctets", 136, 8, LIVE_MIB(ifHCOutOctets)},
    {"ifHCOutUcastPkts", 144, 8, LIVE_MIB(ifHCOutUcastPkts)},
    {"ifHCOutMulticastPkts", 152, 8, LIVE_MIB(ifHCOutMulticastPkts)},
    {"ifHCOutBroadcastPkts", 160, 8, LIVE_MIB(ifHCOutBroadcastPkts)},
    {"ifInUnknownProtos", 168, 4, LIVE_MIB(ifInUnknownProtos)},
};

class ManagementTest : public OpenDeviceTest {
protected:
    static void set(net_device* dev, const Counter& counter, std::uint64_t value)
    {
        memcpy(counter.live(ipfc_priv(dev)), &value, counter.size);
    }
    static void set_all(net_device* dev, std::uint64_t value)
    {
        for (const Counter& counter : counters)
            set(dev, counter, value);
    }

    // The whole 172-byte record as the command gives it back.
    Bytes read_record(std::uint8_t vsan, std::uint32_t snmp_stats)
    {
        twin::UserMemory record(172);
        record.fill(0);
        memcpy(record.address(), &vsan, 1);
        memcpy(record.chars() + 4, &snmp_stats, 4);
        EXPECT_EQ(opened->ioctl(0xC0AC5008, record.argument()), 0);
        return record.bytes();
    }
    static std::uint64_t value_in(const Bytes& record, const Counter& counter)
    {
        std::uint64_t value = 0;
        memcpy(&value, record.data() + counter.offset, counter.size);
        return value;
    }
    void expect_all(std::uint32_t snmp_stats, std::uint64_t value)
    {
        const Bytes record = read_record(10, snmp_stats);
        for (const Counter& counter : counters)
            EXPECT_EQ(value_in(record, counter), value) << counter.name;
    }
};

TEST_F(ManagementTest, every_operation_refuses_4096_and_minus_1_and_accepts_4095)
{
    make_interface(4095);
    const struct {
        vsan_id_t vsan;
        std::int32_t result;
        Texts messages;
    } rows[] = {
        {4095, 0, {}},
        {4096, -22, {"100 VSAN number not valid\n"}},
        {-1, -22, {"100 VSAN number not valid\n"}},
        {-2147483647 - 1, -22, {"100 VSAN number not valid\n"}},
        {4094, -6, {"100 VSAN interface 4094 doesn't exist\n"}},
        {0, -6, {"100 VSAN interface 0 doesn't exist\n"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.vsan);
        ipfc_get_intf_ioctl_t info{};
        info.vsan_id = row.vsan;
        EXPECT_EQ(ipfc_dev_get_intf_info(&info), row.result);
        EXPECT_EQ(take_messages(), row.messages);
        ipfc_intf_stats_ioctl_t stats{};
        stats.vsan_id = row.vsan;
        EXPECT_EQ(ipfc_dev_intf_stats(&stats), row.result);
        EXPECT_EQ(take_messages(), row.messages);
        EXPECT_EQ(ipfc_clear_stats(row.vsan), row.result);
        EXPECT_EQ(take_messages(), row.messages);
        EXPECT_EQ(ipfc_set_ip(row.vsan, inet_addr_t{}), row.result);
        EXPECT_EQ(take_messages(), row.messages);
    }
}

TEST_F(ManagementTest, both_refusals_are_errors_in_the_kernel_logs_own_form)
{
    EXPECT_EQ(ipfc_clear_stats(4096), -22);
    EXPECT_EQ(ipfc_clear_stats(17), -6);
    EXPECT_EQ(twin::log().raw(), (Texts{
                                     "<7><{ipfc}>VSAN number not valid\n",
                                     "<7><{ipfc}>VSAN interface 17 doesn't exist\n",
                                 }));
    EXPECT_EQ(platform().take_texts(100),
              (Texts{"VSAN number not valid\n", "VSAN interface 17 doesn't exist\n"}));
}

TEST_F(ManagementTest, a_refused_operation_fills_nothing_in)
{
    Bytes pattern(172, 0xEE);
    for (const std::uint8_t last : {0xEE, 0x00}) { // negative, then VSAN 238 without interface
        pattern[1] = pattern[2] = pattern[3] = last;
        ipfc_get_intf_ioctl_t info;
        memcpy(&info, pattern.data(), sizeof info);
        EXPECT_LT(ipfc_dev_get_intf_info(&info), 0);
        EXPECT_EQ(bytes_of(info), Bytes(pattern.begin(), pattern.begin() + sizeof info));
        ipfc_intf_stats_ioctl_t stats;
        memcpy(&stats, pattern.data(), sizeof stats);
        EXPECT_LT(ipfc_dev_intf_stats(&stats), 0);
        EXPECT_EQ(bytes_of(stats), Bytes(pattern.begin(), pattern.begin() + sizeof stats));
    }
}

TEST_F(ManagementTest, the_information_comes_from_the_interface_and_the_vsan_is_left_as_given)
{
    net_device* const dev = make_interface(300, OWN_FCID);
    ipfc_priv(dev)->intf_adm_status = IPFC_INTF_ADMIN_UP;
    ipfc_priv(dev)->num_sec_ip_addr = -2;
    ipfc_get_intf_ioctl_t info;
    memset(&info, 0xEE, sizeof info);
    info.vsan_id = 300;
    EXPECT_EQ(ipfc_dev_get_intf_info(&info), 0);
    Bytes expected = {
        0x2C, 0x01, 0,    0,    1,    0,    0,    0,    // VSAN, state
        0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, // port name
        0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08, // node name
        0x00, 0x0A, 0x0B, 0x0C, 0xFE, 0xFF, 0xFF, 0xFF, // FCID, number of secondary addresses
    };
    expected.resize(52); // no address was set
    EXPECT_EQ(bytes_of(info), expected);
}

TEST_F(ManagementTest, an_all_zero_address_is_taken_and_reported_as_stored)
{
    make_interface(10);
    inet_addr_t address;
    memset(&address, 0xA5, sizeof address);
    EXPECT_EQ(ipfc_set_ip(10, address), 0);
    ipfc_get_intf_ioctl_t info{};
    info.vsan_id = 10;
    EXPECT_EQ(ipfc_dev_get_intf_info(&info), 0);
    EXPECT_EQ(bytes_of(info.ip_addr), Bytes(20, 0xA5));
    EXPECT_EQ(ipfc_set_ip(10, inet_addr_t{}), 0);
    EXPECT_EQ(ipfc_dev_get_intf_info(&info), 0);
    EXPECT_EQ(bytes_of(info.ip_addr), Bytes(20));
    EXPECT_TRUE(happened().empty());
}

TEST_F(ManagementTest, an_address_belongs_to_its_interface_alone)
{
    make_interface(10);
    make_interface(11);
    inet_addr_t address{};
    address.addr_type = INET_ADDR_TYPE_IPV6;
    memset(address.a.ipv6_addr.s6_addr, 0x20, 16);
    EXPECT_EQ(ipfc_set_ip(10, address), 0);
    EXPECT_EQ(bytes_of(ipfc_priv(vsan_interfaces[11])->ip_addr), Bytes(20));
}

TEST_F(ManagementTest, every_counter_is_reported_at_its_place_and_nowhere_else)
{
    net_device* const dev = make_interface(10);
    for (const Counter& counter : counters) {
        SCOPED_TRACE(counter.name);
        set_all(dev, 0);
        set(dev, counter, 0xF1E2D3C4B5A69788);
        Bytes expected(172);
        expected[0] = 10;
        const std::uint8_t value[] = {0x88, 0x97, 0xA6, 0xB5, 0xC4, 0xD3, 0xE2, 0xF1};
        std::copy_n(value, counter.size, expected.begin() + static_cast<long>(counter.offset));
        EXPECT_EQ(read_record(10, 0), expected);
    }
}

TEST_F(ManagementTest, every_counter_adds_its_own_snapshot)
{
    net_device* const dev = make_interface(10);
    for (const Counter& counter : counters) {
        SCOPED_TRACE(counter.name);
        set_all(dev, 0);
        EXPECT_EQ(ipfc_clear_stats(10), 0);
        set(dev, counter, 1000);
        EXPECT_EQ(ipfc_clear_stats(10), 0);
        set(dev, counter, 7);
        const Bytes record = read_record(10, 1);
        for (const Counter& other : counters)
            EXPECT_EQ(value_in(record, other), &other == &counter ? 1007u : 0u) << other.name;
    }
}

TEST_F(ManagementTest, before_any_clear_the_snmp_view_is_the_plain_one)
{
    net_device* const dev = make_interface(10);
    set_all(dev, 12345);
    expect_all(0, 12345);
    expect_all(1, 12345);
}

TEST_F(ManagementTest, after_two_clears_the_snmp_view_counts_from_the_first_one_only)
{
    net_device* const dev = make_interface(10);
    set_all(dev, 10);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    expect_all(0, 0);
    expect_all(1, 10);
    set_all(dev, 5);
    expect_all(0, 5);
    expect_all(1, 15);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    set_all(dev, 2);
    expect_all(0, 2);
    expect_all(1, 7);
}

TEST_F(ManagementTest, only_a_flag_of_exactly_1_gives_the_snmp_view)
{
    net_device* const dev = make_interface(10);
    set_all(dev, 10);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    set_all(dev, 2);
    for (const std::uint32_t flag : {0u, 2u, 0x100u, 0x80000001u, 0xFFFFFFFFu})
        expect_all(flag, 2);
    expect_all(1, 12);
}

TEST_F(ManagementTest, the_flag_and_the_vsan_come_back_as_given)
{
    make_interface(10);
    const Bytes record = read_record(10, 0x01020304);
    EXPECT_EQ(Bytes(record.begin(), record.begin() + 8), (Bytes{10, 0, 0, 0, 4, 3, 2, 1}));
}

TEST_F(ManagementTest, sums_wrap_around_in_their_own_width)
{
    net_device* const dev = make_interface(10);
    set_all(dev, ~0ull);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    set_all(dev, 3);
    expect_all(1, 2); // 3 less 1 in either width
}

TEST_F(ManagementTest, clearing_copies_whole_records_and_zeroes_every_byte)
{
    net_device* const dev = make_interface(10);
    kvsan_interface_priv_t* const priv = ipfc_priv(dev);
    memset(&priv->stats, 0x5A, sizeof priv->stats);
    memset(&priv->mib_stats, 0xA5, sizeof priv->mib_stats);
    memset(&priv->last_stats, 0x11, sizeof priv->last_stats);
    memset(&priv->last_mib_stats, 0x22, sizeof priv->last_mib_stats);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    EXPECT_EQ(bytes_of(priv->last_stats), Bytes(sizeof priv->stats, 0x5A));
    EXPECT_EQ(bytes_of(priv->last_mib_stats, 84), Bytes(84, 0xA5));
    EXPECT_EQ(bytes_of(priv->stats), Bytes(sizeof priv->stats));
    EXPECT_EQ(bytes_of(priv->mib_stats), Bytes(sizeof priv->mib_stats));
}

TEST_F(ManagementTest, clearing_one_interface_leaves_another_alone)
{
    net_device* const dev = make_interface(10);
    net_device* const other = make_interface(11);
    set_all(dev, 10);
    set_all(other, 20);
    EXPECT_EQ(ipfc_clear_stats(11), 0);
    expect_all(0, 10);
    EXPECT_EQ(ipfc_priv(other)->last_stats.rx_packets, 20u);
}

TEST_F(ManagementTest, no_operation_takes_a_lock)
{
    make_interface(10);
    ipfc_get_intf_ioctl_t info{};
    info.vsan_id = 10;
    ipfc_intf_stats_ioctl_t stats{};
    stats.vsan_id = 10;
    EXPECT_EQ(ipfc_dev_get_intf_info(&info), 0);
    EXPECT_EQ(ipfc_dev_intf_stats(&stats), 0);
    EXPECT_EQ(ipfc_clear_stats(10), 0);
    EXPECT_EQ(ipfc_set_ip(10, inet_addr_t{}), 0);
    EXPECT_TRUE(twin::journal().events().empty());
}

} // namespace
