// SPDX-License-Identifier: GPL-2.0-only
// The linker sends the module's calls here (--wrap).
#include "support/skb_hooks.h"

#include <utility>

namespace {

unsigned failing_length;
std::vector<sk_buff*> copies;

} // namespace

extern "C" {
void* __real_skb_push(sk_buff* skb, unsigned int length);
sk_buff* __real_skb_copy(const sk_buff* skb, gfp_t flags);

void* __wrap_skb_push(sk_buff* skb, unsigned int length)
{
    if (failing_length != 0 && failing_length == length) {
        failing_length = 0;
        return nullptr;
    }
    return __real_skb_push(skb, length);
}

sk_buff* __wrap_skb_copy(const sk_buff* skb, gfp_t flags)
{
    sk_buff* const copy = __real_skb_copy(skb, flags);
    copies.push_back(copy);
    return copy;
}
}

void fail_push_of(unsigned length)
{
    failing_length = length;
}

std::vector<sk_buff*> take_copies()
{
    return std::exchange(copies, {});
}
