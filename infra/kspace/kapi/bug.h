// SPDX-License-Identifier: GPL-2.0-only
// Fatal assertion: in a kernel a BUG report, on the host an exception that a test sees.
#pragma once

#include "compiler.h"

extern "C" {
void kapi_bug(const char* file, int line);
}

// The trap is never reached; it ends the path for the compiler and for objtool alike.
#define BUG() (kapi_bug(__FILE__, __LINE__), __builtin_trap())
