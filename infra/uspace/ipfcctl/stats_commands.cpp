// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/counters.h"
#include "ipfcctl/help.h"
#include "ipfcctl/interfaces.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/stats_watch.h"
#include "ipfcctl/table.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <memory>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using Stats = ipfc_intf_stats_ioctl_t;
using ipfc::Counters;

/// The options of "show" and "list".
struct StatsOptions {
    bool snmp = false;
    bool watch = false;
    std::optional<std::string> count;

    [[nodiscard]] Counters counters() const
    {
        return snmp ? Counters::snmp : Counters::since_clear;
    }
};

std::vector<Stats> read_stats(Driver& driver, std::optional<vsan_id_t> vsan, Counters counters)
{
    return ask_each(driver, vsan,
                    [&](vsan_id_t each) { return driver.device().get_stats(each, counters); });
}

Json to_json(const std::vector<Stats>& records, const Output& output)
{
    Json values = Json::array();
    for (const Stats& record : records) {
        const vsan_id_t vsan = record.vsan_id;
        Json value{{"vsan", vsan},
                   {"ifname", interface_name(vsan)},
                   {"snmp", record.snmp_stats == 1},
                   {"counters", counters_to_json(record)}};
        if (output.details()) {
            value["mib"] = mib_counters_to_json(record);
        }
        values.push_back(value);
    }
    return values;
}

std::string to_text(const std::vector<Stats>& records, const Output& output)
{
    std::string text;
    for (const Stats& record : records) {
        text += (text.empty() ? "" : "\n") +
                output.paint(Style::interface, interface_name(record.vsan_id)) + ":\n" +
                counters_to_text(record, output);
        if (output.details()) {
            text += '\n' + mib_counters_to_text(record);
        }
    }
    return text;
}

std::string to_table(const std::vector<Stats>& records, const Output& output)
{
    Table table({{"INTERFACE"},
                 {"RX-PACKETS", Align::right},
                 {"RX-BYTES", Align::right},
                 {"RX-ERRORS", Align::right},
                 {"RX-DROPPED", Align::right},
                 {"TX-PACKETS", Align::right},
                 {"TX-BYTES", Align::right},
                 {"TX-ERRORS", Align::right},
                 {"TX-DROPPED", Align::right}});
    for (const Stats& record : records) {
        table.add({{interface_name(record.vsan_id), Style::interface},
                   {std::to_string(record.rx_packets)},
                   {std::to_string(record.rx_bytes)},
                   {std::to_string(record.rx_errors)},
                   {std::to_string(record.rx_dropped)},
                   {std::to_string(record.tx_packets)},
                   {std::to_string(record.tx_bytes)},
                   {std::to_string(record.tx_errors)},
                   {std::to_string(record.tx_dropped)}});
    }
    return table.text(output.color());
}

uint64_t parse_count(const std::string& text)
{
    uint64_t count = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, count);
    if (error != std::errc{} || end != last || count == 0) {
        throw ipfc::BadArgument("--count", text,
                                "the number of tables is a decimal number above 0");
    }
    return count;
}

Watch watch_of(const StatsOptions& options, std::optional<vsan_id_t> vsan)
{
    Watch watch{vsan, options.counters(), std::nullopt};
    if (options.count) {
        watch.count = parse_count(*options.count);
    }
    return watch;
}

CLI::App* add_snmp(CLI::App* command, const std::shared_ptr<StatsOptions>& options)
{
    command->add_flag("--snmp", options->snmp, "With the counts from before the last clear");
    return command;
}

void add_show(CLI::App& stats, Session& session)
{
    auto options = std::make_shared<StatsOptions>();
    CLI::App* command = add_command(
        stats, session, "show", "Show the counters since the last clear, or their rates",
        {kOptionalVsanArgument}, [&session, options](const Words& words) -> DriverAction {
            const std::optional<vsan_id_t> vsan = optional_vsan_in(words);
            if (options->watch && session.in_batch) {
                throw CLI::ValidationError("--watch has no place in a batch");
            }
            if (options->watch) {
                return [watch = watch_of(*options, vsan)](Driver& driver, Output& output) {
                    watch_rates(watch, driver, output);
                };
            }
            return [vsan, counters = options->counters()](Driver& driver, Output& output) {
                const std::vector<Stats> records = read_stats(driver, vsan, counters);
                output.show(to_text(records, output), to_json(records, output));
            };
        });
    add_snmp(command, options);
    CLI::Option* watch =
        command->add_flag("--watch", options->watch,
                          "Draw the rates of each interface every second until interrupted");
    command->add_option("--count", options->count, "End after that many tables")
        ->type_name("N")
        ->needs(watch);
}

void add_list(CLI::App& stats, Session& session)
{
    auto options = std::make_shared<StatsOptions>();
    add_snmp(add_command(stats, session, "list", "List the interfaces' counters, one a line", {},
                         [options](const Words&) -> DriverAction {
                             return [counters = options->counters()](Driver& driver,
                                                                     Output& output) {
                                 const auto records = read_stats(driver, std::nullopt, counters);
                                 output.show(to_table(records, output), to_json(records, output));
                             };
                         }),
             options);
}

void show_module(Driver& driver, Output& output)
{
    const ipfc::ModuleStatistics counts = ipfc::read_module_statistics(driver.reports());
    Table table({{"PACKETS-COPIED", Align::right},
                 {"BYTES-COPIED", Align::right},
                 {"MAPPINGS", Align::right},
                 {"EXCHANGES", Align::right}});
    table.add({{std::to_string(counts.packets_copied)},
               {std::to_string(counts.bytes_copied)},
               {std::to_string(counts.mappings)},
               {std::to_string(counts.exchanges)}});
    output.show(table.text(output.color()), {{"packets_copied", counts.packets_copied},
                                             {"bytes_copied", counts.bytes_copied},
                                             {"mappings", counts.mappings},
                                             {"exchanges", counts.exchanges}});
}

} // namespace

void add_stats_commands(CLI::App& root, Session& session)
{
    CLI::App& stats = *root.add_subcommand("stats", "Counters of interfaces and of the module");
    stats.require_subcommand(1);
    add_show(stats, session);
    add_list(stats, session);
    add_command(stats, session, "clear", "Set an interface's counters to zero", {kVsanArgument},
                [](const Words& words) -> DriverAction {
                    return [vsan = vsan_in(words)](Driver& driver, Output&) {
                        driver.device().clear_stats(vsan);
                    };
                });
    add_command(stats, session, "module", "Show the counts of the whole module", {},
                [](const Words&) -> DriverAction { return show_module; });
    label_commands(stats, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
