// SPDX-License-Identifier: GPL-2.0-only
// The table of IP hosts that are reached across VSANs.
#pragma once

#include "brim/ivrip_intf.h"

#include "kapi/list.h"
#include "kapi/spinlock.h"
#include "kapi/types.h"

// Both fcid and vsan are in network order, as the command carried them.
struct ivrip_entry_t {
    ip_addr_t ip_addr;
    wwn_t pwwn;
    fcid_t fcid;
    vsan_id_t vsan;
    list_head next;
};

// Guards the list; taken with interrupts off, inside an interface's hash_lock where both are held.
extern spinlock_t ivrip_list_lock;
extern list_head ivrip_list_head KAPI_GUARDED_BY(ivrip_list_lock);

// Process context. 0 or -12.
int ivrip_init();
void ivrip_cleanup();

// arg is the user-space address of an ivrip_ioctl_t. 0, -12, -14 or -25.
int ivrip_process_ioctl(unsigned int cmd, unsigned long arg);
int ivrip_add_entry(ip_addr_t ip_addr, wwn_t pwwn, fcid_t fcid, vsan_id_t vsan);
int ivrip_del_entry(fcid_t fcid, vsan_id_t vsan);
// The caller keeps the table within the record: one slot is filled per entry, whatever the count.
int ivrip_get_did_list(ivrip_fcid_list_t* list);
int ivrip_read_proc(char* buf, char** start, off_t off, int length, int* eof, void* data);
