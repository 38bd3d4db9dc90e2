// SPDX-License-Identifier: GPL-2.0-only
// The debug library and its files.
#include "support/fc2_rig.h"

#include "brim/dbgtap_intf.h"

namespace {

const char* const names[] = {"errors", "events"};
constexpr int errors = 100;
constexpr int events = 101;
constexpr char folder[] = "brim_sw/dbgtap/driver/";

class PlatformDbgtapTest : public TwinTest {
protected:
    PlatformDbgtapTest()
    {
        EXPECT_EQ(brim_platform_start(&link), 0);
        handle = dbgtap_dbg_init("driver", "a driver's debug", 2, names);
    }

    void tidy() override
    {
        dbgtap_dbg_close(handle);
        brim_platform_stop();
    }

    static std::string file(const std::string& name) { return folder + name; }
    static void turn(const std::string& name, const char* text)
    {
        EXPECT_EQ(twin::proc_write(file(name), text), static_cast<long>(strlen(text)));
    }

    twin::Fabric fabric;
    brim_link link{fabric};
    dbgtap_handle_t handle;
};

TEST_F(PlatformDbgtapTest, everything_is_off_at_first)
{
    for (int element : {errors, events}) {
        EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, element), 0);
        EXPECT_EQ(dbgtap_chk_nofilter(handle, element), 0);
    }
    dbgtap_log_hist_for_dbgelem(handle, errors, "lost %d\n", 1);
    EXPECT_EQ(twin::proc_read(file("errors/history")), "");
    EXPECT_EQ(twin::proc_read(file("errors/history_enabled")), "0\n");
    EXPECT_EQ(twin::proc_read(file("events/log_enabled")), "0\n");
}

TEST_F(PlatformDbgtapTest, each_switch_is_of_its_own_element)
{
    turn("errors/history_enabled", "1\n");
    turn("events/log_enabled", "1");
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, errors), 1);
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, events), 0);
    EXPECT_EQ(dbgtap_chk_nofilter(handle, errors), 0);
    EXPECT_EQ(dbgtap_chk_nofilter(handle, events), 1);
    EXPECT_EQ(twin::proc_read(file("errors/history_enabled")), "1\n");
    turn("errors/history_enabled", "0\n");
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, errors), 0);
}

TEST_F(PlatformDbgtapTest, words_that_are_no_switch_are_refused)
{
    for (const char* text : {"", "\n", "2\n", "on\n", "11\n", "1 \n", "10000000"})
        EXPECT_EQ(twin::proc_write(file("errors/log_enabled"), text), -22) << text;
    EXPECT_EQ(dbgtap_chk_nofilter(handle, errors), 0);
}

TEST_F(PlatformDbgtapTest, the_history_keeps_messages_as_lines_in_their_order)
{
    turn("events/history_enabled", "1\n");
    dbgtap_log_hist_for_dbgelem(handle, events, "vsan:%d - entering\n", 10);
    dbgtap_log_hist_for_dbgelem(handle, events, "setting TE_ONLY");
    dbgtap_log_hist_for_dbgelem(handle, errors, "another element's\n");
    dbgtap_log_hist_for_dbgelem(handle, events, "last\n");
    EXPECT_EQ(twin::proc_read(file("events/history")),
              "vsan:10 - entering\nsetting TE_ONLY\nlast\n");
    turn("events/history", "0\n");
    EXPECT_EQ(twin::proc_read(file("events/history")), "");
    dbgtap_log_hist_for_dbgelem(handle, events, "again\n");
    EXPECT_EQ(twin::proc_read(file("events/history")), "again\n");
}

TEST_F(PlatformDbgtapTest, a_long_message_is_cut_and_still_a_line)
{
    turn("events/history_enabled", "1\n");
    dbgtap_log_hist_for_dbgelem(handle, events, "%s\n", std::string(400, 'x').c_str());
    dbgtap_log_hist_for_dbgelem(handle, events, "next\n");
    EXPECT_EQ(twin::proc_read(file("events/history")), std::string(254, 'x') + "\nnext\n");
}

TEST_F(PlatformDbgtapTest, the_history_is_bounded_and_loses_its_oldest_messages_whole)
{
    turn("events/history_enabled", "1\n");
    std::string all;
    for (int i = 0; i < 9000; ++i) {
        dbgtap_log_hist_for_dbgelem(handle, events, "message number %d\n", i);
        all += "message number " + std::to_string(i) + "\n";
    }
    const std::string kept = twin::proc_read(file("events/history"), 4096);
    EXPECT_LE(kept.size(), 65536u);
    EXPECT_GT(kept.size(), 65500u);
    EXPECT_EQ(kept, all.substr(all.size() - kept.size()));
    EXPECT_EQ(kept.substr(0, 15), "message number ");
}

TEST_F(PlatformDbgtapTest, a_history_reads_the_same_through_windows_of_every_size)
{
    turn("events/history_enabled", "1\n");
    for (int i = 0; i < 300; ++i)
        dbgtap_log_hist_for_dbgelem(handle, events, "message number %d\n", i);
    const std::string whole = twin::proc_read(file("events/history"), 65536);
    for (std::size_t count : {1u, 7u, 100u, 1000u, 4096u})
        EXPECT_EQ(twin::proc_read(file("events/history"), count), whole) << count;
}

TEST_F(PlatformDbgtapTest, messages_are_taken_with_interrupts_off)
{
    turn("events/history_enabled", "1\n");
    {
        twin::IrqsOffScope scope;
        dbgtap_log_hist_for_dbgelem(handle, events, "quiet\n");
        EXPECT_TRUE(twin::context().irqs_off);
    }
    EXPECT_EQ(twin::proc_read(file("events/history")), "quiet\n");
}

TEST_F(PlatformDbgtapTest, a_missing_registration_means_that_all_is_off)
{
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(nullptr, errors), 0);
    EXPECT_EQ(dbgtap_chk_nofilter(nullptr, errors), 0);
    EXPECT_STREQ(dbgtap_getmodname(nullptr), "");
    dbgtap_log_hist_for_dbgelem(nullptr, errors, "nowhere\n");
    dbgtap_dbg_close(nullptr);
    for (int element : {99, 102, 0, -1})
        EXPECT_EQ(dbgtap_chk_nofilter(handle, element), 0);
}

TEST_F(PlatformDbgtapTest, files_go_with_the_registration)
{
    EXPECT_STREQ(dbgtap_getmodname(handle), "driver");
    EXPECT_TRUE(twin::proc_exists(file("errors/history")));
    dbgtap_dbg_close(handle);
    EXPECT_FALSE(twin::proc_exists("brim_sw/dbgtap/driver"));
    handle = dbgtap_dbg_init("driver", "once more", 2, names);
    EXPECT_TRUE(twin::proc_exists(file("events/log_enabled")));
}

} // namespace
