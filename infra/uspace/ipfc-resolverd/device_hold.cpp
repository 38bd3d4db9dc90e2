// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/device_hold.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace resolverd {

namespace {

constexpr std::chrono::seconds kReleaseTime{10};

/// The kernel makes the module's folder anew, with a new inode, for each load.
std::string inode_of_module()
{
    struct stat status {};
    return ::stat("/sys/module/ipfc", &status) == 0 ? std::to_string(status.st_ino) : "";
}

/// "vsan10"; the folder has reports of other kinds too.
bool names_interface(const std::filesystem::directory_entry& entry)
{
    const std::string name = entry.path().filename().string();
    return name.starts_with("vsan") && name.find_first_of("0123456789") == 4;
}

} // namespace

Surroundings Surroundings::of_system()
{
    return {[](const std::string& path) {
                return ipfc::ControlDevice::open(path, ipfc::ControlDevice::Wait::nonblock);
            },
            inode_of_module};
}

DeviceHold::DeviceHold(std::string path, std::string reports, Surroundings surroundings,
                       Counters& counters, const Log& log)
    : path_(std::move(path)), reports_(std::move(reports)), surroundings_(std::move(surroundings)),
      counters_(counters), log_(log)
{
}

bool DeviceHold::has_interfaces() const
{
    std::error_code unreadable;
    const std::filesystem::directory_iterator entries(reports_, unreadable);
    // No reports at all: nothing is known, and opening the device tells why.
    return unreadable || std::any_of(begin(entries), end(entries), names_interface);
}

void DeviceHold::keep_away(Clock::time_point now)
{
    released_until_ = now + kReleaseTime;
    released_load_ = surroundings_.load_of_driver();
}

bool DeviceHold::released(Clock::time_point now)
{
    if (released_until_ &&
        (now >= *released_until_ || surroundings_.load_of_driver() != released_load_)) {
        released_until_.reset();
    }
    return released_until_.has_value();
}

bool DeviceHold::try_open(Clock::time_point now)
{
    if (device_ || released(now) || !has_interfaces()) {
        return false;
    }
    try {
        device_ = surroundings_.open_device(path_);
    } catch (const ipfc::DeviceError& error) {
        if (std::exchange(complaint_, error.what()) != error.what()) {
            log_.notice("waiting for the driver: " + complaint_);
        }
        return false;
    }
    complaint_.clear();
    ++counters_.connects;
    log_.info("answering the driver's requests");
    return true;
}

DeviceHold::Closed DeviceHold::try_close(Clock::time_point now, bool idle)
{
    if (!device_ || !idle) {
        return Closed::no;
    }
    if (releasing_) {
        device_.reset();
        releasing_ = false;
        keep_away(now);
        log_.notice("the control device is released, for the driver to be unloaded");
        return Closed::tables_kept;
    }
    if (!has_interfaces()) {
        device_.reset();
        log_.info("the last interface has gone; waiting for a new one");
        return Closed::tables_gone;
    }
    return Closed::no;
}

void DeviceHold::lose(const ipfc::DeviceError& error)
{
    device_.reset();
    releasing_ = false;
    log_.notice(std::string("the driver has gone: ") + error.what());
}

void DeviceHold::release(Clock::time_point now)
{
    if (device_) {
        releasing_ = true;
    } else {
        keep_away(now);
    }
}

} // namespace resolverd
