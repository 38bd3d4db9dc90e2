// SPDX-License-Identifier: GPL-2.0-only
#include "fault.h"

#include "records.h"

#include "kapi/bug.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace twin {
namespace {

std::mutex mutex;
std::vector<std::string> remembered; // until the test takes them or its fixture reports them

} // namespace

void die(std::string text)
{
    throw KernelBug(std::move(text));
}

void fault(std::string text)
{
    RecordGuard guard(mutex);
    remembered.push_back(std::move(text));
}

std::vector<std::string> faults()
{
    RecordGuard guard(mutex);
    return remembered;
}

std::vector<std::string> take_faults()
{
    RecordGuard guard(mutex);
    return std::exchange(remembered, {});
}

std::string strf(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return "(out of memory)";
    std::string result(text, static_cast<std::size_t>(length));
    free(text);
    return result;
}

} // namespace twin

void kapi_bug(const char* file, int line)
{
    twin::die(twin::strf("BUG at %s:%d", file, line));
}
