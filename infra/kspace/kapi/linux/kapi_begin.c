// SPDX-License-Identifier: GPL-2.0-only
// First object of a module: the table of static initialisations begins here. A relocatable link
// gives its sections no begin and end symbols, but keeps the order of the objects.
#include "kapi/linux/kapi_static_init.h"

struct kapi_static_init kapi_static_begin[0] __attribute__((section("kapi_static_init")));
