// SPDX-License-Identifier: GPL-2.0-only
// The fixture below every test: a fresh kernel before, and nothing left behind after.
#pragma once

#include "twin.h"

#include <gtest/gtest.h>

class TwinTest : public ::testing::Test {
protected:
    TwinTest() { twin::reset(); }
    ~TwinTest() override { twin::reset(); }

    // Fails the test for every leak, held lock, switched-off softirq and untaken fault. A derived
    // fixture that has to tidy up first overrides tidy.
    void TearDown() override;
    virtual void tidy() {}
};

// The one fault that was remembered, taken; fails the test unless there is exactly one.
std::string only_fault();
