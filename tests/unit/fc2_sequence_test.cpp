// SPDX-License-Identifier: GPL-2.0-only
// Sequences: exchanges, cutting, putting together again, losses.
#include "support/fc2_rig.h"

#include <algorithm>

namespace {

using twin::Bytes;
using wire::hex;

class Fc2SequenceTest : public Fc2Test {
protected:
    // A sequence of the station's for a, in frames of so many bytes.
    static std::vector<wire::Frame> sequence(std::size_t length, std::size_t frame_data,
                                             std::uint16_t ox_id = 1, std::uint8_t seq_id = 0)
    {
        const Bytes whole = unit(length);
        std::vector<wire::Frame> frames;
        for (std::size_t at = 0; at < whole.size(); at += frame_data) {
            wire::Frame frame;
            frame.s_id = station_fcid;
            frame.d_id = a_fcid;
            frame.ox_id = ox_id;
            frame.seq_id = seq_id;
            frame.seq_cnt = static_cast<std::uint16_t>(at / frame_data);
            const std::size_t end = std::min(at + frame_data, whole.size());
            frame.data.assign(whole.begin() + static_cast<long>(at),
                              whole.begin() + static_cast<long>(end));
            frame.sof = at == 0 ? 0x2E : 0x36;
            frame.df_ctl = at == 0 ? 0x20 : 0;
            frame.f_ctl = end == whole.size() ? 0x280000 : 0x200000;
            frame.eof = end == whole.size() ? 0x42 : 0x41;
            frames.push_back(frame);
        }
        return frames;
    }

    static Bytes unit(std::size_t length)
    {
        return wire::ip_over_fc(0x0800, wire::counting(length - 24));
    }

    void arrive(const wire::Frame& frame)
    {
        fabric.send(wire::build(frame));
        fabric.deliver_all();
    }

    void arrive(const std::vector<wire::Frame>& frames)
    {
        for (const wire::Frame& frame : frames)
            arrive(frame);
    }

    // The lengths of the units that a has received.
    std::vector<std::size_t> lengths()
    {
        std::vector<std::size_t> all;
        for (const Received& received : a->take()) {
            EXPECT_EQ(hex(received.bytes), hex(unit(received.bytes.size())));
            all.push_back(received.bytes.size());
        }
        return all;
    }

    using Lengths = std::vector<std::size_t>;
};

// ---- exchanges ----

TEST_F(Fc2SequenceTest, a_handle_given_again_continues_its_exchange)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    const int first = a->send(10, a_fcid, b_fcid, unit(40));
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(40), first), first);
    const int other = a->send(10, a_fcid, b_fcid, unit(40));
    EXPECT_NE(other, first);
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(40), first), first);
    const std::vector<wire::Frame> frames = frames_since(before);
    ASSERT_EQ(frames.size(), 4u);
    EXPECT_EQ(frames[1].ox_id, frames[0].ox_id);
    EXPECT_EQ(frames[3].ox_id, frames[0].ox_id);
    EXPECT_NE(frames[2].ox_id, frames[0].ox_id);
    EXPECT_EQ(frames[0].f_ctl, 0x280000u);
    EXPECT_EQ(frames[1].f_ctl, 0x080000u);
    EXPECT_EQ(frames[3].f_ctl, 0x080000u);
    EXPECT_EQ(frames[0].seq_id, 0);
    EXPECT_EQ(frames[1].seq_id, 1);
    EXPECT_EQ(frames[3].seq_id, 2);
    EXPECT_EQ(frames[0].rx_id, 0xFFFF);
}

TEST_F(Fc2SequenceTest, the_frame_that_opens_the_exchange_says_so_even_if_it_waited)
{
    register_both();
    const int handle = a->send(10, a_fcid, b_fcid, unit(40));
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(44), handle), handle);
    fabric.deliver_all();
    const std::vector<wire::Frame> frames = frames_since(2);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].data.size(), 40u);
    EXPECT_EQ(frames[0].f_ctl, 0x280000u);
    EXPECT_EQ(frames[1].f_ctl, 0x080000u);
}

TEST_F(Fc2SequenceTest, identifiers_skip_the_one_that_means_none)
{
    log_in();
    {
        irqsave_guard guard(a->stack->lock);
        a->stack->last_handle = 0x7FFEFFFD;
    }
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(40)), 0x7FFEFFFE);
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(40)), 0x7FFF0000);
    {
        irqsave_guard guard(a->stack->lock);
        a->stack->last_handle = 0x7FFFFFFE;
    }
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, unit(40)), 0);
}

// ---- cutting ----

TEST_F(Fc2SequenceTest, a_sequence_of_2112_bytes_is_one_frame_and_a_byte_more_makes_two)
{
    log_in();
    std::size_t before = fabric.seen.size();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, unit(2112)), 0);
    ASSERT_EQ(fabric.seen.size(), before + 1);
    EXPECT_EQ(fabric.seen.back().size(), 2180u);
    EXPECT_EQ(frames_since(before)[0].f_ctl, 0x280000u);

    before = fabric.seen.size();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, unit(2113)), 0);
    const std::vector<wire::Frame> frames = frames_since(before);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].data.size(), 2112u);
    EXPECT_EQ(frames[1].data.size(), 1u);
}

TEST_F(Fc2SequenceTest, the_frames_of_a_sequence_carry_counts_delimiters_and_offsets)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, unit(5000)), 0);
    const std::vector<wire::Frame> frames = frames_since(before);
    ASSERT_EQ(frames.size(), 3u);
    const std::uint8_t sofs[] = {0x2E, 0x36, 0x36};
    const std::uint8_t eofs[] = {0x41, 0x41, 0x42};
    const std::uint8_t df_ctls[] = {0x20, 0x00, 0x00};
    const std::uint32_t f_ctls[] = {0x200008, 0x200008, 0x280008};
    const std::uint32_t offsets[] = {0, 2096, 4208};
    const std::size_t sizes[] = {2112, 2112, 776};
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(frames[i].sof, sofs[i]);
        EXPECT_EQ(frames[i].eof, eofs[i]);
        EXPECT_EQ(frames[i].df_ctl, df_ctls[i]);
        EXPECT_EQ(frames[i].f_ctl, f_ctls[i]);
        EXPECT_EQ(frames[i].param, offsets[i]);
        EXPECT_EQ(frames[i].data.size(), sizes[i]);
        EXPECT_EQ(frames[i].seq_cnt, i);
        EXPECT_EQ(frames[i].seq_id, frames[0].seq_id);
        EXPECT_EQ(frames[i].ox_id, frames[0].ox_id);
    }
}

TEST_F(Fc2SequenceTest, long_sequences_arrive_whole)
{
    log_in();
    for (std::size_t length : {2113u, 4224u, 5000u, 60052u, 65304u}) {
        EXPECT_GE(a->send(10, a_fcid, b_fcid, unit(length)), 0);
        fabric.deliver_all();
        const std::vector<Received> units = b->take();
        ASSERT_EQ(units.size(), 1u);
        EXPECT_EQ(units[0].bytes.size(), length);
        EXPECT_EQ(units[0].announced, static_cast<int>(length));
        EXPECT_EQ(hex(units[0].bytes), hex(unit(length)));
        EXPECT_EQ(units[0].header.df_ctl, 0x20);
        EXPECT_EQ(units[0].header.seq_cnt, 0);
    }
}

TEST_F(Fc2SequenceTest, a_long_broadcast_is_cut_too)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, broadcast_fcid, unit(5000)), 0);
    fabric.deliver_all();
    const std::vector<Received> units = b->take();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].bytes.size(), 5000u);
    EXPECT_EQ(frames_since(0).at(2).f_ctl, 0x380008u);
}

TEST_F(Fc2SequenceTest, frames_fit_a_link_with_a_smaller_mtu)
{
    log_in();
    a->link.mtu = 1500;
    const std::size_t before = fabric.seen.size();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, unit(3000)), 0);
    for (std::size_t i = before; i < fabric.seen.size(); ++i)
        EXPECT_LE(fabric.seen[i].size(), 1514u);
    EXPECT_EQ(frames_since(before).at(0).data.size(), 1444u);
    fabric.deliver_all();
    EXPECT_EQ(b->take().at(0).bytes.size(), 3000u);
}

TEST_F(Fc2SequenceTest, units_of_no_or_too_much_data_are_refused)
{
    register_both();
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, {}), -90);
    EXPECT_EQ(a->send(10, a_fcid, b_fcid, wire::counting(FC2_IU_MAX + 1)), -90);
}

// ---- putting together ----

TEST_F(Fc2SequenceTest, interleaved_sequences_of_many_arrive_each)
{
    register_both();
    std::vector<std::vector<wire::Frame>> all;
    for (std::uint16_t i = 0; i < 20; ++i)
        all.push_back(sequence(4000 + 100 * i, 512, static_cast<std::uint16_t>(i / 2), i % 2));
    for (std::size_t turn = 0; turn < 12; ++turn)
        for (const std::vector<wire::Frame>& one : all)
            if (turn < one.size())
                arrive(one[turn]);
    Lengths found = lengths();
    std::sort(found.begin(), found.end());
    Lengths expected;
    for (unsigned i = 0; i < 20; ++i)
        expected.push_back(4000 + 100 * i);
    EXPECT_EQ(found, expected);
}

TEST_F(Fc2SequenceTest, sequences_with_equal_identifiers_of_different_senders_are_kept_apart)
{
    register_both();
    ASSERT_EQ(a->add_nport(20, a_fcid), 0);
    ASSERT_EQ(a->add_nport(10, 0x0A0A02), 0);
    std::vector<std::vector<wire::Frame>> all(4, sequence(1000, 512));
    for (std::size_t i = 0; i < 2; ++i) {
        all[1][i].s_id = station_fcid + 1;
        all[2][i].vsan = 20;
        all[3][i].d_id = 0x0A0A02;
    }
    for (std::size_t turn = 0; turn < 2; ++turn)
        for (const std::vector<wire::Frame>& one : all)
            arrive(one[turn]);
    EXPECT_EQ(lengths(), Lengths(4, 1000));
}

TEST_F(Fc2SequenceTest, a_lost_frame_discards_its_sequence_and_no_other)
{
    register_both();
    for (std::size_t lost = 0; lost < 4; ++lost) {
        std::vector<wire::Frame> damaged = sequence(2000, 512, 1);
        const std::vector<wire::Frame> sound = sequence(1900, 512, 2);
        damaged.erase(damaged.begin() + static_cast<long>(lost));
        for (std::size_t i = 0; i < 4; ++i) {
            if (i < damaged.size())
                arrive(damaged[i]);
            arrive(sound[i]);
        }
        EXPECT_EQ(lengths(), Lengths{1900}) << lost;
        pass(3 * HZ);
    }
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2SequenceTest, what_waits_for_a_missing_frame_is_given_up_after_two_seconds)
{
    register_both();
    const std::vector<wire::Frame> frames = sequence(1000, 512);
    arrive(frames[0]);
    pass(2 * HZ - HZ / 4);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 1u);
    pass(HZ / 2);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
    arrive(frames[1]);
    EXPECT_EQ(lengths(), Lengths{});
}

TEST_F(Fc2SequenceTest, frames_behind_the_first_may_come_in_any_order)
{
    register_both();
    std::vector<wire::Frame> frames = sequence(2500, 512);
    std::reverse(frames.begin() + 1, frames.end());
    arrive(frames);
    EXPECT_EQ(lengths(), Lengths{2500});
}

TEST_F(Fc2SequenceTest, frames_that_come_twice_do_no_harm)
{
    register_both();
    for (const wire::Frame& frame : sequence(2000, 512)) {
        arrive(frame);
        if ((frame.f_ctl & 0x080000) == 0)
            arrive(frame);
    }
    EXPECT_EQ(lengths(), Lengths{2000});
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2SequenceTest, a_new_sequence_under_the_identifier_of_a_damaged_one_arrives)
{
    register_both();
    std::vector<wire::Frame> damaged = sequence(2000, 512);
    damaged[0].data.back() ^= 1;
    arrive(damaged[0]);
    arrive(damaged[1]);
    arrive(sequence(2000, 512));
    EXPECT_EQ(lengths(), Lengths{2000});
}

TEST_F(Fc2SequenceTest, counts_may_go_on_from_sequence_to_sequence_and_wrap)
{
    register_both();
    std::vector<wire::Frame> frames = sequence(2000, 512);
    for (wire::Frame& frame : frames)
        frame.seq_cnt = static_cast<std::uint16_t>(frame.seq_cnt + 0xFFFE);
    arrive(frames);
    EXPECT_EQ(lengths(), Lengths{2000});
}

TEST_F(Fc2SequenceTest, a_network_header_in_every_frame_is_accepted)
{
    register_both();
    std::vector<wire::Frame> frames = sequence(1000, 512);
    frames[1].df_ctl = 0x20;
    frames[1].data.insert(frames[1].data.begin(), 16, 0x10);
    arrive(frames);
    EXPECT_EQ(lengths(), Lengths{1000});
}

TEST_F(Fc2SequenceTest, frames_that_contradict_each_other_discard_their_sequence)
{
    register_both();
    struct {
        const char* name;
        void (*spoil)(std::vector<wire::Frame>& frames);
    } const rows[] = {
        {"a count behind the last", [](auto& f) { std::swap(f[1], f[3]), f[1].seq_cnt = 2; }},
        {"a second end", [](auto& f) { f[1].f_ctl |= 0x080000, f[2].f_ctl |= 0x080000; }},
        {"a count far away", [](auto& f) { f[2].seq_cnt = 256; }},
        {"a count before the first", [](auto& f) { f[2].seq_cnt = 0xFFFF; }},
        {"a frame without data", [](auto& f) { f[2].data.clear(); }},
        {"a repeated header with nothing behind it",
         [](auto& f) { f[2].df_ctl = 0x20, f[2].data.resize(16); }},
    };
    std::uint16_t ox_id = 0;
    for (const auto& row : rows) {
        std::vector<wire::Frame> frames = sequence(2000, 512, ++ox_id);
        row.spoil(frames);
        arrive(frames);
        for (const Received& received : a->take())
            EXPECT_NE(received.bytes.size(), 2000u) << row.name;
        arrive(sequence(1900, 512, 100));
        EXPECT_EQ(lengths(), Lengths{1900}) << row.name;
    }
}

TEST_F(Fc2SequenceTest, more_than_a_unit_may_hold_is_discarded)
{
    register_both();
    arrive(sequence(2112 * 32, 2112, 1));
    EXPECT_EQ(lengths(), Lengths{});
    arrive(sequence(65304, 2112, 2));
    EXPECT_EQ(lengths(), Lengths{65304});
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2SequenceTest, what_waits_for_missing_frames_is_bounded_and_the_oldest_goes_first)
{
    register_both();
    for (std::uint16_t i = 0; i < 500; ++i)
        arrive(sequence(1000, 512, i)[0]);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), FC2_SEQUENCES_MAX);
    arrive(sequence(1000, 512, 499)[1]);
    arrive(sequence(1000, 512, 0)[1]);
    EXPECT_EQ(lengths(), Lengths{1000});
}

TEST_F(Fc2SequenceTest, the_frames_that_wait_are_bounded_over_all_sequences)
{
    register_both();
    for (std::uint16_t i = 0; i < 40; ++i) {
        std::vector<wire::Frame> frames = sequence(24 + 4 * 240, 4, i);
        frames.pop_back();
        arrive(frames);
    }
    EXPECT_LE(twin::heap().live(twin::Kind::skb), FC2_FRAMES_HELD_MAX);
    EXPECT_GE(twin::heap().live(twin::Kind::skb), FC2_FRAMES_HELD_MAX / 2);
}

TEST_F(Fc2SequenceTest, data_of_a_peer_without_a_login_are_delivered)
{
    register_both();
    arrive(sequence(100, 512));
    EXPECT_EQ(lengths(), Lengths{100});
}

} // namespace
