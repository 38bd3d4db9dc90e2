// SPDX-License-Identifier: GPL-2.0-only
#include "task.h"

#include "context.h"
#include "fault.h"
#include "journal.h"
#include "poll_table.h"

#include "kapi/wait.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

namespace twin {

struct Task {
    bool interruptible = false; // marked, so that schedule sleeps
    bool asleep = false;
    bool signal = false;
    bool ended = false;
    std::condition_variable changed;
};

namespace {

using namespace std::chrono_literals;

// Longer than any test sleeps, shorter than a test's time limit.
constexpr auto hung_task = 20s;

struct Waiter {
    const void* entry; // a wait_queue_t or a PollEntry
    Task* task;        // null for a poller
    bool woken;
};

std::mutex mutex; // guards all of this file and every Task
std::map<const wait_queue_head_t*, std::vector<Waiter>> queues;
WakeUps counted;

thread_local std::shared_ptr<Task> own_task;

Task& current()
{
    if (own_task == nullptr)
        own_task = std::make_shared<Task>();
    return *own_task;
}

void erase_entry(const wait_queue_head_t* queue, const void* entry)
{
    auto& waiting = queues[queue];
    std::erase_if(waiting, [&](const Waiter& waiter) { return waiter.entry == entry; });
    if (waiting.empty())
        queues.erase(queue);
}

} // namespace

struct Process::State {
    std::shared_ptr<Task> keeps = std::make_shared<Task>();
    long result = 0;
    std::exception_ptr error;
};

Process::Process(std::function<long()> call) : state_(std::make_shared<State>())
{
    thread_ = std::thread([state = state_, call = std::move(call)] {
        own_task = state->keeps;
        try {
            state->result = call();
        } catch (...) {
            state->error = std::current_exception();
        }
        std::lock_guard guard(mutex);
        state->keeps->ended = true;
        state->keeps->changed.notify_all();
    });
}

Process::~Process()
{
    if (thread_.joinable())
        thread_.join();
}

bool Process::wait_until_asleep()
{
    std::unique_lock guard(mutex);
    Task& task = *state_->keeps;
    if (!task.changed.wait_for(guard, hung_task, [&] { return task.asleep || task.ended; }))
        fault("a process neither slept nor ended");
    return task.asleep;
}

bool Process::finished() const
{
    std::lock_guard guard(mutex);
    return state_->keeps->ended;
}

void Process::send_signal()
{
    std::lock_guard guard(mutex);
    state_->keeps->signal = true;
    state_->keeps->changed.notify_all();
}

long Process::result()
{
    if (thread_.joinable())
        thread_.join();
    if (state_->error != nullptr)
        std::rethrow_exception(state_->error);
    return state_->result;
}

void set_signal_pending(bool pending)
{
    Task& task = current();
    std::lock_guard guard(mutex);
    task.signal = pending;
}

bool marked_interruptible()
{
    const Task& task = current();
    std::lock_guard guard(mutex);
    return task.interruptible;
}

std::size_t waiters(const wait_queue_head_t* queue)
{
    std::lock_guard guard(mutex);
    const auto found = queues.find(queue);
    return found == queues.end() ? 0 : found->second.size();
}

std::size_t waiters()
{
    std::lock_guard guard(mutex);
    std::size_t count = 0;
    for (const auto& entry : queues)
        count += entry.second.size();
    return count;
}

WakeUps wake_ups()
{
    std::lock_guard guard(mutex);
    return counted;
}

void reset_tasks()
{
    Task& task = current();
    std::lock_guard guard(mutex);
    queues.clear();
    counted = {};
    task.interruptible = false;
    task.signal = false;
}

PollEntry::~PollEntry()
{
    std::lock_guard guard(mutex);
    for (const wait_queue_head_t* queue : queues_)
        erase_entry(queue, this);
}

void PollEntry::enter(const poll_table& table)
{
    std::lock_guard guard(mutex);
    for (wait_queue_head_t* queue : table.queues) {
        if (std::find(queues_.begin(), queues_.end(), queue) != queues_.end())
            continue;
        queues_.push_back(queue);
        queues[queue].push_back({this, nullptr, false});
    }
}

bool PollEntry::woken() const
{
    std::lock_guard guard(mutex);
    for (const wait_queue_head_t* queue : queues_)
        for (const Waiter& waiter : queues[queue])
            if (waiter.entry == this && waiter.woken)
                return true;
    return false;
}

} // namespace twin

using namespace twin;

void init_waitqueue_head(wait_queue_head_t* queue)
{
    if (waiters(queue) != 0)
        fault("init_waitqueue_head of a queue with sleepers");
}

void init_waitqueue_entry(wait_queue_t* entry)
{
    Task* const task = &current();
    *reinterpret_cast<Task**>(entry->kapi_opaque) = task; // the task outlives its stack's entries
}

void add_wait_queue(wait_queue_head_t* queue, wait_queue_t* entry)
{
    std::lock_guard guard(mutex);
    queues[queue].push_back({entry, *reinterpret_cast<Task**>(entry->kapi_opaque), false});
}

void remove_wait_queue(wait_queue_head_t* queue, wait_queue_t* entry)
{
    std::lock_guard guard(mutex);
    erase_entry(queue, entry);
}

void wake_up_interruptible(wait_queue_head_t* queue)
{
    journal().add(Source::wait, "wake_up_interruptible");
    std::lock_guard guard(mutex);
    ++counted.calls;
    const auto found = queues.find(queue);
    if (found == queues.end())
        return;
    // No sleeper here is an exclusive one, so all wake up.
    for (Waiter& waiter : found->second) {
        waiter.woken = true;
        ++counted.woken;
        if (waiter.task == nullptr)
            continue;
        waiter.task->interruptible = false;
        waiter.task->changed.notify_all();
    }
}

void kapi_set_current_interruptible()
{
    Task& task = current();
    std::lock_guard guard(mutex);
    task.interruptible = true;
}

void kapi_set_current_running()
{
    Task& task = current();
    std::lock_guard guard(mutex);
    task.interruptible = false;
}

void schedule()
{
    might_sleep("schedule");
    if (context().rtnl)
        fault("schedule under rtnl_lock");
    Task& task = current();
    std::unique_lock guard(mutex);
    // Woken since it was marked: it does not sleep at all, so no wake-up is lost.
    task.asleep = task.interruptible && !task.signal;
    task.changed.notify_all();
    const bool woken =
        task.changed.wait_for(guard, hung_task, [&] { return !task.interruptible || task.signal; });
    task.asleep = false;
    task.interruptible = false;
    if (!woken)
        die("a task slept for 20 seconds and nobody woke it");
}

bool kapi_signal_pending()
{
    Task& task = current();
    std::lock_guard guard(mutex);
    return task.signal;
}

void poll_wait(file*, wait_queue_head_t* queue, poll_table* table)
{
    if (table == nullptr)
        return;
    journal().add(Source::wait, "poll_wait");
    table->queues.push_back(queue);
}
