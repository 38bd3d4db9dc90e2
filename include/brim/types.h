/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Names and addresses of Fibre Channel (FC-FS), as the switch carries them.
 * Usable from C and C++, in user space and in the kernel.
 */
#pragma once

#if defined(__KERNEL__) && !defined(__cplusplus)
#include <linux/stddef.h>
#include <linux/types.h>
#else
#include <stddef.h>
#include <stdint.h>
#endif

#ifdef __cplusplus
#define BRIM_STATIC_ASSERT(condition) static_assert(condition)
#else
#define BRIM_STATIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif

/* One line of a layout: the field, its offset and its size, both in bytes. */
#define BRIM_LAYOUT(type, field, offset, size)                                                     \
    BRIM_STATIC_ASSERT(offsetof(type, field) == (offset) && sizeof(((type*)0)->field) == (size))

/* Records shared with 32-bit callers: no padding, at most 4-byte alignment. */
#define BRIM_RECORD __attribute__((packed, aligned(4)))
/* Headers found at any address of a frame. */
#define BRIM_WIRE __attribute__((packed))

/* An enumeration inside a record: four bytes, and any value is carried. */
#ifdef __cplusplus
#define BRIM_ENUM32 : uint32_t
#else
#define BRIM_ENUM32
#endif

/* World-wide name: byte 0 first, as printed and as carried on the wire. */
typedef union wwn_ {
    uint8_t str[8];
    struct {
        uint8_t high : 4; /* upper nibble of a registered name's vendor bits */
        uint8_t naa : 4;  /* network address authority */
        uint8_t ext;
        uint8_t mac[6];
    } ieee;
    uint64_t num; /* the eight bytes read in the processor's order */
} wwn_t;
BRIM_STATIC_ASSERT(sizeof(wwn_t) == 8);

/* FC address identifier; byte 0 is 0, bytes 1..3 are the 24-bit address. All zero: none assigned.
 */
typedef union fcid_ {
    uint8_t str[4];
    struct {
        uint8_t invalid;
        uint8_t domain;
        uint8_t area;
        uint8_t port;
    };
    uint32_t num; /* the four bytes read in the processor's order */
} fcid_t;
BRIM_STATIC_ASSERT(sizeof(fcid_t) == 4);

/* FF.FF.FF as a mask and as the broadcast address: the bytes 00 FF FF FF on a little-endian host.
 */
#define FCID_MASK_NUM 0xFFFFFF00u
#define FCID_BROADCAST_NUM 0xFFFFFF00u

typedef int32_t vsan_id_t;
#define VSAN_ID_MAX 4095

typedef uint32_t if_index_t;
typedef uint8_t if_index_type_t;

/* The platform's boolean, also inside records. */
typedef uint32_t bool32_t;

typedef uint32_t ip_addr_t; /* IPv4 address, network order */

typedef struct mac_ {
    uint8_t ether_addr_octet[6];
} mac_t;
BRIM_STATIC_ASSERT(sizeof(mac_t) == 6);
