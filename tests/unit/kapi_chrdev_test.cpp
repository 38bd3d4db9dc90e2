// SPDX-License-Identifier: GPL-2.0-only
// Character devices, sleeping readers and poll of the twin.
#include "support/twin_test.h"

#include "kapi/spinlock.h"
#include "kapi/wait.h"

#include <atomic>

namespace {

using namespace twin;

DECLARE_WAIT_QUEUE_HEAD(readers);
std::atomic<int> available;
std::atomic<int> commands_inside;
std::atomic<int> most_inside;
int opened;
bool stays_marked; // the reader's mistake
int released;
spinlock_t poll_lock;

ssize_t read_one(file* filp, char*, std::size_t count, loff_t*)
{
    wait_queue_t entry;
    init_waitqueue_entry(&entry);
    add_wait_queue(&readers, &entry);
    kapi_set_current_interruptible();
    ssize_t result = static_cast<ssize_t>(count);
    while (available == 0) {
        if ((filp->f_flags & KAPI_O_NONBLOCK) != 0) {
            result = -11;
            break;
        }
        if (kapi_signal_pending()) {
            result = -512;
            break;
        }
        schedule();
        kapi_set_current_interruptible();
    }
    if (!stays_marked)
        kapi_set_current_running();
    remove_wait_queue(&readers, &entry);
    return result;
}

unsigned poll_one(file* filp, poll_table* table) KAPI_NO_TSA
{
    spin_lock(&poll_lock);
    poll_wait(filp, &readers, table);
    const unsigned mask = available != 0 ? POLLIN | POLLRDNORM : 0;
    spin_unlock(&poll_lock);
    return mask;
}

int command(inode* node, file* filp, unsigned cmd, unsigned long argument)
{
    EXPECT_EQ(file_inode(filp), node);
    most_inside = std::max<int>(most_inside, ++commands_inside);
    std::this_thread::yield();
    --commands_inside;
    return static_cast<int>(cmd + argument);
}

long compat(file* filp, unsigned cmd, unsigned long argument)
{
    return command(file_inode(filp), filp, cmd, argument) + 1000;
}

int open_one(inode*, file*)
{
    ++opened;
    return 0;
}

int release_one(inode*, file*)
{
    ++released;
    return 0;
}

constexpr file_operations operations = {.read = read_one,
                                        .write = nullptr,
                                        .poll = poll_one,
                                        .ioctl = command,
                                        .compat_ioctl = compat,
                                        .open = open_one,
                                        .release = release_one};

class CharDeviceTest : public TwinTest {
protected:
    void SetUp() override
    {
        available = commands_inside = most_inside = opened = released = 0;
        major_ = register_chrdev(0, "device", &operations);
        ASSERT_GT(major_, 0);
    }
    void tidy() override
    {
        if (find_char_device("device"))
            unregister_chrdev(static_cast<unsigned>(major_), "device");
    }

    int major_ = 0;
};

TEST_F(CharDeviceTest, an_automatic_major_is_the_highest_free_one)
{
    EXPECT_EQ(major_, 254);
    take_major(253);
    EXPECT_EQ(register_chrdev(0, "second", &operations), 252);
    unregister_chrdev(252, "second");
}

TEST_F(CharDeviceTest, a_chosen_major_gives_0_and_a_taken_one_is_refused)
{
    EXPECT_EQ(register_chrdev(60, "second", &operations), 0);
    EXPECT_EQ(register_chrdev(60, "third", &operations), -16);
    EXPECT_EQ(register_chrdev(254, "third", &operations), -16);
    EXPECT_EQ(register_chrdev(4096, "third", &operations), -22);
    heap().fail_nth(1);
    EXPECT_EQ(register_chrdev(61, "third", &operations), -12);
    unregister_chrdev(60, "second");
}

TEST_F(CharDeviceTest, unregistering_by_another_name_leaves_the_device)
{
    unregister_chrdev(254, "other");
    EXPECT_TRUE(find_char_device("device"));
}

TEST_F(CharDeviceTest, open_and_release_reach_the_driver)
{
    {
        CharFile file("device");
        EXPECT_EQ(file.error(), 0);
        EXPECT_EQ(opened, 1);
        EXPECT_EQ(open_files(), 1u);
    }
    EXPECT_EQ(released, 1);
    EXPECT_EQ(open_files(), 0u);
}

TEST_F(CharDeviceTest, an_absent_device_cannot_be_opened)
{
    CharFile file("nothing");
    EXPECT_EQ(file.error(), -6);
    EXPECT_EQ(file.ioctl(1, 1), -25);
}

TEST_F(CharDeviceTest, a_read_into_kernel_addresses_never_reaches_the_driver)
{
    CharFile file("device");
    EXPECT_EQ(file.read(reinterpret_cast<void*>(0xffff888000000000), 12), -14);
}

TEST_F(CharDeviceTest, commands_run_one_at_a_time)
{
    CharFile file("device");
    std::vector<std::unique_ptr<Process>> processes;
    processes.reserve(4);
    for (int i = 0; i < 4; ++i)
        processes.push_back(std::make_unique<Process>([&] {
            long sum = 0;
            for (int j = 0; j < 50; ++j)
                sum += file.ioctl(1, 2) + file.compat_ioctl(1, 2);
            return sum;
        }));
    for (const auto& process : processes)
        EXPECT_EQ(process->result(), 50 * (3 + 1003));
    EXPECT_EQ(most_inside, 1);
}

TEST_F(CharDeviceTest, a_command_copies_its_record_in_and_back)
{
    CharFile file("device");
    const UserMemory user(4);
    int record = 5;
    EXPECT_NE(file.command(0, record), 0);
    EXPECT_EQ(record, 5);
}

TEST_F(CharDeviceTest, a_non_blocking_read_returns_at_once)
{
    CharFile file("device", KAPI_O_NONBLOCK);
    UserMemory user(12);
    EXPECT_EQ(file.read(user.address(), 12), -11);
}

TEST_F(CharDeviceTest, a_sleeping_reader_is_woken)
{
    CharFile file("device");
    UserMemory user(12);
    Process reader([&] { return file.read(user.address(), 12); });
    ASSERT_TRUE(reader.wait_until_asleep());
    EXPECT_EQ(waiters(&readers), 1u);
    EXPECT_FALSE(reader.finished());
    available = 1;
    wake_up_interruptible(&readers);
    EXPECT_EQ(reader.result(), 12);
    EXPECT_EQ(wake_ups().calls, 1u);
    EXPECT_EQ(wake_ups().woken, 1u);
}

TEST_F(CharDeviceTest, a_wake_up_without_reason_sends_the_reader_back_to_sleep)
{
    CharFile file("device");
    UserMemory user(12);
    Process reader([&] { return file.read(user.address(), 12); });
    ASSERT_TRUE(reader.wait_until_asleep());
    wake_up_interruptible(&readers);
    ASSERT_TRUE(reader.wait_until_asleep());
    available = 1;
    wake_up_interruptible(&readers);
    EXPECT_EQ(reader.result(), 12);
}

TEST_F(CharDeviceTest, a_signal_ends_the_sleep)
{
    CharFile file("device");
    UserMemory user(12);
    Process reader([&] { return file.read(user.address(), 12); });
    ASSERT_TRUE(reader.wait_until_asleep());
    reader.send_signal();
    EXPECT_EQ(reader.result(), -512);
    set_signal_pending(true);
    EXPECT_EQ(file.read(user.address(), 12), -512);
}

TEST_F(CharDeviceTest, a_wake_up_between_marking_and_sleeping_is_not_lost)
{
    kapi_set_current_interruptible();
    wait_queue_t entry;
    init_waitqueue_entry(&entry);
    add_wait_queue(&readers, &entry);
    wake_up_interruptible(&readers);
    schedule();
    remove_wait_queue(&readers, &entry);
}

TEST_F(CharDeviceTest, an_entry_left_in_a_queue_is_found)
{
    wait_queue_t entry;
    init_waitqueue_entry(&entry);
    add_wait_queue(&readers, &entry);
    tidy();
    EXPECT_EQ(audit(), std::vector<std::string>{"1 entries still in wait queues"});
    remove_wait_queue(&readers, &entry);
}

TEST_F(CharDeviceTest, a_read_that_returns_with_its_task_marked_to_sleep_is_a_fault)
{
    CharFile file("device");
    const UserMemory user(12);
    available = 1;
    stays_marked = true;
    EXPECT_EQ(file.read(user.address(), 12), 12);
    stays_marked = false;
    EXPECT_NE(only_fault().find("read returned without its task being set running"),
              std::string::npos);
    kapi_set_current_running();
}

TEST_F(CharDeviceTest, sleeping_under_a_lock_is_a_fault)
{
    spin_lock(&poll_lock);
    schedule();
    spin_unlock(&poll_lock);
    EXPECT_NE(only_fault().find("schedule may sleep"), std::string::npos);
}

TEST_F(CharDeviceTest, poll_registers_outside_the_drivers_lock_and_sees_later_wake_ups)
{
    CharFile file("device");
    PollEntry entry;
    EXPECT_EQ(file.poll(entry), 0u);
    EXPECT_EQ(waiters(&readers), 1u);
    EXPECT_FALSE(entry.woken());
    available = 1;
    wake_up_interruptible(&readers);
    EXPECT_TRUE(entry.woken());
    EXPECT_EQ(file.poll_once(), 0x41u);
}

TEST_F(CharDeviceTest, poll_without_a_table_registers_nowhere)
{
    CharFile file("device");
    EXPECT_EQ(file.poll_once(), 0u);
    EXPECT_EQ(waiters(), 0u);
}

} // namespace
