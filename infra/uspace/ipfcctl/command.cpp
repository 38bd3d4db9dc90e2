// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"

#include "libipfc/names.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace ipfcctl {

namespace {

constexpr const char* kVsan = "VSAN";

} // namespace

const Argument kVsanArgument{kVsan, "VSAN number, 0 to 4095"};
const Argument kOptionalVsanArgument{kVsan, "VSAN number, 0 to 4095; all unless given", false};

CLI::App* add_command(CLI::App& object, Session& session, const std::string& name,
                      const std::string& description, const std::vector<Argument>& arguments,
                      const std::function<DriverAction(const Words&)>& choose)
{
    CLI::App* command = object.add_subcommand(name, description);
    auto words = std::make_shared<Words>();
    for (const Argument& argument : arguments) {
        command->add_option(argument.name, words->given_[argument.name], argument.description)
            ->type_name("")
            ->required(argument.required);
    }
    const std::string path = object.get_name() + ' ' + name;
    command->callback([&session, path, arguments, words, choose] {
        std::string label = path;
        for (const Argument& argument : arguments) {
            if (const std::optional<std::string> word = words->find(argument.name)) {
                label += ' ' + *word;
            }
        }
        session.choose(label, choose(*words));
    });
    return command;
}

vsan_id_t vsan_in(const Words& words)
{
    return ipfc::parse_vsan(kVsan, words[kVsan]);
}

std::optional<vsan_id_t> optional_vsan_in(const Words& words)
{
    const std::optional<std::string> word = words.find(kVsan);
    return word ? std::optional(ipfc::parse_vsan(kVsan, *word)) : std::nullopt;
}

} // namespace ipfcctl
