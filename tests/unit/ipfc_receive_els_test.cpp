// SPDX-License-Identifier: GPL-2.0-only
// Reception of a peer's LOGO and PLOGI.
#include "support/receive_test.h"

namespace {

using namespace twin;

class ReceiveElsTest : public ReceiveTest {
protected:
    static constexpr std::uint16_t plogi_received = 0x0402;
    static constexpr std::uint16_t logo_received = 0x0403;

    // Payloads with the peer's port name where the records have it.
    static Bytes logo_of(const char* port)
    {
        return joined({bytes("05 00 00 00 00 14 15 16"), bytes(port)});
    }
    static Bytes plogi_of(const char* port)
    {
        return joined({Bytes(20, 0x11), bytes(port), Bytes(88, 0x22)});
    }
    static IncomingIu els(std::uint16_t opcode, Bytes payload)
    {
        IncomingIu iu = unit(std::move(payload));
        iu.header.opcode = opcode;
        return iu;
    }
};

const std::string receiving = "101 Receiving pkt from FC2\n";
const char* const peer_text = "10 00 00 5e bf 0a 0b 01";

// ---- LOGO ----

TEST_F(ReceiveElsTest, a_logo_removes_the_mapping_and_sends_none_back)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, own_fcid, 7);
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    receive(els(logo_received, logo_of(peer_text)));
    EXPECT_EQ(effects(),
              (Lines{"data_ready 16", receiving, "kfc2_recvskb = 16",
                     "101 VSAN 10: received LOGO from WWN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 VSAN 10, mapping removed for WW_PN = 10:00:00:5e:bf:0a:0b:01 - PEER LOGO"
                     "\n"}));
    EXPECT_EQ(table_of(priv), Lines{});
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 1) << "the exchange of the address logged out from is not uncounted";
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveElsTest, a_logo_of_an_unknown_port_says_removed_all_the_same)
{
    add_peer();
    receive(els(logo_received, logo_of("10 00 00 5e bf 0a 0b 02")));
    EXPECT_EQ(messages(),
              (Lines{receiving, "101 VSAN 10: received LOGO from WWN = 10:00:00:5e:bf:0a:0b:02\n",
                     "101 VSAN 10, mapping removed for WW_PN = 10:00:00:5e:bf:0a:0b:02 - PEER LOGO"
                     "\n"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(ReceiveElsTest, a_logo_goes_by_the_whole_name)
{
    add_peer();
    receive(els(logo_received, logo_of("20 00 00 5e bf 0a 0b 01")));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(ReceiveElsTest, a_logo_works_under_the_tables_lock_and_never_lets_it_go)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    receive(els(logo_received, logo_of(peer_text)));
    const std::vector<Event> events = journal().events();
    std::vector<std::string> order;
    for (const Event& event : events)
        if (event.source == Source::lock || event.source == Source::message)
            order.push_back(event.text);
    EXPECT_EQ(order,
              (Lines{receiving, "101 VSAN 10: received LOGO from WWN = 10:00:00:5e:bf:0a:0b:01\n",
                     "write_lock_bh hash_lock",
                     "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0x16151400 \n",
                     "101 VSAN 10, mapping removed for WW_PN = 10:00:00:5e:bf:0a:0b:01 - PEER LOGO"
                     "\n",
                     "write_unlock_bh hash_lock"}));
}

TEST_F(ReceiveElsTest, a_logo_that_ends_before_its_port_name_does_is_a_reception_error)
{
    add_peer();
    const Bytes whole = logo_of(peer_text);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        for (const unsigned linear : {~0u, 0u, 5u}) {
            IncomingIu iu =
                els(logo_received, Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            iu.layout = {.headroom = 64, .tailroom = 8, .linear = linear, .page = 3};
            receive(std::move(iu));
            EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"})) << length;
        }
    }
    EXPECT_EQ(table_of(priv).size(), 1u);
    EXPECT_EQ(heap().live(Kind::skb), 0u);
    EXPECT_EQ(counters(), "");
}

TEST_F(ReceiveElsTest, a_paged_logo_and_a_longer_one_are_read)
{
    for (const unsigned linear : {0u, 8u, 15u}) {
        add_peer();
        IncomingIu iu = els(logo_received, joined({logo_of(peer_text), Bytes(112, 0x33)}));
        iu.layout = {.headroom = 64, .tailroom = 8, .linear = linear, .page = 3};
        receive(std::move(iu));
        EXPECT_EQ(table_of(priv), Lines{}) << linear;
    }
}

// ---- PLOGI ----

TEST_F(ReceiveElsTest, a_plogi_discards_the_exchange_of_the_address_logged_in_to_without_a_logo)
{
    kpn_to_fcid_t* const peer = add_peer();
    add_exchange(priv, peer, fcid(0x0a0b0d), 8);
    add_exchange(priv, peer, own_fcid, 7);
    receive(els(plogi_received, plogi_of(peer_text)));
    EXPECT_EQ(effects(), (Lines{"data_ready 116", receiving, "kfc2_recvskb = 116",
                                "101 VSAN 10: received PLOGI from WWN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 Mapping found FCID = 0x141516\n"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0d=8"}));
    EXPECT_EQ(num_exch_obj, 1);
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveElsTest, a_plogi_for_an_unknown_port_name_changes_nothing)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    receive(els(plogi_received, plogi_of("10 00 00 5e bf 0a 0b 02")));
    EXPECT_EQ(messages(),
              (Lines{receiving, "101 VSAN 10: received PLOGI from WWN = 10:00:00:5e:bf:0a:0b:02\n",
                     "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:02\n",
                     "101 Mapping not found\n"}));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
}

TEST_F(ReceiveElsTest, a_plogi_finds_its_mapping_whatever_the_first_two_bytes_of_the_name)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    receive(els(plogi_received, plogi_of("20 00 00 5e bf 0a 0b 01")));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(ReceiveElsTest, a_plogi_to_another_address_leaves_the_exchanges)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    IncomingIu iu = els(plogi_received, plogi_of(peer_text));
    iu.header.d_id = fcid(0x0a0b0d);
    receive(std::move(iu));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
}

TEST_F(ReceiveElsTest, a_plogi_takes_the_tables_lock_once)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    receive(els(plogi_received, plogi_of(peer_text)));
    EXPECT_EQ(journal().texts({Source::lock}),
              (Lines{"write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
}

TEST_F(ReceiveElsTest, a_plogi_that_ends_before_its_port_name_does_is_a_reception_error)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    const Bytes whole = plogi_of(peer_text);
    for (std::size_t length = 0; length < 28; ++length) {
        for (const unsigned linear : {~0u, 0u, 21u}) {
            IncomingIu iu = els(plogi_received,
                                Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            iu.layout = {.headroom = 64, .tailroom = 8, .linear = linear, .page = 16};
            receive(std::move(iu));
            EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"})) << length;
        }
    }
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=7"}));
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveElsTest, a_plogi_that_ends_with_its_port_name_is_read)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    const Bytes whole = plogi_of(peer_text);
    receive(els(plogi_received, Bytes(whole.begin(), whole.begin() + 28)));
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}));
}

TEST_F(ReceiveElsTest, a_paged_plogi_is_read)
{
    add_exchange(priv, add_peer(), own_fcid, 7);
    IncomingIu iu = els(plogi_received, plogi_of(peer_text));
    iu.layout = {.headroom = 64, .tailroom = 8, .linear = 0, .page = 9};
    receive(std::move(iu));
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(ReceiveElsTest, link_services_do_not_touch_the_time_of_reception_or_the_counters)
{
    advance(50);
    receive(els(plogi_received, plogi_of(peer_text)));
    receive(els(logo_received, logo_of(peer_text)));
    EXPECT_EQ(dev->last_rx, 0u);
    EXPECT_EQ(counters(), "");
}

TEST_F(ReceiveElsTest, paged_link_services_are_read_without_memory)
{
    for (const std::uint16_t opcode : {plogi_received, logo_received}) {
        add_exchange(priv, add_peer(), own_fcid, 7);
        heap().fail_from(Kind::skb_data, 1);
        IncomingIu iu =
            els(opcode, opcode == plogi_received ? plogi_of(peer_text) : logo_of(peer_text));
        iu.layout = {.headroom = 64, .tailroom = 0, .linear = 0, .page = 9};
        receive(std::move(iu));
        heap().never_fail();
        EXPECT_EQ(table_of(priv), opcode == plogi_received
                                      ? Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516"}
                                      : Lines{});
        drop_mappings(priv);
    }
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

} // namespace
