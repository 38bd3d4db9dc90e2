// SPDX-License-Identifier: GPL-2.0-only
// The directory for switch modules under the twin's /proc.
#include "platform/platform.h"

#include "kapi/errno.h"
#include "kapi/proc_fs.h"

proc_dir_entry* proc_brim_sw = nullptr;

int brim_proc_start()
{
    proc_brim_sw = proc_mkdir("brim_sw", nullptr);
    return proc_brim_sw != nullptr ? 0 : -ENOMEM;
}

void brim_proc_stop()
{
    remove_proc_entry("brim_sw", nullptr);
    proc_brim_sw = nullptr;
}
