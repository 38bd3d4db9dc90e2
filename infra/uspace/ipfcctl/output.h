// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>

namespace ipfcctl {

/// Results on standard output, as text for people or as one JSON value a command.
class Output {
public:
    Output(std::ostream& stream, bool json) : stream_(stream), json_(json) {}

    /// Writes the text and a line end, or the value, whichever the user asked for.
    void show(const std::string& text, const nlohmann::ordered_json& value);

private:
    std::ostream& stream_;
    bool json_;
};

} // namespace ipfcctl
