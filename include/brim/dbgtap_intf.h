/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The platform's debug library: a module registers its debug elements, numbered from
 * DBGTAP_FIRST_ELEMENT in the order of their descriptions; each has a history and a kernel-log
 * switch. Every call but the first two runs in any context.
 */
#pragma once

#include "types.h"

#define DBGTAP_FIRST_ELEMENT 100

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dbgtap_registration_* dbgtap_handle_t;

/* Process context. Null when out of memory; every call below takes that as "all elements off". */
dbgtap_handle_t dbgtap_dbg_init(const char* modname, const char* moddesc, int num_elements,
                                const char* const* descriptions);
void dbgtap_dbg_close(dbgtap_handle_t handle);

int dbgtap_is_hist_enabled_for_dbgelem(dbgtap_handle_t handle, int element);
void dbgtap_log_hist_for_dbgelem(dbgtap_handle_t handle, int element, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* Non-zero when the element's messages go to the kernel log. */
int dbgtap_chk_nofilter(dbgtap_handle_t handle, int element);
const char* dbgtap_getmodname(dbgtap_handle_t handle);

#ifdef __cplusplus
}
#endif
