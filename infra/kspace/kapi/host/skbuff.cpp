// SPDX-License-Identifier: GPL-2.0-only
// The kernel's operations on buffers.
#include "fault.h"
#include "heap.h"
#include "skb_storage.h"

#include "kapi/slab.h"

#include <algorithm>
#include <cstring>

using namespace twin;

namespace {

// Room that the kernel adds when it has to replace a buffer's storage to make bytes linear.
constexpr int pull_slack = 128;

unsigned headroom_of(const sk_buff* skb)
{
    return static_cast<unsigned>(skb->data - skb->head);
}

[[noreturn]] void overrun(const char* function, const sk_buff* skb, unsigned length)
{
    die(strf("%s of %u: head %p data +%u tail +%u end +%u len %u", function, length,
             static_cast<const void*>(skb->head), headroom_of(skb), skb->tail, skb->end, skb->len));
}

void must_live(const char* function, const sk_buff* skb)
{
    if (state_of(skb, function) == nullptr)
        die(std::string(function) + " of no live buffer");
}

void must_be_linear(const char* function, const sk_buff* skb)
{
    if (skb->data_len != 0)
        die(std::string(function) + " of a buffer with paged data");
}

void copy_meta(sk_buff* to, const sk_buff* from)
{
    to->dev = from->dev;
    to->protocol = from->protocol;
    to->mac_header = from->mac_header;
    to->kapi_pkt_type_byte = from->kapi_pkt_type_byte;
}

// A private linear buffer with the bytes of skb, and as many of those in front as fit.
sk_buff* copy_out(const sk_buff* skb, unsigned headroom, unsigned tailroom)
{
    SkbState* const state = new_skb(headroom + skb->len + tailroom);
    sk_buff* const copy = &state->skb;
    copy->data += headroom;
    copy->len = skb->len;
    copy->tail = headroom + skb->len;
    copy_meta(copy, skb);
    copy->mac_header += static_cast<unsigned>(headroom - headroom_of(skb));
    const unsigned in_front = std::min(headroom, headroom_of(skb));
    std::memcpy(copy->data - in_front, skb->data - in_front, in_front);
    if (skb_copy_bits(skb, 0, copy->data, static_cast<int>(skb->len)) != 0)
        die("a buffer's length is more than it holds");
    return copy;
}

// Removes the first size bytes of the paged data.
void drop_paged(SkbData* data, unsigned size)
{
    auto& fragments = data->fragments;
    while (size > 0) {
        SkbFragment& first = fragments.front();
        const unsigned step = std::min(size, first.size);
        first.offset += step;
        first.size -= step;
        size -= step;
        if (first.size == 0)
            fragments.erase(fragments.begin());
    }
}

} // namespace

sk_buff* alloc_skb(unsigned int size, gfp_t flags)
{
    heap().check_flags(flags, "alloc_skb");
    return heap().attempt(Kind::skb, "alloc_skb") ? nullptr : &new_skb(size)->skb;
}

sk_buff* skb_clone(sk_buff* skb, gfp_t flags)
{
    heap().check_flags(flags, "skb_clone");
    SkbState* const from = state_of(skb, "skb_clone");
    if (from == nullptr || heap().attempt(Kind::skb, "skb_clone"))
        return nullptr;
    SkbState* const clone = new_skb();
    std::memcpy(static_cast<void*>(&clone->skb), skb, sizeof(*skb));
    clone->data = from->data;
    ++clone->data->holders;
    return &clone->skb;
}

sk_buff* skb_copy(const sk_buff* skb, gfp_t flags)
{
    heap().check_flags(flags, "skb_copy");
    if (state_of(skb, "skb_copy") == nullptr || heap().attempt(Kind::skb, "skb_copy"))
        return nullptr;
    return copy_out(skb, headroom_of(skb), skb->end - skb->tail);
}

sk_buff* skb_copy_expand(const sk_buff* skb, int headroom, int tailroom, gfp_t flags)
{
    heap().check_flags(flags, "skb_copy_expand");
    if (headroom < 0 || tailroom < 0)
        die("skb_copy_expand with negative room");
    if (state_of(skb, "skb_copy_expand") == nullptr || heap().attempt(Kind::skb, "skb_copy_expand"))
        return nullptr;
    return copy_out(skb, static_cast<unsigned>(headroom), static_cast<unsigned>(tailroom));
}

int pskb_expand_head(sk_buff* skb, int headroom, int tailroom, gfp_t flags)
{
    heap().check_flags(flags, "pskb_expand_head");
    SkbState* const state = state_of(skb, "pskb_expand_head");
    if (state == nullptr)
        return -12;
    if (headroom < 0 || tailroom < 0 || state->holders.load() != 1)
        die("pskb_expand_head with negative room or of a shared buffer");
    if (heap().attempt(Kind::skb_data, "pskb_expand_head"))
        return -12;
    const auto more = static_cast<unsigned>(headroom);
    const unsigned offset = headroom_of(skb);
    SkbData* const data = new_skb_data(skb->end + more + static_cast<unsigned>(tailroom));
    std::memcpy(data->bytes + more, skb->head, skb->tail);
    // Pages are shared with a clone; nobody writes them.
    data->fragments = state->data->fragments;
    put_skb_data(state->data);
    state->data = data;
    skb->head = data->bytes;
    skb->data = data->bytes + more + offset;
    skb->tail += more;
    skb->end += more + static_cast<unsigned>(tailroom);
    skb->mac_header += more;
    return 0;
}

bool pskb_may_pull(sk_buff* skb, unsigned int length)
{
    SkbState* const state = state_of(skb, "pskb_may_pull");
    if (state == nullptr || length > skb->len)
        return false;
    if (length <= skb_headlen(skb))
        return true;
    const unsigned delta = length - skb_headlen(skb);
    // The linear part is about to grow, which a clone must not see.
    if (state->data->holders.load() != 1 || skb->end - skb->tail < delta) {
        const int missing = static_cast<int>(delta) - static_cast<int>(skb->end - skb->tail);
        if (pskb_expand_head(skb, 0, std::max(missing, 0) + pull_slack, GFP_ATOMIC) != 0)
            return false;
    }
    const auto at = static_cast<int>(skb_headlen(skb));
    if (skb_copy_bits(skb, at, skb->head + skb->tail, static_cast<int>(delta)) != 0)
        die("a buffer's length is more than it holds");
    drop_paged(state->data, delta);
    skb->tail += delta;
    skb->data_len -= delta;
    return true;
}

int skb_copy_bits(const sk_buff* skb, int offset, void* to, int length)
{
    const SkbState* const state = state_of(skb, "skb_copy_bits");
    if (state == nullptr || offset < 0 || length < 0 ||
        static_cast<long>(offset) + length > static_cast<long>(skb->len))
        return -14;
    auto* out = static_cast<unsigned char*>(to);
    auto at = static_cast<unsigned>(offset);
    auto left = static_cast<unsigned>(length);
    const auto copy = [&](const unsigned char* bytes, unsigned size) {
        if (at >= size) {
            at -= size;
            return;
        }
        const unsigned step = std::min(size - at, left);
        if (step != 0)
            std::memcpy(out, bytes + at, step);
        out += step;
        left -= step;
        at = 0;
    };
    copy(skb->data, skb_headlen(skb));
    for (const SkbFragment& fragment : state->data->fragments)
        if (left != 0)
            copy(fragment.page->data() + fragment.offset, fragment.size);
    return left == 0 ? 0 : -14;
}

void* skb_push(sk_buff* skb, unsigned int length)
{
    must_live("skb_push", skb);
    if (length > headroom_of(skb))
        overrun("skb_push", skb, length);
    skb->data -= length;
    skb->len += length;
    return skb->data;
}

void* skb_pull(sk_buff* skb, unsigned int length)
{
    must_live("skb_pull", skb);
    if (length > skb->len)
        return nullptr;
    if (length > skb_headlen(skb))
        overrun("skb_pull into paged data", skb, length);
    skb->len -= length;
    skb->data += length;
    return skb->data;
}

// A length above 2^31 shortens the buffer: the kernel adds it to tail and len unsigned.
void* skb_put(sk_buff* skb, unsigned int length)
{
    must_live("skb_put", skb);
    must_be_linear("skb_put", skb);
    const unsigned tail = skb->tail + length;
    if (tail > skb->end || tail < headroom_of(skb))
        overrun("skb_put", skb, length);
    unsigned char* const old_tail = skb->head + skb->tail;
    skb->tail = tail;
    skb->len += length;
    return old_tail;
}

void skb_trim(sk_buff* skb, unsigned int length)
{
    must_live("skb_trim", skb);
    if (length >= skb->len)
        return;
    if (skb->data_len != 0) {
        fault("skb_trim of a buffer with paged data");
        return;
    }
    skb->len = length;
    skb->tail = headroom_of(skb) + length;
}

void skb_reserve(sk_buff* skb, int length)
{
    must_live("skb_reserve", skb);
    const long tail = static_cast<long>(skb->tail) + length;
    if (skb->len != 0 || tail < 0 || tail > static_cast<long>(skb->end))
        overrun("skb_reserve", skb, static_cast<unsigned>(length));
    skb->data += length;
    skb->tail = static_cast<unsigned>(tail);
}
