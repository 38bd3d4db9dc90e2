// SPDX-License-Identifier: GPL-2.0-only
// Locks. The _bh forms keep softirqs of this processor out, the _irqsave forms its interrupts.
// A _bh lock may be let go and taken again while interrupts are off: softirqs then stay off.
#pragma once

#include "compiler.h"

struct KAPI_CAPABILITY("spinlock") spinlock_t {
    alignas(KAPI_SPINLOCK_ALIGN) unsigned char kapi_opaque[KAPI_SPINLOCK_SIZE];
};

struct KAPI_CAPABILITY("rwlock") rwlock_t {
    alignas(KAPI_RWLOCK_ALIGN) unsigned char kapi_opaque[KAPI_RWLOCK_SIZE];
};

extern "C" {
void spin_lock_init(spinlock_t* lock) KAPI_GLUE(spin_lock_init);
void spin_lock(spinlock_t* lock) KAPI_GLUE(spin_lock);
void spin_unlock(spinlock_t* lock) KAPI_GLUE(spin_unlock);
void spin_lock_bh(spinlock_t* lock) KAPI_GLUE(spin_lock_bh);
void spin_unlock_bh(spinlock_t* lock) KAPI_GLUE(spin_unlock_bh);
unsigned long kapi_spin_lock_irqsave(spinlock_t* lock) KAPI_ACQUIRE(lock);
void spin_unlock_irqrestore(spinlock_t* lock, unsigned long flags)
    KAPI_GLUE(spin_unlock_irqrestore);

void rwlock_init(rwlock_t* lock) KAPI_GLUE(rwlock_init);
void read_lock_bh(rwlock_t* lock) KAPI_GLUE(read_lock_bh);
void read_unlock_bh(rwlock_t* lock) KAPI_GLUE(read_unlock_bh);
void write_lock_bh(rwlock_t* lock) KAPI_GLUE(write_lock_bh);
void write_unlock_bh(rwlock_t* lock) KAPI_GLUE(write_unlock_bh);

// Once more with what the analysis needs: clang cannot read both in one declaration.
void spin_lock(spinlock_t* lock) KAPI_ACQUIRE(lock);
void spin_unlock(spinlock_t* lock) KAPI_RELEASE(lock);
void spin_lock_bh(spinlock_t* lock) KAPI_ACQUIRE(lock);
void spin_unlock_bh(spinlock_t* lock) KAPI_RELEASE(lock);
void spin_unlock_irqrestore(spinlock_t* lock, unsigned long flags) KAPI_RELEASE(lock);
void read_lock_bh(rwlock_t* lock) KAPI_ACQUIRE_SHARED(lock);
void read_unlock_bh(rwlock_t* lock) KAPI_RELEASE_SHARED(lock);
void write_lock_bh(rwlock_t* lock) KAPI_ACQUIRE(lock);
void write_unlock_bh(rwlock_t* lock) KAPI_RELEASE(lock);
}

// flags is an unsigned long that the matching spin_unlock_irqrestore takes back.
inline void spin_lock_irqsave(spinlock_t* lock, unsigned long& flags) KAPI_ACQUIRE(lock)
{
    flags = kapi_spin_lock_irqsave(lock);
}

// A lock that is ready before the module's own start-up runs.
#define DEFINE_SPINLOCK(name)                                                                      \
    constinit spinlock_t name{};                                                                   \
    KAPI_STATIC_INIT(kapi_spin_lock_init, name)
