// SPDX-License-Identifier: GPL-2.0-only
// The resolver's answers and news: mappings added, updated, deleted, names not found.
#include "support/control.h"

namespace {

using twin::Kind;
using Marks = std::vector<int>;

// What adding PEER_NAME at PEER_FCID to VSAN 10 says.
const Texts added = {"101 VSAN 10, mapping added for WW_PN = 10:00:aa:bb:cc:dd:ee:01",
                     "101  FCID = 0x0d0e0f - REQUESTED to NS\n"};

Texts added_and(const Texts& more)
{
    Texts all = added;
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class AnswerTest : public ResolutionTest {};

TEST_F(AnswerTest, every_answer_refuses_4096_and_minus_1_and_touches_nothing)
{
    EXPECT_EQ(request(4096), 0);
    EXPECT_EQ(request(-1), 0);
    for (const vsan_id_t vsan : {4096, -1}) {
        forget_so_far();
        EXPECT_EQ(user_add_pn_to_fcid_mapping(vsan, PEER_NAME, PEER_FCID), -22);
        EXPECT_EQ(take_messages(), Texts{"100 VSAN number not valid\n"});
        EXPECT_EQ(user_pn_not_found(vsan, PEER_NAME), -22);
        EXPECT_EQ(take_messages(), Texts{"100 VSAN number not valid\n"});
        EXPECT_EQ(user_update_pn_to_fcid_mapping(vsan, PEER_NAME, PEER_FCID), -22);
        EXPECT_EQ(take_messages(), Texts{"100 VSAN number not valid\n"});
        EXPECT_EQ(user_delete_pn_to_fcid_mapping(vsan, PEER_NAME), -22);
        EXPECT_EQ(take_messages(), Texts{"100 VSAN number not valid\n"});
    }
    EXPECT_EQ(skb_list_lenght, 2);
    EXPECT_EQ(delete_from_user, 0u);
    EXPECT_EQ(num_mapping_obj, 0);
}

// ---- add ----

TEST_F(AnswerTest, an_add_answer_stores_the_mapping_before_it_sends_the_packet)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    forget_so_far();
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    Texts first = happened_with_locks();
    ASSERT_GE(first.size(), 7u);
    // The parked packets' own lock has no name.
    EXPECT_TRUE(first[4].starts_with("spin_lock_irqsave "));
    EXPECT_TRUE(first[5].starts_with("spin_unlock_irqrestore "));
    first.erase(first.begin() + 4, first.begin() + 6);
    first.resize(5);
    EXPECT_EQ(first, (Texts{"write_lock_bh hash_lock", "write_unlock_bh hash_lock", added[0],
                            added[1], "dev_queue_xmit vsan10"}));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(sent_marks(), Marks{1});
}

TEST_F(AnswerTest, of_two_packets_for_one_port_each_add_answer_sends_the_older_one)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    park(dev, 2);
    forget_so_far();
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(sent_marks(), Marks{1});
    EXPECT_EQ(skb_list_lenght, 1);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(sent_marks(), (Marks{1, 2}));
    EXPECT_EQ(skb_list_lenght, 0);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(live_packets(), 0u);
}

TEST_F(AnswerTest, an_answer_picks_the_packet_by_vsan_and_all_8_bytes_of_the_name)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    net_device* const other = make_interface(11, OWN_FCID);
    const wwn_t same_low_bytes = {.str = {0x20, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01}};
    park(other, 1, PEER_NAME);
    park(dev, 2, OTHER_NAME);
    park(dev, 3, same_low_bytes);
    park(dev, 4, PEER_NAME);
    forget_so_far();
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(sent_marks(), Marks{4});
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), -1);
    EXPECT_EQ(user_pn_not_found(10, same_low_bytes), 0);
    EXPECT_EQ(user_pn_not_found(11, OTHER_NAME), -1);
    EXPECT_EQ(user_pn_not_found(10, OTHER_NAME), 0);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(11, PEER_NAME, NEW_FCID), 0);
    EXPECT_EQ(sent_marks(), (Marks{4, 1}));
    EXPECT_EQ(platform().sends[1].header.d_id.num, NEW_FCID.num);
    EXPECT_EQ(platform().sends[1].header.vsan, 11);
}

TEST_F(AnswerTest, an_add_answer_without_a_packet_stores_the_mapping_and_returns_minus_1)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(happened(), added_and({"100 Add mapping found no skb\n"}));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(num_mapping_obj, 1);
}

TEST_F(AnswerTest, an_add_answer_for_a_vsan_without_interface_frees_the_packet_and_returns_0)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    forget_so_far();
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(happened(), Texts{"100 VSAN interface 10 doesn't exist\n"});
    EXPECT_EQ(live_packets(), 0u);
    EXPECT_EQ(skb_list_lenght, 0);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_TRUE(platform().sends.empty());
}

TEST_F(AnswerTest, an_add_answer_without_interface_and_packet_reports_both)
{
    EXPECT_EQ(user_add_pn_to_fcid_mapping(4095, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(happened(),
              (Texts{"100 VSAN interface 4095 doesn't exist\n", "100 Add mapping found no skb\n"}));
}

TEST_F(AnswerTest, an_add_answer_without_memory_counts_a_node_and_leaves_the_packet_parked)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    forget_so_far();
    twin::heap().fail_nth(Kind::object, 1);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -12);
    twin::heap().never_fail();
    EXPECT_EQ(happened(), Texts{"100 Can not allocate new mapping obj - No memory\n"});
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(twin::heap().live(Kind::object), 0u);
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
    EXPECT_EQ(skb_list_lenght, 1);
}

TEST_F(AnswerTest, an_add_answer_asks_for_memory_that_may_be_waited_for)
{
    make_interface(10, OWN_FCID);
    const std::size_t before = twin::heap().served_atomically().size();
    twin::bh_disable(); // where a wait would be noticed
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    twin::bh_enable();
    EXPECT_EQ(twin::heap().served_atomically().size(), before + 1);
}

TEST_F(AnswerTest, an_add_answer_moves_a_known_port_and_logs_out_its_old_fcid)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, NEW_FCID, /*open=*/true);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(happened(),
              (Texts{
                  "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x13121100 \n",
                  "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x13121100 \n",
                  "kfc2_send_logo vsan 10 0a0b0c to 111213",
                  added[0],
                  added[1],
                  "100 Add mapping found no skb\n",
              }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(platform().logos[0].locks, 0);
}

TEST_F(AnswerTest, a_packet_that_was_released_to_an_interface_that_is_down_is_freed)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    twin::dev_close(dev);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(live_packets(), 0u);
    EXPECT_TRUE(platform().sends.empty());
}

TEST_F(AnswerTest, a_packet_outlives_its_interface_and_harms_the_next_one_of_the_vsan_nothing)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    net_device* const next = make_interface(10, OWN_FCID);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(live_packets(), 0u);
    EXPECT_TRUE(platform().sends.empty()); // its device is down for good
    EXPECT_EQ(mapped_to(next, PEER_NAME), PEER_FCID.num);
}

// ---- not found ----

TEST_F(AnswerTest, a_not_found_answer_drops_the_oldest_packet_and_counts_each)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    sk_buff* const older = park(dev, 1);
    sk_buff* const newer = park(dev, 2);
    forget_so_far();
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), 0);
    EXPECT_FALSE(twin::skb_alive(older));
    EXPECT_TRUE(twin::skb_alive(newer));
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 1u);
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), 0);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 2u);
    EXPECT_TRUE(happened().empty());
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), -1);
    EXPECT_EQ(ipfc_priv(dev)->stats.tx_dropped, 2u);
    EXPECT_EQ(happened(), Texts{"100 VSAN 10 Mapping not found with no requester skb\n"});
    EXPECT_EQ(skb_list_lenght, 0);
}

TEST_F(AnswerTest, a_not_found_answer_leaves_requests_and_mappings_alone)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    park(dev, 1);
    put_mapping(dev, PEER_NAME, PEER_FCID);
    EXPECT_EQ(user_pn_not_found(10, PEER_NAME), 0);
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(opened->poll_once(), 0x41u);
}

TEST_F(AnswerTest, a_not_found_answer_drops_a_packet_whose_interface_has_gone)
{
    EXPECT_EQ(request(77), 0);
    EXPECT_EQ(user_pn_not_found(77, PEER_NAME), 0);
    EXPECT_EQ(live_packets(), 0u);
    EXPECT_EQ(twin::heap().live(Kind::kmalloc), 1u); // the request
}

// ---- update ----

TEST_F(AnswerTest, an_update_moves_a_known_port_and_speaks_under_the_lock)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, NEW_FCID, /*open=*/true);
    park(dev, 1, OTHER_NAME);
    forget_so_far();
    EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
                  "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x13121100 \n",
                  "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x13121100 \n",
                  "kfc2_send_logo vsan 10 0a0b0c to 111213",
                  "write_lock_bh hash_lock",
                  "101 VSAN 10, mapping update for WW_PN = 10:00:aa:bb:cc:dd:ee:01",
                  "101  FCID = 0x0d0e0f -  NAME SERVER\n",
                  "write_unlock_bh hash_lock",
              }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(skb_list_lenght, 1);
}

TEST_F(AnswerTest, an_update_of_an_unknown_port_says_the_same_returns_0_and_stores_nothing)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    sk_buff* const skb = park(dev, 1);
    forget_so_far();
    EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{
                  "write_lock_bh hash_lock",
                  "101 VSAN 10, mapping update for WW_PN = 10:00:aa:bb:cc:dd:ee:01",
                  "101  FCID = 0x0d0e0f -  NAME SERVER\n",
                  "write_unlock_bh hash_lock",
              }));
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
    EXPECT_TRUE(twin::skb_alive(skb));
}

TEST_F(AnswerTest, update_and_delete_of_a_missing_interface_give_minus_6)
{
    EXPECT_EQ(user_update_pn_to_fcid_mapping(4095, PEER_NAME, PEER_FCID), -6);
    EXPECT_EQ(take_messages(), Texts{"100 VSAN interface 4095 doesn't exist\n"});
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(4095, PEER_NAME), -6);
    EXPECT_EQ(take_messages(), Texts{"100 VSAN interface 4095 doesn't exist\n"});
    EXPECT_EQ(delete_from_user, 0u);
}

// ---- delete ----

TEST_F(AnswerTest, a_delete_sends_its_logos_without_the_lock_and_reports_delflag_0)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
                  "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0xf0e0d00 \n",
                  "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0xf0e0d00 \n",
                  "kfc2_send_logo vsan 10 0a0b0c to 0d0e0f",
                  "101 VSAN 10, mapping removed for WW_PN = 10:00:aa:bb:cc:dd:ee:01 - NAME SERVER "
                  "delflag 0\n",
              }));
    ASSERT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(platform().logos[0].locks, 0);
    EXPECT_EQ(delete_from_user, 0u);
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(AnswerTest, the_lock_is_free_after_a_delete_that_found_the_port)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    platform().on_logo = [dev](const SentLogo&) {
        EXPECT_TRUE(twin::context().held.empty());
        EXPECT_EQ(twin::context().bh_depth, 0);
        EXPECT_EQ(delete_from_user, 0u);
        EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
    };
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_EQ(twin::locks_held(), 0);
}

TEST_F(AnswerTest, a_delete_that_finds_nothing_is_silent_and_leaves_delete_from_user_set)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{"write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
    EXPECT_EQ(delete_from_user, 1u);
    EXPECT_EQ(twin::locks_held(), 0);
    put_mapping(dev, PEER_NAME, PEER_FCID);
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_EQ(delete_from_user, 0u);
}

TEST_F(AnswerTest, a_delete_leaves_parked_packets_alone)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    sk_buff* const skb = park(dev, 1);
    put_mapping(dev, PEER_NAME, PEER_FCID);
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_TRUE(twin::skb_alive(skb));
    EXPECT_EQ(skb_list_lenght, 1);
}

} // namespace
