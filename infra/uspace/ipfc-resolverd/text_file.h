// SPDX-License-Identifier: GPL-2.0-only
// Text files of lines of words: reading them, and naming the line that is wrong.
#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace resolverd {

/// A line that cannot be understood; what() is "FILE:LINE: reason".
class MalformedText : public std::runtime_error {
public:
    MalformedText(const std::string& file, size_t line, const std::string& reason);
};

/// The whole file. Throws std::system_error, its text naming the file, also for one of more than
/// 16 MiB: no table of ports is that long.
std::string read_file(const std::string& path);

/// "1 line", "2 lines"
std::string counted(size_t count, const std::string& noun);

using Words = std::vector<std::string_view>;

/// Calls take with the number, from 1, and the words of every line that has any. A "#" in front of
/// a word starts a comment.
void for_each_line(std::string_view text, const std::function<void(size_t, const Words&)>& take);

} // namespace resolverd
