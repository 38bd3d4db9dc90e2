// SPDX-License-Identifier: GPL-2.0-only
// Transmission of a broadcast, and its replication to the inter-VSAN hosts of the VSAN.
#include "support/skb_hooks.h"
#include "support/xmit_test.h"

#include "ivr_ip.h"

namespace {

using namespace twin;

class BroadcastTest : public XmitTest {
protected:
    static void add_host(std::uint32_t address, vsan_id_t vsan)
    {
        const UnnumberedAllocations set_up;
        EXPECT_EQ(ivrip_add_entry(
                      0, peer_port, fcid(address),
                      static_cast<vsan_id_t>(__builtin_bswap32(static_cast<std::uint32_t>(vsan)))),
                  0);
    }
};

const char* const wire_bytes = "10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 "
                               "aa aa 03 00 00 00 08 00 "
                               "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02";

TEST_F(BroadcastTest, a_broadcast_goes_through_its_steps_in_order)
{
    send_broadcast();
    EXPECT_EQ(effects(),
              (std::vector<std::string>{
                  "101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n",
                  "101 ipfc_dev_hard_start_xmit: cached - daddr:0xffffffffffff0010 "
                  "fcid:0xffffff00\n",
                  "100 ipfc_dev_hard_start_xmit: dst addr is broadcast\n",
                  "101 ipfc_dev_hard_start_xmit: new exchange for arp packet\n",
                  "101 ipfc_dev_hard_start_xmit: skb->len: 44\n",
                  "kfc2_sendskb vsan 10 0a0b0c to ffffff, 44 bytes = 4660",
                  "101 ipfc_dev_hard_start_xmit: fc2 returned : 1234\n",
                  "101 vsan:10 - pkt sent to wwn:0xffffffffffff0010 fcid:0xffffff00\n"}));
    EXPECT_EQ(sent(0), wire_bytes);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
    EXPECT_EQ(table_of(priv), Lines{});
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(BroadcastTest, the_header_of_a_broadcast_is_whole)
{
    send_broadcast();
    EXPECT_EQ(header_bytes(0), "01 00 00 00 2c 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 ff 00 00 00 00 ff ff ff ff 00 00 00 00 "
                               "ff ff ff ff 00 00 00 00 00 00 00 00 0a 00 00 00 "
                               "00 0a 0b 0c 00 ff ff ff 00 00 00 00 00 05 01 03 "
                               "00 04 00 20 00 00 30 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(BroadcastTest, the_fcid_of_the_copy_alone_makes_a_broadcast)
{
    send("10 00 00 5e bf 0a 0b 01 00 ff ff ff 10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03", ip,
         ipv4_packet);
    EXPECT_EQ(hex(header(0).d_id.str), "00 ff ff ff");
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(BroadcastTest, a_broadcast_with_two_hosts_of_the_vsan_is_sent_three_times_and_counted_once)
{
    add_host(0x300001, own_vsan);
    add_host(0x300002, own_vsan + 1);
    add_host(0x300003, own_vsan);
    platform().send_results = {1, 2, 3};
    effects();
    send_broadcast();
    Lines seen = effects();
    seen.erase(seen.begin(), seen.begin() + 5);
    EXPECT_EQ(seen, (Lines{"kfc2_sendskb vsan 10 0a0b0c to ffffff, 44 bytes = 1",
                           "101 ipfc_dev_hard_start_xmit: fc2 returned : 1\n",
                           "kfc2_sendskb vsan 10 0a0b0c to 300003, 44 bytes = 2",
                           "101 For replicated bcast pkt to fcid:0x3003000,fc2 ret:2\n",
                           "kfc2_sendskb vsan 10 0a0b0c to 300001, 44 bytes = 3",
                           "101 For replicated bcast pkt to fcid:0x1003000,fc2 ret:3\n",
                           "101 vsan:10 - pkt sent to wwn:0xffffffffffff0010 fcid:0xffffff00\n"}));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(sent(i), wire_bytes);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(BroadcastTest, a_replicas_header_differs_in_its_destination_alone)
{
    add_host(0x300001, own_vsan);
    send_broadcast();
    std::string expected = header_bytes(0);
    expected.replace(52 * 3, 11, "00 30 00 01");
    EXPECT_EQ(header_bytes(1), expected);
}

TEST_F(BroadcastTest, replicas_are_sent_with_interrupts_off_and_the_tables_lock_let_go)
{
    add_host(0x300001, own_vsan);
    add_host(0x300002, own_vsan);
    name_lock(&priv->hash_lock, "hash_lock");
    name_lock(&ivrip_list_lock, "ivrip_list_lock");
    journal().clear();
    platform().on_send = [](const SentIu& sent) {
        const bool replica = sent.header.d_id.num != broadcast_fcid.num;
        EXPECT_EQ(sent.irqs_off, replica);
        EXPECT_EQ(sent.locks, replica ? 1 : 0);
        EXPECT_EQ(context().irqs_off, replica) << "nobody turned them on";
    };
    send_broadcast();
    EXPECT_EQ(
        journal().texts({Source::lock, Source::platform}),
        (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
               "kfc2_sendskb vsan 10 0a0b0c to ffffff, 44 bytes = 4660", "write_lock_bh hash_lock",
               "spin_lock_irqsave ivrip_list_lock", "write_unlock_bh hash_lock",
               "kfc2_sendskb vsan 10 0a0b0c to 300002, 44 bytes = 4660", "write_lock_bh hash_lock",
               "write_unlock_bh hash_lock",
               "kfc2_sendskb vsan 10 0a0b0c to 300001, 44 bytes = 4660", "write_lock_bh hash_lock",
               "spin_unlock_irqrestore ivrip_list_lock", "write_unlock_bh hash_lock"}));
    EXPECT_FALSE(context().irqs_off);
}

TEST_F(BroadcastTest, a_broadcast_is_counted_before_its_replicas_go_and_not_before_itself)
{
    add_host(0x300001, own_vsan);
    Lines seen;
    platform().on_send = [&](const SentIu&) { seen.push_back(counters()); };
    send_broadcast();
    EXPECT_EQ(seen, (Lines{"", "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 "
                               "ifHCOutBroadcastPkts=1"}));
}

TEST_F(BroadcastTest, the_tables_lock_is_free_during_a_replicas_send)
{
    add_host(0x300001, own_vsan);
    add_peer();
    platform().on_send = [&](const SentIu& sent) {
        if (sent.header.d_id.num != broadcast_fcid.num)
            elsewhere([&] {
                const TableLock lock(priv);
                kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan);
            });
    };
    send_broadcast();
    EXPECT_EQ(table_of(priv), Lines{});
}

TEST_F(BroadcastTest, refused_replicas_change_nothing)
{
    add_host(0x300001, own_vsan);
    add_host(0x300002, own_vsan);
    platform().send_results = {0, -111, -113};
    send_broadcast();
    EXPECT_EQ(platform().sends.size(), 3u);
    EXPECT_TRUE(platform().logos.empty());
    const Lines texts = messages();
    ASSERT_EQ(texts.size(), 9u);
    EXPECT_EQ(texts[6], "101 For replicated bcast pkt to fcid:0x2003000,fc2 ret:ffffff91\n");
    EXPECT_EQ(texts[7], "101 For replicated bcast pkt to fcid:0x1003000,fc2 ret:ffffff8f\n");
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(BroadcastTest, a_replica_that_cannot_be_copied_is_left_out_and_the_others_go)
{
    add_host(0x300001, own_vsan);
    add_host(0x300002, own_vsan);
    heap().fail_nth(Kind::skb, 2); // the first is the kept copy
    send_broadcast();
    ASSERT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(hex(header(1).d_id.str), "00 30 00 01");
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(BroadcastTest, a_broadcast_that_cannot_be_copied_is_sent_once)
{
    add_host(0x300001, own_vsan);
    heap().fail_nth(Kind::skb, 1);
    send_broadcast();
    EXPECT_EQ(platform().sends.size(), 1u);
    const Lines texts = messages();
    ASSERT_EQ(texts.size(), 8u);
    EXPECT_EQ(texts[3], "101 ipfc_dev_hard_start_xmit: new exchange for arp packet\n");
    EXPECT_EQ(texts[4],
              "100 ipfc_dev_hard_start_xmit: failed to create copy of bcast skb for unicast\n");
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(BroadcastTest, hosts_are_told_apart_by_their_whole_vsan)
{
    // 10 in the wrong byte order, and 10 in the low 16 bits alone.
    add_host(0x300001, 0x0a000000);
    add_host(0x300002, 0x0001000a);
    send_broadcast();
    EXPECT_EQ(platform().sends.size(), 1u);
}

TEST_F(BroadcastTest, a_unicast_is_not_replicated)
{
    add_host(0x300001, own_vsan);
    add_peer();
    send_unicast();
    EXPECT_EQ(platform().sends.size(), 1u);
}

TEST_F(BroadcastTest, the_copies_for_replication_do_not_move_the_copy_counters)
{
    add_host(0x300001, own_vsan);
    send_broadcast();
    EXPECT_EQ(ipfc_skbs_copied, 0u);
    EXPECT_EQ(ipfc_bytes_copied, 0u);
}

TEST_F(BroadcastTest, a_te_only_broadcast_is_marked_in_its_replicas_too)
{
    add_host(0x300001, own_vsan);
    send(to_all, ip, "46 00 00 18 00 00 00 00 01 2e 00 00 0a 00 00 01 e0 00 00 0e 94 04 00 00");
    EXPECT_EQ(header(0).flags, 0x1000);
    EXPECT_EQ(header(1).flags, 0x1000);
    const Lines texts = messages();
    EXPECT_EQ(texts[3], "101 ipfc_dev_hard_start_xmit: new exchange for arp packet\n");
    EXPECT_EQ(texts[4], "101 setting TE_ONLY");
}

} // namespace
