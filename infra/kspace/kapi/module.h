// SPDX-License-Identifier: GPL-2.0-only
// A module's start and end, called by the glue in process context.
#pragma once

#include "compiler.h"

extern "C" {
// 0, or a negative error number: the module does not stay then, and kapi_module_exit is not called.
int kapi_module_init();
void kapi_module_exit();
}

#define module_init(function)                                                                      \
    int kapi_module_init()                                                                         \
    {                                                                                              \
        return function();                                                                         \
    }
#define module_exit(function)                                                                      \
    void kapi_module_exit()                                                                        \
    {                                                                                              \
        function();                                                                                \
    }
