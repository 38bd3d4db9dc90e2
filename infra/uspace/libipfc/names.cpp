// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace ipfc {

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view kDecimalDigits = "0123456789";
constexpr size_t kLongestDebugName = 31; // what the debug library keeps

bool consists_of(std::string_view text, std::string_view digits)
{
    return !text.empty() && text.find_first_not_of(digits) == std::string_view::npos;
}

std::string quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

/// The number, or none when it does not fit 64 bits; the digits have been checked.
std::optional<uint64_t> number_of(std::string_view digits, int base)
{
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), value, base);
    if (error != std::errc{} || end != digits.end()) {
        return std::nullopt;
    }
    return value;
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

/// Fills bytes from as many two-digit parts; the complaint, empty when all is well.
std::string read_bytes(std::span<const std::string_view> parts, std::span<uint8_t> bytes)
{
    if (parts.size() != bytes.size()) {
        return std::to_string(parts.size()) + (parts.size() == 1 ? " byte" : " bytes") +
               " where there must be " + std::to_string(bytes.size());
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].size() != 2 || !consists_of(parts[i], kHexDigits)) {
            return quoted(parts[i]) + " is not a byte of two hexadecimal digits";
        }
        bytes[i] = static_cast<uint8_t>(*number_of(parts[i], 16));
    }
    return {};
}

std::vector<std::string_view> digit_pairs(std::string_view digits)
{
    std::vector<std::string_view> pairs;
    for (size_t i = 0; i < digits.size(); i += 2) {
        pairs.push_back(digits.substr(i, 2));
    }
    return pairs;
}

std::string joined_bytes(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof(pair), text.empty() ? "%02x" : ":%02x", byte);
        text += pair;
    }
    return text;
}

bool is_broadcast(fcid_t fcid)
{
    return fcid.num == FCID_BROADCAST_NUM;
}

/// inet_pton wants a terminated text; an embedded zero byte is cut off nowhere.
bool read_address(int family, std::string_view text, void* bytes)
{
    return text.find('\0') == std::string_view::npos &&
           ::inet_pton(family, std::string(text).c_str(), bytes) == 1;
}

} // namespace

BadArgument::BadArgument(std::string_view argument, std::string_view text,
                         std::string_view complaint)
    : std::invalid_argument(std::string(argument) + " " + quoted(text) + ": " +
                            std::string(complaint))
{
}

wwn_t parse_wwn(std::string_view argument, std::string_view text)
{
    const bool has_colons = text.find(':') != std::string_view::npos;
    if (!has_colons && !consists_of(text, kHexDigits)) {
        throw BadArgument(argument, text,
                          "a world-wide name is written 10:00:00:11:22:33:44:55 or as 16 "
                          "hexadecimal digits");
    }
    if (!has_colons && text.size() != 16) {
        throw BadArgument(argument, text,
                          std::to_string(text.size()) +
                              " hexadecimal digits where there must be 16");
    }
    wwn_t name{};
    const std::string complaint =
        read_bytes(has_colons ? split(text, ':') : digit_pairs(text), name.str);
    if (!complaint.empty()) {
        throw BadArgument(argument, text, complaint);
    }
    if (name.num == 0) {
        throw BadArgument(argument, text, "a world-wide name of all zeros names no port");
    }
    return name;
}

fcid_t parse_fcid(std::string_view argument, std::string_view text)
{
    const bool prefixed = text.starts_with("0x");
    const bool dotted = text.find('.') != std::string_view::npos;
    const bool has_colons = text.find(':') != std::string_view::npos;
    if (!prefixed && !dotted && !has_colons) {
        throw BadArgument(argument, text, "an FCID is written 0x0a0b0c or 0a.0b.0c");
    }
    const std::string_view digits = text.substr(2 * prefixed);
    if (prefixed && (digits.size() != 6 || !consists_of(digits, kHexDigits))) {
        throw BadArgument(argument, text, "0x must be followed by six hexadecimal digits");
    }
    fcid_t fcid{};
    const std::string complaint =
        read_bytes(prefixed ? digit_pairs(digits) : split(text, dotted ? '.' : ':'),
                   std::span(fcid.str).subspan(1));
    if (!complaint.empty()) {
        throw BadArgument(argument, text, complaint);
    }
    if (fcid.num == 0) {
        throw BadArgument(argument, text, "zero stands for no FCID at all");
    }
    return fcid;
}

fcid_t parse_nport_fcid(std::string_view argument, std::string_view text)
{
    const fcid_t fcid = parse_fcid(argument, text);
    if (is_broadcast(fcid)) {
        throw BadArgument(argument, text, "the broadcast address belongs to no port");
    }
    return fcid;
}

vsan_id_t parse_vsan(std::string_view argument, std::string_view text)
{
    if (!consists_of(text, kDecimalDigits)) {
        throw BadArgument(argument, text, "a VSAN is a decimal number from 0 to 4095");
    }
    if (text.size() > 1 && text.front() == '0') {
        throw BadArgument(argument, text, "a VSAN is written without leading zeros");
    }
    const std::optional<uint64_t> number = number_of(text, 10);
    if (!number || *number > VSAN_ID_MAX) {
        throw BadArgument(argument, text, "the highest VSAN is 4095");
    }
    return static_cast<vsan_id_t>(*number);
}

if_index_t parse_ifindex(std::string_view argument, std::string_view text)
{
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = text.substr(2 * hexadecimal);
    if (!consists_of(digits, hexadecimal ? kHexDigits : kDecimalDigits)) {
        throw BadArgument(argument, text,
                          "an interface index is a decimal number, or 0x and hexadecimal digits");
    }
    const std::optional<uint64_t> number = number_of(digits, hexadecimal ? 16 : 10);
    if (!number || *number > UINT32_MAX) {
        throw BadArgument(argument, text, "the highest interface index is 4294967295");
    }
    return static_cast<if_index_t>(*number);
}

inet_addr_t parse_inet_addr(std::string_view argument, std::string_view text)
{
    inet_addr_t address;
    std::memset(&address, 0, sizeof(address));
    if (read_address(AF_INET, text, &address.a.ipv4_addr)) {
        address.addr_type = INET_ADDR_TYPE_IPV4;
        return address;
    }
    if (read_address(AF_INET6, text, &address.a.ipv6_addr)) {
        address.addr_type = INET_ADDR_TYPE_IPV6;
        return address;
    }
    throw BadArgument(argument, text, "neither an IPv4 nor an IPv6 address");
}

ip_addr_t parse_ipv4(std::string_view argument, std::string_view text)
{
    ip_addr_t address = 0;
    if (!read_address(AF_INET, text, &address)) {
        throw BadArgument(argument, text, "not an IPv4 address");
    }
    return address;
}

mac_t parse_mac(std::string_view argument, std::string_view text)
{
    mac_t mac{};
    const std::string complaint = read_bytes(split(text, ':'), mac.ether_addr_octet);
    if (!complaint.empty()) {
        throw BadArgument(argument, text, complaint);
    }
    if (consists_of(text, "0:")) {
        throw BadArgument(argument, text, "a MAC of all zeros names no port");
    }
    if ((mac.ether_addr_octet[0] & 1) != 0) {
        throw BadArgument(argument, text, "a group's MAC names no port");
    }
    return mac;
}

std::string parse_debug_name(std::string_view argument, std::string_view text)
{
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const std::string allowed = std::string(kLetters) + std::string(kDecimalDigits) + "_-.";
    if (!consists_of(text, allowed) || text.front() == '.' || text.size() > kLongestDebugName) {
        throw BadArgument(argument, text, "not the name of a debug module or element");
    }
    return std::string(text);
}

bool parse_switch(std::string_view argument, std::string_view text)
{
    if (text != "on" && text != "off") {
        throw BadArgument(argument, text, "neither \"on\" nor \"off\"");
    }
    return text == "on";
}

std::string to_text(wwn_t name)
{
    return joined_bytes(name.str);
}

std::string to_text(const mac_t& mac)
{
    return joined_bytes(mac.ether_addr_octet);
}

std::string ipv4_to_text(ip_addr_t address)
{
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

std::string to_text(fcid_t fcid)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%02x%02x%02x", fcid.domain, fcid.area, fcid.port);
    return text;
}

std::string to_text(const inet_addr_t& address)
{
    char text[INET6_ADDRSTRLEN] = "-";
    if (address.addr_type == INET_ADDR_TYPE_IPV4) {
        ::inet_ntop(AF_INET, &address.a.ipv4_addr, text, sizeof(text));
    } else if (address.addr_type == INET_ADDR_TYPE_IPV6) {
        ::inet_ntop(AF_INET6, &address.a.ipv6_addr, text, sizeof(text));
    }
    return text;
}

} // namespace ipfc
