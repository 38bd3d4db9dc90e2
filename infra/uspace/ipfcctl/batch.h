// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/command_line.h"

#include <functional>
#include <string>
#include <vector>

namespace ipfcctl {

/// Takes what went wrong, without the program's name and without a line end.
using Complain = std::function<void(const std::string& complaint)>;

/// Carries out the words of one line.
using RunLine =
    std::function<ExitCode(const std::vector<std::string>& words, const Complain& complain)>;

/**
 * Runs the lines of a file ("-": standard input) up to the first that fails, whose number goes in
 * front of its complaint. Words are separated by blanks; "#" in front of a word starts a comment.
 */
ExitCode run_batch(const std::string& file, const Complain& complain, const RunLine& run);

} // namespace ipfcctl
