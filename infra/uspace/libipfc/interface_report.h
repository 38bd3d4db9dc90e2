// SPDX-License-Identifier: GPL-2.0-only
// The driver's reports below brim_sw/ipfc: one a VSAN interface, and the module-wide counts.
#pragma once

#include "libipfc/proc_tree.h"

#include "brim/types.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ipfc {

/// One FC-2 exchange towards a peer.
struct Exchange {
    fcid_t source; ///< the interface's own FCID or a secondary address's
    uint32_t handle;
};

/// A peer's port name, its FCID, and the exchanges towards it.
struct Mapping {
    wwn_t port_name;
    fcid_t fcid;
    std::vector<Exchange> exchanges;
};

/// What the driver knows about an interface and its peers, in the driver's order.
struct InterfaceReport {
    vsan_id_t vsan;
    fcid_t fcid; ///< zero: none assigned
    wwn_t port_name;
    wwn_t node_name;
    std::vector<Mapping> mappings;
};

/// Counts of the whole module. The copies wrap around at 32 bits.
struct ModuleStatistics {
    uint32_t packets_copied;
    uint32_t bytes_copied;
    int32_t mappings;  ///< allocated now
    int32_t exchanges; ///< allocated now
};

// The parsers take the report's name for messages and throw BadReport.

InterfaceReport parse_interface_report(const std::string& name, std::string_view text);
ModuleStatistics parse_module_statistics(const std::string& name, std::string_view text);

// The readers throw BadReport or DeviceError.

/**
 * The VSANs that have an interface, in ascending order. They are known by their reports: asking
 * the control device for each of 4096 numbers would fill the driver's error history with the ones
 * that do not exist.
 */
std::vector<vsan_id_t> interface_vsans(const ProcTree& tree);
InterfaceReport read_interface_report(const ProcTree& tree, vsan_id_t vsan);
ModuleStatistics read_module_statistics(const ProcTree& tree);

} // namespace ipfc
