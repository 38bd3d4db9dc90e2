// SPDX-License-Identifier: GPL-2.0-only
// Transmission of ARP: once as built, once in the form with 6-byte hardware addresses.
#include "support/skb_hooks.h"
#include "support/xmit_test.h"

#include "ivr_ip.h"

namespace {

using namespace twin;

class XmitArpTest : public XmitTest {
protected:
    void SetUp() override
    {
        XmitTest::SetUp();
        take_copies();
    }
};

const char* const new_form = "10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 "
                             "aa aa 03 00 00 00 08 06 "
                             "00 12 08 00 0c 04 00 01 20 00 00 5e bf 01 02 03 00 0a 0b 0c "
                             "0a 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 0a 00 00 02";
const char* const old_form = "10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 "
                             "aa aa 03 00 00 00 08 06 "
                             "00 01 08 00 06 04 00 01 00 5e bf 01 02 03 0a 00 00 01 "
                             "ff ff ff ff ff ff 0a 00 00 02";

TEST_F(XmitArpTest, an_arp_request_is_sent_again_12_bytes_shorter_with_6_byte_addresses)
{
    send(to_all, arp, arp_request);
    ASSERT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(sent(0), new_form);
    EXPECT_EQ(sent(1), old_form);
    EXPECT_EQ(platform().sends[0].bytes.size() - platform().sends[1].bytes.size(), 12u);
}

TEST_F(XmitArpTest, a_broadcast_arp_request_goes_through_its_steps_in_order)
{
    ivrip_add_entry(0, peer_port, fcid(0x300001), 0x0a000000);
    platform().send_results = {1, 2, 3};
    send(to_all, arp, arp_request);
    EXPECT_EQ(effects(),
              (Lines{"101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n",
                     "101 ipfc_dev_hard_start_xmit: cached - daddr:0xffffffffffff0010 "
                     "fcid:0xffffff00\n",
                     "100 ipfc_dev_hard_start_xmit: dst addr is broadcast\n",
                     "101 ipfc_dev_hard_start_xmit: new exchange for arp packet\n",
                     "101 ipfc_dev_hard_start_xmit: skb->len: 64\n",
                     "kfc2_sendskb vsan 10 0a0b0c to ffffff, 64 bytes = 1",
                     "101 ipfc_dev_hard_start_xmit: fc2 returned : 1\n",
                     "101 ipfc_dev_hard_start_xmit: skb_old_arp->len: 52\n",
                     "kfc2_sendskb vsan 10 0a0b0c to ffffff, 52 bytes = 2",
                     "101 fc2 returned : 2 for sending old arp request\n",
                     "kfc2_sendskb vsan 10 0a0b0c to 300001, 64 bytes = 3",
                     "101 For replicated bcast pkt to fcid:0x1003000,fc2 ret:3\n",
                     "101 vsan:10 - pkt sent to wwn:0xffffffffffff0010 fcid:0xffffff00\n"}));
    EXPECT_EQ(sent(2), new_form);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=64 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(XmitArpTest, a_unicast_arp_reply_goes_through_its_steps_in_order)
{
    add_peer();
    platform().send_results = {0x31, 0x32};
    send(to_peer, arp,
         "00 12 08 00 0c 04 00 02 20 00 00 5e bf 01 02 03 00 0a 0b 0c 0a 00 00 01 "
         "10 00 00 5e bf 0a 0b 01 00 14 15 16 0a 00 00 02");
    EXPECT_EQ(effects(),
              (Lines{"101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n",
                     "101 ipfc_dev_hard_start_xmit: cached - daddr:0x10b0abf5e000010 "
                     "fcid:0x16151400\n",
                     "100 ipfc_dev_hard_start_xmit: dst addr is unicast\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 ipfc_dev_hard_start_xmit: skb->len: 64\n",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 64 bytes = 49",
                     "101 ipfc_dev_hard_start_xmit: fc2 returned : 31\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 ipfc_dev_hard_start_xmit: skb_old_arp->len: 52\n",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 52 bytes = 50",
                     "101 fc2 returned : 32 for sending old arp request\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping found FCID = 0x141516\n",
                     "101 vsan:10 - pkt sent to wwn:0x10b0abf5e000010 fcid:0x16151400\n"}));
    EXPECT_EQ(sent(1), "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 aa aa 03 00 00 00 08 06 "
                       "00 01 08 00 06 04 00 02 00 5e bf 01 02 03 0a 00 00 01 "
                       "00 5e bf 0a 0b 01 0a 00 00 02");
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=64 ifHCOutOctets=64 ifHCOutUcastPkts=1");
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=49"}))
        << "the handle is the first send's";
}

TEST_F(XmitArpTest, the_second_send_has_the_first_ones_header_with_its_length)
{
    add_peer();
    send(to_peer, arp, arp_request);
    EXPECT_EQ(header(0).length, 64);
    EXPECT_EQ(header_bytes(1), header_bytes(0));
    EXPECT_EQ(platform().sends[1].bytes.size(), 52u);
    EXPECT_EQ(platform().sends[1].locks, 0);
}

TEST_F(XmitArpTest, what_the_stack_writes_into_the_first_header_is_not_in_the_second)
{
    add_peer();
    platform().on_header = [](fc2_iuhdr_t& header) {
        header.handle = 0x5A5A5A5A;
        header.ox_id = 0x5A5A;
        header.d_id = fcid(0x777777);
    };
    send(to_peer, arp, arp_request);
    ASSERT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(header_bytes(1), header_bytes(0));
}

TEST_F(XmitArpTest, an_arp_packet_is_counted_after_both_sends)
{
    add_peer();
    Lines seen;
    platform().on_send = [&](const SentIu&) { seen.push_back(counters()); };
    send(to_peer, arp, arp_request);
    EXPECT_EQ(seen, (Lines{"", ""}));
}

TEST_F(XmitArpTest, every_copy_and_record_is_allocated_atomically)
{
    ivrip_add_entry(0, peer_port, fcid(0x300001), 0x0a000000);
    add_peer();
    const Lines before = heap().served_atomically(); // of the set-up
    for (const char* const addresses : {to_peer, to_all}) {
        sk_buff* const skb = make_skb(buffer(addresses, arp, arp_request)); // no room: copied
        skb->dev = dev;
        EXPECT_EQ(transmit(skb, dev), 0);
    }
    EXPECT_EQ(platform().sends.size(), 5u);
    EXPECT_EQ(ipfc_skbs_copied, 4u);
    EXPECT_EQ(num_exch_obj, 1);
    EXPECT_EQ(heap().served_atomically(), before);
}

TEST_F(XmitArpTest, protocol_fields_and_operation_are_kept_in_the_old_form)
{
    send(to_all, arp,
         "ab cd 12 34 56 78 9a bc 20 00 00 5e bf 01 02 03 00 0a 0b 0c c0 a8 00 01 "
         "11 22 33 44 55 66 77 88 99 aa bb cc c0 a8 00 02");
    EXPECT_EQ(sent(1).substr(24 * 3), "00 01 12 34 06 78 9a bc 00 5e bf 01 02 03 c0 a8 00 01 "
                                      "ff ff ff ff ff ff c0 a8 00 02");
}

TEST_F(XmitArpTest, what_follows_the_40_bytes_is_sent_and_shortened_like_the_rest)
{
    send(to_all, arp,
         "00 12 08 00 0c 04 00 01 20 00 00 5e bf 01 02 03 00 0a 0b 0c 0a 00 00 01 "
         "00 00 00 00 00 00 00 00 00 00 00 00 0a 00 00 02 "
         "e1 e2 e3 e4 e5 e6 e7 e8 e9 ea eb ec ed ee");
    EXPECT_EQ(platform().sends[0].bytes.size(), 78u);
    EXPECT_EQ(platform().sends[1].bytes.size(), 66u);
    EXPECT_EQ(sent(1).substr(0, 52 * 3 - 1), old_form);
}

TEST_F(XmitArpTest, every_arp_packet_moves_the_copy_counters)
{
    send(to_all, arp, arp_request);
    EXPECT_EQ(ipfc_skbs_copied, 1u);
    EXPECT_EQ(ipfc_bytes_copied, 64u);
    ipfc_skbs_copied = 0xFFFFFFFF;
    ipfc_bytes_copied = 0xFFFFFFFF;
    send(to_all, arp, arp_request);
    EXPECT_EQ(ipfc_skbs_copied, 0u);
    EXPECT_EQ(ipfc_bytes_copied, 63u);
}

TEST_F(XmitArpTest, without_a_copy_the_packet_is_sent_once_and_the_copy_counted_all_the_same)
{
    add_peer();
    heap().fail_nth(Kind::skb, 1);
    send(to_peer, arp, arp_request);
    EXPECT_EQ(platform().sends.size(), 1u);
    const Lines texts = messages();
    ASSERT_EQ(texts.size(), 14u);
    EXPECT_EQ(texts[2], "100 ipfc_dev_hard_start_xmit: failed to create copy of arp pkt \n");
    EXPECT_EQ(texts[10], "101 ipfc_dev_hard_start_xmit: Failed to save old data\n");
    EXPECT_EQ(texts[13], "101 vsan:10 - pkt sent to wwn:0x10b0abf5e000010 fcid:0x16151400\n");
    EXPECT_EQ(ipfc_skbs_copied, 1u);
    EXPECT_EQ(ipfc_bytes_copied, 64u);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=64 ifHCOutOctets=64 ifHCOutUcastPkts=1");
}

TEST_F(XmitArpTest, a_refused_second_send_does_not_change_the_flow)
{
    for (const int error : {-5, -52, -111, -113}) {
        kpn_to_fcid_t* const peer = add_peer();
        platform().send_results = {7, error};
        send(to_peer, arp, arp_request);
        EXPECT_EQ(peer->fc2_exch->fc2_handle, 7);
        EXPECT_EQ(messages().at(10), strf("101 fc2 returned : %x for sending old arp request\n",
                                          static_cast<unsigned>(error)));
        drop_mappings(priv);
    }
    EXPECT_TRUE(platform().logos.empty());
    EXPECT_EQ(counters(), "tx_packets=4 tx_bytes=256 ifHCOutOctets=256 ifHCOutUcastPkts=4");
}

TEST_F(XmitArpTest, a_refused_first_send_frees_the_copy_and_sends_nothing_more)
{
    add_peer();
    platform().send_result = -5;
    send(to_peer, arp, arp_request);
    send(to_all, arp, arp_request);
    EXPECT_EQ(platform().sends.size(), 2u);
    for (const sk_buff* const copy : take_copies())
        EXPECT_FALSE(skb_alive(copy));
    EXPECT_EQ(counters(), "tx_errors=2");
}

TEST_F(XmitArpTest, an_arp_packet_shorter_than_40_bytes_is_sent_once_as_it_is)
{
    for (const std::size_t length : {0u, 1u, 8u, 28u, 39u}) {
        const Bytes whole = buffer(to_all, arp, arp_request);
        sk_buff* const skb =
            make_skb(std::span(whole).first(92 + length), {.headroom = 56, .tailroom = 12});
        EXPECT_EQ(transmit(skb, dev), 0);
        ASSERT_EQ(platform().sends.size(), 1u) << length;
        EXPECT_EQ(platform().sends[0].bytes.size(), 24 + length);
        const Lines texts = messages();
        ASSERT_EQ(texts.size(), 8u) << length;
        EXPECT_EQ(texts[6], "100 ipfc_dev_hard_start_xmit: Invalid skb_put() - data length too "
                            "small\n");
        platform().sends.clear();
    }
    EXPECT_EQ(counters(), "tx_packets=5 tx_bytes=196 ifOutBroadcastPkts=5 ifHCOutBroadcastPkts=5");
}

// ---- the table's lock is free during both sends ----

TEST_F(XmitArpTest, a_mapping_deleted_during_the_first_send_leaves_the_copy_unsent_and_unfreed)
{
    add_peer();
    platform().on_send = [&](const SentIu&) {
        const TableLock lock(priv);
        kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan);
    };
    send(to_peer, arp, arp_request);
    EXPECT_EQ(platform().sends.size(), 1u);
    EXPECT_EQ(counters(), "");
    const std::vector<sk_buff*> copies = take_copies();
    ASSERT_EQ(copies.size(), 1u);
    ASSERT_TRUE(skb_alive(copies[0])) << "kept, deliberately";
    kfree_skb(copies[0]);
}

TEST_F(XmitArpTest, a_mapping_deleted_during_the_second_send_stops_the_octets_but_not_the_packets)
{
    add_peer();
    platform().on_send = [&](const SentIu&) {
        if (platform().sends.size() == 2) {
            const TableLock lock(priv);
            kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan);
        }
    };
    send(to_peer, arp, arp_request);
    EXPECT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=64");
    EXPECT_EQ(messages().back(), "101 Mapping not found\n");
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(XmitArpTest, the_lock_is_let_go_around_both_sends)
{
    add_peer();
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    send(to_peer, arp, arp_request);
    EXPECT_EQ(journal().texts({Source::lock, Source::platform}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 64 bytes = 4660",
                     "write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                     "kfc2_sendskb vsan 10 0a0b0c to 141516, 52 bytes = 4660",
                     "write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
}

} // namespace
