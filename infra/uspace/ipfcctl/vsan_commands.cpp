// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/interface_info.h"
#include "ipfcctl/session.h"

#include "libipfc/names.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace ipfcctl {

namespace {

/// The words behind the command, as the user wrote them.
struct VsanArguments {
    std::string vsan;
    std::string port_name;
    std::string node_name;
    std::string fcid;
    std::string ifindex = "0";
};

/// Adds a command with its VSAN argument. choose turns the words into the action; it runs when the
/// line has been read, and throws before anything is sent when a word is wrong.
template <typename Choose>
CLI::App* add_command(CLI::App& vsan, Session& session, const std::string& name,
                      const std::string& description, const std::shared_ptr<VsanArguments>& words,
                      Choose choose)
{
    CLI::App* command = vsan.add_subcommand(name, description);
    command->add_option("VSAN", words->vsan, "VSAN number, 0 to 4095")->type_name("")->required();
    command->callback([&session, name, words, choose] {
        const vsan_id_t number = ipfc::parse_vsan("VSAN", words->vsan);
        session.choose("vsan " + name + " " + words->vsan, choose(number, *words));
    });
    return command;
}

void add_create(CLI::App& vsan, Session& session)
{
    auto words = std::make_shared<VsanArguments>();
    CLI::App* command = add_command(
        vsan, session, "create", "Create the interface vsanN; one that exists stays as it is",
        words, [](vsan_id_t number, const VsanArguments& given) -> Action {
            const wwn_t port_name = ipfc::parse_wwn("--wwpn", given.port_name);
            const wwn_t node_name = ipfc::parse_wwn("--wwnn", given.node_name);
            return [=](ipfc::ControlDevice& device, Output&) {
                device.create_vsan(number, port_name, node_name);
            };
        });
    command->add_option("--wwpn", words->port_name, "World-wide name of the port")
        ->type_name("WWN")
        ->required();
    command->add_option("--wwnn", words->node_name, "World-wide name of the node")
        ->type_name("WWN")
        ->required();
}

void add_set_fcid(CLI::App& vsan, Session& session)
{
    auto words = std::make_shared<VsanArguments>();
    CLI::App* command = add_command(
        vsan, session, "set-fcid", "Give the interface its FCID and register its N_Port", words,
        [](vsan_id_t number, const VsanArguments& given) -> Action {
            const fcid_t fcid = ipfc::parse_nport_fcid("FCID", given.fcid);
            const if_index_t ifindex = ipfc::parse_ifindex("--ifindex", given.ifindex);
            return [=](ipfc::ControlDevice& device, Output&) {
                device.set_fcid(number, fcid, ifindex);
            };
        });
    command->add_option("FCID", words->fcid, "FC address, 0x0a0b0c or 0a.0b.0c")
        ->type_name("")
        ->required();
    command
        ->add_option("--ifindex", words->ifindex,
                     "Platform index of the interface that the N_Port is behind; 0 unless given")
        ->type_name("N");
}

void add_plain(CLI::App& vsan, Session& session, const std::string& name,
               const std::string& description, void (ipfc::ControlDevice::*operation)(vsan_id_t))
{
    add_command(vsan, session, name, description, std::make_shared<VsanArguments>(),
                [operation](vsan_id_t number, const VsanArguments&) -> Action {
                    return
                        [=](ipfc::ControlDevice& device, Output&) { (device.*operation)(number); };
                });
}

} // namespace

void add_vsan_commands(CLI::App& root, Session& session)
{
    CLI::App& vsan = *root.add_subcommand("vsan", "VSAN interfaces and their N_Ports");
    vsan.require_subcommand(1);
    add_create(vsan, session);
    add_plain(vsan, session, "delete", "Delete the interface; an absent one is no error",
              &ipfc::ControlDevice::delete_vsan);
    add_set_fcid(vsan, session);
    add_plain(vsan, session, "rem-fcid", "Take the FCID away and remove the N_Port",
              &ipfc::ControlDevice::remove_fcid);
    add_plain(vsan, session, "up", "Set the administrative state up", &ipfc::ControlDevice::set_up);
    add_plain(vsan, session, "down", "Set the administrative state down",
              &ipfc::ControlDevice::set_down);
    add_vsan_reports(vsan, session);
    label_commands(vsan, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
