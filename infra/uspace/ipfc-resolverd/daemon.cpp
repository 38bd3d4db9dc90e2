// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/daemon.h"

#include "libipfc/refusal.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace resolverd {

namespace {

/// Requests read in one go, so that a flood of them holds up nothing else for long.
constexpr int kRequestsAtATime = 64;

sigset_t our_signals()
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2}) {
        ::sigaddset(&set, signal);
    }
    return set;
}

ipfc::FileDescriptor open_signals()
{
    const sigset_t set = our_signals();
    ipfc::FileDescriptor file(::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return file;
}

} // namespace

void block_signals()
{
    const sigset_t set = our_signals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Daemon::Daemon(const Configuration& configuration, std::shared_ptr<NameServer> name_server, Log log,
               Surroundings surroundings)
    : log_(log), retry_interval_(configuration.retry_interval),
      name_server_(std::move(name_server)), signals_(open_signals()), queries_(name_server_),
      resolver_(
          configuration.queries, [this](const Port& port) { queries_.ask(port); }, counters_, log_),
      device_(configuration.device, configuration.reports, std::move(surroundings), counters_,
              log_),
      follower_(
          name_server_, queries_, configuration.retry_interval, [this] { resolver_.begin_table(); },
          counters_, log_)
{
}

void Daemon::run()
{
    log_.info("asking " + name_server_->description());
    keep_time(Clock::now());
    show_status();
    service_manager_.ready(status_);
    while (!(stopping_ && (device_.get() == nullptr || resolver_.idle()))) {
        step();
    }
    log_.answer(counters_.text());
}

template <typename Use>
void Daemon::with_device(Use use)
{
    ipfc::ControlDevice* device = device_.get();
    if (device == nullptr) {
        return;
    }
    try {
        use(*device);
    } catch (const ipfc::DeviceError& error) {
        device_.lose(error);
        resolver_.drop_requests();
        resolver_.forget_answers();
    }
}

void Daemon::step()
{
    ipfc::ControlDevice* device = device_.get();
    const bool wanted = resolver_.has_room() && !stopping_ && !device_.closing();
    std::array<pollfd, 4> files{{
        {signals_.get(), POLLIN, 0},
        {queries_.fd(), POLLIN, 0},
        follower_.raised_when(Clock::now()),
        {device != nullptr ? device->fd() : -1, static_cast<short>(wanted ? POLLIN : 0), 0},
    }};
    if (::poll(files.data(), files.size(), wait_time(Clock::now())) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    const Time now = Clock::now();
    if (files[0].revents != 0) {
        take_signal(now);
    }
    if (files[1].revents != 0) {
        take_results(now);
    }
    follower_.raised(files[2].revents);
    // Results may have cost the device.
    if (device_.get() == device) {
        queue_empty_ = wanted && files[3].revents == 0;
        device_is_ready(files[3].revents, now);
    }
    keep_time(now);
    show_status();
}

int Daemon::wait_time(Time now) const
{
    Time next = next_look_;
    if (const auto deadline = resolver_.next_deadline()) {
        next = std::min(next, *deadline);
    }
    if (service_manager_.watchdog_interval()) {
        next = std::min(next, next_alive_);
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::max<long>(wait, 0));
}

void Daemon::keep_time(Time now)
{
    with_device([&](ipfc::ControlDevice& device) { resolver_.expire(device, now); });
    if (resolver_.table_is_due() || follower_.due(now)) {
        follower_.read();
    }
    if (now >= next_look_) {
        look_around(now);
        next_look_ = now + retry_interval_;
    }
    if (const auto interval = service_manager_.watchdog_interval();
        interval && now >= next_alive_) {
        service_manager_.alive();
        next_alive_ = now + *interval;
    }
}

void Daemon::look_around(Time now)
{
    const bool idle = resolver_.idle() && (queue_empty_ || device_.closing());
    if (device_.try_close(now, idle) == DeviceHold::Closed::tables_gone) {
        resolver_.forget_answers();
    }
    const bool opened = !stopping_ && device_.try_open(now);
    const bool watch = device_.get() != nullptr || !name_server_->lives_with_driver();
    if (follower_.keep(watch, now) || opened) {
        follower_.read();
    }
}

void Daemon::device_is_ready(short events, Time now)
{
    if ((events & POLLIN) != 0) {
        with_device([&](ipfc::ControlDevice& device) { read_requests(device, now); });
    } else if (events != 0) {
        with_device([](ipfc::ControlDevice&) {
            throw ipfc::DeviceError("the control device is closed from the other side", ENODEV);
        });
    }
}

void Daemon::read_requests(ipfc::ControlDevice& device, Time now)
{
    for (int left = kRequestsAtATime; left > 0 && resolver_.has_room(); --left) {
        const std::optional<req_mapping_t> request = device.read_request();
        if (!request) {
            return;
        }
        resolver_.request(device, {request->vsan_id, request->ww_portname}, now);
    }
}

void Daemon::take_results(Time now)
{
    for (const Result& result : queries_.take_results()) {
        std::visit([&](const auto& known) { take_result(known, now); }, result);
    }
}

void Daemon::take_result(const PortResult& result, Time)
{
    if (device_.get() == nullptr) {
        resolver_.finish_query(result);
    }
    with_device([&](ipfc::ControlDevice& device) { resolver_.finish_query(device, result); });
}

void Daemon::take_result(const TableResult& result, Time now)
{
    if (const auto table = follower_.take(result, now)) {
        with_device([&](ipfc::ControlDevice& device) { resolver_.take_table(device, *table); });
    }
}

void Daemon::take_signal(Time now)
{
    signalfd_siginfo info{};
    if (::read(signals_.get(), &info, sizeof(info)) != sizeof(info)) {
        return;
    }
    switch (info.ssi_signo) {
    case SIGHUP:
        service_manager_.reloading();
        follower_.read();
        service_manager_.ready(status_);
        break;
    case SIGUSR1:
        log_.answer(counters_.text());
        break;
    case SIGUSR2:
        device_.release(now);
        next_look_ = now;
        break;
    default:
        stop();
    }
}

// What waits is still answered, within the time that a query may take; asked a second time, at
// once.
void Daemon::stop()
{
    if (std::exchange(stopping_, true)) {
        with_device([&](ipfc::ControlDevice& device) { resolver_.give_up(device); });
    }
    service_manager_.stopping();
}

void Daemon::show_status()
{
    const std::string status =
        device_.get() != nullptr ? "answering the driver's requests" : "waiting for the driver";
    if (!stopping_ && std::exchange(status_, status) != status) {
        service_manager_.status(status);
    }
}

} // namespace resolverd
