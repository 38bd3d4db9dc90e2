// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/interface_report.h"

#include "libipfc/refusal.h"
#include "libipfc/report_scanner.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>

namespace ipfc {

namespace {

constexpr const char* kDirectory = "ipfc";
constexpr std::string_view kPrefix = "vsan";
constexpr const char* kStatistics = "ipfc/statistics";
/// A long report is read in pieces, and a table that changes between two of them tears a line.
constexpr int kAttempts = 3;

/// The number in "vsanN"; none for other names, among them "vsan010" and "vsan4096".
std::optional<vsan_id_t> vsan_of_name(std::string_view name)
{
    if (!name.starts_with(kPrefix)) {
        return std::nullopt;
    }
    const std::string_view digits = name.substr(kPrefix.size());
    vsan_id_t vsan = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), vsan);
    if (error != std::errc{} || end != digits.end() || vsan < 0 || vsan > VSAN_ID_MAX ||
        digits != std::to_string(vsan)) {
        return std::nullopt;
    }
    return vsan;
}

Exchange scan_exchange(ReportScanner& scanner)
{
    Exchange exchange{};
    exchange.source = scanner.fcid();
    scanner.expect(" handle = ");
    exchange.handle = scanner.hexadecimal(8);
    scanner.expect("\n");
    return exchange;
}

Mapping scan_mapping(ReportScanner& scanner)
{
    Mapping mapping{};
    mapping.port_name = scanner.wwn();
    scanner.expect(" -> ");
    mapping.fcid = scanner.fcid();
    scanner.expect("\n");
    while (scanner.take("   exch with ")) {
        mapping.exchanges.push_back(scan_exchange(scanner));
    }
    return mapping;
}

InterfaceReport scan_identity(ReportScanner& scanner)
{
    InterfaceReport report{};
    scanner.expect("\nVSAN Interface ");
    scanner.skip_blanks();
    report.vsan = scanner.vsan();
    scanner.expect(" :\nfcid = ");
    report.fcid = scanner.fcid();
    scanner.expect("\nWW portname = ");
    report.port_name = scanner.wwn();
    scanner.expect("\nWW nodename = ");
    report.node_name = scanner.wwn();
    scanner.expect("\n");
    return report;
}

[[noreturn]] void explain_absence(const ProcTree& tree, const DeviceError& error)
{
    if (error.number() != ENOENT) {
        throw error;
    }
    // A directory that cannot be listed complains itself: the driver is not loaded.
    (void)interface_vsans(tree);
    throw DeviceError("VSAN does not exist", ENOENT);
}

std::string read_report(const ProcTree& tree, const std::string& name)
{
    try {
        return tree.read(name);
    } catch (const DeviceError& error) {
        explain_absence(tree, error);
    }
}

} // namespace

InterfaceReport parse_interface_report(const std::string& name, std::string_view text)
{
    ReportScanner scanner(name, text);
    InterfaceReport report = scan_identity(scanner);
    scanner.expect("                  WW_PN ->      FCID\n");
    while (!scanner.at_end()) {
        report.mappings.push_back(scan_mapping(scanner));
    }
    return report;
}

ModuleStatistics parse_module_statistics(const std::string& name, std::string_view text)
{
    ReportScanner scanner(name, text);
    ModuleStatistics statistics{};
    // The driver prints its unsigned counts with a sign.
    scanner.expect("\nGlobal IPFC statistics \npackets copied = ");
    statistics.packets_copied = static_cast<uint32_t>(scanner.decimal());
    scanner.expect("\nbytes copied   = ");
    statistics.bytes_copied = static_cast<uint32_t>(scanner.decimal());
    scanner.expect("\nmapping obj allocated = ");
    statistics.mappings = scanner.decimal();
    scanner.expect("\nexch obj allocated = ");
    statistics.exchanges = scanner.decimal();
    scanner.expect("\n");
    if (!scanner.at_end()) {
        scanner.complain("text behind the last count");
    }
    return statistics;
}

std::vector<vsan_id_t> interface_vsans(const ProcTree& tree)
{
    std::vector<vsan_id_t> vsans;
    for (const std::string& name : tree.list(kDirectory)) {
        if (const std::optional<vsan_id_t> vsan = vsan_of_name(name)) {
            vsans.push_back(*vsan);
        }
    }
    std::sort(vsans.begin(), vsans.end());
    return vsans;
}

InterfaceReport read_interface_report(const ProcTree& tree, vsan_id_t vsan)
{
    const std::string name =
        std::string(kDirectory) + '/' + std::string(kPrefix) + std::to_string(vsan);
    for (int attempt = 1;; ++attempt) {
        const std::string text = read_report(tree, name);
        try {
            return parse_interface_report(tree.path(name), text);
        } catch (const BadReport&) {
            if (attempt == kAttempts) {
                throw;
            }
        }
    }
}

ModuleStatistics read_module_statistics(const ProcTree& tree)
{
    return parse_module_statistics(tree.path(kStatistics), tree.read(kStatistics));
}

} // namespace ipfc
