// SPDX-License-Identifier: GPL-2.0-only
// User memory: mapped pages with unmapped ones on both sides. Only what a UserMemory covers can be
// copied to or from; everything else faults, kernel memory above all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace twin {

inline constexpr std::size_t page_size = 4096;

// User space ends here on x86-64.
inline constexpr unsigned long default_address_limit = 0x00007ffffffff000;

class UserMemory {
public:
    enum class Access { read_write, read_only };

    // size bytes whose last one is the last of its page: the next byte is unmapped. Bytes in front
    // that belong to the same page are mapped too.
    explicit UserMemory(std::size_t size, Access access = Access::read_write);
    explicit UserMemory(std::span<const std::uint8_t> bytes, Access access = Access::read_write);
    ~UserMemory();
    UserMemory(const UserMemory&) = delete;

    template <typename Record>
    requires std::is_trivially_copyable_v<Record>
    static UserMemory of(const Record& record)
    {
        return UserMemory(
            std::span(reinterpret_cast<const std::uint8_t*>(&record), sizeof(record)));
    }

    void* address() const { return bytes_; }
    char* chars() const { return static_cast<char*>(address()); }
    unsigned long argument() const { return reinterpret_cast<unsigned long>(bytes_); }
    // Past the last byte: unmapped.
    void* unmapped() const { return bytes_ + size_; }
    std::size_t size() const { return size_; }

    std::vector<std::uint8_t> bytes() const { return {bytes_, bytes_ + size_}; }
    void fill(std::uint8_t value) { std::memset(bytes_, value, size_); }

    template <typename Record>
    Record as() const
    {
        Record record;
        std::memcpy(&record, bytes_, sizeof(record));
        return record;
    }

private:
    std::uint8_t* mapping_;
    std::size_t mapping_size_;
    std::uint8_t* bytes_;
    std::size_t size_;
};

void set_address_limit(unsigned long limit);

// The range test alone, without the driver's call.
bool in_user_space(unsigned long address, unsigned long size);

// How many bytes the module has copied out and in.
struct UserCopies {
    unsigned to_user;
    unsigned from_user;
    unsigned faults;
};
UserCopies user_copies();

void reset_user_memory();

} // namespace twin
