/* SPDX-License-Identifier: GPL-2.0-only */
/* The calls between the platform's C++ and its C, as link.h and platform.h declare them there. */
#pragma once

struct brim_link;
struct fc2_stack;
struct sk_buff;

int brim_proc_start(void);
void brim_proc_stop(void);

struct brim_link* brim_module_link(void);
int brim_link_attach(struct brim_link* to, struct fc2_stack* stack);
void brim_link_detach(struct brim_link* from);
void brim_link_transmit(struct brim_link* to, struct sk_buff* frame);
unsigned int brim_link_mtu(const struct brim_link* of);

void fc2_link_receive(struct fc2_stack* stack, struct sk_buff* frame);
