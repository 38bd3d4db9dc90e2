// SPDX-License-Identifier: GPL-2.0-only
// An interface's counters as text and as JSON.
#pragma once

#include "ipfcctl/output.h"

#include "brim/ipfc_intf.h"

#include <nlohmann/json.hpp>

#include <string>

namespace ipfcctl {

/// The ten counters of the network device, under their own names.
nlohmann::ordered_json counters_to_json(const ipfc_intf_stats_ioctl_t& record);
/// The thirteen counters of the interface MIB (RFC 2863), under their own names.
nlohmann::ordered_json mib_counters_to_json(const ipfc_intf_stats_ioctl_t& record);

/// A line of headings, one for what came in, one for what went out; indented.
std::string counters_to_text(const ipfc_intf_stats_ioctl_t& record, const Output& output);
/// A line a counter, indented.
std::string mib_counters_to_text(const ipfc_intf_stats_ioctl_t& record);

} // namespace ipfcctl
