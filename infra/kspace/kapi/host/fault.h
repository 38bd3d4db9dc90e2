// SPDX-License-Identifier: GPL-2.0-only
// What goes wrong on the twin: a dead operation is an exception, a broken rule is remembered.
#pragma once

#include <exception>
#include <string>
#include <vector>

namespace twin {

// A kernel would stop here: BUG(), a buffer's under- or overrun, a lock taken twice.
class KernelBug : public std::exception {
public:
    explicit KernelBug(std::string text) : text_(std::move(text)) {}
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

[[noreturn]] void die(std::string text);

// A rule was broken that a checking kernel would report (lockdep, KASAN, atomic sleep). The
// operation goes on; the fixture fails the test unless the test takes the fault.
void fault(std::string text);
std::vector<std::string> faults();
std::vector<std::string> take_faults();

std::string strf(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace twin
