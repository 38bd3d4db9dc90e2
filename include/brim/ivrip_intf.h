/* SPDX-License-Identifier: GPL-2.0-only */
/* Records of the table of IP hosts that are reached across VSANs. */
#pragma once

#include "types.h"

/* fcid and vsan are in network order, as the table keeps them. */
typedef struct ivrip_ioctl_ {
    ip_addr_t ip_addr;
    wwn_t pwwn;
    fcid_t fcid;
    vsan_id_t vsan;
} BRIM_RECORD ivrip_ioctl_t;
BRIM_STATIC_ASSERT(sizeof(ivrip_ioctl_t) == 20);
BRIM_LAYOUT(ivrip_ioctl_t, ip_addr, 0, 4);
BRIM_LAYOUT(ivrip_ioctl_t, pwwn, 4, 8);
BRIM_LAYOUT(ivrip_ioctl_t, fcid, 12, 4);
BRIM_LAYOUT(ivrip_ioctl_t, vsan, 16, 4);

typedef struct ivrip_fcid_info_ {
    fcid_t d_id;
    vsan_id_t vsan;
    wwn_t pwwn;
} ivrip_fcid_info_t;
BRIM_STATIC_ASSERT(sizeof(ivrip_fcid_info_t) == 16);

#define IVRIP_DID_LIST_MAX 255

typedef struct ivrip_fcid_list_ {
    int32_t num_entries;
    ivrip_fcid_info_t did_list[IVRIP_DID_LIST_MAX];
} ivrip_fcid_list_t;
