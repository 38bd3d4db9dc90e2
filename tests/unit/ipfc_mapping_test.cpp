// SPDX-License-Identifier: GPL-2.0-only
// The port-name mapping table: buckets, search, adding and updating.
#include "support/interface_test.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

// Both fall into bucket 3 with each other: bytes 2..7 XOR to 0x12.
const wwn_t first_port = wwn("10:00:12:00:00:00:00:00");
const wwn_t second_port = wwn("10:00:00:00:00:00:12:00");

class MappingTest : public InterfaceTest {
protected:
    // A node as callers of the table hand it over.
    kpn_to_fcid_t* new_node(wwn_t port, fcid_t address)
    {
        kpn_to_fcid_t* const node = alloc_mapping(GFP_KERNEL);
        ++num_mapping_obj;
        node->ww_portname = port;
        node->dest_fcid = address;
        return node;
    }
    void add_through_table(wwn_t port, fcid_t address)
    {
        kpn_to_fcid_t* const node = new_node(port, address);
        const TableLock lock(priv);
        add_pn_to_fcid_mapping(priv->kwwpn_hash_table, node, own_vsan, priv);
    }
    bool update(wwn_t port, fcid_t address)
    {
        const TableLock lock(priv);
        return update_pn_to_fcid_mapping(priv->kwwpn_hash_table, port, address, own_vsan, priv);
    }
    kpn_to_fcid_t* search(wwn_t port)
    {
        kpn_to_fcid_t* target = nullptr;
        const TableLock lock(priv);
        const bool found = search_pn_to_fcid_mapping(priv->kwwpn_hash_table, port, &target);
        EXPECT_EQ(found, target != nullptr);
        return target;
    }
};

struct Bucket {
    const char* port;
    int bucket;
};

TEST(MappingHash, folds_bytes_2_to_7_and_leaves_bytes_0_and_1_out)
{
    const Bucket rows[] = {
        {"20:00:00:00:00:00:00:00", 0},  {"00:00:12:00:00:00:00:00", 3},
        {"00:00:ab:00:00:00:00:00", 1},  {"00:00:a0:0b:00:00:00:00", 1},
        {"12:34:00:00:00:00:00:12", 3},  {"10:00:01:02:04:08:10:20", 0xC},
        {"10:00:00:00:00:00:00:0f", 15}, {"10:00:ff:ff:00:00:00:00", 0},
        {"10:00:00:5e:bf:0a:0b:01", 15}, {"21:57:00:5e:bf:0a:0b:01", 15},
    };
    for (const Bucket& row : rows)
        EXPECT_EQ(hash_pn(wwn(row.port)), row.bucket) << row.port;
}

TEST_F(MappingTest, search_of_a_known_port_gives_its_node_and_says_so)
{
    kpn_to_fcid_t* const node = add(peer_port, peer_fcid);
    EXPECT_EQ(search(peer_port), node);
    EXPECT_EQ(effects(), (Lines{"101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 Mapping found FCID = 0x141516\n"}));
}

TEST_F(MappingTest, search_of_an_unknown_port_leaves_the_target_untouched)
{
    add_peer();
    kpn_to_fcid_t other{};
    kpn_to_fcid_t* target = &other;
    {
        const TableLock lock(priv);
        EXPECT_FALSE(search_pn_to_fcid_mapping(priv->kwwpn_hash_table,
                                               wwn("10:00:00:5e:bf:0a:0b:02"), &target));
    }
    EXPECT_EQ(target, &other);
    EXPECT_EQ(effects(), (Lines{"101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:02\n",
                                "101 Mapping not found\n"}));
}

TEST_F(MappingTest, search_ignores_bytes_0_and_1_and_every_other_byte_counts)
{
    kpn_to_fcid_t* const node = add_peer();
    EXPECT_EQ(search(wwn("21:55:00:5e:bf:0a:0b:01")), node);
    for (int byte = 2; byte < 8; ++byte) {
        wwn_t other = peer_port;
        other.str[byte] ^= 1;
        EXPECT_EQ(search(other), nullptr) << "byte " << byte;
        // In the same bucket, and different in this byte alone: both halves of the fold change.
        other = peer_port;
        other.str[byte] ^= 0x11;
        EXPECT_EQ(hash_pn(other), hash_pn(peer_port));
        EXPECT_EQ(search(other), nullptr) << "byte " << byte;
    }
}

TEST_F(MappingTest, the_first_node_of_an_empty_bucket_is_added_without_a_message)
{
    add_through_table(first_port, fcid(0x010203));
    EXPECT_EQ(table_of(priv), (Lines{"3 10:00:12:00:00:00:00:00 > 010203"}));
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingTest, a_colliding_node_joins_at_the_tail_and_is_reported)
{
    add_through_table(first_port, fcid(1));
    add_through_table(second_port, fcid(2));
    add_through_table(wwn("10:00:00:12:00:00:00:00"), fcid(3));
    EXPECT_EQ(table_of(priv),
              (Lines{"3 10:00:12:00:00:00:00:00 > 000001", "3 10:00:00:00:00:00:12:00 > 000002",
                     "3 10:00:00:12:00:00:00:00 > 000003"}));
    EXPECT_EQ(effects(), (Lines{"101 Hash collision for WW_PN = 10:00:00:00:00:00:12:00\n",
                                "101 Hash collision for WW_PN = 10:00:00:12:00:00:00:00\n"}));
}

TEST_F(MappingTest, names_that_differ_in_byte_0_or_1_are_two_nodes_and_a_search_finds_the_first)
{
    add_through_table(wwn("10:00:00:5e:bf:0a:0b:01"), fcid(1));
    add_through_table(wwn("20:00:00:5e:bf:0a:0b:01"), fcid(2));
    add_through_table(wwn("10:01:00:5e:bf:0a:0b:01"), fcid(3));
    EXPECT_EQ(effects(), (Lines{"101 Hash collision for WW_PN = 20:00:00:5e:bf:0a:0b:01\n",
                                "101 Hash collision for WW_PN = 10:01:00:5e:bf:0a:0b:01\n"}));
    for (const char* port : {"10:00:00:5e:bf:0a:0b:01", "20:00:00:5e:bf:0a:0b:01",
                             "10:01:00:5e:bf:0a:0b:01", "ff:ff:00:5e:bf:0a:0b:01"}) {
        ASSERT_NE(search(wwn(port)), nullptr) << port;
        EXPECT_EQ(text_of(search(wwn(port))->dest_fcid), "000001") << port;
    }
}

TEST_F(MappingTest, adding_a_known_port_with_the_same_fcid_frees_the_new_node_and_changes_nothing)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    add_through_table(peer_port, peer_fcid);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(num_exch_obj, 1);
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingTest, adding_a_known_port_with_another_fcid_logs_out_its_exchanges_at_the_old_one)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    platform().on_logo = [&](const SentLogo& logo) {
        EXPECT_EQ(logo.locks, 0);
        EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777"}));
    };
    add_through_table(peer_port, fcid(0x777777));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777"}));
    EXPECT_EQ(num_mapping_obj, 1);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0c to 141516",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xd0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0d to 141516"}));
}

TEST_F(MappingTest, all_four_bytes_of_an_fcid_are_compared)
{
    add_peer();
    fcid_t odd = peer_fcid;
    odd.str[0] = 1; // the byte that is never printed
    add_through_table(peer_port, odd);
    EXPECT_EQ(priv->kwwpn_hash_table[15]->dest_fcid.num, odd.num);
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n"}));
    EXPECT_TRUE(update(peer_port, peer_fcid));
    EXPECT_EQ(priv->kwwpn_hash_table[15]->dest_fcid.num, peer_fcid.num);
}

TEST_F(MappingTest, adding_clears_what_the_new_node_has_as_exchange_list)
{
    kpn_to_fcid_t* const node = new_node(peer_port, peer_fcid);
    fc2_exch_status_t stray{};
    node->fc2_exch = &stray;
    {
        const TableLock lock(priv);
        add_pn_to_fcid_mapping(priv->kwwpn_hash_table, node, own_vsan, priv);
    }
    EXPECT_EQ(node->fc2_exch, nullptr);
}

// The peer is deleted by somebody else while its exchanges are logged out without the lock.
TEST_F(MappingTest, a_node_that_goes_while_it_is_moved_is_not_touched_again)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    platform().on_logo = [&](const SentLogo&) {
        const TableLock lock(priv);
        EXPECT_TRUE(kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan));
    };
    add_through_table(peer_port, fcid(0x777777));
    EXPECT_EQ(table_of(priv), Lines{});
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(MappingTest, update_of_an_unknown_port_is_false_and_silent)
{
    add_peer();
    EXPECT_FALSE(update(wwn("10:00:00:5e:bf:0a:0b:02"), fcid(0x777777)));
    EXPECT_FALSE(update(wwn("20:00:00:5e:bf:0a:0b:01"), fcid(0x777777))) << "all 8 bytes count";
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingTest, update_to_the_same_fcid_keeps_the_exchanges)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    EXPECT_TRUE(update(peer_port, peer_fcid));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
    EXPECT_EQ(effects(), Lines{});
}

TEST_F(MappingTest, update_to_another_fcid_logs_out_at_the_old_one_with_the_lock_let_go)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    EXPECT_TRUE(update(peer_port, fcid(0x777777)));
    EXPECT_EQ(journal().texts({Source::lock, Source::platform}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock",
                     "kfc2_send_logo vsan 10 0a0b0c to 141516", "write_lock_bh hash_lock",
                     "write_unlock_bh hash_lock"}));
    EXPECT_EQ(effects(),
              (Lines{"101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0x16151400 \n",
                     "kfc2_send_logo vsan 10 0a0b0c to 141516"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777"}));
}

TEST_F(MappingTest, tables_of_two_interfaces_know_nothing_of_each_other)
{
    net_device* const other = create_interface(20, wwn("20:00:00:5e:bf:01:02:04"), fcid(0x200001));
    add_peer();
    add_mapping(ipfc_priv(other), peer_port, fcid(0x777777));
    EXPECT_TRUE(update(peer_port, fcid(0x141517)));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141517"}));
    EXPECT_EQ(table_of(ipfc_priv(other)), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777"}));
}

} // namespace
