/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Interface indices of the platform: the interface's type in the upper 8 bits, its number within
 * the type below. A VSAN interface is of type 8 and numbered by its VSAN.
 */
#pragma once

#include "types.h"

#define IF_INDEX_TYPE_VSAN 8u
#define IF_INDEX_TYPE(ifindex) ((if_index_type_t)((ifindex) >> 24))
#define IF_INDEX_NUMBER(ifindex) ((ifindex)&0xFFFFFFu)

static inline if_index_t if_index_of_vsan(vsan_id_t vsan)
{
    return (IF_INDEX_TYPE_VSAN << 24) | (uint32_t)vsan;
}

static inline int if_index_is_vsan(if_index_t ifindex)
{
    return IF_INDEX_TYPE(ifindex) == IF_INDEX_TYPE_VSAN && IF_INDEX_NUMBER(ifindex) <= VSAN_ID_MAX;
}

/* Of an index for which the check above holds. */
static inline vsan_id_t if_index_vsan(if_index_t ifindex)
{
    return (vsan_id_t)IF_INDEX_NUMBER(ifindex);
}
