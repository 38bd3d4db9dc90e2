// SPDX-License-Identifier: GPL-2.0-only
// What the module's files share: its globals, the record of an interface, the mapping table and the
// exchange state below it, and the operations between the files.
#pragma once

#include "brim/dbgtap_intf.h"
#include "brim/fc2_intf.h"
#include "brim/ipfc_intf.h"
#include "brim/mip_intf.h"

#include "kapi/chrdev.h"
#include "kapi/errno.h"
#include "kapi/netdevice.h"
#include "kapi/printk.h"
#include "kapi/proc_fs.h"
#include "kapi/slab.h"
#include "kapi/spinlock.h"
#include "kapi/string.h"

inline constexpr char IPFC_MODNAME[] = "ipfc";
inline constexpr char IPFC_MODDESC[] = "ipfc kernel debug";

inline constexpr int IPFC_NUM_VSANS = VSAN_ID_MAX + 1;
inline constexpr int IPFC_NUM_BUCKETS = 16;
// ARP hardware type "Fibre Channel" (IANA, number-hardware-types).
inline constexpr unsigned short IPFC_ARP_HARDWARE_TYPE = 18;

// ---- records ----

// One exchange opened towards a destination, from one of the own FCIDs.
struct fc2_exch_status_t {
    fcid_t source_fcid; // the key within its list
    std::int32_t fc2_handle;
    fc2_exch_status_t* next;
};

// One known remote port. Everything but the key changes under the interface's hash_lock.
struct kpn_to_fcid_t {
    wwn_t ww_portname;
    fcid_t dest_fcid;
    fc2_exch_status_t* fc2_exch; // its records' destination is dest_fcid
    kpn_to_fcid_t* next;
};

struct mib_counters_ {
    std::uint32_t ifInMulticastPkts;
    std::uint32_t ifInBroadcastPkts;
    std::uint32_t ifOutMulticastPkts;
    std::uint32_t ifOutBroadcastPkts;
    std::uint64_t ifHCInOctets;
    std::uint64_t ifHCInUcastPkts;
    std::uint64_t ifHCInMulticastPkts;
    std::uint64_t ifHCInBroadcastPkts;
    std::uint64_t ifHCOutOctets;
    std::uint64_t ifHCOutUcastPkts;
    std::uint64_t ifHCOutMulticastPkts;
    std::uint64_t ifHCOutBroadcastPkts;
    std::uint32_t ifInUnknownProtos;
};
using mib_counters_t = mib_counters_;

// The private area of an interface's device.
//
// hash_lock guards the mapping table and every exchange list below it, and nothing else: counters,
// fcid and names are plain fields that the data path reads unlocked. It is taken in the _bh forms,
// write for every change, and let go around each LOGO and each send.
// Order: hash_lock, then one of req_mapping_lock, skb_unk_lock or ivrip_list_lock.
struct kvsan_interface_priv_ {
    net_device_stats stats;
    vsan_id_t vsan_id;
    fcid_t fcid; // 0: none assigned
    wwn_t ww_portname;
    wwn_t ww_nodename;
    kpn_to_fcid_t* kwwpn_hash_table[IPFC_NUM_BUCKETS];
    rwlock_t hash_lock;
    ipfc_intf_adm_status_t intf_adm_status;
    std::int32_t num_sec_ip_addr;
    mib_counters_t mib_stats;
    net_device_stats last_stats; // of the last clear, as is last_mib_stats
    mib_counters_t last_mib_stats;
    inet_addr_t ip_addr;
};
using kvsan_interface_priv_t = kvsan_interface_priv_;

enum logo_req_t : std::uint32_t { SEND_LOGO = 0, DONT_SEND_LOGO = 1 };

// ---- globals (ipfc_mod.cpp) ----

extern "C" int major; // module parameter; the number in use once started

// Slots are set by creation and cleared by deletion under rtnl_lock; devices stay allocated until
// the module goes, so that a reader of a slot never holds freed memory.
extern net_device* vsan_interfaces[IPFC_NUM_VSANS];
extern std::int32_t kdbg_flags[IPFC_NUM_VSANS];

// Plain counters, changed without atomics: a lost count is accepted.
extern std::uint32_t ipfc_skbs_copied;
extern std::uint32_t ipfc_bytes_copied;
extern std::int32_t num_mapping_obj;
extern std::int32_t num_exch_obj;

extern kmem_cache* mapping_obj_cachep;
extern kmem_cache* exch_obj_cachep;
extern socket* ipfc_fc2_sock;
extern proc_dir_entry* ipfc_proc_root;
extern dbgtap_handle_t DBG_handle;
extern const char* const IPFC_dbg_descriptions[2];
extern const file_operations ipfc_fops;
extern const opt_func_t mip_callback;

// ---- debug messages ----

inline constexpr int IPFC_DBG_ERRORS = 100;
inline constexpr int IPFC_DBG_EVENTS = 101;

// To the element's history and to the kernel log, each only when it is on; the arguments are not
// evaluated otherwise.
#define IPFC_MESSAGE(element, format, ...)                                                         \
    do {                                                                                           \
        if (dbgtap_is_hist_enabled_for_dbgelem(DBG_handle, element))                               \
            dbgtap_log_hist_for_dbgelem(DBG_handle, element, format __VA_OPT__(, ) __VA_ARGS__);   \
        if (dbgtap_chk_nofilter(DBG_handle, element))                                              \
            printk("<7><{%s}>" format, dbgtap_getmodname(DBG_handle) __VA_OPT__(, ) __VA_ARGS__);  \
    } while (false)
#define IPFC_ERROR(format, ...) IPFC_MESSAGE(IPFC_DBG_ERRORS, format __VA_OPT__(, ) __VA_ARGS__)
#define IPFC_EVENT(format, ...) IPFC_MESSAGE(IPFC_DBG_EVENTS, format __VA_OPT__(, ) __VA_ARGS__)

// 20:00:00:0d:ab:cd:ef:01
struct wwn_text {
    char str[30] = {};
    explicit wwn_text(wwn_t wwn);
};

// 0x0a0b0c
struct fcid_text {
    char str[12] = {};
    explicit fcid_text(fcid_t fcid);
};

// The name as the 64-bit number that messages with "0x%llx" print.
inline unsigned long long wwn_number(wwn_t wwn)
{
    return wwn.num;
}

// ---- interface registry (ipfc_mod_intf.cpp) ----

// Numbers above 4095 are refused, negative ones among them.
inline bool vsan_id_valid(vsan_id_t vsan_id)
{
    return static_cast<std::uint32_t>(vsan_id) <= VSAN_ID_MAX;
}

inline kvsan_interface_priv_t* ipfc_priv(const net_device* dev)
{
    return static_cast<kvsan_interface_priv_t*>(netdev_priv(dev));
}

// Process context. 0 or a negative errno.
std::int32_t ipfc_create_vsan_interface(vsan_id_t vsan_id, wwn_t ww_portname, wwn_t ww_nodename);
std::int32_t ipfc_delete_vsan_interface(vsan_id_t vsan_id);
// The result of a refused N_Port registration is the FC-2 stack's.
std::int32_t ipfc_update_vsan_interface(vsan_id_t vsan_id, fcid_t fcid, if_index_t sifindex,
                                        upd_action_t action);
// Deletes every interface. Always 0.
std::int32_t ipfc_fast_clean_up();

// Registers an N_Port on which the stack accepts and sends for the module: 0 or the stack's error.
int ipfc_add_nport(vsan_id_t vsan_id, fcid_t fcid, if_index_t sifindex, wwn_t ww_portname,
                   wwn_t ww_nodename);
int ipfc_remove_nport(vsan_id_t vsan_id, fcid_t fcid);

// ---- network device (ipfc_dev.cpp, ipfc_dev_header.cpp, ipfc_dev_xmit.cpp) ----

extern const header_ops ipfc_header_ops;

net_device_stats* ipfc_dev_get_stats(net_device* dev);
int ipfc_dev_change_mtu(net_device* dev, int new_mtu);
int ipfc_dev_open(net_device* dev);
int ipfc_dev_stop(net_device* dev);
void ipfc_dev_destructor(net_device* dev);
void ipfc_dev_create_mac(net_device* dev, wwn_t ww_portname);
void ipfc_dev_update_mac(vsan_id_t vsan_id, fcid_t fcid);

// Room in front of a packet: the FC-2 stack's, less its trailer, and the module's headers.
inline int ipfc_header_room()
{
    return fc2_get_hdr_reserve() + IPFC_HEADERS_LEN - fc2_get_tlrlen();
}

// Network stack's transmit context. Pushes the link-layer headers; the positive result is not the
// pushed length, deliberately. -12 after a failed mapping allocation has freed the buffer, any
// other negative result has not.
int ipfc_dev_hard_header(sk_buff* skb, net_device* dev, unsigned short type, const void* dev_daddr,
                         const void* dev_saddr, unsigned int len);
int ipfc_dev_rebuild_header(sk_buff* skb);

// Network stack's transmit context. Always 0; the buffer is consumed.
int ipfc_dev_hard_start_xmit(sk_buff* in_skb, net_device* dev);

// Softirq context, once per information unit. Always 0.
int ipfc_data_ready(socket* sock, int nbytes);

// ---- port-name mapping table (ipfc_dev_mapping.cpp) ----

// Set around the resolver's delete: delete_pn_to_fcid_mapping then lets the lock go for the LOGOs.
extern bool32_t delete_from_user;

// The bucket of a port name: bytes 2..7 folded into four bits.
constexpr std::uint8_t hash_pn(wwn_t ww_portname)
{
    std::uint8_t folded = 0;
    for (int i = 2; i < 8; ++i)
        folded ^= ww_portname.str[i];
    return static_cast<std::uint8_t>((folded >> 4) ^ (folded & 0x0F));
}

// Compares bytes 2..7 only, unlike every other operation of the table; *target is the first match.
bool search_pn_to_fcid_mapping(kpn_to_fcid_t* const* table, wwn_t portname, kpn_to_fcid_t** target);
// The same without a message; null when there is none.
kpn_to_fcid_t* find_mapping_quietly(kpn_to_fcid_t* const* table, wwn_t portname);

// new_mapping is owned from here on. A present node takes its FCID, and the exchanges towards the
// old one are logged out with the lock let go meanwhile.
void add_pn_to_fcid_mapping(kpn_to_fcid_t** table, kpn_to_fcid_t* new_mapping, vsan_id_t vsan,
                            kvsan_interface_priv_t* vsan_data) KAPI_REQUIRES(vsan_data->hash_lock);
bool update_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, fcid_t fcid, vsan_id_t vsan,
                               kvsan_interface_priv_t* vsan_data)
    KAPI_REQUIRES(vsan_data->hash_lock);
// Under hash_lock. With delete_from_user set and the node found, the lock is gone on return.
bool delete_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, vsan_id_t vsan);
// The peer's own going: no LOGO is sent.
bool kernel_delete_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, vsan_id_t vsan);
void delete_exch_status_for_fcid(kpn_to_fcid_t** table, wwn_t portname, fcid_t fcid);
void clear_hash(kpn_to_fcid_t** table, vsan_id_t vsan, kvsan_interface_priv_t* vsan_data)
    KAPI_REQUIRES(vsan_data->hash_lock);

// Where a walk that let the lock go continues: at the node that came next before, unless another
// writer has removed it meanwhile; then at the bucket's beginning.
kpn_to_fcid_t* resume_walk(kpn_to_fcid_t* head, kpn_to_fcid_t* next);

// A zeroed node, which the caller counts; null when out of memory.
kpn_to_fcid_t* alloc_mapping(gfp_t flags);

// ---- exchange status list (ipfc_dev_exchange.cpp) ----

// Appends; the record's own next is the caller's. Always 0.
inline std::int32_t add_fc2_exch_status(fc2_exch_status_t** head, fc2_exch_status_t* new_exch)
{
    while (*head != nullptr)
        head = &(*head)->next;
    *head = new_exch;
    return 0;
}

inline fc2_exch_status_t* get_fc2_exch_status(fc2_exch_status_t* head, fcid_t source)
{
    while (head != nullptr && head->source_fcid.num != source.num)
        head = head->next;
    return head;
}

// Ends the first exchange of source; with SEND_LOGO the lock is let go around the LOGO. Always 0.
std::int32_t del_fc2_exch_status(fc2_exch_status_t** head, fcid_t source, vsan_id_t vsan,
                                 fcid_t d_id, logo_req_t logo, kvsan_interface_priv_t* vsan_data)
    KAPI_REQUIRES(vsan_data->hash_lock);
// End every exchange of a list that its node no longer holds: with a LOGO each, or without. The
// head is left as it is.
void clear_fc2_exch_status(fc2_exch_status_t** head, vsan_id_t vsan, fcid_t d_id);
void kernel_clear_fc2_exch_status(fc2_exch_status_t** head, vsan_id_t vsan, fcid_t d_id);
// Frees a detached list and tells nobody.
void free_fc2_exch_status(fc2_exch_status_t* head);
std::int32_t ipfc_kfc2_send_logo(vsan_id_t vsan, fcid_t s_id, fcid_t d_id);

// ---- control device (ipfc_char.cpp, ipfc_compat_mod.cpp) ----

struct poll_table;

ssize_t ipfc_chr_read(file* filp, char* buffer, std::size_t count, loff_t* position);
ssize_t ipfc_chr_write(file* filp, const char* buffer, std::size_t count, loff_t* position);
unsigned int ipfc_chr_poll(file* filp, poll_table* table);
int ipfc_chr_open(inode* node, file* filp);
int ipfc_chr_close(inode* node, file* filp);
int ipfc_chr_ioctl(inode* node, file* filp, unsigned int cmd, unsigned long arg);
// 32-bit callers: the records are the same, so nothing is translated.
long ipfc_compat_chr_ioctl(file* filp, unsigned int cmd, unsigned long arg);

// ---- user-space resolution (ipfc_char_resolve.cpp) ----

// Transmit context. Parks the packet, whole as transmission got it, and queues a request. 0: the
// packet is owned here; -11 (ten are parked) or -12: it stays the caller's.
int ipfc_chr_request_mapping(vsan_id_t vsan_id, wwn_t unk_portname, sk_buff* skb);
// Free what nobody has read or answered.
void clear_mapping_list();
void clear_skb_list();

// The resolver's answers and news. Process context. 0, a negative errno, or -1 when no packet
// waits.
std::int32_t user_add_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname, fcid_t fcid);
std::int32_t user_update_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname, fcid_t fcid);
std::int32_t user_delete_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname);
std::int32_t user_pn_not_found(vsan_id_t vsan_id, wwn_t ww_portname);

// ---- management (ipfc_dev_mgmt.cpp, ipfc_dev_mip.cpp) ----

// Process context, no lock. 0, -22 or -6; on a refusal nothing is changed or filled in.
std::int32_t ipfc_dev_get_intf_info(ipfc_get_intf_ioctl_t* intf_data);
std::int32_t ipfc_dev_intf_stats(ipfc_intf_stats_ioctl_t* intf_data);
std::int32_t ipfc_clear_stats(vsan_id_t vsan_id);
std::int32_t ipfc_set_ip(vsan_id_t vsan_id, inet_addr_t ip_addr);

// The secondary-IP service's context.
std::int32_t ipfc_mip_add_ip(mip_mapping_t* ip_map);
std::int32_t ipfc_mip_del_ip(mip_mapping_t* ip_map);

// ---- proc reports (ipfc_proc.cpp) ----

void proc_ipfc_stats_create();
void proc_ipfc_stats_remove();
// Null when no entry could be made.
proc_dir_entry* proc_ipfc_create(const char* name, mode_t mode, void* data);
void proc_ipfc_remove(const char* name);
int ipfc_read_stat(char* buf, char** start, off_t off, int length, int* eof, void* data);
int ipfc_read_proc(char* buf, char** start, off_t off, int length, int* eof, void* data);
