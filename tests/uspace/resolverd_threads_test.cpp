// SPDX-License-Identifier: GPL-2.0-only
// What threads do: queries on their own, and the daemon's loop against a driver in memory.
#include "resolverd_driver.h"
#include "resolverd_name_server.h"
#include "temporary_directory.h"

#include "ipfc-resolverd/daemon.h"
#include "ipfc-resolverd/fabric_name_server.h"
#include "ipfc-resolverd/query_runner.h"
#include "ipfc-resolverd/static_table.h"

#include "libipfc/names.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace resolverd {
namespace {

using namespace std::chrono_literals;
using ipfc_test::TemporaryDirectory;
using resolverd_test::fcid;
using resolverd_test::port;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const Port kA = port(10, "20:00:00:00:00:00:00:0a");
const Port kB = port(10, "20:00:00:00:00:00:00:0b");

// Before any thread of the program.
const bool signals_are_blocked = (block_signals(), true);

class QueryRunnerTest : public testing::Test {
protected:
    /// The next results; fails the test when none come.
    std::vector<Result> wait_for_results()
    {
        pollfd file{runner_.fd(), POLLIN, 0};
        EXPECT_EQ(::poll(&file, 1, 60000), 1) << "no result within a minute";
        return runner_.take_results();
    }

    PortResult wait_for_port()
    {
        const std::vector<Result> results = wait_for_results();
        EXPECT_EQ(results.size(), 1u);
        return std::get<PortResult>(results.at(0));
    }

    std::shared_ptr<resolverd_test::FakeNameServer> name_server_ =
        std::make_shared<resolverd_test::FakeNameServer>();
    QueryRunner runner_{name_server_};
};

TEST_F(QueryRunnerTest, BringsWhatTheNameServerKnows)
{
    name_server_->set(kA, fcid("0x0a0101"));
    runner_.ask(kA);
    const PortResult result = wait_for_port();
    EXPECT_EQ(result.port, kA);
    ASSERT_TRUE(result.fcid);
    EXPECT_EQ(ipfc::to_text(*result.fcid), "0x0a0101");
    EXPECT_EQ(result.error, "");
}

TEST_F(QueryRunnerTest, BringsAnErrorInsteadOfAnException)
{
    name_server_->fail_on(kA);
    runner_.ask(kA);
    const PortResult result = wait_for_port();
    EXPECT_FALSE(result.fcid);
    EXPECT_EQ(result.error, "told to fail");
}

TEST_F(QueryRunnerTest, IsNotHeldUpByAQueryThatHangs)
{
    name_server_->hang_on(kA);
    runner_.ask(kA);
    runner_.ask(kB);
    EXPECT_EQ(wait_for_port().port, kB);
    EXPECT_EQ(runner_.running(), 1u);
    name_server_->release();
    EXPECT_EQ(wait_for_port().port, kA);
    EXPECT_EQ(runner_.running(), 0u);
}

TEST_F(QueryRunnerTest, MayGoBeforeAQueryThatHangs)
{
    name_server_->hang_on(kA);
    {
        QueryRunner short_lived(name_server_);
        short_lived.ask(kA);
        while (name_server_->queries() == 0) {
            std::this_thread::yield();
        }
    }
    name_server_->release();
    runner_.ask(kB);
    EXPECT_EQ(wait_for_port().port, kB);
}

TEST_F(QueryRunnerTest, BringsEveryResultOfManyQueriesAtOnce)
{
    constexpr int kMany = 64;
    for (int i = 0; i < kMany; ++i) {
        runner_.ask(port(i, "20:00:00:00:00:00:00:0a"));
    }
    std::set<vsan_id_t> seen;
    while (seen.size() < kMany && !HasFailure()) {
        for (const Result& result : wait_for_results()) {
            EXPECT_TRUE(seen.insert(std::get<PortResult>(result).port.vsan).second);
        }
    }
}

TEST_F(QueryRunnerTest, ReadsTheTableOnlyWhenTheSignalWasRaised)
{
    const auto signal = name_server_->watch();
    name_server_->set(kA, fcid("0x0a0101"));
    runner_.read_table(signal);
    EXPECT_EQ(std::get<TableResult>(wait_for_results().at(0)).table->size(), 1u);
    runner_.read_table(signal);
    EXPECT_EQ(std::get<TableResult>(wait_for_results().at(0)).table, nullptr);
    runner_.read_table(nullptr);
    EXPECT_EQ(std::get<TableResult>(wait_for_results().at(0)).table->size(), 1u);
}

/// The daemon in a thread of its own, the test being driver, name server and administrator.
class DaemonTest : public testing::Test {
protected:
    DaemonTest()
    {
        configuration_.reports = directory_.file("reports");
        configuration_.queries = {60s, 4};
        configuration_.retry_interval = 10ms;
        add_interface("vsan10");
    }

    ~DaemonTest() override
    {
        name_server_->release();
        stop();
    }

    void add_interface(const std::string& name) const
    {
        std::filesystem::create_directories(configuration_.reports);
        ipfc_test::write_file(configuration_.reports + "/" + name, "");
    }
    void remove_interface(const std::string& name) const
    {
        std::filesystem::remove(configuration_.reports + "/" + name);
    }

    void start() { start(name_server_); }
    void start(const std::shared_ptr<NameServer>& name_server)
    {
        const ipfc::FileDescriptor log(
            ::open(log_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        log_fd_ = ::dup(log.get());
        thread_ = std::thread([this, name_server] {
            Log log(log_fd_, Log::Form::plain);
            log.set_threshold(configuration_.log_level);
            Daemon daemon(configuration_, name_server, log,
                          {[this](const std::string&) { return driver_.open(); },
                           [this] { return driver_.current_load(); }});
            daemon.run();
        });
    }
    void start_connected()
    {
        start();
        ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 1; }));
    }
    void order(int signal) { ::kill(::getpid(), signal); }
    void wait_for_end()
    {
        if (thread_.joinable()) {
            thread_.join();
            ::close(log_fd_);
        }
    }
    void stop()
    {
        if (thread_.joinable()) {
            order(SIGTERM);
        }
        wait_for_end();
    }
    bool wait_for_log(const std::string& text)
    {
        return driver_.wait_until(
            [&] { return ipfc_test::read_file(log_path_).find(text) != std::string::npos; });
    }

    TemporaryDirectory directory_;
    std::string log_path_ = directory_.file("log");
    Configuration configuration_;
    resolverd_test::FakeDriver driver_;
    std::shared_ptr<resolverd_test::FakeNameServer> name_server_ =
        std::make_shared<resolverd_test::FakeNameServer>();
    std::thread thread_;
    int log_fd_ = -1;
};

TEST_F(DaemonTest, AnswersARequestThatComesWhileItWaits)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101"));
}

TEST_F(DaemonTest, AnswersRequestsThatWaitedForItsStart)
{
    name_server_->set(kA, fcid("0x0a0101"));
    driver_.send_packet(kA);
    driver_.send_packet(kB);
    start();
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_THAT(driver_.commands(), UnorderedElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                         "not-found 10 20:00:00:00:00:00:00:0b"));
}

TEST_F(DaemonTest, GivesEachOfTenEqualRequestsExactlyOneAnswer)
{
    name_server_->set(kA, fcid("0x0a0101"));
    for (int i = 0; i < 10; ++i) {
        driver_.send_packet(kA);
    }
    start();
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.parked() == 0; }));
    stop();
    EXPECT_EQ(driver_.commands().size(), 10u);
}

TEST_F(DaemonTest, KeepsAnsweringWhileAQueryHangsAndAnswersThatOneNotFound)
{
    configuration_.queries.timeout = 1s;
    name_server_->set(kB, fcid("0x0a0102"));
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    driver_.send_packet(kB);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0b 0x0a0102",
                                                "not-found 10 20:00:00:00:00:00:00:0a"));
}

// A pipe that nobody writes holds up whoever opens it, as a file on a server that is down does.
TEST_F(DaemonTest, KeepsAnsweringWhenTheFabricsFileHoldsUpItsReaders)
{
    const std::string pipe = directory_.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    configuration_.queries.timeout = 100ms;
    start(std::make_shared<FabricNameServer>(pipe));
    driver_.send_packet(kA);
    driver_.send_packet(kB);
    EXPECT_TRUE(driver_.wait_for_commands(2));
    EXPECT_THAT(driver_.commands(), UnorderedElementsAre("not-found 10 20:00:00:00:00:00:00:0a",
                                                         "not-found 10 20:00:00:00:00:00:00:0b"));
    stop();
    const ipfc::FileDescriptor writer(::open(pipe.c_str(), O_RDWR | O_CLOEXEC)); // lets them go
}

TEST_F(DaemonTest, DoesNotAnswerTwiceWhenAHungQueryComesBack)
{
    configuration_.queries.timeout = 1s;
    name_server_->set(kA, fcid("0x0a0101"));
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    name_server_->release();
    order(SIGUSR1);
    ASSERT_TRUE(driver_.wait_until([this] {
        order(SIGUSR1);
        return ipfc_test::read_file(log_path_).find(" late=1 ") != std::string::npos;
    }));
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
}

TEST_F(DaemonTest, AnswersAFailedQueryNotFoundAndGoesOn)
{
    name_server_->set(kB, fcid("0x0a0102"));
    name_server_->fail_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    driver_.send_packet(kB);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a",
                                                "add 10 20:00:00:00:00:00:00:0b 0x0a0102"));
}

TEST_F(DaemonTest, LeavesRequestsUnreadWhileAllItsQueriesAreBusy)
{
    configuration_.queries.running = 2;
    name_server_->hang_on(kA);
    name_server_->hang_on(kB);
    start_connected();
    driver_.send_packet(kA);
    driver_.send_packet(kB);
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.unread() == 0; }));
    driver_.send_packet(port(11, "20:00:00:00:00:00:00:0c"));
    // The loop has gone round with the request waiting.
    order(SIGUSR1);
    ASSERT_TRUE(wait_for_log("requests=2 "));
    EXPECT_EQ(driver_.unread(), 1u);
    name_server_->release();
    EXPECT_TRUE(driver_.wait_for_commands(3));
}

TEST_F(DaemonTest, TellsTheDriverWhenAnAnsweredPortMovesAndWhenItLeaves)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    name_server_->set(kA, fcid("0x0b0101"));
    ASSERT_TRUE(driver_.wait_for_commands(2));
    name_server_->remove(kA);
    ASSERT_TRUE(driver_.wait_for_commands(3));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "update 10 20:00:00:00:00:00:00:0a 0x0b0101",
                                                "delete 10 20:00:00:00:00:00:00:0a"));
}

TEST_F(DaemonTest, CorrectsAnAnswerThatTheTableHadOvertaken)
{
    name_server_->set(kA, fcid("0x0a0101"));
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->queries() == 1; }));
    name_server_->set(kA, fcid("0x0b0101"));
    ASSERT_TRUE(driver_.wait_until([this] {
        order(SIGUSR1);
        return ipfc_test::read_file(log_path_).find("tables=2") != std::string::npos;
    }));
    name_server_->release();
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_THAT(driver_.commands(), ElementsAre("add 10 20:00:00:00:00:00:00:0a 0x0a0101",
                                                "update 10 20:00:00:00:00:00:00:0a 0x0b0101"));
}

TEST_F(DaemonTest, ReadsATableAgainThatCouldNotBeRead)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    name_server_->fail_tables(true);
    name_server_->remove(kA);
    ASSERT_TRUE(wait_for_log("cannot be read, what is in force stays: told to fail"));
    EXPECT_EQ(driver_.commands().size(), 1u);
    name_server_->fail_tables(false);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
}

TEST_F(DaemonTest, SurvivesTheModuleGoingAndComingBack)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    driver_.unload();
    ASSERT_TRUE(wait_for_log("the driver has gone"));
    ASSERT_TRUE(wait_for_log("waiting for the driver"));
    driver_.load();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.parked(), 0u);
}

TEST_F(DaemonTest, SurvivesTheModuleGoingWhileAQueryRuns)
{
    name_server_->set(kA, fcid("0x0a0101"));
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->queries() == 1; }));
    driver_.unload();
    ASSERT_TRUE(wait_for_log("the driver has gone"));
    name_server_->release();
    ASSERT_TRUE(driver_.wait_until([this] {
        order(SIGUSR1);
        return ipfc_test::read_file(log_path_).find("unanswered=1") != std::string::npos;
    }));
    EXPECT_THAT(driver_.commands(), IsEmpty());
}

TEST_F(DaemonTest, WaitsForADriverThatIsNotThereYet)
{
    driver_.unload();
    start();
    ASSERT_TRUE(wait_for_log("waiting for the driver: there is no control device"));
    driver_.load();
    EXPECT_TRUE(driver_.wait_until([this] { return driver_.users() == 1; }));
}

TEST_F(DaemonTest, LetsGoOfTheDeviceWhenTheLastInterfaceGoes)
{
    add_interface("statistics");
    start_connected();
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->watchers() == 1; }));
    remove_interface("vsan10");
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 0; }));
    EXPECT_TRUE(driver_.wait_until([this] { return name_server_->watchers() == 0; }));
    add_interface("vsan11");
    EXPECT_TRUE(driver_.wait_until([this] { return driver_.users() == 1; }));
}

TEST_F(DaemonTest, AnswersWhatWaitsBeforeItLetsGoOfTheDevice)
{
    configuration_.queries.timeout = 1s;
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    remove_interface("vsan10");
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 0; }));
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
}

TEST_F(DaemonTest, ReleasesTheDeviceOnSigusr2UntilTheDriverHasBeenReloaded)
{
    start_connected();
    order(SIGUSR2);
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 0; }));
    ASSERT_TRUE(wait_for_log("the control device is released"));
    // Many looks later it still keeps away.
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(driver_.users(), 0);
    driver_.unload();
    ASSERT_TRUE(wait_for_log("waiting for the driver"));
    driver_.load();
    EXPECT_TRUE(driver_.wait_until([this] { return driver_.users() == 1; }));
}

TEST_F(DaemonTest, FollowsAcrossARelease)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    order(SIGUSR2);
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 0; }));
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->watchers() == 0; }));
    name_server_->remove(kA);
    driver_.unload();
    driver_.load();
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
}

TEST_F(DaemonTest, AnswersWhatWaitsBeforeItStops)
{
    name_server_->set(kA, fcid("0x0a0101"));
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->queries() == 1; }));
    order(SIGTERM);
    driver_.send_packet(kB);
    name_server_->release();
    wait_for_end();
    EXPECT_THAT(driver_.commands(), Contains("add 10 20:00:00:00:00:00:00:0a 0x0a0101"));
    EXPECT_EQ(driver_.unread() + driver_.commands().size() - 1, 1u)
        << "a request is answered or left to the next one, but never lost";
}

TEST_F(DaemonTest, StopsWithinTheTimeOutOfAQueryThatHangs)
{
    configuration_.queries.timeout = 1s;
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->queries() == 1; }));
    order(SIGTERM);
    wait_for_end();
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
}

TEST_F(DaemonTest, StopsAtOnceWhenToldTwice)
{
    name_server_->hang_on(kA);
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_until([this] { return name_server_->queries() == 1; }));
    order(SIGINT);
    order(SIGTERM);
    wait_for_end();
    EXPECT_THAT(driver_.commands(), ElementsAre("not-found 10 20:00:00:00:00:00:00:0a"));
}

TEST_F(DaemonTest, SaysWhatItCountedOnSigusr1AndAtItsEnd)
{
    configuration_.log_level = Level::error;
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    driver_.send_packet(kB);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    order(SIGUSR1);
    const std::string counted =
        "ipfc-resolverd: requests=2 added=1 not_found=1 unanswered=0 timed_out=0 failed=0 "
        "turned_away=0 late=0 no_packet=0 updates=0 deletes=0 refusals=0 tables=";
    EXPECT_TRUE(wait_for_log(counted));
    stop();
    const std::string log = ipfc_test::read_file(log_path_);
    const size_t last_line = log.find_last_of('\n', log.size() - 2) + 1;
    EXPECT_TRUE(log.substr(last_line).starts_with(counted));
    EXPECT_TRUE(log.ends_with(" tables_failed=0 connects=1\n"));
}

TEST_F(DaemonTest, ReadsTheNameServerAnewOnSighup)
{
    name_server_->set(kA, fcid("0x0a0101"));
    start_connected();
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(1));
    ASSERT_TRUE(driver_.wait_until([this] {
        order(SIGHUP);
        order(SIGUSR1);
        return ipfc_test::read_file(log_path_).find("tables=3") != std::string::npos;
    }));
}

class TableDaemonTest : public DaemonTest {
protected:
    TableDaemonTest() { write_table("10 20:00:00:00:00:00:00:0a 0x0a0101\n"); }

    void write_table(const std::string& text)
    {
        ipfc_test::write_file(table_ + ".new", text);
        std::filesystem::rename(table_ + ".new", table_);
    }

    void start_answered()
    {
        start(std::make_shared<StaticTable>(table_));
        driver_.send_packet(kA);
        ASSERT_TRUE(driver_.wait_for_commands(1));
        ASSERT_EQ(driver_.commands().back(), "add 10 20:00:00:00:00:00:00:0a 0x0a0101");
    }

    std::string table_ = directory_.file("ports");
};

TEST_F(TableDaemonTest, FollowsTheFile)
{
    start_answered();
    write_table("10 20:00:00:00:00:00:00:0a 0x0b0101\n");
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.commands().back(), "update 10 20:00:00:00:00:00:00:0a 0x0b0101");
    write_table("");
    ASSERT_TRUE(driver_.wait_for_commands(3));
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
}

TEST_F(TableDaemonTest, RefusesAMalformedTableByFileAndLineAndKeepsTheOneInForce)
{
    start_answered();
    write_table("# ports\n10 20:00:00:00:00:00:00:0a nowhere\n");
    ASSERT_TRUE(wait_for_log(table_ + ":2: FCID \"nowhere\": an FCID is written 0x0a0b0c"));
    driver_.send_packet(kA);
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.commands().back(), "add 10 20:00:00:00:00:00:00:0a 0x0a0101");
    write_table("10 20:00:00:00:00:00:00:0a 0x0c0101\n");
    ASSERT_TRUE(driver_.wait_for_commands(3));
    EXPECT_EQ(driver_.commands().back(), "update 10 20:00:00:00:00:00:00:0a 0x0c0101");
}

TEST_F(TableDaemonTest, TakesUpAfterAReleaseWhatChangedMeanwhile)
{
    start_answered();
    order(SIGUSR2);
    ASSERT_TRUE(driver_.wait_until([this] { return driver_.users() == 0; }));
    write_table("");
    ASSERT_TRUE(wait_for_log("lists 0 ports"));
    driver_.unload();
    driver_.load();
    ASSERT_TRUE(driver_.wait_for_commands(2));
    EXPECT_EQ(driver_.commands().back(), "delete 10 20:00:00:00:00:00:00:0a");
}

} // namespace
} // namespace resolverd
