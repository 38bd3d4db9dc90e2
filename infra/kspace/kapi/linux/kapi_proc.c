// SPDX-License-Identifier: GPL-2.0-only
// The tree of entries under /proc: a record of the glue's for each entry of the kernel's. What the
// driver holds is the record, or the kernel's entry itself where that has a read_proc.
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/stat.h>

#include "kapi/linux/kapi_glue.h"

static LIST_HEAD(entries);
static DEFINE_MUTEX(entries_lock);
static unsigned int unpublished;

// Held for changes of the list, in addition to entries_lock: a removal waits for readers, and these
// look for their record.
static DEFINE_SPINLOCK(list_lock);

struct kapi_pde* kapi_proc_entry_of(const struct file* filp)
{
#ifdef KAPI_HAVE_READ_PROC
    const struct proc_dir_entry* entry = PDE(file_inode(filp));
    struct kapi_pde* own;
    struct kapi_pde* found = NULL;

    spin_lock(&list_lock);
    list_for_each_entry(own, &entries, link)
    {
        if (own->entry == entry)
            found = own;
    }
    spin_unlock(&list_lock);
    return found;
#elif defined(KAPI_HAVE_PDE_DATA_LOWER_CASE)
    return pde_data(file_inode(filp));
#else
    return PDE_DATA(file_inode(filp));
#endif
}

#ifdef KAPI_HAVE_READ_PROC
static kapi_proc_handle_t* handle_of(struct kapi_pde* own)
{
    return own->entry;
}

// The data is the driver's.
static void* data_for_kernel(struct kapi_pde* own)
{
    return NULL;
}
#else
static kapi_proc_handle_t* handle_of(struct kapi_pde* own)
{
    return own;
}

static void* data_for_kernel(struct kapi_pde* own)
{
    return own;
}
#endif

static void enter(struct kapi_pde* own)
{
    spin_lock(&list_lock);
    list_add(&own->link, &entries);
    spin_unlock(&list_lock);
}

static void take_off(struct kapi_pde* own)
{
    spin_lock(&list_lock);
    list_del(&own->link);
    spin_unlock(&list_lock);
}

// Null when the handle is the kernel's own entry, or none. The newest first: the address of a
// directory that is gone may be another entry's by now.
static struct kapi_pde* ours(const void* handle)
{
    struct kapi_pde* own;

    list_for_each_entry(own, &entries, link)
    {
        if (own->handle == handle)
            return own;
    }
    return NULL;
}

static struct kapi_pde* look_up(const char* name, const struct proc_dir_entry* parent)
{
    struct kapi_pde* own;

    list_for_each_entry(own, &entries, link)
    {
        if (own->entry && own->parent == parent && !strcmp(own->name, name))
            return own;
    }
    return NULL;
}

// ---- making entries ----

static struct proc_dir_entry* real_parent(struct proc_dir_entry* parent)
{
    const struct kapi_pde* above = parent ? ours(parent) : NULL;

    return above ? above->entry : parent;
}

static struct kapi_pde* make_record(const char* name, struct proc_dir_entry* parent, bool directory)
{
    struct kapi_pde* own = kzalloc(sizeof(*own) + strlen(name) + 1, GFP_KERNEL);

    if (!own)
        return NULL;
    strcpy(own->name, name);
    own->parent = parent;
    own->directory = directory;
    own->ready = directory || (kapi_started && !kapi_command_running());
    return own;
}

static kapi_proc_handle_t* create(const char* name, umode_t mode, struct proc_dir_entry* parent,
                                  bool directory)
{
    struct kapi_pde* own = make_record(name, parent, directory);
    struct proc_dir_entry* above;

    if (!own)
        return NULL;
    mutex_lock(&entries_lock);
    above = real_parent(parent);
    if (look_up(name, parent) || (parent && !above))
        goto fail;
    if (directory)
        own->entry = proc_mkdir(name, above);
    else
        own->entry =
            proc_create_data(name, mode, above, &kapi_proc_operations, data_for_kernel(own));
    if (!own->entry)
        goto fail;
    own->handle = handle_of(own);
    enter(own);
    if (!own->ready)
        unpublished++;
    mutex_unlock(&entries_lock);
    return own->handle;

fail:
    mutex_unlock(&entries_lock);
    kfree(own);
    return NULL;
}

kapi_proc_handle_t* kapi_proc_mkdir(const char* name, struct proc_dir_entry* parent)
{
    return create(name, 0, parent, true);
}

kapi_proc_handle_t* kapi_create_proc_entry(const char* name, unsigned int mode,
                                           struct proc_dir_entry* parent)
{
    if (S_ISDIR(mode))
        return create(name, 0, parent, true);
    if (!(mode & S_IALLUGO))
        mode |= 0444;
    return create(name, S_IFREG | (mode & S_IALLUGO), parent, false);
}

void kapi_proc_set_size(kapi_proc_handle_t* entry, size_t (*size)(void* data))
{
    mutex_lock(&entries_lock);
    ours(entry)->size = size;
    mutex_unlock(&entries_lock);
}

void kapi_proc_set_poll(kapi_proc_handle_t* entry, wait_queue_head_t* queue,
                        unsigned long (*version)(void* data))
{
    struct kapi_pde* own;

    mutex_lock(&entries_lock);
    own = ours(entry);
    own->version = version;
    own->watchers = queue;
    mutex_unlock(&entries_lock);
}

// What has just been made is readable from now on.
void kapi_proc_publish(void)
{
    struct kapi_pde* own;

    mutex_lock(&entries_lock);
    if (unpublished) {
        list_for_each_entry(own, &entries, link) smp_store_release(&own->ready, true);
        unpublished = 0;
    }
    mutex_unlock(&entries_lock);
}

// ---- and taking them away ----

static void take_from_kernel(struct kapi_pde* own)
{
#ifdef KAPI_HAVE_PROC_REMOVE
    proc_remove(own->entry);
#else
    remove_proc_entry(own->name, real_parent(own->parent));
#endif
}

// A directory's record stays until the module goes, since the driver may still name it as a parent.
static void forget(struct kapi_pde* own)
{
    if (own->directory) {
        own->entry = NULL;
        return;
    }
    take_off(own);
    kfree(own);
}

static struct kapi_pde* child_of(const struct kapi_pde* directory)
{
    struct kapi_pde* own;

    list_for_each_entry(own, &entries, link)
    {
        if (own->entry && (const void*)own->parent == directory->handle)
            return own;
    }
    return NULL;
}

// Deepest first: not every kernel takes a directory away with all below it.
static void remove_tree(struct kapi_pde* top)
{
    struct kapi_pde* deepest;
    struct kapi_pde* below;
    bool last;

    do {
        deepest = top;
        while ((below = child_of(deepest)))
            deepest = below;
        last = deepest == top;
        take_from_kernel(deepest);
        forget(deepest);
    } while (!last);
}

// Only entries of this module are looked for.
void kapi_remove_proc_entry(const char* name, struct proc_dir_entry* parent)
{
    struct kapi_pde* own;

    mutex_lock(&entries_lock);
    own = look_up(name, parent);
    if (own)
        remove_tree(own);
    mutex_unlock(&entries_lock);
}

void kapi_proc_release(void)
{
    struct kapi_pde* own;
    struct kapi_pde* next;

    // Newest first: what lies below a directory is younger than it.
    list_for_each_entry_safe(own, next, &entries, link)
    {
        if (own->entry)
            take_from_kernel(own);
        take_off(own);
        kfree(own);
    }
}
