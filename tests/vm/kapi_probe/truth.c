// SPDX-License-Identifier: GPL-2.0-only
#include "truth.h"

#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/preempt.h>
#include <linux/skbuff.h>
#include <linux/uaccess.h>

// Names that some kernels do not have yet.
#ifndef IFF_TX_SKB_SHARING
#define IFF_TX_SKB_SHARING 0
#endif
#ifndef TASK_SIZE_MAX
#define TASK_SIZE_MAX TASK_SIZE64
#endif

int truth_hold;
int truth_fail;
module_param_named(hold, truth_hold, int, 0644);
MODULE_PARM_DESC(hold, "start-up waits until this is 0 again");
module_param_named(fail, truth_fail, int, 0444);
MODULE_PARM_DESC(fail, "fail at the end of start-up and leave everything registered");
MODULE_DESCRIPTION("Exercises the seam on a real kernel");
MODULE_LICENSE("GPL");

void truth_of_skb(const struct sk_buff* skb, struct truth_skb* truth)
{
    truth->len = skb->len;
    truth->data_len = skb->data_len;
    truth->headroom = skb_headroom(skb);
    truth->tailroom = skb_tailroom(skb);
    truth->end = skb_end_pointer(skb) - skb->head;
    truth->mac_offset = skb_mac_header(skb) - skb->head;
    truth->pkt_type = skb->pkt_type;
    truth->protocol = skb->protocol;
    truth->head = skb->head;
    truth->data = skb->data;
    truth->dev = skb->dev;
    truth->ip_summed = skb->ip_summed;
    truth->cloned = skb->cloned;
    truth->nohdr = skb->nohdr;
}

void truth_set_pkt_type(struct sk_buff* skb, unsigned int type)
{
    skb->pkt_type = type;
}

void truth_of_netdev(const struct net_device* dev, struct truth_netdev* truth)
{
    memcpy(truth->name, dev->name, sizeof(truth->name));
    truth->mtu = dev->mtu;
    truth->flags = dev->flags;
    truth->type = dev->type;
    truth->hard_header_len = dev->hard_header_len;
    truth->addr_len = dev->addr_len;
    truth->registered = dev->reg_state == NETREG_REGISTERED;
    truth->tx_sharing = (dev->priv_flags & IFF_TX_SKB_SHARING) != 0;
    memcpy(truth->broadcast, dev->broadcast, sizeof(truth->broadcast));
    memcpy(truth->dev_addr, dev->dev_addr, 32);
    truth->size = (unsigned long)netdev_priv(dev) - (unsigned long)dev;
}

static atomic_t frees;

static void count_free(struct sk_buff* skb)
{
    atomic_inc(&frees);
}

void truth_build_header(struct net_device* dev, unsigned short type, struct truth_header* truth)
{
    static const unsigned char address[32] = {0x20};
    struct sk_buff* skb = alloc_skb(256, GFP_KERNEL);
    unsigned int before;

    truth->result = -1;
    if (!skb)
        return;
    skb_reserve(skb, 128);
    skb_put(skb, 40);
    skb->destructor = count_free;
    atomic_set(&frees, 0);
    before = skb->len;
    truth->result = dev_hard_header(skb, dev, type, address, NULL, skb->len);
    truth->freed_by_driver = atomic_read(&frees);
    truth->pushed = truth->freed_by_driver ? 0 : skb->len - before;
    if (!truth->freed_by_driver)
        kfree_skb(skb);
    truth->freed = atomic_read(&frees);
}

unsigned int truth_softirq_count(void)
{
    return softirq_count();
}

unsigned int truth_preempt_count(void)
{
    return preempt_count();
}

int truth_irqs_off(void)
{
    return irqs_disabled();
}

unsigned long truth_user_end(void)
{
    return TASK_SIZE_MAX;
}
