// SPDX-License-Identifier: GPL-2.0-only
// Proc reports: their entries and their texts.
#include "support/interface_test.h"

#include <atomic>
#include <chrono>
#include <thread>

// The module's calls of snprintf, counted by ipfc_message_test.cpp.
extern std::atomic<unsigned> texts_formatted;

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

class ProcTest : public InterfaceTest {};

const char* const report_path = "brim_sw/ipfc/vsan10";
const char* const statistics_path = "brim_sw/ipfc/statistics";

const std::string empty_report = "\n"
                                 "VSAN Interface   10 :\n"
                                 "fcid = 0x0a0b0c\n"
                                 "WW portname = 20:00:00:5e:bf:01:02:03\n"
                                 "WW nodename = 20:01:00:5e:bf:01:02:03\n"
                                 "                  WW_PN ->      FCID\n";

TEST_F(ProcTest, the_directory_holds_statistics_the_hosts_and_one_entry_for_each_interface)
{
    create_interface(4095, own_port, fcid(1));
    EXPECT_EQ(proc_children("brim_sw/ipfc"),
              (Lines{"statistics", "ivrip_list", "vsan10", "vsan4095"}));
}

TEST_F(ProcTest, after_the_interface_is_deleted_its_entry_is_gone_and_statistics_stays)
{
    EXPECT_EQ(ipfc_delete_vsan_interface(own_vsan), 0);
    EXPECT_EQ(proc_children("brim_sw/ipfc"), (Lines{"statistics", "ivrip_list"}));
    ipfc_module().unload();
    EXPECT_FALSE(proc_exists("brim_sw/ipfc"));
}

TEST_F(ProcTest, an_entry_belongs_to_its_interface)
{
    EXPECT_EQ(find_proc(report_path)->read_proc, ipfc_read_proc);
    EXPECT_EQ(find_proc(report_path)->data, dev);
    EXPECT_EQ(find_proc(statistics_path)->read_proc, ipfc_read_stat);
    EXPECT_EQ(find_proc(statistics_path)->data, nullptr);
}

TEST_F(ProcTest, every_entry_has_the_kernels_default_permissions)
{
    for (const char* const path : {report_path, statistics_path, "brim_sw/ipfc/ivrip_list"})
        EXPECT_EQ(proc_mode(path), 0444u) << path;
}

TEST_F(ProcTest, an_entry_that_cannot_be_made_is_null)
{
    heap().fail_nth(Kind::proc, 1);
    EXPECT_EQ(proc_ipfc_create("vsan11", 0, dev), nullptr);
    EXPECT_FALSE(proc_exists("brim_sw/ipfc/vsan11"));
    heap().never_fail();
    EXPECT_NE(proc_ipfc_create("vsan11", 0, dev), nullptr);
    proc_ipfc_remove("vsan11");
    EXPECT_FALSE(proc_exists("brim_sw/ipfc/vsan11"));
}

TEST_F(ProcTest, an_interface_lives_without_its_entry)
{
    heap().fail_nth(Kind::proc, 1);
    ASSERT_NE(create_interface(11, own_port, fcid(1)), nullptr);
    EXPECT_FALSE(proc_exists("brim_sw/ipfc/vsan11"));
    EXPECT_EQ(ipfc_delete_vsan_interface(11), 0);
}

using ProcLoadTest = UnloadedModuleTest;

TEST_F(ProcLoadTest, no_entry_for_the_statistics_is_silent)
{
    heap().fail_nth(Kind::proc, 2); // the directory is the first
    EXPECT_EQ(ipfc_module().load(), 0);
    EXPECT_EQ(proc_children("brim_sw/ipfc"), (Lines{"ivrip_list"}));
    EXPECT_EQ(twin::log().lines().size(), 1u) << "the banner alone";
}

// ---- the module's statistics ----

TEST_F(ProcTest, the_statistics_are_four_counters)
{
    ipfc_skbs_copied = 1;
    ipfc_bytes_copied = 1500;
    add_exchange(priv, add_peer(), own_fcid, 1);
    num_exch_obj = 7;
    EXPECT_EQ(proc_read(statistics_path), "\nGlobal IPFC statistics \n"
                                          "packets copied = 1\n"
                                          "bytes copied   = 1500\n"
                                          "mapping obj allocated = 1\n"
                                          "exch obj allocated = 7\n");
    num_exch_obj = 1;
}

TEST_F(ProcTest, large_unsigned_counters_show_negative)
{
    ipfc_skbs_copied = 2147483648u;
    ipfc_bytes_copied = 4294967295u;
    EXPECT_EQ(proc_read(statistics_path), "\nGlobal IPFC statistics \n"
                                          "packets copied = -2147483648\n"
                                          "bytes copied   = -1\n"
                                          "mapping obj allocated = 0\n"
                                          "exch obj allocated = 0\n");
}

TEST_F(ProcTest, the_statistics_leave_start_and_end_of_file_to_the_proc_layer)
{
    const std::string text = "\nGlobal IPFC statistics \npackets copied = 0\n"
                             "bytes copied   = 0\nmapping obj allocated = 0\n"
                             "exch obj allocated = 0\n";
    for (const off_t offset : {0l, 5l, 4096l}) {
        const HandlerResult called = call_read_proc(find_proc(statistics_path), offset, 10);
        EXPECT_EQ(called.result, static_cast<int>(text.size()));
        EXPECT_EQ(called.start, no_start);
        EXPECT_EQ(called.eof, 0);
        EXPECT_EQ(called.page.substr(0, text.size()), text);
    }
    for (const std::size_t count : {1u, 7u, 100u, 4096u})
        EXPECT_EQ(proc_read(statistics_path, count), text);
}

TEST_F(ProcTest, the_statistics_take_no_lock)
{
    journal().clear();
    proc_read(statistics_path);
    EXPECT_EQ(journal().texts({Source::lock}), Lines{});
}

// ---- an interface's report ----

TEST_F(ProcTest, an_empty_table_gives_header_and_column_line_and_the_end_of_file)
{
    EXPECT_EQ(proc_read(report_path), empty_report);
    EXPECT_EQ(call_read_proc(find_proc(report_path), 0, 4096).eof, 1);
    EXPECT_EQ(call_read_proc(find_proc(report_path), 0, 1).eof, 1);
}

TEST_F(ProcTest, the_header_shows_number_fcid_and_names)
{
    net_device* const last = create_interface(4095, wwn("ff:fe:00:5e:bf:01:02:ff"), fcid(0));
    EXPECT_EQ(proc_read("brim_sw/ipfc/vsan4095"), "\n"
                                                  "VSAN Interface 4095 :\n"
                                                  "fcid = 0x000000\n"
                                                  "WW portname = ff:fe:00:5e:bf:01:02:ff\n"
                                                  "WW nodename = 20:01:00:5e:bf:01:02:03\n"
                                                  "                  WW_PN ->      FCID\n");
    ipfc_priv(last)->fcid = {.str = {0x77, 0xFF, 0xFE, 0xFD}};
    EXPECT_EQ(proc_read("brim_sw/ipfc/vsan4095").substr(23, 16), "fcid = 0xfffefd\n");
    create_interface(0, own_port, own_fcid);
    EXPECT_EQ(proc_read("brim_sw/ipfc/vsan0").substr(0, 23), "\nVSAN Interface    0 :\n");
}

TEST_F(ProcTest, an_fcid_is_six_digits_after_0x_and_a_handle_of_31_prints_as_0000001f)
{
    add_exchange(priv, add(peer_port, {.str = {0x99, 10, 11, 12}}), {.str = {0x99, 10, 11, 12}},
                 31);
    EXPECT_EQ(proc_read(report_path), empty_report + "10:00:00:5e:bf:0a:0b:01 -> 0x0a0b0c\n"
                                                     "   exch with 0x0a0b0c handle = 0000001f\n");
}

TEST_F(ProcTest, mappings_and_exchanges_follow_in_bucket_chain_and_list_order)
{
    kpn_to_fcid_t* const peer = add(peer_port, fcid(0x0a0b0c)); // bucket 15
    add_exchange(priv, peer, fcid(0x0a0b0c), 31);
    add_exchange(priv, peer, fcid(0xFFFEFD), -1);
    add(wwn("10:00:12:00:00:00:00:00"), fcid(1)); // bucket 3
    add_exchange(priv, add(wwn("20:00:00:00:00:00:12:00"), fcid(2)), fcid(0x010203), 0x12345678);
    EXPECT_EQ(proc_read(report_path), empty_report + "10:00:12:00:00:00:00:00 -> 0x000001\n"
                                                     "20:00:00:00:00:00:12:00 -> 0x000002\n"
                                                     "   exch with 0x010203 handle = 12345678\n"
                                                     "10:00:00:5e:bf:0a:0b:01 -> 0x0a0b0c\n"
                                                     "   exch with 0x0a0b0c handle = 0000001f\n"
                                                     "   exch with 0xfffefd handle = ffffffff\n");
}

// A reader that waits for the lock has its header already.
TEST_F(ProcTest, the_header_is_read_before_the_lock_is_taken)
{
    name_lock(&priv->hash_lock, "hash_lock");
    write_lock_bh(&priv->hash_lock);
    texts_formatted = 0;
    std::string report;
    Process reader([&] {
        report = proc_read(report_path);
        return 0L;
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    // An FCID and two names.
    while (texts_formatted < 3 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(texts_formatted, 3u);
    priv->fcid = fcid(0x777777);
    write_unlock_bh(&priv->hash_lock);
    EXPECT_EQ(reader.result(), 0);
    EXPECT_EQ(report, empty_report);
}

TEST_F(ProcTest, the_table_is_read_under_its_lock)
{
    add_exchange(priv, add_peer(), own_fcid, 1);
    name_lock(&priv->hash_lock, "hash_lock");
    journal().clear();
    proc_read_at(report_path, 0, 1000);
    EXPECT_EQ(journal().texts({Source::lock}).at(0), "read_lock_bh hash_lock");
    EXPECT_EQ(journal().texts({Source::lock}).at(1), "read_unlock_bh hash_lock");
    // Stopped within the table.
    journal().clear();
    EXPECT_EQ(call_read_proc(find_proc(report_path), 0, 1).eof, 0);
    EXPECT_EQ(journal().texts({Source::lock}),
              (Lines{"read_lock_bh hash_lock", "read_unlock_bh hash_lock"}));
}

TEST_F(ProcTest, a_report_follows_the_table)
{
    add_peer();
    EXPECT_EQ(proc_read(report_path), empty_report + "10:00:00:5e:bf:0a:0b:01 -> 0x141516\n");
    drop_mappings(priv);
    EXPECT_EQ(proc_read(report_path), empty_report);
}

} // namespace
