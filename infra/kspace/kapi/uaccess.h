// SPDX-License-Identifier: GPL-2.0-only
// User memory. Process context.
#pragma once

#include "compiler.h"

inline constexpr int VERIFY_READ = 0;
inline constexpr int VERIFY_WRITE = 1;

extern "C" {
// Whether [address, address + size) lies in user space without wrapping; the pages may be absent.
bool access_ok(int type, const void* address, unsigned long size) KAPI_GLUE(access_ok);
// Return the number of bytes not copied.
unsigned long copy_to_user(void* to, const void* from, unsigned long length)
    KAPI_GLUE(copy_to_user);
unsigned long copy_from_user(void* to, const void* from, unsigned long length)
    KAPI_GLUE(copy_from_user);
}
