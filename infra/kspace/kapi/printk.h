// SPDX-License-Identifier: GPL-2.0-only
// The kernel log. A message begins with its level as text, "<3>" error to "<7>" debug.
#pragma once

#include "compiler.h"

extern "C" {
// Any context.
int printk(const char* format, ...) KAPI_GLUE(printk) __attribute__((format(printf, 1, 2)));
}
