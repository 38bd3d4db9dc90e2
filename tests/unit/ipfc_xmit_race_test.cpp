// SPDX-License-Identifier: GPL-2.0-only
// What others do while a send is under way and the table's lock is free.
#include "support/xmit_test.h"

namespace {

using namespace twin;

class XmitRaceTest : public XmitTest {
protected:
    void during_send(std::function<void()> action)
    {
        platform().on_send = [action = std::move(action)](const SentIu&) { elsewhere(action); };
    }
    void delete_mapping()
    {
        const TableLock lock(priv);
        kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan);
    }
};

TEST_F(XmitRaceTest, a_mapping_deleted_meanwhile_counts_nothing_and_opens_no_exchange)
{
    add_peer();
    during_send([this] { delete_mapping(); });
    send_unicast();
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(counters(), "");
    const Lines texts = messages();
    EXPECT_EQ(texts.at(texts.size() - 3), "101 ipfc_dev_hard_start_xmit: fc2 returned : 1234\n");
    EXPECT_EQ(texts.at(texts.size() - 2), "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n");
    EXPECT_EQ(texts.back(), "101 Mapping not found\n");
}

TEST_F(XmitRaceTest, a_mapping_deleted_with_its_exchange_is_not_touched_again)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    during_send([this] { delete_mapping(); });
    send_unicast();
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(counters(), "");
}

TEST_F(XmitRaceTest, a_mapping_that_was_replaced_gets_the_exchange)
{
    add_peer();
    during_send([this] {
        delete_mapping();
        add(peer_port, fcid(0x777777));
    });
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777 0a0b0c=4660"}));
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifHCOutOctets=44 ifHCOutUcastPkts=1");
}

TEST_F(XmitRaceTest, a_mapping_that_moved_gets_the_handle_and_the_last_message_tells_where_it_went)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    during_send([this] {
        const TableLock lock(priv);
        update_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, fcid(0x777777), own_vsan,
                                  priv);
    });
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 777777 0a0b0c=4660"}));
    ASSERT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(hex(platform().logos[0].d_id.str), "00 14 15 16");
    EXPECT_EQ(messages().back(),
              "101 vsan:10 - pkt sent to wwn:0x10b0abf5e000010 fcid:0x16151400\n");
}

TEST_F(XmitRaceTest, an_exchange_dropped_meanwhile_is_opened_anew)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    during_send([this] {
        const TableLock lock(priv);
        del_fc2_exch_status(&priv->kwwpn_hash_table[15]->fc2_exch, own_fcid, own_vsan, peer_fcid,
                            DONT_SEND_LOGO, priv);
    });
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=4660"}));
    EXPECT_EQ(num_exch_obj, 1);
}

TEST_F(XmitRaceTest, an_exchange_opened_meanwhile_is_not_opened_twice)
{
    kpn_to_fcid_t* const peer = add_peer();
    during_send([this, peer] { add_exchange(priv, peer, own_fcid, 7); });
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=4660"}));
}

TEST_F(XmitRaceTest, a_refused_send_whose_mapping_went_ends_nothing_and_tells_the_old_address)
{
    for (const int error : {-111, -52, -113, -5}) {
        priv->stats = {};
        add_exchange(priv, add_peer(), own_fcid, 7);
        platform().send_result = error;
        during_send([this] { delete_mapping(); });
        send_unicast();
        EXPECT_TRUE(platform().logos.empty());
        EXPECT_EQ(counters(), "tx_errors=1");
        EXPECT_EQ(num_exch_obj, 0);
        const Lines texts = messages();
        const std::string told = strf("100 ipfc_dev_hard_start_xmit: error:%d - sending pkt to "
                                      "vsan:10 wwn:0x10b0abf5e000010 fcid:0x16151400\n",
                                      -error);
        EXPECT_EQ(std::count(texts.begin(), texts.end(), told), 1);
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "101 Mapping not found\n"), 0)
            << "the second lookup is silent";
    }
}

TEST_F(XmitRaceTest, a_refused_send_whose_mapping_moved_logs_out_where_it_was_sent)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    platform().send_result = -111;
    during_send([this, peer] {
        const TableLock lock(priv);
        peer->dest_fcid = fcid(0x777777); // with its exchange
    });
    send_unicast();
    ASSERT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(hex(platform().logos[0].d_id.str), "00 14 15 16");
    EXPECT_EQ(platform().logos[0].locks, 0);
}

TEST_F(XmitRaceTest, a_mapping_that_goes_during_the_logo_of_a_refused_send_is_not_touched_again)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    platform().send_result = -111;
    platform().on_logo = [this](const SentLogo&) { elsewhere([this] { delete_mapping(); }); };
    send_unicast();
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(counters(), "tx_errors=1");
}

TEST_F(XmitRaceTest, an_interface_deleted_meanwhile_is_left_alone)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    during_send([] { EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0); });
    send_unicast();
    EXPECT_EQ(vsan_interfaces[own_vsan], nullptr);
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(counters(), "");
}

TEST_F(XmitRaceTest, an_interface_deleted_during_a_broadcast_is_left_alone)
{
    during_send([] {
        if (vsan_interfaces[own_vsan] != nullptr) {
            EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0);
        }
    });
    send(to_all, arp, arp_request);
    EXPECT_EQ(platform().sends.size(), 2u);
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=64 ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1");
}

TEST_F(XmitRaceTest, an_interface_created_anew_meanwhile_gets_nothing_of_the_old_one)
{
    add_peer();
    during_send([] {
        EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0);
        net_device* const other = create_interface(own_vsan, own_port, own_fcid);
        add_mapping(ipfc_priv(other), peer_port, peer_fcid);
    });
    send_unicast();
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(counters_of(ipfc_priv(vsan_interfaces[own_vsan])), "");
    EXPECT_EQ(table_of(ipfc_priv(vsan_interfaces[own_vsan])),
              (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(XmitRaceTest, the_fcid_taken_away_meanwhile_does_not_change_the_exchange_that_was_opened)
{
    add_peer();
    during_send([this] { priv->fcid.num = 0; });
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=4660"}));
}

} // namespace
