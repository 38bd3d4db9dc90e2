// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/control_device.h"
#include "libipfc/proc_tree.h"

#include <string>
#include <string_view>
#include <vector>

namespace ipfc {

/// The hosts that are reached across VSANs, newest first; FCID and VSAN as whoever added them sent
/// them, so that byte 0 of an FCID may be set and a VSAN may be none. Throws BadReport.
std::vector<InterVsanHost> parse_inter_vsan_list(const std::string& name, std::string_view text);

/// Throws BadReport or DeviceError.
std::vector<InterVsanHost> read_inter_vsan_list(const ProcTree& tree);

} // namespace ipfc
