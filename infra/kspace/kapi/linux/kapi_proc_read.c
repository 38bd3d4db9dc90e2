// SPDX-License-Identifier: GPL-2.0-only
// Reading entries with the read_proc protocol, on file operations of the glue's own: the kernel's,
// where it has any, calls a handler with one page, which a report may outgrow.
//
// The kernel counts the calls into an entry and waits for them when it is removed, so neither the
// entry's record nor the module goes away under a reader. A report that is still open afterwards
// reads an error.
#include <linux/module.h>
#include <linux/poll.h>
#include <linux/vmalloc.h>

#include "kapi/linux/kapi_glue.h"

// What a handler is told to produce at a time, as ever.
#define CHUNK (PAGE_SIZE - 1024)

// Reports are read below 2 GiB.
#define LAST_OFFSET ((1UL << 31) - 1)

// A report's buffer: the text ends where the mapping ends, so that nothing is silently written past
// it, and the number of its bytes lies in front.
#define IN_FRONT sizeof(size_t)

// A record may be looked for before it is entered, and is not filled in yet then.
static bool in_use(const struct kapi_pde* own)
{
    return own && smp_load_acquire(&own->ready);
}

static void* allocate_buffer(const struct kapi_pde* own, char** text)
{
    size_t size = own->size ? own->size(own->handle->data) : 0;
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

static ssize_t read_chunk(const kapi_proc_handle_t* handler, char* buffer, char __user* to,
                          size_t room, loff_t* position, int* eof)
{
    size_t count = min_t(size_t, CHUNK, room);
    char* start = NULL;
    size_t step = 0;
    ssize_t length;

    length = handler->read_proc(buffer, &start, *position, count, eof, handler->data);
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
    struct kapi_pde* own = kapi_proc_entry_of(filp);
    const kapi_proc_handle_t* handler;
    ssize_t total = 0;
    ssize_t length = 0;
    char* buffer;
    void* block;
    int eof = 0;

    if (*position < 0 || *position > LAST_OFFSET)
        return 0;
    room = min_t(size_t, room, LAST_OFFSET - *position);
    if (!in_use(own))
        return 0;
    handler = own->handle;
    if (!handler->read_proc)
        return 0;
    if (own->watchers && *position == 0)
        filp->private_data = (void*)own->version(handler->data);
    block = allocate_buffer(own, &buffer);
    if (!block)
        return -ENOMEM;
    while (room > 0 && !eof) {
        length = read_chunk(handler, buffer, to, room, position, &eof);
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
    struct kapi_pde* own = kapi_proc_entry_of(filp);
    const kapi_proc_handle_t* handler;

    if (!in_use(own))
        return -EIO;
    handler = own->handle;
    return handler->write_proc ? handler->write_proc(filp, from, count, handler->data) : -EIO;
}

// A file keeps the version that it last began to read at.
static unsigned int proc_state(struct file* filp, struct kapi_pde* own,
                               struct poll_table_struct* table)
{
    unsigned int mask = POLLIN | POLLRDNORM;

    if (!in_use(own) || !own->watchers)
        return mask;
    poll_wait(filp, own->watchers, table);
    if ((unsigned long)filp->private_data != own->version(own->handle->data))
        mask |= POLLPRI | POLLERR;
    return mask;
}

#ifdef KAPI_HAVE_POLL_T
static __poll_t proc_poll(struct file* filp, struct poll_table_struct* table)
{
    return (__force __poll_t)proc_state(filp, kapi_proc_entry_of(filp), table);
}
#else
static unsigned int proc_poll(struct file* filp, struct poll_table_struct* table)
{
    return proc_state(filp, kapi_proc_entry_of(filp), table);
}
#endif

// Removing an entry does not take a sleeping poller out of the queue, so whoever may poll keeps the
// module, in whose memory the queue is.
static int proc_open(struct inode* inode, struct file* filp)
{
    const struct kapi_pde* own = kapi_proc_entry_of(filp);

    filp->private_data = NULL;
    if (!in_use(own))
        return -ENODEV;
    return !own->watchers || try_module_get(THIS_MODULE) ? 0 : -ENODEV;
}

static int proc_release(struct inode* inode, struct file* filp)
{
    const struct kapi_pde* own = kapi_proc_entry_of(filp);

    if (own && own->watchers)
        module_put(THIS_MODULE);
    return 0;
}

#ifdef KAPI_HAVE_PROC_OPS
const struct proc_ops kapi_proc_operations = {
    .proc_open = proc_open,
    .proc_release = proc_release,
    .proc_poll = proc_poll,
    .proc_read = proc_read,
    .proc_write = proc_write,
    .proc_lseek = default_llseek,
};
#else
const struct file_operations kapi_proc_operations = {
    .owner = THIS_MODULE,
    .open = proc_open,
    .release = proc_release,
    .poll = proc_poll,
    .read = proc_read,
    .write = proc_write,
    .llseek = default_llseek,
};
#endif
