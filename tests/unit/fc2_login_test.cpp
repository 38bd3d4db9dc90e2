// SPDX-License-Identifier: GPL-2.0-only
// Logins: PLOGI and its answers, refusal, silence, LOGO.
#include "support/fc2_rig.h"

namespace {

using twin::Bytes;
using wire::hex;

using Fc2LoginTest = Fc2Test;

const Bytes packet = wire::ip_over_fc(0x0800, wire::counting(20));

TEST_F(Fc2LoginTest, a_plogi_with_the_own_parameters_goes_before_the_first_sequence)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
    ASSERT_EQ(fabric.seen.size(), 1u);
    EXPECT_EQ(hex(fabric.seen[0]),
              hex(wire::with_crc(hex("0efc00140a01 0efc000a0a01 8906"
                                     "00000000000000000000000000 2e"
                                     "50000014 ff000000"
                                     "22140a01 000a0a01 01290000 00000000 0001ffff 00000000"
                                     "03000000 2020 0010 8a00 0840 00ff 001f 000007d0"
                                     "20010200000a0a01 1000000000000000"
                                     "00000000000000000000000000000000"
                                     "00000000000000000000000000000000"
                                     "880000000000084000ff000000010000"
                                     "00000000000000000000000000000000"
                                     "00000000000000000000000000000000"
                                     "00000000 42000000"))));
}

TEST_F(Fc2LoginTest, the_peer_accepts_and_the_sequence_that_waited_arrives)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
    fabric.deliver_all();
    const std::vector<Received> units = b->take();
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[0].header.opcode, 0x0402);
    EXPECT_EQ(units[0].bytes.size(), 116u);
    EXPECT_EQ(hex(Bytes(units[0].bytes.begin() + 20, units[0].bytes.begin() + 28)),
              "20010200000a0a01");
    EXPECT_EQ(units[1].header.opcode, 0x0001);
    EXPECT_EQ(hex(units[1].bytes), hex(packet));
    EXPECT_TRUE(a->take().empty());
    const std::vector<wire::Frame> frames = frames_since(0);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1].r_ctl, 0x23);
    EXPECT_EQ(frames[1].f_ctl, 0x980000u);
    EXPECT_EQ(frames[1].ox_id, frames[0].ox_id);
    EXPECT_EQ(frames[1].data.size(), 116u);
    EXPECT_EQ(frames[1].data[0], 0x02);
}

TEST_F(Fc2LoginTest, one_login_serves_later_sequences_of_both_sides)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
    EXPECT_GE(b->send(10, b_fcid, a_fcid, packet), 0);
    for (const wire::Frame& frame : frames_since(before))
        EXPECT_EQ(frame.type, 0x05);
    EXPECT_EQ(fabric.seen.size(), before + 2);
}

TEST_F(Fc2LoginTest, a_missing_port_of_a_switch_is_rejected_by_it_and_sends_are_refused)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, 0x140A77, packet), 0);
    fabric.deliver_all();
    const std::vector<wire::Frame> frames = frames_since(0);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[1].s_id, 0x140A77u);
    EXPECT_EQ(hex(frames[1].data), "0100000000091f00");
    EXPECT_EQ(a->send(10, a_fcid, 0x140A77, packet), -111);
    EXPECT_TRUE(b->take().empty());
    EXPECT_EQ(fabric.seen.size(), 2u);
}

TEST_F(Fc2LoginTest, a_domain_counts_in_its_own_vsan_only)
{
    register_both();
    ASSERT_EQ(a->add_nport(20, a_fcid), 0);
    EXPECT_GE(a->send(20, a_fcid, b_fcid, packet), 0);
    fabric.deliver_all();
    EXPECT_EQ(fabric.seen.size(), 1u);
}

TEST_F(Fc2LoginTest, an_address_that_nobody_answers_for_is_unreachable_after_three_attempts)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    pass(3 * HZ - HZ / 4);
    EXPECT_EQ(fabric.seen.size(), 3u);
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    pass(HZ / 2);
    EXPECT_EQ(a->send(10, a_fcid, station_fcid, packet), -113);
    EXPECT_EQ(fabric.seen.size(), 3u);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2LoginTest, the_hold_on_an_unreachable_peer_ends_and_a_new_attempt_is_made)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    pass(4 * HZ);
    EXPECT_EQ(a->send(10, a_fcid, station_fcid, packet), -113);
    pass(5 * HZ);
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    EXPECT_EQ(fabric.seen.size(), 4u);
}

TEST_F(Fc2LoginTest, the_hold_on_a_refusing_peer_ends_too)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, 0x140A77, packet), 0);
    fabric.deliver_all();
    pass(5 * HZ - HZ / 4);
    EXPECT_EQ(a->send(10, a_fcid, 0x140A77, packet), -111);
    pass(HZ);
    EXPECT_GE(a->send(10, a_fcid, 0x140A77, packet), 0);
}

TEST_F(Fc2LoginTest, a_logo_ends_the_hold_at_once)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, 0x140A77, packet), 0);
    fabric.deliver_all();
    EXPECT_EQ(a->send(10, a_fcid, 0x140A77, packet), -111);
    EXPECT_EQ(a->send_logo(10, a_fcid, 0x140A77), 0);
    EXPECT_GE(a->send(10, a_fcid, 0x140A77, packet), 0);
}

TEST_F(Fc2LoginTest, a_late_answer_to_any_attempt_counts)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    pass(HZ + HZ / 4);
    ASSERT_EQ(fabric.seen.size(), 2u);
    fabric.send(wire::build(els_reply(frames_since(0)[0], station_accept)));
    fabric.deliver_all();
    EXPECT_EQ(hex(frames_since(3).at(0).data), hex(packet));
}

TEST_F(Fc2LoginTest, an_answer_to_nothing_is_ignored)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    wire::Frame answer = els_reply(frames_since(0)[0], station_accept);
    answer.ox_id = static_cast<std::uint16_t>(answer.ox_id + 1);
    fabric.send(wire::build(answer));
    answer.s_id = b_fcid;
    fabric.send(wire::build(answer));
    fabric.deliver_all();
    EXPECT_EQ(fabric.seen.size(), 3u);
}

TEST_F(Fc2LoginTest, an_accept_that_is_too_short_is_no_answer)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    Bytes payload = station_accept;
    payload.resize(112);
    fabric.send(wire::build(els_reply(frames_since(0)[0], payload)));
    fabric.deliver_all();
    EXPECT_EQ(fabric.seen.size(), 2u);
}

TEST_F(Fc2LoginTest, a_foreign_peers_reject_refuses)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    fabric.send(wire::build(els_reply(frames_since(0)[0], station_reject)));
    fabric.deliver_all();
    EXPECT_EQ(a->send(10, a_fcid, station_fcid, packet), -111);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2LoginTest, a_foreign_plogi_is_accepted_delivered_and_serves_our_sequences)
{
    register_both();
    fabric.send(wire::build(els(station_fcid, a_fcid, station_plogi)));
    fabric.deliver_all();
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].header.opcode, 0x0402);
    EXPECT_EQ(units[0].header.vsan, 10);
    EXPECT_EQ(hex(units[0].bytes), hex(station_plogi));
    const wire::Frame answer = frames_since(1).at(0);
    EXPECT_EQ(answer.ox_id, 0x0777);
    EXPECT_EQ(answer.data.at(0), 0x02);
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    EXPECT_EQ(frames_since(2).at(0).type, 0x05);
}

TEST_F(Fc2LoginTest, frames_are_cut_to_the_size_that_the_peer_takes)
{
    register_both();
    fabric.send(wire::build(els(station_fcid, a_fcid, station_plogi)));
    fabric.deliver_all();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, wire::ip_over_fc(0x0800, wire::counting(600))), 0);
    const std::vector<wire::Frame> frames = frames_since(2);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].data.size(), 512u);
    EXPECT_EQ(frames[1].data.size(), 112u);
}

TEST_F(Fc2LoginTest, crossing_plogis_end_in_one_login)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
    EXPECT_GE(b->send(10, b_fcid, a_fcid, packet), 0);
    fabric.deliver_all();
    ASSERT_EQ(a->take().size(), 2u);
    ASSERT_EQ(b->take().size(), 2u);
    const std::size_t before = fabric.seen.size();
    EXPECT_EQ(before, 6u);
    pass(5 * HZ);
    EXPECT_EQ(fabric.seen.size(), before);
}

TEST_F(Fc2LoginTest, a_fresh_plogi_from_a_peer_that_is_logged_in_is_accepted)
{
    log_in();
    b.reset();
    b = std::make_unique<Switch>(fabric);
    fabric.lose_all();
    ASSERT_EQ(b->add_nport(10, b_fcid), 0);
    EXPECT_GE(b->send(10, b_fcid, a_fcid, packet), 0);
    fabric.deliver_all();
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[0].header.opcode, 0x0402);
    EXPECT_EQ(units[1].header.opcode, 0x0001);
}

TEST_F(Fc2LoginTest, a_handle_that_went_with_its_login_opens_a_new_exchange)
{
    log_in();
    const int stale = a->send(10, a_fcid, b_fcid, packet);
    fabric.send(wire::build(els(b_fcid, a_fcid, station_plogi)));
    fabric.deliver_all();
    const int fresh = a->send(10, a_fcid, b_fcid, packet, stale);
    EXPECT_GE(fresh, 0);
    EXPECT_NE(fresh, stale);
    EXPECT_EQ(frames_since(fabric.seen.size() - 1).at(0).f_ctl, 0x280000u);
}

TEST_F(Fc2LoginTest, a_logo_ends_the_login_on_both_sides)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    EXPECT_EQ(a->send_logo(10, a_fcid, b_fcid), 0);
    fabric.deliver_all();
    const std::vector<wire::Frame> frames = frames_since(before);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].r_ctl, 0x22);
    EXPECT_EQ(frames[0].f_ctl, 0x290000u);
    EXPECT_EQ(hex(frames[0].data), "05000000000a0a0120010200000a0a01");
    EXPECT_EQ(hex(frames[1].data), "02000000");
    const std::vector<Received> units = b->take();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].header.opcode, 0x0403);
    EXPECT_EQ(hex(units[0].bytes), "05000000000a0a0120010200000a0a01");
    EXPECT_GE(a->send(10, a_fcid, b_fcid, packet), 0);
    EXPECT_GE(b->send(10, b_fcid, a_fcid, packet), 0);
    for (const wire::Frame& frame : frames_since(before + 2))
        EXPECT_EQ(frame.data.at(0), 0x03) << "each side logs in anew";
}

TEST_F(Fc2LoginTest, a_logo_drops_what_waits_for_the_login)
{
    register_both();
    EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    EXPECT_EQ(a->send_logo(10, a_fcid, station_fcid), 0);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
    pass(5 * HZ);
    EXPECT_EQ(fabric.seen.size(), 2u);
}

TEST_F(Fc2LoginTest, a_logo_needs_an_own_port_and_one_peer)
{
    register_both();
    EXPECT_EQ(a->send_logo(10, b_fcid, a_fcid), -99);
    EXPECT_EQ(a->send_logo(20, a_fcid, b_fcid), -99);
    EXPECT_EQ(a->send_logo(10, a_fcid, broadcast_fcid), -22);
    EXPECT_EQ(a->send_logo(10, a_fcid, 0), -22);
    EXPECT_TRUE(fabric.seen.empty());
}

TEST_F(Fc2LoginTest, removing_a_port_logs_its_peers_out)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    EXPECT_EQ(b->remove_nport(10, b_fcid), 0);
    fabric.deliver_all();
    EXPECT_EQ(frames_since(before).at(0).data.at(0), 0x05);
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].header.opcode, 0x0403);
}

TEST_F(Fc2LoginTest, what_waits_for_a_login_is_bounded)
{
    register_both();
    for (unsigned i = 0; i < FC2_WAITING_PER_PEER; ++i)
        EXPECT_GE(a->send(10, a_fcid, station_fcid, packet), 0);
    EXPECT_EQ(a->send(10, a_fcid, station_fcid, packet), -105);
    const Bytes large = wire::ip_over_fc(0x0800, wire::counting(60000));
    unsigned taken = 0;
    while (a->send(10, a_fcid, station_fcid + 1, large) >= 0)
        ++taken;
    EXPECT_EQ(taken, FC2_WAITING_BYTES_PER_PEER / large.size());
}

struct BadEls {
    const char* name;
    wire::Frame frame;
    const char* answer;
};

TEST_F(Fc2LoginTest, services_that_make_no_sense_are_rejected_and_not_delivered)
{
    register_both();
    Bytes short_plogi = station_plogi;
    short_plogi.resize(112);
    const BadEls rows[] = {
        {"a PLOGI cut short", els(station_fcid, a_fcid, short_plogi), "0100000000070000"},
        {"a LOGO cut short", els(station_fcid, a_fcid, hex("05000000 001e0a01 20000000")),
         "0100000000070000"},
        {"a PLOGI from the port itself", els(a_fcid, a_fcid, station_plogi), "0100000000070000"},
        {"a service nobody has", els(station_fcid, a_fcid, hex("78000000")), "01000000000b2c00"},
        {"a LOGO to a missing port", els(station_fcid, 0x0A0A99, hex("05000000")),
         "0100000000091f00"},
    };
    for (const BadEls& row : rows) {
        const std::size_t before = fabric.seen.size();
        fabric.send(wire::build(row.frame));
        ASSERT_TRUE(fabric.deliver_one());
        twin::advance(1); // a frame to an own port goes by way of the timer
        fabric.lose_all();
        EXPECT_TRUE(a->take().empty()) << row.name;
        if (row.frame.s_id == a_fcid)
            continue; // the answer stays inside the switch
        ASSERT_EQ(fabric.seen.size(), before + 2) << row.name;
        EXPECT_EQ(hex(frames_since(before + 1).at(0).data), row.answer) << row.name;
    }
}

TEST_F(Fc2LoginTest, services_in_pieces_or_without_a_code_get_no_answer)
{
    register_both();
    wire::Frame piece = els(station_fcid, a_fcid, station_plogi);
    piece.f_ctl = 0x210000;
    piece.eof = 0x41;
    wire::Frame later = els(station_fcid, a_fcid, station_plogi);
    later.sof = 0x36;
    for (const wire::Frame& frame : {piece, later, els(station_fcid, a_fcid, {})})
        fabric.send(wire::build(frame));
    fabric.deliver_all();
    EXPECT_EQ(fabric.seen.size(), 3u);
    EXPECT_TRUE(a->take().empty());
}

TEST_F(Fc2LoginTest, two_own_ports_talk_to_each_other_without_the_link)
{
    register_both();
    ASSERT_EQ(a->add_nport(10, 0x0A0A02), 0);
    EXPECT_GE(a->send(10, a_fcid, 0x0A0A02, packet), 0);
    pass(3);
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[0].header.opcode, 0x0402);
    EXPECT_EQ(hex(units[1].bytes), hex(packet));
    EXPECT_TRUE(units[1].in_softirq);
    EXPECT_TRUE(fabric.seen.empty());
}

} // namespace
