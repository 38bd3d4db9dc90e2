// SPDX-License-Identifier: GPL-2.0-only
// Link-layer header construction that fails, and rebuilding.
#include "support/interface_test.h"
#include "support/skb_hooks.h"

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

const Bytes packet(20, 0x45);
const ipfc_ll_addr_t peer_address = {.ww_portname = peer_port, .fcid = peer_fcid};
const ipfc_ll_addr_t own_address = {.ww_portname = own_port, .fcid = own_fcid};

const std::string trace = "101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 "
                          "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                          "daddr:10:00:00:5e:bf:0a:0b:01 d_id:0x141516\n";

class HeaderFailureTest : public InterfaceTest {
protected:
    int create(sk_buff* skb, const ipfc_ll_addr_t* daddr, unsigned short type = ETH_P_IP)
    {
        return dev->header_ops->create(skb, dev, type, daddr, &own_address, 20);
    }
    int rebuild(sk_buff* skb) { return dev->header_ops->rebuild(skb); }
};

TEST_F(HeaderFailureTest, another_type_pushes_nothing_and_returns_the_usual_length)
{
    for (const unsigned short type : {0x0000, 0x0801, 0x8035, 0x86DC, 0x8906, 0xFFFF}) {
        const SkbPtr skb(make_skb(packet)); // with no headroom either
        EXPECT_EQ(create(skb.get(), &peer_address, type), 60);
        EXPECT_EQ(skb_bytes(skb.get()), packet);
        EXPECT_EQ(messages().at(1),
                  type == 0 ? "100 ipfc_dev_hard_header invalid type:: 0x0 \n"
                            : strf("100 ipfc_dev_hard_header invalid type:: 0x%x \n", type));
    }
    EXPECT_EQ(table_of(priv), Lines{});
}

TEST_F(HeaderFailureTest, another_type_is_traced_and_refused_and_nothing_else)
{
    const SkbPtr skb(make_skb(packet));
    EXPECT_EQ(dev->header_ops->create(skb.get(), dev, 0x8035, nullptr, nullptr, 20), 60);
    EXPECT_EQ(effects(), (Lines{"101 ipfc_dev_hard_header vsan:10 type:0x8035 len:20 saddr:(null) "
                                "s_id:0x0 daddr:(null) d_id:0x0\n",
                                "100 ipfc_dev_hard_header invalid type:: 0x8035 \n"}));
}

TEST_F(HeaderFailureTest, headroom_that_cannot_be_grown_gives_minus_12_and_keeps_the_buffer)
{
    const SkbPtr skb(make_skb(packet, {.headroom = 91}));
    heap().fail_nth(Kind::skb_data, 1);
    EXPECT_EQ(create(skb.get(), &peer_address), -12);
    EXPECT_TRUE(skb_alive(skb.get()));
    EXPECT_EQ(skb_bytes(skb.get()), packet);
    EXPECT_EQ(effects(), (Lines{trace, "100 Unable to allocate more headroom\n"}));
    EXPECT_EQ(table_of(priv), Lines{});
}

TEST_F(HeaderFailureTest, no_memory_for_a_new_mapping_gives_minus_12_and_frees_the_buffer)
{
    sk_buff* const skb = make_skb(packet, {.headroom = 100});
    heap().fail_nth(Kind::object, 1);
    EXPECT_EQ(create(skb, &peer_address), -12);
    EXPECT_FALSE(skb_alive(skb));
    EXPECT_EQ(effects(),
              (Lines{trace, "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                     "101 Mapping not found\n", "100 Can not allocate new mapping - No mem\n"}));
    EXPECT_EQ(table_of(priv), Lines{});
    EXPECT_EQ(num_mapping_obj, 0);
}

TEST_F(HeaderFailureTest, a_push_that_yields_nothing_is_reported_and_the_rest_goes_on)
{
    add_peer();
    const SkbPtr skb(make_skb(packet, {.headroom = 100}));
    fail_push_of(12);
    EXPECT_EQ(create(skb.get(), &peer_address), 60);
    EXPECT_EQ(skb->len, 20u + 24 + 56);
    EXPECT_EQ(hex(std::span(skb->data + 56, 24)), "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
                                                  "aa aa 03 00 00 00 08 00");
    EXPECT_EQ(effects(), (Lines{trace, "101 WWPN->FCID query WWPN = 10:00:00:5e:bf:0a:0b:01\n",
                                "101 Mapping found FCID = 0x141516\n",
                                "101 ipfc_dev_hard_header ntw_hdr - saddr:10:00:00:5e:bf:01:02:03 "
                                "daddr:10:00:00:5e:bf:0a:0b:01\n",
                                "100 ipfc_dev_hard_header couldn't push "
                                "daddr:10:00:00:5e:bf:0a:0b:01 saddr:10:00:00:5e:bf:01:02:03\n"}));
}

TEST_F(HeaderFailureTest, a_push_that_yields_nothing_comes_before_a_missing_destination)
{
    const SkbPtr skb(make_skb(packet, {.headroom = 100}));
    fail_push_of(12);
    EXPECT_EQ(create(skb.get(), nullptr), 60);
}

TEST_F(HeaderFailureTest, without_a_destination_36_bytes_stay_pushed_and_the_result_is_minus_22)
{
    const SkbPtr skb(make_skb(packet, {.headroom = 100}));
    std::fill(skb->head, skb->data, std::uint8_t{0xEE});
    EXPECT_EQ(create(skb.get(), nullptr), -22);
    EXPECT_TRUE(skb_alive(skb.get()));
    EXPECT_EQ(skb->len, 56u);
    EXPECT_EQ(hex(std::span(skb->data, 36)),
              "ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee 10 00 00 5e bf 01 02 03 "
              "aa aa 03 00 00 00 08 00")
        << "the destination stays as it was in the buffer";
    EXPECT_EQ(effects(),
              (Lines{"101 ipfc_dev_hard_header vsan:10 type:0x800 len:20 "
                     "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c daddr:(null) d_id:0x0\n",
                     "101 ipfc_dev_hard_header ntw_hdr - saddr:10:00:00:5e:bf:01:02:03 "
                     "daddr:ee:ee:ee:ee:ee:ee:ee:ee\n",
                     "100 ipfc_dev_hard_header dst. address is (null) - cannot be cached\n"}));
}

TEST_F(HeaderFailureTest, a_negative_result_frees_the_buffer_exactly_once_on_the_kernels_path)
{
    for (const Kind kind : {Kind::skb_data, Kind::object}) {
        heap().fail_nth(kind, 1);
        EXPECT_EQ(dev_hard_header(make_skb(packet, {.headroom = kind == Kind::object ? 100u : 0u}),
                                  dev, ETH_P_IP, &peer_address, &own_address, 20),
                  -12);
        heap().never_fail();
    }
    EXPECT_EQ(dev_hard_header(make_skb(packet, {.headroom = 100}), dev, ETH_P_IP, nullptr,
                              &own_address, 20),
              -22);
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(HeaderFailureTest, the_length_of_the_packet_is_only_traced)
{
    add_peer();
    for (const unsigned length : {0u, 20u, 0xFFFFFFFFu}) {
        const SkbPtr skb(make_skb(packet, {.headroom = 100}));
        EXPECT_EQ(
            dev->header_ops->create(skb.get(), dev, ETH_P_IP, &peer_address, &own_address, length),
            60);
        EXPECT_EQ(skb->len, 112u);
    }
    EXPECT_TRUE(platform().has_text(IPFC_DBG_EVENTS,
                                    "ipfc_dev_hard_header vsan:10 type:0x800 len:-1 "
                                    "saddr:20:00:00:5e:bf:01:02:03 s_id:0xa0b0c "
                                    "daddr:10:00:00:5e:bf:0a:0b:01 d_id:0x141516\n"));
}

TEST_F(HeaderFailureTest, rebuilding_an_ip_packet_asks_arp_for_the_destination_field)
{
    set_arp_answer(0, bytes("00 5e bf 0a 0b 01"));
    const SkbPtr skb(make_skb(bytes("00 00 00 00 00 00 00 00 10 00 00 5e bf 01 02 03 "
                                    "aa aa 03 00 00 00 08 00 45")));
    EXPECT_EQ(rebuild(skb.get()), 0);
    ASSERT_EQ(arp_questions().size(), 1u);
    EXPECT_EQ(arp_questions()[0].to, skb->data + 2);
    EXPECT_EQ(arp_questions()[0].skb, skb.get());
    EXPECT_EQ(hex(skb_bytes(skb.get())), "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 "
                                         "aa aa 03 00 00 00 08 00 45");
    EXPECT_EQ(effects(), (Lines{"101 rebuild header called\n", "arp_find"}));
}

TEST_F(HeaderFailureTest, rebuilding_returns_what_arp_returns)
{
    set_arp_answer(1, {}); // not known yet: the kernel keeps the buffer
    sk_buff* const skb = make_skb(bytes("00 00 00 00 00 00 00 00 10 00 00 5e bf 01 02 03 "
                                        "aa aa 03 00 00 00 08 00 45"));
    EXPECT_EQ(rebuild(skb), 1);
}

TEST_F(HeaderFailureTest, rebuilding_an_arp_or_ipv6_packet_is_refused_without_resolving)
{
    const Bytes names = bytes("00 00 00 00 00 00 00 00 10 00 00 5e bf 01 02 03 aa aa 03 00 00 00");
    const std::pair<const char*, const char*> rows[] = {
        {"08 06", "100 Don't know how to resolve type 0806 addresses\n"},
        {"86 dd", "100 Don't know how to resolve type 86DD addresses\n"},
        {"00 08", "100 Don't know how to resolve type 0008 addresses\n"},
    };
    for (const auto& [ethertype, text] : rows) {
        const Bytes frame = joined({names, bytes(ethertype), packet});
        const SkbPtr skb(make_skb(frame));
        EXPECT_EQ(rebuild(skb.get()), 0);
        EXPECT_EQ(skb_bytes(skb.get()), frame);
        EXPECT_EQ(effects(), (Lines{"101 rebuild header called\n", text}));
    }
    EXPECT_TRUE(arp_questions().empty());
}

TEST_F(HeaderFailureTest, rebuilding_a_buffer_too_short_for_its_headers_is_refused)
{
    const Bytes whole = bytes("00 00 00 00 00 00 00 00 10 00 00 5e bf 01 02 03 "
                              "aa aa 03 00 00 00 08 00");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        for (const unsigned linear : {~0u, 0u, 10u}) {
            const SkbPtr skb(make_skb(std::span(whole).first(length), {.linear = linear}));
            EXPECT_EQ(rebuild(skb.get()), 0) << length;
            EXPECT_EQ(messages().at(1), "100 Don't know how to resolve type 0000 addresses\n");
        }
    }
    const SkbPtr paged(make_skb(whole, {.linear = 10}));
    set_arp_answer(0, {});
    EXPECT_EQ(rebuild(paged.get()), 0);
    EXPECT_EQ(arp_questions().size(), 1u);
}

using HeaderOutOfMemory = UnloadedModuleTest;

TEST_F(HeaderOutOfMemory, building_headers_survives_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        net_device* const device = create_interface(own_vsan, own_port, own_fcid);
        if (device == nullptr)
            return;
        for (int i = 0; i < 2; ++i) {
            sk_buff* const skb = make_skb(packet);
            if (dev_hard_header(skb, device, ETH_P_IP, &peer_address, &own_address, 20) >= 0)
                kfree_skb(skb);
        }
        ipfc_delete_vsan_interface(own_vsan);
    });
    EXPECT_GT(total.allocations, 12u);
}

} // namespace
