// SPDX-License-Identifier: GPL-2.0-only
// Socket buffers. Fields are plain loads and stores at the target kernel's own offsets; whoever
// holds a buffer last frees it. tail, end and mac_header count from head.
#pragma once

#include "types.h"

struct net_device;

struct sk_buff {
    union {
        KAPI_MEMBER(KAPI_SKB_LEN, unsigned int, len);
        KAPI_MEMBER(KAPI_SKB_DATA_LEN, unsigned int, data_len);  // bytes in paged data
        KAPI_MEMBER(KAPI_SKB_PROTOCOL, std::uint16_t, protocol); // network order
        KAPI_MEMBER(KAPI_SKB_DEV, net_device*, dev);
        KAPI_MEMBER(KAPI_SKB_HEAD, unsigned char*, head);
        KAPI_MEMBER(KAPI_SKB_DATA, unsigned char*, data);
        KAPI_MEMBER(KAPI_SKB_TAIL, unsigned int, tail);
        KAPI_MEMBER(KAPI_SKB_END, unsigned int, end);
        KAPI_MEMBER(KAPI_SKB_MAC_HEADER, kapi_skb_mac_header_t, mac_header);
        // Three bits of a byte; read and written through the two functions below.
        KAPI_MEMBER(KAPI_SKB_PKT_TYPE, unsigned char, kapi_pkt_type_byte);
        unsigned char kapi_size[KAPI_SKB_SIZE];
    };
};

// Values of a buffer's packet type (linux/if_packet.h).
enum : unsigned char {
    PACKET_HOST = 0,
    PACKET_BROADCAST = 1,
    PACKET_MULTICAST = 2,
    PACKET_OTHERHOST = 3,
};

inline unsigned char skb_pkt_type(const sk_buff* skb)
{
    return (skb->kapi_pkt_type_byte >> KAPI_SKB_PKT_TYPE_SHIFT) & 7;
}

inline void skb_set_pkt_type(sk_buff* skb, unsigned char type)
{
    skb->kapi_pkt_type_byte =
        static_cast<unsigned char>((skb->kapi_pkt_type_byte & ~(7 << KAPI_SKB_PKT_TYPE_SHIFT)) |
                                   (type << KAPI_SKB_PKT_TYPE_SHIFT));
}

inline unsigned int skb_headroom(const sk_buff* skb)
{
    return static_cast<unsigned int>(skb->data - skb->head);
}

// Bytes in front of paged data.
inline unsigned int skb_headlen(const sk_buff* skb)
{
    return skb->len - skb->data_len;
}

inline void skb_reset_mac_header(sk_buff* skb)
{
    skb->mac_header = static_cast<kapi_skb_mac_header_t>(skb->data - skb->head);
}

inline unsigned char* skb_mac_header(const sk_buff* skb)
{
    return skb->head + skb->mac_header;
}

extern "C" {
// Null when out of memory. Any context.
sk_buff* alloc_skb(unsigned int size, gfp_t flags) KAPI_GLUE(alloc_skb);
sk_buff* skb_clone(sk_buff* skb, gfp_t flags);
// A linear, private copy with the same headroom.
sk_buff* skb_copy(const sk_buff* skb, gfp_t flags);
sk_buff* skb_copy_expand(const sk_buff* skb, int headroom, int tailroom, gfp_t flags);
// 0 or -ENOMEM; the buffer must not be shared.
int pskb_expand_head(sk_buff* skb, int headroom, int tailroom, gfp_t flags);
// Make the first length bytes linear: false when the buffer is shorter or memory is out. Pointers
// into the data are stale afterwards.
bool pskb_may_pull(sk_buff* skb, unsigned int length) KAPI_GLUE(pskb_may_pull);
// Copy out of linear or paged data: 0, or -EFAULT when the range is not inside the buffer.
int skb_copy_bits(const sk_buff* skb, int offset, void* to, int length);
// Whether others hold the buffer, or its data.
bool skb_shared(const sk_buff* skb) KAPI_GLUE(skb_shared);
bool skb_cloned(const sk_buff* skb) KAPI_GLUE(skb_cloned);

void kfree_skb(sk_buff* skb) KAPI_GLUE(kfree_skb);
void dev_kfree_skb_any(sk_buff* skb) KAPI_GLUE(dev_kfree_skb_any); // interrupts may be off

// The kernel stops on an under- or overrun of push and put.
void* skb_push(sk_buff* skb, unsigned int length);
void* skb_pull(sk_buff* skb, unsigned int length); // null, nothing moved, when len is shorter
void* skb_put(sk_buff* skb, unsigned int length);
void skb_trim(sk_buff* skb, unsigned int length);
void skb_reserve(sk_buff* skb, int length) KAPI_GLUE(skb_reserve);

// Any context; owns the buffer. NET_RX_SUCCESS 0 or NET_RX_DROP 1.
int netif_rx(sk_buff* skb);
// Process or softirq context, interrupts on; owns the buffer.
int dev_queue_xmit(sk_buff* skb) KAPI_GLUE(dev_queue_xmit);
}

inline int skb_tailroom(const sk_buff* skb)
{
    return skb->data_len != 0 ? 0 : static_cast<int>(skb->end - skb->tail);
}
