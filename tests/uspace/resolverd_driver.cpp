// SPDX-License-Identifier: GPL-2.0-only
#include "resolverd_driver.h"

#include "libipfc/names.h"
#include "libipfc/refusal.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace resolverd_test {

using resolverd::Port;

/// Readable as long as bytes, one for each request, wait in the socket; hung up when it is
/// unloaded.
struct FakeDriver::Instance {
    int near_end = -1; ///< the driver's; each open device has a copy of the far end
    int far_end = -1;
    bool gone = false;

    Instance()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("no socket pair");
        }
        near_end = ends[0];
        far_end = ends[1];
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance()
    {
        hang_up();
        ::close(far_end);
    }
    void hang_up()
    {
        if (!std::exchange(gone, true)) {
            ::close(near_end);
        }
    }
};

namespace {

const char* word_for(uint32_t command)
{
    switch (command) {
    case 0x40105003:
        return "add";
    case 0x40105004:
        return "delete";
    case 0x40105005:
        return "update";
    case 0x40105006:
        return "not-found";
    default:
        throw std::logic_error("a command that the daemon has no business with");
    }
}

bool answers_request(uint32_t command)
{
    return command == 0x40105003 || command == 0x40105006;
}

bool carries_fcid(uint32_t command)
{
    return command == 0x40105003 || command == 0x40105005;
}

} // namespace

Port port(vsan_id_t vsan, const std::string& name)
{
    return {vsan, ipfc::parse_wwn("name", name)};
}

fcid_t fcid(const std::string& text)
{
    return ipfc::parse_fcid("FCID", text);
}

std::shared_ptr<FakeDriver::Instance> FakeDriver::make_instance()
{
    return std::make_shared<Instance>();
}

ipfc::ControlDevice FakeDriver::open()
{
    const std::lock_guard lock(mutex_);
    if (!instance_) {
        throw ipfc::DeviceError("there is no control device", ENODEV);
    }
    const std::shared_ptr<Instance> instance = instance_;
    return ipfc::ControlDevice(ipfc::FileDescriptor(::fcntl(instance->far_end, F_DUPFD_CLOEXEC, 0)),
                               {[this, instance](int, unsigned long command, void* record) {
                                    return ioctl(instance, command, record);
                                },
                                [this, instance](int, void* buffer, size_t count) {
                                    return read(instance, buffer, count);
                                }});
}

void FakeDriver::queue_request(const Port& to)
{
    const std::lock_guard lock(mutex_);
    requests_.push_back(to);
    if (::send(instance_->near_end, "r", 1, MSG_NOSIGNAL) != 1) {
        throw std::runtime_error("the request queue is full");
    }
    changed();
}

void FakeDriver::send_packet(const Port& to)
{
    const std::lock_guard lock(mutex_);
    parked_.push_back(to);
    queue_request(to);
}

ssize_t FakeDriver::read(const std::shared_ptr<Instance>& instance, void* buffer, size_t count)
{
    const std::lock_guard lock(mutex_);
    if (instance->gone) {
        errno = ENODEV;
        return -1;
    }
    if (count != 12) {
        errno = EPERM;
        return -1;
    }
    char byte = 0;
    if (::read(instance->far_end, &byte, 1) != 1) {
        errno = EAGAIN;
        return -1;
    }
    const req_mapping_t request{requests_.front().vsan, requests_.front().name};
    requests_.pop_front();
    std::memcpy(buffer, &request, sizeof(request));
    changed();
    // The driver tells how many bytes it could not copy.
    return 0;
}

int FakeDriver::run(uint32_t command, const pn_to_fcid_ioctl_t& record)
{
    const Port subject{record.vsan_id, record.ww_portname};
    commands_.push_back(std::string(word_for(command)) + " " + std::to_string(subject.vsan) + " " +
                        ipfc::to_text(subject.name) +
                        (carries_fcid(command) ? " " + ipfc::to_text(record.fcid) : ""));
    if (const auto refusal = refusals_.find(command); refusal != refusals_.end()) {
        const int number = refusal->second;
        refusals_.erase(refusal);
        return number;
    }
    if (!answers_request(command)) {
        return 0;
    }
    const auto packet = std::find(parked_.begin(), parked_.end(), subject);
    if (packet == parked_.end()) {
        return EPERM;
    }
    parked_.erase(packet);
    return 0;
}

int FakeDriver::ioctl(const std::shared_ptr<Instance>& instance, unsigned long command,
                      void* record)
{
    const std::lock_guard lock(mutex_);
    pn_to_fcid_ioctl_t copy;
    std::memcpy(&copy, record, sizeof(copy));
    errno = instance->gone ? ENODEV : run(static_cast<uint32_t>(command), copy);
    changed();
    return errno == 0 ? 0 : -1;
}

void FakeDriver::refuse_next(uint32_t command, int number)
{
    const std::lock_guard lock(mutex_);
    refusals_[command] = number;
}

void FakeDriver::unload()
{
    const std::lock_guard lock(mutex_);
    instance_->hang_up();
    instance_.reset();
    requests_.clear();
    parked_.clear();
    changed();
}

void FakeDriver::load()
{
    const std::lock_guard lock(mutex_);
    instance_ = make_instance();
    ++loads_;
    changed();
}

std::string FakeDriver::current_load()
{
    const std::lock_guard lock(mutex_);
    return instance_ ? std::to_string(loads_) : "";
}

int FakeDriver::users()
{
    const std::lock_guard lock(mutex_);
    // Two calls of each open device hold the instance, and the driver itself does.
    return instance_ ? static_cast<int>(instance_.use_count() - 1) / 2 : 0;
}

std::vector<std::string> FakeDriver::commands()
{
    const std::lock_guard lock(mutex_);
    return commands_;
}

size_t FakeDriver::parked()
{
    const std::lock_guard lock(mutex_);
    return parked_.size();
}

size_t FakeDriver::unread()
{
    const std::lock_guard lock(mutex_);
    return requests_.size();
}

void FakeDriver::changed()
{
    change_.notify_all();
}

bool FakeDriver::wait_until(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::unique_lock lock(mutex_);
    // Looked at now and then as well: a device is closed without telling.
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        change_.wait_for(lock, std::chrono::milliseconds(5));
    }
    return true;
}

bool FakeDriver::wait_for_commands(size_t count)
{
    return wait_until([&] { return commands_.size() >= count; });
}

} // namespace resolverd_test
