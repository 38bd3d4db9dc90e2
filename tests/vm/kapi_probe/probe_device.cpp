// SPDX-License-Identifier: GPL-2.0-only
// Buffers and devices: layouts against the kernel's own view, and header construction.
#include "kapi/errno.h"
#include "kapi/jiffies.h"
#include "kapi/string.h"
#include "probe.h"
#include "truth.h"

constinit bool probe_header_refused = false;

namespace {

probe_private* priv_of(const net_device* dev)
{
    return static_cast<probe_private*>(netdev_priv(dev));
}

int header(sk_buff* skb, net_device*, unsigned short type, const void*, const void*, unsigned int)
{
    if (probe_header_refused) {
        kfree_skb(skb);
        return -ENOMEM;
    }
    // An unknown type gets no header, and the claim is the same.
    if (type == ETH_P_ARP)
        return PROBE_CLAIMED;
    memset(skb_push(skb, PROBE_HEADER), 'H', PROBE_HEADER);
    return PROBE_CLAIMED;
}

constinit const struct header_ops operations = {
    .create = header,
    .parse = nullptr,
    .rebuild = nullptr,
    .cache = nullptr,
    .cache_update = nullptr,
};

bool all_bytes(const unsigned char* data, unsigned int length, unsigned char wanted)
{
    for (unsigned int i = 0; i < length; i++) {
        if (data[i] != wanted)
            return false;
    }
    return true;
}

int transmit(sk_buff* skb, net_device* dev)
{
    probe_private* priv = priv_of(dev);
    if (skb->data_len == 0 && skb->len > PROBE_HEADER && all_bytes(skb->data, PROBE_HEADER, 'H') &&
        all_bytes(skb->data + PROBE_HEADER, skb->len - PROBE_HEADER, 'P'))
        priv->good_packets++;
    priv->stats.tx_packets++;
    priv->stats.tx_bytes += skb->len;
    dev->trans_start = jiffies;
    kfree_skb(skb);
    return NETDEV_TX_OK;
}

net_device_stats* get_stats(net_device* dev)
{
    return &priv_of(dev)->stats;
}

int change_mtu(net_device* dev, int mtu)
{
    if (mtu >= 8 && mtu <= 65280)
        dev->mtu = static_cast<unsigned int>(mtu);
    return 0;
}

int nothing(net_device*)
{
    return 0;
}

net_device* allocate(const char* name)
{
    net_device* dev = alloc_etherdev_mq(sizeof(probe_private), 1);
    if (dev == nullptr)
        return nullptr;
    snprintf(dev->name, IFNAMSIZ, "%s", name);
    dev->get_stats = get_stats;
    dev->open = nothing;
    dev->stop = nothing;
    dev->header_ops = &operations;
    dev->hard_start_xmit = transmit;
    dev->change_mtu = change_mtu;
    dev->flags = IFF_BROADCAST;
    dev->mtu = 1500;
    dev->type = 18;
    dev->hard_header_len = 92;
    dev->addr_len = 12;
    memset(dev->broadcast, 0xBB, 12);
    const unsigned char address[12] = {0x21, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    dev_addr_mod(dev, 0, address, sizeof address);
    return dev;
}

int in_rtnl(int (*work)(net_device*), net_device* dev)
{
    rtnl_lock();
    const int result = work(dev);
    rtnl_unlock();
    return result;
}

int unregister(net_device* dev)
{
    unregister_netdevice(dev);
    return 0;
}

// The buffer's fields through the seam, against the kernel's.
int compare(const sk_buff* skb)
{
    truth_skb truth;
    truth_of_skb(skb, &truth);
    PROBE_EXPECT(skb->len == truth.len);
    PROBE_EXPECT(skb->data_len == truth.data_len);
    PROBE_EXPECT(skb_headroom(skb) == truth.headroom);
    PROBE_EXPECT(skb_tailroom(skb) == static_cast<int>(truth.tailroom));
    PROBE_EXPECT(skb->end == truth.end);
    PROBE_EXPECT(skb->mac_header == truth.mac_offset);
    PROBE_EXPECT(skb_pkt_type(skb) == truth.pkt_type);
    PROBE_EXPECT(skb->protocol == truth.protocol);
    PROBE_EXPECT(skb->head == truth.head);
    PROBE_EXPECT(skb->data == truth.data);
    PROBE_EXPECT(skb->dev == truth.dev);
    return 0;
}

int packet_types(sk_buff* skb)
{
    truth_skb before;
    truth_skb after;
    for (unsigned char type = 0; type < 8; type++) {
        truth_of_skb(skb, &before);
        skb_set_pkt_type(skb, type);
        truth_of_skb(skb, &after);
        PROBE_EXPECT(after.pkt_type == type);
        PROBE_EXPECT(after.ip_summed == before.ip_summed && after.cloned == before.cloned &&
                     after.nohdr == before.nohdr);
        truth_set_pkt_type(skb, 7u - type);
        PROBE_EXPECT(skb_pkt_type(skb) == 7 - type);
    }
    return 0;
}

} // namespace

net_device* probe_device_create(const char* name)
{
    net_device* dev = allocate(name);
    if (dev != nullptr && in_rtnl(register_netdevice, dev) != 0)
        return nullptr;
    return dev;
}

void probe_device_remove(net_device* dev)
{
    in_rtnl(unregister, dev);
}

int probe_buffer_layout()
{
    sk_buff* skb = alloc_skb(300, 0x20);
    PROBE_EXPECT(skb != nullptr);
    skb_reserve(skb, 33);
    skb_put(skb, 100);
    skb->protocol = cpu_to_be16(ETH_P_IP);
    skb_reset_mac_header(skb);
    skb_push(skb, 7);
    const int fields = compare(skb);
    const int types = packet_types(skb);
    // 12 bytes shorter, as the driver's own way of putting a negative length does it.
    skb_put(skb, static_cast<unsigned int>(-12));
    const bool shorter = skb->len == 95 && compare(skb) == 0;
    kfree_skb(skb);
    PROBE_EXPECT(fields == 0 && types == 0 && shorter);
    return 0;
}

int probe_device_layout(net_device* dev)
{
    truth_netdev truth;
    truth_of_netdev(dev, &truth);
    PROBE_EXPECT(strcmp(dev->name, "kprobe0") == 0 && strcmp(truth.name, "kprobe0") == 0);
    PROBE_EXPECT(dev->mtu == truth.mtu);
    PROBE_EXPECT(dev->flags == truth.flags);
    PROBE_EXPECT(dev->type == 18 && truth.type == 18);
    PROBE_EXPECT(dev->hard_header_len == 92 && truth.hard_header_len == 92);
    PROBE_EXPECT(dev->addr_len == 12 && truth.addr_len == 12);
    PROBE_EXPECT(memcmp(dev->broadcast, truth.broadcast, 32) == 0);
    PROBE_EXPECT(memcmp(dev->dev_addr, truth.dev_addr, 32) == 0);
    PROBE_EXPECT(truth.registered == 1);
    PROBE_EXPECT(truth.tx_sharing == 0);
    PROBE_EXPECT(KAPI_NETDEV_PRIV_OFFSET > truth.size);
    PROBE_EXPECT(dev->priv == netdev_priv(dev));
    PROBE_EXPECT(all_bytes(priv_of(dev)->zero, sizeof(probe_private::zero), 0));
    return 0;
}

int probe_address(net_device* dev)
{
    const unsigned char fcid[4] = {0, 0x0A, 0x0B, 0x0C};
    dev_addr_mod(dev, 8, fcid, sizeof fcid);
    truth_netdev truth;
    truth_of_netdev(dev, &truth);
    const unsigned char wanted[12] = {0x21, 0, 1, 2, 3, 4, 5, 6, 0, 0x0A, 0x0B, 0x0C};
    PROBE_EXPECT(memcmp(truth.dev_addr, wanted, 12) == 0);
    PROBE_EXPECT(memcmp(dev->dev_addr, wanted, 12) == 0);
    return 0;
}

int probe_header_freed_once(net_device* dev)
{
    truth_header truth;
    const unsigned int softirqs = truth_softirq_count();
    probe_header_refused = true;
    truth_build_header(dev, ETH_P_IP, &truth);
    probe_header_refused = false;
    PROBE_EXPECT(truth.result == -ENOMEM);
    PROBE_EXPECT(truth.freed_by_driver == 0);
    PROBE_EXPECT(truth.freed == 1);
    PROBE_EXPECT(truth_softirq_count() == softirqs);

    // Outside of header construction a free is a free.
    truth_build_header(dev, ETH_P_IP, &truth);
    PROBE_EXPECT(truth.result >= 0 && truth.freed == 1);
    return 0;
}

int probe_header_length(net_device* dev)
{
    truth_header truth;
    truth_build_header(dev, ETH_P_IP, &truth);
    PROBE_EXPECT(truth.pushed == PROBE_HEADER && truth.result == static_cast<int>(PROBE_HEADER));
    truth_build_header(dev, ETH_P_ARP, &truth);
    PROBE_EXPECT(truth.pushed == 0 && truth.result == 0);
    return 0;
}

int probe_refused_device(net_device* taken)
{
    net_device* dev = allocate(taken->name);
    PROBE_EXPECT(dev != nullptr);
    PROBE_EXPECT(in_rtnl(register_netdevice, dev) == -EEXIST);
    in_rtnl(unregister, dev);
    truth_netdev truth;
    truth_of_netdev(taken, &truth);
    PROBE_EXPECT(truth.registered == 1);
    // Neither registered nor given back: the glue frees it at the end.
    PROBE_EXPECT(allocate("kprobe9") != nullptr);
    return 0;
}

int probe_many_devices(unsigned long count)
{
    for (unsigned long i = 0; i < count; i++) {
        net_device* dev = probe_device_create("kprobe1");
        PROBE_EXPECT(dev != nullptr);
        probe_device_remove(dev);
    }
    return 0;
}
