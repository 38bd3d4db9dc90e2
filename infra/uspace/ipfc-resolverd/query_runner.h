// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/name_server.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace resolverd {

/// What a query for one port brought.
struct PortResult {
    Port port;
    std::optional<fcid_t> fcid;
    std::string error; ///< not empty: the query failed
};

/// What reading the whole table brought; neither table nor error when nothing had changed.
struct TableResult {
    std::shared_ptr<const PortTable> table;
    std::string remark;
    std::string error;
    bool may_pass = false; ///< the error may be gone when the table is read again
};

using Result = std::variant<PortResult, TableResult>;

/**
 * Runs each query in a thread of its own, so that one that hangs holds up nobody. A thread that
 * hangs cannot be ended: it keeps what it uses alive, and whoever starts queries bounds their
 * number. Used by one thread.
 */
class QueryRunner {
public:
    explicit QueryRunner(std::shared_ptr<NameServer> name_server);

    void ask(const Port& port);
    /// Consumes the signal, if there is one, before the table is read, so that a change in between
    /// raises it again.
    void read_table(std::shared_ptr<ChangeSignal> signal);

    /// Readable while results wait.
    [[nodiscard]] int fd() const;
    [[nodiscard]] std::vector<Result> take_results();
    /// Threads that have not brought their result yet.
    [[nodiscard]] size_t running() const;

private:
    struct Shared;
    void start(std::function<Result()> job, Result without_thread);

    std::shared_ptr<NameServer> name_server_;
    std::shared_ptr<Shared> shared_;
};

} // namespace resolverd
