// SPDX-License-Identifier: GPL-2.0-only
// Reports under the module's proc directory: the module-wide counters, and per interface its
// identity, mappings and exchanges.

#include "ipfc.h"
#include "ipfc_report.h"

namespace {

constexpr char STATISTICS[] = "statistics";

// No line of an interface's report is longer, nor its header.
constexpr std::size_t HEADER_SIZE = 256;
constexpr std::size_t LINE_SIZE = 64;

// Tables are counted module-wide, so this is more than one interface needs. The counts may run low
// or high by what their odd corners miss; a page is always there on top.
std::size_t report_size(void*)
{
    const auto lines = static_cast<std::int64_t>(num_mapping_obj) + num_exch_obj;
    return HEADER_SIZE + LINE_SIZE * static_cast<std::size_t>(lines > 0 ? lines : 0);
}

void append_header(ipfc_report& report, const kvsan_interface_priv_t* priv)
{
    report.append("\nVSAN Interface %4d :\nfcid = %s", priv->vsan_id, fcid_text(priv->fcid).str);
    report.append("\nWW portname = %s", wwn_text(priv->ww_portname).str);
    report.append("\nWW nodename = %s", wwn_text(priv->ww_nodename).str);
    report.append("\n%23s -> %9s\n", "WW_PN", "FCID");
}

// True when the reader has enough. Mapping lines are not checked against the window, deliberately:
// the buffer holds them all.
bool append_mapping(ipfc_report& report, const kpn_to_fcid_t* mapping)
{
    report.append("%s -> %s\n", wwn_text(mapping->ww_portname).str,
                  fcid_text(mapping->dest_fcid).str);
    for (const fc2_exch_status_t* exchange = mapping->fc2_exch; exchange != nullptr;
         exchange = exchange->next) {
        report.append("   exch with %s handle = %08x\n", fcid_text(exchange->source_fcid).str,
                      static_cast<unsigned int>(exchange->fc2_handle));
        if (report.window_full())
            return true;
    }
    return false;
}

bool append_table(ipfc_report& report, kvsan_interface_priv_t* priv)
    KAPI_REQUIRES_SHARED(priv->hash_lock)
{
    for (const kpn_to_fcid_t* mapping : priv->kwwpn_hash_table) {
        for (; mapping != nullptr; mapping = mapping->next) {
            if (append_mapping(report, mapping))
                return true;
        }
    }
    return false;
}

} // namespace

void proc_ipfc_stats_create()
{
    proc_dir_entry* entry = create_proc_entry(STATISTICS, 0, ipfc_proc_root);
    if (entry == nullptr)
        return;
    entry->read_proc = ipfc_read_stat;
    entry->data = nullptr;
}

void proc_ipfc_stats_remove()
{
    remove_proc_entry(STATISTICS, ipfc_proc_root);
}

proc_dir_entry* proc_ipfc_create(const char* name, mode_t mode, void* data)
{
    proc_dir_entry* entry = create_proc_entry(name, mode, ipfc_proc_root);
    if (entry == nullptr)
        return nullptr;
    kapi_proc_set_size(entry, report_size);
    entry->data = data;
    entry->read_proc = ipfc_read_proc;
    return entry;
}

void proc_ipfc_remove(const char* name)
{
    remove_proc_entry(name, ipfc_proc_root);
}

// The unsigned counts are printed with %d, deliberately: large ones show negative.
int ipfc_read_stat(char* buf, char**, off_t, int, int*, void*)
{
    const int written =
        snprintf(buf, kapi_proc_room(buf),
                 "\nGlobal IPFC statistics \npackets copied = %d\nbytes copied   = %d\n"
                 "mapping obj allocated = %d\nexch obj allocated = %d\n",
                 static_cast<int>(ipfc_skbs_copied), static_cast<int>(ipfc_bytes_copied),
                 num_mapping_obj, num_exch_obj);
    return written;
}

int ipfc_read_proc(char* buf, char** start, off_t off, int length, int* eof, void* data)
{
    kvsan_interface_priv_t* priv = ipfc_priv(static_cast<const net_device*>(data));
    ipfc_report report(buf, kapi_proc_room(buf), off, length);
    append_header(report, priv);

    read_lock_bh(&priv->hash_lock);
    const bool stopped = append_table(report, priv);
    read_unlock_bh(&priv->hash_lock);
    if (!stopped)
        *eof = 1;
    return report.finish(start);
}
