// SPDX-License-Identifier: GPL-2.0-only
// What ipfc.ko holds of the platform's. A start-up that fails half-way leaves its registrations in
// place, with pointers into a module whose memory is about to go; so the link of ipfc.ko sends
// these calls through here (--wrap), and what is still held at the end is given back.
#include <linux/linkage.h>

#include "brim/dbgtap_intf.h"
#include "brim/fc2_intf.h"
#include "brim/mip_intf.h"
#include "kapi/linux/kapi_glue.h"

int __real_kfc2_sock_create(int arg, struct socket** sock, fc2_data_ready_t data_ready);
void __real_kfc2_sock_close(struct socket* sock);
int __real_mip_register_opt(opt_func_t callbacks);
void __real_mip_unregister_opt(void);
dbgtap_handle_t __real_dbgtap_dbg_init(const char* modname, const char* moddesc, int num_elements,
                                       const char* const* descriptions);
void __real_dbgtap_dbg_close(dbgtap_handle_t handle);

int __wrap_kfc2_sock_create(int arg, struct socket** sock, fc2_data_ready_t data_ready);
void __wrap_kfc2_sock_close(struct socket* sock);
int __wrap_mip_register_opt(opt_func_t callbacks);
void __wrap_mip_unregister_opt(void);
dbgtap_handle_t __wrap_dbgtap_dbg_init(const char* modname, const char* moddesc, int num_elements,
                                       const char* const* descriptions);
void __wrap_dbgtap_dbg_close(dbgtap_handle_t handle);

// One of each; start-up and shutdown are the only callers.
static struct socket* held_socket;
static bool held_callbacks;
static dbgtap_handle_t held_debug;

int __wrap_kfc2_sock_create(int arg, struct socket** sock, fc2_data_ready_t data_ready)
{
    int result = __real_kfc2_sock_create(arg, sock, data_ready);

    if (result == 0)
        held_socket = *sock;
    return result;
}

void __wrap_kfc2_sock_close(struct socket* sock)
{
    held_socket = NULL;
    __real_kfc2_sock_close(sock);
}

int __wrap_mip_register_opt(opt_func_t callbacks)
{
    int result = __real_mip_register_opt(callbacks);

    if (result == 0)
        held_callbacks = true;
    return result;
}

void __wrap_mip_unregister_opt(void)
{
    held_callbacks = false;
    __real_mip_unregister_opt();
}

dbgtap_handle_t __wrap_dbgtap_dbg_init(const char* modname, const char* moddesc, int num_elements,
                                       const char* const* descriptions)
{
    held_debug = __real_dbgtap_dbg_init(modname, moddesc, num_elements, descriptions);
    return held_debug;
}

void __wrap_dbgtap_dbg_close(dbgtap_handle_t handle)
{
    held_debug = NULL;
    __real_dbgtap_dbg_close(handle);
}

void kapi_platform_release(void)
{
    if (held_socket)
        __wrap_kfc2_sock_close(held_socket);
    if (held_callbacks)
        __wrap_mip_unregister_opt();
    if (held_debug)
        __wrap_dbgtap_dbg_close(held_debug);
}
