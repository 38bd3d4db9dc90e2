// SPDX-License-Identifier: GPL-2.0-only
// The stack when memory is short: nothing leaks, nothing hangs, and it goes on when there is some.
#include "support/fc2_rig.h"
#include "support/out_of_memory.h"

namespace {

using twin::Bytes;

class Fc2MemoryTest : public ::testing::Test {
protected:
    static void traffic()
    {
        twin::Fabric fabric;
        Switch a(fabric);
        Switch b(fabric);
        if (a.sock == nullptr || b.sock == nullptr)
            return;
        a.add_nport(10, a_fcid);
        b.add_nport(10, b_fcid);
        const Bytes small = wire::ip_over_fc(0x0800, wire::counting(20));
        const Bytes large = wire::ip_over_fc(0x0800, wire::counting(5000));
        for (const Bytes& packet : {small, large, small}) {
            a.send(10, a_fcid, b_fcid, packet);
            a.send(10, a_fcid, station_fcid, packet);
            a.send(10, a_fcid, broadcast_fcid, packet);
            fabric.deliver_all();
            twin::advance(HZ / 2);
        }
        b.send(10, b_fcid, a_fcid, large);
        fabric.deliver_all();
        a.send_logo(10, a_fcid, b_fcid);
        fabric.deliver_all();
    }
};

TEST_F(Fc2MemoryTest, any_allocation_may_fail)
{
    const OutOfMemoryRuns runs = survive_out_of_memory(traffic);
    EXPECT_GE(runs.allocations, 40u);
}

TEST_F(Fc2MemoryTest, a_plogi_that_memory_did_not_allow_is_made_up_for)
{
    twin::reset();
    {
        twin::Fabric fabric;
        fabric.carries_names = false;
        Switch a(fabric);
        Switch b(fabric);
        ASSERT_EQ(a.add_nport(10, a_fcid), 0);
        ASSERT_EQ(b.add_nport(10, b_fcid), 0);
        twin::heap().fail_nth(twin::Kind::skb, 1);
        EXPECT_GE(a.send(10, a_fcid, b_fcid, wire::ip_over_fc(0x0800, wire::counting(20))), 0);
        twin::heap().never_fail();
        EXPECT_TRUE(fabric.seen.empty());
        for (unsigned i = 0; i < 2 * HZ; ++i) {
            twin::advance(1);
            fabric.deliver_all();
        }
        EXPECT_EQ(b.take().size(), 2u);
    }
    EXPECT_TRUE(twin::audit().empty());
    twin::reset();
}

} // namespace
