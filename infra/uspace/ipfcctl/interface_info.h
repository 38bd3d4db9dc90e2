// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/driver.h"

#include <CLI/App.hpp>

#include <optional>
#include <vector>

namespace ipfcctl {

struct Session;

/// The interface of the VSAN, or all.
std::vector<ipfc_get_intf_ioctl_t> read_interfaces(Driver& driver, std::optional<vsan_id_t> vsan);

/// "list" and "show" below the object "vsan".
void add_vsan_reports(CLI::App& vsan, Session& session);

} // namespace ipfcctl
