// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/driver.h"
#include "ipfcctl/output.h"

#include "brim/ipfc_intf.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace ipfcctl {

/// What passed a second; none when it is not known.
using Rate = std::optional<double>;

/// None when the counter went back, as it does when it is cleared between the two readings.
Rate rate_between(uint64_t before, uint64_t now, std::chrono::duration<double> time);

struct Watch {
    std::optional<vsan_id_t> vsan; ///< all interfaces unless given
    ipfc::Counters counters = ipfc::Counters::since_clear;
    std::optional<uint64_t> count; ///< tables to draw; no end unless given
};

/// Draws a table of rates a second until SIGINT, SIGTERM, or the count.
void watch_rates(const Watch& watch, Driver& driver, Output& output);

} // namespace ipfcctl
