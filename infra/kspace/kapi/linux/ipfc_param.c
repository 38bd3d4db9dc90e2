// SPDX-License-Identifier: GPL-2.0-only
// What the loader wants to know of ipfc.ko.
#include <linux/module.h>
#include <linux/moduleparam.h>

extern int major;
module_param(major, int, 0444);
MODULE_PARM_DESC(major, "Major number for IPFC, use 0 (default) to auto-assign");

MODULE_DESCRIPTION("IP over Fibre Channel network interfaces");
MODULE_LICENSE("GPL");
