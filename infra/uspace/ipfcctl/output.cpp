// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/output.h"

#include <nlohmann/json.hpp>

namespace ipfcctl {

namespace {

/// ECMA-48: cursor to the upper left, then erase to the end of the screen.
constexpr const char* kClearScreen = "\033[H\033[J";

} // namespace

void Output::show(const std::string& text, const nlohmann::ordered_json& value)
{
    using nlohmann::ordered_json;
    if (form_.json) {
        // A message of the driver may hold any bytes; a JSON text may not.
        stream_ << value.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << '\n';
    } else if (!text.empty()) {
        stream_ << text << '\n';
    }
}

bool Output::redraw(const std::string& text, const nlohmann::ordered_json& value)
{
    if (form_.terminal && !form_.json) {
        stream_ << kClearScreen;
    }
    return append(text, value);
}

bool Output::append(const std::string& text, const nlohmann::ordered_json& value)
{
    show(text, value);
    return static_cast<bool>(stream_.flush());
}

} // namespace ipfcctl
