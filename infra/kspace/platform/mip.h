// SPDX-License-Identifier: GPL-2.0-only
// The secondary-IP service's table, as its file and its lookups share it.
#pragma once

#include "brim/mip_intf.h"

// Process context. Tells the driver, then keeps or drops the address. 0, or negative: -EEXIST,
// -ENOENT as -EADDRNOTAVAIL, -ENODEV without a driver, -EBUSY while another change is under way,
// or the driver's own refusal.
int mip_add(const mip_mapping_t& mapping);
int mip_remove(const inet_addr_t& address, if_index_t ifindex);

// Calls visit(mapping, argument) for each address, oldest first, under the table's lock.
void mip_for_each(void (*visit)(const mip_mapping_t& mapping, void* argument), void* argument);

int mip_proc_start();
void mip_proc_stop();
