// SPDX-License-Identifier: GPL-2.0-only
// The slab caches that exist, as a test sees them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace twin {

class Module;

struct SlabCache {
    std::string name;
    std::size_t size;
    std::size_t align;
    unsigned long flags;
    bool has_constructor;
    std::size_t objects; // live ones
};

std::vector<SlabCache> slab_caches();

// For modules: destroys what the module left.
void release_slab_caches(const Module* owner, bool left_is_fault);

// Forgets every cache; their objects are the heap's.
void reset_slab_caches();

} // namespace twin
