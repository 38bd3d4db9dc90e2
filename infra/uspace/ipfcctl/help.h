// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace ipfcctl {

/// The words that lead to the app, as the user writes them: "ipfcctl vsan create".
std::string path_of(const CLI::App& app);

/// The text that --help shows for the app.
std::string help_of(const CLI::App& app);

/// How the app's help speaks of the words below it: in its usage line, and over their list. To be
/// called when the app has its commands.
void label_commands(CLI::App& app, const std::string& usage, const std::string& heading);

} // namespace ipfcctl
