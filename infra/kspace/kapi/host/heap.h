// SPDX-License-Identifier: GPL-2.0-only
// Everything that a kernel allocates: numbered, counted by kind, and refused when a test says so.
// Blocks have their exact size, so that AddressSanitizer sees the first byte outside.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace twin {

enum class Kind {
    kmalloc,
    vmalloc,
    cache,        // kmem_cache_create
    object,       // kmem_cache_alloc
    skb,          // alloc_skb, skb_clone, skb_copy, skb_copy_expand: one number each
    skb_data,     // the bytes of a buffer; numbered alone only where they are replaced
    netdev,       // alloc_etherdev_mq
    registration, // register_netdevice
    proc,         // proc_mkdir, create_proc_entry
    chrdev,       // register_chrdev
    platform,     // what the tests' platform allocates for the module
};

class Heap {
public:
    // Refusal: attempt n since the last restart is refused, or every attempt from n on. Attempts
    // count from 1.
    void fail_nth(unsigned n);
    void fail_from(unsigned n);
    // Only attempts of this kind count and fail.
    void fail_nth(Kind kind, unsigned n);
    void fail_from(Kind kind, unsigned n);
    void never_fail();
    unsigned attempts() const; // since the last of the calls above
    unsigned refused() const;  // likewise

    std::size_t live() const;
    std::size_t live(Kind kind) const;
    std::vector<std::string> live_texts() const;

    // GFP_KERNEL asked for where sleeping is forbidden, and served from the atomic pools.
    std::vector<std::string> served_atomically() const;

    // For the twin itself. attempt: true when this allocation must fail. what: a lasting text.
    bool attempt(Kind kind, const char* what);
    void* take(Kind kind, std::size_t size, const char* what, bool zeroed = false);
    // The block is counted but not attempted: part of another allocation.
    void* take_silently(Kind kind, std::size_t size, const char* what, bool zeroed = false);
    bool is_live(Kind kind, const void* block) const;
    std::size_t size_of(const void* block) const;
    // A fault, and nothing freed, when block is not a live one of that kind.
    bool give_back(Kind kind, const void* block, const char* function);
    void check_flags(unsigned flags, const char* function);
    void reset();
};

Heap& heap();

// While one exists, this thread's allocations neither count nor fail: for what a test sets up.
class UnnumberedAllocations {
public:
    UnnumberedAllocations();
    ~UnnumberedAllocations();
    UnnumberedAllocations(const UnnumberedAllocations&) = delete;
};

} // namespace twin
