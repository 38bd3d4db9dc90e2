// SPDX-License-Identifier: GPL-2.0-only
// Start, end and control device of the probe.
#include "probe.h"

#include "kapi/bug.h"
#include "kapi/chrdev.h"
#include "kapi/errno.h"
#include "kapi/jiffies.h"
#include "kapi/module.h"
#include "kapi/slab.h"
#include "kapi/wait.h"
#include "truth.h"

namespace {

constinit int major = 0;
constinit kmem_cache* cache = nullptr;
constinit net_device* device = nullptr;

DEFINE_SPINLOCK(requests_lock);
DECLARE_WAIT_QUEUE_HEAD(requests_wait);
constinit int requests = 0;

constinit int inside = 0;

void wake()
{
    unsigned long flags;
    spin_lock_irqsave(&requests_lock, flags);
    requests++;
    spin_unlock_irqrestore(&requests_lock, flags);
    wake_up_interruptible(&requests_wait);
}

int alone()
{
    const int before = inside++;
    probe_sleep(HZ / 20);
    const int after = --inside;
    return before == 0 && after == 0 ? 0 : -1;
}

int check(unsigned int command, unsigned long arg)
{
    switch (command) {
    case PROBE_BUFFER_LAYOUT:
        return probe_buffer_layout();
    case PROBE_DEVICE_LAYOUT:
        return probe_device_layout(device);
    case PROBE_LOCKS:
        return probe_locks();
    case PROBE_MEMORY:
        return probe_memory();
    case PROBE_HEADER_FREED_ONCE:
        return probe_header_freed_once(device);
    case PROBE_HEADER_LENGTH:
        return probe_header_length(device);
    case PROBE_ENTRIES:
        return probe_entries();
    case PROBE_USER_MEMORY:
        return probe_user_memory(arg);
    case PROBE_TIMER:
        return probe_timer();
    case PROBE_REFUSED_DEVICE:
        return probe_refused_device(device);
    case PROBE_LOG:
        return probe_log();
    case PROBE_STATIC_OBJECTS:
        return probe_static_objects();
    case PROBE_ADDRESS:
        return probe_address(device);
    default:
        return -ENOTTY;
    }
}

int probe_ioctl(inode*, file*, unsigned int command, unsigned long arg)
{
    switch (command) {
    case PROBE_WAKE:
        wake();
        return 0;
    case PROBE_ALONE:
        return alone();
    case PROBE_BUG:
        BUG();
    case PROBE_DEVICES:
        return probe_many_devices(arg);
    case PROBE_REMOVE_DOOMED:
        probe_entries_remove_doomed();
        return 0;
    case PROBE_REFUSE_HEADER:
        probe_header_refused = arg != 0;
        return 0;
    case PROBE_SENT:
        return static_cast<int>(static_cast<probe_private*>(netdev_priv(device))->good_packets);
    case PROBE_SQUAT:
        return probe_squat(arg != 0);
    default:
        return check(command, arg);
    }
}

// Tells by its result that this entry was taken.
long probe_compat_ioctl(file* filp, unsigned int command, unsigned long arg)
{
    const int result = probe_ioctl(file_inode(filp), filp, command, arg);
    return result < 0 ? result : 1000 + result;
}

ssize_t probe_read(file* filp, char*, std::size_t, loff_t*)
{
    wait_queue_t entry;
    init_waitqueue_entry(&entry);
    add_wait_queue(&requests_wait, &entry);
    kapi_set_current_interruptible();
    ssize_t result = 0;
    while (requests == 0) {
        if ((filp->f_flags & KAPI_O_NONBLOCK) != 0)
            result = -EAGAIN;
        else if (kapi_signal_pending())
            result = -ERESTARTSYS;
        if (result != 0)
            break;
        schedule();
        kapi_set_current_interruptible();
    }
    kapi_set_current_running();
    remove_wait_queue(&requests_wait, &entry);
    if (result == 0)
        requests--;
    return result;
}

unsigned int probe_poll(file* filp, poll_table* table)
{
    unsigned long flags;
    spin_lock_irqsave(&requests_lock, flags);
    poll_wait(filp, &requests_wait, table);
    const unsigned int mask = requests > 0 ? POLLIN | POLLRDNORM : 0;
    spin_unlock_irqrestore(&requests_lock, flags);
    return mask;
}

constinit const file_operations operations = {
    .read = probe_read,
    .write = nullptr,
    .poll = probe_poll,
    .ioctl = probe_ioctl,
    .compat_ioctl = probe_compat_ioctl,
    .open = nullptr,
    .release = nullptr,
};

int start()
{
    major = register_chrdev(0, "kapi_probe", &operations);
    if (major < 0)
        return major;
    cache = kmem_cache_create("kapi_probe_cache", 712, 0, SLAB_HWCACHE_ALIGN, probe_constructed);
    if (cache == nullptr || probe_entries_create() != 0)
        return -ENOMEM;
    device = probe_device_create("kprobe0");
    if (device == nullptr)
        return -ENOMEM;
    while (truth_hold != 0)
        probe_sleep(HZ / 20);
    // All that has been registered stays so.
    if (truth_fail != 0)
        return -EBUSY;
    return 0;
}

void stop()
{
    probe_device_remove(device);
    unregister_chrdev(static_cast<unsigned int>(major), "kapi_probe");
    kmem_cache_destroy(cache);
    probe_entries_remove();
}

} // namespace

module_init(start) module_exit(stop)
