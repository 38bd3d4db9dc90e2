// SPDX-License-Identifier: GPL-2.0-only
// Offsets, sizes and constants of the target kernel. Compiled to assembler text and never linked:
// make-target-header.sh reads the numbers from there.
#include <linux/errno.h>
#include <linux/etherdevice.h>
#include <linux/fcntl.h>
#include <linux/if_packet.h>
#include <linux/kbuild.h>

#include "kapi/linux/kapi_glue.h"

#ifndef NET_SKBUFF_DATA_USES_OFFSET
#error "tail and end of a socket buffer must be offsets"
#endif

#define PLACE(name, type, member)                                                                  \
    DEFINE(name, offsetof(type, member));                                                          \
    DEFINE(name##_SIZE, sizeof(((type*)0)->member))

// Members that many a kernel has no more: there they are in the glue's area in front of the
// driver's.
#define AREA ((unsigned long)netdev_priv((struct net_device*)0))
#ifdef KAPI_HAVE_NET_DEVICE_OPS
#define PLACE_IN_AREA(name, member)                                                                \
    DEFINE(name, AREA + offsetof(struct kapi_netdev, member));                                     \
    DEFINE(name##_SIZE, sizeof(((struct kapi_netdev*)0)->member))
#else
#define PLACE_IN_AREA(name, member) PLACE(name, struct net_device, member)
#endif

static void __used constants(void)
{
    DEFINE(KAPI_GFP_ATOMIC, (unsigned int)GFP_ATOMIC);
    DEFINE(KAPI_GFP_KERNEL, (unsigned int)GFP_KERNEL);
    DEFINE(KAPI_SLAB_HWCACHE_ALIGN, (unsigned long)SLAB_HWCACHE_ALIGN);
    DEFINE(KAPI_HZ, HZ);
    DEFINE(KAPI_PAGE_SIZE, PAGE_SIZE);
    DEFINE(KAPI_CHECK_IFNAMSIZ, IFNAMSIZ);
    DEFINE(KAPI_CHECK_MAX_ADDR_LEN, MAX_ADDR_LEN);
    DEFINE(KAPI_CHECK_IFF_UP, IFF_UP);
    DEFINE(KAPI_CHECK_IFF_BROADCAST, IFF_BROADCAST);
    DEFINE(KAPI_CHECK_NETDEV_TX_OK, NETDEV_TX_OK);
    DEFINE(KAPI_CHECK_PACKET_HOST, PACKET_HOST);
    DEFINE(KAPI_CHECK_PACKET_BROADCAST, PACKET_BROADCAST);
    DEFINE(KAPI_CHECK_PACKET_MULTICAST, PACKET_MULTICAST);
    DEFINE(KAPI_CHECK_PACKET_OTHERHOST, PACKET_OTHERHOST);
    DEFINE(KAPI_CHECK_O_NONBLOCK, O_NONBLOCK);
    DEFINE(KAPI_CHECK_POLLIN, (unsigned int)POLLIN);
    DEFINE(KAPI_CHECK_POLLRDNORM, (unsigned int)POLLRDNORM);
    DEFINE(KAPI_CHECK_ERESTARTSYS, ERESTARTSYS);
    DEFINE(KAPI_CHECK_ECONNREFUSED, ECONNREFUSED);
    DEFINE(KAPI_CHECK_EBADE, EBADE);
}

static void __used locks_and_queues(void)
{
    DEFINE(KAPI_SPINLOCK_SIZE, sizeof(spinlock_t));
    DEFINE(KAPI_SPINLOCK_ALIGN, __alignof__(spinlock_t));
    DEFINE(KAPI_RWLOCK_SIZE, sizeof(rwlock_t));
    DEFINE(KAPI_RWLOCK_ALIGN, __alignof__(rwlock_t));
    DEFINE(KAPI_WAIT_QUEUE_HEAD_SIZE, sizeof(wait_queue_head_t));
    DEFINE(KAPI_WAIT_QUEUE_ENTRY_SIZE, sizeof(kapi_wait_entry_t));
    DEFINE(KAPI_TIMER_SIZE, sizeof(struct kapi_timer));
    DEFINE(KAPI_CHECK_JIFFIES_SIZE, sizeof(jiffies));
}

static void __used socket_buffer(void)
{
    PLACE(KAPI_SKB_LEN, struct sk_buff, len);
    PLACE(KAPI_SKB_DATA_LEN, struct sk_buff, data_len);
    PLACE(KAPI_SKB_PROTOCOL, struct sk_buff, protocol);
    PLACE(KAPI_SKB_DEV, struct sk_buff, dev);
    PLACE(KAPI_SKB_HEAD, struct sk_buff, head);
    PLACE(KAPI_SKB_DATA, struct sk_buff, data);
    PLACE(KAPI_SKB_TAIL, struct sk_buff, tail);
    PLACE(KAPI_SKB_END, struct sk_buff, end);
    PLACE(KAPI_SKB_MAC_HEADER, struct sk_buff, mac_header);
    DEFINE(KAPI_SKB_SIZE, sizeof(struct sk_buff));
}

static void __used network_device(void)
{
    PLACE(KAPI_NETDEV_NAME, struct net_device, name);
    PLACE(KAPI_NETDEV_MTU, struct net_device, mtu);
    PLACE(KAPI_NETDEV_FLAGS, struct net_device, flags);
    PLACE(KAPI_NETDEV_TYPE, struct net_device, type);
    PLACE(KAPI_NETDEV_HARD_HEADER_LEN, struct net_device, hard_header_len);
    PLACE(KAPI_NETDEV_ADDR_LEN, struct net_device, addr_len);
    PLACE(KAPI_NETDEV_BROADCAST, struct net_device, broadcast);
    PLACE(KAPI_NETDEV_DEV_ADDR, struct net_device, dev_addr);
    PLACE_IN_AREA(KAPI_NETDEV_TRANS_START, trans_start);
    PLACE_IN_AREA(KAPI_NETDEV_LAST_RX, last_rx);
    PLACE_IN_AREA(KAPI_NETDEV_PRIV, priv);
    PLACE_IN_AREA(KAPI_NETDEV_HEADER_OPS, header_ops);
    PLACE_IN_AREA(KAPI_NETDEV_GET_STATS, get_stats);
    PLACE_IN_AREA(KAPI_NETDEV_OPEN, open);
    PLACE_IN_AREA(KAPI_NETDEV_STOP, stop);
    PLACE_IN_AREA(KAPI_NETDEV_HARD_START_XMIT, hard_start_xmit);
    PLACE_IN_AREA(KAPI_NETDEV_CHANGE_MTU, change_mtu);
    PLACE_IN_AREA(KAPI_NETDEV_DESTRUCTOR, destructor);
    DEFINE(KAPI_NETDEV_SIZE, AREA + sizeof(struct kapi_netdev));
    DEFINE(KAPI_NETDEV_PRIV_OFFSET, AREA + sizeof(struct kapi_netdev));

    DEFINE(KAPI_CHECK_HEADER_OPS_CREATE, offsetof(struct kapi_header_ops, create));
    DEFINE(KAPI_CHECK_HEADER_OPS_REBUILD, offsetof(struct kapi_header_ops, rebuild));
    DEFINE(KAPI_CHECK_HEADER_OPS_SIZE, sizeof(struct kapi_header_ops));

    DEFINE(KAPI_CHECK_STATS_SIZE, sizeof(struct net_device_stats));
    DEFINE(KAPI_CHECK_STATS_RX_PACKETS, offsetof(struct net_device_stats, rx_packets));
    DEFINE(KAPI_CHECK_STATS_TX_PACKETS, offsetof(struct net_device_stats, tx_packets));
    DEFINE(KAPI_CHECK_STATS_RX_BYTES, offsetof(struct net_device_stats, rx_bytes));
    DEFINE(KAPI_CHECK_STATS_TX_BYTES, offsetof(struct net_device_stats, tx_bytes));
    DEFINE(KAPI_CHECK_STATS_RX_ERRORS, offsetof(struct net_device_stats, rx_errors));
    DEFINE(KAPI_CHECK_STATS_TX_ERRORS, offsetof(struct net_device_stats, tx_errors));
    DEFINE(KAPI_CHECK_STATS_RX_DROPPED, offsetof(struct net_device_stats, rx_dropped));
    DEFINE(KAPI_CHECK_STATS_TX_DROPPED, offsetof(struct net_device_stats, tx_dropped));
    DEFINE(KAPI_CHECK_STATS_MULTICAST, offsetof(struct net_device_stats, multicast));
    DEFINE(KAPI_CHECK_STATS_COLLISIONS, offsetof(struct net_device_stats, collisions));
    DEFINE(KAPI_CHECK_STATS_TX_COMPRESSED, offsetof(struct net_device_stats, tx_compressed));
}

static void __used files_and_entries(void)
{
    PLACE(KAPI_FILE_F_FLAGS, struct file, f_flags);
    DEFINE(KAPI_FILE_SIZE, sizeof(struct file));

    PLACE(KAPI_PDE_READ_PROC, kapi_proc_handle_t, read_proc);
    PLACE(KAPI_PDE_WRITE_PROC, kapi_proc_handle_t, write_proc);
    PLACE(KAPI_PDE_DATA, kapi_proc_handle_t, data);
    DEFINE(KAPI_PDE_SIZE, sizeof(kapi_proc_handle_t));

    DEFINE(KAPI_CHECK_FOPS_READ, offsetof(struct kapi_file_operations, read));
    DEFINE(KAPI_CHECK_FOPS_WRITE, offsetof(struct kapi_file_operations, write));
    DEFINE(KAPI_CHECK_FOPS_POLL, offsetof(struct kapi_file_operations, poll));
    DEFINE(KAPI_CHECK_FOPS_IOCTL, offsetof(struct kapi_file_operations, ioctl));
    DEFINE(KAPI_CHECK_FOPS_COMPAT_IOCTL, offsetof(struct kapi_file_operations, compat_ioctl));
    DEFINE(KAPI_CHECK_FOPS_OPEN, offsetof(struct kapi_file_operations, open));
    DEFINE(KAPI_CHECK_FOPS_RELEASE, offsetof(struct kapi_file_operations, release));
    DEFINE(KAPI_CHECK_FOPS_SIZE, sizeof(struct kapi_file_operations));
}
