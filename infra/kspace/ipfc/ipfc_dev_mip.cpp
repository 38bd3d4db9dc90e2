// SPDX-License-Identifier: GPL-2.0-only
// Secondary IP addresses: each is an N_Port of its own, registered and removed when the platform's
// service says so.

#include "ipfc.h"

constinit const opt_func_t mip_callback = {
    .opt_add_ip = ipfc_mip_add_ip,
    .opt_del_ip = ipfc_mip_del_ip,
    .opt_intf_type = 8,
};

namespace {

// The interface of an address, or null with the callback's result. A number beyond the table is a
// missing interface: the platform promises not to give one.
kvsan_interface_priv_t* find_interface(const mip_mapping_t* ip_map, vsan_id_t* vsan_id,
                                       std::int32_t* result)
{
    const int error = if_index_vsan_get_vsan(ip_map->ifindex, vsan_id);
    if (error != 0) {
        *result = -error;
        return nullptr;
    }
    net_device* dev = vsan_id_valid(*vsan_id) ? vsan_interfaces[*vsan_id] : nullptr;
    if (dev == nullptr) {
        IPFC_ERROR("VSAN Interface %d not exists\n", *vsan_id);
        *result = -EINVAL;
        return nullptr;
    }
    return ipfc_priv(dev);
}

// The port name of an address: 10 00 and its MAC.
wwn_t port_name(const mac_t& mac)
{
    wwn_t name = {.str = {0x10, 0x00}};
    memcpy(name.str + 2, mac.ether_addr_octet, sizeof mac.ether_addr_octet);
    return name;
}

// The mappings stay; only what the address has open goes.
void end_exchanges(kvsan_interface_priv_t* priv, vsan_id_t vsan_id, fcid_t source)
    KAPI_REQUIRES(priv->hash_lock)
{
    for (int bucket = 0; bucket < IPFC_NUM_BUCKETS; ++bucket) {
        for (kpn_to_fcid_t* mapping = priv->kwwpn_hash_table[bucket]; mapping != nullptr;) {
            kpn_to_fcid_t* next = mapping->next;
            del_fc2_exch_status(&mapping->fc2_exch, source, vsan_id, mapping->dest_fcid, SEND_LOGO,
                                priv);
            mapping = resume_walk(priv->kwwpn_hash_table[bucket], next);
        }
    }
}

} // namespace

// Only a registration that succeeded is counted.
std::int32_t ipfc_mip_add_ip(mip_mapping_t* ip_map)
{
    vsan_id_t vsan_id = 0;
    std::int32_t result = 0;
    kvsan_interface_priv_t* priv = find_interface(ip_map, &vsan_id, &result);
    if (priv == nullptr)
        return result;
    const fcid_t fcid = {.num = ip_map->add_data};
    result = ipfc_add_nport(vsan_id, fcid, ip_map->sifindex, port_name(ip_map->source_mac),
                            priv->ww_nodename);
    if (result == 0)
        ++priv->num_sec_ip_addr;
    return result;
}

// The count goes down before and whatever becomes of the N_Port, and may go negative, deliberately.
std::int32_t ipfc_mip_del_ip(mip_mapping_t* ip_map)
{
    vsan_id_t vsan_id = 0;
    std::int32_t result = 0;
    kvsan_interface_priv_t* priv = find_interface(ip_map, &vsan_id, &result);
    if (priv == nullptr)
        return result;
    --priv->num_sec_ip_addr;
    const fcid_t fcid = {.num = ip_map->add_data};
    if (ipfc_remove_nport(vsan_id, fcid) != 0)
        IPFC_ERROR("Failed to Unregister the N_port for VSAN %d\n", vsan_id);
    write_lock_bh(&priv->hash_lock);
    end_exchanges(priv, vsan_id, fcid);
    write_unlock_bh(&priv->hash_lock);
    return 0;
}
