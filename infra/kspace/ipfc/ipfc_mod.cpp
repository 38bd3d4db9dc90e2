// SPDX-License-Identifier: GPL-2.0-only
// The module's start and end, and its globals.

#include "ipfc.h"
#include "ivr_ip.h"

#include "kapi/module.h"

int major = 0;

net_device* vsan_interfaces[IPFC_NUM_VSANS];
std::int32_t kdbg_flags[IPFC_NUM_VSANS];
std::uint32_t ipfc_skbs_copied = 0;
std::uint32_t ipfc_bytes_copied = 0;
std::int32_t num_mapping_obj = 0;
std::int32_t num_exch_obj = 0;
kmem_cache* mapping_obj_cachep = nullptr;
kmem_cache* exch_obj_cachep = nullptr;
socket* ipfc_fc2_sock = nullptr;
proc_dir_entry* ipfc_proc_root = nullptr;
dbgtap_handle_t DBG_handle = nullptr;

const char* const IPFC_dbg_descriptions[2] = {"errors", "events"};
static_assert(IPFC_DBG_ERRORS == DBGTAP_FIRST_ELEMENT && IPFC_DBG_EVENTS == IPFC_DBG_ERRORS + 1);

constinit const file_operations ipfc_fops = {
    .read = ipfc_chr_read,
    .write = ipfc_chr_write,
    .poll = ipfc_chr_poll,
    .ioctl = ipfc_chr_ioctl,
    .compat_ioctl = ipfc_compat_chr_ioctl,
    .open = ipfc_chr_open,
    .release = ipfc_chr_close,
};

namespace {

// The bind filter: every VSAN and source interface, FC-4 type IP, and three ethertypes where the
// LLC/SNAP header has its own, behind the network header.
void fill_bind_record(sockaddr_fc2* addr)
{
    static constexpr std::uint8_t ethertypes[] = {0x08, 0x00, 0x08, 0x06, 0x86, 0xDD};

    addr->sa_family = AF_FC2;
    addr->vsan = FC2_BIND_ANY_VSAN;
    addr->srcifindex = FC2_ANY_IFINDEX;
    addr->srcifmask = 0xFFFFFFFF;
    addr->d_id.num = FCID_BROADCAST_NUM;
    addr->d_idmask.num = FCID_MASK_NUM;
    addr->type = FC_TYPE_IP;
    addr->m_rule = 3;
    addr->m_size = 2;
    addr->nmatch = 3;
    addr->flags = 0x14;
    addr->m_offset = IPFC_NTW_HDR_LEN + offsetof(ipfc_llc_hdr_t, ethertype);
    memcpy(addr->m_values, ethertypes, sizeof ethertypes);
}

int register_device()
{
    const int result = register_chrdev(static_cast<unsigned int>(major), IPFC_MODNAME, &ipfc_fops);
    if (result < 0) {
        printk("<3>ipfc - Unable to get major number %d. Aborting\n", major);
        return result;
    }
    if (major == 0)
        major = result;
    return 0;
}

int create_caches()
{
    mapping_obj_cachep = kmem_cache_create("ipfc_mapping_cache", sizeof(kpn_to_fcid_t), 0,
                                           SLAB_HWCACHE_ALIGN, nullptr);
    if (mapping_obj_cachep == nullptr) {
        printk("<3>ipfc - Can not create the mapping cache\n");
        return -ENOMEM;
    }
    exch_obj_cachep = kmem_cache_create("exchange_cache", sizeof(fc2_exch_status_t), 0,
                                        SLAB_HWCACHE_ALIGN, nullptr);
    if (exch_obj_cachep == nullptr) {
        printk("<3>ipfc - Can not create the exchange cache\n");
        kmem_cache_destroy(mapping_obj_cachep);
        return -ENOMEM;
    }
    return 0;
}

void destroy_caches()
{
    kmem_cache_destroy(mapping_obj_cachep);
    kmem_cache_destroy(exch_obj_cachep);
}

int open_socket(sockaddr_fc2* addr)
{
    int result = kfc2_sock_create(0, &ipfc_fc2_sock, ipfc_data_ready);
    if (result != 0) {
        printk("<3>ipfc - Can not open the socket to FC2 stack\n");
        return result;
    }
    fill_bind_record(addr);
    result = kfc2_sock_bind(ipfc_fc2_sock, addr, sizeof *addr);
    if (result < 0) {
        printk("<3>ipfc - Socket bind failed\n");
        kfc2_sock_close(ipfc_fc2_sock);
        return result;
    }
    return 0;
}

void delete_all_interfaces()
{
    for (vsan_id_t vsan_id = 0; vsan_id < IPFC_NUM_VSANS; ++vsan_id) {
        if (vsan_interfaces[vsan_id] != nullptr)
            ipfc_delete_vsan_interface(vsan_id);
    }
}

// What a failure leaves behind is part of the interface: the device stays registered after every
// failure, and a late one leaves the socket, the secondary-IP callbacks, the proc entries and the
// debug registration too. The glue releases them when the module's memory goes.
int ipfc_init_module()
{
    sockaddr_fc2 addr = {};
    int result = register_device();
    if (result != 0)
        return result;
    result = create_caches();
    if (result != 0)
        return result;
    result = open_socket(&addr);
    if (result != 0) {
        destroy_caches();
        return result;
    }
    memset(kdbg_flags, 0, sizeof kdbg_flags);
    memset(vsan_interfaces, 0, sizeof vsan_interfaces);
    mip_register_opt(mip_callback);
    ipfc_proc_root = proc_mkdir(IPFC_MODNAME, proc_brim_sw);
    if (ipfc_proc_root == nullptr) {
        printk("<3>ipfc - Can not create the proc directory\n");
        destroy_caches();
        return -ENOMEM;
    }
    proc_ipfc_stats_create();
    DBG_handle = dbgtap_dbg_init(IPFC_MODNAME, IPFC_MODDESC, 2, IPFC_dbg_descriptions);
    result = ivrip_init();
    if (result != 0) {
        printk("<3>ipfc - Can not initialize the IVRIP list\n");
        destroy_caches();
        return result;
    }
    printk("<6>Vombrel Ipfc ver 0.02 started\n");
    return 0;
}

// The caches go before the socket is closed: nothing below may allocate from them, and no
// information unit finds an interface any more.
void ipfc_cleanup_module()
{
    delete_all_interfaces();
    unregister_chrdev(static_cast<unsigned int>(major), IPFC_MODNAME);
    destroy_caches();
    kfc2_sock_close(ipfc_fc2_sock);
    proc_ipfc_stats_remove();
    remove_proc_entry(IPFC_MODNAME, proc_brim_sw);
    clear_mapping_list();
    clear_skb_list();
    mip_unregister_opt();
    dbgtap_dbg_close(DBG_handle);
    ivrip_cleanup();
    // "0.02a" here and "0.02" at the start are both as they should be.
    printk("<6>Vombrel Ipfc ver 0.02a terminated\n");
}

} // namespace

std::int32_t ipfc_fast_clean_up()
{
    delete_all_interfaces();
    return 0;
}

module_init(ipfc_init_module);
module_exit(ipfc_cleanup_module);
