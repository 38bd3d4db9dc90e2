// SPDX-License-Identifier: GPL-2.0-only
// The debug library: per element a history, a switch for it, and a switch for the kernel log, as
// files brim_sw/dbgtap/MODULE/ELEMENT/{history,history_enabled,log_enabled} under /proc. Both
// switches are off at first.
#include "brim/dbgtap_intf.h"

#include "kapi/errno.h"
#include "kapi/slab.h"

#include "platform/fc2/fc2_guard.h"
#include "platform/platform.h"
#include "platform/proc_text.h"

namespace {

inline constexpr unsigned int HISTORY_SIZE = 64 * 1024;
inline constexpr unsigned int MESSAGE_MAX = 256; // what is longer is cut
inline constexpr unsigned int NAME_MAX_LEN = 32;

constinit proc_dir_entry* dbgtap_root = nullptr;

struct element {
    spinlock_t lock; // history, begin, used
    char name[NAME_MAX_LEN];
    int history_enabled; // both switches are read without a lock: a late message is no harm
    int log_enabled;
    char* history; // HISTORY_SIZE bytes in a ring, from the first time that it is switched on
    unsigned int begin;
    unsigned int used;
    proc_dir_entry* directory;
};

} // namespace

struct dbgtap_registration_ {
    char modname[NAME_MAX_LEN];
    proc_dir_entry* directory;
    int num_elements;
    element elements[];
};

namespace {

element* find(dbgtap_handle_t handle, int number)
{
    if (handle == nullptr || number < DBGTAP_FIRST_ELEMENT ||
        number - DBGTAP_FIRST_ELEMENT >= handle->num_elements)
        return nullptr;
    return &handle->elements[number - DBGTAP_FIRST_ELEMENT];
}

// ---- the history ----

char& at(const element* of, unsigned int offset) KAPI_REQUIRES(of->lock)
{
    return of->history[(of->begin + offset) % HISTORY_SIZE];
}

// The oldest message makes room, whole.
void drop_oldest(element* of) KAPI_REQUIRES(of->lock)
{
    unsigned int length = 0;
    while (length < of->used && at(of, length++) != '\n') {
    }
    of->begin = (of->begin + length) % HISTORY_SIZE;
    of->used -= length;
}

void append(element* to, const char* text, unsigned int length)
{
    irqsave_guard guard(to->lock);
    if (to->history == nullptr)
        return;
    while (to->used + length > HISTORY_SIZE)
        drop_oldest(to);
    for (unsigned int i = 0; i < length; i++)
        at(to, to->used + i) = text[i];
    to->used += length;
}

int switch_history(element* of, int on)
{
    char* fresh = nullptr;
    if (on != 0 && of->history == nullptr) {
        fresh = static_cast<char*>(vmalloc(HISTORY_SIZE));
        if (fresh == nullptr)
            return -ENOMEM;
    }
    {
        irqsave_guard guard(of->lock);
        if (of->history == nullptr) {
            of->history = fresh;
            fresh = nullptr;
        }
        of->history_enabled = on;
    }
    vfree(fresh); // another writer was faster
    return 0;
}

// ---- the files ----

// While messages come in, a reader that needs several calls may miss some or see one cut.
int read_history(char* buffer, char** start, off_t offset, int count, int* eof, void* data)
{
    auto* of = static_cast<element*>(data);
    proc_window window(buffer, offset, count);
    irqsave_guard guard(of->lock);
    const unsigned int end = of->begin + of->used;
    const unsigned int upper = end < HISTORY_SIZE ? end : HISTORY_SIZE;
    if (of->used != 0) {
        window.put(of->history + of->begin, upper - of->begin);
        window.put(of->history, end - upper);
    }
    return window.finish(start, eof);
}

// Whatever is written empties the history.
int clear_history(file*, const char*, unsigned long count, void* data)
{
    auto* of = static_cast<element*>(data);
    irqsave_guard guard(of->lock);
    of->used = 0;
    return static_cast<int>(count);
}

int read_flag(char* buffer, char** start, off_t offset, int count, int* eof, int flag)
{
    proc_window window(buffer, offset, count);
    window.print("%d\n", flag);
    return window.finish(start, eof);
}

int read_history_enabled(char* buffer, char** start, off_t offset, int count, int* eof, void* data)
{
    return read_flag(buffer, start, offset, count, eof,
                     static_cast<element*>(data)->history_enabled);
}

int read_log_enabled(char* buffer, char** start, off_t offset, int count, int* eof, void* data)
{
    return read_flag(buffer, start, offset, count, eof, static_cast<element*>(data)->log_enabled);
}

int write_history_enabled(file*, const char* user, unsigned long count, void* data)
{
    const int on = proc_take_switch(user, count);
    const int result = on < 0 ? on : switch_history(static_cast<element*>(data), on);
    return result < 0 ? result : static_cast<int>(count);
}

int write_log_enabled(file*, const char* user, unsigned long count, void* data)
{
    const int on = proc_take_switch(user, count);
    if (on < 0)
        return on;
    static_cast<element*>(data)->log_enabled = on;
    return static_cast<int>(count);
}

struct element_file {
    const char* name;
    read_proc_t* read;
    write_proc_t* write;
};

constinit const element_file FILES[] = {
    {"history", read_history, clear_history},
    {"history_enabled", read_history_enabled, write_history_enabled},
    {"log_enabled", read_log_enabled, write_log_enabled},
};

// An element without files works all the same; it just cannot be switched on.
void make_files(element* of, proc_dir_entry* parent)
{
    of->directory = proc_mkdir(of->name, parent);
    if (of->directory == nullptr)
        return;
    for (const element_file& file : FILES) {
        proc_dir_entry* entry = create_proc_entry(file.name, 0600, of->directory);
        if (entry == nullptr)
            continue;
        entry->data = of;
        entry->write_proc = file.write;
        entry->read_proc = file.read;
    }
}

void remove_files(element* of, proc_dir_entry* parent)
{
    if (of->directory == nullptr)
        return;
    for (const element_file& file : FILES)
        remove_proc_entry(file.name, of->directory);
    remove_proc_entry(of->name, parent);
}

void copy_name(char* to, const char* from)
{
    snprintf(to, NAME_MAX_LEN, "%s", from);
}

} // namespace

dbgtap_handle_t dbgtap_dbg_init(const char* modname, const char*, int num_elements,
                                const char* const* descriptions)
{
    const auto count = static_cast<std::size_t>(num_elements);
    auto* made = static_cast<dbgtap_registration_*>(
        kzalloc(sizeof(dbgtap_registration_) + count * sizeof(element), GFP_KERNEL));
    if (made == nullptr)
        return nullptr;
    copy_name(made->modname, modname);
    made->num_elements = num_elements;
    made->directory = proc_mkdir(made->modname, dbgtap_root);
    for (int i = 0; i < num_elements; i++) {
        element* of = &made->elements[i];
        spin_lock_init(&of->lock);
        copy_name(of->name, descriptions[i]);
        if (made->directory != nullptr)
            make_files(of, made->directory);
    }
    return made;
}

void dbgtap_dbg_close(dbgtap_handle_t handle)
{
    if (handle == nullptr)
        return;
    for (int i = 0; i < handle->num_elements; i++) {
        remove_files(&handle->elements[i], handle->directory);
        vfree(handle->elements[i].history);
    }
    if (handle->directory != nullptr)
        remove_proc_entry(handle->modname, dbgtap_root);
    kfree(handle);
}

int dbgtap_is_hist_enabled_for_dbgelem(dbgtap_handle_t handle, int number)
{
    const element* of = find(handle, number);
    return of != nullptr ? of->history_enabled : 0;
}

// A message without a line end gets one, so that each stays a line of its own.
void dbgtap_log_hist_for_dbgelem(dbgtap_handle_t handle, int number, const char* format, ...)
{
    element* of = find(handle, number);
    if (of == nullptr)
        return;
    char text[MESSAGE_MAX];
    __builtin_va_list arguments;
    __builtin_va_start(arguments, format);
    const int wanted = vsnprintf(text, sizeof text - 1, format, arguments);
    __builtin_va_end(arguments);
    if (wanted <= 0)
        return;
    auto length = static_cast<unsigned int>(wanted);
    if (length > sizeof text - 2)
        length = sizeof text - 2;
    if (text[length - 1] != '\n')
        text[length++] = '\n';
    append(of, text, length);
}

int dbgtap_chk_nofilter(dbgtap_handle_t handle, int number)
{
    const element* of = find(handle, number);
    return of != nullptr ? of->log_enabled : 0;
}

const char* dbgtap_getmodname(dbgtap_handle_t handle)
{
    return handle != nullptr ? handle->modname : "";
}

int dbgtap_start()
{
    dbgtap_root = proc_mkdir("dbgtap", proc_brim_sw);
    return dbgtap_root != nullptr ? 0 : -ENOMEM;
}

void dbgtap_stop()
{
    remove_proc_entry("dbgtap", proc_brim_sw);
    dbgtap_root = nullptr;
}
