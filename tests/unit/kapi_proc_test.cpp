// SPDX-License-Identifier: GPL-2.0-only
// The proc tree of the twin, the kernel log, the clock, and a module's life.
#include "support/twin_test.h"

#include "kapi/bug.h"
#include "kapi/jiffies.h"
#include "kapi/printk.h"
#include "kapi/slab.h"

namespace {

using namespace twin;

std::string whole_text;
int calls;
bool window; // the handler serves the reader's offset itself

int read_text(char* buffer, char** start, off_t off, int count, int* eof, void*)
{
    ++calls;
    if (!window) {
        whole_text.copy(buffer, whole_text.size());
        return static_cast<int>(whole_text.size());
    }
    const auto from = std::min<std::size_t>(static_cast<std::size_t>(off), whole_text.size());
    const auto length =
        std::min<std::size_t>(static_cast<std::size_t>(count), whole_text.size() - from);
    whole_text.copy(buffer + 100, length, from);
    *start = buffer + 100;
    *eof = from + length == whole_text.size();
    return static_cast<int>(length);
}

class ProcTest : public TwinTest {
protected:
    ProcTest()
    {
        calls = 0;
        window = false;
        directory = proc_mkdir("dir", nullptr);
        report = create_proc_entry("report", 0, directory);
        report->read_proc = read_text;
    }
    void tidy() override
    {
        if (report != nullptr)
            remove_proc_entry("report", directory);
        remove_proc_entry("dir", nullptr);
    }

    proc_dir_entry* directory;
    proc_dir_entry* report;
};

TEST_F(ProcTest, entries_are_found_by_path)
{
    EXPECT_EQ(find_proc("dir/report"), report);
    EXPECT_EQ(proc_children("dir"), std::vector<std::string>{"report"});
    EXPECT_EQ(proc_mode("dir/report"), 0444u);
    EXPECT_FALSE(proc_exists("report"));
}

TEST_F(ProcTest, a_name_can_be_taken_once_and_memory_can_lack)
{
    EXPECT_EQ(create_proc_entry("report", 0, directory), nullptr);
    heap().fail_nth(1);
    EXPECT_EQ(proc_mkdir("other", directory), nullptr);
}

TEST_F(ProcTest, removing_what_never_was_is_silent)
{
    remove_proc_entry("nothing", directory);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(journal().texts({Source::proc}).back(), "remove_proc_entry dir/nothing");
}

TEST_F(ProcTest, a_short_report_is_read_whole_whatever_the_size_of_a_read)
{
    whole_text = "one\ntwo\n";
    EXPECT_EQ(proc_read("dir/report"), whole_text);
    EXPECT_EQ(proc_read("dir/report", 3), whole_text);
    EXPECT_EQ(proc_read_at("dir/report", 4, 100).text, "two\n");
    EXPECT_EQ(proc_read_at("dir/report", 8, 100).result, 0);
}

TEST_F(ProcTest, a_windowed_report_longer_than_a_page_is_read_whole)
{
    window = true;
    whole_text.clear();
    for (int i = 0; i < 3000; ++i)
        whole_text += strf("%d\n", i);
    EXPECT_EQ(proc_read("dir/report", 5000), whole_text);
    EXPECT_GT(calls, 4);
}

TEST_F(ProcTest, offsets_of_2_gigabytes_read_nothing)
{
    whole_text = "x";
    EXPECT_EQ(proc_read_at("dir/report", 1l << 31, 10).result, 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(ProcTest, the_handler_is_shown_alone)
{
    whole_text = "abc";
    const HandlerResult called = call_read_proc(report, 1, 10);
    EXPECT_EQ(called.result, 3);
    EXPECT_EQ(called.start, no_start);
    EXPECT_EQ(called.page.substr(0, 3), "abc");
    EXPECT_NE(called.page[3], '\0');
    window = true;
    EXPECT_EQ(call_read_proc(report, 1, 10).start, 100);
    EXPECT_EQ(call_read_proc(report, 1, 10).eof, 1);
}

TEST_F(ProcTest, a_report_that_says_its_size_gets_the_room)
{
    kapi_proc_set_size(report, [](void*) { return std::size_t{10000}; });
    whole_text.assign(10000, 'a');
    EXPECT_EQ(proc_read("dir/report", 20000).size(), 10000u);
    EXPECT_EQ(call_read_proc(report, 0, 10).page.size(), 10000u) << "and no more";
    whole_text.assign(10, 'a');
    set_one_page_reports(true);
    EXPECT_EQ(call_read_proc(report, 0, 10).page.size(), 4096u);
}

TEST_F(ProcTest, the_log_keeps_level_and_exact_text)
{
    printk("<6>ipfc %d started\n", 2);
    printk("no level");
    ASSERT_EQ(log().lines().size(), 2u);
    EXPECT_EQ(log().lines()[0].level, 6);
    EXPECT_EQ(log().lines()[0].text, "ipfc 2 started\n");
    EXPECT_EQ(log().lines()[1].level, -1);
    EXPECT_TRUE(log().contains("<6>ipfc 2 started\n"));
    log().clear();
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(ProcTest, a_bug_is_an_exception_that_names_its_place)
{
    try {
        BUG();
        FAIL();
    } catch (const KernelBug& bug) {
        EXPECT_NE(std::string(bug.what()).find("kapi_proc_test.cpp"), std::string::npos);
    }
}

TEST_F(ProcTest, timers_fire_in_order_as_the_clock_passes_them)
{
    std::string fired;
    struct Timed {
        timer_list timer;
        std::string* fired;
        char name;
    };
    Timed timers[2] = {{{}, &fired, 'a'}, {{}, &fired, 'b'}};
    for (Timed& timed : timers)
        kapi_timer_setup(
            &timed.timer,
            [](void* argument) {
                const auto* const own = static_cast<Timed*>(argument);
                EXPECT_EQ(context().softirq_depth, 1);
                *own->fired += own->name;
            },
            &timed);
    const unsigned long now = jiffies;
    mod_timer(&timers[0].timer, now + 20);
    mod_timer(&timers[1].timer, now + 10);
    advance(9);
    EXPECT_EQ(fired, "");
    advance(11);
    EXPECT_EQ(fired, "ba");
    mod_timer(&timers[0].timer, jiffies + 5);
    EXPECT_EQ(pending_timers(), 1u);
    EXPECT_EQ(del_timer_sync(&timers[0].timer), 1);
    advance(10);
    EXPECT_EQ(fired, "ba");
}

// ---- a module's life ----

int init_result;
int open_result_during_init;
kmem_cache* module_cache;
proc_dir_entry* module_directory;
constexpr file_operations no_operations = {};

int start()
{
    register_chrdev(0, "module", &no_operations);
    module_cache = kmem_cache_create("module_cache", 8, 0, 0, nullptr);
    module_directory = proc_mkdir("module", nullptr);
    create_proc_entry("report", 0, module_directory);
    open_result_during_init = static_cast<int>(CharFile("module").error());
    return init_result;
}

void stop()
{
    unregister_chrdev(254, "module");
    kmem_cache_destroy(module_cache);
    remove_proc_entry("module", nullptr);
    // As a module does whose directory went first.
    remove_proc_entry("report", module_directory);
}

void stop_carelessly() {}

class ModuleLifeTest : public TwinTest {
protected:
    ModuleLifeTest() { init_result = 0; }
};

TEST_F(ModuleLifeTest, nobody_gets_in_before_the_start_up_is_over)
{
    Module module(start, stop);
    ASSERT_EQ(module.load(), 0);
    EXPECT_EQ(open_result_during_init, -6);
    EXPECT_EQ(CharFile("module").error(), 0);
    module.unload();
    EXPECT_EQ(CharFile("module").error(), -6);
    EXPECT_FALSE(proc_exists("module/report"));
}

TEST_F(ModuleLifeTest, what_a_failed_start_up_left_stays_until_released)
{
    init_result = -12;
    Module module(start, stop);
    EXPECT_EQ(module.load(), -12);
    EXPECT_TRUE(find_char_device("module"));
    EXPECT_EQ(CharFile("module").error(), -6);
    EXPECT_TRUE(proc_exists("module/report"));
    EXPECT_EQ(slab_caches().size(), 1u);
    module.release_leftovers();
    EXPECT_EQ(heap().live(), 0u);
}

TEST_F(ModuleLifeTest, a_module_that_leaves_things_behind_is_found)
{
    Module module(start, stop_carelessly);
    ASSERT_EQ(module.load(), 0);
    module.unload();
    const std::vector<std::string> left = take_faults();
    EXPECT_EQ(left, (std::vector<std::string>{"a module left its character device registered",
                                              "a module left the proc entry module",
                                              "a module left the proc entry module/report",
                                              "a module left the slab cache module_cache"}));
    reset();
}

TEST_F(ModuleLifeTest, unloading_with_an_open_device_is_a_fault)
{
    Module module(start, stop);
    ASSERT_EQ(module.load(), 0);
    {
        CharFile file("module");
        module.unload();
    }
    EXPECT_EQ(only_fault(), "unload while a device is open");
}

} // namespace
