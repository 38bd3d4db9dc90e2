// SPDX-License-Identifier: GPL-2.0-only
// Last object of a module: the end of the table that kapi_begin.c begins.
#include "kapi/linux/kapi_static_init.h"

struct kapi_static_init kapi_static_end[0] __attribute__((section("kapi_static_init")));
