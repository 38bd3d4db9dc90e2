// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/counters.h"
#include "ipfc-resolverd/log.h"
#include "ipfc-resolverd/query_runner.h"
#include "ipfc-resolverd/resolver.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace resolverd {

/**
 * Reads the name server's table whenever it has changed, one reading at a time and each in a thread
 * of its own. A table that cannot be read or understood is reported, and what was known stays.
 */
class TableFollower {
public:
    /// begin is called when a reading starts.
    TableFollower(std::shared_ptr<NameServer> name_server, QueryRunner& queries,
                  std::chrono::milliseconds retry_interval, std::function<void()> begin,
                  Counters& counters, const Log& log);

    /// To be called now and then: watches the name server while wanted. True when it has just
    /// begun to, so that the table as it is now has to be read.
    bool keep(bool wanted, Clock::time_point now);
    /// What to poll for; no descriptor while there is nothing to wait for.
    [[nodiscard]] pollfd raised_when(Clock::time_point now) const;
    /// To be called with what poll found.
    void raised(short events);
    /// Reads whether the name server claims to have changed or not. When a reading is going on
    /// already, another one becomes due.
    void read();
    /// A reading was asked for while one went on, or one has failed and may succeed now.
    [[nodiscard]] bool due(Clock::time_point now) const;
    /// Takes the result of a reading; the table, or null when none came of it.
    std::shared_ptr<const PortTable> take(const TableResult& result, Clock::time_point now);

private:
    void start(std::shared_ptr<ChangeSignal> changes);
    void complain(const std::string& text, Clock::time_point now);

    const std::shared_ptr<NameServer> name_server_;
    QueryRunner& queries_;
    const std::chrono::milliseconds retry_interval_;
    const std::function<void()> begin_;
    Counters& counters_;
    const Log& log_;

    std::shared_ptr<ChangeSignal> changes_; ///< null while not watched
    bool reading_ = false;
    bool slow_ = false; ///< the reading has been complained of
    Clock::time_point began_{};
    bool again_ = false; ///< another reading was asked for while one went on
    bool retry_ = false; ///< the last reading failed with what may pass
    std::shared_ptr<const PortTable> last_;
    std::string complaint_;
    Clock::time_point quiet_until_{}; ///< after a failure: no attempt before, no equal complaint
};

} // namespace resolverd
