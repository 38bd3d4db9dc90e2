// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/device_calls.h"
#include "libipfc/file_descriptor.h"

#include "brim/ipfc_intf.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ipfc {

/// What became of the packet that waited for an answer of the resolver.
enum class Parked {
    handled, ///< the oldest packet waiting for this name was sent on, or dropped
    none,    ///< no packet waited
};

/// Which counters a reader of statistics sees.
enum class Counters {
    since_clear, ///< since the last clear
    snmp,        ///< the snapshot of the last clear added
};

/// What is known about a host that is reached across VSANs; vsan in the processor's order.
struct InterVsanHost {
    ip_addr_t ip_addr; ///< network order
    wwn_t pwwn;
    fcid_t fcid;
    vsan_id_t vsan;
};

/**
 * The driver's control device. One command a call; each throws DeviceError with the reason when
 * the driver refuses it. The four commands that stop the kernel are not offered.
 */
class ControlDevice {
public:
    enum class Wait { block, nonblock };

    /// Finds and opens the device; wait tells what read_request does when no request is queued.
    static ControlDevice open(const std::string& explicit_path = {}, Wait wait = Wait::block);

    explicit ControlDevice(FileDescriptor file, DeviceCalls calls = DeviceCalls::of_system());

    /// For poll(2): readable while a mapping request is queued.
    [[nodiscard]] int fd() const { return file_.get(); }

    /// An interface that exists already stays as it is, without an error.
    void create_vsan(vsan_id_t vsan, wwn_t port_name, wwn_t node_name);
    /// An absent interface is no error.
    void delete_vsan(vsan_id_t vsan);
    /// Registers the interface's N_Port at the FCID; ifindex is the platform's source interface.
    void set_fcid(vsan_id_t vsan, fcid_t fcid, if_index_t ifindex);
    void remove_fcid(vsan_id_t vsan);
    void set_up(vsan_id_t vsan);
    void set_down(vsan_id_t vsan);
    /// The address that get_info reports; the kernel's IP stack does not learn of it.
    void set_ip(vsan_id_t vsan, const inet_addr_t& address);
    [[nodiscard]] ipfc_get_intf_ioctl_t get_info(vsan_id_t vsan);
    [[nodiscard]] ipfc_intf_stats_ioctl_t get_stats(vsan_id_t vsan, Counters counters);
    void clear_stats(vsan_id_t vsan);

    /// Deletes every interface.
    void clean_up();
    /// Bytes that the driver wants in front of a packet.
    [[nodiscard]] int32_t header_room();

    /// The next queued mapping request; none with Wait::nonblock and an empty queue.
    [[nodiscard]] std::optional<req_mapping_t> read_request();
    /// Answer: the name is at fcid. The mapping is stored in both cases.
    Parked add_mapping(vsan_id_t vsan, wwn_t port_name, fcid_t fcid);
    /// Answer: nobody has the name.
    Parked mapping_not_found(vsan_id_t vsan, wwn_t port_name);
    void update_mapping(vsan_id_t vsan, wwn_t port_name, fcid_t fcid);
    void delete_mapping(vsan_id_t vsan, wwn_t port_name);

    /// Adds the host, or replaces the one with the same FCID and VSAN.
    void add_inter_vsan_host(const InterVsanHost& host);
    /// An absent host is no error.
    void delete_inter_vsan_host(fcid_t fcid, vsan_id_t vsan);

private:
    /// 0, or the positive errno value of the refusal.
    int issue(uint32_t command, void* record);
    void issue_or_throw(uint32_t command, void* record);
    void update_vsan(vsan_id_t vsan, fcid_t fcid, if_index_t ifindex, upd_action_t action);
    Parked answer_request(uint32_t command, pn_to_fcid_ioctl_t record);

    FileDescriptor file_;
    DeviceCalls calls_;
};

} // namespace ipfc
