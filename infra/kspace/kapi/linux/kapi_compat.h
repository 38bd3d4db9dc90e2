/* SPDX-License-Identifier: GPL-2.0-only */
/* Names that a kernel has yet to get, with the meaning that they have where they are. */
#pragma once

#include <linux/compiler.h>
#include <linux/fs.h>
#include <linux/percpu.h>
#include <linux/poll.h>

#include "kapi_features.h"

#ifndef READ_ONCE
#define READ_ONCE(x) (*(const volatile typeof(x)*)&(x))
#endif
#ifndef WRITE_ONCE
#define WRITE_ONCE(x, value) (*(volatile typeof(x)*)&(x) = (value))
#endif

#ifndef smp_load_acquire
#define smp_load_acquire(p)                                                                        \
    ({                                                                                             \
        typeof(*(p)) loaded_ = READ_ONCE(*(p));                                                    \
        smp_mb();                                                                                  \
        loaded_;                                                                                   \
    })
#endif
#ifndef smp_store_release
#define smp_store_release(p, value)                                                                \
    do {                                                                                           \
        smp_mb();                                                                                  \
        WRITE_ONCE(*(p), value);                                                                   \
    } while (0)
#endif

/* Callers stay on their processor. */
#ifndef KAPI_HAVE_THIS_CPU
#define this_cpu_read(variable) __get_cpu_var(variable)
#define this_cpu_write(variable, value) (__get_cpu_var(variable) = (value))
#endif

#ifndef KAPI_HAVE_FILE_INODE
static inline struct inode* file_inode(const struct file* filp)
{
    return filp->f_path.dentry->d_inode;
}
#endif

#ifndef KAPI_HAVE_POLL_DOES_NOT_WAIT
static inline bool poll_does_not_wait(const poll_table* table)
{
    return !table;
}
#endif

#ifndef __rcu
#define __rcu
#endif
