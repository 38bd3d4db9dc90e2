// SPDX-License-Identifier: GPL-2.0-only
#include "user_memory.h"

#include "context.h"
#include "fault.h"
#include "records.h"

#include "kapi/uaccess.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>

namespace twin {
namespace {

struct Region {
    unsigned long end;
    bool writable;
};

std::mutex mutex;
std::map<unsigned long, Region> regions; // by first address
std::atomic<unsigned long> address_limit{default_address_limit};
UserCopies copies;

// How many of length bytes at address are mapped, from the first on.
unsigned long reachable(unsigned long address, unsigned long length, bool write)
{
    RecordGuard guard(mutex);
    unsigned long at = address;
    while (at - address < length) {
        auto next = regions.upper_bound(at);
        if (next == regions.begin())
            break;
        const auto& [start, region] = *--next;
        if (at >= region.end || (write && !region.writable))
            break;
        at = region.end;
    }
    return std::min(at - address, length);
}

unsigned long copy(void* to, const void* from, unsigned long user, unsigned long length, bool write)
{
    // Outside of user space not a byte is copied; inside, as far as the pages go.
    unsigned long done = 0;
    if (in_user_space(user, length))
        done = reachable(user, length, write);
    if (done != 0)
        std::memcpy(to, from, done);
    RecordGuard guard(mutex);
    (write ? copies.to_user : copies.from_user) += static_cast<unsigned>(done);
    copies.faults += done != length ? 1 : 0;
    return length - done;
}

} // namespace

UserMemory::UserMemory(std::size_t size, Access access) : size_(size)
{
    const std::size_t mapped = std::max<std::size_t>((size + page_size - 1) & ~(page_size - 1), 1);
    mapping_size_ = ((mapped + page_size - 1) & ~(page_size - 1)) + 2 * page_size;
    void* const pages = mmap(nullptr, mapping_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        die("the test machine has no memory for a user page");
    mapping_ = static_cast<std::uint8_t*>(pages);
    const std::size_t inner = mapping_size_ - 2 * page_size;
    mprotect(mapping_ + page_size, inner, PROT_READ | PROT_WRITE);
    bytes_ = mapping_ + page_size + inner - size;
    RecordGuard guard(mutex);
    const auto start = reinterpret_cast<unsigned long>(mapping_) + page_size;
    regions[start] = {start + inner, access == Access::read_write};
}

UserMemory::UserMemory(std::span<const std::uint8_t> bytes, Access access)
    : UserMemory(bytes.size(), access)
{
    std::memcpy(bytes_, bytes.data(), bytes.size());
}

UserMemory::~UserMemory()
{
    {
        RecordGuard guard(mutex);
        regions.erase(reinterpret_cast<unsigned long>(mapping_) + page_size);
    }
    munmap(mapping_, mapping_size_);
}

void set_address_limit(unsigned long limit)
{
    address_limit = limit;
}

bool in_user_space(unsigned long address, unsigned long size)
{
    const unsigned long limit = address_limit;
    return size <= limit && address <= limit - size;
}

UserCopies user_copies()
{
    RecordGuard guard(mutex);
    return copies;
}

void reset_user_memory()
{
    address_limit = default_address_limit;
    RecordGuard guard(mutex);
    copies = {};
}

} // namespace twin

bool access_ok(int, const void* address, unsigned long size)
{
    return twin::in_user_space(reinterpret_cast<unsigned long>(address), size);
}

unsigned long copy_to_user(void* to, const void* from, unsigned long length)
{
    twin::might_sleep("copy_to_user");
    return twin::copy(to, from, reinterpret_cast<unsigned long>(to), length, true);
}

unsigned long copy_from_user(void* to, const void* from, unsigned long length)
{
    twin::might_sleep("copy_from_user");
    const unsigned long left =
        twin::copy(to, from, reinterpret_cast<unsigned long>(from), length, false);
    // A kernel clears what it could not copy.
    std::memset(static_cast<char*>(to) + (length - left), 0, left);
    return left;
}
