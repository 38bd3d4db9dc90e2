// SPDX-License-Identifier: GPL-2.0-only
// The user-space twin as a target: its own layouts, in the form that a kernel's are generated in.
// Offsets and sizes in bytes.
#pragma once

#define KAPI_GFP_ATOMIC 0x20u
#define KAPI_GFP_KERNEL 0xD0u
#define KAPI_SLAB_HWCACHE_ALIGN 0x2000ul
#define KAPI_HZ 250ul

#define KAPI_SPINLOCK_SIZE 64
#define KAPI_SPINLOCK_ALIGN 8
#define KAPI_RWLOCK_SIZE 64
#define KAPI_RWLOCK_ALIGN 8
#define KAPI_WAIT_QUEUE_HEAD_SIZE 64
#define KAPI_WAIT_QUEUE_ENTRY_SIZE 64
#define KAPI_TIMER_SIZE 64

// Zeroed locks and queues are ready on the twin.
#define KAPI_STATIC_INIT(function, object) static_assert(true)

using kapi_skb_mac_header_t = unsigned int;
#define KAPI_SKB_LEN 0
#define KAPI_SKB_DATA_LEN 4
#define KAPI_SKB_PROTOCOL 8
#define KAPI_SKB_MAC_HEADER 12
#define KAPI_SKB_DEV 16
#define KAPI_SKB_HEAD 24
#define KAPI_SKB_DATA 32
#define KAPI_SKB_TAIL 40
#define KAPI_SKB_END 44
#define KAPI_SKB_PKT_TYPE 48
#define KAPI_SKB_PKT_TYPE_SHIFT 0
#define KAPI_SKB_SIZE 128

using kapi_dev_addr_t = const unsigned char*;
#define KAPI_NETDEV_NAME 0
#define KAPI_NETDEV_MTU 16
#define KAPI_NETDEV_FLAGS 20
#define KAPI_NETDEV_TYPE 24
#define KAPI_NETDEV_HARD_HEADER_LEN 26
#define KAPI_NETDEV_ADDR_LEN 28
#define KAPI_NETDEV_BROADCAST 32
#define KAPI_NETDEV_DEV_ADDR 64
#define KAPI_NETDEV_TRANS_START 72
#define KAPI_NETDEV_LAST_RX 80
#define KAPI_NETDEV_PRIV 88
#define KAPI_NETDEV_HEADER_OPS 96
#define KAPI_NETDEV_GET_STATS 104
#define KAPI_NETDEV_OPEN 112
#define KAPI_NETDEV_STOP 120
#define KAPI_NETDEV_HARD_START_XMIT 128
#define KAPI_NETDEV_CHANGE_MTU 136
#define KAPI_NETDEV_DESTRUCTOR 144
#define KAPI_NETDEV_SIZE 256
#define KAPI_NETDEV_PRIV_OFFSET 256

#define KAPI_FILE_F_FLAGS 0
#define KAPI_FILE_SIZE 64

#define KAPI_PDE_READ_PROC 0
#define KAPI_PDE_WRITE_PROC 8
#define KAPI_PDE_DATA 16
#define KAPI_PDE_SIZE 64
