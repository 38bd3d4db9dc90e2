// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/interface_info.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include <CLI/CLI.hpp>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;

/// "inet" and "inet6", as the ip tool says; "-" for an address of neither kind.
std::string family_of(const inet_addr_t& address)
{
    switch (address.addr_type) {
    case INET_ADDR_TYPE_IPV4:
        return "inet";
    case INET_ADDR_TYPE_IPV6:
        return "inet6";
    default:
        return "-";
    }
}

Json to_json(const ipfc_get_intf_ioctl_t& info)
{
    const Json address = json_of(info.ip_addr);
    return {{"vsan", vsan_id_t(info.vsan_id)},
            {"ifname", interface_name(info.vsan_id)},
            {"family", address.is_null() ? Json() : Json(family_of(info.ip_addr))},
            {"address", address}};
}

void list(Driver& driver, Output& output)
{
    Table table({{"INTERFACE"}, {"FAMILY"}, {"ADDRESS"}});
    Json values = Json::array();
    for (const ipfc_get_intf_ioctl_t& info : read_interfaces(driver, std::nullopt)) {
        table.add({{interface_name(info.vsan_id), Style::interface},
                   {family_of(info.ip_addr)},
                   {ipfc::to_text(info.ip_addr), Style::address}});
        values.push_back(to_json(info));
    }
    output.show(table.text(output.color()), values);
}

void show(Driver& driver, Output& output, vsan_id_t vsan)
{
    const ipfc_get_intf_ioctl_t info = read_interfaces(driver, vsan).front();
    output.show(output.paint(Style::interface, interface_name(vsan)) + ": " +
                    family_of(info.ip_addr) + ' ' +
                    output.paint(Style::address, ipfc::to_text(info.ip_addr)),
                to_json(info));
}

} // namespace

void add_ip_commands(CLI::App& root, Session& session)
{
    CLI::App& ip =
        *root.add_subcommand("ip", "Addresses of interfaces, as the driver reports them");
    ip.require_subcommand(1);
    add_command(ip, session, "set", "Record an interface's address; the IP stack is not told",
                {kVsanArgument, {"ADDRESS", "IPv4 or IPv6 address"}},
                [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const inet_addr_t address = ipfc::parse_inet_addr("ADDRESS", words["ADDRESS"]);
                    return [=](Driver& driver, Output&) { driver.device().set_ip(vsan, address); };
                });
    add_command(ip, session, "list", "List the interfaces' addresses", {},
                [](const Words&) -> DriverAction { return list; });
    add_command(ip, session, "show", "Show an interface's address", {kVsanArgument},
                [](const Words& words) -> DriverAction {
                    return [vsan = vsan_in(words)](Driver& driver, Output& output) {
                        show(driver, output, vsan);
                    };
                });
    label_commands(ip, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
