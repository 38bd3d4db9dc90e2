// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/proc_tree.h"

#include "brim/ipaddr.h"

#include <string>
#include <string_view>
#include <vector>

namespace ipfc {

/// An address of an interface that is an N_Port of its own. Its port name is 10:00 and the MAC.
struct SecondaryAddress {
    vsan_id_t vsan;
    inet_addr_t address;
    mac_t mac;
    fcid_t fcid;
};

/// Throws BadReport.
std::vector<SecondaryAddress> parse_secondary_addresses(const std::string& name,
                                                        std::string_view text);

// The platform's table. All throw DeviceError with the reason in words; the reader BadReport too.

std::vector<SecondaryAddress> read_secondary_addresses(const ProcTree& tree);
/// Registers the address's N_Port with the FC-2 stack.
void add_secondary_address(const ProcTree& tree, const SecondaryAddress& address);
void delete_secondary_address(const ProcTree& tree, vsan_id_t vsan, const inet_addr_t& address);

} // namespace ipfc
