// SPDX-License-Identifier: GPL-2.0-only
// What the driver is told, and when: requests, results and the time are given by hand.
#include "resolverd_driver.h"

#include "ipfc-resolverd/resolver.h"

#include <gmock/gmock.h>

#include <fcntl.h>

#include <cerrno>

namespace resolverd {
namespace {

using namespace std::chrono_literals;
using resolverd_test::fcid;
using resolverd_test::port;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kAdd = 0x40105003;
constexpr uint32_t kDelete = 0x40105004;
constexpr uint32_t kUpdate = 0x40105005;
constexpr uint32_t kNotFound = 0x40105006;

const Port kA = port(10, "20:00:00:00:00:00:00:0a");
const Port kB = port(10, "20:00:00:00:00:00:00:0b");
const Port kC = port(20, "20:00:00:00:00:00:00:0a");

class ResolverTest : public testing::Test {
protected:
    /// A packet to the port: parked, its request read by the resolver.
    void send_packet(const Port& to)
    {
        driver_.send_packet(to);
        const auto request = device_.read_request();
        ASSERT_TRUE(request);
        resolver_.request(device_, {request->vsan_id, request->ww_portname}, now_);
    }

    void bring(const Port& about, std::optional<fcid_t> where, const std::string& error = {})
    {
        resolver_.finish_query(device_, {about, where, error});
    }

    void bring_table(const PortTable& table)
    {
        resolver_.begin_table();
        resolver_.take_table(device_, table);
    }

    /// The device as if the port's answer had been given long ago.
    void answer(const Port& about, const char* where)
    {
        send_packet(about);
        bring(about, fcid(where));
    }

    void expire_after(std::chrono::milliseconds time)
    {
        now_ += time;
        resolver_.expire(device_, now_);
    }

    Clock::time_point now_{};
    resolverd_test::FakeDriver driver_;
    ipfc::ControlDevice device_ = driver_.open();
    const Log log_{::open("/dev/null", O_WRONLY | O_CLOEXEC), Log::Form::plain};
    Counters counters_;
    std::vector<Port> queries_; ///< started, in order
    Resolver resolver_{
        {2000ms, 3}, [this](const Port& port) { queries_.push_back(port); }, counters_, log_};
};

TEST_F(ResolverTest, AsksTheNameServerForTheRequestedPort)
{
    send_packet(kA);
    EXPECT_THAT(queries_, ElementsAre(kA));
    EXPECT_THAT(driver_.commands(), IsEmpty());
    EXPECT_FALSE(resolver_.idle());
}

TEST_F(ResolverTest, AnswersAKnownPortWithAdd)
{
    send_packet(kA);
    bring(kA, fcid("0x0a0101"));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101"));
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_TRUE(resolver_.idle());
    EXPECT_EQ(counters_.added, 1u);
}

TEST_F(ResolverTest, AnswersAnUnknownPortWithNotFound)
{
    send_packet(kC);
    bring(kC, std::nullopt);
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 20 20:00:00:00:00:00:00:0a"));
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_EQ(counters_.not_found, 1u);
}

TEST_F(ResolverTest, AnswersAFailedQueryWithNotFound)
{
    send_packet(kA);
    bring(kA, std::nullopt, "no such luck");
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
    EXPECT_EQ(counters_.failed, 1u);
}

TEST_F(ResolverTest, AnswersEachOfEqualRequestsOnceFromOneQuery)
{
    send_packet(kA);
    send_packet(kA);
    send_packet(kA);
    EXPECT_EQ(queries_.size(), 1u);
    bring(kA, fcid("0x0a0101"));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "add 10 20:00:00:00:00:00:00:0a 0x0a0101"));
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_EQ(counters_.added, 3u);
}

TEST_F(ResolverTest, AsksAgainForAPortThatHasBeenAnswered)
{
    answer(kA, "0x0a0101");
    send_packet(kA);
    EXPECT_THAT(queries_, ElementsAre(kA, kA));
}

TEST_F(ResolverTest, TakesAnAnswerWithoutAPacketForNormal)
{
    driver_.queue_request(kA);
    ASSERT_TRUE(device_.read_request());
    resolver_.request(device_, kA, now_);
    bring(kA, fcid("0x0a0101"));
    EXPECT_EQ(counters_.added, 1u);
    EXPECT_EQ(counters_.no_packet, 1u);
    EXPECT_EQ(counters_.refusals, 0u);
    // The driver has stored the mapping all the same.
    bring_table({});
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
}

TEST_F(ResolverTest, GivesThePacketUpWhenTheDriverHasNoMemoryForTheMapping)
{
    driver_.refuse_next(kAdd, ENOMEM);
    answer(kA, "0x0a0101");
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "not-found 10 20:00:00:00:00:00:00:0a"));
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_EQ(counters_.added, 0u);
    EXPECT_EQ(counters_.not_found, 1u);
    bring_table({});
    EXPECT_EQ(driver_.commands().size(), 2u) << "the driver has no mapping to take back";
}

TEST_F(ResolverTest, AnswersNotFoundWhenAQueryTakesTooLong)
{
    send_packet(kA);
    send_packet(kA);
    expire_after(1999ms);
    EXPECT_THAT(driver_.commands(), IsEmpty());
    expire_after(1ms);
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a",
                                                "not-found 10 20:00:00:00:00:00:00:0a"));
    EXPECT_EQ(counters_.timed_out, 2u);
    EXPECT_TRUE(resolver_.idle());
}

TEST_F(ResolverTest, DoesNotAnswerAgainWhenTheResultComesLate)
{
    send_packet(kA);
    expire_after(2000ms);
    bring(kA, fcid("0x0a0101"));
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
    EXPECT_EQ(counters_.late, 1u);
    expire_after(2000ms);
    EXPECT_EQ(driver_.commands().size(), 1u);
}

TEST_F(ResolverTest, AnswersOthersWhileOneQueryHangs)
{
    send_packet(kA);
    send_packet(kB);
    bring(kB, fcid("0x0a0102"));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0b 0x0a0102"));
}

TEST_F(ResolverTest, TurnsRequestsAwayWhoseQueryHangsAlready)
{
    send_packet(kA);
    expire_after(2000ms);
    send_packet(kA);
    EXPECT_EQ(queries_.size(), 1u) << "no second thread is lost to the same port";
    EXPECT_EQ(driver_.commands().size(), 2u);
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_EQ(counters_.turned_away, 1u);
}

TEST_F(ResolverTest, AsksAgainOnceTheQueryThatHungIsBack)
{
    send_packet(kA);
    expire_after(2000ms);
    bring(kA, fcid("0x0a0101"));
    send_packet(kA);
    bring(kA, fcid("0x0a0101"));
    EXPECT_EQ(driver_.commands().back(), "add 10 20:00:00:00:00:00:00:0a 0x0a0101");
}

TEST_F(ResolverTest, LeavesRequestsInTheDriverWhileAllQueriesAreBusy)
{
    EXPECT_TRUE(resolver_.has_room());
    send_packet(kA);
    send_packet(kB);
    EXPECT_TRUE(resolver_.has_room());
    send_packet(kC);
    EXPECT_FALSE(resolver_.has_room());
    bring(kB, std::nullopt);
    EXPECT_TRUE(resolver_.has_room());
}

TEST_F(ResolverTest, TurnsRequestsAwayWhenAllQueriesHang)
{
    send_packet(kA);
    send_packet(kB);
    send_packet(kC);
    expire_after(2000ms);
    EXPECT_TRUE(resolver_.has_room());
    const Port other = port(30, "20:00:00:00:00:00:00:0a");
    send_packet(other);
    EXPECT_EQ(queries_.size(), 3u);
    EXPECT_EQ(driver_.commands().back(), "not-found 30 20:00:00:00:00:00:00:0a");
    EXPECT_EQ(driver_.parked(), 0u);
}

TEST_F(ResolverTest, NamesTheNearestDeadline)
{
    EXPECT_FALSE(resolver_.next_deadline());
    const auto start = now_;
    send_packet(kA);
    now_ += 500ms;
    send_packet(kB);
    EXPECT_EQ(resolver_.next_deadline(), start + 2000ms);
    expire_after(1500ms);
    EXPECT_EQ(resolver_.next_deadline(), start + 2500ms);
    expire_after(500ms);
    EXPECT_FALSE(resolver_.next_deadline()) << "a query that hangs has no deadline any more";
}

TEST_F(ResolverTest, UpdatesAPortThatMoves)
{
    answer(kA, "0x0a0101");
    bring_table({{kA, fcid("0x0b0101")}});
    EXPECT_EQ(driver_.commands().back(), "update 10 20:00:00:00:00:00:00:0a 0x0b0101");
    bring_table({{kA, fcid("0x0b0101")}});
    EXPECT_EQ(driver_.commands().size(), 2u) << "once for each move";
    EXPECT_EQ(counters_.updates, 1u);
}

TEST_F(ResolverTest, DeletesAPortThatLeaves)
{
    answer(kA, "0x0a0101");
    answer(kC, "0x140101");
    bring_table({{kC, fcid("0x140101")}});
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
    bring_table({{kC, fcid("0x140101")}});
    EXPECT_EQ(driver_.commands().size(), 3u) << "once for each departure";
    EXPECT_EQ(counters_.deletes, 1u);
}

TEST_F(ResolverTest, FollowsAPortUnderTheNameByWhichItWasAskedFor)
{
    const Port asked = port(10, "10:00:02:00:00:00:00:01");
    const Port known = port(10, "20:0a:02:00:00:00:00:01");
    answer(asked, "0x0a0101");
    bring_table({{known, fcid("0x0a0101")}});
    EXPECT_EQ(driver_.commands().size(), 1u);
    bring_table({{known, fcid("0x0b0101")}});
    bring_table({});
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 10:00:02:00:00:00:00:01 0x0a0101",
                                                "update 10 10:00:02:00:00:00:00:01 0x0b0101",
                                                "delete 10 10:00:02:00:00:00:00:01"));
}

TEST_F(ResolverTest, SaysNothingOfPortsThatNobodyAskedFor)
{
    bring_table({{kA, fcid("0x0a0101")}});
    bring_table({});
    send_packet(kB);
    bring(kB, std::nullopt);
    bring_table({{kB, fcid("0x0a0102")}});
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0b"));
}

TEST_F(ResolverTest, AnswersAnewAPortThatLeftAndCameBack)
{
    answer(kA, "0x0a0101");
    bring_table({});
    answer(kA, "0x0c0101");
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "delete 10 20:00:00:00:00:00:00:0a",
                                                "add 10 20:00:00:00:00:00:00:0a 0x0c0101"));
}

TEST_F(ResolverTest, GoesOnWhenTheDriverRefusesAnUpdateOrADelete)
{
    answer(kA, "0x0a0101");
    driver_.refuse_next(kUpdate, ENXIO);
    bring_table({{kA, fcid("0x0b0101")}});
    driver_.refuse_next(kDelete, ENXIO);
    bring_table({});
    EXPECT_EQ(counters_.updates, 0u);
    EXPECT_EQ(counters_.deletes, 0u);
    EXPECT_EQ(counters_.refusals, 2u);
}

TEST_F(ResolverTest, DoesNotBelieveATableThatMayBeOlderThanAnAnswer)
{
    resolver_.begin_table();
    answer(kA, "0x0a0101");
    resolver_.take_table(device_, {});
    EXPECT_EQ(driver_.commands().size(), 1u);
    EXPECT_TRUE(resolver_.table_is_due());
    bring_table({});
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
    EXPECT_FALSE(resolver_.table_is_due());
}

TEST_F(ResolverTest, ReadsTheTableAgainWhenAQueryMayBeOlderThanIt)
{
    send_packet(kA);
    bring_table({{kA, fcid("0x0b0101")}});
    bring(kA, fcid("0x0a0101"));
    EXPECT_TRUE(resolver_.table_is_due());
    bring_table({{kA, fcid("0x0b0101")}});
    EXPECT_EQ(driver_.commands().back(), "update 10 20:00:00:00:00:00:00:0a 0x0b0101");
}

TEST_F(ResolverTest, GivesUpWhatWaitsWhenItIsToStop)
{
    send_packet(kA);
    send_packet(kA);
    send_packet(kB);
    resolver_.give_up(device_);
    EXPECT_EQ(driver_.parked(), 0u);
    EXPECT_TRUE(resolver_.idle());
    bring(kA, fcid("0x0a0101"));
    EXPECT_EQ(driver_.commands().size(), 3u);
}

TEST_F(ResolverTest, AnswersNothingThatHasGoneWithTheDriver)
{
    send_packet(kA);
    resolver_.drop_requests();
    EXPECT_TRUE(resolver_.idle());
    resolver_.finish_query({kA, fcid("0x0a0101"), {}});
    expire_after(2000ms);
    EXPECT_THAT(driver_.commands(), IsEmpty());
    EXPECT_EQ(counters_.unanswered, 1u);
}

TEST_F(ResolverTest, JoinsAQueryThatOutlivedTheDriver)
{
    send_packet(kA);
    resolver_.drop_requests();
    send_packet(kA);
    EXPECT_EQ(queries_.size(), 1u);
    bring(kA, fcid("0x0a0101"));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101"));
}

TEST_F(ResolverTest, TakesNothingBackFromADriverThatHasForgotten)
{
    answer(kA, "0x0a0101");
    resolver_.forget_answers();
    bring_table({});
    EXPECT_EQ(driver_.commands().size(), 1u);
}

TEST_F(ResolverTest, PassesOnThatTheDeviceIsGoneAndCountsWhatWasLost)
{
    send_packet(kA);
    send_packet(kA);
    driver_.refuse_next(kAdd, ENODEV);
    EXPECT_THROW(bring(kA, fcid("0x0a0101")), ipfc::DeviceError);
    EXPECT_EQ(counters_.unanswered, 2u);
    EXPECT_EQ(counters_.added, 0u);
}

TEST_F(ResolverTest, CountsEveryRequestUnderExactlyOneEnd)
{
    answer(kA, "0x0a0101");
    send_packet(kB);
    bring(kB, std::nullopt);
    driver_.refuse_next(kNotFound, EINVAL);
    send_packet(kB);
    bring(kB, std::nullopt);
    send_packet(kC);
    expire_after(2000ms);
    send_packet(kC);
    EXPECT_EQ(counters_.requests, 5u);
    EXPECT_EQ(counters_.added, 1u);
    EXPECT_EQ(counters_.not_found, 3u);
    EXPECT_EQ(counters_.unanswered, 1u);
}

} // namespace
} // namespace resolverd
