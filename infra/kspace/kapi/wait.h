// SPDX-License-Identifier: GPL-2.0-only
// Sleeping until something happens, and polling for it.
#pragma once

#include "compiler.h"

struct wait_queue_head_t {
    alignas(8) unsigned char kapi_opaque[KAPI_WAIT_QUEUE_HEAD_SIZE];
};

// One sleeping task's place in a queue; lives on its stack.
struct wait_queue_t {
    alignas(8) unsigned char kapi_opaque[KAPI_WAIT_QUEUE_ENTRY_SIZE];
};

struct file;
struct poll_table;

inline constexpr unsigned int POLLIN = 0x0001;
inline constexpr unsigned int POLLRDNORM = 0x0040;

extern "C" {
void init_waitqueue_head(wait_queue_head_t* queue) KAPI_GLUE(init_waitqueue_head);
// Enters the current task into the entry.
void init_waitqueue_entry(wait_queue_t* entry) KAPI_GLUE(init_waitqueue_entry);
void add_wait_queue(wait_queue_head_t* queue, wait_queue_t* entry) KAPI_GLUE(add_wait_queue);
void remove_wait_queue(wait_queue_head_t* queue, wait_queue_t* entry) KAPI_GLUE(remove_wait_queue);
// Any context; wakes every ordinary sleeper and one exclusive one.
void wake_up_interruptible(wait_queue_head_t* queue) KAPI_GLUE(wake_up_interruptible);

// The current task. A task marked interruptible sleeps in schedule until woken or signalled.
void kapi_set_current_interruptible();
void kapi_set_current_running();
void schedule() KAPI_GLUE(schedule);
bool kapi_signal_pending();

// Registers the caller of poll with the queue; table may be null. Callable under a spin lock: the
// kernel's own part, which may sleep, runs after the driver's poll has returned, which is then
// called again, so that no wake-up is lost.
void poll_wait(file* filp, wait_queue_head_t* queue, poll_table* table) KAPI_GLUE(poll_wait);
}

// A queue that is ready before the module's own start-up runs.
#define DECLARE_WAIT_QUEUE_HEAD(name)                                                              \
    constinit wait_queue_head_t name{};                                                            \
    KAPI_STATIC_INIT(kapi_init_waitqueue_head, name)
