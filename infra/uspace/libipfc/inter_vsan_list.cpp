// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/inter_vsan_list.h"

#include "libipfc/report_scanner.h"

#include <arpa/inet.h>

#include <cstring>

namespace ipfc {

namespace {

constexpr const char* kFile = "ipfc/ivrip_list";
constexpr std::string_view kHeader =
    "\n             IP              PWWN           FCID     VSAN \n";

ip_addr_t scan_ipv4(ReportScanner& scanner)
{
    const std::string word(scanner.word());
    ip_addr_t address = 0;
    if (::inet_pton(AF_INET, word.c_str(), &address) != 1) {
        scanner.complain('"' + word + "\" is not an IPv4 address");
    }
    return address;
}

/// "0x" and eight digits: the byte in front of the domain too.
fcid_t scan_whole_fcid(ReportScanner& scanner)
{
    scanner.expect("0x");
    const uint32_t value = htonl(scanner.hexadecimal(8));
    fcid_t fcid{};
    std::memcpy(fcid.str, &value, sizeof(value));
    return fcid;
}

InterVsanHost scan_host(ReportScanner& scanner)
{
    InterVsanHost host{};
    scanner.skip_blanks();
    host.ip_addr = scan_ipv4(scanner);
    scanner.expect(" ");
    host.pwwn = scanner.wwn();
    scanner.expect(" ");
    host.fcid = scan_whole_fcid(scanner);
    scanner.expect(" ");
    host.vsan = scanner.decimal();
    scanner.expect("\n");
    return host;
}

} // namespace

std::vector<InterVsanHost> parse_inter_vsan_list(const std::string& name, std::string_view text)
{
    ReportScanner scanner(name, text);
    scanner.expect(kHeader);
    std::vector<InterVsanHost> hosts;
    while (!scanner.at_end()) {
        hosts.push_back(scan_host(scanner));
    }
    return hosts;
}

std::vector<InterVsanHost> read_inter_vsan_list(const ProcTree& tree)
{
    return parse_inter_vsan_list(tree.path(kFile), tree.read(kFile));
}

} // namespace ipfc
