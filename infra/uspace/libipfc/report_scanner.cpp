// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/report_scanner.h"

#include <algorithm>
#include <charconv>

namespace ipfc {

namespace {

constexpr size_t kLongestQuote = 40;

/// What is really there, cut at the line's end, for a message.
std::string quoted_start(std::string_view text)
{
    if (text.empty()) {
        return "the end of the text";
    }
    const std::string_view line = text.substr(0, text.find('\n'));
    return '"' + std::string(line.substr(0, kLongestQuote)) + '"';
}

/// A message is one line.
std::string named(std::string_view literal)
{
    if (literal == "\n") {
        return "the end of the line";
    }
    std::string name;
    for (const char c : literal) {
        name += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return '"' + name + '"';
}

} // namespace

BadReport::BadReport(std::string_view report, size_t line, std::string_view complaint)
    : std::runtime_error(std::string(report) + ", line " + std::to_string(line) + ": " +
                         std::string(complaint))
{
}

ReportScanner::ReportScanner(std::string report, std::string_view text)
    : report_(std::move(report)), rest_(text)
{
}

void ReportScanner::complain(std::string_view complaint) const
{
    throw BadReport(report_, line_, complaint);
}

void ReportScanner::advance(size_t count)
{
    line_ += static_cast<size_t>(std::count(rest_.begin(), rest_.begin() + count, '\n'));
    rest_.remove_prefix(count);
}

bool ReportScanner::take(std::string_view literal)
{
    if (!rest_.starts_with(literal)) {
        return false;
    }
    advance(literal.size());
    return true;
}

void ReportScanner::expect(std::string_view literal)
{
    if (!take(literal)) {
        complain(named(literal) + " is missing in front of " + quoted_start(rest_));
    }
}

void ReportScanner::skip_blanks()
{
    advance(std::min(rest_.find_first_not_of(' '), rest_.size()));
}

std::string_view ReportScanner::word()
{
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" \n"));
    if (word.empty()) {
        complain("a word is missing in front of " + quoted_start(rest_));
    }
    advance(word.size());
    return word;
}

int32_t ReportScanner::decimal()
{
    int32_t value = 0;
    const auto [end, error] = std::from_chars(rest_.begin(), rest_.end(), value, 10);
    if (error != std::errc{}) {
        complain(quoted_start(rest_) + " does not start with a decimal number of 32 bits");
    }
    advance(static_cast<size_t>(end - rest_.begin()));
    return value;
}

vsan_id_t ReportScanner::vsan()
{
    const int32_t number = decimal();
    if (number < 0 || number > VSAN_ID_MAX) {
        complain(std::to_string(number) + " is no VSAN");
    }
    return number;
}

uint32_t ReportScanner::hexadecimal(size_t digits)
{
    const std::string_view text = rest_.substr(0, digits);
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), value, 16);
    if (error != std::errc{} || end != text.begin() + digits) {
        complain(quoted_start(rest_) + " does not start with " + std::to_string(digits) +
                 " hexadecimal digits");
    }
    advance(digits);
    return value;
}

wwn_t ReportScanner::wwn()
{
    wwn_t name{};
    for (size_t i = 0; i < sizeof(name.str); ++i) {
        if (i != 0) {
            expect(":");
        }
        name.str[i] = static_cast<uint8_t>(hexadecimal(2));
    }
    return name;
}

fcid_t ReportScanner::fcid()
{
    expect("0x");
    fcid_t fcid{};
    for (size_t i = 1; i < sizeof(fcid.str); ++i) {
        fcid.str[i] = static_cast<uint8_t>(hexadecimal(2));
    }
    return fcid;
}

} // namespace ipfc
