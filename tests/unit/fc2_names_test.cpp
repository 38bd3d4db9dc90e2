// SPDX-License-Identifier: GPL-2.0-only
// The fabric's name server: what switches announce, learn and forget.
#include "support/fc2_rig.h"

#include "procfs.h"

#include <set>
#include <string>

namespace {

using twin::Bytes;

constexpr unsigned long second = HZ;

// The switches' ports carry names that end in their FCID.
constexpr const char* a_line = "10 20:01:02:00:00:0a:0a:01 0x0a0a01\n";
constexpr const char* b_line = "10 20:01:02:00:00:14:0a:01 0x140a01\n";

class Fc2NamesTest : public Fc2Test {
protected:
    Fc2NamesTest() { fabric.carries_names = true; }

    static std::set<std::string> names(const Switch& at)
    {
        if (fc2_names_proc_start(at.stack) != 0)
            return {"no report"};
        const std::string text = twin::proc_read("name_server", 4096);
        fc2_names_proc_stop();
        std::set<std::string> lines;
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = text.find('\n', begin) + 1;
            lines.insert(text.substr(begin, end - begin));
            begin = end;
        }
        return lines;
    }

    // A frame of the station to the directory server.
    void say(std::uint32_t from, const Bytes& payload)
    {
        wire::Frame frame;
        frame.s_id = from;
        frame.d_id = 0xFFFFFC;
        frame.r_ctl = 0x02;
        frame.type = 0x20;
        frame.f_ctl = 0x290000;
        frame.df_ctl = 0;
        frame.data = payload;
        fabric.send(wire::build(frame));
        fabric.deliver_all();
    }
};

// 1e.0a.01 has the port name 20:01:02:00:00:1e:0a:01.
const Bytes station_registers = wire::hex("01000000 FC020000 02120000 00000000"
                                          "001E0A01 20010200001E0A01");
const Bytes station_withdraws = wire::hex("01000000 FC020000 03000000 00000000 001E0A01");
constexpr const char* station_line = "10 20:01:02:00:00:1e:0a:01 0x1e0a01\n";

TEST_F(Fc2NamesTest, a_registered_port_is_announced_byte_for_byte)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    const std::vector<wire::Frame> frames = frames_since(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].vsan, 10);
    EXPECT_EQ(frames[0].s_id, a_fcid);
    EXPECT_EQ(frames[0].d_id, 0xFFFFFCu);
    EXPECT_EQ(frames[0].r_ctl, 0x02);
    EXPECT_EQ(frames[0].type, 0x20);
    EXPECT_EQ(frames[0].data, wire::hex("01000000 FC020000 02120000 00000000"
                                        "000A0A01 20010200000A0A01"));
}

TEST_F(Fc2NamesTest, every_switch_knows_the_ports_of_all)
{
    register_both();
    fabric.deliver_all();
    EXPECT_EQ(names(*a), (std::set<std::string>{a_line, b_line}));
    EXPECT_EQ(names(*b), (std::set<std::string>{a_line, b_line}));
}

TEST_F(Fc2NamesTest, a_switch_that_joins_later_learns_of_the_ports_that_were_there)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    fabric.lose_all();
    ASSERT_EQ(b->add_nport(10, b_fcid), 0);
    fabric.deliver_all();
    pass(FC2_TICK + 1);
    EXPECT_EQ(names(*b), (std::set<std::string>{a_line, b_line}));
}

TEST_F(Fc2NamesTest, a_switch_without_a_port_learns_by_the_clock)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    fabric.lose_all();
    EXPECT_TRUE(names(*b).empty());
    pass(6 * second);
    EXPECT_EQ(names(*b), (std::set<std::string>{a_line}));
}

TEST_F(Fc2NamesTest, a_removed_port_leaves_all_switches_at_once)
{
    register_both();
    fabric.deliver_all();
    ASSERT_EQ(a->remove_nport(10, a_fcid), 0);
    fabric.deliver_all();
    EXPECT_EQ(names(*a), (std::set<std::string>{b_line}));
    EXPECT_EQ(names(*b), (std::set<std::string>{b_line}));
}

TEST_F(Fc2NamesTest, a_switch_that_stops_takes_its_ports_along)
{
    register_both();
    fabric.deliver_all();
    a->close();
    fabric.deliver_all();
    EXPECT_EQ(names(*b), (std::set<std::string>{b_line}));
}

TEST_F(Fc2NamesTest, a_switch_that_falls_silent_is_forgotten)
{
    register_both();
    fabric.deliver_all();
    a->link.plugged = false;
    pass(14 * second);
    EXPECT_EQ(names(*b), (std::set<std::string>{a_line, b_line}));
    pass(3 * second);
    EXPECT_EQ(names(*b), (std::set<std::string>{b_line}));
}

TEST_F(Fc2NamesTest, ports_that_go_on_announcing_are_not_forgotten)
{
    register_both();
    pass(60 * second);
    EXPECT_EQ(names(*a), (std::set<std::string>{a_line, b_line}));
    EXPECT_EQ(names(*b), (std::set<std::string>{a_line, b_line}));
}

TEST_F(Fc2NamesTest, a_foreign_switchs_announcements_count)
{
    say(station_fcid, station_registers);
    EXPECT_EQ(names(*a), (std::set<std::string>{station_line}));
    say(station_fcid, station_withdraws);
    EXPECT_TRUE(names(*a).empty());
}

TEST_F(Fc2NamesTest, a_port_that_moves_takes_its_name_along)
{
    say(station_fcid, station_registers);
    say(0x1E0A02, wire::hex("01000000 FC020000 02120000 00000000 001E0A02 20010200001E0A01"));
    EXPECT_EQ(names(*a), (std::set<std::string>{"10 20:01:02:00:00:1e:0a:01 0x1e0a02\n"}));
}

TEST_F(Fc2NamesTest, an_address_has_one_name_the_latest)
{
    say(station_fcid, station_registers);
    say(station_fcid, wire::hex("01000000 FC020000 02120000 00000000 001E0A01 2001020000AABBCC"));
    EXPECT_EQ(names(*a), (std::set<std::string>{"10 20:01:02:00:00:aa:bb:cc 0x1e0a01\n"}));
}

TEST_F(Fc2NamesTest, nobody_takes_a_name_or_an_address_from_the_own_switch)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    say(station_fcid, wire::hex("01000000 FC020000 02120000 00000000 001E0A01 20010200000A0A01"));
    say(a_fcid, wire::hex("01000000 FC020000 02120000 00000000 000A0A01 20010200001E0A01"));
    say(a_fcid, wire::hex("01000000 FC020000 03000000 00000000 000A0A01"));
    EXPECT_EQ(names(*a), (std::set<std::string>{a_line}));
}

TEST_F(Fc2NamesTest, a_port_speaks_for_itself_only)
{
    say(0x1E0A02, station_registers);
    EXPECT_TRUE(names(*a).empty());
    say(station_fcid, station_registers);
    say(0x1E0A02, station_withdraws);
    EXPECT_EQ(names(*a), (std::set<std::string>{station_line}));
}

TEST_F(Fc2NamesTest, commands_cut_short_at_any_length_change_nothing)
{
    for (std::size_t length = 4; length < station_registers.size(); length += 4)
        say(station_fcid, Bytes(station_registers.begin(),
                                station_registers.begin() + static_cast<long>(length)));
    EXPECT_TRUE(names(*a).empty());
    say(station_fcid, {});
    EXPECT_TRUE(names(*a).empty());
}

TEST_F(Fc2NamesTest, other_services_and_commands_change_nothing)
{
    Bytes other = station_registers;
    other[0] = 0x02; // revision
    say(station_fcid, other);
    other = station_registers;
    other[4] = 0xFA; // management service
    say(station_fcid, other);
    other = station_registers;
    other[9] = 0x13; // RNN_ID
    say(station_fcid, other);
    EXPECT_TRUE(names(*a).empty());
}

TEST_F(Fc2NamesTest, vsans_have_names_of_their_own)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    ASSERT_EQ(a->add_nport(20, a_fcid), 0);
    EXPECT_EQ(names(*a), (std::set<std::string>{a_line, "20 20:01:02:00:00:0a:0a:01 0x0a0a01\n"}));
}

TEST_F(Fc2NamesTest, the_version_changes_with_every_change_and_with_nothing_else)
{
    ASSERT_EQ(fc2_names_proc_start(a->stack), 0);
    const unsigned long empty = twin::proc_version("name_server");
    say(station_fcid, station_registers);
    const unsigned long one = twin::proc_version("name_server");
    EXPECT_NE(one, empty);
    say(station_fcid, station_registers);
    EXPECT_EQ(twin::proc_version("name_server"), one);
    say(station_fcid, station_withdraws);
    EXPECT_NE(twin::proc_version("name_server"), one);
    fc2_names_proc_stop();
}

TEST_F(Fc2NamesTest, what_the_wire_can_make_the_table_grow_to_is_bounded)
{
    for (std::uint32_t i = 1; i <= FC2_NAMES_MAX + 10; ++i) {
        Bytes command = station_registers;
        const std::uint32_t fcid = 0x100000 + i;
        for (std::size_t byte = 0; byte < 3; ++byte)
            command[17 + byte] = command[25 + byte] =
                static_cast<std::uint8_t>(fcid >> (16 - 8 * byte));
        say(fcid, command);
    }
    irqsave_guard guard(a->stack->lock);
    EXPECT_EQ(a->stack->names.num, FC2_NAMES_MAX);
}

} // namespace
