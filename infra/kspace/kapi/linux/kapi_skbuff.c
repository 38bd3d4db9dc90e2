// SPDX-License-Identifier: GPL-2.0-only
// Socket buffers: what the kernel has as macros and inline functions.
#include <linux/netdevice.h>

#include "kapi/linux/kapi_glue.h"

struct sk_buff* kapi_alloc_skb(unsigned int size, gfp_t flags)
{
    return alloc_skb(size, flags);
}

bool kapi_pskb_may_pull(struct sk_buff* skb, unsigned int length)
{
    return pskb_may_pull(skb, length);
}

bool kapi_skb_shared(const struct sk_buff* skb)
{
    return skb_shared(skb);
}

bool kapi_skb_cloned(const struct sk_buff* skb)
{
    return skb_cloned(skb);
}

// A buffer whose header is under construction belongs to the network stack, which frees it when the
// construction fails.
void kapi_kfree_skb(struct sk_buff* skb)
{
    if (!kapi_skb_being_built(skb))
        kfree_skb(skb);
}

void kapi_dev_kfree_skb_any(struct sk_buff* skb)
{
    if (!kapi_skb_being_built(skb))
        dev_kfree_skb_any(skb);
}

void kapi_skb_reserve(struct sk_buff* skb, int length)
{
    skb_reserve(skb, length);
}

int kapi_dev_queue_xmit(struct sk_buff* skb)
{
    return dev_queue_xmit(skb);
}
