// SPDX-License-Identifier: GPL-2.0-only
#include "platform/proc_text.h"

#include "kapi/errno.h"
#include "kapi/uaccess.h"

int proc_take_line(char* to, std::size_t size, const char* user, unsigned long length)
{
    if (length >= size)
        return -EINVAL;
    if (copy_from_user(to, user, length) != 0)
        return -EFAULT;
    to[length] = '\0';
    if (strlen(to) != length)
        return -EINVAL;
    if (length != 0 && to[length - 1] == '\n')
        to[length - 1] = '\0';
    return 0;
}

int proc_take_switch(const char* user, unsigned long length)
{
    char line[4];
    const int result = proc_take_line(line, sizeof line, user, length);
    if (result != 0)
        return result;
    if (strcmp(line, "0") == 0 || strcmp(line, "1") == 0)
        return line[0] - '0';
    return -EINVAL;
}
