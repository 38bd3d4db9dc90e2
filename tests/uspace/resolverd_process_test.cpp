// SPDX-License-Identifier: GPL-2.0-only
// The program as the administrator and systemd see it. There is no driver on this computer, which
// is one of the things that it has to bear.
#include "process.h"
#include "temporary_directory.h"

#include "libipfc/file_descriptor.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

namespace ipfc_test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kTable = "10 20:00:00:00:00:00:00:0a 0x0a0101\n";

/// The program while it runs.
class Running {
public:
    Running(const std::vector<std::string>& arguments, std::vector<std::string> environment,
            const std::string& log)
    {
        std::vector<std::string> words{RESOLVERD};
        words.insert(words.end(), arguments.begin(), arguments.end());
        pid_ = ::fork();
        if (pid_ == 0) {
            become(words, environment, log);
        }
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }

    void order(int signal) const { ::kill(pid_, signal); }

    /// The exit status; -1 when a signal ended it or a minute has not.
    int wait_for_end()
    {
        const auto limit = std::chrono::steady_clock::now() + 60s;
        int status = 0;
        while (::waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > limit) {
                return -1;
            }
            std::this_thread::sleep_for(5ms);
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    [[noreturn]] static void become(std::vector<std::string>& words,
                                    std::vector<std::string>& environment, const std::string& log)
    {
        const auto pointers = [](std::vector<std::string>& texts) {
            std::vector<char*> result;
            result.reserve(texts.size() + 1);
            for (std::string& text : texts) {
                result.push_back(text.data());
            }
            result.push_back(nullptr);
            return result;
        };
        const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(file, STDERR_FILENO);
        ::close(file);
        ::execve(RESOLVERD, pointers(words).data(), pointers(environment).data());
        ::_exit(127);
    }

    pid_t pid_ = -1;
};

/// systemd's end of the notification socket.
class NotifySocket {
public:
    explicit NotifySocket(std::string path) : path_(std::move(path))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
        if (::bind(file_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("no notification socket");
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    /// The next message that begins with the text; empty when none comes within a minute.
    std::string wait_for(const std::string& start)
    {
        pollfd file{file_.get(), POLLIN, 0};
        while (::poll(&file, 1, 60000) == 1) {
            char text[4096];
            const ssize_t size = ::recv(file_.get(), text, sizeof(text), 0);
            std::string message(text, size > 0 ? static_cast<size_t>(size) : 0);
            if (message.starts_with(start)) {
                return message;
            }
        }
        return {};
    }

private:
    std::string path_;
    ipfc::FileDescriptor file_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

class ResolverdProcess : public testing::Test {
protected:
    ResolverdProcess()
    {
        write_file(directory_.file("ports"), kTable);
        configure("back-end = table\n"
                  "table = " +
                  directory_.file("ports") +
                  "\n"
                  "device = " +
                  directory_.file("no-device") +
                  "\n"
                  "retry-interval-ms = 10\n");
    }

    void configure(const std::string& text) { write_file(directory_.file("conf"), text); }
    [[nodiscard]] std::vector<std::string> with_configuration() const
    {
        return {"--config", directory_.file("conf")};
    }
    ProcessResult check()
    {
        return run_process(RESOLVERD, {"--config", directory_.file("conf"), "--check"});
    }

    [[nodiscard]] std::string log() const { return read_file(directory_.file("log")); }
    [[nodiscard]] bool wait_for_log(const std::string& text) const
    {
        const auto limit = std::chrono::steady_clock::now() + 60s;
        while (log().find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::sleep_for(5ms);
        }
        return true;
    }

    TemporaryDirectory directory_;
};

TEST_F(ResolverdProcess, ShowsItsHelp)
{
    const ProcessResult result = run_process(RESOLVERD, {"--help"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("--config FILE"), HasSubstr("--check"), HasSubstr("SIGUSR1")));
    EXPECT_EQ(result.err, "");
}

TEST_F(ResolverdProcess, RefusesUnknownWordsInOneLine)
{
    const ProcessResult result = run_process(RESOLVERD, {"--daemonise"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("--daemonise"), EndsWith("; see \"ipfc-resolverd --help\"\n")));
}

TEST_F(ResolverdProcess, ChecksAConfigurationInOrder)
{
    const ProcessResult result = check();
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "ipfc-resolverd: the configuration is in order, asking the table " +
                              directory_.file("ports") + "\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(ResolverdProcess, CheckNamesFileLineAndReasonOfAMalformedConfiguration)
{
    configure("# mine\nback-end = oracle\n");
    const ProcessResult result = check();
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, "ipfc-resolverd: error: " + directory_.file("conf") +
                              ":2: \"oracle\" is none of fabric, table\n");
}

TEST_F(ResolverdProcess, CheckNamesFileLineAndReasonOfAMalformedTable)
{
    write_file(directory_.file("ports"), std::string(kTable) + "10 x 0x0a0102\n");
    const ProcessResult result = check();
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, StartsWith("ipfc-resolverd: error: " + directory_.file("ports") +
                                       ":2: port name \"x\": "));
}

TEST_F(ResolverdProcess, DoesNotStartWithAMalformedTable)
{
    write_file(directory_.file("ports"), "nonsense\n");
    const ProcessResult result = run_process(RESOLVERD, with_configuration());
    EXPECT_EQ(result.exit_code, 1);
}

TEST_F(ResolverdProcess, RefusesAConfigurationFileThatIsMissing)
{
    const ProcessResult result =
        run_process(RESOLVERD, {"--check", "--config", directory_.file("none")});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, "ipfc-resolverd: error: " + directory_.file("none") +
                              ": No such file or directory\n");
}

TEST_F(ResolverdProcess, WaitsWithoutADriverAndStopsCleanlyOnSigterm)
{
    Running program(with_configuration(), {}, directory_.file("log"));
    ASSERT_TRUE(wait_for_log("ipfc-resolverd: waiting for the driver: "));
    program.order(SIGTERM);
    EXPECT_EQ(program.wait_for_end(), 0);
    EXPECT_THAT(log(), HasSubstr("ipfc-resolverd: requests=0 added=0 "));
}

TEST_F(ResolverdProcess, SaysWhatItCountedOnSigusr1)
{
    Running program(with_configuration(), {}, directory_.file("log"));
    ASSERT_TRUE(wait_for_log("lists 1 port\n"));
    program.order(SIGUSR1);
    EXPECT_TRUE(wait_for_log(" tables=1 tables_failed=0 connects=0\n"));
    program.order(SIGTERM);
    EXPECT_EQ(program.wait_for_end(), 0);
}

TEST_F(ResolverdProcess, RefusesAMalformedTableWhileItRunsAndGoesOn)
{
    Running program(with_configuration(), {}, directory_.file("log"));
    ASSERT_TRUE(wait_for_log("lists 1 port\n"));
    write_file(directory_.file("new"), "10 20:00:00:00:00:00:00:0a\n");
    std::filesystem::rename(directory_.file("new"), directory_.file("ports"));
    EXPECT_TRUE(wait_for_log("ipfc-resolverd: warning: the table " + directory_.file("ports") +
                             " cannot be read, what is in force stays: " +
                             directory_.file("ports") + ":1: 2 words where there must be three"));
    program.order(SIGTERM);
    EXPECT_EQ(program.wait_for_end(), 0);
}

TEST_F(ResolverdProcess, TellsSystemdThatItIsReadyAndThatItStops)
{
    NotifySocket systemd(directory_.file("notify"));
    Running program(with_configuration(), {"NOTIFY_SOCKET=" + systemd.path()},
                    directory_.file("log"));
    EXPECT_EQ(systemd.wait_for("READY=1"), "READY=1\nSTATUS=waiting for the driver");
    program.order(SIGTERM);
    EXPECT_THAT(systemd.wait_for("STOPPING=1"), StartsWith("STOPPING=1"));
    EXPECT_EQ(program.wait_for_end(), 0);
}

TEST_F(ResolverdProcess, TellsSystemdOfAReload)
{
    NotifySocket systemd(directory_.file("notify"));
    Running program(with_configuration(), {"NOTIFY_SOCKET=" + systemd.path()},
                    directory_.file("log"));
    ASSERT_NE(systemd.wait_for("READY=1"), "");
    program.order(SIGHUP);
    EXPECT_EQ(systemd.wait_for("RELOADING=1"), "RELOADING=1");
    EXPECT_THAT(systemd.wait_for("READY=1"), StartsWith("READY=1"));
}

TEST_F(ResolverdProcess, FeedsTheWatchdog)
{
    NotifySocket systemd(directory_.file("notify"));
    Running program(with_configuration(),
                    {"NOTIFY_SOCKET=" + systemd.path(), "WATCHDOG_USEC=100000"},
                    directory_.file("log"));
    for (int i = 0; i < 5; ++i) {
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(systemd.wait_for("WATCHDOG=1"), "WATCHDOG=1");
        EXPECT_LT(std::chrono::steady_clock::now() - before, 30s);
    }
}

TEST_F(ResolverdProcess, WritesLevelsWhenTheJournalReads)
{
    write_file(directory_.file("log"), "");
    struct stat status {};
    ASSERT_EQ(::stat(directory_.file("log").c_str(), &status), 0);
    Running program(
        with_configuration(),
        {"JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)},
        directory_.file("log"));
    EXPECT_TRUE(wait_for_log("<5>waiting for the driver: "));
    EXPECT_THAT(log(), StartsWith("<6>asking the table "));
}

TEST_F(ResolverdProcess, WritesNoLevelsWhenTheJournalReadsSomethingElse)
{
    Running program(with_configuration(), {"JOURNAL_STREAM=1:2"}, directory_.file("log"));
    ASSERT_TRUE(wait_for_log("waiting for the driver"));
    EXPECT_THAT(log(), StartsWith("ipfc-resolverd: asking the table "));
}

} // namespace
} // namespace ipfc_test
