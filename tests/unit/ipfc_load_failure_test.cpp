// SPDX-License-Identifier: GPL-2.0-only
// Start-up that fails: each step's message and result, what is undone, and what is left behind.
#include "support/control.h"

namespace {

using twin::Kind;

struct FailingStep {
    const char* name;
    std::function<void()> prepare;
    int result;
    Texts journal; // whole
    bool socket_left;
    bool callbacks_left;
    Texts proc_left; // in brim_sw
    int debug_left;
    Texts caches_left;
};

// How a table's step comes about: the nth allocation of one kind.
std::function<void()> without(Kind kind, unsigned nth)
{
    return [kind, nth] { twin::heap().fail_nth(kind, nth); };
}

const FailingStep failing_steps[] = {
    {
        "the chosen major number is taken",
        [] {
            twin::take_major(42);
            major = 42;
        },
        -16,
        {
            "register_chrdev 42 ipfc = -16",
            "<3>ipfc - Unable to get major number 42. Aborting\n",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "no major number can be assigned",
        without(Kind::chrdev, 1),
        -12,
        {
            "register_chrdev 0 ipfc = -12",
            "<3>ipfc - Unable to get major number 0. Aborting\n",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "no mapping cache",
        without(Kind::cache, 1),
        -12,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache failed",
            "<3>ipfc - Can not create the mapping cache\n",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "no exchange cache",
        without(Kind::cache, 2),
        -12,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache failed",
            "<3>ipfc - Can not create the exchange cache\n",
            "kmem_cache_destroy ipfc_mapping_cache",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "no socket",
        [] { platform().sock_create_result = -97; },
        -97,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache",
            "kfc2_sock_create 0 = -97",
            "<3>ipfc - Can not open the socket to FC2 stack\n",
            "kmem_cache_destroy ipfc_mapping_cache",
            "kmem_cache_destroy exchange_cache",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "the socket cannot be bound",
        [] { platform().bind_result = -98; },
        -98,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache",
            "kfc2_sock_create 0 = 0",
            "kfc2_sock_bind 128 = -98",
            "<3>ipfc - Socket bind failed\n",
            "kfc2_sock_close",
            "kmem_cache_destroy ipfc_mapping_cache",
            "kmem_cache_destroy exchange_cache",
        },
        false,
        false,
        {},
        0,
        {},
    },
    {
        "no proc directory",
        without(Kind::proc, 1),
        -12,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache",
            "kfc2_sock_create 0 = 0",
            "kfc2_sock_bind 128 = 0",
            "mip_register_opt = 0",
            "proc_mkdir brim_sw/ipfc failed",
            "<3>ipfc - Can not create the proc directory\n",
            "kmem_cache_destroy ipfc_mapping_cache",
            "kmem_cache_destroy exchange_cache",
        },
        true,
        true,
        {},
        0,
        {},
    },
    {
        "no cache for the inter-VSAN table",
        without(Kind::cache, 3),
        -12,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache",
            "kfc2_sock_create 0 = 0",
            "kfc2_sock_bind 128 = 0",
            "mip_register_opt = 0",
            "proc_mkdir brim_sw/ipfc",
            "create_proc_entry brim_sw/ipfc/statistics",
            "dbgtap_dbg_init ipfc",
            "kmem_cache_create ivrip_slab failed",
            "<3>vrip - Can not create the ivr_ip_list cache\n",
            "<3>ipfc - Can not initialize the IVRIP list\n",
            "kmem_cache_destroy ipfc_mapping_cache",
            "kmem_cache_destroy exchange_cache",
        },
        true,
        true,
        {"ipfc"},
        1,
        {},
    },
    {
        "no report of the inter-VSAN table",
        without(Kind::proc, 3),
        -12,
        {
            "register_chrdev 0 ipfc = 254",
            "kmem_cache_create ipfc_mapping_cache",
            "kmem_cache_create exchange_cache",
            "kfc2_sock_create 0 = 0",
            "kfc2_sock_bind 128 = 0",
            "mip_register_opt = 0",
            "proc_mkdir brim_sw/ipfc",
            "create_proc_entry brim_sw/ipfc/statistics",
            "dbgtap_dbg_init ipfc",
            "kmem_cache_create ivrip_slab",
            "create_proc_entry brim_sw/ipfc/ivrip_list failed",
            "remove_proc_entry brim_sw/mip",
            "<3>ipfc - Can not initialize the IVRIP list\n",
            "kmem_cache_destroy ipfc_mapping_cache",
            "kmem_cache_destroy exchange_cache",
        },
        true,
        true,
        {"ipfc"},
        1,
        {"ivrip_slab"},
    },
};

class LoadFailureTest : public UnloadedModuleTest {
protected:
    // Runs check after each failed start-up; the next row begins with a fresh kernel.
    void for_each_failing_step(const std::function<void(const FailingStep&, int result)>& check)
    {
        for (const FailingStep& step : failing_steps) {
            SCOPED_TRACE(step.name);
            platform().reset();
            const int result = ipfc_module().load(step.prepare);
            twin::heap().never_fail();
            check(step, result);
            tidy();
            for (const std::string& problem : twin::audit())
                ADD_FAILURE() << problem;
            twin::reset();
        }
        platform().reset();
    }
};

TEST_F(LoadFailureTest, every_failing_step_reports_itself_and_undoes_its_fixed_part_in_order)
{
    for_each_failing_step([](const FailingStep& step, int result) {
        EXPECT_EQ(result, step.result);
        EXPECT_EQ(twin::journal().texts(), step.journal);
        EXPECT_FALSE(ipfc_module().live());
    });
}

TEST_F(LoadFailureTest, every_failing_step_leaves_what_it_does_not_undo)
{
    for_each_failing_step([](const FailingStep& step, int) {
        EXPECT_EQ(platform().open_sockets, step.socket_left ? 1 : 0);
        EXPECT_EQ(platform().mip_callbacks.has_value(), step.callbacks_left);
        EXPECT_EQ(twin::proc_children("brim_sw"), step.proc_left);
        EXPECT_EQ(platform().registrations, step.debug_left);
        Texts caches;
        for (const twin::SlabCache& cache : twin::slab_caches())
            caches.push_back(cache.name);
        EXPECT_EQ(caches, step.caches_left);
    });
}

TEST_F(LoadFailureTest, a_failure_after_the_device_was_registered_leaves_it_registered)
{
    for_each_failing_step([](const FailingStep& step, int) {
        const bool refused = step.journal.size() == 2;
        EXPECT_EQ(twin::find_char_device("ipfc").has_value(), !refused);
    });
}

TEST_F(LoadFailureTest, nobody_opens_the_device_that_a_failed_start_up_left)
{
    for_each_failing_step([](const FailingStep&, int) {
        const twin::CharFile file("ipfc");
        EXPECT_EQ(file.error(), -6);
    });
}

TEST_F(LoadFailureTest, the_module_can_be_loaded_after_a_failure)
{
    for_each_failing_step([this](const FailingStep&, int) {
        tidy();
        twin::reset();
        platform().reset();
        EXPECT_EQ(ipfc_module().load(), 0);
        EXPECT_EQ(major, 254);
    });
}

TEST_F(LoadFailureTest, a_major_number_that_is_taken_makes_start_up_fail_and_is_named)
{
    twin::take_major(42);
    EXPECT_EQ(ipfc_module().load([] { major = 42; }), -16);
    EXPECT_EQ(twin::log().raw(), Texts{"<3>ipfc - Unable to get major number 42. Aborting\n"});
    EXPECT_EQ(major, 42);
    EXPECT_FALSE(twin::find_char_device("ipfc"));
}

TEST_F(LoadFailureTest, a_positive_result_of_socket_creation_is_a_failure_and_passed_on)
{
    platform().sock_create_result = 5;
    EXPECT_EQ(ipfc_module().load(), 5);
    EXPECT_FALSE(ipfc_module().live());
    EXPECT_TRUE(twin::log().contains("<3>ipfc - Can not open the socket to FC2 stack\n"));
    EXPECT_TRUE(twin::slab_caches().empty());
    EXPECT_EQ(only_fault(), "a module's start-up returned 5");
}

TEST_F(LoadFailureTest, a_refused_registration_with_the_secondary_ip_service_is_not_examined)
{
    platform().mip_register_result = -5;
    EXPECT_EQ(ipfc_module().load(), 0);
    EXPECT_FALSE(platform().mip_callbacks);
    EXPECT_EQ(twin::log().raw(), Texts{"<6>Vombrel Ipfc ver 0.02 started\n"});
}

TEST_F(LoadFailureTest, start_up_goes_on_without_the_statistics_report)
{
    twin::heap().fail_nth(Kind::proc, 2);
    EXPECT_EQ(ipfc_module().load(), 0);
    twin::heap().never_fail();
    EXPECT_EQ(twin::proc_children("brim_sw/ipfc"), Texts{"ivrip_list"});
    EXPECT_EQ(twin::log().raw(), Texts{"<6>Vombrel Ipfc ver 0.02 started\n"});
}

TEST_F(LoadFailureTest, without_debug_elements_the_module_works_and_says_nothing)
{
    platform().dbgtap_out_of_memory = true;
    ASSERT_EQ(ipfc_module().load(), 0);
    EXPECT_EQ(DBG_handle, nullptr);
    twin::log().clear();
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(ipfc_create_vsan_interface(4096, PORT_NAME, NODE_NAME), -22);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_TRUE(twin::log().lines().empty());
    ipfc_module().unload();
    EXPECT_EQ(twin::log().raw(), Texts{"<6>Vombrel Ipfc ver 0.02a terminated\n"});
}

} // namespace
