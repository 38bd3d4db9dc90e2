// SPDX-License-Identifier: GPL-2.0-only
// Tasks, wait queues and poll tables. Each thread is a task.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

struct wait_queue_head_t;

namespace twin {

// A system call running on a thread of its own.
class Process {
public:
    explicit Process(std::function<long()> call);
    ~Process(); // joins; a call that never ends is a fault after a while
    Process(const Process&) = delete;

    // True as soon as the task sleeps in schedule; false when the call ended first.
    bool wait_until_asleep();
    bool finished() const;
    void send_signal();
    long result(); // joins

private:
    struct State;
    std::shared_ptr<State> state_;
    std::thread thread_;
};

// Signals for the calling thread's own task.
void set_signal_pending(bool pending);

// Whether the calling thread's own task is marked to sleep, which no call may return with.
bool marked_interruptible();

// Sleepers, pollers included, on a queue; on any queue.
std::size_t waiters(const wait_queue_head_t* queue);
std::size_t waiters();
// How often wake_up_interruptible was called, and how many sleepers it woke altogether.
struct WakeUps {
    unsigned calls;
    unsigned woken;
};
WakeUps wake_ups();

void reset_tasks();

} // namespace twin
