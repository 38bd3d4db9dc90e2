// SPDX-License-Identifier: GPL-2.0-only
// The port-name mapping table: nodes that go, one at a time and all at once.
#include "support/interface_test.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

// Three that share bucket 3.
const wwn_t first_port = wwn("10:00:12:00:00:00:00:00");
const wwn_t second_port = wwn("10:00:00:00:00:00:12:00");
const wwn_t third_port = wwn("10:00:00:12:00:00:00:00");

class MappingRemovalTest : public InterfaceTest {
protected:
    void add_three()
    {
        add(first_port, fcid(1));
        add(second_port, fcid(2));
        add(third_port, fcid(3));
    }
    bool kernel_delete(wwn_t port)
    {
        const TableLock lock(priv);
        return kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, port, own_vsan);
    }
    void clear()
    {
        const TableLock lock(priv);
        clear_hash(priv->kwwpn_hash_table, own_vsan, priv);
    }
};

TEST_F(MappingRemovalTest, deleting_an_absent_port_is_false_and_leaves_the_lock_held)
{
    add_peer();
    delete_from_user = 1;
    write_lock_bh(&priv->hash_lock);
    EXPECT_FALSE(delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, wwn("20:00:00:5e:bf:0a:0b:01"),
                                           own_vsan));
    EXPECT_EQ(locks_held(), 1);
    write_unlock_bh(&priv->hash_lock);
    EXPECT_EQ(delete_from_user, 1u);
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingRemovalTest, a_delete_for_the_user_lets_the_lock_go_before_the_logos)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    delete_from_user = 1;
    platform().on_logo = [&](const SentLogo& logo) {
        EXPECT_EQ(logo.locks, 0);
        EXPECT_EQ(delete_from_user, 0u);
        EXPECT_EQ(num_mapping_obj, 0);
        EXPECT_EQ(table_of(priv), Lines{});
    };
    write_lock_bh(&priv->hash_lock);
    EXPECT_TRUE(delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan));
    EXPECT_EQ(locks_held(), 0) << "the lock is not taken again";
    EXPECT_EQ(delete_from_user, 0u);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0c to 141516",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xd0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0d to 141516"}));
}

TEST_F(MappingRemovalTest, a_delete_for_nobody_keeps_the_lock_over_the_logos)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    write_lock_bh(&priv->hash_lock);
    EXPECT_TRUE(delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan));
    EXPECT_EQ(locks_held(), 1);
    write_unlock_bh(&priv->hash_lock);
    ASSERT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(platform().logos[0].locks, 1);
    // What the order is known for, and the stack complains about.
    EXPECT_EQ(only_fault(), "kfc2_send_logo under a lock with interrupts on");
}

TEST_F(MappingRemovalTest, the_interface_whose_lock_is_let_go_is_the_one_of_the_number)
{
    net_device* const other = create_interface(20, wwn("20:00:00:5e:bf:01:02:04"), fcid(0x200001));
    add_peer();
    name_lock(&priv->hash_lock, "hash_lock");
    delete_from_user = 1;
    write_lock_bh(&ipfc_priv(other)->hash_lock);
    // The table of one interface, the number of the other.
    EXPECT_TRUE(delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, 20));
    EXPECT_EQ(locks_held(), 0);
}

struct Unlinking {
    const wwn_t* port;
    const char* what;
    Lines left;
};

TEST_F(MappingRemovalTest, a_node_goes_from_the_head_the_middle_and_the_tail_of_its_chain)
{
    const Lines all{"3 10:00:12:00:00:00:00:00 > 000001", "3 10:00:00:00:00:00:12:00 > 000002",
                    "3 10:00:00:12:00:00:00:00 > 000003"};
    const Unlinking rows[] = {
        {&first_port, "head", {all[1], all[2]}},
        {&second_port, "middle", {all[0], all[2]}},
        {&third_port, "tail", {all[0], all[1]}},
    };
    for (const Unlinking& row : rows) {
        add_three();
        EXPECT_TRUE(kernel_delete(*row.port)) << row.what;
        EXPECT_EQ(table_of(priv), row.left) << row.what;
        EXPECT_EQ(num_mapping_obj, 2) << row.what;
        drop_mappings(priv);

        add_three();
        delete_from_user = 1;
        write_lock_bh(&priv->hash_lock);
        EXPECT_TRUE(delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, *row.port, own_vsan));
        EXPECT_EQ(table_of(priv), row.left) << row.what;
        drop_mappings(priv);
    }
}

TEST_F(MappingRemovalTest, a_delete_for_a_peer_that_logged_out_sends_no_logo_and_keeps_the_lock)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_TRUE(kernel_delete(peer_port));
    EXPECT_EQ(journal().texts({Source::lock}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n"}));
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(MappingRemovalTest, a_delete_for_an_absent_peer_is_false_and_silent)
{
    add_peer();
    EXPECT_FALSE(kernel_delete(wwn("11:00:00:5e:bf:0a:0b:01")));
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingRemovalTest, one_exchange_dropped_for_a_peer_stays_counted)
{
    const fcid_t sources[] = {fcid(1), fcid(2), fcid(3)};
    for (int gone = 0; gone < 3; ++gone) {
        kpn_to_fcid_t* const peer = add_peer();
        for (int i = 0; i < 3; ++i)
            add_exchange(priv, peer, sources[i], i);
        const std::int32_t before = num_exch_obj;
        {
            const TableLock lock(priv);
            delete_exch_status_for_fcid(priv->kwwpn_hash_table, peer_port, sources[gone]);
        }
        std::string left = "15 10:00:00:5e:bf:0a:0b:01 > 141516";
        for (int i = 0; i < 3; ++i)
            left += i == gone ? "" : strf(" 00000%d=%d", i + 1, i);
        EXPECT_EQ(table_of(priv), Lines{left});
        EXPECT_EQ(num_exch_obj, before) << "one higher than the number of records";
        drop_mappings(priv);
    }
    EXPECT_EQ(num_exch_obj, 3);
    EXPECT_EQ(effects(), Lines{}) << "nobody is told";
}

TEST_F(MappingRemovalTest, dropping_an_exchange_that_is_not_there_changes_nothing)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    add(first_port, fcid(1)); // without exchanges
    const Lines before = table_of(priv);
    const TableLock lock(priv);
    delete_exch_status_for_fcid(priv->kwwpn_hash_table, second_port, own_fcid);
    delete_exch_status_for_fcid(priv->kwwpn_hash_table, first_port, own_fcid);
    delete_exch_status_for_fcid(priv->kwwpn_hash_table, peer_port, fcid(0x0a0b0d));
    delete_exch_status_for_fcid(priv->kwwpn_hash_table, wwn("20:00:00:5e:bf:0a:0b:01"), own_fcid);
    EXPECT_EQ(table_of(priv), before);
}

TEST_F(MappingRemovalTest, only_the_first_exchange_of_the_source_is_dropped)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, own_fcid, 8);
    const TableLock lock(priv);
    delete_exch_status_for_fcid(priv->kwwpn_hash_table, peer_port, own_fcid);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=8"}));
}

TEST_F(MappingRemovalTest, clearing_logs_every_exchange_out_in_bucket_and_chain_order)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    add_three();
    add_exchange(priv, priv->kwwpn_hash_table[3]->next, own_fcid, 8);
    add_exchange(priv, priv->kwwpn_hash_table[3]->next, fcid(0x0a0b0d), 9);
    name_lock(&priv->hash_lock, "hash_lock");
    platform().on_logo = [](const SentLogo& logo) { EXPECT_EQ(logo.locks, 0); };
    clear();
    EXPECT_EQ(table_of(priv), Lines{});
    for (const kpn_to_fcid_t* const head : priv->kwwpn_hash_table)
        EXPECT_EQ(head, nullptr);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x1000000 \n",
                     "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x2000000 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x2000000 \n",
                     "kfc2_send_logo vsan 10 0a0b0c to 000002",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xd0b0a00 d_id 0x2000000 \n",
                     "kfc2_send_logo vsan 10 0a0b0d to 000002",
                     "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x3000000 \n",
                     "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0c to 141516"}));
}

TEST_F(MappingRemovalTest, clearing_lets_the_lock_go_once_for_each_node)
{
    add_peer();
    add(first_port, fcid(1));
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    clear();
    const Lines locks = journal().texts({Source::lock});
    EXPECT_EQ(locks, (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                            "write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                            "write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
}

TEST_F(MappingRemovalTest, clearing_an_empty_table_does_nothing)
{
    clear();
    EXPECT_EQ(effects(), Lines{});
}

// Another writer takes nodes away while the lock is free.
TEST_F(MappingRemovalTest, clearing_goes_on_when_the_next_node_goes_meanwhile)
{
    for (const wwn_t* const gone : {&first_port, &second_port, &third_port}) {
        add_three();
        for (kpn_to_fcid_t* node = priv->kwwpn_hash_table[3]; node != nullptr; node = node->next)
            add_exchange(priv, node, own_fcid, 7);
        bool done = false;
        platform().on_logo = [&](const SentLogo&) {
            if (!std::exchange(done, true)) {
                EXPECT_TRUE(kernel_delete(*gone));
            }
        };
        clear();
        EXPECT_EQ(table_of(priv), Lines{});
        EXPECT_EQ(num_mapping_obj, 0);
        EXPECT_EQ(num_exch_obj, 0);
    }
}

TEST_F(MappingRemovalTest, clearing_goes_on_when_the_whole_chain_goes_meanwhile)
{
    add_three();
    add_exchange(priv, priv->kwwpn_hash_table[3], own_fcid, 7);
    add_exchange(priv, add_peer(), own_fcid, 8);
    bool done = false;
    platform().on_logo = [&](const SentLogo&) {
        if (std::exchange(done, true))
            return;
        for (const wwn_t port : {third_port, first_port, second_port})
            EXPECT_TRUE(kernel_delete(port));
    };
    clear();
    EXPECT_EQ(platform().logos.size(), 2u);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(MappingRemovalTest, what_is_added_while_clearing_is_freed_too)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    platform().on_logo = [&](const SentLogo&) {
        add_exchange(priv, add(first_port, fcid(1)), own_fcid, 8); // a bucket that is done
        add_exchange(priv, peer, own_fcid, 9);                     // the node that is under way
        add(wwn("10:00:0f:00:00:00:00:00"), fcid(2));              // behind it
    };
    clear();
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(platform().logos.size(), 1u);
}

// Deleting the interface from within, as another process may while the lock is free.
TEST_F(MappingRemovalTest, clearing_survives_the_deletion_of_the_interface_meanwhile)
{
    add_three();
    for (kpn_to_fcid_t* node = priv->kwwpn_hash_table[3]; node != nullptr; node = node->next)
        add_exchange(priv, node, own_fcid, 7);
    bool done = false;
    platform().on_logo = [&](const SentLogo&) {
        if (!std::exchange(done, true)) {
            EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0);
        }
    };
    clear();
    EXPECT_EQ(vsan_interfaces[own_vsan], nullptr);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(platform().logos.size(), 3u);
}

} // namespace
