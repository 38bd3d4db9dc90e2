// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/name_server.h"

#include "libipfc/file_descriptor.h"

#include <sys/eventfd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>

namespace resolverd_test {

/// A signal that the test raises.
class FakeSignal : public resolverd::ChangeSignal {
public:
    void raise() { ::eventfd_write(event_.get(), 1); }

    [[nodiscard]] pollfd raised_when() const override { return {event_.get(), POLLIN, 0}; }
    bool consume() override
    {
        eventfd_t count = 0;
        return ::eventfd_read(event_.get(), &count) == 0;
    }

private:
    ipfc::FileDescriptor event_{::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

/// A name server in memory that hangs, or fails, when told to.
class FakeNameServer : public resolverd::NameServer {
public:
    ~FakeNameServer() override = default;

    /// Announces the port and raises the signals that were handed out.
    void set(const resolverd::Port& port, fcid_t fcid)
    {
        const std::lock_guard lock(mutex_);
        ports_.insert_or_assign(port, fcid);
        raise();
    }
    void remove(const resolverd::Port& port)
    {
        const std::lock_guard lock(mutex_);
        ports_.erase(port);
        raise();
    }
    /// Queries for the port do not come back until release.
    void hang_on(const resolverd::Port& port)
    {
        const std::lock_guard lock(mutex_);
        hanging_.insert(port);
    }
    void fail_on(const resolverd::Port& port)
    {
        const std::lock_guard lock(mutex_);
        failing_.insert(port);
    }
    void fail_tables(bool fail)
    {
        const std::lock_guard lock(mutex_);
        tables_fail_ = fail;
    }
    void release()
    {
        const std::lock_guard lock(mutex_);
        hanging_.clear();
        change_.notify_all();
    }
    [[nodiscard]] int queries()
    {
        const std::lock_guard lock(mutex_);
        return queries_;
    }
    [[nodiscard]] int watchers()
    {
        const std::lock_guard lock(mutex_);
        return static_cast<int>(signal_.use_count()) - 1;
    }

    [[nodiscard]] std::string description() const override { return "the test's name server"; }
    [[nodiscard]] bool lives_with_driver() const override { return true; }

    /// The result is the one of when the query began, however long it takes.
    std::optional<fcid_t> find(const resolverd::Port& port) override
    {
        std::unique_lock lock(mutex_);
        ++queries_;
        const auto found = ports_.find(port);
        const auto result = found == ports_.end() ? std::nullopt : std::optional(found->second);
        change_.wait(lock, [&] { return !hanging_.contains(port); });
        if (failing_.contains(port)) {
            throw std::runtime_error("told to fail");
        }
        return result;
    }

    resolverd::Reading read_table() override
    {
        const std::lock_guard lock(mutex_);
        if (tables_fail_) {
            throw std::runtime_error("told to fail");
        }
        return {ports_, {}};
    }

    std::shared_ptr<resolverd::ChangeSignal> watch() override
    {
        const std::lock_guard lock(mutex_);
        signal_->consume();
        return signal_;
    }

private:
    void raise() { signal_->raise(); }

    std::mutex mutex_;
    std::condition_variable change_;
    resolverd::PortTable ports_;
    std::set<resolverd::Port> hanging_;
    std::set<resolverd::Port> failing_;
    bool tables_fail_ = false;
    int queries_ = 0;
    const std::shared_ptr<FakeSignal> signal_ = std::make_shared<FakeSignal>();
};

} // namespace resolverd_test
