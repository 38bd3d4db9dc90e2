// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>

namespace ipfc {

/// The calls that reach the driver, with the C library's own results (-1 and errno).
struct DeviceCalls {
    std::function<int(int fd, unsigned long command, void* record)> ioctl;
    std::function<ssize_t(int fd, void* buffer, size_t count)> read;

    /// The system's own. Alone in its source file, so that a program can bring another.
    static DeviceCalls of_system();
};

} // namespace ipfc
