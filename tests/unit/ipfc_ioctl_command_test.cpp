// SPDX-License-Identifier: GPL-2.0-only
// What each command does with its record, written down byte by byte.
#include "support/control.h"

#include <cstring>

namespace {

using twin::Bytes;

const char READ_FAILED[] = "100 Failed to read from user space\n";
const char WRITE_FAILED[] = "100 Failed to write to user space\n";

// VSAN 10, 10:00:aa:bb:cc:dd:ee:01, 0x0d0e0f.
const Bytes mapping_record = {10,   0,    0,    0,    0x10, 0x00, 0xAA, 0xBB,
                              0xCC, 0xDD, 0xEE, 0x01, 0x00, 0x0D, 0x0E, 0x0F};

// VSAN, FCID 0x0a0b0c, names, interface 0x11223344, action, address 10.1.2.3.
Bytes interface_record(std::uint8_t vsan, std::uint8_t action = 0)
{
    return {vsan,   0,    0,    0,                            // VSAN
            0x00,   0x0A, 0x0B, 0x0C,                         // FCID
            0x20,   0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, // port name
            0x10,   0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08, // node name
            0x44,   0x33, 0x22, 0x11,                         // interface
            action, 0,    0,    0,                            // action
            1,      0,    0,    0,                            // IPv4
            10,     1,    2,    3,    4,    5,    6,    7,    // the address, then what nobody reads
            8,      9,    10,   11,   12,   13,   14,   15};
}

Texts received(unsigned number, Texts more = {})
{
    more.insert(more.begin(),
                "101 ipfc_chr_ioctl: Ioctl received - cmd: " + std::to_string(number) + "\n");
    return more;
}

class CommandTest : public OpenDeviceTest {};

TEST_F(CommandTest, command_3_stores_the_mapping_and_returns_the_handlers_result)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    EXPECT_EQ(command(0x40105003, mapping_record), -1); // no packet waits for it
    EXPECT_EQ(take_messages(),
              received(3, {
                              "101 Add vsan: 10 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n",
                              "101 VSAN 10, mapping added for WW_PN = 10:00:aa:bb:cc:dd:ee:01",
                              "101  FCID = 0x0d0e0f - REQUESTED to NS\n",
                              "100 Add mapping found no skb\n",
                          }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
}

TEST_F(CommandTest, command_4_deletes_the_mapping_and_ignores_the_fcid)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, NEW_FCID);
    EXPECT_EQ(command(0x40105004, mapping_record), 0);
    EXPECT_EQ(take_messages(),
              received(4, {
                              "101 Del vsan: 10 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n",
                              "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x13121100 \n",
                              "101 VSAN 10, mapping removed for WW_PN = 10:00:aa:bb:cc:dd:ee:01 - "
                              "NAME SERVER delflag 0\n",
                          }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
}

TEST_F(CommandTest, command_5_updates_the_mapping)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, NEW_FCID);
    EXPECT_EQ(command(0x40105005, mapping_record), 0);
    EXPECT_EQ(take_messages(),
              received(5, {
                              "101 Upd vsan: 10 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n",
                              "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x13121100 \n",
                              "101 VSAN 10, mapping update for WW_PN = 10:00:aa:bb:cc:dd:ee:01",
                              "101  FCID = 0x0d0e0f -  NAME SERVER\n",
                          }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
}

TEST_F(CommandTest, command_6_reports_a_name_that_is_not_known)
{
    make_interface(10, OWN_FCID);
    EXPECT_EQ(command(0x40105006, mapping_record), -1);
    EXPECT_EQ(take_messages(),
              received(6, {
                              "101 PWWN not found vsan: 10 pwwn: 0x1eeddccbbaa0010, fcid: "
                              "0xf0e0d00\n",
                              "100 VSAN 10 Mapping not found with no requester skb\n",
                          }));
}

TEST_F(CommandTest, a_vsan_number_out_of_range_passes_as_minus_22_and_prints_signed)
{
    Bytes record = mapping_record;
    std::fill_n(record.begin(), 4, 0xFF);
    const struct {
        unsigned code;
        const char* event;
    } rows[] = {
        {0x40105003, "101 Add vsan: -1 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n"},
        {0x40105004, "101 Del vsan: -1 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n"},
        {0x40105005, "101 Upd vsan: -1 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n"},
        {0x40105006, "101 PWWN not found vsan: -1 pwwn: 0x1eeddccbbaa0010, fcid: 0xf0e0d00\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(command(row.code, record), -22);
        EXPECT_EQ(take_messages(),
                  received(row.code & 0xFF, {row.event, "100 VSAN number not valid\n"}));
    }
}

TEST_F(CommandTest, command_7_fills_in_the_record_and_copies_it_back)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    ipfc_priv(dev)->intf_adm_status = IPFC_INTF_ADMIN_UP;
    ipfc_priv(dev)->num_sec_ip_addr = 3;
    ASSERT_EQ(command(0x40145011, interface_record(10)), 0);
    twin::journal().clear();
    twin::UserMemory record(52);
    record.fill(0xEE);
    const std::uint8_t vsan[] = {10, 0, 0, 0};
    memcpy(record.address(), vsan, 4);
    EXPECT_EQ(opened->ioctl(0xC0345007, record.argument()), 0);
    EXPECT_EQ(record.bytes(),
              (Bytes{10,   0,    0,    0,    1,    0,    0,    0,    0x20, 0x01, 0x02, 0x03, 0x04,
                     0x05, 0x06, 0x07, 0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08, 0x00, 0x0A,
                     0x0B, 0x0C, 3,    0,    0,    0,    1,    0,    0,    0,    10,   1,    2,
                     3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15}));
    EXPECT_EQ(take_messages(), received(7));
}

TEST_F(CommandTest, command_7_for_a_vsan_without_interface_leaves_the_buffer_as_it_was)
{
    twin::UserMemory record(52);
    record.fill(0xEE);
    const std::uint8_t vsan[] = {10, 0, 0, 0};
    memcpy(record.address(), vsan, 4);
    const Bytes before = record.bytes();
    EXPECT_EQ(opened->ioctl(0xC0345007, record.argument()), -6);
    EXPECT_EQ(record.bytes(), before);
    EXPECT_EQ(twin::user_copies().to_user, 0u);
    EXPECT_EQ(take_messages(), received(7, {"100 VSAN interface 10 doesn't exist\n"}));
}

TEST_F(CommandTest, command_8_for_a_vsan_without_interface_leaves_the_buffer_as_it_was)
{
    twin::UserMemory record(172);
    record.fill(0xEE);
    const Bytes before = record.bytes();
    EXPECT_EQ(opened->ioctl(0xC0AC5008, record.argument()), -22); // VSAN 0xEEEEEEEE
    EXPECT_EQ(record.bytes(), before);
    EXPECT_EQ(twin::user_copies().to_user, 0u);
    EXPECT_EQ(take_messages(), received(8, {"100 VSAN number not valid\n"}));
}

TEST_F(CommandTest, command_9_deletes_every_interface)
{
    make_interface(10);
    make_interface(4095);
    EXPECT_EQ(opened->ioctl(0x00005009, 0), 0);
    EXPECT_TRUE(twin::registered_devices().empty());
    EXPECT_EQ(platform().take_texts(101)[0], "ipfc_chr_ioctl: Ioctl received - cmd: 9\n");
}

TEST_F(CommandTest, command_10_clears_the_statistics_of_the_records_vsan)
{
    net_device* const dev = make_interface(10);
    ipfc_priv(dev)->stats.rx_packets = 5;
    EXPECT_EQ(command(0x4034500A, interface_record(10)), 0);
    EXPECT_EQ(ipfc_priv(dev)->stats.rx_packets, 0u);
    EXPECT_EQ(ipfc_priv(dev)->last_stats.rx_packets, 5u);
    EXPECT_EQ(take_messages(), received(10));
    EXPECT_EQ(command(0x4034500A, interface_record(11)), -6);
    EXPECT_EQ(take_messages(), received(10, {"100 VSAN interface 11 doesn't exist\n"}));
}

TEST_F(CommandTest, commands_12_and_13_go_to_the_inter_vsan_table)
{
    // 10.1.2.3, 10:00:aa:bb:cc:dd:ee:01, 0x0d0e0f, VSAN 5 in network order.
    const Bytes record = {10,   1,    2,    3,    0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD,
                          0xEE, 0x01, 0x00, 0x0D, 0x0E, 0x0F, 0,    0,    0,    5};
    EXPECT_EQ(command(0x4014500C, record), 0);
    EXPECT_EQ(take_messages(), received(12));
    EXPECT_NE(twin::proc_read("brim_sw/ipfc/ivrip_list")
                  .find("       10.1.2.3 10:00:aa:bb:cc:dd:ee:01 0x000d0e0f 0005\n"),
              std::string::npos);
    EXPECT_EQ(command(0x4014500D, record), 0);
    EXPECT_EQ(take_messages(), received(13));
    EXPECT_EQ(twin::proc_read("brim_sw/ipfc/ivrip_list").find("10.1.2.3"), std::string::npos);
}

TEST_F(CommandTest, commands_12_and_13_fail_silently_when_the_record_cannot_be_read)
{
    for (const unsigned code : {0x4014500Cu, 0x4014500Du}) {
        EXPECT_EQ(command(code, Bytes(19)), -14);
        EXPECT_EQ(take_messages(), received(code & 0xFF));
    }
}

TEST_F(CommandTest, command_14_creates_the_interface_with_the_records_names)
{
    EXPECT_EQ(command(0x4034500E, interface_record(10)), 0);
    Texts messages = take_messages();
    messages.resize(3);
    EXPECT_EQ(messages, received(14, {"101 Add vsan: 10 \n", "101 creating VSAN interface 10\n"}));
    ASSERT_NE(vsan_interfaces[10], nullptr);
    const kvsan_interface_priv_t* const priv = ipfc_priv(vsan_interfaces[10]);
    EXPECT_EQ(priv->ww_portname.num, PORT_NAME.num);
    EXPECT_EQ(priv->ww_nodename.num, NODE_NAME.num);
    EXPECT_EQ(priv->fcid.num, 0u);
}

TEST_F(CommandTest, command_15_deletes_the_interface)
{
    make_interface(10);
    EXPECT_EQ(command(0x4034500F, interface_record(10)), 0);
    Texts messages = take_messages();
    messages.resize(2);
    EXPECT_EQ(messages, received(15, {"101 Del vsan: 10 \n"}));
    EXPECT_EQ(vsan_interfaces[10], nullptr);
}

TEST_F(CommandTest, command_16_updates_the_interface_by_all_four_fields)
{
    make_interface(10);
    EXPECT_EQ(command(0x40345010, interface_record(10, 1)), 0);
    EXPECT_EQ(take_messages(),
              received(16, {
                               "101 Upd vsan: 10, fcid: 0xc0b0a00\n",
                               "101 Updating VSAN Interface 10\n",
                               "101 ipfc_dev_update_mac vsan: 10, fcid: 0xc0b0a00, addr_fcid: "
                               "0xc0b0a00 \n",
                           }));
    ASSERT_EQ(platform().options.size(), 1u);
    EXPECT_EQ(platform().options[0].value.ifindex, 0x11223344u);
    EXPECT_EQ(command(0x40345010, interface_record(10, 2)), 0);
    EXPECT_EQ(ipfc_priv(vsan_interfaces[10])->intf_adm_status, IPFC_INTF_ADMIN_UP);
    EXPECT_EQ(command(0x40345010, interface_record(11, 2)), -22);
}

TEST_F(CommandTest, command_16_passes_the_stacks_refusal_through)
{
    make_interface(10);
    platform().option_results = {-98};
    EXPECT_EQ(command(0x40345010, interface_record(10, 1)), -98);
}

TEST_F(CommandTest, command_17_stores_the_address_without_a_message)
{
    net_device* const dev = make_interface(10);
    EXPECT_EQ(command(0x40145011, interface_record(10)), 0);
    EXPECT_EQ(bytes_of(ipfc_priv(dev)->ip_addr),
              (Bytes{1, 0, 0, 0, 10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(take_messages(), received(17));
}

TEST_F(CommandTest, command_18_copies_out_reserve_plus_36_less_the_trailer)
{
    const struct {
        int reserve;
        int trailer;
        Bytes room;
    } rows[] = {
        {64, 8, {92, 0, 0, 0}}, {300, 0, {0x50, 1, 0, 0}}, {0, 40, {0xFC, 0xFF, 0xFF, 0xFF}}};
    for (const auto& row : rows) {
        platform().header_reserve = row.reserve;
        platform().trailer_length = row.trailer;
        twin::UserMemory room(4);
        room.fill(0xEE);
        EXPECT_EQ(opened->ioctl(0x40045012, room.argument()), 0);
        EXPECT_EQ(room.bytes(), row.room);
        EXPECT_EQ(take_messages(), received(18));
    }
    EXPECT_EQ(twin::user_copies().from_user, 0u);
}

TEST_F(CommandTest, command_18_that_cannot_be_copied_out_gives_minus_14)
{
    const twin::UserMemory short_room(3);
    const twin::UserMemory read_only(4, twin::UserMemory::Access::read_only);
    for (const unsigned long argument : {short_room.argument(), read_only.argument(), 0x10000ul}) {
        EXPECT_EQ(opened->ioctl(0x40045012, argument), -14);
        EXPECT_EQ(take_messages(), received(18, {WRITE_FAILED}));
    }
}

TEST_F(CommandTest, a_record_that_ends_beside_an_unmapped_page_is_read_whole)
{
    make_interface(10);
    const struct {
        unsigned code;
        std::size_t size;
    } rows[] = {
        {0x40105003, 16},  {0x40105004, 16}, {0x40105005, 16}, {0x40105006, 16}, {0xC0345007, 52},
        {0xC0AC5008, 172}, {0x4034500A, 52}, {0x4034500E, 52}, {0x40345010, 52}, {0x40145011, 52},
        {0x4014500C, 20},  {0x4014500D, 20}, {0x4034500F, 52},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code & 0xFF);
        Bytes record(row.size);
        record[0] = 10;
        const twin::UserCopies before = twin::user_copies();
        EXPECT_NE(command(row.code, record), -14);
        EXPECT_EQ(twin::user_copies().from_user - before.from_user, row.size);
        EXPECT_EQ(twin::user_copies().faults, 0u);
        take_messages();
    }
}

TEST_F(CommandTest, a_record_that_lacks_its_last_byte_gives_minus_14_and_calls_no_handler)
{
    const struct {
        unsigned code;
        std::size_t size;
    } rows[] = {
        {0x40105003, 16}, {0x40105004, 16},  {0x40105005, 16}, {0x40105006, 16},
        {0xC0345007, 52}, {0xC0AC5008, 172}, {0x4034500A, 52}, {0x4034500E, 52},
        {0x4034500F, 52}, {0x40345010, 52},  {0x40145011, 52},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code & 0xFF);
        Bytes record(row.size - 1);
        record[0] = 10;
        EXPECT_EQ(command(row.code, record), -14);
        EXPECT_EQ(take_messages(), received(row.code & 0xFF, {READ_FAILED}));
    }
    EXPECT_TRUE(twin::registered_devices().empty());
}

TEST_F(CommandTest, command_17_with_20_bytes_before_an_unmapped_page_gives_minus_14)
{
    make_interface(10);
    Bytes address(20);
    address[0] = 10;
    EXPECT_EQ(command(0x40145011, address), -14);
    EXPECT_EQ(take_messages(), received(17, {READ_FAILED}));
    EXPECT_EQ(bytes_of(ipfc_priv(vsan_interfaces[10])->ip_addr), Bytes(20));
}

TEST_F(CommandTest, a_result_that_cannot_be_copied_back_gives_minus_14)
{
    make_interface(10);
    const struct {
        unsigned code;
        std::size_t size;
    } rows[] = {{0xC0345007, 52}, {0xC0AC5008, 172}};
    for (const auto& row : rows) {
        Bytes record(row.size);
        record[0] = 10;
        const twin::UserMemory read_only(record, twin::UserMemory::Access::read_only);
        EXPECT_EQ(opened->ioctl(row.code, read_only.argument()), -14);
        EXPECT_EQ(take_messages(), received(row.code & 0xFF, {WRITE_FAILED}));
        EXPECT_EQ(read_only.bytes(), record);
    }
}

TEST_F(CommandTest, a_32_bit_caller_gets_the_same_172_bytes_through_the_compat_entry)
{
    net_device* const dev = make_interface(10);
    ipfc_priv(dev)->stats.rx_packets = 0x1122334455667788;
    ipfc_priv(dev)->mib_stats.ifInUnknownProtos = 0x99AABBCC;
    Bytes request(172);
    request[0] = 10;
    twin::UserMemory native(request);
    twin::UserMemory compat(request);
    EXPECT_EQ(opened->ioctl(0xC0AC5008, native.argument()), 0);
    EXPECT_EQ(opened->compat_ioctl(0xC0AC5008, compat.argument()), 0);
    EXPECT_EQ(compat.bytes(), native.bytes());
    Bytes expected = request;
    const std::uint8_t packets[] = {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
    const std::uint8_t unknown[] = {0xCC, 0xBB, 0xAA, 0x99};
    memcpy(expected.data() + 8, packets, 8);
    memcpy(expected.data() + 168, unknown, 4);
    EXPECT_EQ(compat.bytes(), expected);
}

TEST_F(CommandTest, the_compat_entry_widens_negative_results)
{
    EXPECT_EQ(opened->compat_ioctl(0x40105103, 0), -25);
    EXPECT_EQ(take_messages(), received(3, {"100 ipfc_chr_ioctl: Invalid Ioctl magic\n"}));
    EXPECT_EQ(opened->compat_ioctl(0x00005009, 0), 0);
    EXPECT_EQ(take_messages(), received(9));
}

} // namespace
