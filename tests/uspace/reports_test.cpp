// SPDX-License-Identifier: GPL-2.0-only
// What the library reads out of each report, and what it says when a report is not as it should be.
#include "report_texts.h"
#include "temporary_directory.h"

#include "libipfc/debug_elements.h"
#include "libipfc/inter_vsan_list.h"
#include "libipfc/interface_report.h"
#include "libipfc/names.h"
#include "libipfc/refusal.h"
#include "libipfc/report_scanner.h"
#include "libipfc/secondary_addresses.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace ipfc_test;

/// The text with its first occurrence of a piece replaced.
std::string with(std::string text, const std::string& piece, const std::string& other)
{
    const size_t place = text.find(piece);
    EXPECT_NE(place, std::string::npos) << piece;
    return text.replace(place, piece.size(), other);
}

/// The complaint about a report, or "accepted".
std::string complaint(const std::function<void()>& parse)
{
    try {
        parse();
    } catch (const ipfc::BadReport& error) {
        return error.what();
    }
    return "accepted";
}

TEST(InterfaceReport, WithoutMappingsHasTheIdentityAlone)
{
    const ipfc::InterfaceReport report = ipfc::parse_interface_report("r", kEmptyInterface);
    EXPECT_EQ(report.vsan, 0);
    EXPECT_EQ(report.fcid.num, 0u);
    EXPECT_EQ(ipfc::to_text(report.port_name), "10:00:00:11:22:33:44:55");
    EXPECT_EQ(ipfc::to_text(report.node_name), "20:01:00:66:77:88:99:aa");
    EXPECT_TRUE(report.mappings.empty());
}

TEST(InterfaceReport, HasMappingsWithTheirExchangesInOrder)
{
    const ipfc::InterfaceReport report = ipfc::parse_interface_report("r", kInterface);
    EXPECT_EQ(report.vsan, 10);
    EXPECT_EQ(ipfc::to_text(report.fcid), "0x0a0b0c");
    ASSERT_EQ(report.mappings.size(), 2u);
    const ipfc::Mapping& first = report.mappings[0];
    EXPECT_EQ(ipfc::to_text(first.port_name), "21:00:00:e0:8b:01:02:03");
    EXPECT_EQ(ipfc::to_text(first.fcid), "0x0a0b0d");
    ASSERT_EQ(first.exchanges.size(), 2u);
    EXPECT_EQ(ipfc::to_text(first.exchanges[0].source), "0x0a0b0c");
    EXPECT_EQ(first.exchanges[0].handle, 31u);
    EXPECT_EQ(ipfc::to_text(first.exchanges[1].source), "0x0a0b77");
    EXPECT_EQ(first.exchanges[1].handle, 0xFFFFFFFFu);
    EXPECT_EQ(ipfc::to_text(report.mappings[1].port_name), "10:00:00:00:00:00:00:07");
    EXPECT_TRUE(report.mappings[1].exchanges.empty());
}

TEST(InterfaceReport, OfFourDigitsLeavesNoPadding)
{
    const std::string text = with(kEmptyInterface, "   0 :", "4095 :");
    EXPECT_EQ(ipfc::parse_interface_report("r", text).vsan, 4095);
}

struct Damage {
    std::string piece;
    std::string other;
    std::string complaint;
};

struct DamagedInterfaceReport : testing::TestWithParam<Damage> {};

TEST_P(DamagedInterfaceReport, IsRefusedWithItsLine)
{
    const std::string text = with(kInterface, GetParam().piece, GetParam().other);
    EXPECT_EQ(complaint([&] { ipfc::parse_interface_report("r", text); }), GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, DamagedInterfaceReport,
    testing::Values(
        Damage{
            "\nVSAN", "VSAN",
            "r, line 1: \"\\nVSAN Interface \" is missing in front of \"VSAN Interface   10 :\""},
        Damage{"  10 :", "4096 :", "r, line 2: 4096 is no VSAN"},
        Damage{"  10 :", "  -1 :", "r, line 2: -1 is no VSAN"},
        Damage{"  10 :", "99999999999 :",
               "r, line 2: \"99999999999 :\" does not start with a decimal number of 32 bits"},
        Damage{"0x0a0b0c\nWW", "0xa0b0c\nWW",
               "r, line 3: \"c\" does not start with 2 hexadecimal digits"},
        Damage{"44:55", "44", "r, line 4: \":\" is missing in front of \"\""},
        Damage{"-> 0x0a0b0d", "0x0a0b0d",
               "r, line 7: \" -> \" is missing in front of \" 0x0a0b0d\""},
        Damage{"0000001f", "1f", "r, line 8: \"1f\" does not start with 8 hexadecimal digits"},
        Damage{"0x0a0b0e\n", "0x0a0b0e",
               "r, line 10: the end of the line is missing in front of the end of the text"},
        Damage{"10:00:00:00:00:00:00:07 -> 0x0a0b0e\n", "\n",
               "r, line 10: \"\" does not start with 2 hexadecimal digits"}));

TEST(InterfaceReport, CutAtAnyPlaceIsRefusedOrEndsWithALine)
{
    const std::string whole = kInterface;
    size_t accepted = 0;
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::string text = whole.substr(0, length);
        if (complaint([&] { ipfc::parse_interface_report("r", text); }) == "accepted") {
            EXPECT_EQ(text.back(), '\n') << length;
            ++accepted;
        }
    }
    // After the column line, the first mapping, and each of its exchanges.
    EXPECT_EQ(accepted, 4u);
}

TEST(ModuleStatistics, AreReadWithoutTheSignThatTheyArePrintedWith)
{
    const ipfc::ModuleStatistics counts = ipfc::parse_module_statistics("r", kStatistics);
    EXPECT_EQ(counts.packets_copied, 5u);
    EXPECT_EQ(counts.bytes_copied, 4294967294u);
    EXPECT_EQ(counts.mappings, 3);
    EXPECT_EQ(counts.exchanges, 1);
}

TEST(ModuleStatistics, WithMoreLinesAreRefused)
{
    EXPECT_EQ(complaint([] {
                  ipfc::parse_module_statistics("r", std::string(kStatistics) + "more = 1\n");
              }),
              "r, line 7: text behind the last count");
}

TEST(InterVsanList, EmptyHasItsHeaderAlone)
{
    EXPECT_TRUE(ipfc::parse_inter_vsan_list("r", kInterVsanHeader).empty());
}

TEST(InterVsanList, IsReadRowByRow)
{
    const auto hosts = ipfc::parse_inter_vsan_list("r", kInterVsanHosts);
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(ipfc::ipv4_to_text(hosts[0].ip_addr), "10.1.2.3");
    EXPECT_EQ(ipfc::to_text(hosts[0].pwwn), "21:00:00:e0:8b:01:02:03");
    EXPECT_EQ(ipfc::to_text(hosts[0].fcid), "0x0a0b0c");
    EXPECT_EQ(hosts[0].fcid.invalid, 0);
    EXPECT_EQ(hosts[0].vsan, 5);
    EXPECT_EQ(ipfc::ipv4_to_text(hosts[1].ip_addr), "255.255.255.255");
    EXPECT_EQ(hosts[1].fcid.invalid, 1);
    EXPECT_EQ(hosts[1].vsan, 4095);
}

TEST(InterVsanList, KeepsAVsanThatIsNone)
{
    const std::string row = "       10.1.2.3 21:00:00:e0:8b:01:02:03 0x000a0b0c -001\n";
    EXPECT_EQ(ipfc::parse_inter_vsan_list("r", kInterVsanHeader + row)[0].vsan, -1);
}

TEST(InterVsanList, WithAnotherHeaderOrRowIsRefused)
{
    EXPECT_EQ(complaint([] { ipfc::parse_inter_vsan_list("r", ""); }).substr(0, 9), "r, line 1");
    EXPECT_EQ(complaint([] {
                  ipfc::parse_inter_vsan_list("r", with(kInterVsanHosts, "10.1.2.3", "10.1.2.3.4"));
              }),
              "r, line 3: \"10.1.2.3.4\" is not an IPv4 address");
    EXPECT_EQ(complaint([] {
                  ipfc::parse_inter_vsan_list("r", with(kInterVsanHosts, "0x000a0b0c", "0x0a0b0c"));
              }),
              "r, line 3: \"0a0b0c 0005\" does not start with 8 hexadecimal digits");
}

TEST(SecondaryAddresses, AreReadInBothFamilies)
{
    const auto addresses = ipfc::parse_secondary_addresses("r", kSecondaryAddresses);
    ASSERT_EQ(addresses.size(), 2u);
    EXPECT_EQ(addresses[0].vsan, 10);
    EXPECT_EQ(ipfc::to_text(addresses[0].address), "10.10.0.77");
    EXPECT_EQ(ipfc::to_text(addresses[0].mac), "02:00:00:00:00:77");
    EXPECT_EQ(ipfc::to_text(addresses[0].fcid), "0x0a0077");
    EXPECT_EQ(addresses[1].vsan, 4095);
    EXPECT_EQ(ipfc::to_text(addresses[1].address), "2001:db8::1");
}

TEST(SecondaryAddresses, WithAWrongLineAreRefused)
{
    EXPECT_EQ(complaint([] {
                  ipfc::parse_secondary_addresses("r", with(kSecondaryAddresses, ".77 ", ".777 "));
              }),
              "r, line 1: address \"10.10.0.777\": neither an IPv4 nor an IPv6 address");
    EXPECT_EQ(complaint([] {
                  ipfc::parse_secondary_addresses("r", with(kSecondaryAddresses, "4095", "4096"));
              }),
              "r, line 2: 4096 is no VSAN");
}

struct ProcTree : testing::Test {
    void put(const std::string& name, const std::string& text) const
    {
        const std::filesystem::path path = directory.path() / name;
        std::filesystem::create_directories(path.parent_path());
        write_file(path, text);
    }

    static ipfc::DeviceError refusal(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const ipfc::DeviceError& error) {
            return error;
        }
        ADD_FAILURE() << "the call was not refused";
        return {"", 0};
    }

    TemporaryDirectory directory;
    ipfc::ProcTree tree{directory.path()};
};

TEST_F(ProcTree, KnowsInterfacesByTheirReportsInNumericOrder)
{
    for (const char* name : {"vsan10", "vsan2", "vsan0", "vsan4095", "vsan4096", "vsan007", "vsan",
                             "vsan-1", "vsan1x", "xvsan1", "statistics", "ivrip_list"}) {
        put(std::string("ipfc/") + name, "");
    }
    EXPECT_EQ(ipfc::interface_vsans(tree), (std::vector<vsan_id_t>{0, 2, 10, 4095}));
}

TEST_F(ProcTree, TellsAMissingInterfaceFromAMissingDriver)
{
    const ipfc::DeviceError no_driver =
        refusal([&] { (void)ipfc::read_interface_report(tree, 10); });
    EXPECT_EQ(no_driver.number(), ENOENT);
    EXPECT_EQ(no_driver.reason(),
              "cannot list " + directory.file("ipfc") + ": No such file or directory");
    put("ipfc/statistics", kStatistics);
    EXPECT_EQ(refusal([&] { (void)ipfc::read_interface_report(tree, 10); }).reason(),
              "VSAN does not exist");
}

TEST_F(ProcTree, ReportLongerThanOneReadIsWhole)
{
    std::string text = kEmptyInterface;
    const size_t lines = 10000;
    for (size_t i = 0; i < lines; ++i) {
        text += "21:00:00:e0:8b:01:02:03 -> 0x0a0b0d\n";
    }
    put("ipfc/vsan0", text);
    EXPECT_EQ(ipfc::read_interface_report(tree, 0).mappings.size(), lines);
}

TEST_F(ProcTree, EndlessReportIsRefused)
{
    std::filesystem::create_directories(directory.path() / "ipfc");
    std::filesystem::create_symlink("/dev/zero", directory.path() / "ipfc/statistics");
    EXPECT_EQ(refusal([&] { (void)ipfc::read_module_statistics(tree); }).number(), EFBIG);
}

TEST_F(ProcTree, BadReportNamesItsFile)
{
    put("ipfc/vsan10", "nonsense\n");
    EXPECT_EQ(complaint([&] { (void)ipfc::read_interface_report(tree, 10); }),
              directory.file("ipfc/vsan10") +
                  ", line 1: \"\\nVSAN Interface \" is missing in front of \"nonsense\"");
}

TEST_F(ProcTree, SecondaryAddressIsWrittenAsThePlatformReadsIt)
{
    put("secondary_ip", "");
    ipfc::SecondaryAddress address{};
    address.vsan = 10;
    address.address = ipfc::parse_inet_addr("", "::ffff:10.0.0.1");
    address.mac = ipfc::parse_mac("", "02:00:00:00:00:7a");
    address.fcid = ipfc::parse_fcid("", "0x0a007a");
    ipfc::add_secondary_address(tree, address);
    EXPECT_EQ(read_file(directory.file("secondary_ip")),
              "add 10 0:0:0:0:0:ffff:a00:1 02:00:00:00:00:7a 0x0a007a\n");
}

TEST_F(ProcTree, SwitchThatIsNeitherOnNorOffIsABadReport)
{
    put("dbgtap/ipfc/errors/history_enabled", "1\n");
    put("dbgtap/ipfc/errors/log_enabled", "2\n");
    EXPECT_EQ(complaint([&] { (void)ipfc::read_debug_elements(tree); }),
              directory.file("dbgtap/ipfc/errors/log_enabled") + ", line 1: neither 0 nor 1");
}

} // namespace
