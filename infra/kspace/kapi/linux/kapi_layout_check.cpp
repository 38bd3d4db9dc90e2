// SPDX-License-Identifier: GPL-2.0-only
// The seam's records against the target kernel's: a layout that does not fit stops the build.
#include "kapi/chrdev.h"
#include "kapi/errno.h"
#include "kapi/jiffies.h"
#include "kapi/netdevice.h"
#include "kapi/proc_fs.h"
#include "kapi/spinlock.h"
#include "kapi/wait.h"

#define CHECK_PLACE(type, member, macro)                                                           \
    static_assert(offsetof(type, member) == macro);                                                \
    static_assert(sizeof(type::member) == macro##_SIZE)

CHECK_PLACE(sk_buff, len, KAPI_SKB_LEN);
CHECK_PLACE(sk_buff, data_len, KAPI_SKB_DATA_LEN);
CHECK_PLACE(sk_buff, protocol, KAPI_SKB_PROTOCOL);
CHECK_PLACE(sk_buff, dev, KAPI_SKB_DEV);
CHECK_PLACE(sk_buff, head, KAPI_SKB_HEAD);
CHECK_PLACE(sk_buff, data, KAPI_SKB_DATA);
CHECK_PLACE(sk_buff, tail, KAPI_SKB_TAIL);
CHECK_PLACE(sk_buff, end, KAPI_SKB_END);
CHECK_PLACE(sk_buff, mac_header, KAPI_SKB_MAC_HEADER);
static_assert(sizeof(sk_buff) == KAPI_SKB_SIZE);
static_assert(KAPI_SKB_PKT_TYPE < KAPI_SKB_SIZE && KAPI_SKB_PKT_TYPE_SHIFT <= 5);

CHECK_PLACE(net_device, name, KAPI_NETDEV_NAME);
CHECK_PLACE(net_device, mtu, KAPI_NETDEV_MTU);
CHECK_PLACE(net_device, flags, KAPI_NETDEV_FLAGS);
CHECK_PLACE(net_device, type, KAPI_NETDEV_TYPE);
CHECK_PLACE(net_device, hard_header_len, KAPI_NETDEV_HARD_HEADER_LEN);
CHECK_PLACE(net_device, addr_len, KAPI_NETDEV_ADDR_LEN);
CHECK_PLACE(net_device, broadcast, KAPI_NETDEV_BROADCAST);
CHECK_PLACE(net_device, dev_addr, KAPI_NETDEV_DEV_ADDR);
CHECK_PLACE(net_device, trans_start, KAPI_NETDEV_TRANS_START);
CHECK_PLACE(net_device, last_rx, KAPI_NETDEV_LAST_RX);
CHECK_PLACE(net_device, priv, KAPI_NETDEV_PRIV);
CHECK_PLACE(net_device, header_ops, KAPI_NETDEV_HEADER_OPS);
CHECK_PLACE(net_device, get_stats, KAPI_NETDEV_GET_STATS);
CHECK_PLACE(net_device, open, KAPI_NETDEV_OPEN);
CHECK_PLACE(net_device, stop, KAPI_NETDEV_STOP);
CHECK_PLACE(net_device, hard_start_xmit, KAPI_NETDEV_HARD_START_XMIT);
CHECK_PLACE(net_device, change_mtu, KAPI_NETDEV_CHANGE_MTU);
CHECK_PLACE(net_device, destructor, KAPI_NETDEV_DESTRUCTOR);
static_assert(sizeof(net_device) == KAPI_NETDEV_SIZE);
static_assert(KAPI_NETDEV_PRIV_OFFSET % 16 == 0);
static_assert(KAPI_NETDEV_PRIV_OFFSET >= KAPI_NETDEV_SIZE);

static_assert(offsetof(header_ops, create) == KAPI_CHECK_HEADER_OPS_CREATE);
static_assert(offsetof(header_ops, rebuild) == KAPI_CHECK_HEADER_OPS_REBUILD);
static_assert(sizeof(header_ops) == KAPI_CHECK_HEADER_OPS_SIZE);

#define CHECK_STATS(member, macro)                                                                 \
    static_assert(offsetof(net_device_stats, member) == KAPI_CHECK_STATS_##macro)
CHECK_STATS(rx_packets, RX_PACKETS);
CHECK_STATS(tx_packets, TX_PACKETS);
CHECK_STATS(rx_bytes, RX_BYTES);
CHECK_STATS(tx_bytes, TX_BYTES);
CHECK_STATS(rx_errors, RX_ERRORS);
CHECK_STATS(tx_errors, TX_ERRORS);
CHECK_STATS(rx_dropped, RX_DROPPED);
CHECK_STATS(tx_dropped, TX_DROPPED);
CHECK_STATS(multicast, MULTICAST);
CHECK_STATS(collisions, COLLISIONS);
CHECK_STATS(tx_compressed, TX_COMPRESSED);
static_assert(sizeof(net_device_stats) == KAPI_CHECK_STATS_SIZE);

CHECK_PLACE(file, f_flags, KAPI_FILE_F_FLAGS);
static_assert(sizeof(file) == KAPI_FILE_SIZE);

CHECK_PLACE(proc_dir_entry, read_proc, KAPI_PDE_READ_PROC);
CHECK_PLACE(proc_dir_entry, write_proc, KAPI_PDE_WRITE_PROC);
CHECK_PLACE(proc_dir_entry, data, KAPI_PDE_DATA);
static_assert(sizeof(proc_dir_entry) == KAPI_PDE_SIZE);

#define CHECK_FOPS(member, macro)                                                                  \
    static_assert(offsetof(file_operations, member) == KAPI_CHECK_FOPS_##macro)
CHECK_FOPS(read, READ);
CHECK_FOPS(write, WRITE);
CHECK_FOPS(poll, POLL);
CHECK_FOPS(ioctl, IOCTL);
CHECK_FOPS(compat_ioctl, COMPAT_IOCTL);
CHECK_FOPS(open, OPEN);
CHECK_FOPS(release, RELEASE);
static_assert(sizeof(file_operations) == KAPI_CHECK_FOPS_SIZE);

static_assert(sizeof(spinlock_t) == KAPI_SPINLOCK_SIZE);
static_assert(alignof(spinlock_t) >= KAPI_SPINLOCK_ALIGN);
static_assert(sizeof(rwlock_t) == KAPI_RWLOCK_SIZE);
static_assert(alignof(rwlock_t) >= KAPI_RWLOCK_ALIGN);
static_assert(sizeof(wait_queue_head_t) == KAPI_WAIT_QUEUE_HEAD_SIZE);
static_assert(sizeof(wait_queue_t) == KAPI_WAIT_QUEUE_ENTRY_SIZE);
static_assert(sizeof(timer_list) == KAPI_TIMER_SIZE);
static_assert(sizeof(jiffies) == KAPI_CHECK_JIFFIES_SIZE);

static_assert(IFNAMSIZ == KAPI_CHECK_IFNAMSIZ);
static_assert(MAX_ADDR_LEN == KAPI_CHECK_MAX_ADDR_LEN);
static_assert(IFF_UP == KAPI_CHECK_IFF_UP);
static_assert(IFF_BROADCAST == KAPI_CHECK_IFF_BROADCAST);
static_assert(NETDEV_TX_OK == KAPI_CHECK_NETDEV_TX_OK);
static_assert(PACKET_HOST == KAPI_CHECK_PACKET_HOST);
static_assert(PACKET_BROADCAST == KAPI_CHECK_PACKET_BROADCAST);
static_assert(PACKET_MULTICAST == KAPI_CHECK_PACKET_MULTICAST);
static_assert(PACKET_OTHERHOST == KAPI_CHECK_PACKET_OTHERHOST);
static_assert(KAPI_O_NONBLOCK == KAPI_CHECK_O_NONBLOCK);
static_assert(POLLIN == KAPI_CHECK_POLLIN);
static_assert(POLLRDNORM == KAPI_CHECK_POLLRDNORM);
static_assert(ERESTARTSYS == KAPI_CHECK_ERESTARTSYS);
static_assert(ECONNREFUSED == KAPI_CHECK_ECONNREFUSED);
static_assert(EBADE == KAPI_CHECK_EBADE);
