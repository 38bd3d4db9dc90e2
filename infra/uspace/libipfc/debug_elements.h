// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/proc_tree.h"

#include <string>
#include <vector>

namespace ipfc {

/// A kind of messages of a module, under the platform's debug library.
struct DebugElement {
    std::string module;
    std::string name;
    bool history; ///< messages are kept
    bool log;     ///< messages go to the kernel log
};

enum class DebugSwitch { history, log };

// All throw DeviceError, or BadReport for a switch that is neither 0 nor 1. Names of modules and
// elements are file names: see parse_debug_name.

std::vector<DebugElement> read_debug_elements(const ProcTree& tree);
DebugElement read_debug_element(const ProcTree& tree, const std::string& module,
                                const std::string& element);
void set_debug_switch(const ProcTree& tree, const std::string& module, const std::string& element,
                      DebugSwitch which, bool on);
/// The messages kept, oldest first, each without its line end.
std::vector<std::string> read_debug_history(const ProcTree& tree, const std::string& module,
                                            const std::string& element);
void clear_debug_history(const ProcTree& tree, const std::string& module,
                         const std::string& element);

} // namespace ipfc
