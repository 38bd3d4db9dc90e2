// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace resolverd {

/// systemd, when it started this process; otherwise every call does nothing.
class ServiceManager {
public:
    ServiceManager();

    void ready(const std::string& status);
    void reloading();
    void stopping();
    /// A line for "systemctl status".
    void status(const std::string& text);

    /// How often alive must be called at least, half of what systemd grants; none without watchdog.
    [[nodiscard]] std::optional<std::chrono::microseconds> watchdog_interval() const
    {
        return watchdog_interval_;
    }
    void alive();

private:
    std::optional<std::chrono::microseconds> watchdog_interval_;
};

} // namespace resolverd
