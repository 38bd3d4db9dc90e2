// SPDX-License-Identifier: GPL-2.0-only
// More than one command and more than a pipe: batches, colours, and the watch on a terminal.
#include "tool_setup.h"

#include "ipfcctl/stats_watch.h"
#include "ipfcctl/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace ipfc_test;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kEscape = "\033[";

// ---- batches ----

struct Batch : ToolSetup {
    ProcessResult run_batch(const std::string& text, std::vector<std::string> options = {})
    {
        write_file(directory.file("batch"), text);
        options.insert(options.end(), {"-b", directory.file("batch")});
        return run(options);
    }
    [[nodiscard]] std::string place(int line) const
    {
        return "ipfcctl: " + directory.file("batch") + ":" + std::to_string(line) + ": ";
    }
    [[nodiscard]] std::string record() const { return read_file(directory.file("record")); }
};

TEST_F(Batch, RunsItsLinesInOrder)
{
    const ProcessResult result = run_batch("# a comment\n"
                                           "\n"
                                           "stats clear 3   # a comment behind\n"
                                           "\tip show 10\n"
                                           "ivr show 0x0a0b0c 5");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "vsan10: inet 10.1.2.3\n"
                          "10.1.2.3 wwpn 21:00:00:e0:8b:01:02:03 fcid 0x0a0b0c vsan 5\n");
    EXPECT_TRUE(record().starts_with("4034500a 03000000"));
}

TEST_F(Batch, WritesOneJsonValueALine)
{
    const ProcessResult result = run_batch("ip show 10\nivr list 7\n", {"-j"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out,
              "{\"vsan\":10,\"ifname\":\"vsan10\",\"family\":\"inet\",\"address\":\"10.1.2.3\"}\n"
              "[]\n");
}

TEST_F(Batch, StopsAtTheFirstRefusalAndNamesItsLine)
{
    const ProcessResult result = run_batch("ip show 10\n\nip show 11\nstats clear 3\n");
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "vsan10: inet 10.1.2.3\n");
    EXPECT_EQ(result.err, place(3) + "ip show 11: VSAN does not exist (errno 6, ENXIO)\n");
    EXPECT_THAT(record(), Not(HasSubstr("4034500a")));
}

TEST_F(Batch, StopsAtTheFirstWrongLineAndNamesIt)
{
    const ProcessResult result = run_batch("stats clear 4096\nstats clear 3\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err,
              place(1) +
                  "VSAN \"4096\": the highest VSAN is 4095; see \"ipfcctl stats clear --help\"\n");
    EXPECT_EQ(record(), "");
}

TEST_F(Batch, LinesHaveNoOptionsInFrontOfTheObject)
{
    const ProcessResult result = run_batch("-j ip show 10\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, place(1) + "unknown option \"-j\"; see \"ipfcctl --help\"\n");
}

TEST_F(Batch, HasNoPlaceForAnotherBatchOrAWatch)
{
    EXPECT_EQ(run_batch("-b -\n").exit_code, 1);
    const ProcessResult result = run_batch("stats show --watch\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err,
              place(1) + "--watch has no place in a batch; see \"ipfcctl stats show --help\"\n");
}

TEST_F(Batch, ShowsHelpAndGoesOn)
{
    const ProcessResult result = run_batch("help vsan\nivr list 7\n");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.out, HasSubstr("Usage: ipfcctl vsan "));
    EXPECT_THAT(result.out, HasSubstr("\nADDRESS  WWPN  FCID  VSAN\n"));
}

TEST_F(Batch, ThatCannotBeReadIsWrongUsage)
{
    const ProcessResult none = run({"-b", directory.file("none")});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_EQ(none.err, "ipfcctl: " + directory.file("none") + ": No such file or directory\n");
    const ProcessResult folder = run({"-b", directory.path()});
    EXPECT_EQ(folder.exit_code, 1);
    EXPECT_EQ(folder.err, "ipfcctl: " + directory.path().string() + ": Is a directory\n");
}

TEST_F(Batch, IsReadFromStandardInputToo)
{
    environment["PATH"] = "/usr/bin:/bin";
    const ProcessResult result =
        run_process("/bin/sh",
                    {"-c", std::string("printf 'ip show 10\\nip show\\n' | ") + IPFCCTL_RECORDED +
                               " --batch -"},
                    environment);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "vsan10: inet 10.1.2.3\n");
    EXPECT_EQ(result.err, "ipfcctl: standard input:2: VSAN is required; see \"ipfcctl ip show "
                          "--help\"\n");
}

// ---- a terminal ----

/// The recorded tool on a terminal of its own.
class OnTerminal {
public:
    OnTerminal(const std::vector<std::string>& words,
               const std::map<std::string, std::string>& environment)
    {
        child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            std::vector<char*> arguments{const_cast<char*>(IPFCCTL_RECORDED)};
            for (const std::string& word : words) {
                arguments.push_back(const_cast<char*>(word.c_str()));
            }
            arguments.push_back(nullptr);
            ::clearenv();
            for (const auto& [name, value] : environment) {
                ::setenv(name.c_str(), value.c_str(), 1);
            }
            ::execv(IPFCCTL_RECORDED, arguments.data());
            ::_exit(127);
        }
    }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;
    ~OnTerminal()
    {
        if (child_ > 0) {
            ::kill(child_, SIGKILL);
            ::waitpid(child_, nullptr, 0);
        }
        ::close(terminal_);
    }

    /// Reads until the text has been there that often, or to the end, or a minute without a word.
    std::string read_until(const std::string& text, size_t times)
    {
        while (count(text) < times) {
            pollfd ready{terminal_, POLLIN, 0};
            char piece[4096];
            const ssize_t length =
                ::poll(&ready, 1, 60000) == 1 ? ::read(terminal_, piece, sizeof(piece)) : -1;
            if (length <= 0) {
                break;
            }
            seen_.append(piece, static_cast<size_t>(length));
        }
        return seen_;
    }

    [[nodiscard]] size_t count(const std::string& text) const
    {
        size_t found = 0;
        for (size_t at = seen_.find(text); at != std::string::npos; at = seen_.find(text, at + 1)) {
            ++found;
        }
        return found;
    }

    void send(int signal) const { ::kill(child_, signal); }

    /// The exit code; 1000 and the signal when one ended it.
    int end()
    {
        read_until("\1", 1);
        int status = 0;
        ::waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

private:
    pid_t child_ = -1;
    int terminal_ = -1;
    std::string seen_;
};

struct Terminal : ToolSetup {
    Terminal() { environment["TERM"] = "xterm"; }

    std::string text_of(const std::vector<std::string>& words)
    {
        OnTerminal tool(words, environment);
        const std::string text = tool.read_until("\1", 1);
        EXPECT_EQ(tool.end(), 0);
        return text;
    }
};

TEST_F(Terminal, HasColours)
{
    EXPECT_EQ(text_of({"ivr", "show", "0x0a0b0c", "5"}),
              "\033[34m10.1.2.3\033[0m wwpn \033[33m21:00:00:e0:8b:01:02:03\033[0m fcid "
              "\033[35m0x0a0b0c\033[0m vsan 5\r\n");
}

TEST_F(Terminal, HasNoColoursWhenTheUserWantsNone)
{
    EXPECT_THAT(text_of({"-c", "never", "ivr", "list"}), Not(HasSubstr(kEscape)));
    EXPECT_THAT(text_of({"-j", "ivr", "list"}), Not(HasSubstr(kEscape)));
    environment["NO_COLOR"] = "1";
    EXPECT_THAT(text_of({"ivr", "list"}), Not(HasSubstr(kEscape)));
    EXPECT_THAT(text_of({"--color", "always", "ivr", "list"}), HasSubstr(kEscape));
}

TEST_F(Terminal, HasNoColoursWhenItCanDoNothing)
{
    environment["TERM"] = "dumb";
    EXPECT_THAT(text_of({"ivr", "list"}), Not(HasSubstr(kEscape)));
}

TEST_F(ToolSetup, PipeHasNoColoursUnlessAskedFor)
{
    environment["TERM"] = "xterm";
    EXPECT_THAT(run({"ivr", "list"}).out, Not(HasSubstr(kEscape)));
    EXPECT_THAT(run({"-c", "auto", "ivr", "list"}).out, Not(HasSubstr(kEscape)));
    EXPECT_THAT(run({"-c", "always", "vsan", "list"}).out, HasSubstr("\033[32mup\033[0m"));
    EXPECT_THAT(run({"-c", "always", "-j", "vsan", "list"}).out, Not(HasSubstr(kEscape)));
}

// ---- the watch ----

TEST_F(Terminal, WatchRedrawsUntilItIsInterrupted)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        OnTerminal tool({"-c", "never", "stats", "show", "--watch"}, environment);
        const std::string text = tool.read_until("vsan10", 2);
        EXPECT_TRUE(text.starts_with("\033[H\033[JINTERFACE  RX-PKT/S"));
        EXPECT_EQ(tool.count("\033[H\033[J"), 2u);
        tool.send(signal);
        EXPECT_EQ(tool.end(), 0);
    }
}

TEST_F(ToolSetup, WatchInAPipeClearsNothingAndShowsRates)
{
    const ProcessResult result = run({"-j", "stats", "show", "10", "--watch", "--count", "3"});
    EXPECT_EQ(result.exit_code, 0);
    std::istringstream lines(result.out);
    std::vector<nlohmann::json> values;
    for (std::string line; std::getline(lines, line);) {
        values.push_back(nlohmann::json::parse(line).at(0).at("rates"));
    }
    ASSERT_EQ(values.size(), 3u);
    EXPECT_TRUE(values[0].at("rx_packets").is_null());
    // 500 packets within the second and what a busy machine adds to it.
    EXPECT_GT(values[1].at("rx_packets"), 0);
    EXPECT_LE(values[1].at("rx_packets"), 500);
    EXPECT_EQ(values[1].at("rx_bytes"), 0);
    // The counter went back: nobody knows the rate.
    EXPECT_TRUE(values[1].at("tx_packets").is_null());
    EXPECT_EQ(values[2].at("rx_packets"), 0);
    EXPECT_EQ(values[2].at("tx_packets"), 0);
    EXPECT_THAT(run({"stats", "show", "--watch", "--count", "1"}).out, Not(HasSubstr(kEscape)));
}

TEST(RateBetween, IsTheDifferenceOverTheTime)
{
    using std::chrono::milliseconds;
    EXPECT_EQ(ipfcctl::rate_between(10, 35, milliseconds(500)), 50.0);
    EXPECT_EQ(ipfcctl::rate_between(10, 10, milliseconds(500)), 0.0);
    EXPECT_EQ(ipfcctl::rate_between(0, UINT64_MAX, milliseconds(1000)), 18446744073709551615.0);
    EXPECT_EQ(ipfcctl::rate_between(11, 10, milliseconds(500)), std::nullopt);
    EXPECT_EQ(ipfcctl::rate_between(10, 11, milliseconds(0)), std::nullopt);
}

TEST(Table, AlignsByTheTextAndNotByItsColours)
{
    ipfcctl::Table table({{"A"}, {"NUMBER", ipfcctl::Align::right}, {"C"}}, "  ");
    table.add({{"long", ipfcctl::Style::good}, {"7"}, {"x"}});
    table.add({{""}, {"12345678"}, {""}});
    EXPECT_EQ(table.text(false), "  A       NUMBER  C\n"
                                 "  long         7  x\n"
                                 "        12345678");
    EXPECT_EQ(table.text(true), "  \033[1mA\033[0m       \033[1mNUMBER\033[0m  \033[1mC\033[0m\n"
                                "  \033[32mlong\033[0m         7  x\n"
                                "        12345678");
}

} // namespace
