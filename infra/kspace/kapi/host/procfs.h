// SPDX-License-Identifier: GPL-2.0-only
// The proc tree, and reading a report in it as 2.6.27 does.
#pragma once

#include "user_memory.h"

#include "kapi/proc_fs.h"

#include <string>
#include <vector>

namespace twin {

class Module;

// Paths are relative to /proc: "brim_sw/ipfc/statistics".
proc_dir_entry* find_proc(const std::string& path);
bool proc_exists(const std::string& path);
std::vector<std::string> proc_children(const std::string& path); // in the order of creation
mode_t proc_mode(const std::string& path);

struct ProcRead {
    long result;      // the number of bytes, or negative
    std::string text; // the bytes
    loff_t position;  // of the next read
};

// A kernel that gives every report one page, however long its text: 2.6.27 does.
void set_one_page_reports(bool one_page);

// One read system call at position.
ProcRead proc_read_at(const std::string& path, loff_t position, std::size_t count);

// Reads to the end, count bytes a call. Throws when there is no such report.
std::string proc_read(const std::string& path, std::size_t count = 1024);

// The version of the text that a poller compares with what it has read.
unsigned long proc_version(const std::string& path);

// One write system call. text is put into user memory.
long proc_write(const std::string& path, const std::string& text);

struct HandlerResult {
    int result;
    std::string page; // the whole page
    long start;       // offset of *start in the page; no_start when it was left null
    int eof;
};
inline constexpr long no_start = -1l << 62;

// The handler alone, with a page that has an unmapped page behind it.
HandlerResult call_read_proc(proc_dir_entry* entry, off_t offset, int count);

// For modules: frees what was removed, and removes the rest that belongs to the module.
void release_proc_entries(const Module* owner, bool left_is_fault);
void reset_proc();

} // namespace twin
