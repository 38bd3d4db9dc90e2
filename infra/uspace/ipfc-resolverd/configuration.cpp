// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/configuration.h"

#include "ipfc-resolverd/fabric_name_server.h"
#include "ipfc-resolverd/static_table.h"
#include "ipfc-resolverd/text_file.h"

#include <charconv>
#include <functional>
#include <map>
#include <stdexcept>

namespace resolverd {

namespace {

/// The reason alone; file and line are added by who knows them.
[[noreturn]] void refuse(const std::string& reason)
{
    throw std::invalid_argument(reason);
}

long number_in(const std::string& text, long lowest, long highest)
{
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < lowest ||
        value > highest) {
        refuse("\"" + text + "\" is not a number from " + std::to_string(lowest) + " to " +
               std::to_string(highest));
    }
    return value;
}

template <typename Choice>
Choice choice_of(const std::string& text, const std::map<std::string, Choice>& choices)
{
    const auto found = choices.find(text);
    if (found != choices.end()) {
        return found->second;
    }
    std::string names;
    for (const auto& [name, choice] : choices) {
        names += (names.empty() ? "" : ", ") + name;
    }
    refuse("\"" + text + "\" is none of " + names);
}

std::string absolute_path(const std::string& text)
{
    if (text.front() != '/') {
        refuse("\"" + text + "\" does not start with \"/\"");
    }
    return text;
}

using Setter = std::function<void(Configuration&, const std::string&)>;

const std::map<std::string, Setter, std::less<>>& setters()
{
    static const std::map<std::string, Setter, std::less<>> all = {
        {"back-end",
         [](Configuration& c, const std::string& value) {
             c.back_end = choice_of<BackEnd>(
                 value, {{"fabric", BackEnd::fabric}, {"table", BackEnd::table}});
         }},
        {"name-server",
         [](Configuration& c, const std::string& value) { c.name_server = absolute_path(value); }},
        {"table",
         [](Configuration& c, const std::string& value) { c.table = absolute_path(value); }},
        {"device",
         [](Configuration& c, const std::string& value) { c.device = absolute_path(value); }},
        {"reports",
         [](Configuration& c, const std::string& value) { c.reports = absolute_path(value); }},
        {"query-timeout-ms",
         [](Configuration& c, const std::string& value) {
             c.queries.timeout = std::chrono::milliseconds(number_in(value, 1, 60000));
         }},
        {"max-queries",
         [](Configuration& c, const std::string& value) {
             c.queries.running = static_cast<size_t>(number_in(value, 1, 256));
         }},
        {"retry-interval-ms",
         [](Configuration& c, const std::string& value) {
             c.retry_interval = std::chrono::milliseconds(number_in(value, 10, 60000));
         }},
        {"log-level",
         [](Configuration& c, const std::string& value) {
             c.log_level = choice_of<Level>(value, {{"error", Level::error},
                                                    {"warning", Level::warning},
                                                    {"notice", Level::notice},
                                                    {"info", Level::info},
                                                    {"debug", Level::debug}});
         }},
    };
    return all;
}

void apply(Configuration& configuration, const Words& words)
{
    const auto setter = setters().find(words.front());
    if (setter == setters().end()) {
        refuse("there is no setting \"" + std::string(words.front()) + "\"");
    }
    if (words.size() != 3 || words[1] != "=") {
        refuse("a setting is written \"" + std::string(words.front()) +
               " = value\", in three words");
    }
    setter->second(configuration, std::string(words[2]));
}

} // namespace

Configuration parse_configuration(const std::string& text, const std::string& file)
{
    Configuration configuration;
    std::map<std::string, size_t, std::less<>> lines;
    for_each_line(text, [&](size_t number, const Words& words) {
        const auto [earlier, is_new] = lines.emplace(words.front(), number);
        if (!is_new) {
            throw MalformedText(file, number,
                                "\"" + earlier->first + "\" is set on line " +
                                    std::to_string(earlier->second) + " already");
        }
        try {
            apply(configuration, words);
        } catch (const std::invalid_argument& error) {
            throw MalformedText(file, number, error.what());
        }
    });
    return configuration;
}

std::shared_ptr<NameServer> make_name_server(const Configuration& configuration)
{
    if (configuration.back_end == BackEnd::table) {
        return std::make_shared<StaticTable>(configuration.table);
    }
    return std::make_shared<FabricNameServer>(configuration.name_server);
}

} // namespace resolverd
