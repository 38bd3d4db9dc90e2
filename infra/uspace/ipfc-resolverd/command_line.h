// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/device_hold.h"

#include <string>
#include <vector>

namespace resolverd {

/// Reads the words (without the program's name) and does what they say, as a rule for as long as
/// the daemon runs. The result is the exit status: 0 done, 1 wrong usage or configuration, 2 for
/// what goes wrong at work. Signals must be blocked before.
int run_command_line(const std::vector<std::string>& words,
                     const Surroundings& surroundings = Surroundings::of_system());

} // namespace resolverd
