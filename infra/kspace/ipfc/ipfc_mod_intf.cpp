// SPDX-License-Identifier: GPL-2.0-only
// The registry of VSAN interfaces: one slot per VSAN, and each interface's N_Port.

#include "ipfc.h"

namespace {

constexpr ipfc_ll_addr_t broadcast_address = {
    .ww_portname = {.str = {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    .fcid = {.str = {0x00, 0xFF, 0xFF, 0xFF}},
};

void set_up_device(net_device* dev, vsan_id_t vsan_id)
{
    snprintf(dev->name, sizeof dev->name, "vsan%d", vsan_id);
    dev->get_stats = ipfc_dev_get_stats;
    dev->open = ipfc_dev_open;
    dev->stop = ipfc_dev_stop;
    dev->header_ops = &ipfc_header_ops;
    dev->hard_start_xmit = ipfc_dev_hard_start_xmit;
    dev->change_mtu = ipfc_dev_change_mtu;
    dev->flags = IFF_BROADCAST;
    dev->mtu = 1500;
    dev->type = IPFC_ARP_HARDWARE_TYPE;
    dev->hard_header_len = static_cast<unsigned short>(ipfc_header_room());
    // ipfc_dev_destructor is not installed, deliberately: a deleted device is not freed here.
}

void set_up_private_area(kvsan_interface_priv_t* priv, vsan_id_t vsan_id, wwn_t ww_portname,
                         wwn_t ww_nodename)
{
    memset(priv, 0, sizeof *priv);
    priv->vsan_id = vsan_id;
    priv->ww_portname = ww_portname;
    priv->ww_nodename = ww_nodename;
    rwlock_init(&priv->hash_lock);
}

void create_report(net_device* dev)
{
    if (proc_ipfc_create(dev->name, 0, dev) != nullptr)
        IPFC_EVENT("%s created proc entry for device: %s \n", "ipfc_create_vsan_interface",
                   dev->name);
    else
        IPFC_ERROR("%s couldn't proc entry for device: %s \n", "ipfc_create_vsan_interface",
                   dev->name);
}

// Empties the slot under rtnl_lock; null when somebody else was faster.
net_device* take_interface(vsan_id_t vsan_id)
{
    rtnl_lock();
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev != nullptr) {
        proc_ipfc_remove(dev->name);
        vsan_interfaces[vsan_id] = nullptr;
    }
    rtnl_unlock();
    return dev;
}

void clear_mappings(kvsan_interface_priv_t* priv)
{
    write_lock_bh(&priv->hash_lock);
    clear_hash(priv->kwwpn_hash_table, priv->vsan_id, priv);
    write_unlock_bh(&priv->hash_lock);
}

bool has_mappings(kvsan_interface_priv_t* priv)
{
    for (const kpn_to_fcid_t* head : priv->kwwpn_hash_table) {
        if (head != nullptr)
            return true;
    }
    return false;
}

// A sender that was under way while the table was cleared may have entered a mapping since.
void clear_late_mappings(kvsan_interface_priv_t* priv)
{
    if (has_mappings(priv))
        clear_mappings(priv);
}

std::int32_t set_fcid(vsan_id_t vsan_id, kvsan_interface_priv_t* priv, fcid_t fcid,
                      if_index_t sifindex)
{
    priv->fcid = fcid;
    ipfc_dev_update_mac(vsan_id, fcid);
    const int result =
        ipfc_add_nport(vsan_id, fcid, sifindex, priv->ww_portname, priv->ww_nodename);
    if (result != 0) {
        // The FCID stays set all the same.
        IPFC_ERROR("Failed to register te N_port for VSAN %d\n", vsan_id);
        IPFC_ERROR("error number %d\n", result);
    }
    return result;
}

// The hardware address keeps the old FCID, deliberately: only set_fcid writes it.
void remove_fcid(vsan_id_t vsan_id, kvsan_interface_priv_t* priv)
{
    if (ipfc_remove_nport(vsan_id, priv->fcid) != 0)
        IPFC_ERROR("Remove fcid - Failed to Unregister the N_port for VSAN %d\n", vsan_id);
    priv->fcid.num = 0;
    clear_mappings(priv);
}

} // namespace

int ipfc_add_nport(vsan_id_t vsan_id, fcid_t fcid, if_index_t sifindex, wwn_t ww_portname,
                   wwn_t ww_nodename)
{
    fc2_opt_nport_t nport = {};
    nport.flags = FC2_NPORT_ADD_FLAGS;
    nport.vsan = static_cast<std::uint16_t>(vsan_id);
    nport.d_id = fcid;
    nport.d_idmask = FCID_MASK_NUM;
    nport.ifindex = sifindex;
    fc2_default_plogi(&nport.plogi);
    nport.plogi.common.common_features |= FC2_COMMON_FEATURE_IPFC;
    nport.plogi.nport_wwn = ww_portname;
    nport.plogi.node_wwn = ww_nodename;
    return kfc2_setsockopt(ipfc_fc2_sock, SOL_FC2, FC2_OPT_ADD_NPORT, &nport, sizeof nport);
}

int ipfc_remove_nport(vsan_id_t vsan_id, fcid_t fcid)
{
    fc2_opt_nport_t nport = {};
    nport.vsan = static_cast<std::uint16_t>(vsan_id);
    nport.d_id = fcid;
    nport.d_idmask = FCID_MASK_NUM;
    return kfc2_setsockopt(ipfc_fc2_sock, SOL_FC2, FC2_OPT_RM_NPORT, &nport, sizeof nport);
}

std::int32_t ipfc_create_vsan_interface(vsan_id_t vsan_id, wwn_t ww_portname, wwn_t ww_nodename)
{
    IPFC_EVENT("creating VSAN interface %d\n", vsan_id);
    if (!vsan_id_valid(vsan_id)) {
        IPFC_ERROR("VSAN number not valid\n");
        return -EINVAL;
    }
    if (vsan_interfaces[vsan_id] != nullptr) {
        IPFC_EVENT("VSAN interface %d already present\n", vsan_id);
        return 0;
    }
    net_device* dev = alloc_etherdev_mq(sizeof(kvsan_interface_priv_t), 1);
    if (dev == nullptr) {
        IPFC_ERROR("No memory for new device\n");
        return -ENOMEM;
    }
    set_up_device(dev, vsan_id);
    set_up_private_area(ipfc_priv(dev), vsan_id, ww_portname, ww_nodename);
    dev->addr_len = IPFC_LL_ADDR_LEN;
    memcpy(dev->broadcast, &broadcast_address, sizeof broadcast_address);
    ipfc_dev_create_mac(dev, ww_portname);
    vsan_interfaces[vsan_id] = dev;
    create_report(dev);

    rtnl_lock();
    // The result is not examined, deliberately: a refused interface keeps its slot until deleted.
    (void)register_netdevice(dev);
    rtnl_unlock();
    IPFC_EVENT("VSAN interface%d created\n", vsan_id);
    return 0;
}

std::int32_t ipfc_delete_vsan_interface(vsan_id_t vsan_id)
{
    if (!vsan_id_valid(vsan_id)) {
        IPFC_ERROR("VSAN number not valid\n");
        return -EINVAL;
    }
    if (vsan_interfaces[vsan_id] == nullptr) {
        IPFC_ERROR("VSAN interface %d not active\n", vsan_id);
        return 0;
    }
    IPFC_EVENT("%s: Removing ALL secondary IPFC interfaces on VSAN %d\n",
               "ipfc_delete_vsan_interface", vsan_id);
    IPFC_EVENT("Removing interface %d\n", vsan_id);
    net_device* dev = take_interface(vsan_id);
    if (dev == nullptr)
        return 0;

    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    clear_mappings(priv);
    if (priv->fcid.num != 0 && ipfc_remove_nport(vsan_id, priv->fcid) != 0)
        IPFC_ERROR("Delete intf - Failed to unregister the N_port for VSAN %d\n", vsan_id);
    rtnl_lock();
    unregister_netdevice(dev);
    rtnl_unlock();
    clear_late_mappings(priv);
    return 0;
}

std::int32_t ipfc_update_vsan_interface(vsan_id_t vsan_id, fcid_t fcid, if_index_t sifindex,
                                        upd_action_t action)
{
    IPFC_EVENT("Updating VSAN Interface %d\n", vsan_id);
    if (!vsan_id_valid(vsan_id)) {
        IPFC_ERROR("VSAN number not valid\n");
        return -EINVAL;
    }
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        IPFC_ERROR("VSAN Interface %d not exists\n", vsan_id);
        return -EINVAL;
    }
    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    switch (action) {
    case IPFC_UPD_INTF_SET_FCID:
        return set_fcid(vsan_id, priv, fcid, sifindex);
    case IPFC_UPD_INTF_REM_FCID:
        remove_fcid(vsan_id, priv);
        return 0;
    case IPFC_UPD_INTF_SET_ADM_UP:
        priv->intf_adm_status = IPFC_INTF_ADMIN_UP;
        return 0;
    case IPFC_UPD_INTF_SET_ADM_DOWN:
        priv->intf_adm_status = IPFC_INTF_ADMIN_DOWN;
        return 0;
    }
    return 0;
}
