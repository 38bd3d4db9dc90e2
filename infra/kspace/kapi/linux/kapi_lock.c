// SPDX-License-Identifier: GPL-2.0-only
// Locks. Each caller of an initialisation is a lock class of its own, as with the kernel's macros.
//
// A _bh lock that is let go while interrupts are off must not run softirqs, so the count of
// disabled bottom halves is lowered without looking for work; the next enabling finds it. One that
// is taken while interrupts are off is a lock taken again inside a spin lock that nests in it
// (broadcast replication): the transmit queue's own lock keeps two such senders apart, so it cannot
// end in a deadlock, and the attempts without waiting spare the lock checker a false order.
#include <linux/bottom_half.h>
#include <linux/irqflags.h>
#include <linux/lockdep.h>

#include "kapi/linux/kapi_glue.h"

#define CALLER_CLASS ((struct lock_class_key*)__builtin_return_address(0))

void kapi_bh_disable(void)
{
    local_bh_disable();
}

void kapi_bh_enable(void)
{
    if (irqs_disabled())
        _local_bh_enable();
    else
        local_bh_enable();
}

void kapi_spin_lock_init(spinlock_t* lock)
{
    spin_lock_init(lock);
    lockdep_set_class(lock, CALLER_CLASS);
}

// The address of a static lock is its class.
void kapi_spin_lock_init_static(void* object)
{
    spinlock_t* lock = object;

    *lock = __SPIN_LOCK_UNLOCKED(kapi_static_lock);
}

void kapi_spin_lock(spinlock_t* lock)
{
    spin_lock(lock);
}

void kapi_spin_unlock(spinlock_t* lock)
{
    spin_unlock(lock);
}

void kapi_spin_lock_bh(spinlock_t* lock)
{
    if (!irqs_disabled()) {
        spin_lock_bh(lock);
        return;
    }
    local_bh_disable();
    while (!spin_trylock(lock))
        cpu_relax();
}

void kapi_spin_unlock_bh(spinlock_t* lock)
{
    if (!irqs_disabled()) {
        spin_unlock_bh(lock);
        return;
    }
    spin_unlock(lock);
    _local_bh_enable();
}

unsigned long kapi_spin_lock_irqsave(spinlock_t* lock)
{
    unsigned long flags;

    spin_lock_irqsave(lock, flags);
    return flags;
}

void kapi_spin_unlock_irqrestore(spinlock_t* lock, unsigned long flags)
{
    spin_unlock_irqrestore(lock, flags);
}

void kapi_rwlock_init(rwlock_t* lock)
{
    rwlock_init(lock);
    lockdep_set_class(lock, CALLER_CLASS);
}

void kapi_read_lock_bh(rwlock_t* lock)
{
    if (!irqs_disabled()) {
        read_lock_bh(lock);
        return;
    }
    local_bh_disable();
    while (!read_trylock(lock))
        cpu_relax();
}

void kapi_read_unlock_bh(rwlock_t* lock)
{
    if (!irqs_disabled()) {
        read_unlock_bh(lock);
        return;
    }
    read_unlock(lock);
    _local_bh_enable();
}

void kapi_write_lock_bh(rwlock_t* lock)
{
    if (!irqs_disabled()) {
        write_lock_bh(lock);
        return;
    }
    local_bh_disable();
    while (!write_trylock(lock))
        cpu_relax();
}

void kapi_write_unlock_bh(rwlock_t* lock)
{
    if (!irqs_disabled()) {
        write_unlock_bh(lock);
        return;
    }
    write_unlock(lock);
    _local_bh_enable();
}
