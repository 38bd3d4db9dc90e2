// SPDX-License-Identifier: GPL-2.0-only
// Each object of the command line adds its words below the root.
#pragma once

#include <CLI/App.hpp>

namespace ipfcctl {

struct Session;

/// "vsan": interfaces and their N_Ports.
void add_vsan_commands(CLI::App& root, Session& session);

/// "cleanup" and "headroom": the driver as a whole.
void add_module_commands(CLI::App& root, Session& session);

} // namespace ipfcctl
