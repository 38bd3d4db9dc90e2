// SPDX-License-Identifier: GPL-2.0-only
// The report of the inter-VSAN hosts.
#include "support/interface_test.h"

#include "ivr_ip.h"

namespace {

using namespace twin;

const char* const report_path = "brim_sw/ipfc/ivrip_list";

const std::string header = "\n "
                           "            IP "
                           "             PWWN "
                           "          FCID "
                           "    VSAN \n";

class IvripReportTest : public ModuleTest {
protected:
    static void add(const char* octets, const char* port, const char* address, std::uint32_t vsan)
    {
        const UnnumberedAllocations set_up;
        ip_addr_t ip_addr;
        std::memcpy(&ip_addr, bytes(octets).data(), sizeof ip_addr);
        fcid_t host{};
        std::memcpy(&host, bytes(address).data(), sizeof host);
        EXPECT_EQ(ivrip_add_entry(ip_addr, wwn(port), host,
                                  static_cast<vsan_id_t>(__builtin_bswap32(vsan))),
                  0);
    }
    // Hosts 0 to count - 1; the text has the last one first.
    static std::string fill(unsigned count)
    {
        std::string text;
        for (unsigned i = 0; i < count; ++i) {
            const auto high = static_cast<std::uint8_t>(i >> 8);
            const auto low = static_cast<std::uint8_t>(i);
            add(strf("0a 00 %02x %02x", high, low).c_str(),
                strf("10:00:00:00:00:00:%02x:%02x", high, low).c_str(),
                strf("00 01 %02x %02x", high, low).c_str(), 7);
            const std::string address = strf("10.0.%u.%u", high, low);
            text =
                std::string(15 - address.size(), ' ') + address +
                strf(" 10:00:00:00:00:00:%02x:%02x 0x0001%02x%02x 0007\n", high, low, high, low) +
                text;
        }
        return header + text;
    }
};

TEST_F(IvripReportTest, an_empty_table_reports_only_the_header_and_the_end_of_file)
{
    EXPECT_EQ(header, "\n             IP              PWWN           FCID     VSAN \n");
    EXPECT_EQ(proc_read(report_path), header);
    for (const int length : {1, 4096}) {
        const HandlerResult called = call_read_proc(find_proc(report_path), 0, length);
        EXPECT_EQ(called.eof, 1);
        EXPECT_EQ(called.result, std::min(length, static_cast<int>(header.size())));
    }
}

TEST_F(IvripReportTest, a_row_is_aligned_and_its_numbers_are_in_host_order)
{
    add("0a 01 02 03", "21:00:00:e0:8b:01:02:03", "00 0a 0b 0c", 5);
    EXPECT_EQ(proc_read(report_path),
              header + "       10.1.2.3 21:00:00:e0:8b:01:02:03 0x000a0b0c 0005\n");
}

TEST_F(IvripReportTest, the_newest_row_is_first)
{
    add("0a 00 00 01", "10:00:00:00:00:00:00:01", "00 00 00 01", 1);
    add("0a 00 00 02", "10:00:00:00:00:00:00:02", "00 00 00 02", 2);
    add("0a 00 00 01", "10:00:00:00:00:00:00:03", "00 00 00 01", 1); // an update stays in its place
    EXPECT_EQ(proc_read(report_path),
              header + "       10.0.0.2 10:00:00:00:00:00:00:02 0x00000002 0002\n"
                       "       10.0.0.1 10:00:00:00:00:00:00:03 0x00000001 0001\n");
}

TEST_F(IvripReportTest, extreme_values_keep_their_columns_or_widen_them)
{
    add("00 00 00 00", "00:00:00:00:00:00:00:00", "00 00 00 00", 0);
    add("ff ff ff ff", "ff:ff:ff:ff:ff:ff:ff:ff", "ff ff ff ff", 4095);
    add("7f 00 00 01", "01:02:03:04:05:06:07:08", "12 34 56 78", 12345);
    add("01 0b 6f 09", "01:02:03:04:05:06:07:08", "00 00 00 01", 0xFFFFFFFF);
    add("01 0b 6f 09", "01:02:03:04:05:06:07:08", "00 00 00 02", 0x80000000);
    EXPECT_EQ(proc_read(report_path),
              header + "     1.11.111.9 01:02:03:04:05:06:07:08 0x00000002 -2147483648\n"
                       "     1.11.111.9 01:02:03:04:05:06:07:08 0x00000001 -001\n"
                       "      127.0.0.1 01:02:03:04:05:06:07:08 0x12345678 12345\n"
                       "255.255.255.255 ff:ff:ff:ff:ff:ff:ff:ff 0xffffffff 4095\n"
                       "        0.0.0.0 00:00:00:00:00:00:00:00 0x00000000 0000\n");
}

class IvripWindowTest : public IvripReportTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(IvripWindowTest, every_window_begins_exactly_at_the_readers_offset)
{
    const std::string text = fill(GetParam());
    const auto size = static_cast<long>(text.size());
    for (const int length : {1, 7, 100, 4096}) {
        for (long offset = 0; offset <= size + 3; ++offset) {
            const HandlerResult called = call_read_proc(find_proc(report_path), offset, length);
            // The window is checked behind every row: 56 characters each.
            long position = static_cast<long>(header.size());
            bool stopped = false;
            while (position < size && !stopped) {
                position += 56;
                stopped = position >= offset + length;
            }
            const long expected = std::clamp<long>(position - offset, 0, length);
            ASSERT_EQ(called.result, expected) << offset << ", " << length;
            ASSERT_EQ(called.eof, stopped ? 0 : 1) << offset << ", " << length;
            if (expected > 0) {
                ASSERT_EQ(called.page.substr(static_cast<std::size_t>(called.start),
                                             static_cast<std::size_t>(expected)),
                          text.substr(static_cast<std::size_t>(offset),
                                      static_cast<std::size_t>(expected)))
                    << offset << ", " << length;
            }
        }
    }
}

TEST_P(IvripWindowTest, readers_of_any_step_get_the_whole_text)
{
    const std::string text = fill(GetParam());
    for (const std::size_t count : {1u, 7u, 100u, 4096u, 65536u})
        EXPECT_EQ(proc_read(report_path, count), text) << count;
}

INSTANTIATE_TEST_SUITE_P(Sizes, IvripWindowTest, ::testing::Values(0, 1, 3, 40));

TEST_F(IvripReportTest, a_large_table_is_read_to_the_end)
{
    const std::string text = fill(1000);
    EXPECT_EQ(proc_read(report_path, 65536), text);
    set_one_page_reports(true);
    EXPECT_EQ(proc_read(report_path, 65536), text) << "the window goes with the reader";
}

TEST_F(IvripReportTest, the_buffer_holds_the_whole_text)
{
    const std::string text = fill(300);
    const HandlerResult called = call_read_proc(find_proc(report_path), 0, 1 << 20);
    EXPECT_EQ(called.result, static_cast<int>(text.size()));
    EXPECT_EQ(called.eof, 1);
    EXPECT_EQ(called.page.substr(0, text.size()), text);
}

TEST_F(IvripReportTest, the_report_follows_deletions)
{
    fill(3);
    ivrip_del_entry(fcid(0x010001), static_cast<vsan_id_t>(__builtin_bswap32(7)));
    EXPECT_EQ(proc_read(report_path),
              header + "       10.0.0.2 10:00:00:00:00:00:00:02 0x00010002 0007\n"
                       "       10.0.0.0 10:00:00:00:00:00:00:00 0x00010000 0007\n");
}

} // namespace
