// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/commands.h"
#include "ipfcctl/session.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace ipfcctl {

void add_module_commands(CLI::App& root, Session& session)
{
    root.add_subcommand("cleanup", "Delete every VSAN interface")->callback([&session] {
        session.choose("cleanup", [](ipfc::ControlDevice& device, Output&) { device.clean_up(); });
    });
    root.add_subcommand("headroom", "Show the bytes that the driver wants in front of a packet")
        ->callback([&session] {
            session.choose("headroom", [](ipfc::ControlDevice& device, Output& output) {
                const int32_t room = device.header_room();
                output.show(std::to_string(room), {{"headroom", room}});
            });
        });
}

} // namespace ipfcctl
