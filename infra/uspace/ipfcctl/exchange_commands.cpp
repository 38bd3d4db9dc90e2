// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/interfaces.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using ipfc::Exchange;
using ipfc::InterfaceReport;
using ipfc::Mapping;

std::string handle_text(uint32_t handle)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", handle);
    return text;
}

/// Whose N_Port the exchange is.
const char* owner_of(const Exchange& exchange, const InterfaceReport& report)
{
    return exchange.source.num == report.fcid.num ? "interface" : "secondary";
}

Json to_json(const Exchange& exchange, const InterfaceReport& report, const Output& output)
{
    Json value{{"source", json_of(exchange.source)}, {"handle", handle_text(exchange.handle)}};
    if (output.details()) {
        value["owner"] = owner_of(exchange, report);
    }
    return value;
}

Json identity_of(const Mapping& mapping, const InterfaceReport& report)
{
    return {{"vsan", report.vsan},
            {"ifname", interface_name(report.vsan)},
            {"wwpn", ipfc::to_text(mapping.port_name)},
            {"fcid", json_of(mapping.fcid)}};
}

template <typename Visit>
void for_each_exchange(const std::vector<InterfaceReport>& reports, Visit visit)
{
    for (const InterfaceReport& report : reports) {
        for (const Mapping& mapping : report.mappings) {
            for (const Exchange& exchange : mapping.exchanges) {
                visit(report, mapping, exchange);
            }
        }
    }
}

Json list_to_json(const std::vector<InterfaceReport>& reports, const Output& output)
{
    Json values = Json::array();
    for_each_exchange(reports, [&](const InterfaceReport& report, const Mapping& mapping,
                                   const Exchange& exchange) {
        Json value = identity_of(mapping, report);
        value.update(to_json(exchange, report, output));
        values.push_back(value);
    });
    return values;
}

std::string list_to_table(const std::vector<InterfaceReport>& reports, const Output& output)
{
    std::vector<Table::Column> columns{{"INTERFACE"}, {"PEER"}, {"FCID"}, {"SOURCE"}, {"HANDLE"}};
    if (output.details()) {
        columns.push_back({"OWNER"});
    }
    Table table(columns);
    for_each_exchange(reports, [&](const InterfaceReport& report, const Mapping& mapping,
                                   const Exchange& exchange) {
        std::vector<Table::Cell> row{{interface_name(report.vsan), Style::interface},
                                     {ipfc::to_text(mapping.port_name), Style::wwn},
                                     {text_or_dash(mapping.fcid), Style::fcid},
                                     {text_or_dash(exchange.source), Style::fcid},
                                     {handle_text(exchange.handle)}};
        if (output.details()) {
            row.push_back({owner_of(exchange, report)});
        }
        table.add(row);
    });
    return table.text(output.color());
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
    Json value = identity_of(mapping, report);
    value["exchanges"] = Json::array();
    for (const Exchange& exchange : mapping.exchanges) {
        text += "\n    source " + output.paint(Style::fcid, text_or_dash(exchange.source)) +
                " handle " + handle_text(exchange.handle);
        text += output.details() ? std::string(" owner ") + owner_of(exchange, report) : "";
        value["exchanges"].push_back(to_json(exchange, report, output));
    }
    output.show(text, value);
}

} // namespace

void add_exchange_commands(CLI::App& root, Session& session)
{
    CLI::App& exchange = *root.add_subcommand("exchange", "FC-2 exchanges towards peers");
    exchange.require_subcommand(1);
    add_command(exchange, session, "list", "List exchanges, one a line", {kOptionalVsanArgument},
                [](const Words& words) -> DriverAction {
                    return [vsan = optional_vsan_in(words)](Driver& driver, Output& output) {
                        list(driver, output, vsan);
                    };
                });
    add_command(exchange, session, "show", "Show the exchanges towards one peer",
                {kVsanArgument, {"WWPN", "World-wide name of the peer's port"}},
                [](const Words& words) -> DriverAction {
                    const vsan_id_t vsan = vsan_in(words);
                    const wwn_t port_name = ipfc::parse_wwn("WWPN", words["WWPN"]);
                    return [=](Driver& driver, Output& output) {
                        show(driver, output, vsan, port_name);
                    };
                });
    label_commands(exchange, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
