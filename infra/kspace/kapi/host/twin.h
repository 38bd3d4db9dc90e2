// SPDX-License-Identifier: GPL-2.0-only
// The whole twin: everything that a test needs of the kernel in user space.
#pragma once

#include "chrdev.h"
#include "clock.h"
#include "context.h"
#include "fault.h"
#include "heap.h"
#include "journal.h"
#include "lockdep.h"
#include "log.h"
#include "module.h"
#include "netdev.h"
#include "procfs.h"
#include "skb.h"
#include "slab_caches.h"
#include "task.h"
#include "user_memory.h"

namespace twin {

// As after a boot: nothing allocated or registered, no fault, empty log and journal.
void reset();

// What is not as it was after reset, one line each; the faults of the test are taken along. Frees
// buffers that were delivered and not looked at first.
std::vector<std::string> audit();

} // namespace twin
