// SPDX-License-Identifier: GPL-2.0-only
// Entries under /proc, in every form of the read_proc protocol.
#include "kapi/errno.h"
#include "kapi/string.h"
#include "probe.h"

namespace {

constinit proc_dir_entry* folder = nullptr;
constinit unsigned long written = 0;

// 16 bytes a line, its number in it.
constexpr int LINE = 16;
constexpr int LINES = 10000;
constexpr int LONG_LINES = 1000;

// The whole text, below a page.
int read_whole(char* buffer, char**, off_t, int, int*, void* data)
{
    return snprintf(buffer, kapi_proc_room(buffer), "whole %s %lu\n",
                    static_cast<const char*>(data), written);
}

// The whole text, beyond a page, for which room was asked.
int read_long(char* buffer, char**, off_t, int, int* eof, void*)
{
    if (kapi_proc_room(buffer) < LONG_LINES * LINE + 1)
        return -ENOSPC;
    for (int i = 0; i < LONG_LINES; i++)
        snprintf(buffer + i * LINE, LINE + 1, "%15d\n", i);
    *eof = 1;
    return LONG_LINES * LINE;
}

std::size_t long_size(void*)
{
    return LONG_LINES * LINE + 1;
}

// The part that is asked for, from the buffer's start.
int read_windows(char* buffer, char** start, off_t offset, int count, int* eof, void*)
{
    const long line = offset / LINE;
    long produced = 0;
    for (long i = line; i < LINES && produced < count + LINE; i++)
        produced += snprintf(buffer + produced, LINE + 1, "%15ld\n", i);
    if (line + produced / LINE >= LINES)
        *eof = 1;
    *start = buffer + offset % LINE;
    const long left = produced - offset % LINE;
    return left <= 0 ? 0 : static_cast<int>(left < count ? left : count);
}

// One line a call; the offset counts lines, which *start tells by not being an address.
int read_steps(char* buffer, char** start, off_t offset, int, int* eof, void*)
{
    if (offset >= 3) {
        *eof = 1;
        return 0;
    }
    *start = reinterpret_cast<char*>(1);
    return snprintf(buffer, kapi_proc_room(buffer), "step %ld\n", offset);
}

int write_number(file*, const char*, unsigned long count, void*)
{
    written += count;
    return static_cast<int>(count);
}

proc_dir_entry* make(const char* name, read_proc_t* read)
{
    proc_dir_entry* entry = create_proc_entry(name, 0, folder);
    if (entry != nullptr)
        entry->read_proc = read;
    return entry;
}

} // namespace

int probe_entries_create()
{
    static char data[] = "data";
    folder = proc_mkdir("kapi_probe", nullptr);
    PROBE_EXPECT(folder != nullptr);
    proc_dir_entry* whole = make("whole", read_whole);
    PROBE_EXPECT(whole != nullptr);
    whole->data = data;
    whole->write_proc = write_number;
    proc_dir_entry* long_one = make("long", read_long);
    PROBE_EXPECT(long_one != nullptr);
    kapi_proc_set_size(long_one, long_size);
    PROBE_EXPECT(make("windows", read_windows) != nullptr);
    PROBE_EXPECT(make("steps", read_steps) != nullptr);
    proc_dir_entry* doomed = make("doomed", read_whole);
    PROBE_EXPECT(doomed != nullptr);
    doomed->data = data;
    return 0;
}

int probe_entries()
{
    PROBE_EXPECT(create_proc_entry("whole", 0, folder) == nullptr);
    PROBE_EXPECT(proc_mkdir("whole", folder) == nullptr);
    remove_proc_entry("never was", folder);
    remove_proc_entry("never was", nullptr);

    // A folder goes with what is left in it; what names it afterwards does nothing.
    proc_dir_entry* below = proc_mkdir("below", folder);
    PROBE_EXPECT(below != nullptr);
    proc_dir_entry* deep = proc_mkdir("deep", below);
    PROBE_EXPECT(deep != nullptr);
    PROBE_EXPECT(create_proc_entry("left", 0, below) != nullptr);
    PROBE_EXPECT(create_proc_entry("left", 0, deep) != nullptr);
    remove_proc_entry("below", folder);
    remove_proc_entry("left", below);
    remove_proc_entry("left", deep);
    remove_proc_entry("deep", below);
    PROBE_EXPECT(create_proc_entry("late", 0, below) == nullptr);

    // The name is free again.
    PROBE_EXPECT(proc_mkdir("below", folder) != nullptr);
    remove_proc_entry("below", folder);
    return 0;
}

void probe_entries_remove_doomed()
{
    remove_proc_entry("doomed", folder);
}

// A name that ipfc.ko needs. The folder above it belongs to the platform's module.
int probe_squat(bool on)
{
    if (!on)
        remove_proc_entry("brim_sw/ipfc", nullptr);
    return !on || proc_mkdir("brim_sw/ipfc", nullptr) != nullptr ? 0 : -EEXIST;
}

// The entries below are left to the folder's removal.
void probe_entries_remove()
{
    remove_proc_entry("kapi_probe", nullptr);
}
