// SPDX-License-Identifier: GPL-2.0-only
// Every command with a result, as text and as JSON, and its JSON against the published schema.
#include "json_schema.h"
#include "tool_setup.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace ipfc_test;
using nlohmann::json;

json published_schema()
{
    std::ifstream file(IPFCCTL_SCHEMA);
    return json::parse(file);
}

struct Report {
    std::string definition; ///< in the schema
    std::vector<std::string> words;
    std::string text;
    std::string json;
};

void PrintTo(const Report& report, std::ostream* stream)
{
    for (const std::string& word : report.words) {
        *stream << word << ' ';
    }
}

const std::string kCounters0 =
    R"({"rx_packets":0,"tx_packets":0,"rx_bytes":0,"tx_bytes":0,"rx_errors":0,"tx_errors":0,)"
    R"("rx_dropped":0,"tx_dropped":0,"multicast":0,"collisions":0})";
const std::string kCounters10 =
    R"({"rx_packets":1,"tx_packets":2,"rx_bytes":3,"tx_bytes":4,"rx_errors":5,"tx_errors":6,)"
    R"("rx_dropped":7,"tx_dropped":8,"multicast":9,"collisions":10})";
const std::string kMib10 =
    R"({"ifInMulticastPkts":11,"ifInBroadcastPkts":12,"ifOutMulticastPkts":13,)"
    R"("ifOutBroadcastPkts":14,"ifHCInOctets":15,"ifHCInUcastPkts":16,"ifHCInMulticastPkts":17,)"
    R"("ifHCInBroadcastPkts":18,"ifHCOutOctets":19,"ifHCOutUcastPkts":20,)"
    R"("ifHCOutMulticastPkts":21,"ifHCOutBroadcastPkts":22,"ifInUnknownProtos":23})";
const std::string kVsan0 =
    R"({"vsan":0,"ifname":"vsan0","admin":"down","wwpn":"10:00:00:11:22:33:44:55",)"
    R"("wwnn":"20:01:00:66:77:88:99:aa","fcid":null,"address":null,"secondary_addresses":0})";
const std::string kVsan10 =
    R"({"vsan":10,"ifname":"vsan10","admin":"up","wwpn":"10:00:00:11:22:33:44:55",)"
    R"("wwnn":"20:01:00:66:77:88:99:aa","fcid":"0x0a0b0c","address":"10.1.2.3",)"
    R"("secondary_addresses":2})";
const std::string kPeer =
    R"("vsan":10,"ifname":"vsan10","wwpn":"21:00:00:e0:8b:01:02:03","fcid":"0x0a0b0d",)";
const std::string kMapping1 =
    R"({"vsan":10,"ifname":"vsan10","wwpn":"21:00:00:e0:8b:01:02:03","fcid":"0x0a0b0d")";
const std::string kMapping2 =
    R"({"vsan":10,"ifname":"vsan10","wwpn":"10:00:00:00:00:00:00:07","fcid":"0x0a0b0e")";
const std::string kHost5 =
    R"({"address":"10.1.2.3","wwpn":"21:00:00:e0:8b:01:02:03","fcid":"0x0a0b0c","vsan":5})";
const std::string kSecondary77 =
    R"({"vsan":10,"ifname":"vsan10","address":"10.10.0.77","mac":"02:00:00:00:00:77",)"
    R"("wwpn":"10:00:02:00:00:00:00:77","fcid":"0x0a0077"})";
const std::string kSecondary78 =
    R"({"vsan":4095,"ifname":"vsan4095","address":"2001:db8::1","mac":"02:00:00:00:00:78",)"
    R"("wwpn":"10:00:02:00:00:00:00:78","fcid":"0x0a0078"})";
const std::string kErrors = R"({"module":"ipfc","element":"errors","history":true,"log":false})";
const std::string kEvents = R"({"module":"ipfc","element":"events","history":false,"log":true})";

/// Without its last member's end, to which more is added.
std::string open_end(std::string object)
{
    object.pop_back();
    return object;
}

std::vector<Report> interface_reports()
{
    return {
        {"vsan-list",
         {"vsan", "list"},
         "INTERFACE  ADMIN  FCID      WWPN                     WWNN                     ADDRESS\n"
         "vsan0      down   -         10:00:00:11:22:33:44:55  20:01:00:66:77:88:99:aa  -\n"
         "vsan10     up     0x0a0b0c  10:00:00:11:22:33:44:55  20:01:00:66:77:88:99:aa  10.1.2.3\n",
         '[' + kVsan0 + ',' + kVsan10 + ']'},
        {"vsan-list",
         {"-s", "vsan", "list"},
         "INTERFACE  ADMIN  FCID      WWPN                     WWNN                     ADDRESS   "
         "SECONDARY  RX-PACKETS  TX-PACKETS\n"
         "vsan0      down   -         10:00:00:11:22:33:44:55  20:01:00:66:77:88:99:aa  -         "
         "        0           0           0\n"
         "vsan10     up     0x0a0b0c  10:00:00:11:22:33:44:55  20:01:00:66:77:88:99:aa  10.1.2.3  "
         "        2           1           2\n",
         '[' + open_end(kVsan0) + ",\"counters\":" + kCounters0 + "}," + open_end(kVsan10) +
             ",\"counters\":" + kCounters10 + "}]"},
        {"vsan-show",
         {"vsan", "show", "10"},
         "vsan10: admin up\n"
         "    wwpn 10:00:00:11:22:33:44:55 wwnn 20:01:00:66:77:88:99:aa\n"
         "    fcid 0x0a0b0c address 10.1.2.3 secondary 2\n",
         kVsan10},
        {"vsan-show",
         {"--details", "vsan", "show", "10"},
         "vsan10: admin up\n"
         "    wwpn 10:00:00:11:22:33:44:55 wwnn 20:01:00:66:77:88:99:aa\n"
         "    fcid 0x0a0b0c address 10.1.2.3 secondary 2\n"
         "        PACKETS  BYTES  ERRORS  DROPPED  MULTICAST  COLLISIONS\n"
         "    RX        1      3       5        7          9\n"
         "    TX        2      4       6        8                     10\n",
         open_end(kVsan10) + ",\"counters\":" + kCounters10 + '}'},
        {"ip-list",
         {"ip", "list"},
         "INTERFACE  FAMILY  ADDRESS\n"
         "vsan0      -       -\n"
         "vsan10     inet    10.1.2.3\n",
         R"([{"vsan":0,"ifname":"vsan0","family":null,"address":null},)"
         R"({"vsan":10,"ifname":"vsan10","family":"inet","address":"10.1.2.3"}])"},
        {"ip-show",
         {"ip", "show", "10"},
         "vsan10: inet 10.1.2.3\n",
         R"({"vsan":10,"ifname":"vsan10","family":"inet","address":"10.1.2.3"})"},
    };
}

std::vector<Report> counter_reports()
{
    const std::string show10 =
        R"([{"vsan":10,"ifname":"vsan10","snmp":false,"counters":)" + kCounters10;
    return {
        {"stats-list",
         {"stats", "list"},
         "INTERFACE  RX-PACKETS  RX-BYTES  RX-ERRORS  RX-DROPPED  TX-PACKETS  TX-BYTES  TX-ERRORS"
         "  TX-DROPPED\n"
         "vsan0               0         0          0           0           0         0          0"
         "           0\n"
         "vsan10              1         3          5           7           2         4          6"
         "           8\n",
         R"([{"vsan":0,"ifname":"vsan0","snmp":false,"counters":)" + kCounters0 +
             R"(},{"vsan":10,"ifname":"vsan10","snmp":false,"counters":)" + kCounters10 + "}]"},
        {"stats-show",
         {"stats", "show", "10"},
         "vsan10:\n"
         "        PACKETS  BYTES  ERRORS  DROPPED  MULTICAST  COLLISIONS\n"
         "    RX        1      3       5        7          9\n"
         "    TX        2      4       6        8                     10\n",
         show10 + "}]"},
        {"stats-show",
         {"-s", "stats", "show", "10"},
         "vsan10:\n"
         "        PACKETS  BYTES  ERRORS  DROPPED  MULTICAST  COLLISIONS\n"
         "    RX        1      3       5        7          9\n"
         "    TX        2      4       6        8                     10\n"
         "    ifInMulticastPkts 11\n"
         "    ifInBroadcastPkts 12\n"
         "    ifOutMulticastPkts 13\n"
         "    ifOutBroadcastPkts 14\n"
         "    ifHCInOctets 15\n"
         "    ifHCInUcastPkts 16\n"
         "    ifHCInMulticastPkts 17\n"
         "    ifHCInBroadcastPkts 18\n"
         "    ifHCOutOctets 19\n"
         "    ifHCOutUcastPkts 20\n"
         "    ifHCOutMulticastPkts 21\n"
         "    ifHCOutBroadcastPkts 22\n"
         "    ifInUnknownProtos 23\n",
         show10 + ",\"mib\":" + kMib10 + "}]"},
        {"stats-watch",
         {"stats", "show", "--watch", "--count", "1"},
         "INTERFACE  RX-PKT/S  RX-BYTE/S  RX-ERR/S  RX-DROP/S  TX-PKT/S  TX-BYTE/S  TX-ERR/S"
         "  TX-DROP/S\n"
         "vsan0             -          -         -          -         -          -         -"
         "          -\n"
         "vsan10            -          -         -          -         -          -         -"
         "          -\n",
         R"([{"vsan":0,"ifname":"vsan0","rates":{"rx_packets":null,"rx_bytes":null,)"
         R"("rx_errors":null,"rx_dropped":null,"tx_packets":null,"tx_bytes":null,)"
         R"("tx_errors":null,"tx_dropped":null}},{"vsan":10,"ifname":"vsan10","rates":)"
         R"({"rx_packets":null,"rx_bytes":null,"rx_errors":null,"rx_dropped":null,)"
         R"("tx_packets":null,"tx_bytes":null,"tx_errors":null,"tx_dropped":null}}])"},
        {"stats-module",
         {"stats", "module"},
         "PACKETS-COPIED  BYTES-COPIED  MAPPINGS  EXCHANGES\n"
         "             5    4294967294         3          1\n",
         R"({"packets_copied":5,"bytes_copied":4294967294,"mappings":3,"exchanges":1})"},
        {"headroom", {"headroom"}, "92\n", R"({"headroom":92})"},
    };
}

std::vector<Report> table_reports()
{
    return {
        {"exchange-list",
         {"exchange", "list"},
         "INTERFACE  PEER                     FCID      SOURCE    HANDLE\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d  0x0a0b0c  0x0000001f\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d  0x0a0b77  0xffffffff\n",
         "[{" + kPeer + R"("source":"0x0a0b0c","handle":"0x0000001f"},{)" + kPeer +
             R"("source":"0x0a0b77","handle":"0xffffffff"}])"},
        {"map-list",
         {"map", "list"},
         "INTERFACE  PEER                     FCID\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d\n"
         "vsan10     10:00:00:00:00:00:00:07  0x0a0b0e\n",
         '[' + kMapping1 + "}," + kMapping2 + "}]"},
        {"map-list",
         {"-s", "map", "list", "10"},
         "INTERFACE  PEER                     FCID      EXCHANGES\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d          2\n"
         "vsan10     10:00:00:00:00:00:00:07  0x0a0b0e          0\n",
         '[' + kMapping1 + ",\"exchanges\":2}," + kMapping2 + ",\"exchanges\":0}]"},
        {"map-show",
         {"map", "show", "10", "1000000000000007"},
         "vsan10: 10:00:00:00:00:00:00:07 at 0x0a0b0e\n",
         kMapping2 + '}'},
        {"map-show",
         {"-s", "map", "show", "10", "21:00:00:e0:8b:01:02:03"},
         "vsan10: 21:00:00:e0:8b:01:02:03 at 0x0a0b0d exchanges 2\n",
         kMapping1 + ",\"exchanges\":2}"},
        {"resolve",
         {"resolve", "--count", "1"},
         "vsan10 21:00:00:e0:8b:01:02:03\n",
         R"({"vsan":10,"ifname":"vsan10","wwpn":"21:00:00:e0:8b:01:02:03"})"},
        {"exchange-list",
         {"exchange", "list", "0"},
         "INTERFACE  PEER  FCID  SOURCE  HANDLE\n",
         "[]"},
        {"exchange-list",
         {"-s", "exchange", "list", "10"},
         "INTERFACE  PEER                     FCID      SOURCE    HANDLE      OWNER\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d  0x0a0b0c  0x0000001f  interface\n"
         "vsan10     21:00:00:e0:8b:01:02:03  0x0a0b0d  0x0a0b77  0xffffffff  secondary\n",
         "[{" + kPeer + R"("source":"0x0a0b0c","handle":"0x0000001f","owner":"interface"},{)" +
             kPeer + R"("source":"0x0a0b77","handle":"0xffffffff","owner":"secondary"}])"},
        {"exchange-show",
         {"exchange", "show", "10", "210000e08b010203"},
         "vsan10: 21:00:00:e0:8b:01:02:03 at 0x0a0b0d\n"
         "    source 0x0a0b0c handle 0x0000001f\n"
         "    source 0x0a0b77 handle 0xffffffff\n",
         "{" + kPeer +
             R"("exchanges":[{"source":"0x0a0b0c","handle":"0x0000001f"},)"
             R"({"source":"0x0a0b77","handle":"0xffffffff"}]})"},
        {"ivr-list",
         {"ivr", "list"},
         "ADDRESS          WWPN                     FCID        VSAN\n"
         "10.1.2.3         21:00:00:e0:8b:01:02:03  0x0a0b0c       5\n"
         "255.255.255.255  10:00:00:00:00:00:00:01  0x01020304  4095\n",
         '[' + kHost5 +
             R"(,{"address":"255.255.255.255","wwpn":"10:00:00:00:00:00:00:01",)"
             R"("fcid":"0x01020304","vsan":4095}])"},
        {"ivr-list",
         {"ivr", "list", "5"},
         "ADDRESS   WWPN                     FCID      VSAN\n"
         "10.1.2.3  21:00:00:e0:8b:01:02:03  0x0a0b0c     5\n",
         '[' + kHost5 + ']'},
        {"ivr-show",
         {"ivr", "show", "0x0a0b0c", "5"},
         "10.1.2.3 wwpn 21:00:00:e0:8b:01:02:03 fcid 0x0a0b0c vsan 5\n",
         kHost5},
        {"secondary-list",
         {"secondary", "list"},
         "INTERFACE  ADDRESS      WWPN                     FCID\n"
         "vsan10     10.10.0.77   10:00:02:00:00:00:00:77  0x0a0077\n"
         "vsan4095   2001:db8::1  10:00:02:00:00:00:00:78  0x0a0078\n",
         '[' + kSecondary77 + ',' + kSecondary78 + ']'},
        {"secondary-list",
         {"secondary", "list", "10"},
         "INTERFACE  ADDRESS     WWPN                     FCID\n"
         "vsan10     10.10.0.77  10:00:02:00:00:00:00:77  0x0a0077\n",
         '[' + kSecondary77 + ']'},
        {"secondary-show",
         {"secondary", "show", "4095", "2001:0db8:0::1"},
         "vsan4095: 2001:db8::1\n"
         "    mac 02:00:00:00:00:78 wwpn 10:00:02:00:00:00:00:78 fcid 0x0a0078\n",
         kSecondary78},
    };
}

std::vector<Report> debug_reports()
{
    return {
        {"debug-list",
         {"debug", "list"},
         "MODULE  ELEMENT  HISTORY  LOG\n"
         "ipfc    errors   on       off\n"
         "ipfc    events   off      on\n",
         '[' + kErrors + ',' + kEvents + ']'},
        {"debug-show",
         {"-s", "debug", "show", "ipfc", "errors"},
         "MODULE  ELEMENT  HISTORY  LOG  MESSAGES\n"
         "ipfc    errors   on       off         2\n",
         open_end(kErrors) + ",\"messages\":2}"},
        {"debug-history",
         {"debug", "history", "ipfc", "errors"},
         "VSAN number not valid\nbad ?[31m\xff byte\n",
         "[\"VSAN number not valid\",\"bad \\u001b[31m\xef\xbf\xbd byte\"]"},
        {"debug-history", {"debug", "history", "ipfc", "events"}, "", "[]"},
    };
}

std::vector<Report> all_reports()
{
    std::vector<Report> all;
    for (const auto& part :
         {interface_reports(), counter_reports(), table_reports(), debug_reports()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

struct ToolReport : ToolSetup, testing::WithParamInterface<Report> {
    ToolReport()
    {
        environment["IPFC_HEADROOM"] = "92";
        environment["IPFC_REQUESTS"] = "0a000000210000e08b010203";
    }
};

TEST_P(ToolReport, IsTextForPeople)
{
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, GetParam().text);
}

TEST_P(ToolReport, IsOneLineOfJsonAsTheSchemaSays)
{
    std::vector<std::string> words{"-j"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    const ProcessResult result = run(words);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, GetParam().json + '\n');
    EXPECT_EQ(schema_complaint(published_schema(), GetParam().definition, json::parse(result.out)),
              "");
}

INSTANTIATE_TEST_SUITE_P(Commands, ToolReport, testing::ValuesIn(all_reports()));

// ---- the schema and the commands ----

/// The names of a help text's list.
std::vector<std::string> listed(const std::string& help, const std::string& heading)
{
    std::vector<std::string> names;
    std::istringstream lines(help.substr(std::min(help.find("\n" + heading + ":\n"), help.size())));
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  ")) {
        names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

/// All commands as the schema calls them, out of the tool's own help.
std::set<std::string> commands_of_tool()
{
    std::set<std::string> commands;
    for (const std::string& object : listed(run_process(IPFCCTL, {"help"}).out, "Objects")) {
        const auto below = listed(run_process(IPFCCTL, {object, "help"}).out, "Commands");
        for (const std::string& command : below) {
            commands.insert(object + '-' + command);
        }
        if (below.empty()) {
            commands.insert(object);
        }
    }
    return commands;
}

std::set<std::string> definitions_of_commands(const json& schema)
{
    std::set<std::string> names;
    for (const auto& item : schema.at("$defs").items()) {
        if (!item.key().starts_with("type-")) {
            names.insert(item.key());
        }
    }
    return names;
}

const std::set<std::string> kSilent{
    "vsan-create",   "vsan-delete",      "vsan-set-fcid", "vsan-rem-fcid", "vsan-up",
    "vsan-down",     "stats-clear",      "ivr-add",       "ivr-delete",    "ip-set",
    "secondary-add", "secondary-delete", "map-add",       "map-update",    "map-delete",
    "map-not-found", "debug-set",        "debug-clear",   "cleanup"};

TEST(Schema, HasEveryCommandThatIsNotSilent)
{
    std::set<std::string> expected = commands_of_tool();
    EXPECT_GE(expected.size(), 30u);
    for (const std::string& silent : kSilent) {
        EXPECT_EQ(expected.erase(silent), 1u) << silent;
    }
    expected.insert("stats-watch");
    EXPECT_EQ(definitions_of_commands(published_schema()), expected);
}

TEST(Schema, IsHeldAgainstAReportOfEveryDefinition)
{
    std::set<std::string> tried;
    for (const Report& report : all_reports()) {
        tried.insert(report.definition);
    }
    EXPECT_EQ(tried, definitions_of_commands(published_schema()));
}

TEST(Schema, OffersEveryDefinitionAtItsTop)
{
    std::set<std::string> offered;
    const json schema = published_schema();
    for (const json& choice : schema.at("anyOf")) {
        offered.insert(choice.at("$ref").get<std::string>().substr(std::string("#/$defs/").size()));
    }
    EXPECT_EQ(offered, definitions_of_commands(schema));
}

TEST(Schema, RefusesWhatItDoesNotDescribe)
{
    const json schema = published_schema();
    const json good = json::parse(kVsan10);
    EXPECT_EQ(schema_complaint(schema, "vsan-show", good), "");
    const auto complaint = [&](const char* member, const json& value) {
        json bad = good;
        bad[member] = value;
        return schema_complaint(schema, "vsan-show", bad);
    };
    EXPECT_EQ(complaint("vsan", 4096), "vsan-show/vsan: 4096 is too large");
    EXPECT_EQ(complaint("vsan", -1), "vsan-show/vsan: -1 is too small");
    EXPECT_EQ(complaint("vsan", "10"), "vsan-show/vsan: \"10\" is not of type \"integer\"");
    EXPECT_EQ(complaint("admin", "UP"), "vsan-show/admin: \"UP\" is none of [\"up\",\"down\"]");
    EXPECT_EQ(complaint("more", 1), "vsan-show: more is unknown");
    EXPECT_NE(complaint("fcid", "0x0A0B0C"), "");
    json bad = good;
    bad.erase("wwnn");
    EXPECT_EQ(schema_complaint(schema, "vsan-show", bad), "vsan-show: wwnn is missing");
    EXPECT_EQ(schema_complaint(schema, "vsan-list", json::array({good, bad})),
              "vsan-list/1: wwnn is missing");
}

TEST(Schema, WithAKeywordThatIsNotKnownIsNoSchema)
{
    const json schema{{"$defs", {{"x", {{"maxLength", 3}}}}}};
    EXPECT_THROW((void)schema_complaint(schema, "x", "abc"), std::invalid_argument);
}

// ---- changes that go through files, and refusals ----

TEST_F(ToolSetup, SecondaryAddressIsAddedByOneLine)
{
    put("secondary_ip", "");
    const ProcessResult result =
        run({"secondary", "add", "10", "10.10.0.77", "02:00:00:00:00:77", "0x0a0077"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(proc("secondary_ip"), "add 10 10.10.0.77 02:00:00:00:00:77 0x0a0077\n");
}

TEST_F(ToolSetup, SecondaryAddressIsDeletedByOneLine)
{
    put("secondary_ip", "");
    EXPECT_EQ(run({"secondary", "delete", "10", "10.10.0.77"}).exit_code, 0);
    EXPECT_EQ(proc("secondary_ip"), "del 10 10.10.0.77\n");
}

TEST_F(ToolSetup, DebugSwitchesAreSetEachInItsFile)
{
    EXPECT_EQ(run({"debug", "set", "ipfc", "events", "history", "on"}).exit_code, 0);
    EXPECT_EQ(proc("dbgtap/ipfc/events/history_enabled"), "1\n");
    EXPECT_EQ(run({"debug", "set", "ipfc", "events", "log", "off"}).exit_code, 0);
    EXPECT_EQ(proc("dbgtap/ipfc/events/log_enabled"), "0\n");
}

TEST_F(ToolSetup, DebugHistoryIsClearedByAWrite)
{
    EXPECT_EQ(run({"debug", "clear", "ipfc", "events"}).exit_code, 0);
    EXPECT_EQ(proc("dbgtap/ipfc/events/history"), "\n");
}

TEST_F(ToolSetup, SnmpAsksForTheSnapshot)
{
    EXPECT_EQ(run({"stats", "show", "10", "--snmp"}).exit_code, 0);
    EXPECT_EQ(read_file(directory.file("record")), "c0ac5008 0a00000001000000" + zeros(164) + "\n");
}

TEST_F(ToolSetup, InterfaceDeletedWhileItIsListedIsLeftOut)
{
    put("ipfc/vsan7", kEmptyInterface);
    const ProcessResult result = run({"ip", "list"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out.find("vsan7"), std::string::npos);
    EXPECT_NE(result.out.find("vsan10"), std::string::npos);
}

struct Refusal {
    std::vector<std::string> words;
    std::string complaint;
};

struct RefusedReport : ToolSetup, testing::WithParamInterface<Refusal> {};

TEST_P(RefusedReport, EndsWithTwoAndTheReason)
{
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ipfcctl: " + GetParam().complaint + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Reports, RefusedReport,
    testing::Values(
        Refusal{{"exchange", "list", "11"},
                "exchange list 11: VSAN does not exist (errno 2, ENOENT)"},
        Refusal{{"map", "show", "11", "1000000000000009"},
                "map show 11 1000000000000009: VSAN does not exist (errno 2, ENOENT)"},
        // All eight bytes count here.
        Refusal{{"map", "show", "10", "1000000000000107"},
                "map show 10 1000000000000107: no mapping for this port name (errno 2, ENOENT)"},
        Refusal{{"map", "show", "10", "2000000000000007"},
                "map show 10 2000000000000007: no mapping for this port name (errno 2, ENOENT)"},
        Refusal{{"exchange", "show", "10", "1000000000000009"},
                "exchange show 10 1000000000000009: no mapping for this port name (errno 2, "
                "ENOENT)"},
        Refusal{{"vsan", "show", "11"}, "vsan show 11: VSAN does not exist (errno 6, ENXIO)"},
        Refusal{{"ivr", "show", "0x0a0b0c", "6"},
                "ivr show 0x0a0b0c 6: no such host (errno 2, ENOENT)"},
        Refusal{{"secondary", "show", "11", "10.10.0.77"},
                "secondary show 11 10.10.0.77: the interface has no such address (errno 2, "
                "ENOENT)"},
        Refusal{{"debug", "show", "ipfc", "warnings"},
                "debug show ipfc warnings: no such debug element (errno 2, ENOENT)"},
        Refusal{{"debug", "set", "ipfc", "warnings", "log", "on"},
                "debug set ipfc warnings log on: no such debug element (errno 2, ENOENT)"},
        Refusal{{"--proc-root", "/nowhere", "stats", "module"},
                "stats module: cannot open /nowhere/ipfc/statistics: No such file or directory "
                "(errno 2, ENOENT)"},
        Refusal{{"--proc-root", "/nowhere", "vsan", "list"},
                "vsan list: cannot list /nowhere/ipfc: No such file or directory (errno 2, "
                "ENOENT)"}));

TEST_F(ToolSetup, ReportThatDoesNotReadIsARefusalWithItsLine)
{
    put("ipfc/vsan10", "\nVSAN Interface   10 :\nnonsense\n");
    const ProcessResult result = run({"exchange", "list", "10"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err, "ipfcctl: exchange list 10: " + directory.file("proc/ipfc/vsan10") +
                              ", line 2: \" :\\nfcid = \" is missing in front of \" :\"\n");
}

} // namespace
