// SPDX-License-Identifier: GPL-2.0-only
// The inter-VSAN IP table: hosts keyed by (FCID, VSAN), newest first.

#include "ivr_ip.h"

#include "ipfc.h"
#include "ipfc_report.h"

#include "kapi/uaccess.h"

DEFINE_SPINLOCK(ivrip_list_lock);
LIST_HEAD(ivrip_list_head);

namespace {

constexpr char PROC_NAME[] = "ivrip_list";
constexpr std::size_t HEADER_SIZE = 64;
constexpr std::size_t ROW_SIZE = 64;

constinit kmem_cache* ivrip_cachep = nullptr;
constinit std::int32_t num_entries =
    0; // under ivrip_list_lock; read without it for a buffer's size

std::size_t report_size(void*)
{
    return HEADER_SIZE +
           ROW_SIZE * static_cast<std::size_t>(__atomic_load_n(&num_entries, __ATOMIC_RELAXED));
}

void change_entries(int by) KAPI_REQUIRES(ivrip_list_lock)
{
    __atomic_store_n(&num_entries, num_entries + by, __ATOMIC_RELAXED);
}

ivrip_entry_t* find_entry(fcid_t fcid, vsan_id_t vsan) KAPI_REQUIRES(ivrip_list_lock)
{
    for (list_head* link = ivrip_list_head.next; link != &ivrip_list_head; link = link->next) {
        auto* entry = list_entry(link, ivrip_entry_t, next);
        if (entry->vsan == vsan && entry->fcid.num == fcid.num)
            return entry;
    }
    return nullptr;
}

void free_entry(ivrip_entry_t* entry) KAPI_REQUIRES(ivrip_list_lock)
{
    list_del_init(&entry->next);
    change_entries(-1);
    kmem_cache_free(ivrip_cachep, entry);
}

void append_row(ipfc_report& report, const ivrip_entry_t* entry)
{
    std::uint8_t octet[4];
    char address[16];
    memcpy(octet, &entry->ip_addr, sizeof octet);
    snprintf(address, sizeof address, "%d.%d.%d.%d", octet[0], octet[1], octet[2], octet[3]);
    report.append("%15s %s 0x%08x %04d\n", address, wwn_text(entry->pwwn).str,
                  be32_to_cpu(entry->fcid.num),
                  static_cast<int>(be32_to_cpu(static_cast<std::uint32_t>(entry->vsan))));
}

// True when the reader has enough; the window is checked after every row.
bool append_rows(ipfc_report& report) KAPI_REQUIRES(ivrip_list_lock)
{
    for (list_head* link = ivrip_list_head.next; link != &ivrip_list_head; link = link->next) {
        append_row(report, list_entry(link, ivrip_entry_t, next));
        if (report.window_full())
            return true;
    }
    return false;
}

} // namespace

int ivrip_init()
{
    ivrip_cachep =
        kmem_cache_create("ivrip_slab", sizeof(ivrip_entry_t), 0, SLAB_HWCACHE_ALIGN, nullptr);
    if (ivrip_cachep == nullptr) {
        printk("<3>vrip - Can not create the ivr_ip_list cache\n");
        return -ENOMEM;
    }
    proc_dir_entry* entry = create_proc_entry(PROC_NAME, 0, ipfc_proc_root);
    if (entry == nullptr) {
        // Not an entry of ours, and the cache stays: both deliberate.
        remove_proc_entry("mip", proc_brim_sw);
        return -ENOMEM;
    }
    kapi_proc_set_size(entry, report_size);
    entry->data = nullptr;
    entry->read_proc = ivrip_read_proc;
    return 0;
}

// The report's entry goes with the module's directory.
void ivrip_cleanup()
{
    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    while (!list_empty(&ivrip_list_head))
        free_entry(list_entry(ivrip_list_head.next, ivrip_entry_t, next));
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    kmem_cache_destroy(ivrip_cachep);
}

int ivrip_process_ioctl(unsigned int cmd, unsigned long arg)
{
    if (cmd != IPFC_IOC_ADD_IVRIP && cmd != IPFC_IOC_DEL_IVRIP)
        return -ENOTTY;
    ivrip_ioctl_t record;
    if (copy_from_user(&record, reinterpret_cast<const void*>(arg), sizeof record) != 0)
        return -EFAULT;
    if (cmd == IPFC_IOC_ADD_IVRIP)
        return ivrip_add_entry(record.ip_addr, record.pwwn, record.fcid, record.vsan);
    return ivrip_del_entry(record.fcid, record.vsan);
}

int ivrip_add_entry(ip_addr_t ip_addr, wwn_t pwwn, fcid_t fcid, vsan_id_t vsan)
{
    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    ivrip_entry_t* entry = find_entry(fcid, vsan);
    if (entry == nullptr) {
        // A sleeping allocation under the lock, so that search and insertion are one step.
        entry = static_cast<ivrip_entry_t*>(kmem_cache_alloc(ivrip_cachep, GFP_KERNEL));
        if (entry == nullptr) {
            spin_unlock_irqrestore(&ivrip_list_lock, flags);
            return -ENOMEM;
        }
        list_add(&entry->next, &ivrip_list_head);
        change_entries(+1);
    }
    entry->ip_addr = ip_addr;
    entry->pwwn = pwwn;
    entry->fcid = fcid;
    entry->vsan = vsan;
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    return 0;
}

int ivrip_del_entry(fcid_t fcid, vsan_id_t vsan)
{
    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    ivrip_entry_t* entry = find_entry(fcid, vsan);
    if (entry != nullptr)
        free_entry(entry);
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    return 0;
}

// The walk does not stop at the record's 255 slots, deliberately: users keep the table small.
int ivrip_get_did_list(ivrip_fcid_list_t* list)
{
    ivrip_fcid_info_t* slot = list->did_list;
    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    for (list_head* link = ivrip_list_head.next; link != &ivrip_list_head; link = link->next) {
        const ivrip_entry_t* entry = list_entry(link, ivrip_entry_t, next);
        *slot++ = {.d_id = entry->fcid, .vsan = entry->vsan, .pwwn = entry->pwwn};
    }
    list->num_entries = static_cast<std::int32_t>(slot - list->did_list);
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    return 0;
}

int ivrip_read_proc(char* buf, char** start, off_t off, int length, int* eof, void*)
{
    ipfc_report report(buf, kapi_proc_room(buf), off, length);
    report.append("\n %14s %17s %14s %8s \n", "IP", "PWWN", "FCID", "VSAN");

    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    const bool stopped = append_rows(report);
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    if (!stopped)
        *eof = 1;
    return report.finish(start);
}
