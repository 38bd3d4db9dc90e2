// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/output.h"

#include "libipfc/control_device.h"

#include <functional>
#include <string>
#include <utility>

namespace ipfcctl {

/// What the parsed command is to do with the device and the output.
using Action = std::function<void(ipfc::ControlDevice&, Output&)>;

/// What parsing leaves for running: the options and the one chosen command, its arguments checked.
struct Session {
    std::string device_path; ///< empty: search
    bool json = false;
    std::string label; ///< the command in words, for messages
    Action action;

    void choose(std::string chosen_label, Action chosen_action)
    {
        label = std::move(chosen_label);
        action = std::move(chosen_action);
    }
};

} // namespace ipfcctl
