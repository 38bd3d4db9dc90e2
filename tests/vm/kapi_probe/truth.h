/* SPDX-License-Identifier: GPL-2.0-only */
/* What the kernel itself says about the things that the probe sees through the seam. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

struct sk_buff;
struct net_device;

struct truth_skb {
    unsigned int len, data_len, headroom, tailroom, end, mac_offset, pkt_type, protocol;
    unsigned char* head;
    unsigned char* data;
    struct net_device* dev;
    unsigned int ip_summed, cloned, nohdr; /* bit-fields beside the packet type */
};
void truth_of_skb(const struct sk_buff* skb, struct truth_skb* truth);
void truth_set_pkt_type(struct sk_buff* skb, unsigned int type);

struct truth_netdev {
    char name[16];
    unsigned int mtu, flags, type, hard_header_len, addr_len, registered, tx_sharing;
    unsigned char broadcast[32], dev_addr[32];
    unsigned long size; /* up to what the kernel takes for the driver's area */
};
void truth_of_netdev(const struct net_device* dev, struct truth_netdev* truth);

/* Has a header built as the network stack does, whose error path frees the buffer. */
struct truth_header {
    int result;
    int freed_by_driver; /* before the stack's own free */
    int freed;           /* in the end */
    unsigned int pushed;
};
void truth_build_header(struct net_device* dev, unsigned short type, struct truth_header* truth);

unsigned int truth_softirq_count(void);
unsigned int truth_preempt_count(void);
int truth_irqs_off(void);
unsigned long truth_user_end(void);

/* Module parameters. */
extern int truth_hold;
extern int truth_fail;

#ifdef __cplusplus
}
#endif
