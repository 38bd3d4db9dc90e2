// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

namespace resolverd {

/// What the daemon has done since its start. Every request ends in exactly one of added,
/// not_found and unanswered, or is still waiting.
struct Counters {
    uint64_t requests = 0;      ///< read from the driver
    uint64_t added = 0;         ///< answered with an FCID
    uint64_t not_found = 0;     ///< answered with "not found", for whatever reason
    uint64_t unanswered = 0;    ///< lost with the driver, or refused by it
    uint64_t timed_out = 0;     ///< requests whose query took too long
    uint64_t failed = 0;        ///< requests whose query ended in an error
    uint64_t turned_away = 0;   ///< requests that found their query, or all queries, hanging
    uint64_t late = 0;          ///< query results that came after the time-out
    uint64_t no_packet = 0;     ///< answers for which the driver had no packet waiting
    uint64_t updates = 0;       ///< ports that moved
    uint64_t deletes = 0;       ///< ports that left
    uint64_t refusals = 0;      ///< commands that the driver refused
    uint64_t tables = 0;        ///< tables taken over from the name server
    uint64_t tables_failed = 0; ///< tables that could not be read or understood
    uint64_t connects = 0;      ///< times that the control device was opened

    /// "requests=1 added=1 ...", all on one line.
    [[nodiscard]] std::string text() const;
};

} // namespace resolverd
