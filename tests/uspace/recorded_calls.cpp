// SPDX-License-Identifier: GPL-2.0-only
// Takes the place of the system's calls in a test's copy of the tool. Environment:
//   IPFC_RECORD    file to which each command is appended: code, a blank, the record's bytes
//   IPFC_RESULT    the driver's result, 0 unless given; negative: an error number
//   IPFC_HEADROOM  what the header-room command stores
#include "libipfc/device_calls.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kSetIp = 0x40145011;
constexpr uint32_t kHeaderRoom = 0x40045012;

int setting(const char* name)
{
    const char* text = std::getenv(name);
    return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
}

/// The bytes that the driver copies in: the size in the code, but for one command.
size_t record_size(uint32_t command)
{
    return command == kSetIp ? 52 : (command >> 16) & 0x3FFF;
}

void write_down(unsigned long command, const void* record)
{
    const char* path = std::getenv("IPFC_RECORD");
    std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "a");
    if (file == nullptr) {
        std::fputs("IPFC_RECORD names no file that can be written\n", stderr);
        std::abort();
    }
    std::fprintf(file, "%08lx ", command);
    const auto* bytes = static_cast<const uint8_t*>(record);
    for (size_t i = 0; i < record_size(static_cast<uint32_t>(command)); ++i) {
        std::fprintf(file, "%02x", bytes[i]);
    }
    std::fputc('\n', file);
    std::fclose(file);
}

int answer(int, unsigned long command, void* record)
{
    write_down(command, record);
    const int result = setting("IPFC_RESULT");
    if (result < 0) {
        errno = -result;
        return -1;
    }
    if (command == kHeaderRoom && result == 0) {
        const int32_t room = setting("IPFC_HEADROOM");
        std::memcpy(record, &room, sizeof(room));
    }
    return result;
}

} // namespace

ipfc::DeviceCalls ipfc::DeviceCalls::of_system()
{
    return {answer, [](int, void*, size_t) -> ssize_t { std::abort(); }};
}
