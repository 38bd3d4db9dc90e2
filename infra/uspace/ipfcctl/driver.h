// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/control_device.h"
#include "libipfc/proc_tree.h"

#include <optional>
#include <string>
#include <utility>

namespace ipfcctl {

/// The two ways to the driver. The device is opened when a command first needs it, and stays open
/// for the other commands of a batch.
class Driver {
public:
    Driver(std::string device_path, const std::string& proc_root)
        : device_path_(std::move(device_path)), reports_(ipfc::ProcTree::find(proc_root))
    {
    }

    ipfc::ControlDevice& device()
    {
        if (!device_) {
            device_.emplace(ipfc::ControlDevice::open(device_path_));
        }
        return *device_;
    }

    [[nodiscard]] const ipfc::ProcTree& reports() const { return reports_; }

private:
    std::string device_path_;
    std::optional<ipfc::ControlDevice> device_;
    ipfc::ProcTree reports_;
};

} // namespace ipfcctl
