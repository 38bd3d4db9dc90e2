// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/driver.h"
#include "ipfcctl/output.h"

#include "libipfc/control_device.h"

#include <functional>
#include <string>
#include <utility>

namespace ipfcctl {

/// What the parsed command is to do with the driver and the output.
using DriverAction = std::function<void(Driver&, Output&)>;
/// As above, for a command that needs the control device alone.
using Action = std::function<void(ipfc::ControlDevice&, Output&)>;

/// The words in front of the object. Those of a batch are its command line's.
struct Options {
    std::string device_path; ///< empty: search
    std::string proc_root;   ///< empty: the usual place
    std::string batch;       ///< file of commands, "-" for standard input; empty: none
    std::string color = "auto";
    bool json = false;
    bool details = false;
};

/// What parsing leaves for running: the options and the one chosen command, its arguments checked.
struct Session {
    Options options;
    bool in_batch = false; ///< the words are a line of a batch
    std::string label;     ///< the command in words, for messages
    DriverAction action;

    void choose(std::string chosen_label, DriverAction chosen_action)
    {
        label = std::move(chosen_label);
        action = std::move(chosen_action);
    }

    void choose(std::string chosen_label, Action chosen_action)
    {
        choose(std::move(chosen_label),
               DriverAction([run = std::move(chosen_action)](Driver& driver, Output& output) {
                   run(driver.device(), output);
               }));
    }
};

} // namespace ipfcctl
