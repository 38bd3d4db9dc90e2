// SPDX-License-Identifier: GPL-2.0-only
#include "lockdep.h"

#include "context.h"
#include "fault.h"
#include "records.h"
#include "sanitizers.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace twin {
namespace {

using Key = const void*;

struct LockClass {
    std::string name;
    std::set<Key> inner; // taken while this one was held
    bool in_softirq = false;
    bool with_softirqs_on = false;
};

std::mutex mutex;
std::map<Key, LockClass> classes;
std::map<Key, Key> known_sites; // the lock's address to its class, for names given by address
std::atomic<int> held_count{0};
std::atomic<unsigned> generation{0};

// What a thread has already entered, so that the tables' mutex is taken once for each fact: taken
// always, it would order the threads so well that a race detector sees no race any more.
struct Seen {
    unsigned generation = 0;
    std::set<std::pair<Key, Key>> pairs;
    std::set<std::pair<Key, int>> uses;
};

Seen& seen()
{
    thread_local Seen own;
    const unsigned now = generation.load(std::memory_order_relaxed);
    if (own.generation != now)
        own = Seen{now, {}, {}};
    return own;
}

std::string name_locked(Key key)
{
    const auto found = classes.find(key);
    if (found == classes.end() || found->second.name.empty())
        return strf("lock class %p", key);
    return found->second.name;
}

bool reaches(Key from, Key to, std::set<Key>& visited)
{
    if (from == to)
        return true;
    if (!visited.insert(from).second)
        return false;
    for (const Key next : classes[from].inner)
        if (reaches(next, to, visited))
            return true;
    return false;
}

void note_order(Key outer, Key inner)
{
    if (!seen().pairs.insert({outer, inner}).second)
        return;
    RecordGuard guard(mutex);
    std::set<Key> visited;
    if (reaches(inner, outer, visited))
        fault("lock order inversion: " + name_locked(inner) + " taken inside " +
              name_locked(outer) + ", the other way round before");
    else
        classes[outer].inner.insert(inner);
}

// A lock that softirqs take must keep them out wherever else it is taken.
void note_use(Key lock_class)
{
    const Context& own = context();
    const bool in_softirq = own.softirq_depth > 0;
    const bool softirqs_on = !in_softirq && own.bh_depth == 0 && !own.irqs_off;
    if (!in_softirq && !softirqs_on)
        return;
    if (!seen().uses.insert({lock_class, in_softirq ? 1 : 2}).second)
        return;
    RecordGuard guard(mutex);
    LockClass& entry = classes[lock_class];
    (in_softirq ? entry.in_softirq : entry.with_softirqs_on) = true;
    if (entry.in_softirq && entry.with_softirqs_on)
        fault("softirqs take " + name_locked(lock_class) +
              ", which is also taken with softirqs on");
}

} // namespace

void name_lock(const void* lock, std::string name)
{
    RecordGuard guard(mutex);
    const auto site = known_sites.find(lock);
    classes[site != known_sites.end() ? site->second : lock].name = std::move(name);
}

void declare_lock_order(const void* outer, const void* inner)
{
    RecordGuard guard(mutex);
    const auto key = [](const void* lock) {
        const auto site = known_sites.find(lock);
        return site != known_sites.end() ? site->second : lock;
    };
    classes[key(outer)].inner.insert(key(inner));
}

int locks_held()
{
    return held_count.load(std::memory_order_relaxed);
}

namespace lockdep {

const void* class_of(const void* lock, const void* init_site)
{
    if (init_site == nullptr)
        return lock;
    RecordGuard guard(mutex);
    known_sites[lock] = init_site;
    return init_site;
}

std::string name_of(const void* lock_class)
{
    RecordGuard guard(mutex);
    return name_locked(lock_class);
}

// A lock let go inside an interrupt-saving one and taken again there (broadcast replication) is no
// order of its own: the device's transmit lock keeps two such senders apart.
static bool taken_again(const HeldLock& inside, const void* lock)
{
    return inside.irqsave &&
           std::find(inside.outer.begin(), inside.outer.end(), lock) != inside.outer.end();
}

void before_acquire(const void* lock, const void* lock_class, const char* function)
{
    for (const HeldLock& held : context().held) {
        if (held.lock == lock)
            die(strf("%s of %s, which this thread holds already", function,
                     name_of(lock_class).c_str()));
        if (held.lock_class == lock_class)
            fault(strf("%s of %s inside another lock of its class", function,
                       name_of(lock_class).c_str()));
        else if (!taken_again(held, lock))
            note_order(held.lock_class, lock_class);
    }
    note_use(lock_class);
}

void count(int change)
{
    held_count.fetch_add(change, std::memory_order_relaxed);
}

void reset()
{
    RecordGuard guard(mutex);
    classes.clear();
    known_sites.clear();
    generation.fetch_add(1, std::memory_order_relaxed);
}

} // namespace lockdep
} // namespace twin

#if TWIN_TSAN
// The order of locks is judged here, with what the kernel knows of it.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "detect_deadlocks=0";
}
#endif
