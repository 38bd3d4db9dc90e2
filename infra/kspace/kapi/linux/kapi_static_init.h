/* SPDX-License-Identifier: GPL-2.0-only */
/* The table of locks and queues to be made ready before the module's start-up (KAPI_STATIC_INIT).
 */
#pragma once

struct kapi_static_init {
    void (*function)(void* object);
    void* object;
};

extern struct kapi_static_init kapi_static_begin[];
extern struct kapi_static_init kapi_static_end[];
