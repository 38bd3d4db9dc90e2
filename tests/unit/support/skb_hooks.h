// SPDX-License-Identifier: GPL-2.0-only
// Between the module and the kernel's buffer calls: what a kernel hardly ever does, and which
// copies the module made.
#pragma once

#include "skb.h"

// The next skb_push of this length gives no pointer and moves nothing.
void fail_push_of(unsigned length);

// The results of skb_copy since the last call, null ones included; some may be freed by now.
std::vector<sk_buff*> take_copies();
