// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/counters.h"
#include "ipfc-resolverd/log.h"
#include "ipfc-resolverd/resolver.h"

#include "libipfc/control_device.h"
#include "libipfc/refusal.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace resolverd {

/// What is found outside of the process; a test puts its own things here.
struct Surroundings {
    /// Opens the control device, to be read without waiting. Throws ipfc::DeviceError.
    std::function<ipfc::ControlDevice(const std::string& path)> open_device;
    /// Tells one load of the driver from another; empty while it is not loaded.
    std::function<std::string()> load_of_driver;

    static Surroundings of_system();
};

/**
 * The control device, opened and let go of at the right times. It is held only while the driver has
 * an interface: without one there is nothing to resolve, and an open device keeps the module from
 * being unloaded.
 */
class DeviceHold {
public:
    /// reports: the driver's folder with an entry for each interface.
    DeviceHold(std::string path, std::string reports, Surroundings surroundings, Counters& counters,
               const Log& log);

    /// The device, or null.
    [[nodiscard]] ipfc::ControlDevice* get() { return device_ ? &*device_ : nullptr; }
    /// No more requests are wanted: the device is about to be let go of.
    [[nodiscard]] bool closing() const { return releasing_; }

    /// Opens the device when it is time to; true when it has just been opened.
    bool try_open(Clock::time_point now);
    /// Lets go of the device when it is time to; idle: nobody waits for an answer and no request
    /// is queued. Says what has become of the driver's tables.
    enum class Closed { no, tables_kept, tables_gone };
    Closed try_close(Clock::time_point now, bool idle);
    /// The driver has gone from behind the device.
    void lose(const ipfc::DeviceError& error);
    /// Asks for the device to be let go of, until the driver has been unloaded or, should that not
    /// happen, ten seconds have passed.
    void release(Clock::time_point now);

private:
    void keep_away(Clock::time_point now);
    [[nodiscard]] bool released(Clock::time_point now);
    [[nodiscard]] bool has_interfaces() const;

    const std::string path_;
    const std::string reports_;
    const Surroundings surroundings_;
    Counters& counters_;
    const Log& log_;

    std::optional<ipfc::ControlDevice> device_;
    std::string complaint_; ///< why the device could not be opened, said already
    bool releasing_ = false;
    std::optional<Clock::time_point> released_until_;
    std::string released_load_; ///< the device is released for this load of the driver to end
};

} // namespace resolverd
