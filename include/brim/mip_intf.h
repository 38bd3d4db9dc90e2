/* SPDX-License-Identifier: GPL-2.0-only */
/* The platform's secondary-IP service: addresses that live in the fabric as N_Ports of their own.
 */
#pragma once

#include "ipaddr.h"

typedef struct mip_mapping_ {
    inet_addr_t ip_addr;
    mac_t source_mac;    /* the N_Port's port name is 10:00 followed by it */
    uint32_t add_data;   /* the N_Port's FCID, as fcid_t.num */
    if_index_t ifindex;  /* platform index of the VSAN interface */
    if_index_t sifindex; /* platform index through which the N_Port is reached */
    struct mip_mapping_* next;
} mip_mapping_t;
BRIM_STATIC_ASSERT(sizeof(mip_mapping_t) == 48);
BRIM_LAYOUT(mip_mapping_t, ip_addr, 0, 20);
BRIM_LAYOUT(mip_mapping_t, source_mac, 20, 6);
BRIM_LAYOUT(mip_mapping_t, add_data, 28, 4);
BRIM_LAYOUT(mip_mapping_t, ifindex, 32, 4);
BRIM_LAYOUT(mip_mapping_t, sifindex, 36, 4);
BRIM_LAYOUT(mip_mapping_t, next, 40, 8);

typedef struct opt_func_ {
    int32_t (*opt_add_ip)(mip_mapping_t* mapping);
    int32_t (*opt_del_ip)(mip_mapping_t* mapping);
    if_index_type_t opt_intf_type;
} opt_func_t;
BRIM_STATIC_ASSERT(sizeof(opt_func_t) == 24);
BRIM_LAYOUT(opt_func_t, opt_add_ip, 0, 8);
BRIM_LAYOUT(opt_func_t, opt_del_ip, 8, 8);
BRIM_LAYOUT(opt_func_t, opt_intf_type, 16, 1);

#ifdef __cplusplus
extern "C" {
#endif

/* Process context. The callbacks run in the service's own process context. 0, or an error number.
 */
int mip_register_opt(opt_func_t callbacks);
void mip_unregister_opt(void);

/*
 * Whether the packet's source is a secondary address; packet is the network-layer packet, of which
 * the caller guarantees 20 bytes for IPv4 and 40 for IPv6 and ARP (with 12-byte hardware
 * addresses). Any context. Non-zero: drop the packet. On 0, *flag is 1 when *mapping holds the
 * address's record.
 */
int mip_lookup(uint16_t ethertype, const void* packet, mip_mapping_t* mapping, int* flag);

#ifdef __cplusplus
}
#endif
