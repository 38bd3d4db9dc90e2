// SPDX-License-Identifier: GPL-2.0-only
// kmalloc and its kin, and the slab caches.
#include "context.h"
#include "fault.h"
#include "heap.h"
#include "journal.h"
#include "module.h"
#include "records.h"
#include "slab_caches.h"

#include "kapi/slab.h"

#include <cstring>
#include <mutex>
#include <set>
#include <unordered_map>

using namespace twin;

struct kmem_cache {
    std::string name;
    std::size_t size;
    std::size_t align;
    unsigned long flags;
    void (*ctor)(void*);
    std::set<const void*> objects;
    const Module* owner;
};

namespace {

// kmalloc's largest block on x86.
constexpr std::size_t kmalloc_max = 4u << 20;

std::mutex mutex;
// With the block by which the heap counts the cache.
std::unordered_map<const kmem_cache*, void*> caches;

bool is_cache(const kmem_cache* cache, const char* function)
{
    RecordGuard guard(mutex);
    if (caches.count(cache) != 0)
        return true;
    fault(strf("%s with a cache that does not exist (destroyed?)", function));
    return false;
}

} // namespace

kmem_cache* kmem_cache_create(const char* name, std::size_t size, std::size_t align,
                              unsigned long flags, void (*ctor)(void*))
{
    might_sleep("kmem_cache_create");
    if (heap().attempt(Kind::cache, "kmem_cache_create")) {
        journal().add(Source::slab, strf("kmem_cache_create %s failed", name));
        return nullptr;
    }
    journal().add(Source::slab, strf("kmem_cache_create %s", name));
    auto* const cache = new kmem_cache{name, size, align, flags, ctor, {}, Module::starting()};
    void* const block = heap().take_silently(Kind::cache, 1, "kmem_cache");
    RecordGuard guard(mutex);
    for (const auto& entry : caches)
        if (entry.first->name == name)
            fault(strf("kmem_cache_create of %s, which exists", name));
    caches[cache] = block;
    return cache;
}

void kmem_cache_destroy(kmem_cache* cache)
{
    might_sleep("kmem_cache_destroy");
    if (!is_cache(cache, "kmem_cache_destroy"))
        return;
    journal().add(Source::slab, strf("kmem_cache_destroy %s", cache->name.c_str()));
    RecordGuard guard(mutex);
    // Objects of a cache that is gone stay counted: the test ends with a leak.
    if (!cache->objects.empty())
        fault(strf("kmem_cache_destroy of %s with %zu objects", cache->name.c_str(),
                   cache->objects.size()));
    heap().give_back(Kind::cache, caches[cache], "kmem_cache_destroy");
    caches.erase(cache);
    delete cache;
}

void* kmem_cache_alloc(kmem_cache* cache, gfp_t flags)
{
    if (!is_cache(cache, "kmem_cache_alloc"))
        return nullptr;
    heap().check_flags(flags, "kmem_cache_alloc");
    void* const object = heap().take(Kind::object, cache->size, "kmem_cache_alloc");
    if (object == nullptr)
        return nullptr;
    if (cache->ctor != nullptr)
        cache->ctor(object);
    RecordGuard guard(mutex);
    cache->objects.insert(object);
    return object;
}

void kmem_cache_free(kmem_cache* cache, void* object)
{
    if (!is_cache(cache, "kmem_cache_free"))
        return;
    {
        RecordGuard guard(mutex);
        if (cache->objects.erase(object) == 0) {
            fault(strf("kmem_cache_free of an object that %s does not hold (freed twice?)",
                       cache->name.c_str()));
            return;
        }
    }
    heap().give_back(Kind::object, object, "kmem_cache_free");
}

void* kmalloc(std::size_t size, gfp_t flags)
{
    heap().check_flags(flags, "kmalloc");
    return size > kmalloc_max ? nullptr : heap().take(Kind::kmalloc, size, "kmalloc");
}

void* kzalloc(std::size_t size, gfp_t flags)
{
    heap().check_flags(flags, "kzalloc");
    return size > kmalloc_max ? nullptr : heap().take(Kind::kmalloc, size, "kzalloc", true);
}

void kfree(const void* block)
{
    if (block != nullptr)
        heap().give_back(Kind::kmalloc, block, "kfree");
}

void* vmalloc(unsigned long size)
{
    might_sleep("vmalloc");
    return heap().take(Kind::vmalloc, size, "vmalloc");
}

void vfree(const void* block)
{
    might_sleep("vfree");
    if (block != nullptr)
        heap().give_back(Kind::vmalloc, block, "vfree");
}

namespace twin {

void release_slab_caches(const Module* owner, bool left_is_fault)
{
    RecordGuard guard(mutex);
    std::erase_if(caches, [&](const auto& entry) {
        const kmem_cache* const cache = entry.first;
        if (cache->owner != owner)
            return false;
        if (left_is_fault)
            fault("a module left the slab cache " + cache->name);
        for (const void* object : cache->objects)
            heap().give_back(Kind::object, object, "kmem_cache_destroy");
        heap().give_back(Kind::cache, entry.second, "kmem_cache_destroy");
        delete cache;
        return true;
    });
}

void reset_slab_caches()
{
    RecordGuard guard(mutex);
    for (const auto& entry : caches)
        delete entry.first;
    caches.clear();
}

std::vector<SlabCache> slab_caches()
{
    RecordGuard guard(mutex);
    std::vector<SlabCache> result;
    for (const auto& entry : caches) {
        const kmem_cache& cache = *entry.first;
        result.push_back({cache.name, cache.size, cache.align, cache.flags, cache.ctor != nullptr,
                          cache.objects.size()});
    }
    return result;
}

} // namespace twin
