// SPDX-License-Identifier: GPL-2.0-only
// Socket buffers from a test's side: made from bytes, linear or paged, and read back as bytes.
#pragma once

#include "kapi/skbuff.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace twin {

using Bytes = std::vector<std::uint8_t>;

struct SkbLayout {
    unsigned headroom = 0;
    unsigned tailroom = 0;
    unsigned linear = ~0u; // bytes in front of paged data; the rest is paged
    unsigned page = 4096;  // bytes of one page of paged data
};

// Never fails and is not numbered as an allocation, but counts as live until freed.
sk_buff* make_skb(std::span<const std::uint8_t> bytes, const SkbLayout& layout = {});

// All bytes, paged ones included.
Bytes skb_bytes(const sk_buff* skb);

// One more holder of the same buffer.
void skb_get(sk_buff* skb);

bool skb_alive(const sk_buff* skb);

struct FreeSkb {
    void operator()(sk_buff* skb) const { kfree_skb(skb); }
};
using SkbPtr = std::unique_ptr<sk_buff, FreeSkb>;

// The adapter around header construction: while this exists, freeing the watched buffer on this
// thread is only noted, and the caller of header construction frees it for good.
class FreeWatch {
public:
    explicit FreeWatch(sk_buff* skb);
    ~FreeWatch();
    FreeWatch(const FreeWatch&) = delete;
    bool freed() const;
};

} // namespace twin
