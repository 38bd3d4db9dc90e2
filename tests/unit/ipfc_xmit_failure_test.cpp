// SPDX-License-Identifier: GPL-2.0-only
// Transmission that fails: each way, with its message, counter and buffer.
#include "support/skb_hooks.h"
#include "support/xmit_test.h"

#include "ivr_ip.h"

namespace {

using namespace twin;

const std::string entering =
    "101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n";
const std::string cached =
    "101 ipfc_dev_hard_start_xmit: cached - daddr:0x10b0abf5e000010 fcid:0x16151400\n";

class XmitFailureTest : public XmitTest {
protected:
    void SetUp() override
    {
        XmitTest::SetUp();
        take_copies();
    }
};

TEST_F(XmitFailureTest, an_interface_without_fcid_drops_the_packet)
{
    priv->fcid.num = 0;
    sk_buff* const skb = make(to_peer, ip, ipv4_packet);
    EXPECT_EQ(transmit(skb, dev), 0);
    EXPECT_FALSE(skb_alive(skb));
    EXPECT_EQ(effects(),
              (Lines{entering, "100 ipfc_dev_hard_start_xmit: trying to send a packet with src "
                               "fcid = 0\n"}));
    EXPECT_EQ(counters(), "tx_dropped=1");
}

TEST_F(XmitFailureTest, a_resize_copy_that_fails_drops_the_packet)
{
    add_peer();
    sk_buff* const skb = make_skb(buffer(to_peer, ip, ipv4_packet));
    heap().fail_nth(Kind::skb, 1);
    EXPECT_EQ(transmit(skb, dev), 0);
    EXPECT_FALSE(skb_alive(skb));
    EXPECT_EQ(effects(), (Lines{entering, "100 No memory to resize a skb\n"}));
    EXPECT_EQ(counters(), "tx_dropped=1");
    EXPECT_EQ(ipfc_skbs_copied, 0u);
    EXPECT_EQ(ipfc_bytes_copied, 0u);
}

TEST_F(XmitFailureTest, an_unknown_ethertype_counts_an_error)
{
    add_peer();
    const std::pair<const char*, const char*> rows[] = {
        {"aa aa 03 00 00 00 80 35", "0x8035"}, {"aa aa 03 00 00 00 00 08", "0x8"},
        {"aa aa 03 00 00 00 06 08", "0x608"},  {"aa aa 03 00 00 00 00 00", "0"},
        {"aa aa 03 00 00 00 ff ff", "0xffff"}, {"08 00 08 06 86 dd dd 86", "0xdd86"},
    };
    for (const auto& [llc, number] : rows) {
        send(to_peer, llc, ipv4_packet);
        EXPECT_EQ(effects(), (Lines{entering, cached,
                                    strf("100 ipfc_dev_hard_start_xmit: vsan:10 - unknown pkt "
                                         "type:%s ... dropped\n",
                                         number)}));
    }
    EXPECT_EQ(counters(), "tx_errors=6");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(XmitFailureTest, an_unknown_destination_is_parked_without_counter_or_message)
{
    sk_buff* const skb = make(to_peer, ip, ipv4_packet);
    EXPECT_EQ(transmit(skb, dev), 0);
    EXPECT_TRUE(skb_alive(skb));
    EXPECT_EQ(
        messages(),
        (Lines{entering, cached, "100 ipfc_dev_hard_start_xmit: dst addr is unicast\n",
               "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n", "101 Mapping not found\n",
               "101 VSAN 10 mapping requested to the user process\n"}));
    EXPECT_EQ(counters(), "");
    EXPECT_TRUE(platform().sends.empty());
    EXPECT_EQ(hex(skb_bytes(skb)), hex(buffer(to_peer, ip, ipv4_packet)))
        << "whole, so that it can be sent again";
}

TEST_F(XmitFailureTest, a_parked_packet_is_sent_whole_once_its_mapping_is_known)
{
    send_unicast();
    send(to_peer, arp, arp_request);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(own_vsan, peer_port, peer_fcid), 0);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(own_vsan, peer_port, peer_fcid), 0);
    ASSERT_EQ(platform().sends.size(), 3u);
    EXPECT_EQ(sent(0), "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
                       "aa aa 03 00 00 00 08 00 "
                       "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02");
    EXPECT_EQ(platform().sends[1].bytes.size(), 64u);
    EXPECT_EQ(platform().sends[2].bytes.size(), 52u);
    EXPECT_EQ(counters(), "tx_packets=2 tx_bytes=108 ifHCOutOctets=108 ifHCOutUcastPkts=2");
}

TEST_F(XmitFailureTest, a_parked_arp_packets_copy_does_not_leak)
{
    send(to_peer, arp, arp_request);
    const std::vector<sk_buff*> copies = take_copies();
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_FALSE(skb_alive(copies[0]));
    EXPECT_EQ(ipfc_skbs_copied, 1u);
}

TEST_F(XmitFailureTest, a_destination_that_cannot_be_parked_drops_the_packet)
{
    for (int i = 0; i < 10; ++i)
        send_unicast();
    EXPECT_EQ(counters(), "");
    sk_buff* const skb = make(to_peer, ip, ipv4_packet);
    EXPECT_EQ(transmit(skb, dev), 0);
    EXPECT_FALSE(skb_alive(skb));
    EXPECT_EQ(counters(), "tx_dropped=1");
    send(to_peer, arp, arp_request);
    EXPECT_EQ(counters(), "tx_dropped=2");
    EXPECT_FALSE(skb_alive(take_copies().at(0)));
}

TEST_F(XmitFailureTest, a_destination_that_cannot_be_parked_without_memory_drops_the_packet)
{
    heap().fail_from(Kind::kmalloc, 1);
    send_unicast();
    EXPECT_EQ(counters(), "tx_dropped=1");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

// ---- what the stack refuses ----

struct Refusal {
    int result;
    const char* number;   // "%d" of the error, positive
    const char* returned; // "%x" of the result
    bool exchange_goes;
    bool logo;
};

const Refusal refusals[] = {
    {-111, "111", "ffffff91", true, true},   {-52, "52", "ffffffcc", true, true},
    {-113, "113", "ffffff8f", true, false},  {-5, "5", "fffffffb", false, false},
    {-1, "1", "ffffffff", false, false},     {-12, "12", "fffffff4", false, false},
    {-112, "112", "ffffff90", false, false},
};

TEST_F(XmitFailureTest, a_refused_unicast_ends_its_exchange_as_the_error_says_and_counts_one_error)
{
    for (const Refusal& row : refusals) {
        SCOPED_TRACE(row.result);
        priv->stats = {};
        kpn_to_fcid_t* const peer = add_peer();
        add_exchange(priv, peer, fcid(0x0a0b0d), 5);
        add_exchange(priv, peer, own_fcid, 6);
        platform().send_result = row.result;
        send_unicast();
        Lines expected{entering,
                       cached,
                       "100 ipfc_dev_hard_start_xmit: dst addr is unicast\n",
                       "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                       "101 Mapping found FCID = 0x141516\n",
                       "101 ipfc_dev_hard_start_xmit: skb->len: 44\n",
                       strf("kfc2_sendskb vsan 10 0a0b0c to 141516, 44 bytes = %d", row.result),
                       strf("101 ipfc_dev_hard_start_xmit: fc2 returned : %s\n", row.returned),
                       strf("100 ipfc_dev_hard_start_xmit: error:%s - sending pkt to vsan:10 "
                            "wwn:0x10b0abf5e000010 fcid:0x16151400\n",
                            row.number)};
        if (row.logo) {
            expected.push_back("101 ipfc_dev_hard_start_xmit: Connection refused. Delete fc2 exch "
                               "status and send LOGO\n");
            expected.push_back("101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id "
                               "0x16151400 \n");
            expected.push_back("kfc2_send_logo vsan 10 0a0b0c to 141516");
        }
        EXPECT_EQ(effects(), expected);
        EXPECT_EQ(counters(), "tx_errors=1");
        EXPECT_EQ(table_of(priv),
                  Lines{std::string("15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0d=5") +
                        (row.exchange_goes ? "" : " 0a0b0c=6")});
        EXPECT_EQ(num_exch_obj, row.exchange_goes ? 1 : 2);
        drop_mappings(priv);
    }
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(XmitFailureTest, a_refusal_is_counted_after_its_logo)
{
    add_exchange(priv, add_peer(), own_fcid, 6);
    platform().send_result = -111;
    std::string during_logo = "none was sent";
    platform().on_logo = [&](const SentLogo&) { during_logo = counters(); };
    send_unicast();
    EXPECT_EQ(during_logo, "");
    EXPECT_EQ(counters(), "tx_errors=1");
}

TEST_F(XmitFailureTest, a_refused_first_packet_has_no_exchange_to_end_and_sends_no_logo)
{
    add_peer();
    for (const Refusal& row : refusals) {
        platform().send_result = row.result;
        send_unicast();
    }
    EXPECT_TRUE(platform().logos.empty());
    EXPECT_EQ(num_exch_obj, 0);
    EXPECT_EQ(counters(), "tx_errors=7");
}

TEST_F(XmitFailureTest, a_refused_broadcast_is_not_replicated_and_its_copies_are_freed)
{
    ivrip_add_entry(0, peer_port, fcid(0x300001), 0x0a000000);
    for (const Refusal& row : refusals) {
        SCOPED_TRACE(row.result);
        priv->stats = {};
        platform().sends.clear();
        platform().send_result = row.result;
        send(to_all, arp, arp_request);
        EXPECT_EQ(platform().sends.size(), 1u);
        EXPECT_EQ(counters(), "tx_errors=1");
        const Lines texts = messages();
        ASSERT_EQ(texts.size(), row.logo ? 8u : 7u);
        EXPECT_EQ(texts[6], strf("100 ipfc_dev_hard_start_xmit: error:%s - sending pkt to vsan:10 "
                                 "wwn:0xffffffffffff0010 fcid:0xffffff00\n",
                                 row.number));
        if (row.logo) {
            EXPECT_EQ(texts[7], "101 ipfc_dev_hard_start_xmit: Connection refused. Delete fc2 exch "
                                "status and send LOGO\n");
        }
    }
    EXPECT_TRUE(platform().logos.empty());
    const std::vector<sk_buff*> copies = take_copies();
    EXPECT_EQ(copies.size(), 14u);
    for (const sk_buff* const copy : copies)
        EXPECT_FALSE(skb_alive(copy));
}

TEST_F(XmitFailureTest, the_return_value_is_0_on_every_path)
{
    struct Path {
        const char* what;
        std::function<void()> prepare;
        const char* addresses = to_peer;
        const char* llc = ip;
    };
    const Path paths[] = {
        {"sent", [this] { add_peer(); }},
        {"broadcast", [] {}, to_all},
        {"ARP", [] {}, to_all, arp},
        {"refused", [] { platform().send_result = -111; }, to_all},
        {"mapping gone",
         [this] {
             add_peer();
             platform().on_send = [this](const SentIu&) { drop_mappings(priv); };
         }},
        {"parked", [] {}},
        {"not parked", [] { heap().fail_from(Kind::kmalloc, 1); }},
        {"no copy", [] { heap().fail_from(Kind::skb, 1); }, to_all, arp},
        {"unknown type", [] {}, to_all, "aa aa 03 00 00 00 12 34"},
        {"refused source",
         [this] {
             priv->num_sec_ip_addr = 1;
             platform().mip_answer.result = 1;
         }},
        {"no FCID", [this] { priv->fcid.num = 0; }},
    };
    for (const Path& path : paths) {
        path.prepare();
        bh_disable();
        EXPECT_EQ(dev->hard_start_xmit(make(path.addresses, path.llc, arp_request), dev), 0)
            << path.what;
        bh_enable();
        drop_mappings(priv);
        heap().never_fail();
        platform().on_send = {};
        platform().send_result = 0x1234;
        platform().mip_answer = {};
        priv->num_sec_ip_addr = 0;
    }
}

// ---- without memory ----

using XmitOutOfMemory = UnloadedModuleTest;

TEST_F(XmitOutOfMemory, sending_survives_being_out_of_memory)
{
    const auto scenario = [] {
        net_device* const device = create_interface(own_vsan, own_port, own_fcid);
        if (device == nullptr)
            return;
        ivrip_add_entry(0, peer_port, fcid(0x300001), 0x0a000000);
        ivrip_add_entry(0, peer_port, fcid(0x300002), 0x0a000000);
        ipfc_ll_addr_t peer = {.ww_portname = peer_port, .fcid = peer_fcid};
        ipfc_ll_addr_t all = {.ww_portname = wwn("10:00:ff:ff:ff:ff:ff:ff"),
                              .fcid = broadcast_fcid};
        const Bytes arp_packet(40, 0x12);
        for (const std::uint16_t type : {ETH_P_IP, ETH_P_ARP}) {
            ip_output(device, type, &peer, arp_packet);
            ip_output(device, type, &all, arp_packet);
        }
        // Unknown to transmission alone: parked.
        drop_mappings(ipfc_priv(device));
        sk_buff* const skb = make_skb(joined({Bytes(56, 0),
                                              bytes("10 00 00 5e bf 0a 0b 01 00 14 "
                                                    "15 16 10 00 00 5e bf 0a 0b 01 "
                                                    "10 00 00 5e bf 01 02 03 aa aa "
                                                    "03 00 00 00 08 00"),
                                              Bytes(20, 0x45)}));
        transmit(skb, device);
        ipfc_delete_vsan_interface(own_vsan);
    };
    const OutOfMemoryRuns total = module_survives_out_of_memory(scenario);
    EXPECT_GT(total.allocations, 25u);
}

} // namespace
