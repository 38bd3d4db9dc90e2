// SPDX-License-Identifier: GPL-2.0-only
// Sleeping and polling.
#include <linux/lockdep.h>

#include "kapi/linux/kapi_glue.h"
#ifdef KAPI_HAVE_SCHED_SIGNAL_H
#include <linux/sched/signal.h>
#endif

void kapi_init_waitqueue_head(wait_queue_head_t* queue)
{
    init_waitqueue_head(queue);
    lockdep_set_class(&queue->lock, (struct lock_class_key*)__builtin_return_address(0));
}

// The address of a static queue's lock is its class.
void kapi_init_waitqueue_head_static(void* object)
{
    wait_queue_head_t* queue = object;

    *queue = (wait_queue_head_t)__WAIT_QUEUE_HEAD_INITIALIZER(queue[0]);
}

void kapi_init_waitqueue_entry(kapi_wait_entry_t* entry)
{
    init_waitqueue_entry(entry, current);
}

void kapi_add_wait_queue(wait_queue_head_t* queue, kapi_wait_entry_t* entry)
{
    add_wait_queue(queue, entry);
}

void kapi_remove_wait_queue(wait_queue_head_t* queue, kapi_wait_entry_t* entry)
{
    remove_wait_queue(queue, entry);
}

void kapi_wake_up_interruptible(wait_queue_head_t* queue)
{
    wake_up_interruptible(queue);
}

void kapi_set_current_interruptible(void)
{
    set_current_state(TASK_INTERRUPTIBLE);
}

void kapi_set_current_running(void)
{
    __set_current_state(TASK_RUNNING);
}

void kapi_schedule(void)
{
    schedule();
}

bool kapi_signal_pending(void)
{
    return signal_pending(current);
}

// Called by the driver, perhaps under a spin lock: the queue is only noted. kapi_chrdev.c registers
// the poller with what was noted.
void kapi_poll_wait(struct file* filp, wait_queue_head_t* queue, struct kapi_poll_record* table)
{
    if (!table || WARN_ON_ONCE(table->count >= ARRAY_SIZE(table->queue)))
        return;
    table->queue[table->count++] = queue;
}
