// SPDX-License-Identifier: GPL-2.0-only
// Reception of ARP: the form with 12-byte addresses as it is, the Ethernet form converted.
#include "support/receive_test.h"

namespace {

using namespace twin;

class ReceiveArpTest : public ReceiveTest {};

const std::string receiving = "101 Receiving pkt from FC2\n";
const std::string passed_up = "101 VSAN 10: pkt sent to upper layer, ret:0x0 \n";

const char* const ethernet_request = "00 01 08 00 06 04 00 01 00 5e bf 0a 0b 01 0a 00 00 02 "
                                     "00 00 00 00 00 00 0a 00 00 01";

TEST_F(ReceiveArpTest, an_ethernet_request_of_28_bytes_reaches_the_stack_with_12_byte_addresses)
{
    receive(to_own, arp, ethernet_request);
    const std::vector<Delivered> delivered = take_delivered();
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(hex(delivered[0].bytes), "00 12 08 00 0c 04 00 01 "
                                       "10 00 00 5e bf 0a 0b 01 00 14 15 16 0a 00 00 02 "
                                       "10 00 00 5e bf 01 02 03 00 0a 0b 0c 0a 00 00 01");
    EXPECT_EQ(delivered[0].protocol, 0x0806);
    EXPECT_EQ(delivered[0].dev, dev);
    EXPECT_EQ(delivered[0].pkt_type, PACKET_HOST);
    EXPECT_EQ(delivered[0].mac_header, 64u);
    EXPECT_EQ(delivered[0].skb->data_len, 0u);
}

TEST_F(ReceiveArpTest, an_ethernet_request_goes_through_its_steps_in_order)
{
    receive(to_all, arp, ethernet_request);
    EXPECT_EQ(effects(),
              (Lines{"data_ready 52", receiving, "kfc2_recvskb = 52",
                     "101 Received ARP packet - hwaddr:0x100/6, pr:0x8/4op:0x100, eth addr len:6 "
                     "\n",
                     "101 Received ARP packet with old hardware format, faking to new format and "
                     "pass it to IP stack\n",
                     "101 ipfc_data_ready: Received pkt - sender hwaddr:0.5e.bf.a.b.1 "
                     "ipaddr:0xa000002 target hwaddr:0.0.0.0.0.0 ipaddr:0xa000001\n ",
                     "netif_rx vsan10", passed_up}));
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=52 multicast=1 ifInMulticastPkts=1 "
                          "ifHCInMulticastPkts=1");
}

TEST_F(ReceiveArpTest, the_addresses_come_from_the_headers_and_not_from_the_packet)
{
    IncomingIu iu =
        unit(joined({bytes("21 22 23 24 25 26 27 28 31 32 33 34 35 36 37 38"), bytes(arp),
                     bytes("00 01 12 34 06 78 9a bc 01 02 03 04 05 06 c0 a8 00 02 "
                           "07 08 09 0a 0b 0c c0 a8 00 01")}));
    iu.header.s_id = {.str = {0x41, 0x42, 0x43, 0x44}};
    iu.header.d_id = {.str = {0x51, 0x52, 0x53, 0x54}};
    receive(std::move(iu));
    EXPECT_EQ(hex(take_delivered().at(0).bytes), "00 12 12 34 0c 78 9a bc "
                                                 "31 32 33 34 35 36 37 38 41 42 43 44 c0 a8 00 02 "
                                                 "21 22 23 24 25 26 27 28 51 52 53 54 c0 a8 00 01");
    EXPECT_TRUE(platform().has_text(IPFC_DBG_EVENTS,
                                    "Received ARP packet - hwaddr:0x100/6, pr:0x3412/120op:0xbc9a, "
                                    "eth addr len:6 \n"));
    EXPECT_TRUE(platform().has_text(IPFC_DBG_EVENTS,
                                    "ipfc_data_ready: Received pkt - sender hwaddr:1.2.3.4.5.6 "
                                    "ipaddr:0xc0a80002 target hwaddr:7.8.9.a.b.c "
                                    "ipaddr:0xc0a80001\n "));
}

TEST_F(ReceiveArpTest, an_arp_packet_of_another_hardware_type_is_passed_as_it_is)
{
    struct Row {
        const char* packet;
        const char* trace;
    };
    const Row rows[] = {
        {.packet = "00 12 08 00 0c 04 00 01 10 00 00 5e bf 0a 0b 01 00 14 15 16 0a 00 00 02 "
                   "00 00 00 00 00 00 00 00 00 00 00 00 0a 00 00 01",
         .trace = "101 Received ARP packet - hwaddr:0x1200/12, pr:0x8/4op:0x100, eth addr len:6 "
                  "\n"},
        {.packet = "01 00 08 00 06 04 00 01 00 5e bf 0a 0b 01 0a 00 00 02 "
                   "00 00 00 00 00 00 0a 00 00 01",
         .trace = "101 Received ARP packet - hwaddr:0x1/6, pr:0x8/4op:0x100, eth addr len:6 \n"},
        {.packet = "00 06 08 00 06 04 00 01 00 5e bf 0a 0b 01 0a 00 00 02 "
                   "00 00 00 00 00 00 0a 00 00 01",
         .trace = "101 Received ARP packet - hwaddr:0x600/6, pr:0x8/4op:0x100, eth addr len:6 "
                  "\n"},
    };
    for (const Row& row : rows) {
        receive(to_own, arp, row.packet);
        EXPECT_EQ(hex(take_delivered().at(0).bytes), row.packet);
        EXPECT_EQ(messages(), (Lines{receiving, row.trace, passed_up}));
    }
}

TEST_F(ReceiveArpTest, an_ip_packet_that_looks_like_arp_is_left_alone)
{
    receive(to_own, ip, ethernet_request);
    EXPECT_EQ(hex(take_delivered().at(0).bytes), ethernet_request);
    EXPECT_EQ(messages().size(), 2u);
}

TEST_F(ReceiveArpTest, a_padded_ethernet_request_keeps_what_follows_the_40_bytes)
{
    Bytes padded = bytes(ethernet_request);
    for (int i = 0; i < 18; ++i)
        padded.push_back(static_cast<std::uint8_t>(0xE0 + i));
    receive(joined({bytes(to_own), bytes(arp), padded}));
    const Bytes up = take_delivered().at(0).bytes;
    ASSERT_EQ(up.size(), 58u);
    EXPECT_EQ(hex(std::span(up).first(8)), "00 12 08 00 0c 04 00 01");
    EXPECT_EQ(hex(std::span(up).subspan(36, 10)), "0a 00 00 01 ec ed ee ef f0 f1");
}

TEST_F(ReceiveArpTest, a_paged_ethernet_request_is_converted_too)
{
    for (const unsigned linear : {0u, 24u, 32u, 40u, 51u}) {
        receive_paged(joined({bytes(to_own), bytes(arp), bytes(ethernet_request)}), linear, 7);
        const std::vector<Delivered> delivered = take_delivered();
        ASSERT_EQ(delivered.size(), 1u);
        EXPECT_EQ(hex(delivered[0].bytes),
                  "00 12 08 00 0c 04 00 01 10 00 00 5e bf 0a 0b 01 00 14 15 16 0a 00 00 02 "
                  "10 00 00 5e bf 01 02 03 00 0a 0b 0c 0a 00 00 01")
            << linear;
    }
}

TEST_F(ReceiveArpTest, the_copy_keeps_the_headroom_and_the_tailroom)
{
    for (const unsigned tailroom : {0u, 5u, 300u}) {
        IncomingIu iu = unit(joined({bytes(to_own), bytes(arp), bytes(ethernet_request)}));
        iu.layout = {.headroom = 33, .tailroom = tailroom};
        receive(std::move(iu));
        const std::vector<Delivered> delivered = take_delivered();
        ASSERT_EQ(delivered.size(), 1u);
        EXPECT_EQ(skb_headroom(delivered[0].skb.get()), 33u + 24);
        EXPECT_EQ(skb_tailroom(delivered[0].skb.get()), static_cast<int>(tailroom));
    }
}

TEST_F(ReceiveArpTest, the_copy_is_allocated_atomically)
{
    receive_paged(joined({bytes(to_own), bytes(arp), bytes(ethernet_request)}), 0);
    EXPECT_EQ(delivered_count(), 1u);
    EXPECT_EQ(heap().served_atomically(), Lines{});
}

TEST_F(ReceiveArpTest, no_memory_for_the_conversion_drops_the_packet)
{
    heap().fail_nth(Kind::skb, 1);
    receive(to_own, arp, ethernet_request);
    EXPECT_EQ(delivered_count(), 0u);
    EXPECT_EQ(heap().live(Kind::skb), 0u);
    EXPECT_EQ(messages(),
              (Lines{receiving,
                     "101 Received ARP packet - hwaddr:0x100/6, pr:0x8/4op:0x100, eth addr len:6 "
                     "\n",
                     "101 Received ARP packet with old hardware format, faking to new format and "
                     "pass it to IP stack\n",
                     "101 ipfc_data_ready: Received pkt - sender hwaddr:0.5e.bf.a.b.1 "
                     "ipaddr:0xa000002 target hwaddr:0.0.0.0.0.0 ipaddr:0xa000001\n ",
                     "100 ipfc_data_ready: Cannot expand skb\n"}));
    EXPECT_EQ(counters(), "rx_packets=1 rx_bytes=52 ifHCInOctets=52 ifHCInUcastPkts=1");
}

TEST_F(ReceiveArpTest, an_arp_packet_too_short_for_what_is_read_of_it_is_dropped_like_that)
{
    const Bytes whole = joined({bytes(to_own), bytes(arp), bytes(ethernet_request)});
    for (std::size_t length = 24; length < 52; ++length) {
        for (const unsigned linear : {~0u, 24u, 26u}) {
            receive_paged(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)), linear,
                          3);
            EXPECT_EQ(delivered_count(), 0u) << length;
            EXPECT_EQ(messages().back(), "100 ipfc_data_ready: Cannot expand skb\n") << length;
        }
    }
    EXPECT_EQ(heap().live(Kind::skb), 0u);
    EXPECT_EQ(priv->stats.rx_errors, 0u);
}

TEST_F(ReceiveArpTest, an_arp_packet_of_the_new_form_may_be_as_short_as_its_fixed_part)
{
    const Bytes whole = joined({bytes(to_own), bytes(arp), bytes("00 12 08 00 0c 04 00 01 20 00")});
    for (std::size_t length = 24; length <= whole.size(); ++length) {
        receive(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
        EXPECT_EQ(take_delivered().size(), length < 32 ? 0u : 1u) << length;
    }
}

using ReceiveOutOfMemory = UnloadedModuleTest;

TEST_F(ReceiveOutOfMemory, receiving_survives_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        if (create_interface(own_vsan, own_port, own_fcid) == nullptr)
            return;
        for (const char* const frame :
             {"10 00 00 5e bf 01 02 03 10 00 00 5e bf 0a 0b 01 aa aa 03 00 00 00 08 06 "
              "00 01 08 00 06 04 00 01 00 5e bf 0a 0b 01 0a 00 00 02 00 00 00 00 00 00 0a 00 00 01",
              "10 00 00 5e bf 01 02 03 10 00 00 5e bf 0a 0b 01 aa aa 03 00 00 00 08 00 45"}) {
            IncomingIu iu;
            iu.header.opcode = 1;
            iu.header.vsan = own_vsan;
            iu.bytes = bytes(frame);
            iu.layout = {.headroom = 64, .tailroom = 8, .linear = 0, .page = 16};
            platform().deliver(iu);
        }
        for (const int opcode : {0x402, 0x403}) {
            IncomingIu iu;
            iu.header.opcode = static_cast<std::uint16_t>(opcode);
            iu.header.vsan = own_vsan;
            iu.bytes = Bytes(116, 0x10);
            iu.layout = {.headroom = 64, .tailroom = 8, .linear = 0, .page = 16};
            platform().deliver(iu);
        }
        take_delivered();
        ipfc_delete_vsan_interface(own_vsan);
    });
    EXPECT_GT(total.allocations, 14u);
}

} // namespace
