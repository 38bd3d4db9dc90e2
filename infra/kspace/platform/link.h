// SPDX-License-Identifier: GPL-2.0-only
// The link below the FC-2 stack: it carries whole Ethernet frames and knows nothing of what is in
// them. linux/ puts them on an Ethernet device, host/ on an in-process fabric.
#pragma once

#include "kapi/skbuff.h"

struct fc2_stack;
struct brim_link; // one attachment to an Ethernet segment

extern "C" {
// Sends the frame, which starts with the Ethernet header, and owns it from the call on. Any
// context, interrupts may be off; never sleeps. A frame that cannot leave is lost, as on a wire.
void brim_link_transmit(brim_link* link, sk_buff* frame);

// Largest payload behind the Ethernet header, in bytes. Any context.
unsigned int brim_link_mtu(const brim_link* link);

// Implemented by the stack: a frame has arrived, its data at the Ethernet header; the stack owns
// it. Softirq context. Every byte of it is untrusted.
void fc2_link_receive(fc2_stack* stack, sk_buff* frame);
}
