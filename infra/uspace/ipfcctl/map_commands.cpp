// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/interfaces.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include <CLI/CLI.hpp>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using ipfc::InterfaceReport;
using ipfc::Mapping;

const Argument kPortName{"WWPN", "World-wide name of the peer's port"};
const Argument kFcid{"FCID", "FC address at which the port is reached, 0x0a0b0c or 0a.0b.0c"};

wwn_t port_name_in(const Words& words)
{
    return ipfc::parse_wwn(kPortName.name, words[kPortName.name]);
}

fcid_t fcid_in(const Words& words)
{
    return ipfc::parse_nport_fcid(kFcid.name, words[kFcid.name]);
}

template <typename Visit>
void for_each_mapping(const std::vector<InterfaceReport>& reports, Visit visit)
{
    for (const InterfaceReport& report : reports) {
        for (const Mapping& mapping : report.mappings) {
            visit(report, mapping);
        }
    }
}

std::string list_to_table(const std::vector<InterfaceReport>& reports, const Output& output)
{
    std::vector<Table::Column> columns{{"INTERFACE"}, {"PEER"}, {"FCID"}};
    if (output.details()) {
        columns.push_back({"EXCHANGES", Align::right});
    }
    Table table(columns);
    for_each_mapping(reports, [&](const InterfaceReport& report, const Mapping& mapping) {
        std::vector<Table::Cell> row{{interface_name(report.vsan), Style::interface},
                                     {ipfc::to_text(mapping.port_name), Style::wwn},
                                     {text_or_dash(mapping.fcid), Style::fcid}};
        if (output.details()) {
            row.push_back({std::to_string(mapping.exchanges.size())});
        }
        table.add(row);
    });
    return table.text(output.color());
}

Json to_json(const InterfaceReport& report, const Mapping& mapping, const Output& output)
{
    Json value{{"vsan", report.vsan},
               {"ifname", interface_name(report.vsan)},
               {"wwpn", ipfc::to_text(mapping.port_name)},
               {"fcid", json_of(mapping.fcid)}};
    if (output.details()) {
        value["exchanges"] = mapping.exchanges.size();
    }
    return value;
}

Json list_to_json(const std::vector<InterfaceReport>& reports, const Output& output)
{
    Json values = Json::array();
    for_each_mapping(reports, [&](const InterfaceReport& report, const Mapping& mapping) {
        values.push_back(to_json(report, mapping, output));
    });
    return values;
}

void list(Driver& driver, Output& output, std::optional<vsan_id_t> vsan)
{
    const std::vector<InterfaceReport> reports = ask_each(driver, vsan, [&](vsan_id_t each) {
        return ipfc::read_interface_report(driver.reports(), each);
    });
    output.show(list_to_table(reports, output), list_to_json(reports, output));
}

void show(Driver& driver, Output& output, vsan_id_t vsan, wwn_t port_name)
{
    const InterfaceReport report = ipfc::read_interface_report(driver.reports(), vsan);
    const Mapping& mapping = mapping_of(report, port_name);
    std::string text = output.paint(Style::interface, interface_name(report.vsan)) + ": " +
                       output.paint(Style::wwn, ipfc::to_text(mapping.port_name)) + " at " +
                       output.paint(Style::fcid, text_or_dash(mapping.fcid));
    if (output.details()) {
        text += " exchanges " + std::to_string(mapping.exchanges.size());
    }
    output.show(text, to_json(report, mapping, output));
}

void add(ipfc::ControlDevice& device, vsan_id_t vsan, wwn_t port_name, fcid_t fcid)
{
    // The driver says the same of a mapping that it stored and of one that has no interface: that
    // no packet waited for it.
    if (device.add_mapping(vsan, port_name, fcid) == ipfc::Parked::none) {
        static_cast<void>(device.get_info(vsan));
    }
}

void not_found(ipfc::ControlDevice& device, vsan_id_t vsan, wwn_t port_name)
{
    if (device.mapping_not_found(vsan, port_name) == ipfc::Parked::none) {
        throw ipfc::DeviceError(ipfc::reason_of_refusal(IPFC_IOC_MAPPING_NOT_FOUND, EPERM), EPERM);
    }
}

void add_answers(CLI::App& map, Session& session)
{
    add_command(
        map, session, "add", "Store where a port is, and send the oldest packet that waits for it",
        {kVsanArgument, kPortName, kFcid}, [](const Words& words) -> DriverAction {
            const vsan_id_t vsan = vsan_in(words);
            const wwn_t port_name = port_name_in(words);
            const fcid_t fcid = fcid_in(words);
            return [=](Driver& driver, Output&) { add(driver.device(), vsan, port_name, fcid); };
        });
    add_command(map, session, "not-found", "Drop the oldest packet that waits for a port",
                {kVsanArgument, kPortName}, [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const wwn_t port_name = port_name_in(words);
                    return [=](Driver& driver, Output&) {
                        not_found(driver.device(), vsan, port_name);
                    };
                });
}

void add_changes(CLI::App& map, Session& session)
{
    add_command(map, session, "update", "Change where a known port is; an unknown one is no error",
                {kVsanArgument, kPortName, kFcid}, [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const wwn_t port_name = port_name_in(words);
                    const fcid_t fcid = fcid_in(words);
                    return [=](Driver& driver, Output&) {
                        driver.device().update_mapping(vsan, port_name, fcid);
                    };
                });
    add_command(map, session, "delete", "Forget a port, with LOGO; an unknown one is no error",
                {kVsanArgument, kPortName}, [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const wwn_t port_name = port_name_in(words);
                    return [=](Driver& driver, Output&) {
                        driver.device().delete_mapping(vsan, port_name);
                    };
                });
}

} // namespace

void add_map_commands(CLI::App& root, Session& session)
{
    CLI::App& map = *root.add_subcommand("map", "Port names and the FCIDs at which they are");
    map.require_subcommand(1);
    add_command(map, session, "list", "List the port names that the driver knows",
                {kOptionalVsanArgument}, [](const Words& words) -> DriverAction {
                    return [vsan = optional_vsan_in(words)](Driver& driver, Output& output) {
                        list(driver, output, vsan);
                    };
                });
    add_command(map, session, "show", "Show where one port is", {kVsanArgument, kPortName},
                [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const wwn_t port_name = port_name_in(words);
                    return [=](Driver& driver, Output& output) {
                        show(driver, output, vsan, port_name);
                    };
                });
    add_answers(map, session);
    add_changes(map, session);
    label_commands(map, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
