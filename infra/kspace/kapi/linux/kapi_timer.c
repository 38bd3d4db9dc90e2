// SPDX-License-Identifier: GPL-2.0-only
// Timers.
#include "kapi/linux/kapi_glue.h"

#ifdef KAPI_HAVE_TIMER_SETUP
static void expired(struct timer_list* timer)
{
    struct kapi_timer* own = container_of(timer, struct kapi_timer, timer);

    own->function(own->argument);
}
#else
static void expired(unsigned long data)
{
    struct kapi_timer* own = (struct kapi_timer*)data;

    own->function(own->argument);
}
#endif

void kapi_timer_setup(struct kapi_timer* timer, void (*function)(void*), void* argument)
{
    timer->function = function;
    timer->argument = argument;
#ifdef KAPI_HAVE_TIMER_SETUP
    timer_setup(&timer->timer, expired, 0);
#else
    setup_timer(&timer->timer, expired, (unsigned long)timer);
#endif
}

int kapi_mod_timer(struct kapi_timer* timer, unsigned long expires)
{
    return mod_timer(&timer->timer, expires);
}

int kapi_del_timer_sync(struct kapi_timer* timer)
{
#ifdef KAPI_HAVE_TIMER_DELETE_SYNC
    return timer_delete_sync(&timer->timer);
#else
    return del_timer_sync(&timer->timer);
#endif
}
