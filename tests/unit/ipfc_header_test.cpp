// SPDX-License-Identifier: GPL-2.0-only
// Link-layer header construction: what an outgoing packet carries, and what it does to the table.
#include "support/interface_test.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

const char* const packet = "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02";

ipfc_ll_addr_t address(const char* port, fcid_t fc_address)
{
    return {.ww_portname = wwn(port), .fcid = fc_address};
}

const ipfc_ll_addr_t peer_address = {.ww_portname = peer_port, .fcid = peer_fcid};
const ipfc_ll_addr_t own_address = {.ww_portname = own_port, .fcid = own_fcid};
const ipfc_ll_addr_t broadcast_address = {
    .ww_portname = {.str = {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    .fcid = broadcast_fcid};

class HeaderTest : public InterfaceTest {
protected:
    // A packet with room for the headers, the room filled with EE.
    SkbPtr make(unsigned headroom = 100)
    {
        sk_buff* const skb = make_skb(bytes(packet), {.headroom = headroom});
        std::fill(skb->head, skb->data, std::uint8_t{0xEE});
        return SkbPtr(skb);
    }
    int create(const SkbPtr& skb, const ipfc_ll_addr_t* daddr, const ipfc_ll_addr_t* saddr,
               unsigned short type = ETH_P_IP)
    {
        return dev->header_ops->create(skb.get(), dev, type, daddr, saddr, skb->len);
    }
    // The headers behind the stack's reserve, after a successful construction.
    std::string headers(const SkbPtr& skb)
    {
        const Bytes all = skb_bytes(skb.get());
        EXPECT_EQ(all.size(), 56u + 36 + 20);
        EXPECT_EQ(Bytes(all.begin(), all.begin() + 56), Bytes(56, 0xEE)) << "the reserve";
        EXPECT_EQ(Bytes(all.begin() + 92, all.end()), bytes(packet));
        return hex(std::span(all).subspan(56, 36));
    }
    std::string headers_for(const ipfc_ll_addr_t* daddr, const ipfc_ll_addr_t* saddr,
                            unsigned short type = ETH_P_IP)
    {
        const SkbPtr skb = make();
        EXPECT_EQ(create(skb, daddr, saddr, type), 60);
        return headers(skb);
    }
};

TEST_F(HeaderTest, a_known_destination_gets_all_headers_and_each_step_is_traced)
{
    add_peer();
    EXPECT_EQ(headers_for(&peer_address, &own_address),
              "10 00 00 5e bf 0a 0b 01 00 14 15 16 " // destination, for transmission
              "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(effects(), (Lines{"101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 "
                                "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                                "daddr:10:00:00:5e:bf:0a:0b:01 d_id:0x141516\n",
                                "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 Mapping found FCID = 0x141516\n",
                                "101 ipfc_dev_hard_header ntw_hdr - saddr:10:00:00:5e:bf:01:02:03 "
                                "daddr:10:00:00:5e:bf:0a:0b:01\n",
                                "101 ipfc_dev_hard_header pushed daddr:10:00:00:5e:bf:0a:0b:01 "
                                "fcid:0x141516 \n"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(HeaderTest, arp_and_ipv6_get_the_same_headers_with_their_own_ethertype)
{
    add_peer();
    const std::string common = "10 00 00 5e bf 0a 0b 01 00 14 15 16 10 00 00 5e bf 0a 0b 01 "
                               "10 00 00 5e bf 01 02 03 aa aa 03 00 00 00 ";
    EXPECT_EQ(headers_for(&peer_address, &own_address, ETH_P_ARP), common + "08 06");
    EXPECT_EQ(messages().at(0), "101 ipfc_dev_hard_header vsan:10 type:0x806 len:20 "
                                "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                                "daddr:10:00:00:5e:bf:0a:0b:01 d_id:0x141516\n");
    EXPECT_EQ(headers_for(&peer_address, &own_address, ETH_P_IPV6), common + "86 dd");
}

TEST_F(HeaderTest, a_broadcast_gets_all_ones_and_touches_no_mapping)
{
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_EQ(headers_for(&broadcast_address, &own_address),
              "10 00 ff ff ff ff ff ff 00 ff ff ff 10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(journal().texts({Source::lock}), Lines{});
    EXPECT_EQ(effects(), (Lines{"101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 "
                                "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                                "daddr:10:00:ff:ff:ff:ff:ff:ff d_id:0xffffff\n",
                                "101 ipfc_dev_hard_header ntw_hdr - saddr:10:00:00:5e:bf:01:02:03 "
                                "daddr:10:00:ff:ff:ff:ff:ff:ff\n",
                                "101 ipfc_dev_hard_header pushed daddr:10:00:ff:ff:ff:ff:ff:ff "
                                "fcid:0xffffff \n"}));
    EXPECT_EQ(table_of(priv), Lines{});
}

TEST_F(HeaderTest, the_fcid_alone_makes_a_broadcast)
{
    const ipfc_ll_addr_t odd = address("21:22:23:24:25:26:27:28", broadcast_fcid);
    EXPECT_EQ(headers_for(&odd, &own_address).substr(0, 71),
              "21 22 23 24 25 26 27 28 00 ff ff ff 10 00 ff ff ff ff ff ff 10 00 00 5e");
    const ipfc_ll_addr_t ones = address("10:00:ff:ff:ff:ff:ff:ff", peer_fcid);
    EXPECT_EQ(headers_for(&ones, &own_address).substr(0, 71),
              "10 00 ff ff ff ff ff ff 00 14 15 16 10 00 ff ff ff ff ff ff 10 00 00 5e");
    EXPECT_EQ(table_of(priv), (Lines{"0 10:00:ff:ff:ff:ff:ff:ff > 141516"}));
}

TEST_F(HeaderTest, an_unknown_destination_is_stored_whole_while_header_and_key_carry_10_00)
{
    const ipfc_ll_addr_t daddr = address("21:55:00:5e:bf:0a:0b:01", peer_fcid);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_EQ(headers_for(&daddr, &own_address),
              "21 55 00 5e bf 0a 0b 01 00 14 15 16 10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(journal().texts({Source::lock}),
              (Lines{"read_lock_bh hash_lock", "read_unlock_bh hash_lock",
                     "write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
    EXPECT_EQ(effects(), (Lines{"101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 "
                                "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                                "daddr:21:55:00:5e:bf:0a:0b:01 d_id:0x141516\n",
                                "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 Mapping not found\n",
                                "101 VSAN 10, mapping added for WW_PN = 21:55:00:5e:bf:0a:0b:01",
                                "101  FCID = 0x141516 - PACKET SEND \n",
                                "101 ipfc_dev_hard_header ntw_hdr - saddr:10:00:00:5e:bf:01:02:03 "
                                "daddr:10:00:00:5e:bf:0a:0b:01\n",
                                "101 ipfc_dev_hard_header pushed daddr:21:55:00:5e:bf:0a:0b:01 "
                                "fcid:0x141516 \n"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 21:55:00:5e:bf:0a:0b:01 > 141516"}));
    EXPECT_EQ(num_mapping_obj, 1);
}

TEST_F(HeaderTest, an_unknown_destination_joins_its_bucket_after_the_trace_of_its_adding)
{
    add(wwn("10:00:00:5e:bf:0a:00:0a"), fcid(1)); // bucket 15 as well
    headers_for(&peer_address, &own_address);
    const Lines texts = messages();
    ASSERT_EQ(texts.size(), 8u);
    EXPECT_EQ(texts[4], "101  FCID = 0x141516 - PACKET SEND \n");
    EXPECT_EQ(texts[5], "101 Hash collision for WW_PN = 10:00:00:5e:bf:0a:0b:01\n");
}

TEST_F(HeaderTest, a_second_packet_to_a_new_destination_finds_what_the_first_entered)
{
    headers_for(&peer_address, &own_address);
    headers_for(&peer_address, &own_address);
    EXPECT_EQ(num_mapping_obj, 1);
}

TEST_F(HeaderTest, a_destination_known_with_its_fcid_is_only_looked_up)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    headers_for(&peer_address, &own_address);
    EXPECT_EQ(journal().texts({Source::lock}),
              (Lines{"read_lock_bh hash_lock", "read_unlock_bh hash_lock"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
}

TEST_F(HeaderTest, what_is_allocated_is_allocated_atomically)
{
    const SkbPtr skb = make(0);
    bh_disable(); // as under the network stack's locks
    EXPECT_EQ(create(skb, &peer_address, &own_address), 60);
    bh_enable();
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(heap().served_atomically(), Lines{});
}

TEST_F(HeaderTest, a_destination_known_with_another_fcid_updates_the_table)
{
    add_exchange(priv, add(peer_port, fcid(0x777777)), own_fcid, 7);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_EQ(headers_for(&peer_address, &own_address),
              "10 00 00 5e bf 0a 0b 01 00 14 15 16 10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(
        journal().texts({Source::lock, Source::platform}),
        (Lines{"read_lock_bh hash_lock", "read_unlock_bh hash_lock", "write_lock_bh hash_lock",
               "write_unlock_bh hash_lock", "kfc2_send_logo vsan 10 0a0b0c to 777777",
               "write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
    const Lines texts = messages();
    ASSERT_EQ(texts.size(), 7u);
    EXPECT_EQ(texts[2], "101 Mapping found FCID = 0x777777\n");
    EXPECT_EQ(texts[3], "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x77777700 \n");
    EXPECT_EQ(texts[4], "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x77777700 "
                        "\n");
}

// The correction goes by the whole key, so that a node with other first bytes keeps its FCID.
TEST_F(HeaderTest, a_node_with_other_first_bytes_gives_them_to_the_header_and_keeps_its_fcid)
{
    add_exchange(priv, add(wwn("20:00:00:5e:bf:0a:0b:01"), fcid(0x777777)), own_fcid, 7);
    EXPECT_EQ(headers_for(&peer_address, &own_address),
              "10 00 00 5e bf 0a 0b 01 00 14 15 16 20 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(table_of(priv), (Lines{"15 20:00:00:5e:bf:0a:0b:01 > 777777 0a0b0c=7"}));
    EXPECT_TRUE(platform().logos.empty());
}

TEST_F(HeaderTest, a_name_with_other_first_bytes_corrects_the_fcid_of_the_node_with_10_00)
{
    add(peer_port, fcid(0x777777));
    const ipfc_ll_addr_t daddr = address("20:00:00:5e:bf:0a:0b:01", peer_fcid);
    EXPECT_EQ(headers_for(&daddr, &own_address).substr(36, 23), "10 00 00 5e bf 0a 0b 01");
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(HeaderTest, the_destination_written_survives_a_delete_of_its_node_during_the_update)
{
    add_exchange(priv, add(peer_port, fcid(0x777777)), own_fcid, 7);
    platform().on_logo = [&](const SentLogo& logo) {
        EXPECT_EQ(logo.locks, 0);
        const TableLock lock(priv);
        EXPECT_TRUE(kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan));
    };
    EXPECT_EQ(headers_for(&peer_address, &own_address).substr(36, 23), "10 00 00 5e bf 0a 0b 01");
    EXPECT_EQ(num_mapping_obj, 0);
}

TEST_F(HeaderTest, a_source_that_begins_with_20_00_goes_out_as_10_00_and_its_low_six_bytes)
{
    add_peer();
    const ipfc_ll_addr_t saddr = address("20:aa:01:02:03:04:05:06", fcid(0x010203));
    EXPECT_EQ(headers_for(&peer_address, &saddr).substr(60, 23), "10 00 01 02 03 04 05 06");
}

TEST_F(HeaderTest, without_a_source_the_interfaces_own_port_name_is_taken)
{
    add_peer();
    EXPECT_EQ(headers_for(&peer_address, nullptr).substr(60, 23), "10 00 00 5e bf 01 02 03");
    EXPECT_EQ(messages().at(0),
              "101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 saddr:(null) s_id:0x0 "
              "daddr:10:00:00:5e:bf:0a:0b:01 d_id:0x141516\n");
}

TEST_F(HeaderTest, the_room_pushed_is_the_stacks_reserve_less_its_trailer)
{
    add_peer();
    platform().header_reserve = 20;
    platform().trailer_length = 4;
    const SkbPtr skb = make();
    EXPECT_EQ(create(skb, &peer_address, &own_address), 20) << "not the number of bytes pushed";
    EXPECT_EQ(skb->len, 20u + 36 + 16);
    EXPECT_EQ(hex(std::span(skb->data + 16, 12)), "10 00 00 5e bf 0a 0b 01 00 14 15 16");
}

TEST_F(HeaderTest, a_buffer_with_exactly_the_room_is_used_as_it_is)
{
    add_peer();
    const SkbPtr skb = make(92);
    const unsigned char* const head = skb->head;
    EXPECT_EQ(create(skb, &peer_address, &own_address), 60);
    EXPECT_EQ(skb->head, head);
    EXPECT_EQ(skb->data, skb->head);
}

TEST_F(HeaderTest, a_buffer_with_too_little_room_gets_what_is_missing)
{
    add_peer();
    for (const unsigned headroom : {0u, 1u, 91u}) {
        const SkbPtr skb = make(headroom);
        EXPECT_EQ(create(skb, &peer_address, &own_address), 60) << headroom;
        EXPECT_EQ(skb->data, skb->head) << headroom;
        EXPECT_EQ(hex(skb_bytes(skb.get())).substr(56 * 3),
                  "10 00 00 5e bf 0a 0b 01 00 14 15 16 10 00 00 5e bf 0a 0b 01 "
                  "10 00 00 5e bf 01 02 03 aa aa 03 00 00 00 08 00 " +
                      std::string(packet))
            << headroom;
    }
}

} // namespace
