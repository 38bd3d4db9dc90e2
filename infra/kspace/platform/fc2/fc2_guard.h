// SPDX-License-Identifier: GPL-2.0-only
// Holds a spin lock with interrupts off for the length of a block. Code that lets a lock go in the
// middle calls the lock operations themselves.
#pragma once

#include "kapi/spinlock.h"

class KAPI_SCOPED_CAPABILITY irqsave_guard {
public:
    explicit irqsave_guard(spinlock_t& lock) KAPI_ACQUIRE(lock) : lock_(lock)
    {
        spin_lock_irqsave(&lock_, flags_);
    }
    ~irqsave_guard() KAPI_RELEASE() { spin_unlock_irqrestore(&lock_, flags_); }
    irqsave_guard(const irqsave_guard&) = delete;
    irqsave_guard& operator=(const irqsave_guard&) = delete;

private:
    spinlock_t& lock_;
    unsigned long flags_ = 0;
};
