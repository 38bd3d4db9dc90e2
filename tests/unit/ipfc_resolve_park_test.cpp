// SPDX-License-Identifier: GPL-2.0-only
// Packets for unknown ports: how they are parked, how many, and what happens without room.
#include "support/control.h"

namespace {

using twin::Bytes;
using twin::Kind;

class ParkTest : public ResolutionTest {};

TEST_F(ParkTest, a_request_is_queued_the_packet_parked_and_a_reader_woken)
{
    EXPECT_EQ(request(10), 0);
    EXPECT_EQ(skb_list_lenght, 1);
    EXPECT_EQ(live_packets(), 1u);
    EXPECT_EQ(twin::wake_ups().calls, 1u);
    EXPECT_EQ(happened(), (Texts{"wake_up_interruptible",
                                 "101 VSAN 10 mapping requested to the user process\n"}));
    EXPECT_EQ(opened->poll_once(), 0x41u);
}

TEST_F(ParkTest, the_request_goes_before_the_packet_and_the_locks_are_never_held_together)
{
    twin::journal().clear();
    EXPECT_EQ(opened->poll_once(), 0u);
    const Texts poll = happened_with_locks(); // of the requests' lock
    ASSERT_EQ(poll.size(), 2u);
    twin::journal().clear();
    EXPECT_EQ(request(10), 0);
    const Texts all = happened_with_locks();
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(all[0], poll[0]);
    EXPECT_EQ(all[1], poll[1]);
    EXPECT_TRUE(all[2].starts_with("spin_lock_irqsave "));
    EXPECT_NE(all[2], poll[0]);
    EXPECT_EQ(all[3], "spin_unlock_irqrestore " + all[2].substr(18));
    EXPECT_EQ(all[4], "wake_up_interruptible");
    EXPECT_EQ(all[5], "101 VSAN 10 mapping requested to the user process\n");
}

TEST_F(ParkTest, with_10_packets_parked_the_eleventh_is_refused_and_wakes_nobody)
{
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(request(i, i % 2 == 0 ? PEER_NAME : OTHER_NAME), 0);
    const std::size_t live = twin::heap().live();
    const unsigned wakes = twin::wake_ups().calls;
    forget_so_far();
    sk_buff* const skb = twin::make_skb(Bytes(40));
    const unsigned attempts = twin::heap().attempts();
    EXPECT_EQ(ipfc_chr_request_mapping(99, PEER_NAME, skb), -11);
    EXPECT_EQ(twin::heap().attempts(), attempts);
    EXPECT_TRUE(twin::skb_alive(skb));
    kfree_skb(skb);
    EXPECT_EQ(skb_list_lenght, 10);
    EXPECT_EQ(twin::heap().live(), live);
    EXPECT_EQ(twin::wake_ups().calls, wakes);
    EXPECT_TRUE(twin::journal().events().empty());
}

TEST_F(ParkTest, reading_requests_gives_no_place_back)
{
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(request(10), 0);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(read_request(), 0);
    EXPECT_EQ(opened->poll_once(), 0u);
    EXPECT_EQ(request(10), -11);
}

TEST_F(ParkTest, an_answer_gives_one_place_back)
{
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(request(10), 0);
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), 0);
    EXPECT_EQ(skb_list_lenght, 9);
    EXPECT_EQ(request(10), 0);
    EXPECT_EQ(request(10), -11);
}

TEST_F(ParkTest, every_parked_packet_brings_its_own_request)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(request(10), 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(read_request(), 0);
    EXPECT_EQ(opened->poll_once(), 0u);
}

TEST_F(ParkTest, without_memory_for_either_record_the_result_is_minus_12_and_nothing_is_queued)
{
    for (const unsigned nth : {1u, 2u}) {
        SCOPED_TRACE(nth);
        sk_buff* const skb = twin::make_skb(Bytes(40));
        twin::heap().fail_nth(Kind::kmalloc, nth);
        EXPECT_EQ(ipfc_chr_request_mapping(10, PEER_NAME, skb), -12);
        twin::heap().never_fail();
        EXPECT_EQ(happened(), Texts{"100 Cannot allocate mapping request struct - No memory\n"});
        EXPECT_EQ(twin::log().raw(),
                  Texts{"<7><{ipfc}>Cannot allocate mapping request struct - No memory\n"});
        EXPECT_TRUE(twin::skb_alive(skb));
        EXPECT_EQ(twin::heap().live(Kind::kmalloc), 0u);
        EXPECT_EQ(skb_list_lenght, 0);
        EXPECT_EQ(opened->poll_once(), 0u);
        EXPECT_EQ(twin::wake_ups().calls, 0u);
        kfree_skb(skb);
        forget_so_far();
    }
}

TEST_F(ParkTest, both_records_are_allocated_atomically)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    EXPECT_TRUE(twin::heap().served_atomically().empty());
}

TEST_F(ParkTest, transmission_parks_the_packet_in_the_layout_that_it_expects)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    sk_buff* const skb = park(dev, 0x2A);
    EXPECT_EQ(twin::skb_bytes(skb), output_packet(0x2A));
    EXPECT_EQ(skb->dev, dev);
    EXPECT_TRUE(platform().sends.empty());
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 0u);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_packets, 0u);
    EXPECT_EQ(ipfc_skbs_copied, 0u);
}

TEST_F(ParkTest, a_parked_packet_leaves_whole_once_it_is_answered)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 0x2A);
    forget_so_far();
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    ASSERT_EQ(platform().sends.size(), 1u);
    const Bytes sent = {
        0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01, // destination
        0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, // source
        0xAA, 0xAA, 0x03, 0x00, 0x00, 0x00, 0x08, 0x00, // LLC/SNAP
        0x45, 0,    0,    20,   0,    0,    0,    0,    64, 17, 0, 0, 10, 1, 2, 3, 10, 1, 2, 0x2A,
    };
    EXPECT_EQ(platform().sends[0].bytes, sent);
    EXPECT_EQ(platform().sends[0].header.vsan, 10);
    EXPECT_EQ(platform().sends[0].header.s_id.num, OWN_FCID.num);
    EXPECT_EQ(platform().sends[0].header.d_id.num, PEER_FCID.num);
    EXPECT_EQ(platform().sends[0].header.length, 44);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_packets, 1u);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_bytes, 44u);
    EXPECT_EQ(live_packets(), 0u);
}

TEST_F(ParkTest, a_packet_that_was_copied_for_room_before_is_parked_in_the_same_layout)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    for (const twin::SkbLayout& layout :
         {twin::SkbLayout{.headroom = 0, .tailroom = 0},
          twin::SkbLayout{.headroom = 64, .tailroom = 16, .linear = 70, .page = 8}}) {
        sk_buff* const skb = twin::make_skb(output_packet(0x2A), layout);
        skb->dev = dev;
        EXPECT_EQ(twin::transmit(skb, dev), 0);
        EXPECT_EQ(skb_list_lenght, 1);
        forget_so_far();
        EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
        ASSERT_EQ(platform().sends.size(), 1u);
        const Bytes whole = output_packet(0x2A);
        EXPECT_EQ(platform().sends[0].bytes, Bytes(whole.begin() + 68, whole.end()));
        EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
        forget_so_far();
    }
}

TEST_F(ParkTest, a_parked_arp_packet_keeps_no_second_copy_and_leaves_in_both_forms)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    Bytes arp = output_packet(1, PEER_NAME, 0x06);
    arp.resize(92 + 40); // an ARP header with 12-byte hardware addresses
    sk_buff* const skb = output_skb(dev, arp);
    EXPECT_EQ(twin::transmit(skb, dev), 0);
    EXPECT_EQ(live_packets(), 1u);
    EXPECT_EQ(twin::skb_bytes(skb), arp);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    ASSERT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(platform().sends[0].bytes.size(), 64u);
    EXPECT_EQ(platform().sends[1].bytes.size(), 52u);
}

TEST_F(ParkTest, the_eleventh_packet_of_transmission_is_dropped_and_counted)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    for (std::uint8_t mark = 0; mark < 10; ++mark)
        park(dev, mark);
    EXPECT_EQ(twin::transmit(output_skb(dev, output_packet(10)), dev), 0);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 1u);
    EXPECT_EQ(live_packets(), 10u);
    EXPECT_EQ(skb_list_lenght, 10);
}

TEST_F(ParkTest, the_limit_holds_module_wide)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    net_device* const other = make_interface(11, OWN_FCID);
    for (std::uint8_t mark = 0; mark < 10; ++mark)
        park(dev, mark);
    EXPECT_EQ(twin::transmit(output_skb(other, output_packet(10)), other), 0);
    EXPECT_EQ(ipfc_priv(other)->stats.tx_dropped, 1u);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 0u);
}

TEST_F(ParkTest, a_packet_stays_parked_when_its_interface_is_deleted)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    sk_buff* const skb = park(dev, 1);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_TRUE(twin::skb_alive(skb));
    EXPECT_EQ(skb_list_lenght, 1);
}

} // namespace
