// SPDX-License-Identifier: GPL-2.0-only
#include "chrdev.h"

#include "context.h"
#include "fault.h"
#include "heap.h"
#include "journal.h"
#include "module.h"
#include "task.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>

namespace twin {
namespace {

constexpr int e_nxio = 6;
constexpr int e_nomem = 12;
constexpr int e_fault = 14;
constexpr int e_busy = 16;
constexpr int e_inval = 22;
constexpr int e_notty = 25;

// Automatic numbers are given from 254 down.
constexpr unsigned first_automatic = 254;
constexpr unsigned last_automatic = 234;
constexpr unsigned major_limit = 512;

struct Entry {
    CharDevice device;
    void* block; // in the heap's books, so that a registration left over shows as a leak
};

std::mutex mutex; // guards the tables below
// 2.6.27 runs commands under its one big lock; the glue to newer kernels keeps one for them.
std::mutex big_lock;
std::vector<Entry> entries;
std::set<unsigned> taken;
std::atomic<unsigned> open_count{0};

bool is_free(unsigned major)
{
    if (taken.count(major) != 0)
        return false;
    for (const Entry& entry : entries)
        if (entry.device.major == major)
            return false;
    return true;
}

int choose(unsigned major)
{
    if (major >= major_limit)
        return -e_inval;
    if (major != 0)
        return is_free(major) ? static_cast<int>(major) : -e_busy;
    for (unsigned candidate = first_automatic; candidate >= last_automatic; --candidate)
        if (is_free(candidate))
            return static_cast<int>(candidate);
    return -e_busy;
}

} // namespace

std::vector<CharDevice> char_devices()
{
    std::lock_guard guard(mutex);
    std::vector<CharDevice> result;
    result.reserve(entries.size());
    for (const Entry& entry : entries)
        result.push_back(entry.device);
    return result;
}

std::optional<CharDevice> find_char_device(const std::string& name)
{
    for (CharDevice& device : char_devices())
        if (device.name == name)
            return std::move(device);
    return std::nullopt;
}

void take_major(unsigned major)
{
    std::lock_guard guard(mutex);
    taken.insert(major);
}

unsigned open_files()
{
    return open_count;
}

void release_char_devices(const Module* owner)
{
    std::lock_guard guard(mutex);
    for (auto entry = entries.begin(); entry != entries.end();) {
        if (entry->device.owner != owner) {
            ++entry;
            continue;
        }
        heap().give_back(Kind::chrdev, entry->block, "unregister_chrdev");
        entry = entries.erase(entry);
    }
}

void reset_char_devices()
{
    std::lock_guard guard(mutex);
    for (const Entry& entry : entries)
        heap().give_back(Kind::chrdev, entry.block, "unregister_chrdev");
    entries.clear();
    taken.clear();
}

CharFile::CharFile(const std::string& name, unsigned flags)
{
    std::memset(static_cast<void*>(&file_), 0, sizeof(file_));
    file_.f_flags = flags;
    // A kernel takes a reference on the module first, which one that is starting does not give.
    const std::optional<CharDevice> device = find_char_device(name);
    if (!device || (device->owner != nullptr && !device->owner->live())) {
        error_ = -e_nxio;
        return;
    }
    might_sleep("open");
    operations_ = device->operations;
    ++open_count;
    if (operations_->open != nullptr)
        error_ = operations_->open(node(), &file_);
    if (error_ != 0) {
        --open_count;
        operations_ = nullptr;
    }
}

CharFile::~CharFile()
{
    if (operations_ == nullptr)
        return;
    if (operations_->release != nullptr)
        operations_->release(node(), &file_);
    --open_count;
}

long CharFile::read(void* user, std::size_t count)
{
    if (operations_ == nullptr || operations_->read == nullptr)
        return -e_inval;
    if (!in_user_space(reinterpret_cast<unsigned long>(user), count))
        return -e_fault;
    might_sleep("read");
    loff_t position = 0;
    const long result = operations_->read(&file_, static_cast<char*>(user), count, &position);
    if (marked_interruptible())
        fault("read returned without its task being set running");
    return result;
}

long CharFile::write(const void* user, std::size_t count)
{
    if (operations_ == nullptr || operations_->write == nullptr)
        return -e_inval;
    if (!in_user_space(reinterpret_cast<unsigned long>(user), count))
        return -e_fault;
    might_sleep("write");
    loff_t position = 0;
    return operations_->write(&file_, static_cast<const char*>(user), count, &position);
}

long CharFile::ioctl(unsigned cmd, unsigned long argument)
{
    if (operations_ == nullptr || operations_->ioctl == nullptr)
        return -e_notty;
    might_sleep("ioctl");
    std::lock_guard guard(big_lock);
    return operations_->ioctl(node(), &file_, cmd, argument);
}

long CharFile::compat_ioctl(unsigned cmd, unsigned long argument)
{
    if (operations_ == nullptr || operations_->compat_ioctl == nullptr)
        return -e_notty;
    might_sleep("compat_ioctl");
    std::lock_guard guard(big_lock);
    return operations_->compat_ioctl(&file_, cmd, argument);
}

unsigned CharFile::poll_once(poll_table* table)
{
    if (operations_ == nullptr || operations_->poll == nullptr)
        return 0;
    return operations_->poll(&file_, table);
}

unsigned CharFile::poll(PollEntry& entry)
{
    might_sleep("poll");
    // The driver only names its queues here: it may hold a spin lock, and entering a queue can
    // sleep. What happened between its look and the entry is seen by the second look.
    poll_table table;
    poll_once(&table);
    might_sleep("poll, whose driver returned with a lock held,");
    entry.enter(table);
    return poll_once(nullptr);
}

} // namespace twin

using namespace twin;

int register_chrdev(unsigned int major, const char* name, const file_operations* operations)
{
    might_sleep("register_chrdev");
    int result = -e_nomem;
    if (!heap().attempt(Kind::chrdev, "register_chrdev")) {
        std::lock_guard guard(mutex);
        result = choose(major);
        if (result > 0) {
            void* const block = heap().take_silently(Kind::chrdev, 1, "register_chrdev");
            entries.push_back(
                {{static_cast<unsigned>(result), name, operations, Module::starting()}, block});
        }
    }
    journal().add(Source::chrdev, strf("register_chrdev %u %s = %d", major, name, result));
    return major != 0 && result > 0 ? 0 : result;
}

void unregister_chrdev(unsigned int major, const char* name)
{
    might_sleep("unregister_chrdev");
    journal().add(Source::chrdev, strf("unregister_chrdev %u %s", major, name));
    // Both must match; a kernel says nothing when they do not.
    std::lock_guard guard(mutex);
    for (auto entry = entries.begin(); entry != entries.end(); ++entry)
        if (entry->device.major == major && entry->device.name == name) {
            heap().give_back(Kind::chrdev, entry->block, "unregister_chrdev");
            entries.erase(entry);
            return;
        }
}

inode* file_inode(const file* filp)
{
    // CharFile keeps the inode right behind the file.
    return reinterpret_cast<inode*>(const_cast<file*>(filp) + 1);
}
