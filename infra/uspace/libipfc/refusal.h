// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace ipfc {

/// A command that the driver refused, or a device that could not be reached.
class DeviceError : public std::runtime_error {
public:
    /// reason: a clause in words, without the number; number: a positive errno value.
    DeviceError(const std::string& reason, int number);

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    std::string reason_;
    int number_;
};

/// Why the driver answers the command with this errno value (positive), as a clause in words.
std::string reason_of_refusal(uint32_t command, int number);

/// "EINVAL" for 22; "error 200" for a number without a name.
std::string error_name(int number);

} // namespace ipfc
