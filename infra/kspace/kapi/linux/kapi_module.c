// SPDX-License-Identifier: GPL-2.0-only
// Start and end of a module: what has to be ready before the driver's own start-up, and what must
// be gone before its memory goes.
#include <linux/init.h>

#include "kapi/linux/kapi_glue.h"
#include "kapi/linux/kapi_static_init.h"

bool kapi_started;

void __weak kapi_platform_release(void) {}

// A start-up that failed may leave anything registered, and a finished shutdown leaves devices and
// entries: whatever could still call into the module comes first, what those callers use last.
static void release_left_overs(void)
{
    kapi_chrdev_release();
    kapi_platform_release();
    kapi_proc_release();
    kapi_netdev_release();
    kapi_caches_release();
}

static void initialise_static_objects(void)
{
    struct kapi_static_init* entry;

    for (entry = kapi_static_begin; entry < kapi_static_end; entry++)
        entry->function(entry->object);
}

static int __init kapi_start(void)
{
    int result;

    initialise_static_objects();
    result = kapi_module_init();
    // The loader takes a positive result for success.
    if (result > 0)
        result = result <= MAX_ERRNO ? -result : -EINVAL;
    if (result < 0)
        goto release;

    kapi_started = true;
    kapi_proc_publish();
    result = kapi_chrdev_start();
    if (result < 0)
        goto stop;
    return 0;

stop:
    kapi_started = false;
    kapi_module_exit();
release:
    release_left_overs();
    return result;
}
module_init(kapi_start);

static void __exit kapi_stop(void)
{
    kapi_started = false;
    kapi_module_exit();
    release_left_overs();
}
module_exit(kapi_stop);
