// SPDX-License-Identifier: GPL-2.0-only
// Secondary IP addresses: their N_Ports, their count, and the end of their exchanges.
#include "support/interface_test.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

constexpr if_index_t own_index = 0x0800000a;
constexpr fcid_t secondary_fcid = {.str = {0x00, 0x0a, 0x0b, 0x99}};

class MipTest : public InterfaceTest {
protected:
    void SetUp() override
    {
        InterfaceTest::SetUp();
        platform().vsan_of_interface[own_index] = own_vsan;
    }
    static mip_mapping_t mapping(if_index_t index = own_index)
    {
        mip_mapping_t map{};
        map.ip_addr.addr_type = INET_ADDR_TYPE_IPV4;
        map.source_mac = {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
        map.add_data = secondary_fcid.num;
        map.ifindex = index;
        map.sifindex = 0x01020304;
        return map;
    }
    // As the service calls: through what was registered.
    static std::int32_t add_ip(mip_mapping_t map)
    {
        return platform().mip_callbacks->opt_add_ip(&map);
    }
    static std::int32_t del_ip(mip_mapping_t map)
    {
        return platform().mip_callbacks->opt_del_ip(&map);
    }
    static std::string option_bytes(std::size_t n)
    {
        const fc2_opt_nport_t& value = platform().options.at(n).value;
        return hex(std::span(reinterpret_cast<const std::uint8_t*>(&value), sizeof value));
    }
};

TEST_F(MipTest, the_callbacks_are_registered_for_interface_type_8)
{
    ASSERT_TRUE(platform().mip_callbacks);
    EXPECT_EQ(platform().mip_callbacks->opt_add_ip, ipfc_mip_add_ip);
    EXPECT_EQ(platform().mip_callbacks->opt_del_ip, ipfc_mip_del_ip);
    EXPECT_EQ(platform().mip_callbacks->opt_intf_type, 8);
}

TEST_F(MipTest, adding_registers_an_n_port_named_after_the_mac_and_counts_it)
{
    EXPECT_EQ(add_ip(mapping()), 0);
    EXPECT_EQ(priv->num_sec_ip_addr, 1);
    ASSERT_EQ(platform().options.size(), 1u);
    const SocketOption& option = platform().options[0];
    EXPECT_EQ(option.level, 267);
    EXPECT_EQ(option.option, 1);
    EXPECT_EQ(option.length, 136);
    EXPECT_EQ(option_bytes(0),
              "0a 00 0a 00 00 0a 0b 99 00 ff ff ff 04 03 02 01 " // flags, VSAN, FCID, mask, index
              "00 00 00 00 20 20 00 00 00 8a 40 08 00 00 00 00 00 00 00 00 " // common features
              "10 00 00 11 22 33 44 55 20 01 00 5e bf 01 02 03 "             // names
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 80 00 00 00 00 40 08 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00");
    EXPECT_EQ(effects(), (Lines{"kfc2_setsockopt ADD_NPORT vsan 10 0a0b99"}));
}

TEST_F(MipTest, the_port_name_is_10_00_and_the_six_bytes_of_the_mac)
{
    EXPECT_EQ(add_ip(mapping()), 0);
    EXPECT_EQ(text_of(platform().options[0].value.plogi.nport_wwn), "10:00:00:11:22:33:44:55");
}

TEST_F(MipTest, a_failed_registration_leaves_the_count_unchanged_and_passes_the_result)
{
    for (const int result : {-111, -12, 5, 98}) {
        platform().option_results = {result};
        EXPECT_EQ(add_ip(mapping()), result);
        EXPECT_EQ(priv->num_sec_ip_addr, 0);
    }
    EXPECT_EQ(messages(), Lines{});
}

TEST_F(MipTest, an_index_that_the_platform_cannot_map_gives_the_negated_error_and_logs_nothing)
{
    platform().vsan_of_interface[77] = -19;
    EXPECT_EQ(add_ip(mapping(77)), 19);
    EXPECT_EQ(del_ip(mapping(77)), 19);
    EXPECT_EQ(add_ip(mapping(78)), 22) << "unknown to the platform: -22";
    EXPECT_EQ(del_ip(mapping(78)), 22);
    EXPECT_EQ(priv->num_sec_ip_addr, 0);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MipTest, a_vsan_without_interface_is_told_and_gives_minus_22)
{
    const std::pair<int, const char*> rows[] = {
        {11, "100 VSAN Interface 11 not exists\n"},
        {0, "100 VSAN Interface 0 not exists\n"},
        {4095, "100 VSAN Interface 4095 not exists\n"},
        {4096, "100 VSAN Interface 4096 not exists\n"}, // the platform promised not to
        {0x7FFFFFFF, "100 VSAN Interface 2147483647 not exists\n"},
    };
    for (const auto& [vsan, text] : rows) {
        platform().vsan_of_interface[77] = vsan;
        EXPECT_EQ(add_ip(mapping(77)), -22);
        EXPECT_EQ(effects(), Lines{text});
        EXPECT_EQ(del_ip(mapping(77)), -22);
        EXPECT_EQ(effects(), Lines{text});
    }
    EXPECT_TRUE(platform().options.empty());
}

TEST_F(MipTest, removing_unregisters_the_n_port_with_everything_else_zero)
{
    priv->num_sec_ip_addr = 3;
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(priv->num_sec_ip_addr, 2);
    ASSERT_EQ(platform().options.size(), 1u);
    EXPECT_EQ(platform().options[0].level, 267);
    EXPECT_EQ(platform().options[0].option, 2);
    EXPECT_EQ(platform().options[0].length, 136);
    std::string expected = "00 00 0a 00 00 0a 0b 99 00 ff ff ff";
    for (int i = 12; i < 136; ++i)
        expected += " 00";
    EXPECT_EQ(option_bytes(0), expected);
    EXPECT_EQ(effects(), (Lines{"kfc2_setsockopt RM_NPORT vsan 10 0a0b99"}));
}

TEST_F(MipTest, removing_logs_the_address_out_everywhere_and_keeps_the_mappings)
{
    kpn_to_fcid_t* const first = add(wwn("10:00:12:00:00:00:00:00"), fcid(1)); // bucket 3
    kpn_to_fcid_t* const second = add(wwn("10:00:00:00:00:00:12:00"), fcid(2));
    kpn_to_fcid_t* const third = add_peer(); // bucket 15
    add(wwn("10:00:00:5e:bf:0a:00:0a"), fcid(4));
    add_exchange(priv, first, own_fcid, 1);
    add_exchange(priv, second, own_fcid, 2);
    add_exchange(priv, second, secondary_fcid, 3);
    add_exchange(priv, third, secondary_fcid, 4);
    add_exchange(priv, third, own_fcid, 5);
    name_lock(&priv->hash_lock, "hash_lock");
    priv->num_sec_ip_addr = 1;
    platform().on_logo = [](const SentLogo& logo) { EXPECT_EQ(logo.locks, 0); };
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(effects(),
              (Lines{"kfc2_setsockopt RM_NPORT vsan 10 0a0b99",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0x990b0a00 d_id 0x2000000 \n",
                     "kfc2_send_logo vsan 10 0a0b99 to 000002",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0x990b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b99 to 141516"}));
    EXPECT_EQ(table_of(priv), (Lines{"3 10:00:12:00:00:00:00:00 > 000001 0a0b0c=1",
                                     "3 10:00:00:00:00:00:12:00 > 000002 0a0b0c=2",
                                     "15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=5",
                                     "15 10:00:00:5e:bf:0a:00:0a > 000004"}));
    EXPECT_EQ(num_exch_obj, 3);
}

TEST_F(MipTest, removing_what_was_never_added_takes_the_count_below_zero_and_logs_out_all_the_same)
{
    add_exchange(priv, add_peer(), secondary_fcid, 4);
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(priv->num_sec_ip_addr, -2);
    EXPECT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(MipTest, a_failed_unregistration_is_told_and_the_teardown_goes_on)
{
    for (const int result : {-111, 5}) {
        add_exchange(priv, add_peer(), secondary_fcid, 4);
        platform().option_results = {result};
        EXPECT_EQ(del_ip(mapping()), 0);
        EXPECT_EQ(
            effects(),
            (Lines{"kfc2_setsockopt RM_NPORT vsan 10 0a0b99",
                   "100 Failed to Unregister the N_port for VSAN 10\n",
                   "101 fc2 send logo for VSAN Interface 10 s_id 0x990b0a00 d_id 0x16151400 \n",
                   "kfc2_send_logo vsan 10 0a0b99 to 141516"}));
        drop_mappings(priv);
    }
    EXPECT_EQ(priv->num_sec_ip_addr, -2);
}

TEST_F(MipTest, the_count_is_down_before_the_n_port_is_unregistered)
{
    priv->num_sec_ip_addr = 1;
    std::int32_t seen = 99;
    platform().on_option = [&](const SocketOption& option) {
        EXPECT_EQ(option.option, 2);
        seen = priv->num_sec_ip_addr;
    };
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(seen, 0);
}

TEST_F(MipTest, an_address_is_counted_only_when_its_n_port_is_registered)
{
    std::int32_t seen = 99;
    platform().on_option = [&](const SocketOption& option) {
        EXPECT_EQ(option.option, 1);
        seen = priv->num_sec_ip_addr;
    };
    EXPECT_EQ(add_ip(mapping()), 0);
    EXPECT_EQ(seen, 0);
    EXPECT_EQ(priv->num_sec_ip_addr, 1);
}

TEST_F(MipTest, mappings_that_go_during_a_logo_are_not_touched_again)
{
    const wwn_t ports[] = {wwn("10:00:12:00:00:00:00:00"), wwn("10:00:00:00:00:00:12:00"),
                           wwn("10:00:00:12:00:00:00:00")};
    for (const wwn_t gone : ports) {
        for (const wwn_t port : ports)
            add_exchange(priv, add(port, fcid(1)), secondary_fcid, 1);
        bool done = false;
        platform().on_logo = [&](const SentLogo&) {
            if (std::exchange(done, true))
                return;
            const TableLock lock(priv);
            EXPECT_TRUE(kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, gone, own_vsan));
        };
        EXPECT_EQ(del_ip(mapping()), 0);
        EXPECT_EQ(num_exch_obj, 0) << "nothing of the address is left";
        EXPECT_EQ(num_mapping_obj, 2);
        drop_mappings(priv);
    }
}

TEST_F(MipTest, an_interface_deleted_during_a_logo_is_not_touched_again)
{
    for (const char* const port : {"10:00:12:00:00:00:00:00", "10:00:00:00:00:00:12:00"})
        add_exchange(priv, add(wwn(port), fcid(1)), secondary_fcid, 1);
    bool done = false;
    platform().on_logo = [&](const SentLogo&) {
        if (!std::exchange(done, true)) {
            EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0);
        }
    };
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(num_mapping_obj, 0);
}

TEST_F(MipTest, add_and_remove_leave_the_interfaces_own_fcid_and_address_alone)
{
    const Bytes address(dev->dev_addr, dev->dev_addr + 12);
    EXPECT_EQ(add_ip(mapping()), 0);
    EXPECT_EQ(del_ip(mapping()), 0);
    EXPECT_EQ(Bytes(dev->dev_addr, dev->dev_addr + 12), address);
    EXPECT_EQ(priv->fcid.num, own_fcid.num);
    EXPECT_EQ(priv->num_sec_ip_addr, 0);
}

} // namespace
