// SPDX-License-Identifier: GPL-2.0-only
// Memory. Slab caches are remembered, so that what a failed start-up leaves can be returned.
#include <linux/gfp.h>
#include <linux/irqflags.h>
#include <linux/mutex.h>
#include <linux/preempt.h>
#include <linux/vmalloc.h>

#include "kapi/linux/kapi_glue.h"

#ifdef __GFP_DIRECT_RECLAIM
#define KAPI_GFP_MAY_SLEEP __GFP_DIRECT_RECLAIM
#else
#define KAPI_GFP_MAY_SLEEP __GFP_WAIT
#endif

struct cache {
    struct list_head link;
    struct kmem_cache* cache;
};

static LIST_HEAD(caches);
static DEFINE_MUTEX(caches_lock);

// A driver asks for sleeping memory under a spin lock; there it is served like GFP_ATOMIC.
static gfp_t suitable(gfp_t flags)
{
    if ((flags & KAPI_GFP_MAY_SLEEP) && (irqs_disabled() || in_atomic()))
        flags = GFP_ATOMIC | (flags & __GFP_ZERO);
    return flags;
}

void* kapi_kmalloc(size_t size, gfp_t flags)
{
    return kmalloc(size, suitable(flags));
}

void* kapi_kzalloc(size_t size, gfp_t flags)
{
    return kzalloc(size, suitable(flags));
}

void kapi_kfree(const void* block)
{
    kfree(block);
}

void* kapi_vmalloc(unsigned long size)
{
    return vmalloc(size);
}

void kapi_vfree(const void* block)
{
    vfree(block);
}

struct kmem_cache* kapi_kmem_cache_create(const char* name, size_t size, size_t align,
                                          unsigned long flags, void (*ctor)(void*))
{
    struct cache* entry = kmalloc(sizeof(*entry), GFP_KERNEL);

    if (!entry)
        return NULL;
    entry->cache = kmem_cache_create(name, size, align, flags, ctor);
    if (!entry->cache) {
        kfree(entry);
        return NULL;
    }
    mutex_lock(&caches_lock);
    list_add(&entry->link, &caches);
    mutex_unlock(&caches_lock);
    return entry->cache;
}

void kapi_kmem_cache_destroy(struct kmem_cache* cache)
{
    struct cache* entry;
    struct cache* next;

    mutex_lock(&caches_lock);
    list_for_each_entry_safe(entry, next, &caches, link)
    {
        if (entry->cache == cache) {
            list_del(&entry->link);
            kmem_cache_destroy(cache);
            kfree(entry);
            break;
        }
    }
    mutex_unlock(&caches_lock);
}

void* kapi_kmem_cache_alloc(struct kmem_cache* cache, gfp_t flags)
{
    return kmem_cache_alloc(cache, suitable(flags));
}

void kapi_kmem_cache_free(struct kmem_cache* cache, void* object)
{
    kmem_cache_free(cache, object);
}

void kapi_caches_release(void)
{
    struct cache* entry;
    struct cache* next;

    mutex_lock(&caches_lock);
    list_for_each_entry_safe(entry, next, &caches, link)
    {
        list_del(&entry->link);
        kmem_cache_destroy(entry->cache);
        kfree(entry);
    }
    mutex_unlock(&caches_lock);
}
