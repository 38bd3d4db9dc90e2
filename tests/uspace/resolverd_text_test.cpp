// SPDX-License-Identifier: GPL-2.0-only
// Text in: tables of ports, and the configuration.
#include "temporary_directory.h"

#include "ipfc-resolverd/configuration.h"
#include "ipfc-resolverd/port_table.h"
#include "ipfc-resolverd/text_file.h"

#include "libipfc/names.h"

#include <gmock/gmock.h>

#include <system_error>

namespace resolverd {
namespace {

/// The table in its own form, one line a port, in the table's order.
std::string lines_of(const PortTable& ports)
{
    std::string lines;
    for (const auto& [port, fcid] : ports) {
        lines += to_text(port) + " at " + ipfc::to_text(fcid) + "\n";
    }
    return lines;
}

std::string refusal_of_table(const std::string& text)
{
    try {
        parse_port_table(text, "/etc/ipfc/ports");
    } catch (const MalformedText& error) {
        return error.what();
    }
    return "accepted";
}

std::string refusal_of_configuration(const std::string& text)
{
    try {
        parse_configuration(text, "r.conf");
    } catch (const MalformedText& error) {
        return error.what();
    }
    return "accepted";
}

TEST(PortTable, HasOneLineForEachPort)
{
    const PortTable ports = parse_port_table("10 20:00:00:5e:bf:00:00:0a 0x0a0101\n"
                                             "20 20:00:00:5e:bf:00:00:0a 0x140101\n",
                                             "ports");
    EXPECT_EQ(lines_of(ports), "VSAN 10 port 20:00:00:5e:bf:00:00:0a at 0x0a0101\n"
                               "VSAN 20 port 20:00:00:5e:bf:00:00:0a at 0x140101\n");
}

TEST(PortTable, IsEmptyWhenThereAreOnlyCommentsAndBlanks)
{
    EXPECT_EQ(lines_of(parse_port_table("# nobody\n\n \t\r\n  # here", "ports")), "");
}

TEST(PortTable, TakesCommentsTabsAndALastLineWithoutItsEnd)
{
    const PortTable ports = parse_port_table("\t10\t20000000000000a1  0a.01.01 # the array\r\n"
                                             "0 20:00:00:00:00:00:00:a2 0x010203",
                                             "ports");
    EXPECT_EQ(lines_of(ports), "VSAN 0 port 20:00:00:00:00:00:00:a2 at 0x010203\n"
                               "VSAN 10 port 20:00:00:00:00:00:00:a1 at 0x0a0101\n");
}

struct Malformed {
    const char* name;
    const char* text;
    const char* complaint;
};

class MalformedTable : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedTable, IsRefusedWithFileLineAndReason)
{
    EXPECT_EQ(refusal_of_table(GetParam().text),
              std::string("/etc/ipfc/ports:") + GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MalformedTable,
    testing::Values(Malformed{"WordMissing", "# ports\n10 20:00:00:00:00:00:00:01\n",
                              "2: 2 words where there must be three: VSAN, port name and FCID"},
                    Malformed{"WordTooMany", "10 20:00:00:00:00:00:00:01 0x010203 0x010204",
                              "1: 4 words where there must be three: VSAN, port name and FCID"},
                    Malformed{"VsanTooHigh", "4096 20:00:00:00:00:00:00:01 0x010203",
                              "1: VSAN \"4096\": the highest VSAN is 4095"},
                    Malformed{"VsanNoNumber", "ten 20:00:00:00:00:00:00:01 0x010203",
                              "1: VSAN \"ten\": a VSAN is a decimal number from 0 to 4095"},
                    Malformed{"NameTooShort", "\n\n10 20:00 0x010203",
                              "3: port name \"20:00\": 2 bytes where there must be 8"},
                    Malformed{"FcidZero", "10 20:00:00:00:00:00:00:01 0x000000",
                              "1: FCID \"0x000000\": zero stands for no FCID at all"},
                    Malformed{"FcidBroadcast", "10 20:00:00:00:00:00:00:01 0xffffff",
                              "1: FCID \"0xffffff\": the broadcast address belongs to no port"},
                    Malformed{"PortTwice",
                              "10 20:00:00:00:00:00:00:01 0x010203\n# again\n"
                              "10 2000000000000001 0x010204\n",
                              "3: VSAN 10 port 20:00:00:00:00:00:00:01 stands on line 1 already"}),
    [](const auto& info) { return info.param.name; });

TEST(PortTable, FindsANameOfOther16BitsInFrontByThe48BitsThatANetworkHeaderCarries)
{
    const PortTable ports = parse_port_table("10 20:0a:02:00:00:00:00:01 0x0a0101\n"
                                             "10 10:00:02:00:00:00:00:02 0x0a0102\n"
                                             "10 20:0a:02:00:00:00:00:02 0x0a0202\n"
                                             "10 20:0a:02:00:00:00:00:03 0x0a0103\n"
                                             "10 20:0b:02:00:00:00:00:03 0x0a0203\n",
                                             "ports");
    const auto place = [&](vsan_id_t vsan, const char* name) {
        const auto fcid = look_up(ports, {vsan, ipfc::parse_wwn("name", name)});
        return fcid ? ipfc::to_text(*fcid) : "nowhere";
    };
    EXPECT_EQ(place(10, "10:00:02:00:00:00:00:01"), "0x0a0101");
    EXPECT_EQ(place(20, "10:00:02:00:00:00:00:01"), "nowhere");
    EXPECT_EQ(place(10, "10:00:02:00:00:00:00:02"), "0x0a0102") << "the whole name comes first";
    EXPECT_EQ(place(10, "10:00:02:00:00:00:00:03"), "nowhere") << "two ports may be meant";
    EXPECT_EQ(place(10, "20:0b:02:00:00:00:00:01"), "nowhere") << "a whole name of another port";
}

TEST(PortTable, OfTheFabricKeepsWhatIsUnderstoodAndCountsTheRest)
{
    const LenientTable table = parse_known_lines("10 20:00:00:00:00:00:00:01 0x010203\n"
                                                 "domain 1 principal\n"
                                                 "10 20:00:00:00:00:00:00:01 0x010204\n");
    EXPECT_EQ(lines_of(table.ports), "VSAN 10 port 20:00:00:00:00:00:00:01 at 0x010204\n");
    EXPECT_EQ(table.skipped_lines, 1u);
}

TEST(Configuration, HasItsDefaultsWhenItSaysNothing)
{
    const Configuration configuration = parse_configuration("# nothing\n", "r.conf");
    EXPECT_EQ(configuration.back_end, BackEnd::fabric);
    EXPECT_EQ(configuration.name_server, "/proc/brim_sw/name_server");
    EXPECT_EQ(configuration.table, "/etc/ipfc/ports");
    EXPECT_EQ(configuration.device, "");
    EXPECT_EQ(configuration.reports, "/proc/brim_sw/ipfc");
    EXPECT_EQ(configuration.queries.timeout, std::chrono::milliseconds(2000));
    EXPECT_EQ(configuration.queries.running, 16u);
    EXPECT_EQ(configuration.retry_interval, std::chrono::milliseconds(500));
    EXPECT_EQ(configuration.log_level, Level::info);
}

TEST(Configuration, SetsEverySetting)
{
    const Configuration configuration = parse_configuration("back-end = table\n"
                                                            "name-server = /n\n"
                                                            "table = /t # here\n"
                                                            "device = /dev/d\n"
                                                            "reports = /r\n"
                                                            "query-timeout-ms = 100\n"
                                                            "max-queries = 3\n"
                                                            "retry-interval-ms = 10\n"
                                                            "log-level = debug\n",
                                                            "r.conf");
    EXPECT_EQ(configuration.back_end, BackEnd::table);
    EXPECT_EQ(configuration.name_server, "/n");
    EXPECT_EQ(configuration.table, "/t");
    EXPECT_EQ(configuration.device, "/dev/d");
    EXPECT_EQ(configuration.reports, "/r");
    EXPECT_EQ(configuration.queries.timeout, std::chrono::milliseconds(100));
    EXPECT_EQ(configuration.queries.running, 3u);
    EXPECT_EQ(configuration.retry_interval, std::chrono::milliseconds(10));
    EXPECT_EQ(configuration.log_level, Level::debug);
}

class MalformedConfiguration : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedConfiguration, IsRefusedWithFileLineAndReason)
{
    EXPECT_EQ(refusal_of_configuration(GetParam().text),
              std::string("r.conf:") + GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Configuration, MalformedConfiguration,
    testing::Values(
        Malformed{"UnknownSetting", "# hm\ncolour = red", "2: there is no setting \"colour\""},
        Malformed{"NoEqualSign", "table /t",
                  "1: a setting is written \"table = value\", in three words"},
        Malformed{"NoBlanks", "table=/t", "1: there is no setting \"table=/t\""},
        Malformed{"ValueMissing",
                  "table =", "1: a setting is written \"table = value\", in three words"},
        Malformed{"SetTwice", "table = /t\ntable = /u", "2: \"table\" is set on line 1 already"},
        Malformed{"RelativePath", "table = ports", "1: \"ports\" does not start with \"/\""},
        Malformed{"UnknownChoice", "back-end = dns", "1: \"dns\" is none of fabric, table"},
        Malformed{"NumberTooLow", "query-timeout-ms = 0",
                  "1: \"0\" is not a number from 1 to 60000"},
        Malformed{"NumberWithUnit", "query-timeout-ms = 2s",
                  "1: \"2s\" is not a number from 1 to 60000"}),
    [](const auto& info) { return info.param.name; });

TEST(TextFile, ThatDoesNotExistIsRefusedByName)
{
    try {
        read_file("/nonexistent/ports");
        FAIL() << "was read";
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/ports: No such file or directory");
    }
}

TEST(TextFile, OfMoreThan16MebibytesIsRefused)
{
    const ipfc_test::TemporaryDirectory directory;
    const std::string path = directory.file("large");
    ipfc_test::write_file(path, std::string((size_t{16} << 20) + 1, '#'));
    EXPECT_THROW(read_file(path), std::system_error);
    ipfc_test::write_file(path, std::string(size_t{16} << 20, '#'));
    EXPECT_EQ(read_file(path).size(), size_t{16} << 20);
}

} // namespace
} // namespace resolverd
