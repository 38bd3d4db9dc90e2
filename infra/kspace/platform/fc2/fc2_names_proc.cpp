// SPDX-License-Identifier: GPL-2.0-only
// brim_sw/name_server: the names as text, and waking those who follow them.
#include "platform/fc2/fc2_stack.h"

#include "kapi/wait.h"

#include "platform/platform.h"
#include "platform/proc_text.h"

namespace {

inline constexpr char FILE_NAME[] = "name_server";
inline constexpr std::size_t LINE_SIZE = 48; // of any line

DECLARE_WAIT_QUEUE_HEAD(watchers);

void print_name(proc_window* window, const fc2_name* name)
{
    const std::uint8_t* byte = name->portname.str;
    window->print("%d %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x 0x%06x\n", name->vsan, byte[0],
                  byte[1], byte[2], byte[3], byte[4], byte[5], byte[6], byte[7], name->fcid);
}

// In the order of the buckets, which only a change of the names changes: a reader in several calls
// that sees no change sees each name once.
int read_names(char* buffer, char** start, off_t offset, int count, int* eof, void* data)
{
    auto* stack = static_cast<fc2_stack*>(data);
    proc_window window(buffer, offset, count);
    irqsave_guard guard(stack->lock);
    for (list_head& bucket : stack->names.buckets)
        for (list_head* at = bucket.next; at != &bucket && !window.is_full(); at = at->next)
            print_name(&window, list_entry(at, fc2_name, bucket));
    return window.finish(start, eof);
}

std::size_t size_of_text(void* data)
{
    auto* stack = static_cast<fc2_stack*>(data);
    irqsave_guard guard(stack->lock);
    return stack->names.num * LINE_SIZE;
}

unsigned long version_of_text(void* data)
{
    auto* stack = static_cast<fc2_stack*>(data);
    irqsave_guard guard(stack->lock);
    return stack->names.version;
}

} // namespace

void fc2_names_changed()
{
    wake_up_interruptible(&watchers);
}

int fc2_names_proc_start(fc2_stack* stack)
{
    proc_dir_entry* entry = create_proc_entry(FILE_NAME, 0444, proc_brim_sw);
    if (entry == nullptr)
        return -ENOMEM;
    kapi_proc_set_size(entry, size_of_text);
    kapi_proc_set_poll(entry, &watchers, version_of_text);
    entry->data = stack;
    entry->read_proc = read_names;
    return 0;
}

void fc2_names_proc_stop()
{
    remove_proc_entry(FILE_NAME, proc_brim_sw);
}
