// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/driver.h"

#include "libipfc/interface_report.h"
#include "libipfc/refusal.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

namespace ipfcctl {

/// What ask(vsan) answers for the one VSAN, or for each that has an interface. One that was deleted
/// since it was listed is left out.
template <typename Ask>
auto ask_each(Driver& driver, std::optional<vsan_id_t> vsan, Ask ask)
{
    std::vector<decltype(ask(vsan_id_t()))> answers;
    if (vsan) {
        answers.push_back(ask(*vsan));
        return answers;
    }
    for (const vsan_id_t each : ipfc::interface_vsans(driver.reports())) {
        try {
            answers.push_back(ask(each));
        } catch (const ipfc::DeviceError& error) {
            if (error.number() != ENXIO && error.number() != ENOENT) {
                throw;
            }
        }
    }
    return answers;
}

/// The interface's mapping of the name, compared in full; throws DeviceError when there is none.
inline const ipfc::Mapping& mapping_of(const ipfc::InterfaceReport& report, wwn_t port_name)
{
    const auto found = std::find_if(
        report.mappings.begin(), report.mappings.end(),
        [&](const ipfc::Mapping& mapping) { return mapping.port_name.num == port_name.num; });
    if (found == report.mappings.end()) {
        throw ipfc::DeviceError("no mapping for this port name", ENOENT);
    }
    return *found;
}

} // namespace ipfcctl
