// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "libipfc/control_device.h"

#include "ipfc-resolverd/port_table.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace resolverd_test {

/// "10 20:00:00:5e:bf:00:00:0a"
resolverd::Port port(vsan_id_t vsan, const std::string& name);
fcid_t fcid(const std::string& text);

/**
 * A driver in memory behind the calls of the library: requests are queued and packets parked as the
 * real one does it, answers release one packet each, and everything that is sent is written down.
 * May be used from any thread.
 */
class FakeDriver {
public:
    /// Opens the control device as the daemon does; refused while unloaded.
    ipfc::ControlDevice open();

    /// A packet to a port without mapping: parks it and queues its request.
    void send_packet(const resolverd::Port& to);
    /// A request whose packet has gone meanwhile.
    void queue_request(const resolverd::Port& to);
    /// Makes the next command of this code end with a positive errno value.
    void refuse_next(uint32_t command, int number);

    void unload();
    void load();
    /// A text for each load; empty while unloaded.
    [[nodiscard]] std::string current_load();
    /// Descriptors of the device that are open.
    [[nodiscard]] int users();

    /// Everything that was sent, as "add 10 20:.. 0x0a0101", "update ...", "delete 10 20:.." or
    /// "not-found 10 20:..".
    [[nodiscard]] std::vector<std::string> commands();
    [[nodiscard]] size_t parked();
    [[nodiscard]] size_t unread();

    /// Waits until the driver's state satisfies the condition; false after a minute.
    bool wait_until(const std::function<bool()>& condition);
    bool wait_for_commands(size_t count);

private:
    struct Instance; ///< one life of the module

    int ioctl(const std::shared_ptr<Instance>& instance, unsigned long command, void* record);
    ssize_t read(const std::shared_ptr<Instance>& instance, void* buffer, size_t count);
    int run(uint32_t command, const pn_to_fcid_ioctl_t& record);
    void changed();

    std::recursive_mutex mutex_;
    std::condition_variable_any change_;
    std::shared_ptr<Instance> instance_ = make_instance();
    std::deque<resolverd::Port> requests_;
    std::vector<resolverd::Port> parked_;
    std::vector<std::string> commands_;
    std::map<uint32_t, int> refusals_;
    int loads_ = 1;

    static std::shared_ptr<Instance> make_instance();
};

} // namespace resolverd_test
