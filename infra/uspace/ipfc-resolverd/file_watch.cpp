// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace resolverd {

namespace {

constexpr uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR;

bool same_file(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

} // namespace

FileWatch::FileWatch(const std::string& path)
    : path_(std::filesystem::absolute(path).string()),
      inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (!inotify_) {
        throw std::system_error(errno, std::generic_category(), "inotify");
    }
    add(path_);
    add_target();
    file_is_another();
}

void FileWatch::add(const std::string& path)
{
    const std::filesystem::path file(path);
    const std::string folder = file.parent_path().string();
    const int watch = ::inotify_add_watch(inotify_.get(), folder.c_str(), kEvents);
    if (watch < 0) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    names_[watch] = file.filename().string();
}

void FileWatch::add_target()
{
    std::error_code missing;
    const std::filesystem::path target = std::filesystem::canonical(path_, missing);
    if (!missing && target.parent_path() != std::filesystem::path(path_).parent_path()) {
        add(target.string());
    }
}

pollfd FileWatch::raised_when() const
{
    return {inotify_.get(), POLLIN, 0};
}

bool FileWatch::file_was_named()
{
    bool named = false;
    alignas(inotify_event) char bytes[4096];
    for (;;) {
        const ssize_t count = ::read(inotify_.get(), bytes, sizeof(bytes));
        if (count <= 0) {
            return named;
        }
        for (ssize_t at = 0; at < count;) {
            inotify_event event;
            std::memcpy(&event, bytes + at, sizeof(event));
            const auto watched = names_.find(event.wd);
            // A full queue has lost events: look at the file.
            named = named || (event.mask & IN_Q_OVERFLOW) != 0 ||
                    (watched != names_.end() && event.len != 0 &&
                     watched->second == bytes + at + sizeof(event));
            at += static_cast<ssize_t>(sizeof(event) + event.len);
        }
    }
}

bool FileWatch::file_is_another()
{
    struct stat now {};
    if (::stat(path_.c_str(), &now) != 0) {
        now = {};
    }
    const bool another = !same_file(now, last_);
    last_ = now;
    return another;
}

bool FileWatch::consume()
{
    const bool named = file_was_named();
    // A link on the way may lead elsewhere now; the old folder's watch does no harm.
    add_target();
    return file_is_another() || named;
}

} // namespace resolverd
