// SPDX-License-Identifier: GPL-2.0-only
// The port-name mapping table: 16 chains from WWPN to FCID, guarded by the interface's hash_lock.
// A node that changes its FCID or leaves has its exchanges ended: with LOGOs when the change comes
// from this side or from the resolver, without when the peer has logged out.

#include "ipfc.h"

bool32_t delete_from_user = 0;

namespace {

// Where the node with the whole name hangs: the bucket's head or its predecessor's next. What it
// points at is null when the name is not in the table.
kpn_to_fcid_t** find_link(kpn_to_fcid_t** table, wwn_t portname)
{
    kpn_to_fcid_t** link = &table[hash_pn(portname)];
    while (*link != nullptr && (*link)->ww_portname.num != portname.num)
        link = &(*link)->next;
    return link;
}

void free_mapping(kpn_to_fcid_t* mapping)
{
    kmem_cache_free(mapping_obj_cachep, mapping);
    --num_mapping_obj;
}

fc2_exch_status_t* detach_exchanges(kpn_to_fcid_t* mapping)
{
    fc2_exch_status_t* exchanges = mapping->fc2_exch;
    mapping->fc2_exch = nullptr;
    return exchanges;
}

// The node is not touched once the lock is let go: it may be freed meanwhile.
void move_to_fcid(kpn_to_fcid_t* mapping, fcid_t fcid, vsan_id_t vsan,
                  kvsan_interface_priv_t* vsan_data) KAPI_REQUIRES(vsan_data->hash_lock)
{
    fc2_exch_status_t* exchanges = detach_exchanges(mapping);
    const fcid_t old_fcid = mapping->dest_fcid;
    mapping->dest_fcid = fcid;

    write_unlock_bh(&vsan_data->hash_lock);
    clear_fc2_exch_status(&exchanges, vsan, old_fcid);
    write_lock_bh(&vsan_data->hash_lock);
}

struct removed_mapping {
    bool found;
    fcid_t dest_fcid;
    fc2_exch_status_t* exchanges;
};

removed_mapping remove_mapping(kpn_to_fcid_t** table, wwn_t portname)
{
    kpn_to_fcid_t** link = find_link(table, portname);
    kpn_to_fcid_t* mapping = *link;
    if (mapping == nullptr)
        return {};
    *link = mapping->next;
    const removed_mapping removed{true, mapping->dest_fcid, detach_exchanges(mapping)};
    free_mapping(mapping);
    return removed;
}

} // namespace

kpn_to_fcid_t* alloc_mapping(gfp_t flags)
{
    auto* mapping = static_cast<kpn_to_fcid_t*>(kmem_cache_alloc(mapping_obj_cachep, flags));
    if (mapping == nullptr)
        return nullptr;
    memset(mapping, 0, sizeof *mapping);
    return mapping;
}

kpn_to_fcid_t* find_mapping_quietly(kpn_to_fcid_t* const* table, wwn_t portname)
{
    kpn_to_fcid_t* mapping = table[hash_pn(portname)];
    while (mapping != nullptr && memcmp(mapping->ww_portname.str + 2, portname.str + 2, 6) != 0)
        mapping = mapping->next;
    return mapping;
}

// Bytes 0 and 1 are not compared, deliberately: a packet's network header always carries 10 00
// there. Two nodes that differ only in them are one port to this lookup.
bool search_pn_to_fcid_mapping(kpn_to_fcid_t* const* table, wwn_t portname, kpn_to_fcid_t** target)
{
    IPFC_EVENT("WWPN->FCID query WWPN = %s\n", wwn_text(portname).str);
    kpn_to_fcid_t* mapping = find_mapping_quietly(table, portname);
    if (mapping == nullptr) {
        IPFC_EVENT("Mapping not found\n");
        return false;
    }
    *target = mapping;
    IPFC_EVENT("Mapping found FCID = %s\n", fcid_text(mapping->dest_fcid).str);
    return true;
}

void add_pn_to_fcid_mapping(kpn_to_fcid_t** table, kpn_to_fcid_t* new_mapping, vsan_id_t vsan,
                            kvsan_interface_priv_t* vsan_data)
{
    new_mapping->fc2_exch = nullptr;
    kpn_to_fcid_t** bucket = &table[hash_pn(new_mapping->ww_portname)];
    if (*bucket == nullptr) {
        *bucket = new_mapping;
        return;
    }

    kpn_to_fcid_t** link = find_link(table, new_mapping->ww_portname);
    if (*link == nullptr) {
        IPFC_EVENT("Hash collision for WW_PN = %s\n", wwn_text(new_mapping->ww_portname).str);
        *link = new_mapping;
        return;
    }
    if ((*link)->dest_fcid.num != new_mapping->dest_fcid.num)
        move_to_fcid(*link, new_mapping->dest_fcid, vsan, vsan_data);
    free_mapping(new_mapping);
}

bool update_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, fcid_t fcid, vsan_id_t vsan,
                               kvsan_interface_priv_t* vsan_data)
{
    kpn_to_fcid_t* mapping = *find_link(table, portname);
    if (mapping == nullptr)
        return false;
    if (mapping->dest_fcid.num != fcid.num)
        move_to_fcid(mapping, fcid, vsan, vsan_data);
    return true;
}

// The interface whose lock is let go is the slot's, not an argument's. A delete that finds nothing
// leaves delete_from_user set, deliberately: the only caller sets it before each call.
bool delete_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, vsan_id_t vsan) KAPI_NO_TSA
{
    removed_mapping removed = remove_mapping(table, portname);
    if (!removed.found)
        return false;
    if (delete_from_user) {
        delete_from_user = 0;
        write_unlock_bh(&ipfc_priv(vsan_interfaces[vsan])->hash_lock);
    }
    clear_fc2_exch_status(&removed.exchanges, vsan, removed.dest_fcid);
    return true;
}

bool kernel_delete_pn_to_fcid_mapping(kpn_to_fcid_t** table, wwn_t portname, vsan_id_t vsan)
{
    removed_mapping removed = remove_mapping(table, portname);
    if (removed.found)
        kernel_clear_fc2_exch_status(&removed.exchanges, vsan, removed.dest_fcid);
    return removed.found;
}

void delete_exch_status_for_fcid(kpn_to_fcid_t** table, wwn_t portname, fcid_t fcid)
{
    kpn_to_fcid_t* mapping = *find_link(table, portname);
    if (mapping == nullptr)
        return;
    fc2_exch_status_t** link = &mapping->fc2_exch;
    while (*link != nullptr && (*link)->source_fcid.num != fcid.num)
        link = &(*link)->next;
    fc2_exch_status_t* exchange = *link;
    if (exchange == nullptr)
        return;
    *link = exchange->next;
    // num_exch_obj is not lowered here, deliberately: after a peer's LOGO it counts one too many.
    kmem_cache_free(exch_obj_cachep, exchange);
}

kpn_to_fcid_t* resume_walk(kpn_to_fcid_t* head, kpn_to_fcid_t* next)
{
    kpn_to_fcid_t* mapping = head;
    while (mapping != nullptr && mapping != next)
        mapping = mapping->next;
    return mapping != nullptr || next == nullptr ? mapping : head;
}

void clear_hash(kpn_to_fcid_t** table, vsan_id_t vsan, kvsan_interface_priv_t* vsan_data)
{
    for (int bucket = 0; bucket < IPFC_NUM_BUCKETS; ++bucket) {
        for (kpn_to_fcid_t* mapping = table[bucket]; mapping != nullptr;) {
            kpn_to_fcid_t* next = mapping->next;
            fc2_exch_status_t* exchanges = detach_exchanges(mapping);
            const fcid_t dest_fcid = mapping->dest_fcid;

            write_unlock_bh(&vsan_data->hash_lock);
            clear_fc2_exch_status(&exchanges, vsan, dest_fcid);
            write_lock_bh(&vsan_data->hash_lock);
            mapping = resume_walk(table[bucket], next);
        }
    }
    for (int bucket = 0; bucket < IPFC_NUM_BUCKETS; ++bucket) {
        for (kpn_to_fcid_t* mapping = table[bucket]; mapping != nullptr;) {
            kpn_to_fcid_t* next = mapping->next;
            free_fc2_exch_status(mapping->fc2_exch); // opened while the lock was free
            free_mapping(mapping);
            mapping = next;
        }
        table[bucket] = nullptr;
    }
}
