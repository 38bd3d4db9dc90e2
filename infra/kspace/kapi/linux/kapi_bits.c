// SPDX-License-Identifier: GPL-2.0-only
// The image of a bit-field that no offset names: make-target-header.sh finds the bits that are set.
#include <linux/skbuff.h>

extern const struct sk_buff kapi_pkt_type_image;
const struct sk_buff kapi_pkt_type_image __attribute__((section(".data.kapi_pkt_type"))) = {
    .pkt_type = 7,
};
