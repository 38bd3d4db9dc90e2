// SPDX-License-Identifier: GPL-2.0-only
// A scenario without memory, in every way: its first allocation fails, then its second, ... once,
// and from there on for ever.
#pragma once

#include <functional>

struct OutOfMemoryRuns {
    unsigned runs;        // how often the scenario ran
    unsigned allocations; // how many different ones failed
};

// The scenario sets up and takes down all that it needs, with calls that may fail; it must not
// assert results that memory decides. After each run nothing may be leaked, held or faulted.
OutOfMemoryRuns survive_out_of_memory(const std::function<void()>& scenario);
