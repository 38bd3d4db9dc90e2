// SPDX-License-Identifier: GPL-2.0-only
// What was printed to the kernel log.
#pragma once

#include <string>
#include <vector>

namespace twin {

struct LogLine {
    int level;        // 0..7; -1 when the text began with none
    std::string text; // without the level
    std::string raw;  // exactly as printed
};

class Log {
public:
    std::vector<LogLine> lines() const;
    std::vector<std::string> raw() const;
    bool contains(const std::string& raw_text) const; // as one whole message
    void clear();
};

Log& log();

} // namespace twin
