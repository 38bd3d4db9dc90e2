// SPDX-License-Identifier: GPL-2.0-only
// Port names: what "map" sends and makes of the driver's results, and what "resolve" shows.
#include "tool_setup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace ipfc_test;

constexpr const char* kName = "21:00:00:e0:8b:01:02:03";

struct MapCommand : ToolSetup {
    [[nodiscard]] std::string sent() const { return read_file(directory.file("record")); }

    /// Runs the words against a driver that answers this command alone with an error number.
    ProcessResult run_refused(const std::string& command, const std::string& result,
                              const std::vector<std::string>& words)
    {
        environment["IPFC_RESULT_OF"] = command;
        environment["IPFC_RESULT"] = result;
        return run(words);
    }
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

struct SilentMapCommand : MapCommand, testing::WithParamInterface<Line> {};

TEST_P(SilentMapCommand, SendsOneRecordAndSaysNothing)
{
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(sent(), GetParam().sent + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Map, SilentMapCommand,
    testing::Values(
        Line{{"map", "add", "10", kName, "0x0a0b0c"}, "40105003 0a000000210000e08b010203000a0b0c"},
        Line{{"-j", "map", "add", "4095", "210000e08b010203", "0a.0b.0c"},
             "40105003 ff0f0000210000e08b010203000a0b0c"},
        Line{{"map", "delete", "10", kName}, "40105004 0a000000210000e08b01020300000000"},
        Line{{"map", "update", "10", kName, "0x0a0b0d"},
             "40105005 0a000000210000e08b010203000a0b0d"},
        Line{{"map", "not-found", "10", kName}, "40105006 0a000000210000e08b01020300000000"}));

TEST_F(MapCommand, AddIsDoneAlsoWhenNoPacketWaited)
{
    const ProcessResult result =
        run_refused("40105003", "-1", {"map", "add", "10", kName, "0x0a0b0c"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_code, 0);
}

TEST_F(MapCommand, AddIsRefusedWhenNoPacketWaitedAndNoInterfaceTookTheMapping)
{
    const ProcessResult result =
        run_refused("40105003", "-1", {"map", "add", "11", kName, "0x0a0b0c"});
    EXPECT_EQ(result.err, "ipfcctl: map add 11 21:00:00:e0:8b:01:02:03 0x0a0b0c: VSAN does not "
                          "exist (errno 6, ENXIO)\n");
    EXPECT_EQ(result.exit_code, 2);
}

TEST_F(MapCommand, AddIsRefusedWhenTheDriverHasNoMemory)
{
    const ProcessResult result =
        run_refused("40105003", "-12", {"map", "add", "10", kName, "0x0a0b0c"});
    EXPECT_EQ(result.err, "ipfcctl: map add 10 21:00:00:e0:8b:01:02:03 0x0a0b0c: no memory for a "
                          "new mapping (errno 12, ENOMEM)\n");
    EXPECT_EQ(result.exit_code, 2);
}

TEST_F(MapCommand, NotFoundIsRefusedWhenNoPacketWaited)
{
    const ProcessResult result = run_refused("40105006", "-1", {"map", "not-found", "10", kName});
    EXPECT_EQ(result.err, "ipfcctl: map not-found 10 21:00:00:e0:8b:01:02:03: no packet waits for "
                          "this port name (errno 1, EPERM)\n");
    EXPECT_EQ(result.exit_code, 2);
}

TEST_F(MapCommand, UpdateAndDeleteAreRefusedWithoutTheInterface)
{
    EXPECT_EQ(run_refused("40105005", "-6", {"map", "update", "11", kName, "0x0a0b0c"}).err,
              "ipfcctl: map update 11 21:00:00:e0:8b:01:02:03 0x0a0b0c: VSAN does not exist "
              "(errno 6, ENXIO)\n");
    EXPECT_EQ(run_refused("40105004", "-6", {"map", "delete", "11", kName}).err,
              "ipfcctl: map delete 11 21:00:00:e0:8b:01:02:03: VSAN does not exist (errno 6, "
              "ENXIO)\n");
}

TEST_F(MapCommand, ListOfOneInterfaceWithoutPeersHasNoRows)
{
    EXPECT_EQ(run({"map", "list", "0"}).out, "INTERFACE  PEER  FCID\n");
    EXPECT_EQ(run({"-j", "map", "list", "0"}).out, "[]\n");
}

struct WrongMapLine : MapCommand, testing::WithParamInterface<Line> {};

TEST_P(WrongMapLine, IsRefusedBeforeAnythingIsSent)
{
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ipfcctl: " + GetParam().sent + " --help\"\n");
    EXPECT_EQ(sent(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Map, WrongMapLine,
    testing::Values(
        Line{{"map"}, "a command is missing; see \"ipfcctl map"},
        Line{{"map", "forget"}, "unknown command \"forget\"; see \"ipfcctl map"},
        Line{{"map", "show", "10"}, "WWPN is required; see \"ipfcctl map show"},
        Line{{"map", "add", "10", kName}, "FCID is required; see \"ipfcctl map add"},
        Line{{"map", "add", "4096", kName, "0x0a0b0c"},
             "VSAN \"4096\": the highest VSAN is 4095; see \"ipfcctl map add"},
        Line{{"map", "add", "10", kName, "0xffffff"},
             "FCID \"0xffffff\": the broadcast address belongs to no port; see \"ipfcctl map add"},
        Line{{"map", "update", "10", kName, "0x000000"},
             "FCID \"0x000000\": zero stands for no FCID at all; see \"ipfcctl map update"},
        Line{{"map", "delete", "10", "21:00"},
             "WWPN \"21:00\": 2 bytes where there must be 8; see \"ipfcctl map delete"},
        Line{{"map", "not-found", "10", kName, "0x0a0b0c"},
             "unexpected argument \"0x0a0b0c\"; see \"ipfcctl map not-found"},
        Line{{"resolve", "--count", "0"},
             "--count \"0\": the number of requests is a decimal number above 0; see \"ipfcctl "
             "resolve"}));

struct ResolveCommand : MapCommand {
    ResolveCommand()
    {
        environment["IPFC_REQUESTS"] = "0a000000210000e08b010203 ff0f00001000000000000007";
    }
};

TEST_F(ResolveCommand, ShowsRequestsUntilThereWereAsMany)
{
    EXPECT_EQ(run({"resolve", "--count", "1"}).out, "vsan10 21:00:00:e0:8b:01:02:03\n");
    const ProcessResult result = run({"resolve", "--count", "2"});
    EXPECT_EQ(result.out, "vsan10 21:00:00:e0:8b:01:02:03\nvsan4095 10:00:00:00:00:00:00:07\n");
    EXPECT_EQ(result.exit_code, 0);
}

TEST_F(ResolveCommand, WritesALineOfJsonForEachRequest)
{
    EXPECT_EQ(run({"-j", "resolve", "--count", "2"}).out,
              R"({"vsan":10,"ifname":"vsan10","wwpn":"21:00:00:e0:8b:01:02:03"})"
              "\n"
              R"({"vsan":4095,"ifname":"vsan4095","wwpn":"10:00:00:00:00:00:00:07"})"
              "\n");
}

TEST_F(ResolveCommand, EndsWithTheDevice)
{
    const ProcessResult result = run({"resolve"});
    EXPECT_EQ(result.out, "vsan10 21:00:00:e0:8b:01:02:03\nvsan4095 10:00:00:00:00:00:00:07\n");
    EXPECT_EQ(result.err, "ipfcctl: resolve: no mapping request: Input/output error (errno 5, "
                          "EIO)\n");
    EXPECT_EQ(result.exit_code, 2);
}

TEST_F(ResolveCommand, SendsNoAnswer)
{
    run({"resolve", "--count", "2"});
    EXPECT_EQ(sent(), "");
}

} // namespace
