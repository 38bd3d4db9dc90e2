// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/commands.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/session.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>

namespace ipfcctl {

namespace {

uint64_t parse_count(const std::string& text)
{
    uint64_t count = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, count);
    if (error != std::errc{} || end != last || count == 0) {
        throw ipfc::BadArgument("--count", text,
                                "the number of requests is a decimal number above 0");
    }
    return count;
}

/// Waits for requests and shows each at once, until there were as many, or nobody looks any more.
void resolve(ipfc::ControlDevice& device, Output& output, std::optional<uint64_t> count)
{
    while (!count || (*count)-- > 0) {
        const std::optional<req_mapping_t> request = device.read_request();
        if (!request) {
            continue;
        }
        const std::string name = ipfc::to_text(request->ww_portname);
        if (!output.append(output.paint(Style::interface, interface_name(request->vsan_id)) + ' ' +
                               output.paint(Style::wwn, name),
                           {{"vsan", request->vsan_id},
                            {"ifname", interface_name(request->vsan_id)},
                            {"wwpn", name}})) {
            return;
        }
    }
}

} // namespace

void add_resolve_command(CLI::App& root, Session& session)
{
    CLI::App* command = root.add_subcommand(
        "resolve", "Show the driver's requests for unknown port names as they come");
    command->footer(
        "A request that is shown has been taken from the driver, and nobody else will see it. Its\n"
        "packet stays parked until \"map add\" or \"map not-found\" answers for its port.");
    auto count = std::make_shared<std::optional<std::string>>();
    command->add_option("--count", *count, "End after that many requests")->type_name("N");
    command->callback([&session, count] {
        const std::optional<uint64_t> number =
            *count ? std::optional(parse_count(**count)) : std::nullopt;
        session.choose("resolve", Action([number](ipfc::ControlDevice& device, Output& output) {
                           resolve(device, output, number);
                       }));
    });
}

} // namespace ipfcctl
