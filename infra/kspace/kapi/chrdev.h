// SPDX-License-Identifier: GPL-2.0-only
// Character devices, with 2.6.27's file operations.
#pragma once

#include "types.h"

inline constexpr unsigned int KAPI_O_NONBLOCK = 00004000;

struct inode;
struct poll_table;

struct file {
    union {
        KAPI_MEMBER(KAPI_FILE_F_FLAGS, unsigned int, f_flags);
        unsigned char kapi_size[KAPI_FILE_SIZE];
    };
};

struct file_operations {
    ssize_t (*read)(file* filp, char* buffer, std::size_t count, loff_t* position);
    ssize_t (*write)(file* filp, const char* buffer, std::size_t count, loff_t* position);
    unsigned int (*poll)(file* filp, poll_table* table);
    // No two commands, compatibility ones included, run at the same time.
    int (*ioctl)(inode* node, file* filp, unsigned int cmd, unsigned long arg);
    long (*compat_ioctl)(file* filp, unsigned int cmd, unsigned long arg);
    int (*open)(inode* node, file* filp);
    int (*release)(inode* node, file* filp);
};

extern "C" {
// Process context. major 0: the kernel chooses, and the number is the result; otherwise 0.
// Negative: an error. The operations are not called before the module's start-up has returned.
int register_chrdev(unsigned int major, const char* name, const file_operations* operations)
    KAPI_GLUE(register_chrdev);
void unregister_chrdev(unsigned int major, const char* name) KAPI_GLUE(unregister_chrdev);
inode* file_inode(const file* filp) KAPI_GLUE(file_inode);
}
