// SPDX-License-Identifier: GPL-2.0-only
// How names and addresses stand in JSON: as the text forms that commands take, null for none.
#pragma once

#include "libipfc/names.h"

#include <nlohmann/json.hpp>

#include <string>

namespace ipfcctl {

inline nlohmann::ordered_json json_of(fcid_t fcid)
{
    return fcid.num == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(ipfc::to_text(fcid));
}

inline nlohmann::ordered_json json_of(const inet_addr_t& address)
{
    const bool known =
        address.addr_type == INET_ADDR_TYPE_IPV4 || address.addr_type == INET_ADDR_TYPE_IPV6;
    return known ? nlohmann::ordered_json(ipfc::to_text(address)) : nlohmann::ordered_json();
}

inline std::string interface_name(vsan_id_t vsan)
{
    return "vsan" + std::to_string(vsan);
}

/// "-" for none.
inline std::string text_or_dash(fcid_t fcid)
{
    return fcid.num == 0 ? "-" : ipfc::to_text(fcid);
}

} // namespace ipfcctl
