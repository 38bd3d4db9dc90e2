// SPDX-License-Identifier: GPL-2.0-only
// The platform as a module of its own, over the link that its parameter names.
#include "kapi/module.h"

#include "platform/platform.h"

static int start()
{
    return brim_platform_start(brim_module_link());
}

module_init(start);
module_exit(brim_platform_stop);
