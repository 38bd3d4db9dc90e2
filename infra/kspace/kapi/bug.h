// SPDX-License-Identifier: GPL-2.0-only
// Fatal assertion: in a kernel a BUG report, on the host an exception that a test sees.
#pragma once

#include "compiler.h"

extern "C" {
[[noreturn]] void kapi_bug(const char* file, int line);
}

#define BUG() kapi_bug(__FILE__, __LINE__)
