/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The control device "ipfc" (commands, records, mapping requests) and the link-layer headers of IP
 * over Fibre Channel (RFC 2625). Usable from C and C++, from 32-bit and 64-bit programs.
 */
#pragma once

#include "ipaddr.h"
#include "ivrip_intf.h"

#define IPFC_DEVICE_NAME "ipfc"

/* ---- link layer: network byte order, at any address of a frame ---- */

typedef uint16_t be16_t; /* network order; read and written through named conversions only */

/* Network header (RFC 2625, 4.1): two world-wide names whose first two bytes are 10 00. */
typedef union ipfc_ntw_hdr_ {
    struct {
        uint8_t dmac_to_ww[2];
        mac_t daddr;
        uint8_t smac_to_ww[2];
        mac_t saddr;
    } hdr1;
    struct {
        wwn_t dwwn;
        wwn_t swwn;
    } BRIM_WIRE hdr2;
} BRIM_WIRE ipfc_ntw_hdr_t;
BRIM_STATIC_ASSERT(sizeof(ipfc_ntw_hdr_t) == 16);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr1.dmac_to_ww, 0, 2);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr1.daddr, 2, 6);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr1.smac_to_ww, 8, 2);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr1.saddr, 10, 6);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr2.dwwn, 0, 8);
BRIM_LAYOUT(ipfc_ntw_hdr_t, hdr2.swwn, 8, 8);

/* LLC/SNAP header (RFC 2625, 4.2). */
typedef struct ipfc_llc_hdr_ {
    uint8_t dsap;
    uint8_t ssap;
    uint8_t llc;
    uint8_t protid[3];
    be16_t ethertype;
} BRIM_WIRE ipfc_llc_hdr_t;
BRIM_STATIC_ASSERT(sizeof(ipfc_llc_hdr_t) == 8);
BRIM_LAYOUT(ipfc_llc_hdr_t, dsap, 0, 1);
BRIM_LAYOUT(ipfc_llc_hdr_t, ssap, 1, 1);
BRIM_LAYOUT(ipfc_llc_hdr_t, llc, 2, 1);
BRIM_LAYOUT(ipfc_llc_hdr_t, protid, 3, 3);
BRIM_LAYOUT(ipfc_llc_hdr_t, ethertype, 6, 2);

/* Hardware address of an interface, as the neighbour layer and ARP see it. */
typedef struct ipfc_ll_addr_ {
    wwn_t ww_portname;
    fcid_t fcid;
} BRIM_WIRE ipfc_ll_addr_t;
BRIM_STATIC_ASSERT(sizeof(ipfc_ll_addr_t) == 12);
BRIM_LAYOUT(ipfc_ll_addr_t, ww_portname, 0, 8);
BRIM_LAYOUT(ipfc_ll_addr_t, fcid, 8, 4);

#define IPFC_NTW_HDR_LEN 16
#define IPFC_LLC_HDR_LEN 8
#define IPFC_LL_ADDR_LEN 12
/* What header construction pushes, less the FC-2 stack's own room. */
#define IPFC_HEADERS_LEN (IPFC_LL_ADDR_LEN + IPFC_NTW_HDR_LEN + IPFC_LLC_HDR_LEN)

/* ---- control device ---- */

typedef enum upd_action_ BRIM_ENUM32 {
    IPFC_UPD_INTF_REM_FCID = 0,
    IPFC_UPD_INTF_SET_FCID = 1,
    IPFC_UPD_INTF_SET_ADM_UP = 2,
    IPFC_UPD_INTF_SET_ADM_DOWN = 3,
} upd_action_t;

typedef enum ipfc_intf_adm_status_ BRIM_ENUM32 {
    IPFC_INTF_ADMIN_DOWN = 0,
    IPFC_INTF_ADMIN_UP = 1,
} ipfc_intf_adm_status_t;

/* A port name and the FCID at which it is reached. */
typedef struct pn_to_fcid_ioctl_ {
    vsan_id_t vsan_id;
    wwn_t ww_portname;
    fcid_t fcid;
} BRIM_RECORD pn_to_fcid_ioctl_t;
BRIM_STATIC_ASSERT(sizeof(pn_to_fcid_ioctl_t) == 16);
BRIM_LAYOUT(pn_to_fcid_ioctl_t, vsan_id, 0, 4);
BRIM_LAYOUT(pn_to_fcid_ioctl_t, ww_portname, 4, 8);
BRIM_LAYOUT(pn_to_fcid_ioctl_t, fcid, 12, 4);

typedef struct vsan_interface_ioctl_ {
    vsan_id_t vsan_id;
    fcid_t fcid;
    wwn_t ww_portname;
    wwn_t ww_nodename;
    if_index_t ifindex;
    upd_action_t action;
    inet_addr_t ip_addr;
} BRIM_RECORD vsan_interface_ioctl_t;
BRIM_STATIC_ASSERT(sizeof(vsan_interface_ioctl_t) == 52);
BRIM_LAYOUT(vsan_interface_ioctl_t, vsan_id, 0, 4);
BRIM_LAYOUT(vsan_interface_ioctl_t, fcid, 4, 4);
BRIM_LAYOUT(vsan_interface_ioctl_t, ww_portname, 8, 8);
BRIM_LAYOUT(vsan_interface_ioctl_t, ww_nodename, 16, 8);
BRIM_LAYOUT(vsan_interface_ioctl_t, ifindex, 24, 4);
BRIM_LAYOUT(vsan_interface_ioctl_t, action, 28, 4);
BRIM_LAYOUT(vsan_interface_ioctl_t, ip_addr, 32, 20);

typedef struct ipfc_get_intf_ioctl_ {
    vsan_id_t vsan_id;
    ipfc_intf_adm_status_t intf_adm_status;
    wwn_t ww_portname;
    wwn_t ww_nodename;
    fcid_t fcid;
    int32_t num_sec_ip_addr;
    inet_addr_t ip_addr;
} BRIM_RECORD ipfc_get_intf_ioctl_t;
BRIM_STATIC_ASSERT(sizeof(ipfc_get_intf_ioctl_t) == 52);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, vsan_id, 0, 4);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, intf_adm_status, 4, 4);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, ww_portname, 8, 8);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, ww_nodename, 16, 8);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, fcid, 24, 4);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, num_sec_ip_addr, 28, 4);
BRIM_LAYOUT(ipfc_get_intf_ioctl_t, ip_addr, 32, 20);

/* The caller fills in vsan_id and snmp_stats, the module the counters. */
typedef struct ipfc_intf_stats_ioctl_ {
    vsan_id_t vsan_id;
    bool32_t snmp_stats;
    uint64_t rx_packets;
    uint64_t tx_packets;
    uint64_t rx_bytes;
    uint64_t tx_bytes;
    uint64_t rx_errors;
    uint64_t tx_errors;
    uint64_t rx_dropped;
    uint64_t tx_dropped;
    uint64_t multicast;
    uint64_t collisions;
    uint32_t ifInMulticastPkts;
    uint32_t ifInBroadcastPkts;
    uint32_t ifOutMulticastPkts;
    uint32_t ifOutBroadcastPkts;
    uint64_t ifHCInOctets;
    uint64_t ifHCInUcastPkts;
    uint64_t ifHCInMulticastPkts;
    uint64_t ifHCInBroadcastPkts;
    uint64_t ifHCOutOctets;
    uint64_t ifHCOutUcastPkts;
    uint64_t ifHCOutMulticastPkts;
    uint64_t ifHCOutBroadcastPkts;
    uint32_t ifInUnknownProtos;
} BRIM_RECORD ipfc_intf_stats_ioctl_t;
BRIM_STATIC_ASSERT(sizeof(ipfc_intf_stats_ioctl_t) == 172);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, vsan_id, 0, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, snmp_stats, 4, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, rx_packets, 8, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, tx_packets, 16, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, rx_bytes, 24, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, tx_bytes, 32, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, rx_errors, 40, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, tx_errors, 48, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, rx_dropped, 56, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, tx_dropped, 64, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, multicast, 72, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, collisions, 80, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifInMulticastPkts, 88, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifInBroadcastPkts, 92, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifOutMulticastPkts, 96, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifOutBroadcastPkts, 100, 4);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCInOctets, 104, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCInUcastPkts, 112, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCInMulticastPkts, 120, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCInBroadcastPkts, 128, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCOutOctets, 136, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCOutUcastPkts, 144, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCOutMulticastPkts, 152, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifHCOutBroadcastPkts, 160, 8);
BRIM_LAYOUT(ipfc_intf_stats_ioctl_t, ifInUnknownProtos, 168, 4);

/* A mapping request, as read from the device. */
typedef struct req_mapping_ {
    vsan_id_t vsan_id;
    wwn_t ww_portname;
} BRIM_RECORD req_mapping_t;
BRIM_STATIC_ASSERT(sizeof(req_mapping_t) == 12);
BRIM_LAYOUT(req_mapping_t, vsan_id, 0, 4);
BRIM_LAYOUT(req_mapping_t, ww_portname, 4, 8);

/* Fields of a command code: the kernel's _IOC encoding. */
#define IPFC_IOC_MAGIC 0x50u
#define IPFC_IOC_MAX_NR 18u
#define IPFC_IOC_WRITE 1u /* user to kernel */
#define IPFC_IOC_READ 2u  /* kernel to user */
#define IPFC_IOC_DIR(code) (((code) >> 30) & 0x3u)
#define IPFC_IOC_SIZE(code) (((code) >> 16) & 0x3FFFu)
#define IPFC_IOC_TYPE(code) (((code) >> 8) & 0xFFu)
#define IPFC_IOC_NR(code) ((code)&0xFFu)

/*
 * Commands. The four RESERVED ones stop the kernel with a BUG report, deliberately. SET_IP is
 * encoded with 20 bytes yet carries a whole vsan_interface_ioctl_t; GET_HEADROOM is encoded as a
 * write yet stores an int32 at the caller's address. Both are part of the interface.
 */
#define IPFC_IOC_RESERVED_0 0x40245000u
#define IPFC_IOC_RESERVED_1 0x40245001u
#define IPFC_IOC_RESERVED_2 0x40245002u
#define IPFC_IOC_ADD_MAPPING 0x40105003u       /* pn_to_fcid_ioctl_t */
#define IPFC_IOC_DEL_MAPPING 0x40105004u       /* pn_to_fcid_ioctl_t, fcid ignored */
#define IPFC_IOC_UPD_MAPPING 0x40105005u       /* pn_to_fcid_ioctl_t */
#define IPFC_IOC_MAPPING_NOT_FOUND 0x40105006u /* pn_to_fcid_ioctl_t, fcid ignored */
#define IPFC_IOC_GET_INTF 0xC0345007u          /* ipfc_get_intf_ioctl_t */
#define IPFC_IOC_GET_STATS 0xC0AC5008u         /* ipfc_intf_stats_ioctl_t */
#define IPFC_IOC_CLEANUP 0x00005009u           /* no record */
#define IPFC_IOC_CLEAR_STATS 0x4034500Au       /* vsan_interface_ioctl_t */
#define IPFC_IOC_RESERVED_11 0x4004500Bu
#define IPFC_IOC_ADD_IVRIP 0x4014500Cu    /* ivrip_ioctl_t */
#define IPFC_IOC_DEL_IVRIP 0x4014500Du    /* ivrip_ioctl_t */
#define IPFC_IOC_CREATE_INTF 0x4034500Eu  /* vsan_interface_ioctl_t */
#define IPFC_IOC_DELETE_INTF 0x4034500Fu  /* vsan_interface_ioctl_t */
#define IPFC_IOC_UPDATE_INTF 0x40345010u  /* vsan_interface_ioctl_t */
#define IPFC_IOC_SET_IP 0x40145011u       /* vsan_interface_ioctl_t, 52 bytes */
#define IPFC_IOC_GET_HEADROOM 0x40045012u /* int32_t, stored by the module */
