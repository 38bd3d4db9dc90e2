// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/secondary_addresses.h"

#include "libipfc/names.h"
#include "libipfc/refusal.h"
#include "libipfc/report_scanner.h"

#include <cerrno>
#include <cstdio>

namespace ipfc {

namespace {

constexpr const char* kFile = "secondary_ip";

inet_addr_t scan_address(ReportScanner& scanner)
{
    const std::string_view word = scanner.word();
    try {
        return parse_inet_addr("address", word);
    } catch (const BadArgument& error) {
        scanner.complain(error.what());
    }
}

mac_t scan_mac(ReportScanner& scanner)
{
    mac_t mac{};
    for (size_t i = 0; i < sizeof(mac.ether_addr_octet); ++i) {
        if (i != 0) {
            scanner.expect(":");
        }
        mac.ether_addr_octet[i] = static_cast<uint8_t>(scanner.hexadecimal(2));
    }
    return mac;
}

SecondaryAddress scan_line(ReportScanner& scanner)
{
    SecondaryAddress line{};
    line.vsan = scanner.vsan();
    scanner.expect(" ");
    line.address = scan_address(scanner);
    scanner.expect(" ");
    line.mac = scan_mac(scanner);
    scanner.expect(" ");
    line.fcid = scanner.fcid();
    scanner.expect("\n");
    return line;
}

/// What the platform's reader understands: an IPv6 address without a dotted end.
std::string plain_text(const inet_addr_t& address)
{
    if (address.addr_type != INET_ADDR_TYPE_IPV6) {
        return to_text(address);
    }
    std::string text;
    const uint8_t* bytes = address.a.ipv6_addr.s6_addr;
    for (size_t i = 0; i < sizeof(address.a.ipv6_addr.s6_addr); i += 2) {
        char group[8];
        std::snprintf(group, sizeof(group), i == 0 ? "%x" : ":%x", bytes[i] << 8 | bytes[i + 1]);
        text += group;
    }
    return text;
}

/// The service's own refusals and those of the driver behind it.
std::string reason_of(int number, const std::string& otherwise)
{
    switch (number) {
    case EEXIST:
        return "the interface has this address already";
    case EADDRNOTAVAIL:
        return "the interface has no such address";
    case ENODEV:
        return "no driver serves secondary addresses";
    case EBUSY:
        return "another change is under way";
    case EINVAL:
        return "VSAN does not exist, or the line was not understood";
    default:
        return otherwise;
    }
}

void send(const ProcTree& tree, const std::string& command)
{
    try {
        tree.write(kFile, command + '\n');
    } catch (const DeviceError& error) {
        throw DeviceError(reason_of(error.number(), error.reason()), error.number());
    }
}

} // namespace

std::vector<SecondaryAddress> parse_secondary_addresses(const std::string& name,
                                                        std::string_view text)
{
    ReportScanner scanner(name, text);
    std::vector<SecondaryAddress> addresses;
    while (!scanner.at_end()) {
        addresses.push_back(scan_line(scanner));
    }
    return addresses;
}

std::vector<SecondaryAddress> read_secondary_addresses(const ProcTree& tree)
{
    return parse_secondary_addresses(tree.path(kFile), tree.read(kFile));
}

void add_secondary_address(const ProcTree& tree, const SecondaryAddress& address)
{
    send(tree, "add " + std::to_string(address.vsan) + ' ' + plain_text(address.address) + ' ' +
                   to_text(address.mac) + ' ' + to_text(address.fcid));
}

void delete_secondary_address(const ProcTree& tree, vsan_id_t vsan, const inet_addr_t& address)
{
    send(tree, "del " + std::to_string(vsan) + ' ' + plain_text(address));
}

} // namespace ipfc
