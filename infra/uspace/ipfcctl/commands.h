// SPDX-License-Identifier: GPL-2.0-only
// Each object of the command line adds its words below the root.
#pragma once

#include <CLI/App.hpp>

namespace ipfcctl {

struct Session;

/// "vsan": interfaces and their N_Ports.
void add_vsan_commands(CLI::App& root, Session& session);

/// "map": the port names that the driver knows, and answers to its requests.
void add_map_commands(CLI::App& root, Session& session);

/// "resolve": the requests for port names that it does not know.
void add_resolve_command(CLI::App& root, Session& session);

/// "exchange": the state of exchanges towards peers.
void add_exchange_commands(CLI::App& root, Session& session);

/// "stats": counters, their rates, and the counts of the whole module.
void add_stats_commands(CLI::App& root, Session& session);

/// "ivr": IP hosts that are reached across VSANs.
void add_ivr_commands(CLI::App& root, Session& session);

/// "ip": the addresses that the driver reports for its interfaces.
void add_ip_commands(CLI::App& root, Session& session);

/// "secondary": addresses that are N_Ports of their own.
void add_secondary_commands(CLI::App& root, Session& session);

/// "debug": switches and history of debug messages.
void add_debug_commands(CLI::App& root, Session& session);

/// "cleanup" and "headroom": the driver as a whole.
void add_module_commands(CLI::App& root, Session& session);

} // namespace ipfcctl
