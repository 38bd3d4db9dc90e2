// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include "libipfc/inter_vsan_list.h"
#include "libipfc/refusal.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using ipfc::InterVsanHost;

const Argument kAddress{"IP", "The host's IPv4 address"};
const Argument kPortName{"WWPN", "World-wide name of the host's port"};
const Argument kFcid{"FCID", "FC address under which the host is seen"};

/// All four bytes when the first, which the driver keeps as it came, is set.
std::string fcid_text(fcid_t fcid)
{
    char first[8] = "0x";
    if (fcid.invalid == 0) {
        return ipfc::to_text(fcid);
    }
    std::snprintf(first, sizeof(first), "0x%02x", fcid.invalid);
    return first + ipfc::to_text(fcid).substr(2);
}

std::string list_to_table(const std::vector<InterVsanHost>& hosts, const Output& output)
{
    Table table({{"ADDRESS"}, {"WWPN"}, {"FCID"}, {"VSAN", Align::right}});
    for (const InterVsanHost& host : hosts) {
        table.add({{ipfc::ipv4_to_text(host.ip_addr), Style::address},
                   {ipfc::to_text(host.pwwn), Style::wwn},
                   {fcid_text(host.fcid), Style::fcid},
                   {std::to_string(host.vsan)}});
    }
    return table.text(output.color());
}

Json to_json(const InterVsanHost& host)
{
    return {{"address", ipfc::ipv4_to_text(host.ip_addr)},
            {"wwpn", ipfc::to_text(host.pwwn)},
            {"fcid", fcid_text(host.fcid)},
            {"vsan", host.vsan}};
}

void list(Driver& driver, Output& output, std::optional<vsan_id_t> vsan)
{
    std::vector<InterVsanHost> hosts = ipfc::read_inter_vsan_list(driver.reports());
    std::erase_if(
        hosts, [&](const InterVsanHost& host) { return vsan.has_value() && host.vsan != *vsan; });
    Json values = Json::array();
    std::transform(hosts.begin(), hosts.end(), std::back_inserter(values), to_json);
    output.show(list_to_table(hosts, output), values);
}

void show(Driver& driver, Output& output, fcid_t fcid, vsan_id_t vsan)
{
    for (const InterVsanHost& host : ipfc::read_inter_vsan_list(driver.reports())) {
        if (host.fcid.num == fcid.num && host.vsan == vsan) {
            output.show(output.paint(Style::address, ipfc::ipv4_to_text(host.ip_addr)) + " wwpn " +
                            output.paint(Style::wwn, ipfc::to_text(host.pwwn)) + " fcid " +
                            output.paint(Style::fcid, fcid_text(host.fcid)) + " vsan " +
                            std::to_string(host.vsan),
                        to_json(host));
            return;
        }
    }
    throw ipfc::DeviceError("no such host", ENOENT);
}

void add_changes(CLI::App& ivr, Session& session)
{
    add_command(
        ivr, session, "add", "Add a host, or replace the one with the same FCID and VSAN",
        {kAddress, kPortName, kFcid, kVsanArgument}, [](const Words& words) -> DriverAction {
            InterVsanHost host{};
            host.ip_addr = ipfc::parse_ipv4("IP", words["IP"]);
            host.pwwn = ipfc::parse_wwn("WWPN", words["WWPN"]);
            host.fcid = ipfc::parse_nport_fcid("FCID", words["FCID"]);
            host.vsan = vsan_in(words);
            return [host](Driver& driver, Output&) { driver.device().add_inter_vsan_host(host); };
        });
    add_command(ivr, session, "delete", "Delete a host; an absent one is no error",
                {kFcid, kVsanArgument}, [](const Words& words) -> DriverAction {
                    const fcid_t fcid = ipfc::parse_nport_fcid("FCID", words["FCID"]);
                    return [fcid, vsan = vsan_in(words)](Driver& driver, Output&) {
                        driver.device().delete_inter_vsan_host(fcid, vsan);
                    };
                });
}

void add_reports(CLI::App& ivr, Session& session)
{
    add_command(ivr, session, "list", "List the hosts, the newest first", {kOptionalVsanArgument},
                [](const Words& words) -> DriverAction {
                    return [vsan = optional_vsan_in(words)](Driver& driver, Output& output) {
                        list(driver, output, vsan);
                    };
                });
    add_command(ivr, session, "show", "Show one host", {kFcid, kVsanArgument},
                [](const Words& words) -> DriverAction {
                    const fcid_t fcid = ipfc::parse_nport_fcid("FCID", words["FCID"]);
                    return [fcid, vsan = vsan_in(words)](Driver& driver, Output& output) {
                        show(driver, output, fcid, vsan);
                    };
                });
}

} // namespace

void add_ivr_commands(CLI::App& root, Session& session)
{
    CLI::App& ivr = *root.add_subcommand("ivr", "IP hosts that are reached across VSANs");
    ivr.require_subcommand(1);
    add_changes(ivr, session);
    add_reports(ivr, session);
    label_commands(ivr, "COMMAND [ARGS]", "Commands");
}

} // namespace ipfcctl
