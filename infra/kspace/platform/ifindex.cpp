// SPDX-License-Identifier: GPL-2.0-only
// Interface indices of the platform.
#include "brim/ifindex.h"

#include "brim/fc2_intf.h"

#include "kapi/errno.h"

// The error number is positive: callers negate it.
int if_index_vsan_get_vsan(if_index_t ifindex, vsan_id_t* vsan)
{
    if (!if_index_is_vsan(ifindex))
        return EINVAL;
    *vsan = if_index_vsan(ifindex);
    return 0;
}
