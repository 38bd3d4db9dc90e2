// SPDX-License-Identifier: GPL-2.0-only
// The parts of the platform module, in the order in which they start; they stop in reverse order.
#pragma once

#include "link.h"

// Each start returns 0 or a negative error and leaves nothing behind on failure. Process context.
int dbgtap_start();
void dbgtap_stop();
int mip_start();
void mip_stop();
int fc2_proc_start(fc2_stack* stack);
void fc2_proc_stop();

// The whole module, over the given link.
int brim_platform_start(brim_link* link);
void brim_platform_stop();

extern "C" {
// The directory "brim_sw" under /proc, into proc_brim_sw.
int brim_proc_start();
void brim_proc_stop();

// Frames reach the stack from now on, and none any more once the second call has returned.
int brim_link_attach(brim_link* link, fc2_stack* stack);
void brim_link_detach(brim_link* link);

// The one link of a module: the Ethernet device that its parameter names.
brim_link* brim_module_link();
}
