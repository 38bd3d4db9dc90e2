// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/interface_info.h"

#include "ipfcctl/command.h"
#include "ipfcctl/counters.h"
#include "ipfcctl/interfaces.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include <CLI/CLI.hpp>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;

/// An interface and, when the user wants more, its counters.
struct Interface {
    ipfc_get_intf_ioctl_t info;
    std::optional<ipfc_intf_stats_ioctl_t> counters;
};

bool is_up(const ipfc_get_intf_ioctl_t& info)
{
    return info.intf_adm_status == IPFC_INTF_ADMIN_UP;
}

const char* admin_state(const ipfc_get_intf_ioctl_t& info)
{
    return is_up(info) ? "up" : "down";
}

Style admin_style(const ipfc_get_intf_ioctl_t& info)
{
    return is_up(info) ? Style::good : Style::bad;
}

std::vector<Interface> read_with_counters(Driver& driver, std::optional<vsan_id_t> vsan,
                                          bool counters)
{
    return ask_each(driver, vsan, [&](vsan_id_t each) {
        Interface interface {
            driver.device().get_info(each), std::nullopt
        };
        if (counters) {
            interface.counters = driver.device().get_stats(each, ipfc::Counters::since_clear);
        }
        return interface;
    });
}

Json to_json(const Interface& interface)
{
    const ipfc_get_intf_ioctl_t& info = interface.info;
    Json value{{"vsan", vsan_id_t(info.vsan_id)},
               {"ifname", interface_name(info.vsan_id)},
               {"admin", admin_state(info)},
               {"wwpn", ipfc::to_text(info.ww_portname)},
               {"wwnn", ipfc::to_text(info.ww_nodename)},
               {"fcid", json_of(info.fcid)},
               {"address", json_of(info.ip_addr)},
               {"secondary_addresses", int32_t(info.num_sec_ip_addr)}};
    if (interface.counters) {
        value["counters"] = counters_to_json(*interface.counters);
    }
    return value;
}

std::string to_text(const Interface& interface, const Output& output)
{
    const ipfc_get_intf_ioctl_t& info = interface.info;
    std::string text = output.paint(Style::interface, interface_name(info.vsan_id)) + ": admin " +
                       output.paint(admin_style(info), admin_state(info)) + "\n    wwpn " +
                       output.paint(Style::wwn, ipfc::to_text(info.ww_portname)) + " wwnn " +
                       output.paint(Style::wwn, ipfc::to_text(info.ww_nodename)) + "\n    fcid " +
                       output.paint(Style::fcid, text_or_dash(info.fcid)) + " address " +
                       output.paint(Style::address, ipfc::to_text(info.ip_addr)) + " secondary " +
                       std::to_string(info.num_sec_ip_addr);
    if (interface.counters) {
        text += '\n' + counters_to_text(*interface.counters, output);
    }
    return text;
}

std::string to_table(const std::vector<Interface>& interfaces, const Output& output)
{
    std::vector<Table::Column> columns{{"INTERFACE"}, {"ADMIN"}, {"FCID"},
                                       {"WWPN"},      {"WWNN"},  {"ADDRESS"}};
    if (output.details()) {
        columns.push_back({"SECONDARY", Align::right});
        columns.push_back({"RX-PACKETS", Align::right});
        columns.push_back({"TX-PACKETS", Align::right});
    }
    Table table(columns);
    for (const Interface& interface : interfaces) {
        const ipfc_get_intf_ioctl_t& info = interface.info;
        std::vector<Table::Cell> row{{interface_name(info.vsan_id), Style::interface},
                                     {admin_state(info), admin_style(info)},
                                     {text_or_dash(info.fcid), Style::fcid},
                                     {ipfc::to_text(info.ww_portname), Style::wwn},
                                     {ipfc::to_text(info.ww_nodename), Style::wwn},
                                     {ipfc::to_text(info.ip_addr), Style::address}};
        if (interface.counters) {
            row.push_back({std::to_string(info.num_sec_ip_addr)});
            row.push_back({std::to_string(interface.counters->rx_packets)});
            row.push_back({std::to_string(interface.counters->tx_packets)});
        }
        table.add(row);
    }
    return table.text(output.color());
}

} // namespace

std::vector<ipfc_get_intf_ioctl_t> read_interfaces(Driver& driver, std::optional<vsan_id_t> vsan)
{
    return ask_each(driver, vsan, [&](vsan_id_t each) { return driver.device().get_info(each); });
}

void add_vsan_reports(CLI::App& vsan, Session& session)
{
    add_command(vsan, session, "list", "List the interfaces, one a line", {},
                [](const Words&) -> DriverAction {
                    return [](Driver& driver, Output& output) {
                        const auto interfaces =
                            read_with_counters(driver, std::nullopt, output.details());
                        Json values = Json::array();
                        for (const Interface& interface : interfaces) {
                            values.push_back(to_json(interface));
                        }
                        output.show(to_table(interfaces, output), values);
                    };
                });
    add_command(vsan, session, "show", "Show what the driver knows about an interface",
                {kVsanArgument}, [](const Words& words) -> DriverAction {
                    return [number = vsan_in(words)](Driver& driver, Output& output) {
                        const Interface interface =
                            read_with_counters(driver, number, output.details()).front();
                        output.show(to_text(interface, output), to_json(interface));
                    };
                });
}

} // namespace ipfcctl
