// SPDX-License-Identifier: GPL-2.0-only
// The control device's commands: the checks of a command's encoding, its record in, the handler,
// its result out. No state is kept between calls.

#include "ipfc.h"
#include "ivr_ip.h"

#include "kapi/bug.h"
#include "kapi/uaccess.h"

namespace {

constexpr char NAME[] = "ipfc_chr_ioctl";

// Whether the caller's range fits the direction and size that the code claims.
bool direction_valid(unsigned int cmd, unsigned long arg)
{
    const void* address = reinterpret_cast<const void*>(arg);
    if ((IPFC_IOC_DIR(cmd) & IPFC_IOC_READ) != 0)
        return access_ok(VERIFY_WRITE, address, IPFC_IOC_SIZE(cmd));
    if ((IPFC_IOC_DIR(cmd) & IPFC_IOC_WRITE) != 0)
        return access_ok(VERIFY_READ, address, IPFC_IOC_SIZE(cmd));
    return true;
}

int check_encoding(unsigned int cmd, unsigned long arg)
{
    if (IPFC_IOC_TYPE(cmd) != IPFC_IOC_MAGIC) {
        IPFC_ERROR("%s: Invalid Ioctl magic\n", NAME);
        return -ENOTTY;
    }
    if (IPFC_IOC_NR(cmd) > IPFC_IOC_MAX_NR) {
        IPFC_ERROR("%s: Invalid Ioctl cmd\n", NAME);
        return -ENOTTY;
    }
    if (!direction_valid(cmd, arg)) {
        IPFC_ERROR("%s: Invalid Ioctl direction\n", NAME);
        return -EFAULT;
    }
    return 0;
}

// The whole record is copied, whatever size the code claims: SET_IP claims less.
template <typename record_t>
int read_record(unsigned long arg, record_t* record)
{
    if (copy_from_user(record, reinterpret_cast<const void*>(arg), sizeof *record) == 0)
        return 0;
    IPFC_ERROR("Failed to read from user space\n");
    return -EFAULT;
}

template <typename record_t>
int write_record(unsigned long arg, const record_t& record)
{
    if (copy_to_user(reinterpret_cast<void*>(arg), &record, sizeof record) == 0)
        return 0;
    IPFC_ERROR("Failed to write to user space\n");
    return -EFAULT;
}

int mapping_command(unsigned int cmd, unsigned long arg)
{
    pn_to_fcid_ioctl_t record;
    const int error = read_record(arg, &record);
    if (error != 0)
        return error;
    switch (cmd) {
    case IPFC_IOC_ADD_MAPPING:
        IPFC_EVENT("Add vsan: %d pwwn: 0x%llx, fcid: 0x%x\n", record.vsan_id,
                   wwn_number(record.ww_portname), record.fcid.num);
        return user_add_pn_to_fcid_mapping(record.vsan_id, record.ww_portname, record.fcid);
    case IPFC_IOC_DEL_MAPPING:
        IPFC_EVENT("Del vsan: %d pwwn: 0x%llx, fcid: 0x%x\n", record.vsan_id,
                   wwn_number(record.ww_portname), record.fcid.num);
        return user_delete_pn_to_fcid_mapping(record.vsan_id, record.ww_portname);
    case IPFC_IOC_UPD_MAPPING:
        IPFC_EVENT("Upd vsan: %d pwwn: 0x%llx, fcid: 0x%x\n", record.vsan_id,
                   wwn_number(record.ww_portname), record.fcid.num);
        return user_update_pn_to_fcid_mapping(record.vsan_id, record.ww_portname, record.fcid);
    default:
        IPFC_EVENT("PWWN not found vsan: %d pwwn: 0x%llx, fcid: 0x%x\n", record.vsan_id,
                   wwn_number(record.ww_portname), record.fcid.num);
        return user_pn_not_found(record.vsan_id, record.ww_portname);
    }
}

int interface_command(unsigned int cmd, unsigned long arg)
{
    vsan_interface_ioctl_t record;
    const int error = read_record(arg, &record);
    if (error != 0)
        return error;
    switch (cmd) {
    case IPFC_IOC_CREATE_INTF:
        IPFC_EVENT("Add vsan: %d \n", record.vsan_id);
        return ipfc_create_vsan_interface(record.vsan_id, record.ww_portname, record.ww_nodename);
    case IPFC_IOC_DELETE_INTF:
        IPFC_EVENT("Del vsan: %d \n", record.vsan_id);
        return ipfc_delete_vsan_interface(record.vsan_id);
    case IPFC_IOC_UPDATE_INTF:
        IPFC_EVENT("Upd vsan: %d, fcid: 0x%x\n", record.vsan_id, record.fcid.num);
        return ipfc_update_vsan_interface(record.vsan_id, record.fcid, record.ifindex,
                                          record.action);
    case IPFC_IOC_CLEAR_STATS:
        return ipfc_clear_stats(record.vsan_id);
    default:
        return ipfc_set_ip(record.vsan_id, record.ip_addr);
    }
}

// Read a record, have it filled in, and write it back unless the handler refused.
template <typename record_t>
int query_command(unsigned long arg, std::int32_t (*handler)(record_t* record))
{
    record_t record;
    int error = read_record(arg, &record);
    if (error != 0)
        return error;
    error = handler(&record);
    return error != 0 ? error : write_record(arg, record);
}

int dispatch(unsigned int cmd, unsigned long arg)
{
    switch (cmd) {
    case IPFC_IOC_ADD_MAPPING:
    case IPFC_IOC_DEL_MAPPING:
    case IPFC_IOC_UPD_MAPPING:
    case IPFC_IOC_MAPPING_NOT_FOUND:
        return mapping_command(cmd, arg);
    case IPFC_IOC_CREATE_INTF:
    case IPFC_IOC_DELETE_INTF:
    case IPFC_IOC_UPDATE_INTF:
    case IPFC_IOC_CLEAR_STATS:
    case IPFC_IOC_SET_IP:
        return interface_command(cmd, arg);
    case IPFC_IOC_GET_INTF:
        return query_command(arg, ipfc_dev_get_intf_info);
    case IPFC_IOC_GET_STATS:
        return query_command(arg, ipfc_dev_intf_stats);
    case IPFC_IOC_CLEANUP:
        return ipfc_fast_clean_up();
    case IPFC_IOC_ADD_IVRIP:
    case IPFC_IOC_DEL_IVRIP:
        return ivrip_process_ioctl(cmd, arg);
    case IPFC_IOC_GET_HEADROOM:
        // Encoded as a write, and yet the result goes to the caller: part of the interface.
        return write_record(arg, static_cast<std::int32_t>(ipfc_header_room()));
    case IPFC_IOC_RESERVED_0:
    case IPFC_IOC_RESERVED_1:
    case IPFC_IOC_RESERVED_2:
    case IPFC_IOC_RESERVED_11:
        // Fatal, deliberately: whoever sends these stops the kernel.
        BUG();
    default:
        return -ENOTTY;
    }
}

} // namespace

int ipfc_chr_ioctl(inode*, file*, unsigned int cmd, unsigned long arg)
{
    IPFC_EVENT("%s: Ioctl received - cmd: %d\n", NAME, static_cast<int>(IPFC_IOC_NR(cmd)));
    const int error = check_encoding(cmd, arg);
    return error != 0 ? error : dispatch(cmd, arg);
}
