// SPDX-License-Identifier: GPL-2.0-only
// Locks of the twin: exclusion, and the rules that a checking kernel keeps.
#include "support/twin_test.h"

#include "kapi/slab.h"
#include "kapi/spinlock.h"
#include "kapi/uaccess.h"

#include <thread>

namespace {

using namespace twin;

DEFINE_SPINLOCK(static_lock);
DEFINE_SPINLOCK(other_lock);

class LockTest : public TwinTest {
protected:
    LockTest()
    {
        rwlock_init(&table_lock);
        name_lock(&table_lock, "table_lock");
        name_lock(&static_lock, "static_lock");
        name_lock(&other_lock, "other_lock");
    }

    rwlock_t table_lock;
    unsigned long flags = 0;
};

TEST_F(LockTest, a_table_lock_that_was_never_initialised_is_a_fault)
{
    rwlock_t unready{};
    write_lock_bh(&unready);
    write_unlock_bh(&unready);
    EXPECT_EQ(only_fault(), "write_lock_bh of a lock that was never initialised");
    read_lock_bh(&unready);
    read_unlock_bh(&unready);
    EXPECT_EQ(only_fault(), "read_lock_bh of a lock that was never initialised");
}

TEST_F(LockTest, a_zeroed_spin_lock_is_ready)
{
    spin_lock(&static_lock);
    EXPECT_EQ(locks_held(), 1);
    EXPECT_TRUE(in_atomic());
    spin_unlock(&static_lock);
    EXPECT_EQ(locks_held(), 0);
    EXPECT_FALSE(in_atomic());
}

TEST_F(LockTest, writers_exclude_each_other)
{
    int counter = 0;
    const auto add = [&] {
        for (int i = 0; i < 2000; ++i) {
            write_lock_bh(&table_lock);
            ++counter;
            write_unlock_bh(&table_lock);
        }
    };
    std::thread one(add);
    std::thread two(add);
    one.join();
    two.join();
    EXPECT_EQ(counter, 4000);
}

TEST_F(LockTest, readers_share)
{
    read_lock_bh(&table_lock);
    std::thread([&] {
        read_lock_bh(&table_lock);
        EXPECT_EQ(locks_held(), 2);
        read_unlock_bh(&table_lock);
    }).join();
    read_unlock_bh(&table_lock);
}

TEST_F(LockTest, taking_a_held_lock_again_dies)
{
    write_lock_bh(&table_lock);
    EXPECT_THROW(read_lock_bh(&table_lock), KernelBug);
    EXPECT_THROW(write_lock_bh(&table_lock), KernelBug);
    abandon_locks();
    spin_lock(&static_lock);
    EXPECT_THROW(spin_lock(&static_lock), KernelBug);
    abandon_locks();
    EXPECT_EQ(locks_held(), 0);
    EXPECT_FALSE(in_atomic());
}

TEST_F(LockTest, releasing_what_is_not_held_is_a_fault)
{
    write_unlock_bh(&table_lock);
    EXPECT_EQ(only_fault(), "write_unlock_bh of table_lock, which this thread does not hold");
}

TEST_F(LockTest, another_thread_cannot_release)
{
    spin_lock(&static_lock);
    std::thread([] { spin_unlock(&static_lock); }).join();
    EXPECT_EQ(only_fault(), "spin_unlock of static_lock, which this thread does not hold");
    spin_unlock(&static_lock);
}

TEST_F(LockTest, releasing_by_another_form_is_a_fault)
{
    write_lock_bh(&table_lock);
    read_unlock_bh(&table_lock);
    EXPECT_EQ(only_fault(), "read_unlock_bh of table_lock, which was taken by another form");
}

TEST_F(LockTest, an_inverted_order_is_a_fault_though_nobody_deadlocked)
{
    spin_lock(&static_lock);
    spin_lock(&other_lock);
    spin_unlock(&other_lock);
    spin_unlock(&static_lock);
    EXPECT_TRUE(faults().empty());
    spin_lock(&other_lock);
    spin_lock(&static_lock);
    spin_unlock(&static_lock);
    spin_unlock(&other_lock);
    EXPECT_EQ(only_fault(), "lock order inversion: static_lock taken inside other_lock, the other "
                            "way round before");
}

TEST_F(LockTest, an_order_over_three_locks_is_seen)
{
    declare_lock_order(&table_lock, &static_lock);
    declare_lock_order(&static_lock, &other_lock);
    spin_lock(&other_lock);
    write_lock_bh(&table_lock);
    write_unlock_bh(&table_lock);
    spin_unlock(&other_lock);
    EXPECT_NE(only_fault().find("table_lock taken inside other_lock"), std::string::npos);
}

// One place of initialisation is one class, however many locks it makes.
__attribute__((noinline)) void init_table(rwlock_t* table)
{
    rwlock_init(table);
    asm volatile("" ::: "memory"); // not a tail call, whose place would be this function's caller
}

TEST_F(LockTest, two_locks_of_one_class_may_not_nest)
{
    rwlock_t tables[2];
    init_table(&tables[0]);
    init_table(&tables[1]);
    write_lock_bh(&tables[0]);
    write_lock_bh(&tables[1]);
    write_unlock_bh(&tables[1]);
    write_unlock_bh(&tables[0]);
    EXPECT_NE(only_fault().find("inside another lock of its class"), std::string::npos);
}

TEST_F(LockTest, a_lock_of_softirqs_must_keep_them_out_everywhere)
{
    {
        SoftirqScope softirq;
        spin_lock(&static_lock);
        spin_unlock(&static_lock);
    }
    spin_lock_bh(&static_lock);
    spin_unlock_bh(&static_lock);
    EXPECT_TRUE(faults().empty());
    spin_lock(&static_lock);
    spin_unlock(&static_lock);
    EXPECT_EQ(only_fault(), "softirqs take static_lock, which is also taken with softirqs on");
}

TEST_F(LockTest, a_bh_lock_let_go_and_retaken_with_interrupts_off_stays_balanced)
{
    int runs = 0;
    write_lock_bh(&table_lock);
    spin_lock_irqsave(&static_lock, flags);
    write_unlock_bh(&table_lock);
    raise_softirq([&] { ++runs; });
    EXPECT_EQ(runs, 0);
    write_lock_bh(&table_lock);
    spin_unlock_irqrestore(&static_lock, flags);
    EXPECT_FALSE(context().irqs_off);
    EXPECT_EQ(runs, 0);
    write_unlock_bh(&table_lock);
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(in_atomic());
}

TEST_F(LockTest, nested_interrupt_saving_restores_the_outer_state)
{
    unsigned long inner = 0;
    spin_lock_irqsave(&static_lock, flags);
    spin_lock_irqsave(&other_lock, inner);
    spin_unlock_irqrestore(&other_lock, inner);
    EXPECT_TRUE(context().irqs_off);
    spin_unlock_irqrestore(&static_lock, flags);
    EXPECT_FALSE(context().irqs_off);
}

TEST_F(LockTest, restoring_other_flags_is_a_fault)
{
    spin_lock_irqsave(&static_lock, flags);
    spin_unlock_irqrestore(&static_lock, 0);
    EXPECT_EQ(only_fault(), "spin_unlock_irqrestore with other flags than spin_lock_irqsave gave");
}

TEST_F(LockTest, what_may_sleep_is_a_fault_under_a_lock)
{
    char byte = 0;
    UserMemory user(1);
    spin_lock(&static_lock);
    EXPECT_EQ(copy_to_user(user.address(), &byte, 1), 0u);
    EXPECT_NE(only_fault().find("copy_to_user may sleep"), std::string::npos);
    rtnl_lock();
    EXPECT_NE(only_fault().find("rtnl_lock may sleep"), std::string::npos);
    spin_unlock(&static_lock);
    rtnl_unlock();
}

TEST_F(LockTest, a_sleeping_allocation_under_a_lock_is_served_and_noted)
{
    spin_lock_irqsave(&static_lock, flags);
    void* const block = kmalloc(8, GFP_KERNEL);
    spin_unlock_irqrestore(&static_lock, flags);
    EXPECT_NE(block, nullptr);
    kfree(block);
    ASSERT_EQ(heap().served_atomically().size(), 1u);
    EXPECT_EQ(heap().served_atomically()[0], "kmalloc (1 locks held, softirqs on, interrupts off)");
}

TEST_F(LockTest, the_audit_finds_a_lock_left_held)
{
    write_lock_bh(&table_lock);
    const std::vector<std::string> problems = audit();
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(problems[0], "1 locks still held");
    EXPECT_EQ(problems[1], "left over: 1 locks held, softirqs off, interrupts on");
    write_unlock_bh(&table_lock);
}

TEST_F(LockTest, a_thread_that_ends_with_a_lock_is_a_fault)
{
    std::thread([&] { spin_lock(&other_lock); }).join();
    EXPECT_EQ(only_fault(), "a thread ended with 1 locks held");
    // The lock has no owner any more that could let it go.
    spin_lock_init(&other_lock);
    lockdep::count(-1);
}

TEST_F(LockTest, the_journal_names_what_was_taken)
{
    read_lock_bh(&table_lock);
    read_unlock_bh(&table_lock);
    EXPECT_EQ(journal().texts({Source::lock}),
              (std::vector<std::string>{"read_lock_bh table_lock", "read_unlock_bh table_lock"}));
}

} // namespace
