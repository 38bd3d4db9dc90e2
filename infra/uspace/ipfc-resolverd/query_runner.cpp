// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/query_runner.h"

#include "ipfc-resolverd/text_file.h"

#include "libipfc/file_descriptor.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace resolverd {

/// Outlives the runner while a thread hangs.
struct QueryRunner::Shared {
    ipfc::FileDescriptor event{::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    std::mutex mutex;
    std::vector<Result> results; ///< under mutex
    size_t running = 0;          ///< under mutex

    void finish(Result result)
    {
        const std::lock_guard lock(mutex);
        results.push_back(std::move(result));
        --running;
        ::eventfd_write(event.get(), 1);
    }
};

namespace {

constexpr const char* kNoThread = "no thread could be started";

PortResult ask_for(NameServer& name_server, const Port& port)
{
    try {
        return {port, name_server.find(port), {}};
    } catch (const std::exception& error) {
        return {port, std::nullopt, error.what()};
    }
}

TableResult read_whole(NameServer& name_server, ChangeSignal* signal)
{
    try {
        if (signal != nullptr && !signal->consume()) {
            return {};
        }
        Reading reading = name_server.read_table();
        return {std::make_shared<const PortTable>(std::move(reading.ports)),
                std::move(reading.remark),
                {}};
    } catch (const MalformedText& error) {
        // The same lines until somebody writes others, which raises the signal.
        return {nullptr, {}, error.what(), false};
    } catch (const std::exception& error) {
        return {nullptr, {}, error.what(), true};
    }
}

} // namespace

QueryRunner::QueryRunner(std::shared_ptr<NameServer> name_server)
    : name_server_(std::move(name_server)), shared_(std::make_shared<Shared>())
{
    if (!shared_->event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void QueryRunner::start(std::function<Result()> job, Result without_thread)
{
    {
        const std::lock_guard lock(shared_->mutex);
        ++shared_->running;
    }
    try {
        std::thread([shared = shared_, job = std::move(job)] { shared->finish(job()); }).detach();
    } catch (const std::system_error&) {
        shared_->finish(std::move(without_thread));
    }
}

void QueryRunner::ask(const Port& port)
{
    start([name_server = name_server_, port]() -> Result { return ask_for(*name_server, port); },
          PortResult{port, std::nullopt, kNoThread});
}

void QueryRunner::read_table(std::shared_ptr<ChangeSignal> signal)
{
    start(
        [name_server = name_server_, signal = std::move(signal)]() -> Result {
            return read_whole(*name_server, signal.get());
        },
        TableResult{nullptr, {}, kNoThread, true});
}

int QueryRunner::fd() const
{
    return shared_->event.get();
}

std::vector<Result> QueryRunner::take_results()
{
    const std::lock_guard lock(shared_->mutex);
    eventfd_t count = 0;
    ::eventfd_read(shared_->event.get(), &count);
    return std::exchange(shared_->results, {});
}

size_t QueryRunner::running() const
{
    const std::lock_guard lock(shared_->mutex);
    return shared_->running;
}

} // namespace resolverd
