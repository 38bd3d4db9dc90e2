// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/counters.h"

#include <utility>

namespace resolverd {

std::string Counters::text() const
{
    const std::pair<const char*, uint64_t> all[] = {
        {"requests", requests},       {"added", added},
        {"not_found", not_found},     {"unanswered", unanswered},
        {"timed_out", timed_out},     {"failed", failed},
        {"turned_away", turned_away}, {"late", late},
        {"no_packet", no_packet},     {"updates", updates},
        {"deletes", deletes},         {"refusals", refusals},
        {"tables", tables},           {"tables_failed", tables_failed},
        {"connects", connects},
    };
    std::string line;
    for (const auto& [name, value] : all) {
        line += (line.empty() ? "" : " ") + std::string(name) + "=" + std::to_string(value);
    }
    return line;
}

} // namespace resolverd
