// SPDX-License-Identifier: GPL-2.0-only
// Text files under /proc with 2.6.27's read_proc protocol. A reader's offset of 2 GiB and more
// reads nothing.
#pragma once

#include "types.h"

struct file;
struct wait_queue_head_t;

// buffer holds a page. *start left null: the whole text was written from the buffer's beginning and
// the result is its length; otherwise *start points at the bytes that belong to off.
using read_proc_t = int(char* buffer, char** start, off_t off, int count, int* eof, void* data);
// buffer is user memory; the result is the number of bytes taken, or negative.
using write_proc_t = int(file* filp, const char* buffer, unsigned long count, void* data);

struct proc_dir_entry {
    union {
        KAPI_MEMBER(KAPI_PDE_READ_PROC, read_proc_t*, read_proc);
        KAPI_MEMBER(KAPI_PDE_WRITE_PROC, write_proc_t*, write_proc);
        KAPI_MEMBER(KAPI_PDE_DATA, void*, data);
        unsigned char kapi_size[KAPI_PDE_SIZE];
    };
};

extern "C" {
// Process context. parent null: /proc itself. Null when out of memory or the name is taken. mode 0:
// readable by everybody.
proc_dir_entry* proc_mkdir(const char* name, proc_dir_entry* parent) KAPI_GLUE(proc_mkdir);
proc_dir_entry* create_proc_entry(const char* name, mode_t mode, proc_dir_entry* parent)
    KAPI_GLUE(create_proc_entry);
// Silent when there is no such entry, or when a directory still holds entries. A report that is
// open stays safe to read.
void remove_proc_entry(const char* name, proc_dir_entry* parent) KAPI_GLUE(remove_proc_entry);

// Asked before each read of the entry: bytes that the whole text needs. A kernel whose buffer is
// one page whatever the text ignores it.
void kapi_proc_set_size(proc_dir_entry* entry, std::size_t (*size)(void* data));
// Makes the entry one to be polled: always readable, and urgent (POLLPRI) for an open file once
// version tells another number than at the file's last read from offset 0. Whoever changes what
// version tells wakes the queue. Any number of files; a call before the entry is given its data.
void kapi_proc_set_poll(proc_dir_entry* entry, wait_queue_head_t* queue,
                        unsigned long (*version)(void* data));
// Bytes that the read handler which was given buffer may write there.
std::size_t kapi_proc_room(const char* buffer);

// The platform's directory for switch modules.
extern proc_dir_entry* proc_brim_sw;
}
