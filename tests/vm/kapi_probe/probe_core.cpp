// SPDX-License-Identifier: GPL-2.0-only
// Locks, memory, sleeping, the log and user memory.
#include "kapi/jiffies.h"
#include "kapi/slab.h"
#include "kapi/string.h"
#include "kapi/uaccess.h"
#include "kapi/wait.h"
#include "probe.h"
#include "truth.h"

namespace {

DEFINE_SPINLOCK(static_lock);
DECLARE_WAIT_QUEUE_HEAD(static_queue);

struct alarm {
    timer_list timer;
    wait_queue_head_t queue;
    volatile unsigned int rung;
    unsigned int softirqs;
};

void ring(void* argument)
{
    alarm* own = static_cast<alarm*>(argument);
    own->softirqs = truth_softirq_count();
    own->rung = own->rung + 1;
    wake_up_interruptible(&own->queue);
}

void sleep_until_rung(alarm* own)
{
    wait_queue_t entry;
    init_waitqueue_entry(&entry);
    add_wait_queue(&own->queue, &entry);
    kapi_set_current_interruptible();
    while (own->rung == 0 && !kapi_signal_pending()) {
        schedule();
        kapi_set_current_interruptible();
    }
    kapi_set_current_running();
    remove_wait_queue(&own->queue, &entry);
}

// From the heap: a timer on the stack would have to be announced to the kernel's checks.
alarm* set_up()
{
    alarm* own = static_cast<alarm*>(kzalloc(sizeof(alarm), GFP_KERNEL));
    if (own != nullptr) {
        init_waitqueue_head(&own->queue);
        kapi_timer_setup(&own->timer, ring, own);
    }
    return own;
}

int timer_rings(alarm* own)
{
    const unsigned long before = jiffies;
    mod_timer(&own->timer, before + HZ / 20);
    sleep_until_rung(own);
    PROBE_EXPECT(own->rung == 1);
    PROBE_EXPECT(own->softirqs != 0);
    PROBE_EXPECT(!time_after(before + HZ / 20, jiffies));
    mod_timer(&own->timer, jiffies + 100 * HZ);
    PROBE_EXPECT(del_timer_sync(&own->timer) == 1);
    PROBE_EXPECT(del_timer_sync(&own->timer) == 0);
    PROBE_EXPECT(own->rung == 1);
    return 0;
}

// The order of transmit's broadcast replication: the outer lock is let go and taken again while the
// inner one keeps interrupts off.
int nested(rwlock_t* outer, spinlock_t* inner)
{
    unsigned long flags;
    const unsigned int preempt = truth_preempt_count();
    write_lock_bh(outer);
    const unsigned int locked = truth_softirq_count();
    spin_lock_irqsave(inner, flags);
    int result = 0;
    for (int round = 0; round < 3 && result == 0; round++) {
        write_unlock_bh(outer);
        if (!truth_irqs_off() || truth_softirq_count() >= locked)
            result = -1;
        write_lock_bh(outer);
        if (!truth_irqs_off() || truth_softirq_count() != locked)
            result = -2;
    }
    spin_unlock_irqrestore(inner, flags);
    write_unlock_bh(outer);
    PROBE_EXPECT(result == 0);
    PROBE_EXPECT(truth_preempt_count() == preempt);
    PROBE_EXPECT(!truth_irqs_off());
    return 0;
}

int plain(rwlock_t* outer, spinlock_t* inner)
{
    const unsigned int preempt = truth_preempt_count();
    read_lock_bh(outer);
    spin_lock(inner);
    spin_unlock(inner);
    read_unlock_bh(outer);
    spin_lock_bh(inner);
    PROBE_EXPECT(truth_softirq_count() != 0);
    spin_unlock_bh(inner);
    PROBE_EXPECT(truth_preempt_count() == preempt);

    unsigned long flags;
    spin_lock_irqsave(&static_lock, flags);
    read_lock_bh(outer);
    read_unlock_bh(outer);
    spin_lock_bh(inner);
    spin_unlock_bh(inner);
    PROBE_EXPECT(truth_irqs_off());
    spin_unlock_irqrestore(&static_lock, flags);
    PROBE_EXPECT(truth_preempt_count() == preempt);
    return 0;
}

} // namespace

void probe_constructed(void*) {}

void probe_sleep(unsigned long ticks)
{
    alarm* own = set_up();
    if (own == nullptr)
        return;
    mod_timer(&own->timer, jiffies + ticks);
    sleep_until_rung(own);
    del_timer_sync(&own->timer);
    kfree(own);
}

int probe_locks()
{
    rwlock_t outer;
    spinlock_t inner;
    rwlock_init(&outer);
    spin_lock_init(&inner);
    PROBE_EXPECT(plain(&outer, &inner) == 0);
    PROBE_EXPECT(nested(&outer, &inner) == 0);
    return 0;
}

int probe_static_objects()
{
    unsigned long flags;
    spin_lock_irqsave(&static_lock, flags);
    spin_unlock_irqrestore(&static_lock, flags);
    // An empty list points at itself, so a queue of zeroes would be taken for one with a sleeper.
    bool zero = true;
    for (unsigned char byte : static_queue.kapi_opaque)
        zero = zero && byte == 0;
    PROBE_EXPECT(!zero);
    wake_up_interruptible(&static_queue);
    return 0;
}

// 777 and 712 bytes: sizes that the scenario looks for in the kernel's trace of allocations.
int probe_memory()
{
    kmem_cache* cache =
        kmem_cache_create("kapi_probe_odd", 712, 0, SLAB_HWCACHE_ALIGN, probe_constructed);
    PROBE_EXPECT(cache != nullptr);
    unsigned long flags;
    spin_lock_irqsave(&static_lock, flags);
    void* block = kmalloc(777, GFP_KERNEL);
    void* object = kmem_cache_alloc(cache, GFP_KERNEL);
    spin_unlock_irqrestore(&static_lock, flags);
    void* relaxed = kmalloc(778, GFP_KERNEL);
    unsigned char* cleared = static_cast<unsigned char*>(kzalloc(779, GFP_KERNEL));
    const bool good = block != nullptr && object != nullptr && relaxed != nullptr &&
                      cleared != nullptr && cleared[0] == 0 && cleared[778] == 0;
    kmem_cache_free(cache, object);
    kmem_cache_destroy(cache);
    kfree(block);
    kfree(relaxed);
    kfree(cleared);
    void* table = vmalloc(1 << 20);
    const bool large = table != nullptr;
    vfree(table);
    PROBE_EXPECT(good && large);
    return 0;
}

int probe_timer()
{
    alarm* own = set_up();
    PROBE_EXPECT(own != nullptr);
    const int result = timer_rings(own);
    del_timer_sync(&own->timer);
    kfree(own);
    return result;
}

int probe_log()
{
    printk("<3>kapi_probe says error %d\n", 3);
    printk("<6>kapi_probe says info %s\n", "6");
    printk("<7><{%s}>kapi_probe says debug\n", "x");
    printk("kapi_probe says nothing about its level\n");
    return 0;
}

// page: one mapped page of user memory with nothing behind it.
int probe_user_memory(unsigned long page)
{
    const auto pointer = [](unsigned long address) { return reinterpret_cast<void*>(address); };
    const unsigned long end = truth_user_end();
    PROBE_EXPECT(access_ok(VERIFY_READ, pointer(page), 4096));
    PROBE_EXPECT(access_ok(VERIFY_WRITE, pointer(end - 16), 16));
    PROBE_EXPECT(!access_ok(VERIFY_READ, pointer(end - 8), 16));
    PROBE_EXPECT(!access_ok(VERIFY_WRITE, pointer(end), 1));
    PROBE_EXPECT(!access_ok(VERIFY_READ, pointer(~0ul - 7), 16));
    PROBE_EXPECT(!access_ok(VERIFY_READ, pointer(page), ~0ul));
    char text[8] = "1234567";
    PROBE_EXPECT(copy_to_user(pointer(page + 4096 - 8), text, 8) == 0);
    memset(text, 0, sizeof text);
    PROBE_EXPECT(copy_from_user(text, pointer(page + 4096 - 8), 8) == 0);
    PROBE_EXPECT(strcmp(text, "1234567") == 0);
    PROBE_EXPECT(copy_from_user(text, pointer(page + 4096 - 4), 8) != 0);
    PROBE_EXPECT(copy_to_user(pointer(page + 4096), text, 8) == 8);
    return 0;
}
