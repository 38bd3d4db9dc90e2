// SPDX-License-Identifier: GPL-2.0-only
// Text forms of the names, addresses and numbers that a user writes.
#pragma once

#include "brim/ipfc_intf.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace ipfc {

/// A text that is not what an argument needs; what() names the argument and says what is wrong.
class BadArgument : public std::invalid_argument {
public:
    BadArgument(std::string_view argument, std::string_view text, std::string_view complaint);
};

// Each parser takes the argument's name for its message and the user's text; the whole text must
// fit, blanks included. All throw BadArgument.

/// Eight bytes of two hexadecimal digits joined by colons, or sixteen hexadecimal digits. A name
/// of all zeros is refused: it names nobody.
wwn_t parse_wwn(std::string_view argument, std::string_view text);

/// "0x" and six hexadecimal digits, or domain, area and port as three times two hexadecimal digits
/// joined by dots or by colons. Zero is "none assigned" and refused.
fcid_t parse_fcid(std::string_view argument, std::string_view text);

/// As parse_fcid, for an address that one N_Port has: the broadcast address is refused too.
fcid_t parse_nport_fcid(std::string_view argument, std::string_view text);

/// Decimal, 0 to 4095, without leading zeros.
vsan_id_t parse_vsan(std::string_view argument, std::string_view text);

/// Decimal, or hexadecimal behind "0x", within 32 bits.
if_index_t parse_ifindex(std::string_view argument, std::string_view text);

/// IPv4 as four decimal numbers, or IPv6.
inet_addr_t parse_inet_addr(std::string_view argument, std::string_view text);

/// IPv4 alone; the result is in network order.
ip_addr_t parse_ipv4(std::string_view argument, std::string_view text);

/// Six bytes of two hexadecimal digits joined by colons; a single station's, and not all zeros.
mac_t parse_mac(std::string_view argument, std::string_view text);

/// The name of a debug module or element: letters, digits, '_', '-' and '.', not in front.
std::string parse_debug_name(std::string_view argument, std::string_view text);

/// "on" or "off".
bool parse_switch(std::string_view argument, std::string_view text);

/// "10:00:00:11:22:33:44:55"
std::string to_text(wwn_t name);
/// "0x0a0b0c"
std::string to_text(fcid_t fcid);
/// "192.0.2.1", "2001:db8::1", or "-" for an address of neither kind.
std::string to_text(const inet_addr_t& address);
/// "02:00:00:00:00:77"
std::string to_text(const mac_t& mac);
/// An IPv4 address in network order.
std::string ipv4_to_text(ip_addr_t address);

} // namespace ipfc
