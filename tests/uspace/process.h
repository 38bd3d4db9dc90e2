// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ipfc_test {

struct ProcessResult {
    int exit_code = -1; ///< -1 when the program ended by a signal
    std::string out;
    std::string err;
};

/// Runs the program with exactly the given environment and nothing on standard input.
ProcessResult run_process(const std::string& program, const std::vector<std::string>& arguments,
                          const std::map<std::string, std::string>& environment = {});

} // namespace ipfc_test
