// SPDX-License-Identifier: GPL-2.0-only
// Resolution in user space: packets for unknown ports are parked, requests are read from the
// control device, and the resolver's commands answer them.
//
// The requests and the packets are two independent lists, each under its own lock, never held
// together: a request goes when it is read, a packet when it is answered or the module goes.

#include "ipfc.h"

#include "kapi/list.h"
#include "kapi/uaccess.h"
#include "kapi/wait.h"

namespace {

constexpr int MAX_PARKED = 10;

struct mapping_list_entry_t {
    req_mapping_t unk_mapping;
    list_head list;
};

struct skb_list_entry_t {
    sk_buff* skb;
    vsan_id_t vsan_id;
    wwn_t ww_portname;
    list_head list;
};

DEFINE_SPINLOCK(req_mapping_lock);
LIST_HEAD(req_mapping_list); // oldest first, under req_mapping_lock

DEFINE_SPINLOCK(skb_unk_lock);
LIST_HEAD(skb_unk_list); // oldest first, under skb_unk_lock

DECLARE_WAIT_QUEUE_HEAD(ipfc_read_wait);

} // namespace

// Entries of skb_unk_list; changed under skb_unk_lock, read without it for the limit.
constinit std::int32_t skb_list_lenght = 0;

namespace {

void change_parked(int by)
{
    __atomic_store_n(&skb_list_lenght, skb_list_lenght + by, __ATOMIC_RELAXED);
}

template <typename entry_t>
entry_t* alloc_entry()
{
    auto* entry = static_cast<entry_t*>(kmalloc(sizeof(entry_t), GFP_ATOMIC));
    if (entry == nullptr)
        IPFC_ERROR("Cannot allocate mapping request struct - No memory\n");
    return entry;
}

void queue_request(mapping_list_entry_t* entry)
{
    unsigned long flags;
    spin_lock_irqsave(&req_mapping_lock, flags);
    list_add_tail(&entry->list, &req_mapping_list);
    spin_unlock_irqrestore(&req_mapping_lock, flags);
}

void park_packet(skb_list_entry_t* entry)
{
    unsigned long flags;
    spin_lock_irqsave(&skb_unk_lock, flags);
    list_add_tail(&entry->list, &skb_unk_list);
    change_parked(+1);
    spin_unlock_irqrestore(&skb_unk_lock, flags);
}

// The oldest request, or null.
mapping_list_entry_t* take_request()
{
    mapping_list_entry_t* entry = nullptr;
    unsigned long flags;
    spin_lock_irqsave(&req_mapping_lock, flags);
    if (!list_empty(&req_mapping_list)) {
        entry = list_entry(req_mapping_list.next, mapping_list_entry_t, list);
        list_del_init(&entry->list);
    }
    spin_unlock_irqrestore(&req_mapping_lock, flags);
    return entry;
}

// The oldest packet that waits for the port, or null.
skb_list_entry_t* take_packet(vsan_id_t vsan_id, wwn_t ww_portname)
{
    skb_list_entry_t* found = nullptr;
    unsigned long flags;
    spin_lock_irqsave(&skb_unk_lock, flags);
    for (list_head* link = skb_unk_list.next; link != &skb_unk_list; link = link->next) {
        auto* entry = list_entry(link, skb_list_entry_t, list);
        if (entry->ww_portname.num == ww_portname.num && entry->vsan_id == vsan_id) {
            list_del_init(&entry->list);
            change_parked(-1);
            found = entry;
            break;
        }
    }
    spin_unlock_irqrestore(&skb_unk_lock, flags);
    return found;
}

void free_packet(skb_list_entry_t* entry)
{
    kfree_skb(entry->skb);
    entry->skb = nullptr;
    kfree(entry);
}

bool request_waiting()
{
    unsigned long flags;
    spin_lock_irqsave(&req_mapping_lock, flags);
    const bool waiting = !list_empty(&req_mapping_list);
    spin_unlock_irqrestore(&req_mapping_lock, flags);
    return waiting;
}

// The task is marked interruptible before each look, so that a wake-up in between is not lost.
int wait_in_queue(const file* filp)
{
    while (!request_waiting()) {
        if ((filp->f_flags & KAPI_O_NONBLOCK) != 0)
            return -EAGAIN;
        if (kapi_signal_pending())
            return -ERESTARTSYS;
        schedule();
        kapi_set_current_interruptible();
    }
    return 0;
}

int wait_for_request(const file* filp)
{
    wait_queue_t wait;
    init_waitqueue_entry(&wait);
    add_wait_queue(&ipfc_read_wait, &wait);
    kapi_set_current_interruptible();
    const int error = wait_in_queue(filp);
    kapi_set_current_running();
    remove_wait_queue(&ipfc_read_wait, &wait);
    return error;
}

bool check_vsan(vsan_id_t vsan_id)
{
    const bool valid = vsan_id_valid(vsan_id);
    if (!valid)
        IPFC_ERROR("VSAN number not valid\n");
    return valid;
}

void report_missing(vsan_id_t vsan_id)
{
    IPFC_ERROR("VSAN interface %d doesn't exist\n", vsan_id);
}

// 0 or -12. The node is counted before it is known to exist, deliberately: a failed allocation
// leaves the count one too high.
int store_mapping(net_device* dev, vsan_id_t vsan_id, wwn_t ww_portname, fcid_t fcid)
{
    kpn_to_fcid_t* mapping = alloc_mapping(GFP_KERNEL);
    ++num_mapping_obj;
    if (mapping == nullptr) {
        IPFC_ERROR("Can not allocate new mapping obj - No memory\n");
        return -ENOMEM;
    }
    mapping->ww_portname = ww_portname;
    mapping->dest_fcid = fcid;
    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    write_lock_bh(&priv->hash_lock);
    add_pn_to_fcid_mapping(priv->kwwpn_hash_table, mapping, vsan_id, priv);
    write_unlock_bh(&priv->hash_lock);
    IPFC_EVENT("VSAN %d, mapping added for WW_PN = %s", vsan_id, wwn_text(ww_portname).str);
    IPFC_EVENT(" FCID = %s - REQUESTED to NS\n", fcid_text(fcid).str);
    return 0;
}

// The packet passes transmission again and finds the mapping now.
void release_packet(skb_list_entry_t* entry)
{
    if (vsan_interfaces[entry->vsan_id] == nullptr) {
        free_packet(entry);
        return;
    }
    dev_queue_xmit(entry->skb);
    kfree(entry);
}

} // namespace

int ipfc_chr_request_mapping(vsan_id_t vsan_id, wwn_t unk_portname, sk_buff* skb)
{
    // Two requests at once may park an eleventh packet; that is accepted.
    if (__atomic_load_n(&skb_list_lenght, __ATOMIC_RELAXED) >= MAX_PARKED)
        return -EAGAIN;
    auto* request = alloc_entry<mapping_list_entry_t>();
    if (request == nullptr)
        return -ENOMEM;
    auto* packet = alloc_entry<skb_list_entry_t>();
    if (packet == nullptr) {
        kfree(request);
        return -ENOMEM;
    }
    request->unk_mapping = {.vsan_id = vsan_id, .ww_portname = unk_portname};
    packet->skb = skb;
    packet->vsan_id = vsan_id;
    packet->ww_portname = unk_portname;
    queue_request(request);
    park_packet(packet);
    wake_up_interruptible(&ipfc_read_wait);
    IPFC_EVENT("VSAN %d mapping requested to the user process\n", vsan_id);
    return 0;
}

// The result is the number of bytes not copied, 0 for a whole request, deliberately; a request
// whose copy failed is lost. A reader that finds the queue emptied by another one waits again.
ssize_t ipfc_chr_read(file* filp, char* buffer, std::size_t count, loff_t*)
{
    if (count != sizeof(req_mapping_t)) {
        IPFC_ERROR("Read request not valid from the process\n");
        return -1;
    }
    mapping_list_entry_t* entry = nullptr;
    while (entry == nullptr) {
        const int error = wait_for_request(filp);
        if (error != 0)
            return error;
        if (!access_ok(VERIFY_WRITE, buffer, sizeof(req_mapping_t))) {
            IPFC_ERROR("User memory area not valid\n");
            return -EFAULT;
        }
        entry = take_request();
    }
    const unsigned long left = copy_to_user(buffer, &entry->unk_mapping, sizeof(req_mapping_t));
    kfree(entry);
    return static_cast<ssize_t>(left);
}

unsigned int ipfc_chr_poll(file* filp, poll_table* table)
{
    unsigned long flags;
    spin_lock_irqsave(&req_mapping_lock, flags);
    if (table != nullptr)
        poll_wait(filp, &ipfc_read_wait, table);
    const bool waiting = !list_empty(&req_mapping_list);
    spin_unlock_irqrestore(&req_mapping_lock, flags);
    return waiting ? POLLIN | POLLRDNORM : 0;
}

ssize_t ipfc_chr_write(file*, const char*, std::size_t, loff_t*)
{
    return -1;
}

int ipfc_chr_open(inode*, file*)
{
    return 0;
}

int ipfc_chr_close(inode*, file*)
{
    return 0;
}

void clear_mapping_list()
{
    while (mapping_list_entry_t* entry = take_request())
        kfree(entry);
}

void clear_skb_list()
{
    unsigned long flags;
    spin_lock_irqsave(&skb_unk_lock, flags);
    while (!list_empty(&skb_unk_list)) {
        auto* entry = list_entry(skb_unk_list.next, skb_list_entry_t, list);
        list_del_init(&entry->list);
        change_parked(-1);
        dev_kfree_skb_any(entry->skb);
        entry->skb = nullptr;
        kfree(entry);
    }
    spin_unlock_irqrestore(&skb_unk_lock, flags);
}

std::int32_t user_add_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname, fcid_t fcid)
{
    if (!check_vsan(vsan_id))
        return -EINVAL;
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        report_missing(vsan_id);
    } else {
        const int error = store_mapping(dev, vsan_id, ww_portname, fcid);
        if (error != 0)
            return error;
    }
    // One packet an answer, the oldest; the others wait for answers of their own.
    skb_list_entry_t* packet = take_packet(vsan_id, ww_portname);
    if (packet == nullptr) {
        IPFC_ERROR("Add mapping found no skb\n");
        return -1;
    }
    release_packet(packet);
    return 0;
}

std::int32_t user_pn_not_found(vsan_id_t vsan_id, wwn_t ww_portname)
{
    if (!check_vsan(vsan_id))
        return -EINVAL;
    skb_list_entry_t* packet = take_packet(vsan_id, ww_portname);
    if (packet == nullptr) {
        IPFC_ERROR("VSAN %d Mapping not found with no requester skb\n", vsan_id);
        return -1;
    }
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev != nullptr)
        ++ipfc_priv(dev)->stats.tx_dropped;
    free_packet(packet);
    return 0;
}

std::int32_t user_update_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname, fcid_t fcid)
{
    if (!check_vsan(vsan_id))
        return -EINVAL;
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        report_missing(vsan_id);
        return -ENXIO;
    }
    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    write_lock_bh(&priv->hash_lock);
    update_pn_to_fcid_mapping(priv->kwwpn_hash_table, ww_portname, fcid, vsan_id, priv);
    IPFC_EVENT("VSAN %d, mapping update for WW_PN = %s", vsan_id, wwn_text(ww_portname).str);
    IPFC_EVENT(" FCID = %s -  NAME SERVER\n", fcid_text(fcid).str);
    write_unlock_bh(&priv->hash_lock);
    return 0;
}

// A delete that finds the port comes back without the lock and with its LOGOs sent. One that does
// not leaves delete_from_user set, deliberately.
std::int32_t user_delete_pn_to_fcid_mapping(vsan_id_t vsan_id, wwn_t ww_portname) KAPI_NO_TSA
{
    if (!check_vsan(vsan_id))
        return -EINVAL;
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        report_missing(vsan_id);
        return -ENXIO;
    }
    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    delete_from_user = 1;
    write_lock_bh(&priv->hash_lock);
    if (!delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, ww_portname, vsan_id)) {
        write_unlock_bh(&priv->hash_lock);
        return 0;
    }
    delete_from_user = 0;
    IPFC_EVENT("VSAN %d, mapping removed for WW_PN = %s - NAME SERVER delflag %d\n", vsan_id,
               wwn_text(ww_portname).str, static_cast<int>(delete_from_user));
    return 0;
}
