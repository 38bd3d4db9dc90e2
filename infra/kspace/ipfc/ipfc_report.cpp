// SPDX-License-Identifier: GPL-2.0-only

#include "ipfc_report.h"

#include "kapi/string.h"

void ipfc_report::append(const char* format, ...)
{
    __builtin_va_list arguments;
    __builtin_va_start(arguments, format);
    const std::size_t left = room - len;
    const int wanted = vsnprintf(buf + len, left, format, arguments);
    __builtin_va_end(arguments);
    if (wanted <= 0 || left == 0)
        return;
    // The printer ends its text with a 0, which needs a byte too.
    const std::size_t written =
        static_cast<std::size_t>(wanted) < left ? static_cast<std::size_t>(wanted) : left - 1;
    len += written;
    pos += static_cast<std::int64_t>(written);
}

bool ipfc_report::window_full()
{
    if (pos <= off)
        len = 0;
    return pos >= static_cast<std::int64_t>(off) + length;
}

int ipfc_report::finish(char** start) const
{
    *start = buf + (off - pos + static_cast<std::int64_t>(len));
    const auto result = static_cast<std::int32_t>(pos - off);
    if (result > length)
        return length;
    return result < 0 ? 0 : result;
}
