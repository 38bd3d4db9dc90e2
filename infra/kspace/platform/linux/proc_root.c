// SPDX-License-Identifier: GPL-2.0-only
// The directory for switch modules under /proc. The entry is the kernel's own, so that every module
// can take it for a parent, whatever it wraps its entries in.
#include <linux/module.h>
#include <linux/proc_fs.h>

#include "platform/linux/platform.h"

struct proc_dir_entry* proc_brim_sw;
EXPORT_SYMBOL(proc_brim_sw);

int brim_proc_start(void)
{
    proc_brim_sw = proc_mkdir("brim_sw", NULL);
    return proc_brim_sw ? 0 : -ENOMEM;
}

void brim_proc_stop(void)
{
    remove_proc_entry("brim_sw", NULL);
    proc_brim_sw = NULL;
}
