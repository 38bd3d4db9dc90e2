// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace ipfc_test {

/// A directory of the test's own, removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string path = std::filesystem::temp_directory_path() / "ipfc-test.XXXXXX";
        if (::mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path_ = path;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::string file(const std::string& name) const { return path_ / name; }
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] bool empty() const { return std::filesystem::is_empty(path_); }

private:
    std::filesystem::path path_;
};

inline void write_file(const std::string& path, const std::string& text)
{
    std::ofstream(path) << text;
}

/// The file's text; empty when there is no such file.
inline std::string read_file(const std::string& path)
{
    std::ostringstream text;
    std::ifstream file(path);
    text << file.rdbuf();
    return text.str();
}

} // namespace ipfc_test
