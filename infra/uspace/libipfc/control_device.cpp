// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/control_device.h"

#include "libipfc/device_node.h"
#include "libipfc/refusal.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ipfc {

namespace {

/// A record of which every byte is zero: empty braces leave the tail of a union unset.
template <typename Record>
Record zeroed()
{
    Record record;
    std::memset(&record, 0, sizeof(record));
    return record;
}

ivrip_ioctl_t to_record(const InterVsanHost& host)
{
    auto record = zeroed<ivrip_ioctl_t>();
    record.ip_addr = host.ip_addr;
    record.pwwn = host.pwwn;
    record.fcid = host.fcid;
    record.vsan = static_cast<vsan_id_t>(htonl(static_cast<uint32_t>(host.vsan)));
    return record;
}

} // namespace

ControlDevice::ControlDevice(FileDescriptor file, DeviceCalls calls)
    : file_(std::move(file)), calls_(std::move(calls))
{
}

ControlDevice ControlDevice::open(const std::string& explicit_path, Wait wait)
{
    const int flags = O_RDWR | (wait == Wait::nonblock ? O_NONBLOCK : 0);
    return ControlDevice(open_control_device(explicit_path, flags));
}

int ControlDevice::issue(uint32_t command, void* record)
{
    const int result = calls_.ioctl(file_.get(), command, record);
    // A result of the FC-2 stack may come through as a positive error number.
    return result < 0 ? errno : result;
}

void ControlDevice::issue_or_throw(uint32_t command, void* record)
{
    if (const int error = issue(command, record)) {
        throw DeviceError(reason_of_refusal(command, error), error);
    }
}

void ControlDevice::create_vsan(vsan_id_t vsan, wwn_t port_name, wwn_t node_name)
{
    auto record = zeroed<vsan_interface_ioctl_t>();
    record.vsan_id = vsan;
    record.ww_portname = port_name;
    record.ww_nodename = node_name;
    issue_or_throw(IPFC_IOC_CREATE_INTF, &record);
}

void ControlDevice::delete_vsan(vsan_id_t vsan)
{
    auto record = zeroed<vsan_interface_ioctl_t>();
    record.vsan_id = vsan;
    issue_or_throw(IPFC_IOC_DELETE_INTF, &record);
}

void ControlDevice::update_vsan(vsan_id_t vsan, fcid_t fcid, if_index_t ifindex,
                                upd_action_t action)
{
    auto record = zeroed<vsan_interface_ioctl_t>();
    record.vsan_id = vsan;
    record.fcid = fcid;
    record.ifindex = ifindex;
    record.action = action;
    issue_or_throw(IPFC_IOC_UPDATE_INTF, &record);
}

void ControlDevice::set_fcid(vsan_id_t vsan, fcid_t fcid, if_index_t ifindex)
{
    update_vsan(vsan, fcid, ifindex, IPFC_UPD_INTF_SET_FCID);
}

void ControlDevice::remove_fcid(vsan_id_t vsan)
{
    update_vsan(vsan, {}, 0, IPFC_UPD_INTF_REM_FCID);
}

void ControlDevice::set_up(vsan_id_t vsan)
{
    update_vsan(vsan, {}, 0, IPFC_UPD_INTF_SET_ADM_UP);
}

void ControlDevice::set_down(vsan_id_t vsan)
{
    update_vsan(vsan, {}, 0, IPFC_UPD_INTF_SET_ADM_DOWN);
}

void ControlDevice::set_ip(vsan_id_t vsan, const inet_addr_t& address)
{
    // The whole record: the driver copies 52 bytes whatever size the command's code names.
    auto record = zeroed<vsan_interface_ioctl_t>();
    record.vsan_id = vsan;
    record.ip_addr = address;
    issue_or_throw(IPFC_IOC_SET_IP, &record);
}

ipfc_get_intf_ioctl_t ControlDevice::get_info(vsan_id_t vsan)
{
    auto record = zeroed<ipfc_get_intf_ioctl_t>();
    record.vsan_id = vsan;
    issue_or_throw(IPFC_IOC_GET_INTF, &record);
    return record;
}

ipfc_intf_stats_ioctl_t ControlDevice::get_stats(vsan_id_t vsan, Counters counters)
{
    auto record = zeroed<ipfc_intf_stats_ioctl_t>();
    record.vsan_id = vsan;
    // Exactly 1 asks for the snapshot; other non-zero values do not.
    record.snmp_stats = counters == Counters::snmp ? 1 : 0;
    issue_or_throw(IPFC_IOC_GET_STATS, &record);
    return record;
}

void ControlDevice::clear_stats(vsan_id_t vsan)
{
    auto record = zeroed<vsan_interface_ioctl_t>();
    record.vsan_id = vsan;
    issue_or_throw(IPFC_IOC_CLEAR_STATS, &record);
}

void ControlDevice::clean_up()
{
    issue_or_throw(IPFC_IOC_CLEANUP, nullptr);
}

int32_t ControlDevice::header_room()
{
    int32_t room = 0;
    issue_or_throw(IPFC_IOC_GET_HEADROOM, &room);
    return room;
}

std::optional<req_mapping_t> ControlDevice::read_request()
{
    req_mapping_t request{};
    const ssize_t left = calls_.read(file_.get(), &request, sizeof(request));
    // The driver answers with the bytes it could not copy: 0 is a whole request.
    if (left == 0) {
        return request;
    }
    if (left > 0) {
        throw DeviceError("a mapping request was lost on its way from the driver", EFAULT);
    }
    if (errno == EAGAIN) {
        return std::nullopt;
    }
    throw DeviceError(std::string("no mapping request: ") + ::strerror(errno), errno);
}

Parked ControlDevice::answer_request(uint32_t command, pn_to_fcid_ioctl_t record)
{
    const int error = issue(command, &record);
    if (error == 0) {
        return Parked::handled;
    }
    // The driver's -1: the answer came, but no packet waits for it.
    if (error == EPERM) {
        return Parked::none;
    }
    throw DeviceError(reason_of_refusal(command, error), error);
}

Parked ControlDevice::add_mapping(vsan_id_t vsan, wwn_t port_name, fcid_t fcid)
{
    return answer_request(IPFC_IOC_ADD_MAPPING, {vsan, port_name, fcid});
}

Parked ControlDevice::mapping_not_found(vsan_id_t vsan, wwn_t port_name)
{
    return answer_request(IPFC_IOC_MAPPING_NOT_FOUND, {vsan, port_name, {}});
}

void ControlDevice::update_mapping(vsan_id_t vsan, wwn_t port_name, fcid_t fcid)
{
    pn_to_fcid_ioctl_t record{vsan, port_name, fcid};
    issue_or_throw(IPFC_IOC_UPD_MAPPING, &record);
}

void ControlDevice::delete_mapping(vsan_id_t vsan, wwn_t port_name)
{
    pn_to_fcid_ioctl_t record{vsan, port_name, {}};
    issue_or_throw(IPFC_IOC_DEL_MAPPING, &record);
}

void ControlDevice::add_inter_vsan_host(const InterVsanHost& host)
{
    ivrip_ioctl_t record = to_record(host);
    issue_or_throw(IPFC_IOC_ADD_IVRIP, &record);
}

void ControlDevice::delete_inter_vsan_host(fcid_t fcid, vsan_id_t vsan)
{
    ivrip_ioctl_t record = to_record({0, {}, fcid, vsan});
    issue_or_throw(IPFC_IOC_DEL_IVRIP, &record);
}

} // namespace ipfc
