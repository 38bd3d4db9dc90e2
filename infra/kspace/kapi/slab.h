// SPDX-License-Identifier: GPL-2.0-only
// Memory. GFP_ATOMIC never sleeps; GFP_KERNEL may, and is served from the atomic pools where
// sleeping is forbidden (a lock is held, interrupts are off).
#pragma once

#include "types.h"

inline constexpr gfp_t GFP_ATOMIC = KAPI_GFP_ATOMIC;
inline constexpr gfp_t GFP_KERNEL = KAPI_GFP_KERNEL;
// Align objects to cache lines.
inline constexpr unsigned long SLAB_HWCACHE_ALIGN = KAPI_SLAB_HWCACHE_ALIGN;

extern "C" {
struct kmem_cache;

// Process context. Null when out of memory.
kmem_cache* kmem_cache_create(const char* name, std::size_t size, std::size_t align,
                              unsigned long flags, void (*ctor)(void*))
    KAPI_GLUE(kmem_cache_create);
void kmem_cache_destroy(kmem_cache* cache) KAPI_GLUE(kmem_cache_destroy);
void* kmem_cache_alloc(kmem_cache* cache, gfp_t flags) KAPI_GLUE(kmem_cache_alloc);
void kmem_cache_free(kmem_cache* cache, void* object) KAPI_GLUE(kmem_cache_free);

void* kmalloc(std::size_t size, gfp_t flags) KAPI_GLUE(kmalloc);
void* kzalloc(std::size_t size, gfp_t flags) KAPI_GLUE(kzalloc);
void kfree(const void* block) KAPI_GLUE(kfree);
// Large tables; process context.
void* vmalloc(unsigned long size) KAPI_GLUE(vmalloc);
void vfree(const void* block) KAPI_GLUE(vfree);
}
