// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/proc_tree.h"

#include "libipfc/file_descriptor.h"
#include "libipfc/refusal.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace ipfc {

namespace {

constexpr const char* kUsualRoot = "/proc/brim_sw";
/// An interface with a hundred thousand mappings fills a tenth of it.
constexpr size_t kLongestReport = size_t{64} << 20;
constexpr size_t kPiece = size_t{64} << 10;

[[noreturn]] void refuse(const std::string& what, int number)
{
    throw DeviceError(what + ": " + ::strerror(number), number);
}

FileDescriptor open_file(const std::string& path, int flags)
{
    FileDescriptor file(::open(path.c_str(), flags | O_CLOEXEC));
    if (!file) {
        refuse("cannot open " + path, errno);
    }
    return file;
}

/// Appends the next piece; false at the end of the file.
bool read_piece(int fd, std::string& text, const std::string& path)
{
    const size_t length = text.size();
    text.resize(length + kPiece);
    ssize_t count = 0;
    do {
        count = ::read(fd, text.data() + length, kPiece);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        refuse("cannot read " + path, errno);
    }
    text.resize(length + static_cast<size_t>(count));
    return count != 0;
}

} // namespace

ProcTree ProcTree::find(const std::string& explicit_root)
{
    const char* variable = std::getenv(kProcVariable);
    if (!explicit_root.empty()) {
        return ProcTree(explicit_root);
    }
    return ProcTree(variable != nullptr && *variable != '\0' ? variable : kUsualRoot);
}

std::string ProcTree::path(std::string_view name) const
{
    return root_ + '/' + std::string(name);
}

std::string ProcTree::read(std::string_view name) const
{
    const std::string full = path(name);
    const FileDescriptor file = open_file(full, O_RDONLY);
    std::string text;
    while (read_piece(file.get(), text, full)) {
        if (text.size() > kLongestReport) {
            refuse(full + " is too long", EFBIG);
        }
    }
    return text;
}

void ProcTree::write(std::string_view name, std::string_view text) const
{
    const std::string full = path(name);
    const FileDescriptor file = open_file(full, O_WRONLY);
    const ssize_t count = ::write(file.get(), text.data(), text.size());
    if (count < 0) {
        throw DeviceError(::strerror(errno), errno);
    }
    if (static_cast<size_t>(count) != text.size()) {
        refuse(full + " took a part of the text only", EIO);
    }
}

std::vector<std::string> ProcTree::list(std::string_view name) const
{
    std::error_code error;
    std::vector<std::string> names;
    std::filesystem::directory_iterator at(path(name), error);
    for (const std::filesystem::directory_iterator end; !error && at != end; at.increment(error)) {
        names.push_back(at->path().filename());
    }
    if (error) {
        refuse("cannot list " + path(name), error.value());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace ipfc
