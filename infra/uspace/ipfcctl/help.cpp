// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/help.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace ipfcctl {

std::string path_of(const CLI::App& app)
{
    const CLI::App* parent = app.get_parent();
    return parent == nullptr ? app.get_name() : path_of(*parent) + " " + app.get_name();
}

std::string help_of(const CLI::App& app)
{
    const CLI::App* parent = app.get_parent();
    return app.help(parent == nullptr ? "" : path_of(*parent));
}

void label_commands(CLI::App& app, const std::string& usage, const std::string& heading)
{
    // Commands share their parent's formatter, so this app gets one of its own.
    auto formatter = std::make_shared<CLI::Formatter>();
    formatter->label("SUBCOMMAND", usage);
    app.formatter(formatter);
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        command->group(heading);
    }
}

} // namespace ipfcctl
