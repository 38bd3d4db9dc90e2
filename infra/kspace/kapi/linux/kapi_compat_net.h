/* SPDX-License-Identifier: GPL-2.0-only */
/* Names for network devices and buffers that a kernel has yet to get. */
#pragma once

#include <linux/if_ether.h>
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>
#include <linux/skbuff.h>
#include <net/dst.h>

#include "kapi/linux/kapi_compat.h"

#ifndef ETH_P_FCOE
#define ETH_P_FCOE 0x8906
#endif

/* The checker of address spaces knows no RCU here. */
#ifndef rtnl_dereference
#define rtnl_dereference(p) (p)
#endif
#ifndef RCU_INIT_POINTER
#define RCU_INIT_POINTER(p, value) ((p) = (value))
#endif

#ifndef KAPI_HAVE_NOTIFIER_INFO
static inline struct net_device* netdev_notifier_info_to_dev(void* info)
{
    return info;
}
#endif

#ifndef KAPI_HAVE_SKB_DST_DROP
static inline void skb_dst_drop(struct sk_buff* skb)
{
    dst_release(skb->dst);
    skb->dst = NULL;
}
#endif

#ifndef KAPI_HAVE_SKB_MAC_HEADER_LEN
static inline u32 skb_mac_header_len(const struct sk_buff* skb)
{
    return skb->network_header - skb->mac_header;
}
#endif

/* A device that takes tags off hands the frame straight to the tag's own device. */
#ifndef skb_vlan_tag_present
#define skb_vlan_tag_present(skb) 0
#endif
