// SPDX-License-Identifier: GPL-2.0-only
// Memory and text. The printers take the kernel's formats; nothing beyond C's is used.
#pragma once

#include "compiler.h"

extern "C" {
void* memcpy(void* to, const void* from, std::size_t length) noexcept;
void* memmove(void* to, const void* from, std::size_t length) noexcept;
void* memset(void* to, int byte, std::size_t length) noexcept;
int memcmp(const void* a, const void* b, std::size_t length) noexcept;
std::size_t strlen(const char* text) noexcept;
int strcmp(const char* a, const char* b) noexcept;

// Write at most size bytes, the final 0 included; return the length that the text would have.
int snprintf(char* to, std::size_t size, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
int vsnprintf(char* to, std::size_t size, const char* format, __builtin_va_list arguments) noexcept
    __attribute__((format(printf, 3, 0)));
}
