// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/configuration.h"
#include "ipfc-resolverd/counters.h"
#include "ipfc-resolverd/device_hold.h"
#include "ipfc-resolverd/log.h"
#include "ipfc-resolverd/query_runner.h"
#include "ipfc-resolverd/resolver.h"
#include "ipfc-resolverd/service_manager.h"
#include "ipfc-resolverd/table_follower.h"

#include "libipfc/file_descriptor.h"

#include <memory>
#include <string>

namespace resolverd {

/// Blocks the signals that the daemon takes from a descriptor; to be called before any thread is.
void block_signals();

/// The loop, in one thread, that joins the device, the name server, signals and time.
class Daemon {
public:
    Daemon(const Configuration& configuration, std::shared_ptr<NameServer> name_server, Log log,
           Surroundings surroundings = Surroundings::of_system());

    /// Runs until SIGTERM or SIGINT.
    void run();
    /// Queries that hang still, and whose threads use what they use.
    [[nodiscard]] size_t hanging() const { return queries_.running(); }

private:
    using Time = Clock::time_point;

    void step();
    [[nodiscard]] int wait_time(Time now) const;
    void keep_time(Time now);
    void look_around(Time now);

    /// Runs what needs the device; without it, or when it goes meanwhile, nothing.
    template <typename Use>
    void with_device(Use use);
    void device_is_ready(short events, Time now);
    void read_requests(ipfc::ControlDevice& device, Time now);

    void take_results(Time now);
    void take_result(const PortResult& result, Time now);
    void take_result(const TableResult& result, Time now);

    void take_signal(Time now);
    void stop();
    void show_status();

    const Log log_;
    const std::chrono::milliseconds retry_interval_;
    const std::shared_ptr<NameServer> name_server_;
    ServiceManager service_manager_;
    ipfc::FileDescriptor signals_;

    Counters counters_;
    QueryRunner queries_;
    Resolver resolver_;
    DeviceHold device_;
    TableFollower follower_;

    bool stopping_ = false;
    bool queue_empty_ = false; ///< the last look at the device found no request
    std::string status_;
    Time next_look_{};
    Time next_alive_{};
};

} // namespace resolverd
