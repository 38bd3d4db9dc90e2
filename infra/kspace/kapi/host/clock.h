// SPDX-License-Identifier: GPL-2.0-only
// The tick counter stands still unless a test moves it; timers fire when it passes them.
#pragma once

#include <cstddef>

namespace twin {

// Where the counter begins: five minutes before its lower half wraps, as in a kernel.
inline constexpr unsigned long first_jiffies = 0xFFFEDB08ul;

// Moves the clock and fires what has expired, in softirq context, in the order of expiry.
void advance(unsigned long ticks);

std::size_t pending_timers();

void reset_clock();

} // namespace twin
