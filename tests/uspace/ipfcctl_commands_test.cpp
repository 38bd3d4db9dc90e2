// SPDX-License-Identifier: GPL-2.0-only
// The tool as a process: which command each line sends, and what it makes of the result.
#include "process.h"
#include "temporary_directory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <vector>

namespace {

using ipfc_test::ProcessResult;
using ipfc_test::TemporaryDirectory;

const std::string kZeros20(40, '0'); // an address that is not set, in hexadecimal digits

struct Ipfcctl : testing::Test {
    ProcessResult run(const std::vector<std::string>& words)
    {
        environment["IPFC_RECORD"] = directory.file("record");
        environment["IPFC_DEVICE"] = "/dev/null";
        return ipfc_test::run_process(IPFCCTL_RECORDED, words, environment);
    }

    [[nodiscard]] std::string sent() const
    {
        return ipfc_test::read_file(directory.file("record"));
    }

    TemporaryDirectory directory;
    std::map<std::string, std::string> environment;
};

struct Line {
    std::vector<std::string> words;
    std::string sent;
};

void PrintTo(const Line& line, std::ostream* stream)
{
    for (const std::string& word : line.words) {
        *stream << word << ' ';
    }
}

struct SilentCommand : Ipfcctl, testing::WithParamInterface<Line> {};

TEST_P(SilentCommand, SendsOneRecordAndSaysNothing)
{
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(sent(), GetParam().sent + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, SilentCommand,
    testing::Values(
        Line{{"vsan", "create", "10", "--wwpn", "10:00:00:11:22:33:44:55", "--wwnn",
              "20010066778899aa"},
             "4034500e 0a00000000000000"
             "1000001122334455"
             "20010066778899aa"
             "0000000000000000" +
                 kZeros20},
        Line{
            {"vsan", "create", "--wwnn=20:00:00:00:00:00:00:02", "--wwpn=1000000000000001", "4095"},
            "4034500e ff0f000000000000"
            "1000000000000001"
            "2000000000000002"
            "0000000000000000" +
                kZeros20},
        Line{{"-j", "vsan", "delete", "0"}, "4034500f " + std::string(64, '0') + kZeros20},
        Line{{"vsan", "set-fcid", "10", "0x0a0b0c"},
             "40345010 0a000000000a0b0c" + std::string(32, '0') + "0000000001000000" + kZeros20},
        Line{{"vsan", "set-fcid", "10", "0a.0b.0c", "--ifindex", "0x01020304"},
             "40345010 0a000000000a0b0c" + std::string(32, '0') + "0403020101000000" + kZeros20},
        Line{{"vsan", "rem-fcid", "10"},
             "40345010 0a000000" + std::string(40, '0') + "0000000000000000" + kZeros20},
        Line{{"vsan", "up", "10"},
             "40345010 0a000000" + std::string(40, '0') + "0000000002000000" + kZeros20},
        Line{{"vsan", "down", "10"},
             "40345010 0a000000" + std::string(40, '0') + "0000000003000000" + kZeros20},
        Line{{"stats", "clear", "3"}, "4034500a 03000000" + std::string(56, '0') + kZeros20},
        Line{{"ip", "set", "7", "10.1.2.3"},
             "40145011 07000000" + std::string(56, '0') +
                 "01000000"
                 "0a010203" +
                 std::string(24, '0')},
        Line{{"ip", "set", "7", "2001:db8::1"},
             "40145011 07000000" + std::string(56, '0') +
                 "02000000"
                 "20010db8000000000000000000000001"},
        // FCID and VSAN in network order
        Line{{"ivr", "add", "10.1.2.3", "21:00:00:e0:8b:01:02:03", "0x0a0b0c", "258"},
             "4014500c 0a010203"
             "210000e08b010203"
             "000a0b0c"
             "00000102"},
        Line{{"ivr", "delete", "0a.0b.0c", "5"},
             "4014500d 00000000"
             "0000000000000000"
             "000a0b0c"
             "00000005"},
        Line{{"cleanup"}, "00005009 "}));

TEST_F(Ipfcctl, HeadroomIsShownAsANumber)
{
    environment["IPFC_HEADROOM"] = "92";
    const ProcessResult result = run({"headroom"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "92\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(sent(), "40045012 00000000\n");
}

TEST_F(Ipfcctl, HeadroomIsOneJsonObject)
{
    environment["IPFC_HEADROOM"] = "92";
    for (const std::string option : {"-j", "--json"}) {
        const ProcessResult result = run({option, "headroom"});
        EXPECT_EQ(result.exit_code, 0);
        EXPECT_EQ(nlohmann::json::parse(result.out), (nlohmann::json{{"headroom", 92}}));
    }
}

TEST_F(Ipfcctl, DeviceOptionGoesBeforeTheEnvironment)
{
    environment["IPFC_HEADROOM"] = "92";
    const ProcessResult result = run({"--device", directory.file("none"), "headroom"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err, "ipfcctl: headroom: cannot open the control device " +
                              directory.file("none") +
                              ": No such file or directory (errno 2, ENOENT)\n");
    EXPECT_EQ(sent(), "");
}

struct RefusedLine {
    std::vector<std::string> words;
    std::string result;
    std::string complaint;
};

void PrintTo(const RefusedLine& line, std::ostream* stream)
{
    PrintTo(Line{line.words, {}}, stream);
    *stream << "-> " << line.result;
}

struct RefusedCommand : Ipfcctl, testing::WithParamInterface<RefusedLine> {};

TEST_P(RefusedCommand, EndsWithTwoAndTheReasonOnOneLine)
{
    environment["IPFC_RESULT"] = GetParam().result;
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, GetParam().complaint + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, RefusedCommand,
    testing::Values(
        RefusedLine{
            {"vsan", "create", "10", "--wwpn", "1000000000000001", "--wwnn", "1000000000000001"},
            "-12",
            "ipfcctl: vsan create 10: no memory for a new interface (errno 12, ENOMEM)"},
        RefusedLine{{"vsan", "set-fcid", "10", "0x0a0b0c"},
                    "-22",
                    "ipfcctl: vsan set-fcid 10: VSAN does not exist or number above 4095 "
                    "(errno 22, EINVAL)"},
        RefusedLine{{"vsan", "set-fcid", "10", "0x0a0b0c"},
                    "98",
                    "ipfcctl: vsan set-fcid 10: the FC-2 stack refused the N_Port: Address already "
                    "in use (errno 98, EADDRINUSE)"},
        RefusedLine{{"vsan", "rem-fcid", "10"},
                    "-22",
                    "ipfcctl: vsan rem-fcid 10: VSAN does not exist or number above 4095 "
                    "(errno 22, EINVAL)"},
        RefusedLine{{"vsan", "up", "10"},
                    "-22",
                    "ipfcctl: vsan up 10: VSAN does not exist or number above 4095 "
                    "(errno 22, EINVAL)"},
        RefusedLine{{"vsan", "down", "10"},
                    "-22",
                    "ipfcctl: vsan down 10: VSAN does not exist or number above 4095 "
                    "(errno 22, EINVAL)"},
        RefusedLine{{"vsan", "delete", "10"},
                    "-22",
                    "ipfcctl: vsan delete 10: VSAN number above 4095 (errno 22, EINVAL)"},
        RefusedLine{{"vsan", "show", "10"},
                    "-6",
                    "ipfcctl: vsan show 10: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"ip", "show", "10"},
                    "-6",
                    "ipfcctl: ip show 10: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"ip", "set", "10", "10.1.2.3"},
                    "-6",
                    "ipfcctl: ip set 10 10.1.2.3: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"stats", "show", "10"},
                    "-6",
                    "ipfcctl: stats show 10: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"stats", "show", "10", "--watch"},
                    "-6",
                    "ipfcctl: stats show 10: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"stats", "clear", "10"},
                    "-6",
                    "ipfcctl: stats clear 10: VSAN does not exist (errno 6, ENXIO)"},
        RefusedLine{{"ivr", "add", "10.1.2.3", "2100000000000001", "0x0a0b0c", "5"},
                    "-12",
                    "ipfcctl: ivr add 10.1.2.3 2100000000000001 0x0a0b0c 5: no memory for a new "
                    "inter-VSAN host (errno 12, ENOMEM)"},
        RefusedLine{{"cleanup"},
                    "-25",
                    "ipfcctl: cleanup: the device does not know this command (errno 25, ENOTTY)"},
        RefusedLine{{"-j", "headroom"},
                    "-14",
                    "ipfcctl: headroom: the driver could not reach the command's record "
                    "(errno 14, EFAULT)"}));

TEST(IpfcctlItself, AsksTheRealDevice)
{
    const ProcessResult result =
        ipfc_test::run_process(IPFCCTL, {"--device", "/dev/null", "headroom"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "ipfcctl: headroom: the device does not know this command (errno 25, ENOTTY)\n");
}

TEST(IpfcctlItself, SaysWhenItsOutputCannotBeWritten)
{
    const ProcessResult result =
        ipfc_test::run_process("/bin/sh", {"-c", std::string(IPFCCTL) + " --help >/dev/full"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err, "ipfcctl: standard output: No space left on device\n");
}

} // namespace
