// SPDX-License-Identifier: GPL-2.0-only
// Start and end of the platform as a whole.
#include "platform/platform.h"

#include "platform/fc2/fc2_stack.h"

static int start_fc2(brim_link* link)
{
    fc2_stack* stack = fc2_stack_create(link);
    if (stack == nullptr)
        return -ENOMEM;
    int result = fc2_proc_start(stack);
    if (result != 0)
        goto destroy;
    result = fc2_names_proc_start(stack);
    if (result != 0)
        goto stop_proc;
    result = brim_link_attach(link, stack);
    if (result != 0)
        goto stop_names_proc;
    fc2_current = stack;
    return 0;

stop_names_proc:
    fc2_names_proc_stop();
stop_proc:
    fc2_proc_stop();
destroy:
    fc2_stack_destroy(stack);
    return result;
}

int brim_platform_start(brim_link* link)
{
    int result = brim_proc_start();
    if (result != 0)
        return result;
    result = dbgtap_start();
    if (result != 0)
        goto stop_proc;
    result = mip_start();
    if (result != 0)
        goto stop_dbgtap;
    result = start_fc2(link);
    if (result != 0)
        goto stop_mip;
    return 0;

stop_mip:
    mip_stop();
stop_dbgtap:
    dbgtap_stop();
stop_proc:
    brim_proc_stop();
    return result;
}

void brim_platform_stop()
{
    fc2_stack* stack = fc2_current;
    fc2_current = nullptr;
    brim_link_detach(stack->link);
    fc2_names_proc_stop();
    fc2_proc_stop();
    fc2_stack_destroy(stack);
    mip_stop();
    dbgtap_stop();
    brim_proc_stop();
}
