// SPDX-License-Identifier: GPL-2.0-only
// Behind a buffer: its holders, and the storage that clones share.
#pragma once

#include "skb.h"

#include <atomic>
#include <cstddef>

namespace twin {

struct SkbFragment {
    std::shared_ptr<const Bytes> page;
    unsigned offset;
    unsigned size;
};

struct SkbData {
    unsigned char* bytes; // of exactly the buffer's end
    std::atomic<int> holders{1};
    std::vector<SkbFragment> fragments;
};

struct SkbState {
    sk_buff skb; // first: the driver's pointer is this record's
    std::atomic<int> holders{1};
    SkbData* data = nullptr;
};
static_assert(offsetof(SkbState, skb) == 0);

SkbState* state_of(const sk_buff* skb, const char* function);

// The record alone, or with storage of size bytes; not numbered.
SkbState* new_skb();
SkbState* new_skb(unsigned size);
SkbData* new_skb_data(unsigned size);
void put_skb_data(SkbData* data);

} // namespace twin
