// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/output.h"

#include <nlohmann/json.hpp>

namespace ipfcctl {

void Output::show(const std::string& text, const nlohmann::ordered_json& value)
{
    stream_ << (json_ ? value.dump() : text) << '\n';
}

} // namespace ipfcctl
