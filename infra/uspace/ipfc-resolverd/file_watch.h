// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/name_server.h"

#include "libipfc/file_descriptor.h"

#include <sys/stat.h>

#include <map>
#include <string>

namespace resolverd {

/**
 * Raised when a file has been written and closed, replaced or removed. Its folder is watched, since
 * editors replace files instead of writing into them; when symbolic links lead to the file, so is
 * the folder where they end. A file is not looked at while somebody is still writing it.
 */
class FileWatch : public ChangeSignal {
public:
    /// Throws std::system_error.
    explicit FileWatch(const std::string& path);

    [[nodiscard]] pollfd raised_when() const override;
    bool consume() override;

private:
    void add(const std::string& path);
    void add_target();
    /// Reads the events that wait; true when one names the file.
    bool file_was_named();
    /// True when the path leads to another file, or another age of it, than when last asked.
    bool file_is_another();

    const std::string path_;
    ipfc::FileDescriptor inotify_;
    std::map<int, std::string> names_; ///< watch descriptor, name of the file in its folder
    struct stat last_ {};
};

} // namespace resolverd
