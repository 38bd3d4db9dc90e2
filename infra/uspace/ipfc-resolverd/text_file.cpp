// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/text_file.h"

#include "libipfc/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace resolverd {

namespace {

constexpr size_t kLongestFile = size_t{16} << 20;
constexpr std::string_view kBlanks = " \t\r";

[[noreturn]] void refuse(const std::string& path, int number)
{
    throw std::system_error(number, std::generic_category(), path);
}

Words words_of(std::string_view line)
{
    Words words;
    for (;;) {
        const size_t start = line.find_first_not_of(kBlanks);
        if (start == std::string_view::npos || line[start] == '#') {
            return words;
        }
        line.remove_prefix(start);
        const size_t end = std::min(line.find_first_of(kBlanks), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

} // namespace

MalformedText::MalformedText(const std::string& file, size_t line, const std::string& reason)
    : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason)
{
}

std::string read_file(const std::string& path)
{
    const ipfc::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        refuse(path, errno);
    }
    std::string text;
    std::vector<char> piece(size_t{64} << 10);
    for (;;) {
        const ssize_t count = ::read(file.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            refuse(path, errno);
        }
        if (count == 0) {
            return text;
        }
        text.append(piece.data(), static_cast<size_t>(count));
        if (text.size() > kLongestFile) {
            refuse(path, EFBIG);
        }
    }
}

std::string counted(size_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void for_each_line(std::string_view text, const std::function<void(size_t, const Words&)>& take)
{
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        const Words words = words_of(text.substr(0, end));
        if (!words.empty()) {
            take(number, words);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

} // namespace resolverd
