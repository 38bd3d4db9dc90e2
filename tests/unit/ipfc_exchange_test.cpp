// SPDX-License-Identifier: GPL-2.0-only
// Exchange status lists and the LOGO that ends an exchange.
#include "support/interface_test.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

class ExchangeTest : public InterfaceTest {
protected:
    void SetUp() override
    {
        InterfaceTest::SetUp();
        if (HasFatalFailure())
            return;
        peer = add_peer();
    }
    void add_to_peer(std::uint32_t source, std::int32_t handle)
    {
        add_exchange(priv, peer, fcid(source), handle);
    }
    std::int32_t remove(std::uint32_t source, logo_req_t logo)
    {
        const TableLock lock(priv);
        return del_fc2_exch_status(&peer->fc2_exch, fcid(source), own_vsan, peer_fcid, logo, priv);
    }
    std::string list() { return table_of(priv).at(0).substr(26); }

    kpn_to_fcid_t* peer = nullptr;
};

TEST_F(ExchangeTest, the_first_record_becomes_the_head_and_later_ones_join_behind_the_last)
{
    fc2_exch_status_t records[3] = {};
    fc2_exch_status_t* head = nullptr;
    for (fc2_exch_status_t& record : records)
        EXPECT_EQ(add_fc2_exch_status(&head, &record), 0);
    EXPECT_EQ(head, &records[0]);
    EXPECT_EQ(records[0].next, &records[1]);
    EXPECT_EQ(records[1].next, &records[2]);
    EXPECT_EQ(records[2].next, nullptr);
}

TEST_F(ExchangeTest, adding_leaves_the_new_records_own_successor_alone)
{
    fc2_exch_status_t tail{};
    fc2_exch_status_t record{.source_fcid = {}, .fc2_handle = 0, .next = &tail};
    fc2_exch_status_t* head = nullptr;
    EXPECT_EQ(add_fc2_exch_status(&head, &record), 0);
    EXPECT_EQ(record.next, &tail);
}

TEST_F(ExchangeTest, a_record_is_found_by_all_four_bytes_of_its_source)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    EXPECT_EQ(get_fc2_exch_status(peer->fc2_exch, fcid(1))->fc2_handle, 11);
    EXPECT_EQ(get_fc2_exch_status(peer->fc2_exch, fcid(2))->fc2_handle, 22);
    EXPECT_EQ(get_fc2_exch_status(peer->fc2_exch, fcid(3)), nullptr);
    EXPECT_EQ(get_fc2_exch_status(nullptr, fcid(1)), nullptr);
    fcid_t odd = fcid(1);
    odd.str[0] = 1;
    EXPECT_EQ(get_fc2_exch_status(peer->fc2_exch, odd), nullptr);
}

TEST_F(ExchangeTest, of_two_records_of_one_source_get_and_delete_take_the_first)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    add_to_peer(1, 33);
    EXPECT_EQ(get_fc2_exch_status(peer->fc2_exch, fcid(1))->fc2_handle, 11);
    EXPECT_EQ(remove(1, DONT_SEND_LOGO), 0);
    EXPECT_EQ(list(), " > 141516 000002=22 000001=33");
    EXPECT_EQ(remove(1, SEND_LOGO), 0);
    EXPECT_EQ(list(), " > 141516 000002=22");
}

TEST_F(ExchangeTest, deleting_from_an_empty_list_returns_0_and_changes_nothing)
{
    EXPECT_EQ(remove(1, SEND_LOGO), 0);
    EXPECT_EQ(remove(1, DONT_SEND_LOGO), 0);
    EXPECT_EQ(list(), " > 141516");
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(ExchangeTest, deleting_an_absent_source_returns_0_and_changes_nothing)
{
    add_to_peer(1, 11);
    EXPECT_EQ(remove(2, SEND_LOGO), 0);
    EXPECT_EQ(list(), " > 141516 000001=11");
    EXPECT_EQ(num_exch_obj, 1);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(ExchangeTest, deleting_without_logo_sends_nothing_and_never_lets_the_lock_go)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_EQ(remove(2, DONT_SEND_LOGO), 0);
    EXPECT_EQ(remove(1, static_cast<logo_req_t>(2)), 0) << "anything but SEND_LOGO";
    EXPECT_EQ(journal().texts(), Lines{});
    EXPECT_EQ(journal().texts({Source::lock}).size(), 4u);
    EXPECT_EQ(list(), " > 141516");
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(ExchangeTest, deleting_with_logo_lets_the_lock_go_around_it)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    platform().on_logo = [&](const SentLogo&) {
        EXPECT_EQ(list(), " > 141516 000002=22") << "already out of the list";
        EXPECT_EQ(num_exch_obj, 2) << "freed only afterwards";
    };
    EXPECT_EQ(remove(1, SEND_LOGO), 0);
    EXPECT_EQ(num_exch_obj, 1);
    EXPECT_EQ(journal().texts({Source::lock, Source::platform}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                     "kfc2_send_logo vsan 10 000001 to 141516", "write_lock_bh hash_lock",
                     "write_unlock_bh hash_lock"}));
    EXPECT_EQ(messages(),
              (Lines{"101 fc2 send logo for VSAN Interface 10 s_id 0x1000000 d_id 0x16151400 \n"}));
}

// The node whose list it was, and with it every other record, is gone when the lock is back.
TEST_F(ExchangeTest, deleting_with_logo_survives_the_end_of_the_mapping_meanwhile)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    platform().on_logo = [&](const SentLogo&) {
        const TableLock lock(priv);
        EXPECT_TRUE(kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan));
    };
    EXPECT_EQ(remove(1, SEND_LOGO), 0);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(num_mapping_obj, 0);
}

TEST_F(ExchangeTest, clearing_three_records_sends_three_logos_to_one_destination)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    add_to_peer(3, 33);
    num_exch_obj += 5;
    fc2_exch_status_t* head = std::exchange(peer->fc2_exch, nullptr);
    fc2_exch_status_t* const first = head;
    clear_fc2_exch_status(&head, own_vsan, peer_fcid);
    EXPECT_EQ(head, first) << "the head is the caller's";
    EXPECT_EQ(num_exch_obj, 5);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0x1000000 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 000001 to 141516",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0x2000000 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 000002 to 141516",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0x3000000 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 000003 to 141516"}));
}

TEST_F(ExchangeTest, clearing_an_empty_list_still_says_so)
{
    fc2_exch_status_t* head = nullptr;
    clear_fc2_exch_status(&head, own_vsan, peer_fcid);
    kernel_clear_fc2_exch_status(&head, 4095, fcid(0));
    EXPECT_EQ(effects(), (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                                "101 clear fc2 exch-status for VSAN Intf 4095 dst fcid 0x0 \n"}));
}

TEST_F(ExchangeTest, clearing_for_a_peer_that_logged_out_frees_all_and_tells_nobody)
{
    add_to_peer(1, 11);
    add_to_peer(2, 22);
    fc2_exch_status_t* head = std::exchange(peer->fc2_exch, nullptr);
    kernel_clear_fc2_exch_status(&head, own_vsan, peer_fcid);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n"}));
}

TEST_F(ExchangeTest, a_logo_carries_vsan_addresses_and_the_four_constants)
{
    EXPECT_EQ(ipfc_kfc2_send_logo(0x1234A, fcid(0x010203), fcid(0x040506)), 0);
    ASSERT_EQ(platform().logos.size(), 1u);
    const SentLogo& logo = platform().logos[0];
    EXPECT_EQ(logo.vsan, 0x234A) << "truncated to 16 bits";
    EXPECT_EQ(hex(logo.s_id.str), "00 01 02 03");
    EXPECT_EQ(hex(logo.d_id.str), "00 04 05 06");
    EXPECT_EQ(logo.arg1, 3);
    EXPECT_EQ(logo.arg2, 20);
    EXPECT_EQ(logo.arg3, 0);
    EXPECT_EQ(logo.arg4, 0xFFFFFFFFu);
    EXPECT_EQ(messages(), (Lines{"101 fc2 send logo for VSAN Interface 74570 s_id 0x3020100 "
                                 "d_id 0x6050400 \n"}));
}

} // namespace
