// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "brim/types.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ipfc {

/// A report of the driver that does not read as it should; what() names the report and the line.
class BadReport : public std::runtime_error {
public:
    BadReport(std::string_view report, size_t line, std::string_view complaint);
};

/**
 * Reads a report from its front, character by character as the driver prints it. What was asked
 * for and is not there throws BadReport. The text must outlive the scanner.
 */
class ReportScanner {
public:
    /// report: what messages call the text.
    ReportScanner(std::string report, std::string_view text);

    [[nodiscard]] bool at_end() const { return rest_.empty(); }
    [[nodiscard]] size_t line() const { return line_; }

    void expect(std::string_view literal);
    /// True, and behind it, when the literal is next.
    [[nodiscard]] bool take(std::string_view literal);
    /// Padding of a column: as many blanks as there are.
    void skip_blanks();
    /// Up to the next blank or line end; never empty.
    std::string_view word();

    /// Within 32 bits, with an optional minus sign.
    int32_t decimal();
    /// As decimal, from 0 to 4095.
    vsan_id_t vsan();
    /// Exactly that many digits, 8 at most.
    uint32_t hexadecimal(size_t digits);
    /// Eight bytes joined by colons. All zeros is a name here.
    wwn_t wwn();
    /// "0x" and six digits; zero is "none".
    fcid_t fcid();

    [[noreturn]] void complain(std::string_view complaint) const;

private:
    void advance(size_t count);

    std::string report_;
    std::string_view rest_;
    size_t line_ = 1;
};

} // namespace ipfc
