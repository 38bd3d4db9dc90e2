// SPDX-License-Identifier: GPL-2.0-only
// Spin locks and reader/writer locks: real exclusion between threads, with the kernel's rules kept
// by the holder's own record (Context). A spin lock's bytes all zero is a lock that is ready.
#include "context.h"
#include "fault.h"
#include "journal.h"
#include "lockdep.h"

#include "kapi/spinlock.h"

#include <pthread.h>

#include <algorithm>
#include <cstring>

namespace {

using namespace twin;

struct SpinBody {
    pthread_mutex_t mutex;
    const void* lock_class;
};
static_assert(sizeof(SpinBody) <= sizeof(spinlock_t));

struct RwBody {
    pthread_rwlock_t lock;
    const void* lock_class;
};
static_assert(sizeof(RwBody) <= sizeof(rwlock_t));

// What interrupts on and off look like in the flags register of this processor.
constexpr unsigned long flags_on = 0x246;
constexpr unsigned long flags_off = 0x46;

SpinBody* body(spinlock_t* lock)
{
    return reinterpret_cast<SpinBody*>(lock->kapi_opaque);
}

RwBody* body(rwlock_t* lock)
{
    return reinterpret_cast<RwBody*>(lock->kapi_opaque);
}

template <typename Lock>
const void* class_of(Lock* lock)
{
    const void* const key = body(lock)->lock_class;
    return key != nullptr ? key : lock;
}

void note(const char* function, const void* lock_class)
{
    journal().add(Source::lock, function + (" " + lockdep::name_of(lock_class)));
}

// Checks the order before it waits, so that a deadlock is reported and not suffered. Waits by
// acquire(), softirqs or interrupts being off already.
template <typename Lock, typename Acquire>
void enter(Lock* lock, HeldLock held, const char* function, Acquire acquire)
{
    held.lock = lock;
    held.lock_class = class_of(lock);
    for (const HeldLock& outer : context().held)
        held.outer.push_back(outer.lock);
    lockdep::before_acquire(lock, held.lock_class, function);
    acquire();
    context().held.push_back(held);
    lockdep::count(1);
    note(function, held.lock_class);
}

// Forgets the lock; false, with a fault, when the calling thread does not hold it in that way.
template <typename Lock>
bool leave(Lock* lock, LockMode mode, bool bh, bool irqsave, const char* function)
{
    auto& held = context().held;
    const auto found = std::find_if(held.rbegin(), held.rend(),
                                    [&](const HeldLock& entry) { return entry.lock == lock; });
    const std::string name = lockdep::name_of(class_of(lock));
    if (found == held.rend()) {
        fault(strf("%s of %s, which this thread does not hold", function, name.c_str()));
        return false;
    }
    // The lock goes all the same: a test that goes on should not hang on its mistake.
    if (found->mode != mode || found->bh != bh || found->irqsave != irqsave)
        fault(strf("%s of %s, which was taken by another form", function, name.c_str()));
    held.erase(std::next(found).base());
    lockdep::count(-1);
    note(function, class_of(lock));
    return true;
}

template <typename Lock>
void refuse_while_held(Lock* lock, const char* function)
{
    for (const HeldLock& entry : context().held)
        if (entry.lock == lock)
            fault(std::string(function) + " of a lock that is held");
}

// All zero bytes would work here, but not in a kernel that checks its locks.
void expect_initialised(rwlock_t* lock, const char* function)
{
    if (body(lock)->lock_class == nullptr)
        fault(std::string(function) + " of a lock that was never initialised");
}

} // namespace

// The place of the call is the lock's class, as with a kernel's macro.
void spin_lock_init(spinlock_t* lock)
{
    refuse_while_held(lock, "spin_lock_init");
    std::memset(lock, 0, sizeof(*lock));
    body(lock)->lock_class = lockdep::class_of(lock, __builtin_return_address(0));
}

void spin_lock(spinlock_t* lock)
{
    enter(lock, {.mode = LockMode::exclusive}, "spin_lock",
          [&] { pthread_mutex_lock(&body(lock)->mutex); });
}

void spin_unlock(spinlock_t* lock)
{
    if (leave(lock, LockMode::exclusive, false, false, "spin_unlock"))
        pthread_mutex_unlock(&body(lock)->mutex);
}

void spin_lock_bh(spinlock_t* lock)
{
    bh_disable();
    enter(lock, {.mode = LockMode::exclusive, .bh = true}, "spin_lock_bh",
          [&] { pthread_mutex_lock(&body(lock)->mutex); });
}

void spin_unlock_bh(spinlock_t* lock)
{
    if (!leave(lock, LockMode::exclusive, true, false, "spin_unlock_bh"))
        return;
    pthread_mutex_unlock(&body(lock)->mutex);
    bh_enable();
}

unsigned long kapi_spin_lock_irqsave(spinlock_t* lock)
{
    // Off before the wait: an interrupt that took the lock meanwhile would wait for this processor.
    const unsigned long flags = context().irqs_off ? flags_off : flags_on;
    context().irqs_off = true;
    enter(lock, {.mode = LockMode::exclusive, .irqsave = true, .flags = flags}, "spin_lock_irqsave",
          [&] { pthread_mutex_lock(&body(lock)->mutex); });
    return flags;
}

void spin_unlock_irqrestore(spinlock_t* lock, unsigned long flags)
{
    for (const HeldLock& entry : context().held)
        if (entry.lock == lock && entry.irqsave && entry.flags != flags)
            fault("spin_unlock_irqrestore with other flags than spin_lock_irqsave gave");
    if (!leave(lock, LockMode::exclusive, false, true, "spin_unlock_irqrestore"))
        return;
    pthread_mutex_unlock(&body(lock)->mutex);
    restore_irqs(flags == flags_off);
}

void rwlock_init(rwlock_t* lock)
{
    refuse_while_held(lock, "rwlock_init");
    std::memset(lock, 0, sizeof(*lock));
    body(lock)->lock_class = lockdep::class_of(lock, __builtin_return_address(0));
}

void read_lock_bh(rwlock_t* lock)
{
    expect_initialised(lock, "read_lock_bh");
    bh_disable();
    enter(lock, {.mode = LockMode::shared, .rw = true, .bh = true}, "read_lock_bh",
          [&] { pthread_rwlock_rdlock(&body(lock)->lock); });
}

void read_unlock_bh(rwlock_t* lock)
{
    if (!leave(lock, LockMode::shared, true, false, "read_unlock_bh"))
        return;
    pthread_rwlock_unlock(&body(lock)->lock);
    bh_enable();
}

void write_lock_bh(rwlock_t* lock)
{
    expect_initialised(lock, "write_lock_bh");
    bh_disable();
    enter(lock, {.mode = LockMode::exclusive, .rw = true, .bh = true}, "write_lock_bh",
          [&] { pthread_rwlock_wrlock(&body(lock)->lock); });
}

void write_unlock_bh(rwlock_t* lock)
{
    if (!leave(lock, LockMode::exclusive, true, false, "write_unlock_bh"))
        return;
    pthread_rwlock_unlock(&body(lock)->lock);
    bh_enable();
}

namespace twin {

void abandon_locks()
{
    Context& own = context();
    while (!own.held.empty()) {
        void* const lock = const_cast<void*>(own.held.back().lock);
        if (own.held.back().rw)
            pthread_rwlock_unlock(&static_cast<RwBody*>(lock)->lock);
        else
            pthread_mutex_unlock(&static_cast<SpinBody*>(lock)->mutex);
        own.held.pop_back();
        lockdep::count(-1);
    }
    own.bh_depth = 0;
    own.irqs_off = false;
    own.softirq_depth = 0;
}

} // namespace twin
