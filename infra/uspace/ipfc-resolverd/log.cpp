// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace resolverd {

namespace {

const char* label_of(Level level)
{
    switch (level) {
    case Level::error:
        return "error: ";
    case Level::warning:
        return "warning: ";
    default:
        return "";
    }
}

} // namespace

bool leads_to_journal(int fd)
{
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    return stream != nullptr && ::fstat(fd, &status) == 0 &&
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

Log::Log(int fd) : Log(fd, leads_to_journal(fd) ? Form::journal : Form::plain) {}

void Log::write(Level level, const std::string& text) const
{
    if (level <= threshold_) {
        put(level, text);
    }
}

void Log::put(Level level, const std::string& text) const
{
    const std::string start = form_ == Form::journal
                                  ? "<" + std::to_string(static_cast<int>(level)) + ">"
                                  : std::string("ipfc-resolverd: ") + label_of(level);
    const std::string line = start + text + "\n";
    // One call, so that lines of several writers do not mix; a log that is lost stops nothing.
    [[maybe_unused]] const ssize_t written = ::write(fd_, line.data(), line.size());
}

} // namespace resolverd
