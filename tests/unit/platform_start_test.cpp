// SPDX-License-Identifier: GPL-2.0-only
// The platform as a module: start, end, files.
#include "support/fc2_rig.h"
#include "support/out_of_memory.h"

namespace {

using PlatformStartTest = TwinTest;

TEST_F(PlatformStartTest, it_makes_its_files_and_takes_them_away)
{
    twin::Fabric fabric;
    brim_link link(fabric);
    ASSERT_EQ(brim_platform_start(&link), 0);
    EXPECT_TRUE(twin::proc_exists("brim_sw/dbgtap"));
    EXPECT_TRUE(twin::proc_exists("brim_sw/secondary_ip"));
    EXPECT_TRUE(twin::proc_exists("brim_sw/fc2"));
    brim_platform_stop();
    EXPECT_FALSE(twin::proc_exists("brim_sw"));
}

TEST_F(PlatformStartTest, a_socket_gets_the_stack_of_the_platform_that_runs)
{
    twin::Fabric fabric;
    brim_link link(fabric);
    socket* sock = nullptr;
    ASSERT_EQ(brim_platform_start(&link), 0);
    ASSERT_EQ(kfc2_sock_create(0, &sock, [](socket*, int) { return 0; }), 0);
    fc2_opt_nport_t option = nport_option(10, a_fcid);
    EXPECT_EQ(kfc2_setsockopt(sock, 267, FC2_OPT_ADD_NPORT, &option, 136), 0);
    EXPECT_EQ(twin::proc_read("brim_sw/fc2"),
              "frames received             0\n"
              "frames sent                 1\n"
              "frames for others           0\n"
              "malformed frames            0\n"
              "frames with a bad CRC       0\n"
              "sequences discarded         0\n"
              "units delivered             0\n"
              "units that no socket wants  0\n"
              "units dropped               0\n"
              "logins refused              0\n"
              "logins unanswered           0\n"
              "N_Port vsan 10 fcid 0x0a0a01 20:01:02:00:00:0a:0a:01\n");
    kfc2_sock_close(sock);
    brim_platform_stop();
    EXPECT_EQ(kfc2_sock_create(0, &sock, [](socket*, int) { return 0; }), -19);
}

TEST_F(PlatformStartTest, a_socket_left_open_is_closed_at_the_end)
{
    twin::Fabric fabric;
    brim_link link(fabric);
    socket* sock = nullptr;
    ASSERT_EQ(brim_platform_start(&link), 0);
    ASSERT_EQ(kfc2_sock_create(0, &sock, [](socket*, int) { return 0; }), 0);
    brim_platform_stop();
}

TEST_F(PlatformStartTest, a_start_without_memory_leaves_nothing_behind)
{
    const OutOfMemoryRuns runs = survive_out_of_memory([] {
        twin::Fabric fabric;
        brim_link link(fabric);
        if (brim_platform_start(&link) == 0)
            brim_platform_stop();
    });
    EXPECT_GE(runs.allocations, 5u);
}

TEST_F(PlatformStartTest, the_report_reads_the_same_through_windows_of_every_size)
{
    twin::Fabric fabric;
    brim_link link(fabric);
    ASSERT_EQ(brim_platform_start(&link), 0);
    socket* sock = nullptr;
    ASSERT_EQ(kfc2_sock_create(0, &sock, [](socket*, int) { return 0; }), 0);
    for (std::uint16_t vsan = 0; vsan < 200; ++vsan) {
        fc2_opt_nport_t option = nport_option(vsan, a_fcid);
        ASSERT_EQ(kfc2_setsockopt(sock, 267, FC2_OPT_ADD_NPORT, &option, 136), 0);
    }
    const std::string whole = twin::proc_read("brim_sw/fc2", 65536);
    EXPECT_NE(whole.find("N_Port vsan 199 fcid"), std::string::npos);
    for (std::size_t count : {1u, 7u, 100u, 4096u})
        EXPECT_EQ(twin::proc_read("brim_sw/fc2", count), whole) << count;
    kfc2_sock_close(sock);
    brim_platform_stop();
}

} // namespace
