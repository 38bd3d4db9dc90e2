// SPDX-License-Identifier: GPL-2.0-only
// Reception of data sequences: what is rejected, what reaches the network stack, what is counted.
#include "support/receive_test.h"

#include <unordered_set>

namespace {

using namespace twin;

class ReceiveDataTest : public ReceiveTest {};

const std::string receiving = "101 Receiving pkt from FC2\n";

// ---- rejected before any counter ----

TEST_F(ReceiveDataTest, a_length_other_than_announced_is_a_reception_error)
{
    for (const int announced : {43, 45, 0, -1}) {
        IncomingIu iu = unit(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}));
        iu.nbytes = announced;
        receive(std::move(iu));
        EXPECT_EQ(effects(), (Lines{strf("data_ready %d", announced), receiving,
                                    "kfc2_recvskb = 44", "100 Pkt reception error\n"}));
    }
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveDataTest, a_negative_result_is_a_reception_error_with_and_without_a_buffer)
{
    for (const bool without_buffer : {false, true}) {
        for (const bool announced_too : {false, true}) {
            IncomingIu iu = unit(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}));
            iu.recv_result = -5;
            iu.without_buffer = without_buffer;
            if (announced_too)
                iu.nbytes = -5;
            receive(std::move(iu));
            EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"}));
        }
    }
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveDataTest, every_status_but_ok_is_a_reception_error)
{
    for (int status = 1; status < 256; ++status) {
        IncomingIu iu = unit(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}));
        iu.header.status = static_cast<std::uint8_t>(status);
        receive(std::move(iu));
        EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"})) << status;
    }
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveDataTest, a_missing_buffer_with_a_good_result_is_a_reception_error)
{
    IncomingIu iu = unit(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}));
    iu.without_buffer = true;
    receive(std::move(iu));
    EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"}));
}

TEST_F(ReceiveDataTest, an_announcement_with_nothing_behind_it_is_a_reception_error)
{
    EXPECT_EQ(ipfc_data_ready(platform().sock, 44), 0);
    EXPECT_EQ(messages(), (Lines{receiving, "100 Pkt reception error\n"}));
}

TEST_F(ReceiveDataTest, a_vsan_without_interface_is_told_and_never_indexes_beyond_the_table)
{
    const std::pair<int, const char*> rows[] = {
        {0, "0"}, {11, "11"}, {4095, "4095"}, {4096, "4096"}, {32768, "32768"}, {65535, "65535"},
    };
    for (const auto& [vsan, number] : rows) {
        for (const int opcode : {1, 0x402, 0x403, 7}) {
            IncomingIu iu = unit(Bytes(120, 0));
            iu.header.vsan = static_cast<std::uint16_t>(vsan);
            iu.header.opcode = static_cast<std::uint16_t>(opcode);
            receive(std::move(iu));
            EXPECT_EQ(messages(),
                      (Lines{receiving, strf("100 Received packet for the  non-existing interface "
                                             "%s\n",
                                             number)}));
        }
    }
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveDataTest, the_interface_of_vsan_4095_receives)
{
    net_device* const last = create_interface(4095, own_port, own_fcid);
    IncomingIu iu = unit(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}));
    iu.header.vsan = 4095;
    receive(std::move(iu));
    EXPECT_EQ(counters_of(ipfc_priv(last)),
              "rx_packets=1 rx_bytes=44 ifHCInOctets=44 ifHCInUcastPkts=1");
    EXPECT_EQ(counters(), "");
}

TEST_F(ReceiveDataTest, every_other_opcode_is_invalid_and_counts_nothing)
{
    const std::unordered_set<int> known{0x0001, 0x0402, 0x0403};
    for (const int opcode : {0, 2, 3, 4, 7, 16, 0x400, 0x401, 0x404, 0x8001, 0xFFFF}) {
        ASSERT_FALSE(known.contains(opcode));
        IncomingIu iu = unit(Bytes(120, 0));
        iu.header.opcode = static_cast<std::uint16_t>(opcode);
        receive(std::move(iu));
        EXPECT_EQ(messages(),
                  (Lines{receiving, strf("100 Received invalid primitive opcode %d\n", opcode)}));
    }
    EXPECT_EQ(counters(), "");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

// ---- data ----

TEST_F(ReceiveDataTest, an_ip_packet_reaches_the_stack_without_its_headers)
{
    advance(9);
    receive(to_own, ip, ipv4_packet);
    EXPECT_EQ(effects(), (Lines{"data_ready 44", receiving, "kfc2_recvskb = 44", "netif_rx vsan10",
                                "101 VSAN 10: pkt sent to upper layer, ret:0x0 \n"}));
    const std::vector<Delivered> delivered = take_delivered();
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(hex(delivered[0].bytes), ipv4_packet);
    EXPECT_EQ(delivered[0].dev, dev);
    EXPECT_EQ(delivered[0].protocol, 0x0800);
    EXPECT_EQ(delivered[0].pkt_type, PACKET_HOST);
    EXPECT_EQ(delivered[0].mac_header, 64u) << "at the network header";
    EXPECT_TRUE(delivered[0].in_softirq);
    EXPECT_EQ(dev->last_rx, first_jiffies + 9);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 ifHCInOctets=44 ifHCInUcastPkts=1");
}

TEST_F(ReceiveDataTest, an_ipv6_packet_reaches_the_stack_as_one)
{
    receive(to_own, ipv6, ipv4_packet);
    const std::vector<Delivered> delivered = take_delivered();
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0].protocol, 0x86DD);
    EXPECT_EQ(hex(delivered[0].bytes), ipv4_packet);
}

TEST_F(ReceiveDataTest, what_the_stack_answers_is_told_and_changes_nothing)
{
    set_netif_rx_result(1);
    receive(to_own, ip, ipv4_packet);
    EXPECT_EQ(messages(), (Lines{receiving, "101 VSAN 10: pkt sent to upper layer, ret:0x1 \n"}));
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 ifHCInOctets=44 ifHCInUcastPkts=1");
}

TEST_F(ReceiveDataTest, dsap_alone_is_examined_of_the_llc_header)
{
    for (const char* const llc :
         {"aa 00 00 00 00 00 08 00", "aa ff ff ff ff ff 08 06", "aa 55 aa 01 02 03 86 dd"})
        receive(to_own, llc, ipv4_packet);
    EXPECT_EQ(delivered_count(), 3u);
    EXPECT_EQ(priv->stats.rx_errors, 0u);
}

TEST_F(ReceiveDataTest, another_dsap_or_ethertype_is_an_unknown_protocol)
{
    const char* const rows[] = {"ab aa 03 00 00 00 08 00", "00 aa 03 00 00 00 08 06",
                                "aa aa 03 00 00 00 00 08", "aa aa 03 00 00 00 06 08",
                                "aa aa 03 00 00 00 dd 86", "aa aa 03 00 00 00 08 01",
                                "aa aa 03 00 00 00 80 35", "00 00 00 00 00 00 00 00"};
    for (const char* const llc : rows) {
        receive(to_own, llc, ipv4_packet);
        EXPECT_EQ(messages(), (Lines{receiving, "100 VSAN 10 Received a pkt with an invalid "
                                                "protocol - pkt dropped\n"}))
            << llc;
    }
    EXPECT_EQ(delivered_count(), 0u);
    EXPECT_EQ(heap().live(Kind::skb), 0u);
    EXPECT_EQ(counters(), "rx_packets=8 rx_bytes=352 rx_errors=8 ifInUnknownProtos=8");
}

struct Sender {
    const char* names;
    fcid_t s_id;
    bool own;
};

TEST_F(ReceiveDataTest, a_frame_with_the_own_name_and_the_own_fcid_is_dropped)
{
    const char* const own_name = "10 00 ff ff ff ff ff ff 20 00 00 5e bf 01 02 03 ";
    const char* const own_ieee_name = "10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 ";
    const Sender rows[] = {
        {own_name, own_fcid, true},
        {own_name, peer_fcid, false},
        {own_ieee_name, own_fcid, false}, // all eight bytes are compared
        {to_all, own_fcid, false},
    };
    for (const Sender& row : rows) {
        priv->stats = {};
        priv->mib_stats = {};
        IncomingIu iu = unit(joined({bytes(row.names), bytes(ip), bytes(ipv4_packet)}));
        iu.header.s_id = row.s_id;
        receive(std::move(iu));
        EXPECT_EQ(take_delivered().size(), row.own ? 0u : 1u);
        if (row.own) {
            EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44");
            EXPECT_EQ(messages(),
                      (Lines{receiving, "100 VSAN 10 Received a packet from itself back\n"}));
        }
    }
}

TEST_F(ReceiveDataTest, the_protocol_is_checked_before_the_sender)
{
    IncomingIu iu = unit(joined({bytes("10 00 ff ff ff ff ff ff 20 00 00 5e bf 01 02 03"),
                                 bytes("aa aa 03 00 00 00 80 35"), bytes(ipv4_packet)}));
    iu.header.s_id = own_fcid;
    receive(std::move(iu));
    EXPECT_EQ(messages().at(1),
              "100 VSAN 10 Received a pkt with an invalid protocol - pkt dropped\n");
}

// ---- to whom ----

TEST_F(ReceiveDataTest, a_frame_to_all_ones_counts_as_multicast)
{
    receive(to_all, ip, ipv4_packet);
    EXPECT_EQ(take_delivered().at(0).pkt_type, PACKET_MULTICAST);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 multicast=1 ifInMulticastPkts=1 "
                          "ifHCInMulticastPkts=1");
}

TEST_F(ReceiveDataTest, a_frame_to_a_group_counts_as_multicast)
{
    receive(to_group, ipv6, ipv4_packet);
    EXPECT_EQ(take_delivered().at(0).pkt_type, PACKET_MULTICAST);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 multicast=1 ifInMulticastPkts=1 "
                          "ifHCInMulticastPkts=1");
}

TEST_F(ReceiveDataTest, a_frame_to_the_first_six_bytes_of_the_broadcast_address_is_for_this_host)
{
    // 10 00 FF FF FF FF: the low bit of its first byte is clear, so no group is looked for.
    receive("10 00 10 00 ff ff ff ff 10 00 00 5e bf 0a 0b 01", ip, ipv4_packet);
    EXPECT_EQ(take_delivered().at(0).pkt_type, PACKET_HOST);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 ifHCInOctets=44 ifHCInUcastPkts=1");
}

TEST_F(ReceiveDataTest, broadcasts_are_told_by_the_first_six_bytes_of_the_devices_address)
{
    const Bytes other = bytes("ff ff ff ff ff ff 00 00 00 ff ff ff");
    std::copy(other.begin(), other.end(), dev->broadcast);
    receive(to_all, ip, ipv4_packet);
    EXPECT_EQ(take_delivered().at(0).pkt_type, PACKET_BROADCAST);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 ifInBroadcastPkts=1 ifHCInBroadcastPkts=1");
}

TEST_F(ReceiveDataTest, frames_for_other_ports_and_mine_both_count_as_unicast)
{
    receive("10 00 00 5e bf 77 77 77 10 00 00 5e bf 0a 0b 01", ip, ipv4_packet);
    receive(to_own, ip, ipv4_packet);
    EXPECT_EQ(counters(), "rx_packets=2 rx_bytes=88 ifHCInOctets=88 ifHCInUcastPkts=2");
    for (const Delivered& delivered : take_delivered())
        EXPECT_EQ(delivered.pkt_type, PACKET_HOST);
}

TEST_F(ReceiveDataTest, the_data_path_takes_no_lock)
{
    journal().clear();
    receive(to_own, ip, ipv4_packet);
    EXPECT_EQ(journal().texts({Source::lock}), Lines{});
}

// ---- frames cut off anywhere ----

TEST_F(ReceiveDataTest, a_frame_too_short_for_its_headers_is_an_unknown_protocol)
{
    const Bytes whole = joined({bytes(to_own), bytes(ip)});
    for (std::size_t length = 0; length < 24; ++length) {
        for (const unsigned linear : {~0u, 0u, 7u}) {
            priv->stats = {};
            priv->mib_stats = {};
            receive_paged(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)), linear,
                          3);
            EXPECT_EQ(messages(), (Lines{receiving, "100 VSAN 10 Received a pkt with an invalid "
                                                    "protocol - pkt dropped\n"}))
                << length;
            EXPECT_EQ(
                counters(),
                length == 0
                    ? "rx_packets=1 rx_errors=1 ifInUnknownProtos=1"
                    : strf("rx_packets=1 rx_bytes=%zu rx_errors=1 ifInUnknownProtos=1", length));
        }
    }
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(ReceiveDataTest, a_packet_of_any_length_and_layout_reaches_the_stack_whole)
{
    for (const char* const llc : {ip, ipv6}) {
        const Bytes headers = joined({bytes(to_own), bytes(llc)});
        for (std::size_t length = 0; length <= 128; ++length) {
            Bytes packet(length);
            for (std::size_t i = 0; i < length; ++i)
                packet[i] = static_cast<std::uint8_t>(i);
            for (const unsigned linear : {~0u, 0u, 16u, 24u, 30u}) {
                receive_paged(joined({headers, packet}), linear, 11);
                const std::vector<Delivered> delivered = take_delivered();
                ASSERT_EQ(delivered.size(), 1u) << length;
                EXPECT_EQ(delivered[0].bytes, packet);
            }
            forget_so_far();
        }
    }
}

TEST_F(ReceiveDataTest, a_paged_frame_without_memory_to_read_it_is_an_unknown_protocol)
{
    heap().fail_from(Kind::skb_data, 1);
    receive_paged(joined({bytes(to_own), bytes(ip), bytes(ipv4_packet)}), 0);
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=44 rx_errors=1 ifInUnknownProtos=1");
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

} // namespace
