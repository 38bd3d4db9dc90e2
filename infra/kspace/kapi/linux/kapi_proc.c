// SPDX-License-Identifier: GPL-2.0-only
// read_proc entries on top of today's file operations under /proc.
//
// The kernel counts the calls into an entry and waits for them when it is removed, so neither the
// record below nor the module goes away under a reader. A report that is still open afterwards
// reads an error.
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/poll.h>
#include <linux/stat.h>
#include <linux/vmalloc.h>

#include "kapi/linux/kapi_glue.h"

// What a handler is told to produce at a time, as ever.
#define CHUNK (PAGE_SIZE - 1024)

// Reports are read below 2 GiB.
#define LAST_OFFSET ((1UL << 31) - 1)

// A report's buffer: the text ends where the mapping ends, so that nothing is silently written past
// it, and the number of its bytes lies in front.
#define IN_FRONT sizeof(size_t)

static LIST_HEAD(entries);
static DEFINE_MUTEX(entries_lock);
static unsigned int unpublished;

static struct kapi_pde* entry_of(const struct file* filp)
{
#ifdef KAPI_HAVE_PDE_DATA_LOWER_CASE
    return pde_data(file_inode(filp));
#else
    return PDE_DATA(file_inode(filp));
#endif
}

static void* allocate_buffer(const struct kapi_pde* own, char** text)
{
    size_t size = own->size ? own->size(own->data) : 0;
    size_t whole;
    char* block;

    size = ALIGN(max_t(size_t, size, PAGE_SIZE), IN_FRONT);
    whole = PAGE_ALIGN(size + IN_FRONT);
    block = vmalloc(whole);
    if (!block)
        return NULL;
    *text = block + whole - size;
    *(size_t*)(*text - IN_FRONT) = size;
    return block;
}

size_t kapi_proc_room(const char* buffer)
{
    return *(const size_t*)(buffer - IN_FRONT);
}

void kapi_proc_set_size(struct kapi_pde* entry, size_t (*size)(void* data))
{
    entry->size = size;
}

void kapi_proc_set_poll(struct kapi_pde* entry, wait_queue_head_t* queue,
                        unsigned long (*version)(void* data))
{
    entry->version = version;
    entry->watchers = queue;
}

// Where the bytes for the reader begin in the buffer, and how many they are. *step is what the
// reader's offset advances by: a handler may leave a number in *start that is no address.
static ssize_t window(const char* buffer, size_t size, char** start, loff_t offset, ssize_t length,
                      size_t count, size_t* step)
{
    unsigned long begin = (unsigned long)*start;
    unsigned long base = (unsigned long)buffer;

    if (!*start) {
        length = min_t(ssize_t, length, size) - offset;
        length = min_t(ssize_t, length, count);
        *start = (char*)buffer + offset;
        *step = max_t(ssize_t, length, 0);
    } else if (begin < base) {
        length = min_t(ssize_t, length, size);
        *start = (char*)buffer;
        *step = begin;
    } else {
        if (begin - base >= size)
            return 0;
        length = min_t(ssize_t, length, size - (begin - base));
        *step = length;
    }
    return length;
}

static ssize_t read_chunk(struct kapi_pde* own, char* buffer, char __user* to, size_t room,
                          loff_t* position, int* eof)
{
    size_t count = min_t(size_t, CHUNK, room);
    char* start = NULL;
    size_t step = 0;
    ssize_t length;

    length = own->read_proc(buffer, &start, *position, count, eof, own->data);
    if (length <= 0)
        return length;
    length = window(buffer, kapi_proc_room(buffer), &start, *position, length, count, &step);
    length = min_t(ssize_t, length, room);
    if (length <= 0)
        return 0;
    if (copy_to_user(to, start, length))
        return -EFAULT;
    *position += step;
    return length;
}

static ssize_t proc_read(struct file* filp, char __user* to, size_t room, loff_t* position)
{
    struct kapi_pde* own = entry_of(filp);
    ssize_t total = 0;
    ssize_t length = 0;
    char* buffer;
    void* block;
    int eof = 0;

    if (*position < 0 || *position > LAST_OFFSET)
        return 0;
    room = min_t(size_t, room, LAST_OFFSET - *position);
    if (!READ_ONCE(own->ready) || !own->read_proc)
        return 0;
    if (own->watchers && *position == 0)
        filp->private_data = (void*)own->version(own->data);
    block = allocate_buffer(own, &buffer);
    if (!block)
        return -ENOMEM;
    while (room > 0 && !eof) {
        length = read_chunk(own, buffer, to, room, position, &eof);
        if (length <= 0)
            break;
        total += length;
        to += length;
        room -= length;
    }
    vfree(block);
    return total ? total : length;
}

static ssize_t proc_write(struct file* filp, const char __user* from, size_t count,
                          loff_t* position)
{
    struct kapi_pde* own = entry_of(filp);

    if (!READ_ONCE(own->ready) || !own->write_proc)
        return -EIO;
    return own->write_proc(filp, from, count, own->data);
}

// A file keeps the version that it last began to read at.
static unsigned int proc_state(struct file* filp, struct kapi_pde* own,
                               struct poll_table_struct* table)
{
    unsigned int mask = POLLIN | POLLRDNORM;

    if (!READ_ONCE(own->ready) || !own->watchers)
        return mask;
    poll_wait(filp, own->watchers, table);
    if ((unsigned long)filp->private_data != own->version(own->data))
        mask |= POLLPRI | POLLERR;
    return mask;
}

#ifdef KAPI_HAVE_POLL_T
static __poll_t proc_poll(struct file* filp, struct poll_table_struct* table)
{
    return (__force __poll_t)proc_state(filp, entry_of(filp), table);
}
#else
static unsigned int proc_poll(struct file* filp, struct poll_table_struct* table)
{
    return proc_state(filp, entry_of(filp), table);
}
#endif

// Removing an entry does not take a sleeping poller out of the queue, so whoever may poll keeps the
// module, in whose memory the queue is.
static int proc_open(struct inode* inode, struct file* filp)
{
    const struct kapi_pde* own = entry_of(filp);

    filp->private_data = NULL;
    if (!smp_load_acquire(&own->ready))
        return -ENODEV;
    return !own->watchers || try_module_get(THIS_MODULE) ? 0 : -ENODEV;
}

static int proc_release(struct inode* inode, struct file* filp)
{
    const struct kapi_pde* own = entry_of(filp);

    if (own->watchers)
        module_put(THIS_MODULE);
    return 0;
}

#ifdef KAPI_HAVE_PROC_OPS
static const struct proc_ops glue_proc_ops = {
    .proc_open = proc_open,
    .proc_release = proc_release,
    .proc_poll = proc_poll,
    .proc_read = proc_read,
    .proc_write = proc_write,
    .proc_lseek = default_llseek,
};
#else
static const struct file_operations glue_proc_ops = {
    .owner = THIS_MODULE,
    .open = proc_open,
    .release = proc_release,
    .poll = proc_poll,
    .read = proc_read,
    .write = proc_write,
    .llseek = default_llseek,
};
#endif

// Null when the pointer is the kernel's own entry, or none.
static struct kapi_pde* ours(const struct proc_dir_entry* pointer)
{
    struct kapi_pde* own;

    list_for_each_entry(own, &entries, link)
    {
        if ((const void*)own == pointer)
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

static struct kapi_pde* create(const char* name, umode_t mode, struct proc_dir_entry* parent,
                               bool directory)
{
    struct kapi_pde* own = kzalloc(sizeof(*own) + strlen(name) + 1, GFP_KERNEL);
    struct proc_dir_entry* real_parent = parent;
    struct kapi_pde* above;

    if (!own)
        return NULL;
    strcpy(own->name, name);
    own->parent = parent;
    own->directory = directory;
    own->ready = directory || (kapi_started && !kapi_command_running());

    mutex_lock(&entries_lock);
    above = ours(parent);
    if (above)
        real_parent = above->entry;
    if (look_up(name, parent) || (above && !above->entry))
        goto fail;
    if (directory)
        own->entry = proc_mkdir(name, real_parent);
    else
        own->entry = proc_create_data(name, mode, real_parent, &glue_proc_ops, own);
    if (!own->entry)
        goto fail;
    list_add(&own->link, &entries);
    if (!own->ready)
        unpublished++;
    mutex_unlock(&entries_lock);
    return own;

fail:
    mutex_unlock(&entries_lock);
    kfree(own);
    return NULL;
}

struct kapi_pde* kapi_proc_mkdir(const char* name, struct proc_dir_entry* parent)
{
    return create(name, 0, parent, true);
}

struct kapi_pde* kapi_create_proc_entry(const char* name, unsigned int mode,
                                        struct proc_dir_entry* parent)
{
    if (S_ISDIR(mode))
        return create(name, 0, parent, true);
    if (!(mode & S_IALLUGO))
        mode |= 0444;
    return create(name, S_IFREG | (mode & S_IALLUGO), parent, false);
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

// A directory's record stays until the module goes, since the driver may still name it as a parent.
static void forget(struct kapi_pde* own)
{
    own->entry = NULL;
    if (own->directory)
        return;
    list_del(&own->link);
    kfree(own);
}

// Deepest first; each removal changes the list, so the walk begins anew.
static void forget_below(const struct kapi_pde* directory)
{
    struct kapi_pde* own;

again:
    list_for_each_entry(own, &entries, link)
    {
        if ((const void*)own->parent != directory || !own->entry)
            continue;
        if (own->directory)
            forget_below(own);
        forget(own);
        goto again;
    }
}

// Only entries of this module are looked for. The kernel takes a directory away with all below it.
void kapi_remove_proc_entry(const char* name, struct proc_dir_entry* parent)
{
    struct kapi_pde* own;

    mutex_lock(&entries_lock);
    own = look_up(name, parent);
    if (own) {
        proc_remove(own->entry);
        if (own->directory)
            forget_below(own);
        forget(own);
    }
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
            proc_remove(own->entry);
        list_del(&own->link);
        kfree(own);
    }
}
