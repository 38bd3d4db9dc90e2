// SPDX-License-Identifier: GPL-2.0-only
// Network devices whose callbacks live in the device; where the kernel has moved them out, on top
// of net_device_ops.
#include <linux/etherdevice.h>
#include <linux/if_arp.h>
#include <linux/mutex.h>
#include <linux/percpu.h>
#include <linux/rtnetlink.h>

#include "kapi/linux/kapi_glue.h"
#ifdef KAPI_HAVE_HEADER_REBUILD
#include <net/arp.h>
#endif

// Every device that the module allocated. The driver never frees one, and packets and late readers
// may still know a deleted one: all of them are freed when the module goes.
static LIST_HEAD(netdevs);
static DEFINE_MUTEX(netdevs_lock);

// The buffer that this processor builds a header for, bottom halves being off meanwhile.
static DEFINE_PER_CPU(struct sk_buff*, being_built);

bool kapi_skb_being_built(const struct sk_buff* skb)
{
    return skb && in_softirq() && this_cpu_read(being_built) == skb;
}

// The stack frees the buffer when this fails, and packet sockets take a positive result for the
// number of bytes in front of the payload.
static int create_header(struct sk_buff* skb, struct net_device* dev, unsigned short type,
                         const void* daddr, const void* saddr, unsigned int len)
{
    unsigned int before = skb->len;
    struct sk_buff* outer;
    int result;

    kapi_bh_disable();
    outer = this_cpu_read(being_built);
    this_cpu_write(being_built, skb);
    result = kapi_netdev(dev)->header_ops->create(skb, dev, type, daddr, saddr, len);
    this_cpu_write(being_built, outer);
    kapi_bh_enable();
    return result < 0 ? result : (int)(skb->len - before);
}

#ifdef KAPI_HAVE_NET_DEVICE_OPS
static const struct header_ops glue_header_ops = {
    .create = create_header,
};

// The lock checker complains of a hardware type that it knows no lock class for, and the driver's
// is such a one. So registration begins with none, and the true one is back before anybody can see
// the device: the kernel calls this between the two. Packets leave through another device, inside
// this one's transmit lock, so its locks are of classes of their own.
static int init_device(struct net_device* dev)
{
    dev->type = kapi_netdev(dev)->type;
#ifdef netdev_lockdep_set_classes
    netdev_lockdep_set_classes(dev);
#endif
    return 0;
}

static int open_device(struct net_device* dev)
{
    return kapi_netdev(dev)->open ? kapi_netdev(dev)->open(dev) : 0;
}

static int stop_device(struct net_device* dev)
{
    return kapi_netdev(dev)->stop ? kapi_netdev(dev)->stop(dev) : 0;
}

#ifdef KAPI_HAVE_NETDEV_TX_T
static netdev_tx_t start_xmit(struct sk_buff* skb, struct net_device* dev)
{
    return (netdev_tx_t)kapi_netdev(dev)->hard_start_xmit(skb, dev);
}
#else
static int start_xmit(struct sk_buff* skb, struct net_device* dev)
{
    return kapi_netdev(dev)->hard_start_xmit(skb, dev);
}
#endif

static int change_mtu(struct net_device* dev, int mtu)
{
    if (kapi_netdev(dev)->change_mtu)
        return kapi_netdev(dev)->change_mtu(dev, mtu);
    dev->mtu = mtu;
    return 0;
}

static struct net_device_stats* get_stats(struct net_device* dev)
{
    return kapi_netdev(dev)->get_stats ? kapi_netdev(dev)->get_stats(dev) : &dev->stats;
}

static const struct net_device_ops glue_netdev_ops = {
    .ndo_init = init_device,
    .ndo_open = open_device,
    .ndo_stop = stop_device,
    .ndo_start_xmit = start_xmit,
    .ndo_change_mtu = change_mtu,
    .ndo_get_stats = get_stats,
};

// As an Ethernet device of old: what later kernels have added to the set-up and decide on their own
// is taken back. Transmit writes into its buffers, and the driver alone knows its MTU limits.
static void set_up(struct net_device* dev)
{
    ether_setup(dev);
#ifdef KAPI_HAVE_TX_SKB_SHARING
    dev->priv_flags &= ~IFF_TX_SKB_SHARING;
#endif
#ifdef KAPI_HAVE_MIN_HEADER_LEN
    dev->min_header_len = 0;
#endif
#ifdef KAPI_HAVE_MIN_MTU
    dev->min_mtu = 0;
    dev->max_mtu = 0;
#endif
    dev->header_ops = &glue_header_ops;
    dev->netdev_ops = &glue_netdev_ops;
}

static struct net_device* allocate(size_t size, unsigned int queues)
{
    struct net_device* dev;

#ifdef KAPI_HAVE_NET_NAME_UNKNOWN
    dev = alloc_netdev_mqs(size, "eth%d", NET_NAME_UNKNOWN, set_up, queues, queues);
#else
    dev = alloc_netdev_mqs(size, "eth%d", set_up, queues, queues);
#endif
    if (dev)
        kapi_netdev(dev)->priv = kapi_netdev(dev) + 1;
    return dev;
}

int kapi_register_netdevice(struct net_device* dev)
{
    struct kapi_netdev* own = kapi_netdev(dev);
    int result;

    if (!own->header_ops)
        dev->header_ops = NULL;
    own->type = dev->type;
    dev->type = ARPHRD_NONE;
    result = register_netdevice(dev);
    dev->type = own->type;
    return result;
}
#else
// What an Ethernet device brings for its address is meant for 6 bytes: a port name that begins with
// 21:00 would pass for a multicast address, and the interface could not be opened.
static struct net_device* allocate(size_t size, unsigned int queues)
{
    struct net_device* dev = alloc_etherdev_mq(size, queues);

    if (dev) {
        dev->validate_addr = NULL;
        dev->set_mac_address = NULL;
        dev->priv = kapi_netdev(dev) + 1;
    }
    return dev;
}

int kapi_register_netdevice(struct net_device* dev)
{
    struct kapi_netdev* own = kapi_netdev(dev);

    own->header_ops = dev->header_ops;
    if (own->header_ops) {
        own->with_our_create = *own->header_ops;
        own->with_our_create.create = create_header;
        dev->header_ops = &own->with_our_create;
    }
    return register_netdevice(dev);
}
#endif

struct net_device* kapi_alloc_etherdev_mq(int priv_size, unsigned int queues)
{
    struct net_device* dev = allocate(sizeof(struct kapi_netdev) + priv_size, queues);
    struct kapi_netdev* own;

    if (!dev)
        return NULL;
    own = kapi_netdev(dev);
    own->dev = dev;
    mutex_lock(&netdevs_lock);
    list_add_tail(&own->link, &netdevs);
    mutex_unlock(&netdevs_lock);
    return dev;
}

void kapi_unregister_netdevice(struct net_device* dev)
{
    if (dev->reg_state == NETREG_REGISTERED)
        unregister_netdevice(dev);
}

// The kernel's check of a device's address at open compares two copies.
void kapi_dev_addr_mod(struct net_device* dev, unsigned int offset, const void* address,
                       size_t length)
{
    bool registered = dev->reg_state == NETREG_REGISTERED;

    if (registered)
        rtnl_lock();
#ifdef KAPI_HAVE_DEV_ADDR_MOD
    dev_addr_mod(dev, offset, address, length);
#else
    memcpy(dev->dev_addr + offset, address, length);
#endif
    if (registered)
        rtnl_unlock();
}

#ifdef KAPI_HAVE_HEADER_REBUILD
int kapi_arp_find(unsigned char* to, struct sk_buff* skb)
{
    return arp_find(to, skb);
}
#else
// Nobody asks for a header to be rebuilt any more; the kernel's function is gone as well.
int kapi_arp_find(unsigned char* to, struct sk_buff* skb)
{
    return 0;
}
#endif

void kapi_netdev_release(void)
{
    struct kapi_netdev* own;
    struct kapi_netdev* next;

    rtnl_lock();
    list_for_each_entry(own, &netdevs, link) kapi_unregister_netdevice(own->dev);
    rtnl_unlock();

    list_for_each_entry_safe(own, next, &netdevs, link)
    {
        list_del(&own->link);
        free_netdev(own->dev);
    }
}
