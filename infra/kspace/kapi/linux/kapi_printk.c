// SPDX-License-Identifier: GPL-2.0-only
// The kernel log, and BUG.
#include <linux/bug.h>
#include <linux/kernel.h>

#include "kapi/linux/kapi_glue.h"

#ifdef KAPI_HAVE_KERN_SOH
// A message's level is written "<N>" by the driver; the kernel's own marker is another.
int kapi_printk(const char* format, ...)
{
    char level[3] = "";
    struct va_format message;
    va_list arguments;
    int result;

    if (format[0] == '<' && format[1] >= '0' && format[1] <= '7' && format[2] == '>') {
        level[0] = KERN_SOH_ASCII;
        level[1] = format[1];
        format += 3;
    }
    va_start(arguments, format);
    message.fmt = format;
    message.va = &arguments;
    result = printk("%s%pV", level, &message);
    va_end(arguments);
    return result;
}
#else
int kapi_printk(const char* format, ...)
{
    va_list arguments;
    int result;

    va_start(arguments, format);
    result = vprintk(format, arguments);
    va_end(arguments);
    return result;
}
#endif

// The task ends here, and what it holds stays locked: no later command should wait for a dead task.
void kapi_bug(const char* file, int line)
{
    printk(KERN_CRIT "%s: BUG at %s:%d\n", KBUILD_MODNAME, file, line);
    kapi_command_abandon();
    BUG();
}
