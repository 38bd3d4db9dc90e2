// SPDX-License-Identifier: GPL-2.0-only
// The kernel's part of poll: where a poller is entered in wait queues.
#pragma once

#include <vector>

struct wait_queue_head_t;

// Filled in by poll_wait, acted on after the driver's poll has returned.
struct poll_table {
    std::vector<wait_queue_head_t*> queues;
};

namespace twin {

// A poller's stay in the queues of a table. It can be woken without being asleep.
class PollEntry {
public:
    PollEntry() = default;
    ~PollEntry();
    PollEntry(const PollEntry&) = delete;

    void enter(const poll_table& table);
    bool woken() const;

private:
    std::vector<wait_queue_head_t*> queues_;
};

} // namespace twin
