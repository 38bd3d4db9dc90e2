// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/service_manager.h"

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace resolverd {

namespace {

// Nobody to tell, or nobody listening, is no reason to stop.
void notify(const std::string& state)
{
    ::sd_notify(0, state.c_str());
}

} // namespace

ServiceManager::ServiceManager()
{
    uint64_t granted = 0;
    if (::sd_watchdog_enabled(0, &granted) > 0) {
        watchdog_interval_ = std::chrono::microseconds(granted / 2);
    }
}

void ServiceManager::ready(const std::string& status)
{
    notify("READY=1\nSTATUS=" + status);
}

void ServiceManager::reloading()
{
    notify("RELOADING=1");
}

void ServiceManager::stopping()
{
    notify("STOPPING=1\nSTATUS=stopping");
}

void ServiceManager::status(const std::string& text)
{
    notify("STATUS=" + text);
}

void ServiceManager::alive()
{
    notify("WATCHDOG=1");
}

} // namespace resolverd
