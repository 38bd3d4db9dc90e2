// SPDX-License-Identifier: GPL-2.0-only
// The control device's entry for 32-bit callers on the 64-bit kernel.

#include "ipfc.h"

long ipfc_compat_chr_ioctl(file* filp, unsigned int cmd, unsigned long arg)
{
    return ipfc_chr_ioctl(file_inode(filp), filp, cmd, arg);
}
