// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include "libipfc/refusal.h"
#include "libipfc/secondary_addresses.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using ipfc::SecondaryAddress;

const Argument kAddress{"ADDRESS", "IPv4 or IPv6 address"};
const Argument kMac{"MAC", "MAC address; 10:00 in front of it makes the N_Port's port name"};
const Argument kFcid{"FCID", "FC address of the N_Port, 0x0a0b0c or 0a.0b.0c"};

inet_addr_t address_in(const Words& words)
{
    return ipfc::parse_inet_addr("ADDRESS", words["ADDRESS"]);
}

/// The platform keeps no MAC that names a group, so the name is a registered one.
wwn_t port_name_of(const mac_t& mac)
{
    wwn_t name{{0x10, 0x00}};
    std::memcpy(name.ieee.mac, mac.ether_addr_octet, sizeof(name.ieee.mac));
    return name;
}

Json to_json(const SecondaryAddress& address)
{
    return {{"vsan", address.vsan},
            {"ifname", interface_name(address.vsan)},
            {"address", ipfc::to_text(address.address)},
            {"mac", ipfc::to_text(address.mac)},
            {"wwpn", ipfc::to_text(port_name_of(address.mac))},
            {"fcid", json_of(address.fcid)}};
}

void list(Driver& driver, Output& output, std::optional<vsan_id_t> vsan)
{
    Table table({{"INTERFACE"}, {"ADDRESS"}, {"WWPN"}, {"FCID"}});
    Json values = Json::array();
    for (const SecondaryAddress& address : ipfc::read_secondary_addresses(driver.reports())) {
        if (vsan && address.vsan != *vsan) {
            continue;
        }
        table.add({{interface_name(address.vsan), Style::interface},
                   {ipfc::to_text(address.address), Style::address},
                   {ipfc::to_text(port_name_of(address.mac)), Style::wwn},
                   {text_or_dash(address.fcid), Style::fcid}});
        values.push_back(to_json(address));
    }
    output.show(table.text(output.color()), values);
}

void show(Driver& driver, Output& output, vsan_id_t vsan, const inet_addr_t& wanted)
{
    for (const SecondaryAddress& address : ipfc::read_secondary_addresses(driver.reports())) {
        // Both texts are the library's own, so equal addresses have equal ones.
        if (address.vsan == vsan && ipfc::to_text(address.address) == ipfc::to_text(wanted)) {
            output.show(output.paint(Style::interface, interface_name(vsan)) + ": " +
                            output.paint(Style::address, ipfc::to_text(address.address)) +
                            "\n    mac " + ipfc::to_text(address.mac) + " wwpn " +
                            output.paint(Style::wwn, ipfc::to_text(port_name_of(address.mac))) +
                            " fcid " + output.paint(Style::fcid, text_or_dash(address.fcid)),
                        to_json(address));
            return;
        }
    }
    throw ipfc::DeviceError("the interface has no such address", ENOENT);
}

void add_changes(CLI::App& secondary, Session& session)
{
    add_command(secondary, session, "add", "Give an interface an address with an N_Port of its own",
                {kVsanArgument, kAddress, kMac, kFcid}, [](const Words& words) -> DriverAction {
                    SecondaryAddress address{};
                    address.vsan = vsan_in(words);
                    address.address = address_in(words);
                    address.mac = ipfc::parse_mac("MAC", words["MAC"]);
                    address.fcid = ipfc::parse_nport_fcid("FCID", words["FCID"]);
                    return [address](Driver& driver, Output&) {
                        ipfc::add_secondary_address(driver.reports(), address);
                    };
                });
    add_command(secondary, session, "delete", "Take an address and its N_Port away",
                {kVsanArgument, kAddress}, [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    return [vsan, address = address_in(words)](Driver& driver, Output&) {
                        ipfc::delete_secondary_address(driver.reports(), vsan, address);
                    };
                });
}

void add_reports(CLI::App& secondary, Session& session)
{
    add_command(secondary, session, "list", "List the addresses", {kOptionalVsanArgument},
                [](const Words& words) -> DriverAction {
                    return [vsan = optional_vsan_in(words)](Driver& driver, Output& output) {
                        list(driver, output, vsan);
                    };
                });
    add_command(secondary, session, "show", "Show one address", {kVsanArgument, kAddress},
                [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    return [vsan, address = address_in(words)](Driver& driver, Output& output) {
                        show(driver, output, vsan, address);
                    };
                });
}

} // namespace

void add_secondary_commands(CLI::App& root, Session& session)
{
    CLI::App& secondary =
        *root.add_subcommand("secondary", "Secondary addresses, each an N_Port of its own");
    secondary.require_subcommand(1);
    add_changes(secondary, session);
    add_reports(secondary, session);
    label_commands(secondary, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
