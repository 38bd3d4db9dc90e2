// SPDX-License-Identifier: GPL-2.0-only
// The link on a real kernel: frames leave and arrive through the Ethernet device that the module
// parameter "link" names. The device may come and go; without it, frames are lost as on a cable
// that is not plugged in. While it is attached it takes in every frame on its segment, because
// N_Ports have addresses of their own, and carries frames longer than Ethernet's usual 1500 bytes.
#include <linux/etherdevice.h>
#include <linux/if_arp.h>
#include <linux/if_ether.h>
#include <linux/if_vlan.h>
#include <linux/interrupt.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>
#include <linux/skbuff.h>
#include <net/dst.h>

#include "kapi/linux/kapi_compat_net.h"
#include "platform/linux/platform.h"

/* A frame with 2112 bytes of data and all headers, and the size that switches allow for it. */
#define LINK_MTU 2500
/* Frames that wait for interrupts to come on again. */
#define DEFERRED_MAX 1000

static char* link = "";
module_param(link, charp, 0444);
MODULE_PARM_DESC(link, "Name of the Ethernet device that leads to the fabric");

struct brim_link {
    struct packet_type packets;
    struct net_device __rcu* dev; /* changed under rtnl_lock */
    struct fc2_stack* stack;
    struct sk_buff_head deferred;
    struct tasklet_struct sender;
};

static struct brim_link module_link;

static void transmit(struct brim_link* to, struct sk_buff* frame)
{
    struct net_device* dev;

    rcu_read_lock();
    dev = rcu_dereference(to->dev);
    if (dev && netif_running(dev)) {
        frame->dev = dev;
        dev_queue_xmit(frame);
    } else {
        dev_kfree_skb_any(frame);
    }
    rcu_read_unlock();
}

static void send_deferred(unsigned long data)
{
    struct brim_link* to = (struct brim_link*)data;
    struct sk_buff* frame;

    while ((frame = skb_dequeue(&to->deferred)))
        transmit(to, frame);
}

// The buffer has come down from another device's transmit path and forgets it.
static void prepare(struct sk_buff* frame)
{
    skb_dst_drop(frame);
    frame->ip_summed = CHECKSUM_NONE;
    frame->protocol = htons(ETH_P_FCOE);
    skb_reset_mac_header(frame);
    skb_set_network_header(frame, ETH_HLEN);
}

// The network stack's transmit path must not be entered with interrupts off.
void brim_link_transmit(struct brim_link* to, struct sk_buff* frame)
{
    prepare(frame);
    if (!irqs_disabled() && skb_queue_empty(&to->deferred)) {
        transmit(to, frame);
        return;
    }
    if (skb_queue_len(&to->deferred) >= DEFERRED_MAX) {
        dev_kfree_skb_any(frame);
        return;
    }
    skb_queue_tail(&to->deferred, frame);
    tasklet_schedule(&to->sender);
}

unsigned int brim_link_mtu(const struct brim_link* of)
{
    const struct net_device* dev;
    unsigned int mtu;

    rcu_read_lock();
    dev = rcu_dereference(of->dev);
    mtu = dev ? READ_ONCE(dev->mtu) : LINK_MTU;
    rcu_read_unlock();
    return mtu;
}

static int receive(struct sk_buff* frame, struct net_device* dev, struct packet_type* type,
                   struct net_device* original)
{
    struct brim_link* from = container_of(type, struct brim_link, packets);

    frame = skb_share_check(frame, GFP_ATOMIC);
    if (!frame)
        return NET_RX_DROP;
    // A tag makes it another segment's.
    if (skb_vlan_tag_present(frame) || skb_mac_header_len(frame) != ETH_HLEN) {
        kfree_skb(frame);
        return NET_RX_DROP;
    }
    // What the device has computed is about its own frame and not about the packet in it.
    frame->ip_summed = CHECKSUM_NONE;
    skb_push(frame, ETH_HLEN);
    fc2_link_receive(from->stack, frame);
    return NET_RX_SUCCESS;
}

// ---- the device, under rtnl_lock ----

static void raise_mtu(struct net_device* dev)
{
    int result;

    if (dev->mtu >= LINK_MTU)
        return;
    result = dev_set_mtu(dev, LINK_MTU);
    if (result)
        pr_info("%s: %s keeps its MTU of %u (%d), frames are cut to fit\n", KBUILD_MODNAME,
                dev->name, dev->mtu, result);
}

static void attach(struct brim_link* to, struct net_device* dev)
{
    int result;

    if (rtnl_dereference(to->dev) || strcmp(dev->name, link) || !net_eq(dev_net(dev), &init_net))
        return;
    if (dev->type != ARPHRD_ETHER) {
        pr_info("%s: %s is no Ethernet device\n", KBUILD_MODNAME, dev->name);
        return;
    }
    result = dev_set_promiscuity(dev, 1);
    if (result) {
        pr_info("%s: %s does not take in all frames (%d)\n", KBUILD_MODNAME, dev->name, result);
        return;
    }
    raise_mtu(dev);
    dev_hold(dev);
    rcu_assign_pointer(to->dev, dev);
    to->packets.dev = dev;
    dev_add_pack(&to->packets);
}

static void detach(struct brim_link* from)
{
    struct net_device* dev = rtnl_dereference(from->dev);

    if (!dev)
        return;
    RCU_INIT_POINTER(from->dev, NULL);
    // Waits for receivers and transmitters on other processors.
    dev_remove_pack(&from->packets);
    dev_set_promiscuity(dev, -1);
    dev_put(dev);
}

static int device_event(struct notifier_block* block, unsigned long event, void* info)
{
    struct net_device* dev = netdev_notifier_info_to_dev(info);
    struct brim_link* our = &module_link;

    switch (event) {
    case NETDEV_REGISTER:
        attach(our, dev);
        break;
    case NETDEV_CHANGENAME:
        if (dev == rtnl_dereference(our->dev))
            detach(our);
        attach(our, dev);
        break;
    case NETDEV_UNREGISTER:
        if (dev == rtnl_dereference(our->dev))
            detach(our);
        break;
    }
    return NOTIFY_DONE;
}

static struct notifier_block notifier = {.notifier_call = device_event};

// ---- start and end ----

struct brim_link* brim_module_link(void)
{
    return &module_link;
}

// The notifier is told at once of every device that is there.
int brim_link_attach(struct brim_link* to, struct fc2_stack* stack)
{
    to->stack = stack;
    to->packets.type = htons(ETH_P_FCOE);
    to->packets.func = receive;
    skb_queue_head_init(&to->deferred);
    tasklet_init(&to->sender, send_deferred, (unsigned long)to);
    return register_netdevice_notifier(&notifier);
}

void brim_link_detach(struct brim_link* from)
{
    unregister_netdevice_notifier(&notifier);
    rtnl_lock();
    detach(from);
    rtnl_unlock();
    tasklet_kill(&from->sender);
    skb_queue_purge(&from->deferred);
}
