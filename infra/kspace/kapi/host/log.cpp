// SPDX-License-Identifier: GPL-2.0-only
#include "log.h"

#include "journal.h"
#include "records.h"

#include "kapi/printk.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace twin {
namespace {

std::mutex mutex;
std::vector<LogLine> printed;

// Levels are text, as 2.6.27 has them.
LogLine parse(std::string raw)
{
    LogLine line{-1, raw, raw};
    if (raw.size() >= 3 && raw[0] == '<' && raw[1] >= '0' && raw[1] <= '7' && raw[2] == '>') {
        line.level = raw[1] - '0';
        line.text = raw.substr(3);
    }
    return line;
}

} // namespace

Log& log()
{
    static Log one;
    return one;
}

std::vector<LogLine> Log::lines() const
{
    RecordGuard guard(mutex);
    return printed;
}

std::vector<std::string> Log::raw() const
{
    std::vector<std::string> result;
    for (const LogLine& line : lines())
        result.push_back(line.raw);
    return result;
}

bool Log::contains(const std::string& raw_text) const
{
    for (const LogLine& line : lines())
        if (line.raw == raw_text)
            return true;
    return false;
}

void Log::clear()
{
    RecordGuard guard(mutex);
    printed.clear();
}

} // namespace twin

int printk(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return 0;
    twin::LogLine line = twin::parse(std::string(text, static_cast<std::size_t>(length)));
    std::free(text);
    twin::journal().add(twin::Source::printk, line.raw);
    twin::RecordGuard guard(twin::mutex);
    twin::printed.push_back(std::move(line));
    return length;
}
