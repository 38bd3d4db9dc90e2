// SPDX-License-Identifier: GPL-2.0-only
#include "heap.h"

#include "context.h"
#include "fault.h"
#include "records.h"
#include "sanitizers.h"

#include "kapi/slab.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <unordered_map>

namespace twin {
namespace {

constexpr const char* kind_names[] = {"kmalloc", "vmalloc",  "slab cache", "slab object",
                                      "skb",     "skb data", "net device", "registration",
                                      "proc",    "chrdev",   "platform"};

struct Block {
    Kind kind;
    std::size_t size;
    unsigned number;
    const char* what;
};

struct Freed {
    unsigned char* bytes;
    std::size_t size;
    const char* what;
};

// Without a sanitizer: bytes behind a block that nobody may change, and freed blocks kept for a
// while with a pattern that nobody may change either.
constexpr std::size_t guard_size = TWIN_ASAN ? 0 : 32;
constexpr std::size_t quarantine_blocks = TWIN_ASAN ? 0 : 512;
constexpr unsigned char guard_byte = 0xBB;
constexpr unsigned char free_byte = 0x6B;
constexpr unsigned char fresh_byte = 0x5A;

std::mutex mutex;
std::unordered_map<const void*, Block> blocks;
std::deque<Freed> quarantine;
std::vector<std::string> atomically;
unsigned number;
unsigned attempt_count;
unsigned refused_count;
unsigned fail_first; // 0: never
unsigned fail_last;
bool fail_one_kind;
Kind fail_kind;
thread_local int unnumbered;

bool all_bytes(const unsigned char* bytes, std::size_t size, unsigned char value)
{
    for (std::size_t i = 0; i < size; ++i)
        if (bytes[i] != value)
            return false;
    return true;
}

void release_oldest()
{
    const Freed oldest = quarantine.front();
    quarantine.pop_front();
    if (!all_bytes(oldest.bytes, oldest.size, free_byte))
        fault(strf("%s of %zu bytes written after it was freed", oldest.what, oldest.size));
    std::free(oldest.bytes);
}

// Attempts count from 1 again.
void arm(unsigned first, unsigned last, bool one_kind, Kind kind)
{
    RecordGuard guard(mutex);
    attempt_count = 0;
    refused_count = 0;
    fail_first = first;
    fail_last = last;
    fail_one_kind = one_kind;
    fail_kind = kind;
}

} // namespace

Heap& heap()
{
    static Heap one;
    return one;
}

UnnumberedAllocations::UnnumberedAllocations()
{
    ++unnumbered;
}

UnnumberedAllocations::~UnnumberedAllocations()
{
    --unnumbered;
}

void Heap::fail_nth(unsigned n)
{
    arm(n, n, false, Kind::kmalloc);
}

void Heap::fail_from(unsigned n)
{
    arm(n, ~0u, false, Kind::kmalloc);
}

void Heap::fail_nth(Kind kind, unsigned n)
{
    arm(n, n, true, kind);
}

void Heap::fail_from(Kind kind, unsigned n)
{
    arm(n, ~0u, true, kind);
}

void Heap::never_fail()
{
    arm(0, 0, false, Kind::kmalloc);
}

unsigned Heap::attempts() const
{
    RecordGuard guard(mutex);
    return attempt_count;
}

unsigned Heap::refused() const
{
    RecordGuard guard(mutex);
    return refused_count;
}

std::size_t Heap::live() const
{
    RecordGuard guard(mutex);
    return blocks.size();
}

std::size_t Heap::live(Kind kind) const
{
    RecordGuard guard(mutex);
    std::size_t count = 0;
    for (const auto& entry : blocks)
        count += entry.second.kind == kind ? 1 : 0;
    return count;
}

std::vector<std::string> Heap::live_texts() const
{
    RecordGuard guard(mutex);
    std::vector<std::string> result;
    result.reserve(blocks.size());
    for (const auto& [address, block] : blocks)
        result.push_back(strf("%s \"%s\", %zu bytes, allocation %u",
                              kind_names[static_cast<int>(block.kind)], block.what, block.size,
                              block.number));
    return result;
}

std::vector<std::string> Heap::served_atomically() const
{
    RecordGuard guard(mutex);
    return atomically;
}

bool Heap::attempt(Kind kind, const char*)
{
    if (unnumbered > 0)
        return false;
    RecordGuard guard(mutex);
    ++number;
    if (fail_one_kind && kind != fail_kind)
        return false;
    ++attempt_count;
    const bool fails = fail_first != 0 && attempt_count >= fail_first && attempt_count <= fail_last;
    refused_count += fails ? 1 : 0;
    return fails;
}

void* Heap::take(Kind kind, std::size_t size, const char* what, bool zeroed)
{
    return attempt(kind, what) ? nullptr : take_silently(kind, size, what, zeroed);
}

void* Heap::take_silently(Kind kind, std::size_t size, const char* what, bool zeroed)
{
    auto* const bytes = static_cast<unsigned char*>(std::malloc(size + guard_size));
    if (bytes == nullptr)
        die(strf("the test machine is out of memory (%zu bytes for %s)", size, what));
    std::memset(bytes, zeroed ? 0 : fresh_byte, size);
    std::fill_n(bytes + size, guard_size, guard_byte);
    RecordGuard guard(mutex);
    blocks[bytes] = {kind, size, number, what};
    return bytes;
}

bool Heap::is_live(Kind kind, const void* block) const
{
    RecordGuard guard(mutex);
    const auto found = blocks.find(block);
    return found != blocks.end() && found->second.kind == kind;
}

std::size_t Heap::size_of(const void* block) const
{
    RecordGuard guard(mutex);
    const auto found = blocks.find(block);
    return found == blocks.end() ? 0 : found->second.size;
}

// A free counts as a write of all the bytes, for whoever looks for races.
bool Heap::give_back(Kind kind, const void* block, const char* function)
{
    auto* const bytes = static_cast<unsigned char*>(const_cast<void*>(block));
    Block freed;
    {
        RecordGuard guard(mutex);
        const auto found = blocks.find(block);
        if (found == blocks.end() || found->second.kind != kind) {
            fault(strf("%s of %p, which is not allocated as %s (freed twice?)", function, block,
                       kind_names[static_cast<int>(kind)]));
            return false;
        }
        freed = found->second;
        blocks.erase(found);
        if (!all_bytes(bytes + freed.size, guard_size, guard_byte))
            fault(strf("bytes behind %s of %zu bytes were written", freed.what, freed.size));
    }
    // With AddressSanitizer the block really goes: its own quarantine knows both call stacks.
    if (quarantine_blocks == 0) {
        std::free(bytes);
        return true;
    }
    std::memset(bytes, free_byte, freed.size);
    RecordGuard guard(mutex);
    quarantine.push_back({bytes, freed.size, freed.what});
    while (quarantine.size() > quarantine_blocks)
        release_oldest();
    return true;
}

void Heap::check_flags(unsigned flags, const char* function)
{
    if (flags != GFP_ATOMIC && flags != GFP_KERNEL)
        fault(strf("%s with unknown allocation flags 0x%x", function, flags));
    // No fault: the glue serves such a request without sleeping, as the interface promises.
    if (flags == GFP_KERNEL && in_atomic()) {
        RecordGuard guard(mutex);
        atomically.push_back(strf("%s (%s)", function, context_text().c_str()));
    }
}

void Heap::reset()
{
    never_fail();
    RecordGuard guard(mutex);
    while (!quarantine.empty())
        release_oldest();
    // What a failed test leaked must not show up in the next one.
    for (const auto& entry : blocks)
        std::free(const_cast<void*>(entry.first));
    blocks.clear();
    atomically.clear();
    number = 0;
}

} // namespace twin
