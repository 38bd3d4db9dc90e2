// SPDX-License-Identifier: GPL-2.0-only
// Network devices, with the driver's callbacks in the device itself as in 2.6.27. The members that
// a kernel has dropped live in an area of the glue's behind the kernel's own structure.
#pragma once

#include "skbuff.h"

inline constexpr int IFNAMSIZ = 16;
inline constexpr int MAX_ADDR_LEN = 32;

inline constexpr unsigned int IFF_UP = 0x1;
inline constexpr unsigned int IFF_BROADCAST = 0x2;

inline constexpr int NETDEV_TX_OK = 0;

inline constexpr std::uint16_t ETH_P_IP = 0x0800;
inline constexpr std::uint16_t ETH_P_ARP = 0x0806;
inline constexpr std::uint16_t ETH_P_IPV6 = 0x86DD;

inline constexpr unsigned int ETH_ALEN = 6;

struct net_device_stats {
    unsigned long rx_packets;
    unsigned long tx_packets;
    unsigned long rx_bytes;
    unsigned long tx_bytes;
    unsigned long rx_errors;
    unsigned long tx_errors;
    unsigned long rx_dropped;
    unsigned long tx_dropped;
    unsigned long multicast;
    unsigned long collisions;
    unsigned long rx_length_errors;
    unsigned long rx_over_errors;
    unsigned long rx_crc_errors;
    unsigned long rx_frame_errors;
    unsigned long rx_fifo_errors;
    unsigned long rx_missed_errors;
    unsigned long tx_aborted_errors;
    unsigned long tx_carrier_errors;
    unsigned long tx_fifo_errors;
    unsigned long tx_heartbeat_errors;
    unsigned long tx_window_errors;
    unsigned long rx_compressed;
    unsigned long tx_compressed;
};

// A negative result makes the caller free the buffer; a positive one is the driver's own matter.
using kapi_header_create_t = int (*)(sk_buff* skb, net_device* dev, unsigned short type,
                                     const void* daddr, const void* saddr, unsigned int len);
using kapi_header_rebuild_t = int (*)(sk_buff* skb);

// In 2.6.27's own order; newer kernels call create alone.
struct header_ops {
    kapi_header_create_t create;
    int (*parse)(const sk_buff* skb, unsigned char* address);
    kapi_header_rebuild_t rebuild;
    int (*cache)(const void* neighbour, void* header);
    void (*cache_update)(void* header, const net_device* dev, const unsigned char* address);
};

using kapi_get_stats_t = net_device_stats* (*)(net_device* dev);
using kapi_dev_call_t = int (*)(net_device* dev);
using kapi_start_xmit_t = int (*)(sk_buff* skb, net_device* dev);
using kapi_change_mtu_t = int (*)(net_device* dev, int mtu);
using kapi_destructor_t = void (*)(net_device* dev);

struct net_device {
    union {
        KAPI_ARRAY(KAPI_NETDEV_NAME, char, name, IFNAMSIZ);
        KAPI_MEMBER(KAPI_NETDEV_MTU, unsigned int, mtu);
        KAPI_MEMBER(KAPI_NETDEV_FLAGS, unsigned int, flags);
        KAPI_MEMBER(KAPI_NETDEV_TYPE, unsigned short, type);
        KAPI_MEMBER(KAPI_NETDEV_HARD_HEADER_LEN, unsigned short, hard_header_len);
        KAPI_MEMBER(KAPI_NETDEV_ADDR_LEN, unsigned char, addr_len);
        KAPI_ARRAY(KAPI_NETDEV_BROADCAST, unsigned char, broadcast, MAX_ADDR_LEN);
        KAPI_MEMBER(KAPI_NETDEV_DEV_ADDR, kapi_dev_addr_t, dev_addr);     // see dev_addr_mod
        KAPI_MEMBER(KAPI_NETDEV_TRANS_START, unsigned long, trans_start); // jiffies
        KAPI_MEMBER(KAPI_NETDEV_LAST_RX, unsigned long, last_rx);         // jiffies
        KAPI_MEMBER(KAPI_NETDEV_PRIV, void*, priv);
        KAPI_MEMBER(KAPI_NETDEV_HEADER_OPS, const struct header_ops*, header_ops);
        KAPI_MEMBER(KAPI_NETDEV_GET_STATS, kapi_get_stats_t, get_stats);
        KAPI_MEMBER(KAPI_NETDEV_OPEN, kapi_dev_call_t, open);
        KAPI_MEMBER(KAPI_NETDEV_STOP, kapi_dev_call_t, stop);
        KAPI_MEMBER(KAPI_NETDEV_HARD_START_XMIT, kapi_start_xmit_t, hard_start_xmit);
        KAPI_MEMBER(KAPI_NETDEV_CHANGE_MTU, kapi_change_mtu_t, change_mtu);
        KAPI_MEMBER(KAPI_NETDEV_DESTRUCTOR, kapi_destructor_t, destructor);
        unsigned char kapi_size[KAPI_NETDEV_SIZE]; // up to the private area
    };
};

// The driver's private area, zeroed by the allocation.
inline void* netdev_priv(const net_device* dev)
{
    return const_cast<unsigned char*>(dev->kapi_size) + KAPI_NETDEV_PRIV_OFFSET;
}

extern "C" {
// Process context. Null when out of memory.
net_device* alloc_etherdev_mq(int priv_size, unsigned int queues) KAPI_GLUE(alloc_etherdev_mq);
// Under rtnl_lock. 0, or an error such as -EEXIST for a name that is taken.
int register_netdevice(net_device* dev) KAPI_GLUE(register_netdevice);
// Under rtnl_lock. Harmless for a device whose registration failed. A device that nobody frees
// afterwards is freed when the module goes.
void unregister_netdevice(net_device* dev) KAPI_GLUE(unregister_netdevice);
void rtnl_lock();
void rtnl_unlock();

// Overwrites length bytes of the device's own address from offset on. Process context, without
// rtnl_lock.
void dev_addr_mod(net_device* dev, unsigned int offset, const void* address, std::size_t length)
    KAPI_GLUE(dev_addr_mod);

// Writes the hardware address of the buffer's IP destination to to; non-zero when it is not known
// yet, in which case the kernel owns the buffer. Kernels that no longer rebuild headers: 0, nothing
// written.
int arp_find(unsigned char* to, sk_buff* skb) KAPI_GLUE(arp_find);
}
