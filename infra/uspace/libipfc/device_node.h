// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/file_descriptor.h"

#include <optional>
#include <string>
#include <vector>

namespace ipfc {

/// Where the control device is looked for; a test puts its own places here.
struct DevicePlaces {
    std::string node = "/dev/ipfc";
    std::string registry = "/proc/devices";
    /// The driver has all minor numbers and makes no difference between them.
    unsigned minor_number = 0;
    /// Directories that may take a private node, in the order in which they are tried.
    std::vector<std::string> scratch = {"/dev", "/run", "/tmp"};
};

/// Name of the environment variable that overrides the search.
inline constexpr const char* kDeviceVariable = "IPFC_DEVICE";

/// The major number of a character device in a text like /proc/devices; none when not registered.
std::optional<unsigned> registered_major(const std::string& registry_text, const std::string& name);

/**
 * Opens the control device with the given open(2) flags. An explicit path, else the environment's,
 * is taken as it stands. Otherwise the usual node is used when it belongs to the registered driver,
 * and a private node, removed as soon as it is open, when it does not. Throws DeviceError.
 */
FileDescriptor open_control_device(const std::string& explicit_path, int flags,
                                   const DevicePlaces& places = {});

} // namespace ipfc
