// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/driver.h"

#include "libipfc/interface_report.h"
#include "libipfc/refusal.h"

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

} // namespace ipfcctl
