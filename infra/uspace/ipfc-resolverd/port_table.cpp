// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/port_table.h"

#include "ipfc-resolverd/text_file.h"

#include "libipfc/names.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace resolverd {

namespace {

using Entry = std::pair<Port, fcid_t>;

/// Throws std::invalid_argument with the reason.
Entry parse_entry(const Words& words)
{
    if (words.size() != 3) {
        throw std::invalid_argument(counted(words.size(), "word") +
                                    " where there must be three: VSAN, port name and FCID");
    }
    const Port port{ipfc::parse_vsan("VSAN", words[0]), ipfc::parse_wwn("port name", words[1])};
    return {port, ipfc::parse_nport_fcid("FCID", words[2])};
}

} // namespace

std::optional<fcid_t> look_up(const PortTable& ports, const Port& port)
{
    const auto exact = ports.find(port);
    if (exact != ports.end()) {
        return exact->second;
    }
    std::optional<fcid_t> only;
    if (port.name.str[0] != 0x10 || port.name.str[1] != 0x00) {
        return only;
    }
    for (const auto& [candidate, fcid] : ports) {
        if (candidate.vsan == port.vsan &&
            std::equal(std::begin(candidate.name.str) + 2, std::end(candidate.name.str),
                       std::begin(port.name.str) + 2)) {
            if (only) {
                return std::nullopt;
            }
            only = fcid;
        }
    }
    return only;
}

std::string to_text(const Port& port)
{
    return "VSAN " + std::to_string(port.vsan) + " port " + ipfc::to_text(port.name);
}

bool same_fcid(fcid_t a, fcid_t b)
{
    return a.num == b.num;
}

bool same_table(const PortTable& a, const PortTable& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.first == y.first && same_fcid(x.second, y.second);
    });
}

PortTable parse_port_table(const std::string& text, const std::string& file)
{
    PortTable ports;
    std::map<Port, size_t> lines;
    for_each_line(text, [&](size_t number, const Words& words) {
        Entry entry;
        try {
            entry = parse_entry(words);
        } catch (const std::invalid_argument& error) {
            throw MalformedText(file, number, error.what());
        }
        const auto [earlier, is_new] = lines.emplace(entry.first, number);
        if (!is_new) {
            throw MalformedText(file, number,
                                to_text(entry.first) + " stands on line " +
                                    std::to_string(earlier->second) + " already");
        }
        ports.insert(entry);
    });
    return ports;
}

LenientTable parse_known_lines(const std::string& text)
{
    LenientTable table;
    for_each_line(text, [&](size_t, const Words& words) {
        try {
            const Entry entry = parse_entry(words);
            table.ports.insert_or_assign(entry.first, entry.second);
        } catch (const std::invalid_argument&) {
            ++table.skipped_lines;
        }
    });
    return table;
}

} // namespace resolverd
