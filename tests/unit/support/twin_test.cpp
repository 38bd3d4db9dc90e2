// SPDX-License-Identifier: GPL-2.0-only
#include "support/twin_test.h"

void TwinTest::TearDown()
{
    tidy();
    for (const std::string& problem : twin::audit())
        ADD_FAILURE() << problem;
}

std::string only_fault()
{
    const std::vector<std::string> faults = twin::take_faults();
    EXPECT_EQ(faults.size(), 1u);
    for (std::size_t i = 1; i < faults.size(); ++i)
        ADD_FAILURE() << faults[i];
    return faults.empty() ? "" : faults.front();
}
