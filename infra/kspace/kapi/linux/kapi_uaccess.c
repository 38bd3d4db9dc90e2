// SPDX-License-Identifier: GPL-2.0-only
// User memory.
#include "kapi/linux/kapi_glue.h"

#ifndef TASK_SIZE_MAX
#define TASK_SIZE_MAX TASK_SIZE64
#endif

// Some kernels' own check leaves the exact end of user space to the page tables; the driver's
// results distinguish the two, so the end is checked here as well.
bool kapi_access_ok(int type, const void* address, unsigned long size)
{
    unsigned long begin = (unsigned long)address;

    if (size > TASK_SIZE_MAX || begin > TASK_SIZE_MAX - size)
        return false;
#ifdef KAPI_HAVE_ACCESS_OK_WITHOUT_TYPE
    return access_ok((const void __user*)address, size);
#else
    return access_ok(type, (const void __user*)address, size);
#endif
}

unsigned long kapi_copy_to_user(void* to, const void* from, unsigned long length)
{
    return copy_to_user((void __user*)to, from, length);
}

unsigned long kapi_copy_from_user(void* to, const void* from, unsigned long length)
{
    return copy_from_user(to, (const void __user*)from, length);
}
