// SPDX-License-Identifier: GPL-2.0-only
// Transmission of a unicast packet: header, exchange, room in the buffer, counters.
#include "support/xmit_test.h"

#include "kapi/jiffies.h"

namespace {

using namespace twin;

class UnicastTest : public XmitTest {};

const char* const wire_bytes = "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
                               "aa aa 03 00 00 00 08 00 "
                               "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02";

TEST_F(UnicastTest, a_unicast_goes_through_its_steps_in_order)
{
    add_peer();
    send_unicast();
    EXPECT_EQ(effects(),
              (Lines{"101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n",
                     "101 ipfc_dev_hard_start_xmit: cached - daddr:0x10b0abf5e000010 "
                     "fcid:0x16151400\n",
                     "100 ipfc_dev_hard_start_xmit: dst addr is unicast\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 ipfc_dev_hard_start_xmit: skb->len: 44\n",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 44 bytes = 4660",
                     "101 ipfc_dev_hard_start_xmit: fc2 returned : 1234\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 vsan:10 - pkt sent to wwn:0x10b0abf5e000010 fcid:0x16151400\n"}));
    EXPECT_EQ(sent(0), wire_bytes);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifHCOutOctets=44 ifHCOutUcastPkts=1");
}

TEST_F(UnicastTest, the_header_of_a_unicast_without_exchange_is_whole)
{
    add_peer();
    send_unicast();
    EXPECT_EQ(header_bytes(0), "01 00 00 00 2c 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 ff 00 00 00 00 ff ff ff ff 00 00 00 00 "
                               "ff ff ff ff 00 00 00 00 00 00 00 00 0a 00 00 00 "
                               "00 0a 0b 0c 00 14 15 16 00 00 00 00 00 05 01 03 "
                               "00 04 00 20 00 00 20 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(UnicastTest, the_header_of_a_unicast_with_an_exchange_carries_its_handle)
{
    add_exchange(priv, add_peer(), own_fcid, 0x01020304);
    send_unicast();
    EXPECT_EQ(header_bytes(0), "01 00 00 00 2c 00 00 00 04 03 02 01 00 00 00 00 "
                               "00 00 00 ff 00 00 00 00 ff ff ff ff 00 00 00 00 "
                               "ff ff ff ff 00 00 00 00 00 00 00 00 0a 00 00 00 "
                               "00 0a 0b 0c 00 14 15 16 00 00 00 00 00 05 01 03 "
                               "00 04 00 20 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(UnicastTest, the_first_send_opens_an_exchange_and_later_ones_update_its_handle)
{
    add_exchange(priv, add_peer(), fcid(0x0a0b0d), 5); // of a secondary address
    platform().send_results = {31, 32, 0};
    for (int i = 0; i < 3; ++i)
        send_unicast();
    EXPECT_EQ(header(0).f_ctl, 0x200000u);
    EXPECT_EQ(header(0).handle, 0u);
    EXPECT_EQ(header(1).f_ctl, 0u);
    EXPECT_EQ(header(1).handle, 31u);
    EXPECT_EQ(header(2).handle, 32u);
    EXPECT_EQ(num_exch_obj, 2);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0d=5 0a0b0c=0"}))
        << "the new record joins at the tail, and a handle of 0 counts";
}

TEST_F(UnicastTest, no_memory_for_the_exchange_is_silent_and_the_packet_counts)
{
    add_peer();
    heap().fail_from(Kind::object, 1);
    send_unicast();
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
    EXPECT_EQ(messages().size(), 12u);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifHCOutOctets=44 ifHCOutUcastPkts=1");
    heap().never_fail();
    send_unicast();
    EXPECT_EQ(header(1).f_ctl, 0x200000u) << "the next packet opens it";
    EXPECT_EQ(num_exch_obj, 1);
}

TEST_F(UnicastTest, the_destination_is_the_mappings_fcid_and_not_the_copys)
{
    add(peer_port, fcid(0x777777));
    send_unicast();
    EXPECT_EQ(hex(header(0).d_id.str), "00 77 77 77");
}

TEST_F(UnicastTest, the_lookup_goes_by_the_network_header_and_ignores_its_first_two_bytes)
{
    add(wwn("20:00:00:5e:bf:0a:0b:01"), peer_fcid);
    send("99 99 99 99 99 99 99 99 00 99 99 99 10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03", ip,
         ipv4_packet);
    ASSERT_EQ(platform().sends.size(), 1u);
    const Lines texts = messages();
    EXPECT_EQ(texts[1], "101 ipfc_dev_hard_start_xmit: cached - daddr:0x9999999999999999 "
                        "fcid:0x99999900\n");
    EXPECT_EQ(texts.back(), "101 vsan:10 - pkt sent to wwn:0x10b0abf5e000020 fcid:0x16151400\n")
        << "the node's own name";
}

TEST_F(UnicastTest, an_ipv6_packet_goes_like_an_ip_packet)
{
    add_peer();
    send(to_peer, ipv6, ipv4_packet);
    EXPECT_EQ(sent(0).substr(60, 11), "00 00 86 dd");
    EXPECT_EQ(platform().sends.size(), 1u);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifHCOutOctets=44 ifHCOutUcastPkts=1");
}

TEST_F(UnicastTest, an_rsvp_packet_is_marked_te_only)
{
    add_peer();
    send(to_peer, ip, "46 00 00 18 00 00 00 00 01 2e 00 00 0a 00 00 01 0a 00 00 02 94 04 00 00");
    EXPECT_EQ(header(0).flags, 0x1000);
    const Lines texts = messages();
    EXPECT_EQ(texts[5], "101 setting TE_ONLY");
    EXPECT_EQ(texts[6], "101 ipfc_dev_hard_start_xmit: skb->len: 48\n");
}

TEST_F(UnicastTest, byte_9_marks_te_only_whatever_the_ethertype_and_nothing_else_does)
{
    add_peer();
    send(to_peer, ipv6, "60 00 00 00 00 00 3b 40 fe 2e 00 00 00 00 00 00 00 00 00 01");
    EXPECT_EQ(header(0).flags, 0x1000);
    send(to_peer, ip, "2e 2e 2e 2e 2e 2e 2e 2e 2e 2f 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e");
    EXPECT_EQ(header(1).flags, 0);
}

TEST_F(UnicastTest, the_send_runs_without_locks_and_the_rest_under_the_tables_lock)
{
    add_peer();
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    send_unicast();
    EXPECT_EQ(platform().sends[0].locks, 0);
    EXPECT_FALSE(platform().sends[0].irqs_off);
    EXPECT_EQ(journal().texts({Source::lock, Source::platform}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 44 bytes = 4660",
                     "write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
}

TEST_F(UnicastTest, the_time_of_the_last_transmission_is_kept)
{
    add_peer();
    advance(77);
    send_unicast();
    EXPECT_EQ(dev->trans_start, first_jiffies + 77);
}

// ---- room for the stack ----

struct Room {
    const char* what;
    SkbLayout layout;
    bool copied;
};

TEST_F(UnicastTest, a_buffer_is_copied_only_when_it_lacks_room_or_is_paged)
{
    add_peer();
    const Room rows[] = {
        {"exactly enough", {.headroom = 56, .tailroom = 12}, false},
        {"no headroom", {.headroom = 0, .tailroom = 12}, true},
        {"one byte of headroom short", {.headroom = 55, .tailroom = 12}, true},
        {"one byte of tailroom short", {.headroom = 56, .tailroom = 11}, true},
        {"no tailroom", {.headroom = 56, .tailroom = 0}, true},
        {"last byte paged", {.headroom = 56, .tailroom = 12, .linear = 111}, true},
        {"all paged", {.headroom = 56, .tailroom = 12, .linear = 0, .page = 7}, true},
        {"plenty", {.headroom = 500, .tailroom = 500}, false},
    };
    const Bytes data = buffer(to_peer, ip, ipv4_packet);
    for (const Room& row : rows) {
        forget_so_far();
        ipfc_skbs_copied = 0;
        ipfc_bytes_copied = 0;
        sk_buff* const skb = make_skb(data, row.layout);
        EXPECT_EQ(transmit(skb, dev), 0);
        ASSERT_EQ(platform().sends.size(), 1u) << row.what;
        EXPECT_EQ(platform().sends[0].skb == skb, !row.copied) << row.what;
        EXPECT_EQ(ipfc_skbs_copied, row.copied ? 1u : 0u) << row.what;
        EXPECT_EQ(ipfc_bytes_copied, row.copied ? 112u : 0u) << row.what;
        EXPECT_EQ(sent(0), wire_bytes) << row.what;
        EXPECT_GE(platform().sends[0].headroom, 64u) << row.what;
        EXPECT_GE(platform().sends[0].tailroom, 12) << row.what;
    }
}

TEST_F(UnicastTest, the_room_needed_follows_the_stacks_reserve_and_trailer)
{
    add_peer();
    platform().header_reserve = 24;
    platform().trailer_length = 20;
    const Bytes data = joined({Bytes(4, 0xEE), bytes(to_peer), bytes(ip), bytes(ipv4_packet)});
    EXPECT_EQ(transmit(make_skb(data, {.headroom = 4, .tailroom = 24}), dev), 0);
    EXPECT_EQ(ipfc_skbs_copied, 0u);
    EXPECT_EQ(transmit(make_skb(data, {.headroom = 4, .tailroom = 23}), dev), 0);
    EXPECT_EQ(ipfc_skbs_copied, 1u);
    EXPECT_EQ(transmit(make_skb(data, {.headroom = 3, .tailroom = 24}), dev), 0);
    EXPECT_EQ(ipfc_skbs_copied, 2u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(sent(i), wire_bytes);
}

// ---- the way down from the network stack ----

TEST_F(UnicastTest, a_packet_of_the_stack_reaches_the_wire_with_its_headers)
{
    const ipfc_ll_addr_t peer = {.ww_portname = peer_port, .fcid = peer_fcid};
    EXPECT_EQ(ip_output(dev, ETH_P_IP, &peer, bytes(ipv4_packet)), 0);
    EXPECT_EQ(sent(0), wire_bytes);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=4660"}));
}

TEST_F(UnicastTest, a_send_is_the_same_whatever_outlets_are_on)
{
    add_peer();
    for (const bool history : {false, true}) {
        for (const bool kernel_log : {false, true}) {
            forget_so_far();
            for (auto& [number, element] : platform().elements) {
                element.history = history;
                element.log = kernel_log;
            }
            send_unicast();
            EXPECT_EQ(sent(0), wire_bytes);
            EXPECT_EQ(platform().take_texts(IPFC_DBG_EVENTS).size(), history ? 11u : 0u);
            EXPECT_EQ(platform().take_texts(IPFC_DBG_ERRORS).size(), history ? 1u : 0u);
            EXPECT_EQ(twin::log().lines().size(), kernel_log ? 12u : 0u);
            EXPECT_EQ(twin::log().contains("<7><{ipfc}>ipfc_dev_hard_start_xmit: dst addr is "
                                           "unicast\n"),
                      kernel_log);
        }
    }
    EXPECT_EQ(counters(), "tx_packets=4 tx_bytes=176 ifHCOutOctets=176 ifHCOutUcastPkts=4");
}

TEST_F(UnicastTest, the_elements_are_switched_one_by_one)
{
    add_peer();
    platform().elements[IPFC_DBG_EVENTS] = {.history = false, .log = false, .texts = {}};
    send_unicast();
    EXPECT_EQ(effects(), (Lines{"100 ipfc_dev_hard_start_xmit: dst addr is unicast\n",
                                "kfc2_sendskb vsan 10 0a0b0c to 141516, 44 bytes = 4660"}));
}

} // namespace
