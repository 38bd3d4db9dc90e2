// SPDX-License-Identifier: GPL-2.0-only
// One frame on the wire, byte by byte, and frames that are none.
#include "support/fc2_rig.h"

namespace {

using twin::Bytes;
using wire::hex;

using Fc2FrameTest = Fc2Test;

TEST_F(Fc2FrameTest, the_crc_is_that_of_ieee_802_3)
{
    const Bytes text = hex("313233343536373839"); // "123456789", the usual check
    EXPECT_EQ(fc_crc(text.data(), 9), 0xCBF43926u);
    EXPECT_EQ(fc_crc(text.data(), 0), 0u);
}

// The CRC was computed apart from this program, by Python's zlib.
TEST_F(Fc2FrameTest, a_broadcast_goes_out_byte_for_byte_and_without_a_login)
{
    ASSERT_EQ(a->add_nport(0xABC, a_fcid), 0);
    const Bytes packet = hex("1000ffffffffffff 1000020000000001 aaaa030000000806 0102030405");
    EXPECT_GE(a->send(0xABC, a_fcid, broadcast_fcid, packet), 0);
    ASSERT_EQ(fabric.seen.size(), 1u);
    EXPECT_EQ(hex(fabric.seen[0]), hex(hex("ffffffffffff 0efc000a0a01 8906"
                                           "00 000000000000000000000000 2e"
                                           "50001578 ff000000"
                                           "04ffffff 000a0a01 05380003 00200000 0001ffff 00000000"
                                           "1000ffffffffffff 1000020000000001 aaaa030000000806"
                                           "0102030405 000000"
                                           "42076c81 42000000")));
}

TEST_F(Fc2FrameTest, a_private_buffer_with_room_is_framed_where_it_is)
{
    log_in();
    twin::heap().fail_from(1);
    fc2_iuhdr_t header = data_header(10, a_fcid, b_fcid);
    EXPECT_GE(kfc2_sendskb(a->sock, &header, module_skb(wire::ip_over_fc(0x0800, hex("4500")))), 0);
    EXPECT_EQ(twin::heap().refused(), 0u);
    twin::heap().never_fail();
    EXPECT_EQ(frames_since(fabric.seen.size() - 1).at(0).data.size(), 26u);
}

TEST_F(Fc2FrameTest, buffers_that_others_hold_are_never_written_to)
{
    log_in();
    const Bytes packet = wire::ip_over_fc(0x0800, wire::counting(21));
    sk_buff* cloned = module_skb(packet);
    const twin::SkbPtr clone(skb_clone(cloned, GFP_ATOMIC));
    sk_buff* shared = module_skb(packet);
    twin::skb_get(shared);
    const twin::SkbPtr holder(shared);
    for (sk_buff* skb : {cloned, shared}) {
        const Bytes around(skb->head, skb->head + skb->end);
        const unsigned char* head = skb->head;
        const unsigned int end = skb->end;
        fc2_iuhdr_t header = data_header(10, a_fcid, b_fcid);
        EXPECT_GE(kfc2_sendskb(a->sock, &header, skb), 0);
        EXPECT_EQ(hex(Bytes(head, head + end)), hex(around));
        EXPECT_EQ(hex(frames_since(fabric.seen.size() - 1).at(0).data), hex(packet));
    }
    EXPECT_EQ(hex(twin::skb_bytes(clone.get())), hex(packet));
    EXPECT_EQ(hex(twin::skb_bytes(holder.get())), hex(packet));
}

TEST_F(Fc2FrameTest, buffers_without_room_and_paged_ones_are_copied)
{
    log_in();
    const Bytes packet = wire::ip_over_fc(0x0800, wire::counting(1001));
    const twin::SkbLayout layouts[] = {
        {.headroom = 59, .tailroom = 12},
        {.headroom = 68, .tailroom = 10}, // 3 fill bytes and 8 more are needed
        {.headroom = 0, .tailroom = 0},
        {.headroom = 68, .tailroom = 12, .linear = 30, .page = 100},
    };
    for (const twin::SkbLayout& layout : layouts) {
        fc2_iuhdr_t header = data_header(10, a_fcid, b_fcid);
        EXPECT_GE(kfc2_sendskb(a->sock, &header, twin::make_skb(packet, layout)), 0);
        const wire::Frame frame = frames_since(fabric.seen.size() - 1).at(0);
        EXPECT_EQ(hex(frame.data), hex(packet));
        EXPECT_EQ(frame.f_ctl, 0x280000u);
        EXPECT_EQ(frame.sof, 0x2E);
        EXPECT_EQ(frame.eof, 0x42);
    }
}

TEST_F(Fc2FrameTest, fill_bytes_make_whole_words_and_do_not_reach_the_receiver)
{
    log_in();
    for (std::size_t extra = 0; extra < 4; ++extra) {
        const Bytes packet = wire::ip_over_fc(0x0800, wire::counting(20 + extra));
        EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
        EXPECT_EQ(fabric.seen.back()[47] & 3, static_cast<int>((4 - extra) % 4));
        fabric.deliver_all();
        const std::vector<Received> units = b->take();
        ASSERT_EQ(units.size(), 1u);
        EXPECT_EQ(hex(units[0].bytes), hex(packet));
    }
}

TEST_F(Fc2FrameTest, the_header_of_a_received_unit_says_what_the_frame_said)
{
    ASSERT_EQ(a->add_nport(0xFFF, a_fcid), 0);
    wire::Frame frame;
    frame.vsan = 0xFFF;
    frame.s_id = station_fcid;
    frame.d_id = a_fcid;
    frame.seq_id = 0x99;
    frame.rx_id = 0x4321;
    frame.param = 0x01020304;
    frame.data = wire::ip_over_fc(0x86DD, wire::counting(40));
    fabric.send(wire::build(frame));
    fabric.deliver_all();
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 1u);
    const fc2_iuhdr_t& header = units[0].header;
    EXPECT_EQ(header.opcode, 1);
    EXPECT_EQ(header.status, 0);
    EXPECT_EQ(header.length, 64);
    EXPECT_EQ(header.vsan, 0xFFF);
    EXPECT_EQ(header.s_id.num, 0x010A1E00u);
    EXPECT_EQ(header.d_id.num, 0x010A0A00u);
    EXPECT_EQ(header.ox_id, 0x1234);
    EXPECT_EQ(header.rx_id, 0x4321);
    EXPECT_EQ(header.type, 5);
    EXPECT_EQ(header.cs, 3);
    EXPECT_EQ(header.seq_id, 0x99);
    EXPECT_EQ(header.r_ctl, 4);
    EXPECT_EQ(header.df_ctl, 0x20);
    EXPECT_EQ(header.f_ctl, 0x280000u);
    EXPECT_EQ(header.param.word, 0x01020304u);
    EXPECT_EQ(units[0].announced, 64);
    EXPECT_EQ(units[0].result, 64);
    EXPECT_TRUE(units[0].in_softirq);
}

// ---- what is not a frame ----

struct BadFrame {
    const char* name;
    void (*spoil)(Bytes& frame);
    bool good_crc;
};

const BadFrame bad_frames[] = {
    {"another ethertype", [](Bytes& f) { f[13] = 0x07; }, true},
    {"an FCoE version to come", [](Bytes& f) { f[14] = 0x10; }, true},
    {"a start of class 2", [](Bytes& f) { f[27] = 0x2D; }, true},
    {"no virtual fabric", [](Bytes& f) { f[28] = 0x04; }, true},
    {"a virtual fabric header to come", [](Bytes& f) { f[29] = 0x40; }, true},
    {"an aborted end", [](Bytes& f) { f[f.size() - 4] = 0x50; }, true},
    {"an invalid end", [](Bytes& f) { f[f.size() - 4] = 0x49; }, true},
    {"a bit of the data turned over", [](Bytes& f) { f[70] ^= 0x10; }, false},
    {"a bit of the header turned over", [](Bytes& f) { f[36] ^= 0x01; }, false},
    {"a bit of the CRC turned over", [](Bytes& f) { f[f.size() - 8] ^= 0x80; }, false},
    {"no source", [](Bytes& f) { f[41] = f[42] = f[43] = 0; }, true},
    {"a broadcast source", [](Bytes& f) { f[41] = f[42] = f[43] = 0xFF; }, true},
    {"fill bytes before the last frame", [](Bytes& f) { f[45] = 0x20, f[47] = 1; }, true},
    {"a length of no whole words", [](Bytes& f) { f.insert(f.end() - 8, 2, 0); }, true},
    {"more data than a frame holds", [](Bytes& f) { f.insert(f.end() - 8, 2112, 0); }, true},
    {"a link control frame", [](Bytes& f) { f[36] = 0xC0; }, true},
    {"a basic link service", [](Bytes& f) { f[36] = 0x81; }, true},
    {"another VSAN", [](Bytes& f) { f[31] ^= 0x02; }, true},
    {"another port", [](Bytes& f) { f[39] ^= 0x02; }, true},
    {"another type", [](Bytes& f) { f[44] = 0x08; }, true},
};

TEST_F(Fc2FrameTest, what_is_not_a_good_frame_for_us_does_not_arrive)
{
    register_both();
    wire::Frame good;
    good.s_id = station_fcid;
    good.d_id = a_fcid;
    good.data = wire::ip_over_fc(0x0800, wire::counting(20));
    for (const BadFrame& row : bad_frames) {
        Bytes bytes = wire::build(good);
        row.spoil(bytes);
        fabric.send(row.good_crc ? wire::with_crc(bytes) : bytes);
        fabric.deliver_all();
        EXPECT_TRUE(a->take().empty()) << row.name;
        EXPECT_TRUE(b->take().empty()) << row.name;
    }
    fabric.send(wire::build(good));
    fabric.deliver_all();
    EXPECT_EQ(a->take().size(), 1u);
}

TEST_F(Fc2FrameTest, frames_cut_short_anywhere_do_not_arrive_and_harm_nothing)
{
    register_both();
    wire::Frame frame;
    frame.s_id = station_fcid;
    frame.d_id = a_fcid;
    frame.data = wire::ip_over_fc(0x0800, wire::counting(20));
    const Bytes whole = wire::build(frame);
    for (std::size_t length = 0; length < whole.size(); ++length)
        fabric.send(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
    fabric.deliver_all();
    EXPECT_TRUE(a->take().empty());
}

TEST_F(Fc2FrameTest, more_fill_bytes_than_data_are_refused)
{
    register_both();
    wire::Frame frame;
    frame.s_id = station_fcid;
    frame.d_id = a_fcid;
    Bytes empty = wire::build(frame);
    empty[47] = 3;
    fabric.send(wire::with_crc(empty));
    fabric.deliver_all();
    EXPECT_TRUE(a->take().empty());
}

// Random bytes where a frame's headers are, CRC and all else good; the seed is fixed.
TEST_F(Fc2FrameTest, frames_with_random_headers_harm_nothing)
{
    register_both();
    std::uint32_t state = 0x2545F491;
    RecordProperty("seed", "0x2545F491");
    const auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };
    for (unsigned i = 0; i < 20000; ++i) {
        wire::Frame frame;
        frame.s_id = station_fcid + next() % 3;
        frame.d_id = next() % 4 == 0 ? broadcast_fcid : a_fcid;
        frame.r_ctl = next() % 2 == 0 ? 0x04 : 0x22 + next() % 2;
        frame.type = next() % 3 == 0 ? 0x01 : 0x05;
        frame.f_ctl = next() & 0xFFFFFC;
        frame.seq_id = next() % 3;
        frame.seq_cnt = static_cast<std::uint16_t>(next() % 4 == 0 ? next() : next() % 5);
        frame.df_ctl = next() % 2 == 0 ? 0x20 : static_cast<std::uint8_t>(next());
        frame.ox_id = next() % 3;
        frame.sof = next() % 2 == 0 ? 0x2E : 0x36;
        frame.eof = next() % 2 == 0 ? 0x41 : 0x42;
        frame.data = wire::counting((next() % 40) * 4, static_cast<std::uint8_t>(next() % 8));
        fabric.send(wire::build(frame));
        fabric.deliver_all();
        if (next() % 64 == 0)
            twin::advance(next() % HZ);
    }
    a->take();
    b->take();
}

} // namespace
