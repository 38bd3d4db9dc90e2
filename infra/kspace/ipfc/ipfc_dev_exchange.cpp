// SPDX-License-Identifier: GPL-2.0-only
// Exchange status lists: which own FCIDs have an exchange open towards a destination. Guarded by
// the hash_lock of the interface whose table holds the owning node.

#include "ipfc.h"

namespace {

void free_exchange(fc2_exch_status_t* exchange)
{
    kmem_cache_free(exch_obj_cachep, exchange);
    --num_exch_obj;
}

} // namespace

std::int32_t del_fc2_exch_status(fc2_exch_status_t** head, fcid_t source, vsan_id_t vsan,
                                 fcid_t d_id, logo_req_t logo, kvsan_interface_priv_t* vsan_data)
{
    while (*head != nullptr && (*head)->source_fcid.num != source.num)
        head = &(*head)->next;
    fc2_exch_status_t* exchange = *head;
    if (exchange == nullptr)
        return 0;
    *head = exchange->next;

    if (logo == SEND_LOGO) {
        write_unlock_bh(&vsan_data->hash_lock);
        ipfc_kfc2_send_logo(vsan, source, d_id);
        write_lock_bh(&vsan_data->hash_lock);
    }
    free_exchange(exchange);
    return 0;
}

void clear_fc2_exch_status(fc2_exch_status_t** head, vsan_id_t vsan, fcid_t d_id)
{
    IPFC_EVENT("clear fc2 exch-status for VSAN Intf %d dst fcid 0x%x \n", vsan, d_id.num);
    for (fc2_exch_status_t* exchange = *head; exchange != nullptr;) {
        fc2_exch_status_t* next = exchange->next;
        ipfc_kfc2_send_logo(vsan, exchange->source_fcid, d_id);
        free_exchange(exchange);
        exchange = next;
    }
}

void kernel_clear_fc2_exch_status(fc2_exch_status_t** head, vsan_id_t vsan, fcid_t d_id)
{
    IPFC_EVENT("clear fc2 exch-status for VSAN Intf %d dst fcid 0x%x \n", vsan, d_id.num);
    free_fc2_exch_status(*head);
}

void free_fc2_exch_status(fc2_exch_status_t* head)
{
    while (head != nullptr) {
        fc2_exch_status_t* next = head->next;
        free_exchange(head);
        head = next;
    }
}

std::int32_t ipfc_kfc2_send_logo(vsan_id_t vsan, fcid_t s_id, fcid_t d_id)
{
    IPFC_EVENT("fc2 send logo for VSAN Interface %d s_id 0x%x d_id 0x%x \n", vsan, s_id.num,
               d_id.num);
    return kfc2_send_logo(ipfc_fc2_sock, static_cast<std::uint16_t>(vsan), s_id, d_id, 3, 20, 0,
                          0xFFFFFFFF);
}
