// SPDX-License-Identifier: GPL-2.0-only
// Character devices as processes use them. Commands run one at a time; nobody opens a device before
// the start-up of the module that registered it is over.
#pragma once

#include "poll_table.h"
#include "user_memory.h"

#include "kapi/chrdev.h"

#include <optional>
#include <string>
#include <vector>

namespace twin {

class Module;

struct CharDevice {
    unsigned major;
    std::string name;
    const file_operations* operations;
    const Module* owner; // null: registered outside of any module's start-up
};

std::vector<CharDevice> char_devices();
std::optional<CharDevice> find_char_device(const std::string& name);

// A major number that somebody else holds.
void take_major(unsigned major);

// An open device. Results are the system calls': negative error numbers, never errno.
class CharFile {
public:
    // Never throws for a refusal: see error().
    explicit CharFile(const std::string& name, unsigned flags = 0);
    ~CharFile();
    CharFile(const CharFile&) = delete;

    // 0 when open.
    long error() const { return error_; }

    long read(void* user, std::size_t count); // access_ok first, as the kernel does
    long write(const void* user, std::size_t count);
    long ioctl(unsigned cmd, unsigned long argument);
    long compat_ioctl(unsigned cmd, unsigned long argument);

    // The record is copied to user memory, and back from it after the command.
    template <typename Record>
    long command(unsigned cmd, Record& record)
    {
        UserMemory user = UserMemory::of(record);
        const long result = ioctl(cmd, user.argument());
        record = user.as<Record>();
        return result;
    }
    template <typename Record>
    long command(unsigned cmd, const Record& record)
    {
        return ioctl(cmd, UserMemory::of(record).argument());
    }

    // The mask. table null: as a poller that is ready already asks.
    unsigned poll_once(poll_table* table = nullptr);
    // The whole system call without a wait: the driver's poll, the entry in its queues, and the
    // driver's poll again. entry then shows a later wake-up.
    unsigned poll(PollEntry& entry);

    file* filp() { return &file_; }
    inode* node() { return reinterpret_cast<inode*>(&inode_); }

private:
    file file_;
    long inode_ = 0;
    const file_operations* operations_ = nullptr;
    long error_ = 0;
};

unsigned open_files();

// Unregisters silently what the module left behind.
void release_char_devices(const Module* owner);
void reset_char_devices();

} // namespace twin
