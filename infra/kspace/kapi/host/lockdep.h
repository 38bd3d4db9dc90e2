// SPDX-License-Identifier: GPL-2.0-only
// The order in which locks are taken, learned as a graph of lock classes. A lock that was
// initialised by a call has the call's place as its class, a statically ready one has its own.
#pragma once

#include <string>

namespace twin {

// The name that faults and the journal show. One name for a whole class is enough.
void name_lock(const void* lock, std::string name);

// From now on taking outer while inner is held is a fault, without having been seen once.
void declare_lock_order(const void* outer, const void* inner);

// Locks held by any thread.
int locks_held();

// For a test that expects a KernelBug: lets go of all that the calling thread holds, and turns
// softirqs and interrupts on.
void abandon_locks();

namespace lockdep {

const void* class_of(const void* lock, const void* init_site);
std::string name_of(const void* lock_class);
// Before the wait for a lock; dies when waiting could never end.
void before_acquire(const void* lock, const void* lock_class, const char* function);
void count(int change);
void reset();

} // namespace lockdep
} // namespace twin
