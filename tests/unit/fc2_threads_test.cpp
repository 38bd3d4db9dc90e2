// SPDX-License-Identifier: GPL-2.0-only
// The stack with several processors at work in it at once; of use under ThreadSanitizer above all.
#include "support/fc2_rig.h"

#include <atomic>
#include <thread>

namespace {

using twin::Bytes;

class Fc2ThreadsTest : public Fc2Test {
protected:
    // A frame arrives at a, on the calling thread.
    void arrive(const wire::Frame& frame)
    {
        twin::SoftirqScope scope;
        fc2_link_receive(a->stack, twin::make_skb(wire::build(frame)));
    }

    static wire::Frame data(std::uint32_t s_id, std::size_t length)
    {
        wire::Frame frame;
        frame.s_id = s_id;
        frame.d_id = a_fcid;
        frame.data = wire::ip_over_fc(0x0800, wire::counting(length - 24));
        return frame;
    }

    // A sequence of two frames; the second one is left out now and then.
    void arrive_in_two(std::uint16_t number)
    {
        wire::Frame first = data(station_fcid + 1, 512);
        wire::Frame second = first;
        first.ox_id = second.ox_id = number;
        first.f_ctl = 0x200000;
        first.eof = 0x41;
        second.sof = 0x36;
        second.df_ctl = 0;
        second.seq_cnt = 1;
        arrive(first);
        if (number % 7 != 0)
            arrive(second);
    }
};

TEST_F(Fc2ThreadsTest, receiving_sending_and_registering_go_on_side_by_side)
{
    constexpr std::uint16_t rounds = 200;
    register_both();
    std::thread one([this] {
        for (std::uint16_t i = 0; i < rounds; ++i)
            arrive(data(station_fcid, 100));
    });
    std::thread two([this] {
        for (std::uint16_t i = 0; i < rounds; ++i)
            arrive_in_two(i);
    });
    std::thread logins([this] {
        for (std::uint16_t i = 0; i < rounds; ++i) {
            arrive(els(station_fcid, a_fcid, station_plogi));
            a->send(10, a_fcid, station_fcid, wire::ip_over_fc(0x0800, wire::counting(3000)));
            if (i % 5 == 0)
                a->send_logo(10, a_fcid, station_fcid);
        }
    });
    std::thread ports([this] {
        for (std::uint16_t i = 0; i < rounds; ++i) {
            EXPECT_EQ(a->add_nport(10, 0x0A0A02), 0);
            a->send(10, 0x0A0A02, station_fcid, wire::ip_over_fc(0x0800, wire::counting(30)));
            EXPECT_EQ(a->remove_nport(10, 0x0A0A02), 0);
        }
    });
    for (unsigned i = 0; i < 5 * HZ; ++i)
        twin::advance(1);
    for (std::thread* thread : {&one, &two, &logins, &ports})
        thread->join();
    fabric.lose_all();
    std::size_t singles = 0;
    std::size_t logins_seen = 0;
    for (const Received& received : a->take()) {
        EXPECT_EQ(received.announced, received.result);
        singles += received.bytes.size() == 100;
        logins_seen += received.header.opcode == 0x0402;
    }
    EXPECT_EQ(singles, rounds);
    EXPECT_EQ(logins_seen, rounds);
}

TEST_F(Fc2ThreadsTest, no_data_ready_runs_once_close_has_returned)
{
    for (unsigned round = 0; round < 20; ++round) {
        auto own = std::make_unique<Switch>(fabric);
        ASSERT_EQ(own->add_nport(10, a_fcid), 0);
        std::atomic<bool> arriving = false;
        std::thread thread([&] {
            for (unsigned i = 0; i < 200; ++i) {
                twin::SoftirqScope scope;
                fc2_link_receive(own->stack, twin::make_skb(wire::build(data(station_fcid, 60))));
                arriving = true;
            }
        });
        while (!arriving)
            std::this_thread::yield();
        own->close();
        const std::size_t until_then = own->take().size();
        EXPECT_GE(until_then, 1u);
        thread.join();
        EXPECT_TRUE(own->take().empty());
        fabric.lose_all();
    }
}

} // namespace
