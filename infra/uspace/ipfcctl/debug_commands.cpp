// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/table.h"

#include "libipfc/debug_elements.h"
#include "libipfc/names.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using ipfc::DebugElement;
using ipfc::DebugSwitch;

const Argument kModule{"MODULE", "Name of the module, as \"ipfc\""};
const Argument kElement{"ELEMENT", "Name of the debug element, as \"errors\""};

/// Which element the words name.
struct Name {
    std::string module;
    std::string element;
};

Name name_in(const Words& words)
{
    return {ipfc::parse_debug_name("MODULE", words["MODULE"]),
            ipfc::parse_debug_name("ELEMENT", words["ELEMENT"])};
}

DebugSwitch parse_which(const std::string& text)
{
    if (text != "history" && text != "log") {
        throw ipfc::BadArgument("SWITCH", text, R"(neither "history" nor "log")");
    }
    return text == "history" ? DebugSwitch::history : DebugSwitch::log;
}

const char* on_or_off(bool on)
{
    return on ? "on" : "off";
}

size_t count_messages(const DebugElement& element, const Driver& driver)
{
    return ipfc::read_debug_history(driver.reports(), element.module, element.name).size();
}

Json to_json(const DebugElement& element, const Driver& driver, const Output& output)
{
    Json value{{"module", element.module},
               {"element", element.name},
               {"history", element.history},
               {"log", element.log}};
    if (output.details()) {
        value["messages"] = count_messages(element, driver);
    }
    return value;
}

void show_elements(const std::vector<DebugElement>& elements, const Driver& driver, Output& output,
                   const Json& value)
{
    std::vector<Table::Column> columns{{"MODULE"}, {"ELEMENT"}, {"HISTORY"}, {"LOG"}};
    if (output.details()) {
        columns.push_back({"MESSAGES", Align::right});
    }
    Table table(columns);
    for (const DebugElement& element : elements) {
        std::vector<Table::Cell> row{
            {element.module},
            {element.name},
            {on_or_off(element.history), element.history ? Style::good : Style::plain},
            {on_or_off(element.log), element.log ? Style::good : Style::plain}};
        if (output.details()) {
            row.push_back({std::to_string(count_messages(element, driver))});
        }
        table.add(row);
    }
    output.show(table.text(output.color()), value);
}

void list(Driver& driver, Output& output)
{
    const std::vector<DebugElement> elements = ipfc::read_debug_elements(driver.reports());
    Json values = Json::array();
    for (const DebugElement& element : elements) {
        values.push_back(to_json(element, driver, output));
    }
    show_elements(elements, driver, output, values);
}

void show(Driver& driver, Output& output, const Name& name)
{
    const DebugElement element =
        ipfc::read_debug_element(driver.reports(), name.module, name.element);
    show_elements({element}, driver, output, to_json(element, driver, output));
}

/// A message comes from whoever sent a frame, too: nothing in it is to steer a terminal.
std::string harmless(std::string message)
{
    std::replace_if(
        message.begin(), message.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return message;
}

void show_history(Driver& driver, Output& output, const Name& name)
{
    const std::vector<std::string> messages =
        ipfc::read_debug_history(driver.reports(), name.module, name.element);
    std::string text;
    for (const std::string& message : messages) {
        text += (text.empty() ? "" : "\n") + harmless(message);
    }
    output.show(text, messages);
}

/// A command on one element.
template <typename Run>
void add_element_command(CLI::App& debug, Session& session, const std::string& name,
                         const std::string& description, Run run)
{
    add_command(debug, session, name, description, {kModule, kElement},
                [run](const Words& words) -> DriverAction {
                    return [run, element = name_in(words)](Driver& driver, Output& output) {
                        run(driver, output, element);
                    };
                });
}

void add_set(CLI::App& debug, Session& session)
{
    add_command(
        debug, session, "set", "Keep messages in the history, or send them to the log",
        {kModule, kElement, {"SWITCH", "\"history\" or \"log\""}, {"STATE", "\"on\" or \"off\""}},
        [](const Words& words) -> DriverAction {
            const Name name = name_in(words);
            const DebugSwitch which = parse_which(words["SWITCH"]);
            const bool on = ipfc::parse_switch("STATE", words["STATE"]);
            return [=](Driver& driver, Output&) {
                ipfc::set_debug_switch(driver.reports(), name.module, name.element, which, on);
            };
        });
}

} // namespace

void add_debug_commands(CLI::App& root, Session& session)
{
    CLI::App& debug = *root.add_subcommand("debug", "Debug messages: their switches and history");
    debug.require_subcommand(1);
    add_command(debug, session, "list", "List the debug elements of all modules", {},
                [](const Words&) -> DriverAction { return list; });
    add_element_command(debug, session, "show", "Show the switches of one element", show);
    add_set(debug, session);
    add_element_command(debug, session, "history", "Show the messages kept, the oldest first",
                        show_history);
    add_element_command(debug, session, "clear", "Empty the history",
                        [](Driver& driver, Output&, const Name& name) {
                            ipfc::clear_debug_history(driver.reports(), name.module, name.element);
                        });
    label_commands(debug, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
