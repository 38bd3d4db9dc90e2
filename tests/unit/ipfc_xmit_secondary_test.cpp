// SPDX-License-Identifier: GPL-2.0-only
// Transmission from secondary addresses, and of buffers shorter than they should be.
#include "support/skb_hooks.h"
#include "support/xmit_test.h"

namespace {

using namespace twin;

class XmitSecondaryTest : public XmitTest {
protected:
    void SetUp() override
    {
        XmitTest::SetUp();
        add_peer();
        priv->num_sec_ip_addr = 1;
        take_copies();
    }
    static MipAnswer secondary()
    {
        MipAnswer answer{.result = 0, .flag = 1, .mapping = {}};
        answer.mapping.source_mac = {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
        answer.mapping.add_data = fcid(0x0a0b99).num;
        return answer;
    }
};

TEST_F(XmitSecondaryTest, a_secondary_source_gives_the_packet_its_mac_and_fcid)
{
    platform().mip_answer = secondary();
    send_unicast();
    EXPECT_EQ(sent(0), "10 00 00 5e bf 0a 0b 01 10 00 00 11 22 33 44 55 "
                       "aa aa 03 00 00 00 08 00 "
                       "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02");
    EXPECT_EQ(hex(header(0).s_id.str), "00 0a 0b 99");
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b99=4660"}));
    EXPECT_EQ(counters(), "tx_packets=1 tx_bytes=44 ifHCOutOctets=44 ifHCOutUcastPkts=1");
}

TEST_F(XmitSecondaryTest, the_service_is_asked_between_the_copy_of_the_address_and_the_lookup)
{
    platform().mip_answer = secondary();
    name_lock(&priv->hash_lock, "hash_lock");
    send_unicast();
    Lines seen = effects();
    seen.resize(4);
    EXPECT_EQ(seen,
              (Lines{"101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending routine\n",
                     "101 ipfc_dev_hard_start_xmit: cached - daddr:0x10b0abf5e000010 "
                     "fcid:0x16151400\n",
                     "mip_lookup 0x0800", "100 ipfc_dev_hard_start_xmit: dst addr is unicast\n"}));
}

TEST_F(XmitSecondaryTest, the_service_gets_the_ethertype_and_the_packet_behind_the_headers)
{
    sk_buff* const skb = make(to_all, ipv6,
                              "60 00 00 00 00 00 3b 40 fe 80 00 00 00 00 00 00 00 00 00 00 "
                              "00 00 00 01 ff 02 00 00 00 00 00 00 00 00 00 00 00 00 00 01");
    const void* const packet = skb->data + 92;
    EXPECT_EQ(transmit(skb, dev), 0);
    send(to_all, arp, arp_request);
    ASSERT_EQ(platform().mip_lookups.size(), 2u);
    EXPECT_EQ(platform().mip_lookups[0].ethertype, 0x86DD);
    EXPECT_EQ(platform().mip_lookups[0].packet, packet);
    EXPECT_EQ(platform().mip_lookups[1].ethertype, 0x0806);
}

TEST_F(XmitSecondaryTest, a_refusal_drops_the_packet_without_a_message)
{
    for (const int refusal : {1, -1, -12, 0x7FFFFFFF}) {
        priv->stats = {};
        platform().mip_answer = {.result = refusal, .flag = 1, .mapping = {}};
        sk_buff* const skb = make(to_peer, arp, arp_request);
        EXPECT_EQ(transmit(skb, dev), 0);
        EXPECT_FALSE(skb_alive(skb));
        EXPECT_EQ(counters(), "tx_dropped=1");
        EXPECT_EQ(messages().size(), 2u);
    }
    EXPECT_TRUE(platform().sends.empty());
    for (const sk_buff* const copy : take_copies())
        EXPECT_FALSE(skb_alive(copy));
}

TEST_F(XmitSecondaryTest, only_a_flag_of_1_applies_the_mapping)
{
    for (const int flag : {0, 2, -1}) {
        platform().mip_answer = secondary();
        platform().mip_answer.flag = flag;
        send_unicast();
    }
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(hex(header(i).s_id.str), "00 0a 0b 0c");
        EXPECT_EQ(sent(i).substr(24, 23), "10 00 00 5e bf 01 02 03");
    }
}

TEST_F(XmitSecondaryTest, without_secondary_addresses_the_service_is_not_asked)
{
    for (const std::int32_t count : {0, -1, -2147483647 - 1}) {
        priv->num_sec_ip_addr = count;
        send_unicast();
    }
    EXPECT_TRUE(platform().mip_lookups.empty());
    EXPECT_EQ(platform().sends.size(), 3u);
}

TEST_F(XmitSecondaryTest, each_source_has_its_own_exchange_to_a_peer)
{
    platform().mip_answers = {secondary(), {}, secondary(), {}};
    platform().send_results = {1, 2, 3, 4};
    for (int i = 0; i < 4; ++i)
        send_unicast();
    EXPECT_EQ(header(2).handle, 1u);
    EXPECT_EQ(header(2).f_ctl, 0u);
    EXPECT_EQ(header(3).handle, 2u);
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b99=3 0a0b0c=4"}));
}

TEST_F(XmitSecondaryTest, a_refused_send_ends_the_secondary_sources_exchange_alone)
{
    add_exchange(priv, priv->kwwpn_hash_table[15], own_fcid, 1);
    add_exchange(priv, priv->kwwpn_hash_table[15], fcid(0x0a0b99), 2);
    platform().mip_answer = secondary();
    platform().send_result = -111;
    send_unicast();
    EXPECT_EQ(table_of(priv), (Lines{"15 10:00:00:5e:bf:0a:0b:01 > 141516 0a0b0c=1"}));
    ASSERT_EQ(platform().logos.size(), 1u);
    EXPECT_EQ(hex(platform().logos[0].s_id.str), "00 0a 0b 99");
}

TEST_F(XmitSecondaryTest, an_old_form_arp_carries_the_secondary_mac_in_its_header_as_it_was_copied)
{
    platform().mip_answer = secondary();
    send(to_all, arp, arp_request);
    EXPECT_EQ(sent(0).substr(24, 23), "10 00 00 11 22 33 44 55");
    // The copy was made before the service was asked.
    EXPECT_EQ(sent(1).substr(24, 23), "10 00 00 5e bf 01 02 03");
    EXPECT_EQ(hex(header(1).s_id.str), "00 0a 0b 99");
}

TEST_F(XmitSecondaryTest, the_service_never_sees_less_than_it_may_read)
{
    struct Row {
        const char* llc;
        unsigned promised;
    };
    for (const Row& row : {Row{ip, 20}, Row{arp, 40}, Row{ipv6, 40}}) {
        for (unsigned length = 0; length < 48; ++length) {
            priv->stats = {};
            platform().mip_lookups.clear();
            platform().sends.clear();
            const Bytes data =
                joined({Bytes(56, 0), bytes(to_all), bytes(row.llc), Bytes(length, 0x45)});
            EXPECT_EQ(transmit(make_skb(data, {.headroom = 56, .tailroom = 12}), dev), 0);
            const bool asked = length >= row.promised;
            EXPECT_EQ(platform().mip_lookups.size(), asked ? 1u : 0u);
            EXPECT_EQ(priv->stats.tx_dropped, asked ? 0u : 1u) << length;
        }
    }
}

// ---- buffers cut off anywhere ----

class XmitShortTest : public XmitTest {
protected:
    // Sends the first length bytes and says which counters moved.
    std::string send_cut(const Bytes& whole, std::size_t length, const SkbLayout& layout)
    {
        priv->stats = {};
        priv->mib_stats = {};
        platform().sends.clear();
        effects();
        EXPECT_EQ(transmit(make_skb(std::span(whole).first(length), layout), dev), 0);
        return counters();
    }
};

const SkbLayout layouts[] = {
    {.headroom = 56, .tailroom = 12},
    {.headroom = 0, .tailroom = 0},
    {.headroom = 56, .tailroom = 12, .linear = 0, .page = 5},
    {.headroom = 56, .tailroom = 12, .linear = 60, .page = 4096},
};

TEST_F(XmitShortTest, a_buffer_shorter_than_its_headers_is_of_an_unknown_type)
{
    const Bytes whole = buffer(to_all, ip, ipv4_packet);
    for (const SkbLayout& layout : layouts) {
        for (std::size_t length = 0; length < 92; ++length) {
            EXPECT_EQ(send_cut(whole, length, layout), "tx_errors=1") << length;
            EXPECT_EQ(messages(),
                      (Lines{"101 ipfc_dev_hard_start_xmit: vsan:10 - entering pkt sending "
                             "routine\n",
                             "100 ipfc_dev_hard_start_xmit: vsan:10 - unknown pkt type:0 ... "
                             "dropped\n"}))
                << length;
        }
    }
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(XmitShortTest, a_packet_of_any_length_is_sent_as_long_as_its_headers_are_whole)
{
    // Byte 9 of the packet says TE-only where it is there.
    const Bytes whole = joined({buffer(to_all, ip, ""), Bytes(128, 0x2E)});
    for (const SkbLayout& layout : layouts) {
        for (std::size_t length = 0; length <= 128; ++length) {
            EXPECT_EQ(send_cut(whole, 92 + length, layout),
                      strf("tx_packets=1 tx_bytes=%zu ifOutBroadcastPkts=1 ifHCOutBroadcastPkts=1",
                           24 + length));
            ASSERT_EQ(platform().sends.size(), 1u);
            EXPECT_EQ(platform().sends[0].bytes,
                      Bytes(whole.begin() + 68, whole.begin() + 92 + static_cast<long>(length)));
            EXPECT_EQ(header(0).flags, length > 9 ? 0x1000 : 0) << length;
            EXPECT_EQ(header(0).length, 24 + static_cast<int>(length));
        }
    }
}

TEST_F(XmitShortTest, what_lies_behind_the_packet_does_not_mark_it_te_only)
{
    for (const char* const packet : {"", "2e 2e 2e 2e 2e 2e 2e 2e 2e"}) {
        sk_buff* const skb = make(to_all, ip, packet);
        std::fill_n(skb->data + skb->len, skb_tailroom(skb), std::uint8_t{0x2E});
        EXPECT_EQ(transmit(skb, dev), 0);
    }
    EXPECT_EQ(header(0).flags, 0);
    EXPECT_EQ(header(1).flags, 0);
}

TEST_F(XmitShortTest, an_arp_packet_of_any_length_neither_reads_nor_writes_beyond_it)
{
    const Bytes whole = joined({buffer(to_all, arp, ""), Bytes(128, 0x2E)});
    for (const SkbLayout& layout : layouts) {
        for (std::size_t length = 0; length <= 128; ++length) {
            send_cut(whole, 92 + length, layout);
            ASSERT_EQ(platform().sends.size(), length < 40 ? 1u : 2u) << length;
            if (length >= 40) {
                EXPECT_EQ(platform().sends[1].bytes.size(), 12 + length);
            }
        }
    }
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(XmitShortTest, an_unknown_port_parks_a_bare_header_and_sends_it_later)
{
    sk_buff* const skb = make(to_peer, ip, "");
    EXPECT_EQ(transmit(skb, dev), 0);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(own_vsan, peer_port, peer_fcid), 0);
    EXPECT_EQ(sent(0), "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 aa aa 03 00 00 00 08 00");
}

} // namespace
