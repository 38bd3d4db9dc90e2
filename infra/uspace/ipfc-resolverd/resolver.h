// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/counters.h"
#include "ipfc-resolverd/log.h"
#include "ipfc-resolverd/query_runner.h"

#include "libipfc/control_device.h"
#include "libipfc/refusal.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace resolverd {

using Clock = std::chrono::steady_clock;

/// How long a query may take, and how many may run at a time, those that hang among them.
struct QueryLimits {
    std::chrono::milliseconds timeout{2000};
    size_t running = 16;
};

/**
 * What is to be told to the driver, and when. Knows no descriptors and no threads: it is given
 * requests, results and the time, and answers through the control device of the moment.
 *
 * The driver releases one parked packet for each answer and never gives one up by itself, so every
 * request gets exactly one answer; equal requests share one query and each get theirs.
 */
class Resolver {
public:
    using StartQuery = std::function<void(const Port&)>;

    Resolver(QueryLimits limits, StartQuery start_query, Counters& counters, const Log& log);

    /// False while another request would have to wait for a query to end: it is left in the
    /// driver, where it survives this process.
    [[nodiscard]] bool has_room() const;
    /// No request waits for an answer.
    [[nodiscard]] bool idle() const;

    // The calls below throw ipfc::DeviceError when the device is gone; what it refuses is logged
    // and counted only.

    void request(ipfc::ControlDevice& device, const Port& port, Clock::time_point now);
    void finish_query(ipfc::ControlDevice& device, const PortResult& result);
    /// Answers "not found" to what has waited too long.
    void expire(ipfc::ControlDevice& device, Clock::time_point now);
    /// Answers "not found" to all that wait, whatever their queries may still bring.
    void give_up(ipfc::ControlDevice& device);
    /// The name server's ports are these: tells the driver of those that have moved or left. Says
    /// nothing of a port that was answered after reading began: the answer may be the newer of
    /// both.
    void take_table(ipfc::ControlDevice& device, const PortTable& table);

    // Without a device nothing can be told.

    /// The name server's table is being read from now on.
    void begin_table();
    /// An answer and the table crossed: the table has to be read once more.
    [[nodiscard]] bool table_is_due() const { return table_is_due_; }
    /// A result that comes while there is no device.
    void finish_query(const PortResult& result);
    /// The driver has gone, and what waited has gone with it.
    void drop_requests();
    /// The driver's own tables are empty again.
    void forget_answers();

    /// When expire has something to do next.
    [[nodiscard]] std::optional<Clock::time_point> next_deadline() const;

private:
    /// One for each port that a thread is busy with.
    struct Query {
        Clock::time_point deadline;
        size_t waiting = 0;         ///< requests without an answer
        bool hangs = false;         ///< is past its deadline; nobody waits any more
        uint64_t tables_before = 0; ///< tables_ when the query started
    };

    /// What the driver was told last about a port.
    struct Told {
        fcid_t fcid;
        uint64_t number; ///< of the answer, counted in answers_
    };

    void answer_all(ipfc::ControlDevice& device, const Port& port, std::optional<fcid_t> fcid,
                    size_t requests);
    void answer(ipfc::ControlDevice& device, const Port& port, std::optional<fcid_t> fcid);
    bool add(ipfc::ControlDevice& device, const Port& port, fcid_t fcid);
    void not_found(ipfc::ControlDevice& device, const Port& port);
    void port_moved(ipfc::ControlDevice& device, const Port& port, Told& told, fcid_t fcid);
    void port_left(ipfc::ControlDevice& device, const Port& port);
    /// Runs a command; false when the driver refused it.
    bool command(const std::string& what, const std::function<void()>& send);
    void count_parked(ipfc::Parked parked);

    const QueryLimits limits_;
    const StartQuery start_query_;
    Counters& counters_;
    const Log& log_;

    std::map<Port, Query> queries_;
    std::map<Port, Told> told_; ///< ports that the driver has a mapping of from here
    uint64_t answers_ = 0;
    uint64_t tables_ = 0;               ///< taken over so far
    uint64_t answers_before_table_ = 0; ///< answers_ when the reading of the table began
    bool table_is_due_ = false;
};

/// Whether the driver behind the device has gone, as opposed to a command that it refused.
bool device_is_gone(const ipfc::DeviceError& error);

} // namespace resolverd
