// SPDX-License-Identifier: GPL-2.0-only
#include "support/out_of_memory.h"

#include "support/twin_test.h"

namespace {

constexpr unsigned too_many = 5000;

// True when an allocation was refused, so that a later one is to be tried.
bool run_once(const std::function<void()>& scenario, unsigned n, bool for_ever)
{
    SCOPED_TRACE(twin::strf("allocation %u fails%s", n, for_ever ? ", and all after it" : ""));
    if (for_ever)
        twin::heap().fail_from(n);
    else
        twin::heap().fail_nth(n);
    try {
        scenario();
    } catch (const std::exception& error) {
        ADD_FAILURE() << "the scenario died: " << error.what();
        twin::abandon_locks();
    }
    const bool refused = twin::heap().refused() != 0;
    twin::heap().never_fail();
    for (const std::string& problem : twin::audit())
        ADD_FAILURE() << problem;
    return refused;
}

} // namespace

OutOfMemoryRuns survive_out_of_memory(const std::function<void()>& scenario)
{
    OutOfMemoryRuns total{0, 0};
    for (const bool for_ever : {false, true}) {
        for (unsigned n = 1;; ++n) {
            ++total.runs;
            if (!run_once(scenario, n, for_ever))
                break;
            total.allocations += for_ever ? 0 : 1;
            if (::testing::Test::HasFailure() || n == too_many) {
                ADD_FAILURE() << "given up at allocation " << n;
                return total;
            }
        }
    }
    return total;
}
