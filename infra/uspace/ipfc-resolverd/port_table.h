// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "brim/types.h"

#include <compare>
#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace resolverd {

/// An N_Port by its name: what a mapping request asks for.
struct Port {
    vsan_id_t vsan;
    wwn_t name;

    friend bool operator==(const Port& a, const Port& b)
    {
        return a.vsan == b.vsan && a.name.num == b.name.num;
    }
    friend auto operator<=>(const Port& a, const Port& b)
    {
        const auto by_vsan = a.vsan <=> b.vsan;
        return std::is_neq(by_vsan) ? by_vsan : a.name.num <=> b.name.num;
    }
};

/// "VSAN 10 port 20:0a:02:00:00:00:00:01", for messages.
std::string to_text(const Port& port);

/// Where each known port is.
using PortTable = std::map<Port, fcid_t>;

/**
 * Where the port is. The network header of RFC 2625 has room for 48 bits of a name, with 10:00 in
 * front (NAA 1): what the driver asks for in that form is the port whose name ends in these 48
 * bits, if there is exactly one in the VSAN.
 */
std::optional<fcid_t> look_up(const PortTable& ports, const Port& port);

bool same_fcid(fcid_t a, fcid_t b);
bool same_table(const PortTable& a, const PortTable& b);

/// A table of lines "VSAN PORTNAME FCID" in which every line is understood and no port stands
/// twice; otherwise throws MalformedText with the file's name.
PortTable parse_port_table(const std::string& text, const std::string& file);

/// As much of a table as can be understood: a name server that is newer than this program may have
/// lines of other kinds. The last line about a port counts.
struct LenientTable {
    PortTable ports;
    size_t skipped_lines = 0;
};
LenientTable parse_known_lines(const std::string& text);

} // namespace resolverd
