// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace ipfcctl {

enum ExitCode : int {
    kDone = 0,
    kWrongUsage = 1, ///< nothing was sent
    kRefused = 2,    ///< the driver refused, or could not be reached
};

/// Reads one command line (without the program's name), checks it whole, and carries it out.
/// Results and help go to out, the one line that says what went wrong to err.
ExitCode run_command_line(const std::vector<std::string>& words, std::ostream& out,
                          std::ostream& err);

} // namespace ipfcctl
