// SPDX-License-Identifier: GPL-2.0-only
#include "clock.h"

#include "context.h"
#include "fault.h"

#include "kapi/jiffies.h"

#include <map>
#include <mutex>

volatile unsigned long jiffies = twin::first_jiffies;

namespace twin {
namespace {

struct TimerBody {
    void (*function)(void*);
    void* argument;
};
static_assert(sizeof(TimerBody) <= sizeof(timer_list));

TimerBody* body(timer_list* timer)
{
    return reinterpret_cast<TimerBody*>(timer->kapi_opaque);
}

std::mutex mutex;
std::mutex running; // for del_timer_sync: held while a timer's function runs
std::map<timer_list*, unsigned long> pending;

// Takes out the timer that expired first; null when none has.
timer_list* next_expired()
{
    std::lock_guard guard(mutex);
    timer_list* first = nullptr;
    for (const auto& [timer, expires] : pending)
        if (!time_after(expires, jiffies) &&
            (first == nullptr || time_after(pending[first], expires)))
            first = timer;
    if (first != nullptr)
        pending.erase(first);
    return first;
}

} // namespace

void advance(unsigned long ticks)
{
    for (unsigned long i = 0; i < ticks; ++i) {
        jiffies = jiffies + 1;
        for (;;) {
            std::lock_guard guard(running);
            timer_list* const timer = next_expired();
            if (timer == nullptr)
                break;
            SoftirqScope scope;
            body(timer)->function(body(timer)->argument);
        }
    }
}

std::size_t pending_timers()
{
    std::lock_guard guard(mutex);
    return pending.size();
}

void reset_clock()
{
    std::lock_guard guard(mutex);
    pending.clear();
    jiffies = first_jiffies;
}

} // namespace twin

void kapi_timer_setup(timer_list* timer, void (*function)(void* argument), void* argument)
{
    *twin::body(timer) = {function, argument};
}

int mod_timer(timer_list* timer, unsigned long expires)
{
    std::lock_guard guard(twin::mutex);
    return twin::pending.insert_or_assign(timer, expires).second ? 0 : 1;
}

int del_timer_sync(timer_list* timer)
{
    twin::might_sleep("del_timer_sync");
    std::scoped_lock guard(twin::running, twin::mutex);
    return twin::pending.erase(timer) != 0 ? 1 : 0;
}
