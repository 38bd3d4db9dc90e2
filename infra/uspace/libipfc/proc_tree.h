// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ipfc {

/// Name of the environment variable that puts another directory in the place of the usual one.
inline constexpr const char* kProcVariable = "IPFC_PROC";

/// The text files of the switch's modules, below one directory. Failures throw DeviceError.
class ProcTree {
public:
    /// An explicit directory, else the environment's, else /proc/brim_sw.
    static ProcTree find(const std::string& explicit_root = {});

    explicit ProcTree(std::string root) : root_(std::move(root)) {}

    /// name: relative to the root, as "ipfc/vsan10".
    [[nodiscard]] std::string path(std::string_view name) const;
    /// The whole text; refused when it is absurdly long.
    [[nodiscard]] std::string read(std::string_view name) const;
    /// In one write, as these files want it.
    void write(std::string_view name, std::string_view text) const;
    /// Names in the directory, sorted.
    [[nodiscard]] std::vector<std::string> list(std::string_view name) const;

private:
    std::string root_;
};

} // namespace ipfc
