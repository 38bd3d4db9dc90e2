// SPDX-License-Identifier: GPL-2.0-only
// The tool as a process: wrong lines send nothing and are explained in one line; help is output.
#include "process.h"
#include "temporary_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ipfc_test::ProcessResult;
using testing::HasSubstr;

using Words = std::vector<std::string>;

void print_words(const Words& words, std::ostream* stream)
{
    for (const std::string& word : words) {
        *stream << '[' << word << "] ";
    }
}

struct WrongLine {
    Words words;
    std::string complaint;
};

void PrintTo(const WrongLine& line, std::ostream* stream)
{
    print_words(line.words, stream);
}

struct WrongUsage : testing::TestWithParam<WrongLine> {};

TEST_P(WrongUsage, EndsWithOneAndOneLineAndSendsNothing)
{
    const ipfc_test::TemporaryDirectory directory;
    const ProcessResult result = ipfc_test::run_process(
        IPFCCTL_RECORDED, GetParam().words,
        {{"IPFC_RECORD", directory.file("record")}, {"IPFC_DEVICE", "/dev/null"}});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ipfcctl: " + GetParam().complaint + "\n");
    EXPECT_TRUE(directory.empty());
}

const std::string kSeeRoot = "; see \"ipfcctl --help\"";
const std::string kSeeVsan = "; see \"ipfcctl vsan --help\"";
const std::string kSeeCreate = "; see \"ipfcctl vsan create --help\"";
const std::string kSeeSetFcid = "; see \"ipfcctl vsan set-fcid --help\"";
const std::string kSeeUp = "; see \"ipfcctl vsan up --help\"";
const std::string kName = "10:00:00:00:00:00:00:01";

INSTANTIATE_TEST_SUITE_P(
    Words, WrongUsage,
    testing::Values(
        WrongLine{{}, "an object is missing" + kSeeRoot},
        WrongLine{{"-j"}, "an object is missing" + kSeeRoot},
        WrongLine{{"bogus"}, "unknown object \"bogus\"" + kSeeRoot},
        WrongLine{{""}, "unknown object \"\"" + kSeeRoot},
        WrongLine{{"bogus", "create"}, "unknown object \"bogus\"" + kSeeRoot},
        WrongLine{{"vsa", "up", "1"}, "unknown object \"vsa\"" + kSeeRoot},
        WrongLine{{"VSAN", "up", "1"}, "unknown object \"VSAN\"" + kSeeRoot},
        WrongLine{{"--jso", "headroom"}, "unknown option \"--jso\"" + kSeeRoot},
        WrongLine{{"-x", "headroom"}, "unknown option \"-x\"" + kSeeRoot},
        WrongLine{{"help", "bogus"}, "unknown object \"bogus\"" + kSeeRoot},
        WrongLine{{"vsan"}, "a command is missing" + kSeeVsan},
        WrongLine{{"vsan", "creat", "1"}, "unknown command \"creat\"" + kSeeVsan},
        WrongLine{{"vsan", "rem", "1"}, "unknown command \"rem\"" + kSeeVsan},
        WrongLine{{"vsan", "a\nb"}, "unknown command \"a b\"" + kSeeVsan},
        WrongLine{{"help", "vsan", "bogus"}, "unknown command \"bogus\"" + kSeeVsan},
        WrongLine{{"vsan", "up"}, "VSAN is required" + kSeeUp},
        WrongLine{{"vsan", "up", "1", "2"}, "unexpected argument \"2\"" + kSeeUp},
        WrongLine{{"vsan", "up", "1", "vsan", "up", "2"}, "unexpected argument \"vsan\"" + kSeeUp},
        WrongLine{{"vsan", "up", "1", "-j"}, "option \"-j\" must stand before the object" + kSeeUp},
        WrongLine{{"headroom", "5"}, "unexpected argument \"5\"; see \"ipfcctl headroom --help\""},
        WrongLine{{"cleanup", "10"},
                  "unexpected argument \"10\"; see \"ipfcctl cleanup --help\""}));

INSTANTIATE_TEST_SUITE_P(
    Options, WrongUsage,
    testing::Values(
        WrongLine{{"vsan", "create", "10", "--wwpn", kName}, "--wwnn is required" + kSeeCreate},
        WrongLine{{"vsan", "create", "10", "--wwnn", kName}, "--wwpn is required" + kSeeCreate},
        WrongLine{{"vsan", "create", "--wwpn", kName, "--wwnn", kName},
                  "VSAN is required" + kSeeCreate},
        WrongLine{{"vsan", "create", "10", "--wwp", kName, "--wwnn", kName},
                  "unknown option \"--wwp\"" + kSeeCreate},
        WrongLine{{"vsan", "create", "10", "--wwpn", kName, "--wwpn", kName, "--wwnn", kName},
                  "--wwpn is given more than once" + kSeeCreate},
        WrongLine{{"vsan", "create", "10", "--wwnn", kName, "--wwpn"},
                  "--wwpn: 1 required WWN missing" + kSeeCreate},
        WrongLine{{"vsan", "up", "1", "--wwpn", kName}, "unknown option \"--wwpn\"" + kSeeUp}));

INSTANTIATE_TEST_SUITE_P(
    Values, WrongUsage,
    testing::Values(
        WrongLine{{"vsan", "up", "4096"}, "VSAN \"4096\": the highest VSAN is 4095" + kSeeUp},
        WrongLine{{"vsan", "up", "-1"},
                  "VSAN \"-1\": a VSAN is a decimal number from 0 to 4095" + kSeeUp},
        WrongLine{{"vsan", "up", ""},
                  "VSAN \"\": a VSAN is a decimal number from 0 to 4095" + kSeeUp},
        WrongLine{{"vsan", "create", "10", "--wwpn", "10:00", "--wwnn", kName},
                  "--wwpn \"10:00\": 2 bytes where there must be 8" + kSeeCreate},
        WrongLine{{"vsan", "create", "10", "--wwpn", kName, "--wwnn", "10:00"},
                  "--wwnn \"10:00\": 2 bytes where there must be 8" + kSeeCreate},
        WrongLine{{"vsan", "set-fcid", "10", "10"},
                  "FCID \"10\": an FCID is written 0x0a0b0c or 0a.0b.0c" + kSeeSetFcid},
        WrongLine{{"vsan", "set-fcid", "10", "0x000000"},
                  "FCID \"0x000000\": zero stands for no FCID at all" + kSeeSetFcid},
        WrongLine{{"vsan", "set-fcid", "10", "ff.ff.ff"},
                  "FCID \"ff.ff.ff\": the broadcast address belongs to no port" + kSeeSetFcid},
        WrongLine{{"vsan", "set-fcid", "10", "0x010203", "--ifindex", "eth0"},
                  "--ifindex \"eth0\": an interface index is a decimal number, or 0x and "
                  "hexadecimal digits" +
                      kSeeSetFcid}));

INSTANTIATE_TEST_SUITE_P(
    NewObjects, WrongUsage,
    testing::Values(
        WrongLine{{"exchange"}, "a command is missing; see \"ipfcctl exchange --help\""},
        WrongLine{{"exchange", "list", "4096"},
                  "VSAN \"4096\": the highest VSAN is 4095; see \"ipfcctl exchange list --help\""},
        WrongLine{
            {"exchange", "list", ""},
            "VSAN \"\": a VSAN is a decimal number from 0 to 4095; see \"ipfcctl exchange list "
            "--help\""},
        WrongLine{{"exchange", "show", "10"},
                  "WWPN is required; see \"ipfcctl exchange show --help\""},
        WrongLine{{"exchange", "show", "10", "21:00"},
                  "WWPN \"21:00\": 2 bytes where there must be 8; see \"ipfcctl exchange show "
                  "--help\""},
        WrongLine{{"ivr", "add", "10.1.2.256", kName, "0x0a0b0c", "5"},
                  "IP \"10.1.2.256\": not an IPv4 address; see \"ipfcctl ivr add --help\""},
        WrongLine{{"ivr", "add", "10.1.2.3", kName, "0xffffff", "5"},
                  "FCID \"0xffffff\": the broadcast address belongs to no port; see \"ipfcctl ivr "
                  "add --help\""},
        WrongLine{{"ivr", "add", "10.1.2.3", kName, "0x0a0b0c", "05"},
                  "VSAN \"05\": a VSAN is written without leading zeros; see \"ipfcctl ivr add "
                  "--help\""},
        WrongLine{{"ivr", "delete", "5", "0x0a0b0c"},
                  "FCID \"5\": an FCID is written 0x0a0b0c or 0a.0b.0c; see \"ipfcctl ivr delete "
                  "--help\""},
        WrongLine{{"ip", "set", "10", "10.1.2"},
                  "ADDRESS \"10.1.2\": neither an IPv4 nor an IPv6 address; see \"ipfcctl ip set "
                  "--help\""},
        WrongLine{{"secondary", "add", "10", "10.1.2.3", "01:00:00:00:00:01", "0x0a0b0c"},
                  "MAC \"01:00:00:00:00:01\": a group's MAC names no port; see \"ipfcctl secondary "
                  "add --help\""},
        WrongLine{{"secondary", "add", "10", "10.1.2.3", "00:00:00:00:00:00", "0x0a0b0c"},
                  "MAC \"00:00:00:00:00:00\": a MAC of all zeros names no port; see \"ipfcctl "
                  "secondary add --help\""},
        WrongLine{
            {"secondary", "add", "10", "10.1.2.3", "02:00:00:00:00", "0x0a0b0c"},
            "MAC \"02:00:00:00:00\": 5 bytes where there must be 6; see \"ipfcctl secondary add "
            "--help\""},
        WrongLine{{"debug", "show", "..", "errors"},
                  "MODULE \"..\": not the name of a debug module or element; see \"ipfcctl debug "
                  "show --help\""},
        WrongLine{{"debug", "set", "ipfc", "a/b", "log", "on"},
                  "ELEMENT \"a/b\": not the name of a debug module or element; see \"ipfcctl debug "
                  "set --help\""},
        WrongLine{
            {"debug", "set", "ipfc", "errors", "logs", "on"},
            "SWITCH \"logs\": neither \"history\" nor \"log\"; see \"ipfcctl debug set --help\""},
        WrongLine{{"debug", "set", "ipfc", "errors", "log", "1"},
                  "STATE \"1\": neither \"on\" nor \"off\"; see \"ipfcctl debug set --help\""},
        WrongLine{{"stats", "show", "10", "--watch", "--count", "0"},
                  "--count \"0\": the number of tables is a decimal number above 0; see \"ipfcctl "
                  "stats show --help\""},
        WrongLine{{"stats", "show", "--count", "1"},
                  "--count requires --watch; see \"ipfcctl stats show --help\""},
        WrongLine{{"--color", "sometimes", "headroom"},
                  "--color \"sometimes\": neither \"auto\", \"always\" nor \"never\"" + kSeeRoot},
        WrongLine{{"-b", "-", "headroom"}, "an object cannot stand beside --batch" + kSeeRoot},
        WrongLine{{"-b", ""}, "--batch \"\": the name of a file is empty" + kSeeRoot}));

struct HelpLine {
    Words words;
    std::string usage;
    std::vector<std::string> contents;
};

void PrintTo(const HelpLine& line, std::ostream* stream)
{
    print_words(line.words, stream);
}

struct Help : testing::TestWithParam<HelpLine> {};

TEST_P(Help, GoesToStandardOutputAndIsSuccess)
{
    // No device, no registry that names one: help needs neither.
    const ProcessResult result = ipfc_test::run_process(IPFCCTL, GetParam().words);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("\nUsage: " + GetParam().usage + "\n"));
    for (const std::string& content : GetParam().contents) {
        EXPECT_THAT(result.out, HasSubstr(content));
    }
}

const std::vector<std::string> kRootContents{
    "\n  vsan ",    "\n  exchange ", "\n  stats ",    "\n  ivr ",    "\n  ip ",   "\n  secondary ",
    "\n  debug ",   "\n  cleanup ",  "\n  headroom ", "--json",      "--details", "--color WHEN",
    "--batch FILE", "--device",      "IPFC_DEVICE",   "--proc-root", "IPFC_PROC", "Exit status"};
const std::vector<std::string> kVsanContents{"\n  create ",   "\n  delete ", "\n  set-fcid ",
                                             "\n  rem-fcid ", "\n  up ",     "\n  down ",
                                             "\n  list ",     "\n  show "};
const std::string kRootUsage = "ipfcctl [OPTIONS] [OBJECT [COMMAND] [ARGS]]";
const std::string kVsanUsage = "ipfcctl vsan [OPTIONS] COMMAND [ARGS]";
const std::string kCreateUsage = "ipfcctl vsan create [OPTIONS] VSAN";
const std::vector<std::string> kCreateContents{"--wwpn WWN", "--wwnn WWN", "0 to 4095"};

INSTANTIATE_TEST_SUITE_P(
    EachLevel, Help,
    testing::Values(
        HelpLine{{"--help"}, kRootUsage, kRootContents},
        HelpLine{{"-h"}, kRootUsage, kRootContents}, HelpLine{{"help"}, kRootUsage, kRootContents},
        HelpLine{{"-j", "help"}, kRootUsage, kRootContents},
        HelpLine{{"--device", "help", "help"}, kRootUsage, kRootContents},
        HelpLine{{"vsan", "--help"}, kVsanUsage, kVsanContents},
        HelpLine{{"vsan", "help"}, kVsanUsage, kVsanContents},
        HelpLine{{"help", "vsan"}, kVsanUsage, kVsanContents},
        HelpLine{{"vsan", "create", "--help"}, kCreateUsage, kCreateContents},
        HelpLine{{"vsan", "create", "help"}, kCreateUsage, kCreateContents},
        HelpLine{{"help", "vsan", "create"}, kCreateUsage, kCreateContents},
        HelpLine{{"vsan", "help", "create"}, kCreateUsage, kCreateContents},
        HelpLine{{"vsan", "create", "10", "--help"}, kCreateUsage, kCreateContents},
        HelpLine{{"vsan", "set-fcid", "help"},
                 "ipfcctl vsan set-fcid [OPTIONS] VSAN FCID",
                 {"0x0a0b0c", "--ifindex N"}},
        HelpLine{{"vsan", "delete", "help"}, "ipfcctl vsan delete [OPTIONS] VSAN", {}},
        HelpLine{{"vsan", "rem-fcid", "help"}, "ipfcctl vsan rem-fcid [OPTIONS] VSAN", {}},
        HelpLine{{"vsan", "up", "help"}, "ipfcctl vsan up [OPTIONS] VSAN", {}},
        HelpLine{{"vsan", "down", "help"}, "ipfcctl vsan down [OPTIONS] VSAN", {}},
        HelpLine{{"exchange", "help"},
                 "ipfcctl exchange [OPTIONS] COMMAND [ARGS]",
                 {"\n  list ", "\n  show "}},
        HelpLine{{"stats", "show", "help"},
                 "ipfcctl stats show [OPTIONS] [VSAN]",
                 {"--snmp", "--watch", "--count N"}},
        HelpLine{{"ivr", "add", "help"}, "ipfcctl ivr add [OPTIONS] IP WWPN FCID VSAN", {"IPv4"}},
        HelpLine{{"ip", "set", "help"},
                 "ipfcctl ip set [OPTIONS] VSAN ADDRESS",
                 {"the IP stack is not told"}},
        HelpLine{{"secondary", "add", "help"},
                 "ipfcctl secondary add [OPTIONS] VSAN ADDRESS MAC FCID",
                 {"MAC address"}},
        HelpLine{{"help", "debug", "set"},
                 "ipfcctl debug set [OPTIONS] MODULE ELEMENT SWITCH STATE",
                 {"history"}},
        HelpLine{{"cleanup", "help"}, "ipfcctl cleanup [OPTIONS]", {"Delete every"}},
        HelpLine{{"headroom", "--help"}, "ipfcctl headroom [OPTIONS]", {"bytes"}}));

} // namespace
