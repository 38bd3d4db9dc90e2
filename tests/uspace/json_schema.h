// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace ipfc_test {

/**
 * What is wrong with the value by the definition of that name, with the place in the value; empty
 * when all is well. The keywords that the tool's schema uses are known, and a schema with another
 * one throws std::invalid_argument, so that no part of it is passed over.
 */
std::string schema_complaint(const nlohmann::json& schema, const std::string& definition,
                             const nlohmann::json& value);

} // namespace ipfc_test
