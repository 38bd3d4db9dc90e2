// SPDX-License-Identifier: GPL-2.0-only
// What other modules find here, and what the loader wants to know.
#include <linux/module.h>

#include "brim/dbgtap_intf.h"
#include "brim/fc2_intf.h"
#include "brim/mip_intf.h"

EXPORT_SYMBOL(kfc2_sock_create);
EXPORT_SYMBOL(kfc2_sock_bind);
EXPORT_SYMBOL(kfc2_setsockopt);
EXPORT_SYMBOL(kfc2_recvskb);
EXPORT_SYMBOL(kfc2_sendskb);
EXPORT_SYMBOL(kfc2_send_logo);
EXPORT_SYMBOL(kfc2_sock_close);
EXPORT_SYMBOL(fc2_default_plogi);
EXPORT_SYMBOL(fc2_get_hdr_reserve);
EXPORT_SYMBOL(fc2_get_tlrlen);
EXPORT_SYMBOL(if_index_vsan_get_vsan);

EXPORT_SYMBOL(dbgtap_dbg_init);
EXPORT_SYMBOL(dbgtap_dbg_close);
EXPORT_SYMBOL(dbgtap_is_hist_enabled_for_dbgelem);
EXPORT_SYMBOL(dbgtap_log_hist_for_dbgelem);
EXPORT_SYMBOL(dbgtap_chk_nofilter);
EXPORT_SYMBOL(dbgtap_getmodname);

EXPORT_SYMBOL(mip_register_opt);
EXPORT_SYMBOL(mip_unregister_opt);
EXPORT_SYMBOL(mip_lookup);

MODULE_DESCRIPTION("FC-2 stack and services of a Fibre Channel switch, over an Ethernet link");
MODULE_LICENSE("GPL");
