// SPDX-License-Identifier: GPL-2.0-only
// The kernel's clock tick and timers.
#pragma once

#include "compiler.h"

extern "C" {
extern volatile unsigned long jiffies;
}

inline constexpr unsigned long HZ = KAPI_HZ;

// Wraps like the counter itself.
inline bool time_after(unsigned long a, unsigned long b)
{
    return static_cast<long>(b - a) < 0;
}

// A timer whose function runs in softirq context with the argument given to setup.
struct timer_list {
    alignas(8) unsigned char kapi_opaque[KAPI_TIMER_SIZE];
};

extern "C" {
void kapi_timer_setup(timer_list* timer, void (*function)(void* argument), void* argument);
// (Re)starts the timer. Any context.
int mod_timer(timer_list* timer, unsigned long expires) KAPI_GLUE(mod_timer);
// Process context; the function runs on no processor once this has returned.
int del_timer_sync(timer_list* timer) KAPI_GLUE(del_timer_sync);
}
