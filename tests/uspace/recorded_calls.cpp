// SPDX-License-Identifier: GPL-2.0-only
// Takes the place of the system's calls in a test's copy of the tool. Environment:
//   IPFC_RECORD    file to which each command is appended: code, a blank, the record's bytes
//   IPFC_RESULT    the driver's result, 0 unless given; negative: an error number
//   IPFC_RESULT_OF the command, in hexadecimal digits, that alone ends so; every one unless given
//   IPFC_HEADROOM  what the header-room command stores
//   IPFC_ANSWERS   file of records that commands with an answer store: code, VSAN, bytes. Of lines
//                  for the same code and VSAN each serves once, the last one ever after; without
//                  one the driver has no such interface
//   IPFC_REQUESTS  mapping requests for the reader, each as its bytes, blanks between them; behind
//                  the last the device fails
#include "libipfc/device_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kSetIp = 0x40145011;
constexpr uint32_t kGetInfo = 0xC0345007;
constexpr uint32_t kGetStats = 0xC0AC5008;
constexpr uint32_t kHeaderRoom = 0x40045012;

int setting(const char* name)
{
    const char* text = std::getenv(name);
    return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
}

int result_of(unsigned long command)
{
    const char* only = std::getenv("IPFC_RESULT_OF");
    return only == nullptr || std::strtoul(only, nullptr, 16) == command ? setting("IPFC_RESULT")
                                                                         : 0;
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

std::vector<std::string> answers_to(uint32_t command, int32_t vsan)
{
    std::vector<std::string> answers;
    std::ifstream lines(std::getenv("IPFC_ANSWERS"));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        uint32_t code = 0;
        int32_t number = 0;
        std::string bytes;
        if (words >> std::hex >> code >> std::dec >> number >> bytes && code == command &&
            number == vsan) {
            answers.push_back(bytes);
        }
    }
    return answers;
}

void store_bytes(const std::string& digits, size_t count, void* record)
{
    auto* bytes = static_cast<uint8_t*>(record);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    }
}

/// The driver's result is the number of bytes that it could not copy.
ssize_t read_request(int, void* buffer, size_t count)
{
    const char* text = std::getenv("IPFC_REQUESTS");
    static std::istringstream requests(text == nullptr ? "" : text);
    std::string digits;
    if (!(requests >> digits)) {
        errno = EIO;
        return -1;
    }
    store_bytes(digits, count, buffer);
    return 0;
}

/// What the driver does with the commands that read an interface.
int store_answer(uint32_t command, void* record)
{
    static std::map<std::pair<uint32_t, int32_t>, size_t> given;
    int32_t vsan = 0;
    std::memcpy(&vsan, record, sizeof(vsan));
    const std::vector<std::string> answers = answers_to(command, vsan);
    if (answers.empty()) {
        errno = ENXIO;
        return -1;
    }
    const size_t number = given[{command, vsan}]++;
    store_bytes(answers[std::min(number, answers.size() - 1)], record_size(command), record);
    return 0;
}

int answer(int, unsigned long command, void* record)
{
    write_down(command, record);
    const int result = result_of(command);
    if (result < 0) {
        errno = -result;
        return -1;
    }
    if (std::getenv("IPFC_ANSWERS") != nullptr && (command == kGetInfo || command == kGetStats)) {
        return store_answer(static_cast<uint32_t>(command), record);
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
    return {answer, read_request};
}
