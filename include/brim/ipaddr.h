/* SPDX-License-Identifier: GPL-2.0-only */
/* An address of either IP version. */
#pragma once

#include "types.h"

typedef enum inet_addr_type_ BRIM_ENUM32 {
    INET_ADDR_TYPE_UNKNOWN = 0,
    INET_ADDR_TYPE_IPV4 = 1,
    INET_ADDR_TYPE_IPV6 = 2,
} inet_addr_type_t;

/* The same bytes as in_addr and in6_addr, which a kernel's and a C library's headers both claim. */
typedef struct brim_in_addr_ {
    uint32_t s_addr; /* network order */
} brim_in_addr_t;

typedef struct brim_in6_addr_ {
    uint8_t s6_addr[16];
} brim_in6_addr_t;

typedef struct inet_addr_ {
    inet_addr_type_t addr_type;
    union {
        brim_in_addr_t ipv4_addr;
        brim_in6_addr_t ipv6_addr;
    } a;
} inet_addr_t;
BRIM_STATIC_ASSERT(sizeof(inet_addr_t) == 20);
BRIM_LAYOUT(inet_addr_t, addr_type, 0, 4);
BRIM_LAYOUT(inet_addr_t, a, 4, 16);
BRIM_LAYOUT(inet_addr_t, a.ipv4_addr, 4, 4);
BRIM_LAYOUT(inet_addr_t, a.ipv6_addr, 4, 16);
