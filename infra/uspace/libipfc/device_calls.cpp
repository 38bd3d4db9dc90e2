// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/device_calls.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace ipfc {

DeviceCalls DeviceCalls::of_system()
{
    return {
        [](int fd, unsigned long command, void* record) { return ::ioctl(fd, command, record); },
        [](int fd, void* buffer, size_t count) { return ::read(fd, buffer, count); },
    };
}

} // namespace ipfc
