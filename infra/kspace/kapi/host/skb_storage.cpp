// SPDX-License-Identifier: GPL-2.0-only
#include "skb_storage.h"

#include "fault.h"
#include "heap.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace twin {
namespace {

// One buffer a thread: header construction does not nest.
struct Watch {
    sk_buff* skb = nullptr;
    bool freed = false;
};

thread_local Watch watch;

void release(SkbState* state)
{
    put_skb_data(state->data);
    state->~SkbState();
    heap().give_back(Kind::skb, state, "kfree_skb");
}

void drop_holder(sk_buff* skb, const char* function)
{
    if (skb == nullptr)
        return;
    SkbState* const state = state_of(skb, function);
    if (state == nullptr)
        return;
    // Under header construction: the caller of it frees the buffer when the result is negative.
    if (skb == watch.skb) {
        if (watch.freed)
            fault(std::string(function) + " twice of the buffer under header construction");
        watch.freed = true;
        return;
    }
    if (state->holders.fetch_sub(1) == 1)
        release(state);
}

} // namespace

SkbState* state_of(const sk_buff* skb, const char* function)
{
    if (heap().is_live(Kind::skb, skb))
        return reinterpret_cast<SkbState*>(const_cast<sk_buff*>(skb));
    fault(strf("%s of %p, which is no live buffer (freed twice?)", function,
               static_cast<const void*>(skb)));
    return nullptr;
}

SkbData* new_skb_data(unsigned size)
{
    auto* const data = new SkbData;
    data->bytes =
        static_cast<unsigned char*>(heap().take_silently(Kind::skb_data, size, "buffer data"));
    return data;
}

SkbState* new_skb()
{
    void* const block = heap().take_silently(Kind::skb, sizeof(SkbState), "sk_buff", true);
    auto* const state = new (block) SkbState;
    std::memset(static_cast<void*>(&state->skb), 0, sizeof(state->skb));
    return state;
}

SkbState* new_skb(unsigned size)
{
    SkbState* const state = new_skb();
    state->data = new_skb_data(size);
    state->skb.head = state->data->bytes;
    state->skb.data = state->data->bytes;
    state->skb.end = size;
    return state;
}

void put_skb_data(SkbData* data)
{
    if (data->holders.fetch_sub(1) != 1)
        return;
    heap().give_back(Kind::skb_data, data->bytes, "kfree_skb");
    delete data;
}

sk_buff* make_skb(std::span<const std::uint8_t> bytes, const SkbLayout& layout)
{
    const auto length = static_cast<unsigned>(bytes.size());
    const unsigned linear = std::min(layout.linear, length);
    SkbState* const state = new_skb(layout.headroom + linear + layout.tailroom);
    sk_buff* const skb = &state->skb;
    skb->data += layout.headroom;
    skb->tail = layout.headroom + linear;
    skb->len = length;
    skb->data_len = length - linear;
    if (linear != 0)
        std::memcpy(skb->data, bytes.data(), linear);
    for (unsigned at = linear; at < length; at += layout.page) {
        const unsigned size = std::min(layout.page, length - at);
        auto page = std::make_shared<const Bytes>(bytes.begin() + at, bytes.begin() + at + size);
        state->data->fragments.push_back({std::move(page), 0, size});
    }
    return skb;
}

Bytes skb_bytes(const sk_buff* skb)
{
    Bytes bytes(skb->len);
    if (skb_copy_bits(skb, 0, bytes.data(), static_cast<int>(skb->len)) != 0)
        fault("a buffer's length is more than it holds");
    return bytes;
}

void skb_get(sk_buff* skb)
{
    if (SkbState* const state = state_of(skb, "skb_get"))
        ++state->holders;
}

bool skb_alive(const sk_buff* skb)
{
    return heap().is_live(Kind::skb, skb);
}

FreeWatch::FreeWatch(sk_buff* skb)
{
    watch = {skb, false};
}

FreeWatch::~FreeWatch()
{
    watch = {};
}

bool FreeWatch::freed() const
{
    return watch.freed;
}

} // namespace twin

void kfree_skb(sk_buff* skb)
{
    twin::drop_holder(skb, "kfree_skb");
}

void dev_kfree_skb_any(sk_buff* skb)
{
    twin::drop_holder(skb, "dev_kfree_skb_any");
}

bool skb_shared(const sk_buff* skb)
{
    const twin::SkbState* const state = twin::state_of(skb, "skb_shared");
    return state != nullptr && state->holders.load() != 1;
}

bool skb_cloned(const sk_buff* skb)
{
    const twin::SkbState* const state = twin::state_of(skb, "skb_cloned");
    return state != nullptr && state->data->holders.load() != 1;
}
