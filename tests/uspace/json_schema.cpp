// SPDX-License-Identifier: GPL-2.0-only
#include "json_schema.h"

#include <algorithm>
#include <functional>
#include <map>
#include <regex>
#include <stdexcept>

namespace ipfc_test {

namespace {

using nlohmann::json;

constexpr const char* kDefinitions = "#/$defs/";

/// One value held against one schema, and on to their parts.
class Check {
public:
    Check(const json& document, std::string place) : document_(document), place_(std::move(place))
    {
    }

    [[nodiscard]] std::string run(const json& schema, const json& value) const
    {
        for (const auto& [keyword, argument] : schema.items()) {
            const auto rule = rules().find(keyword);
            if (rule == rules().end()) {
                throw std::invalid_argument("unknown schema keyword " + keyword);
            }
            const std::string complaint = (this->*rule->second)(schema, argument, value);
            if (!complaint.empty()) {
                return complaint;
            }
        }
        return {};
    }

private:
    using Rule = std::string (Check::*)(const json& schema, const json& argument,
                                        const json& value) const;

    static const std::map<std::string, Rule>& rules()
    {
        static const std::map<std::string, Rule> all{
            {"description", &Check::annotation},
            {"$ref", &Check::reference},
            {"type", &Check::type},
            {"enum", &Check::enumeration},
            {"pattern", &Check::pattern},
            {"minimum", &Check::minimum},
            {"maximum", &Check::maximum},
            {"items", &Check::items},
            {"properties", &Check::properties},
            {"required", &Check::required},
            {"additionalProperties", &Check::additional},
        };
        return all;
    }

    [[nodiscard]] std::string fault(const std::string& what) const { return place_ + ": " + what; }
    [[nodiscard]] Check below(const std::string& part) const
    {
        return {document_, place_ + '/' + part};
    }

    static bool is_of(const std::string& type, const json& value)
    {
        return (type == "null" && value.is_null()) || (type == "boolean" && value.is_boolean()) ||
               (type == "string" && value.is_string()) || (type == "array" && value.is_array()) ||
               (type == "object" && value.is_object()) ||
               (type == "integer" && value.is_number_integer()) ||
               (type == "number" && value.is_number());
    }

    std::string annotation(const json&, const json&, const json&) const { return {}; }

    std::string reference(const json&, const json& target, const json& value) const
    {
        const std::string text = target;
        if (!text.starts_with(kDefinitions)) {
            throw std::invalid_argument("reference " + text);
        }
        return run(document_.at("$defs").at(text.substr(std::string(kDefinitions).size())), value);
    }

    std::string type(const json&, const json& types, const json& value) const
    {
        const json list = types.is_array() ? types : json::array({types});
        const bool fits = std::any_of(list.begin(), list.end(), [&](const json& type) {
            return is_of(type.get<std::string>(), value);
        });
        return fits ? "" : fault(value.dump() + " is not of type " + types.dump());
    }

    std::string enumeration(const json&, const json& values, const json& value) const
    {
        const bool found = std::find(values.begin(), values.end(), value) != values.end();
        return found ? "" : fault(value.dump() + " is none of " + values.dump());
    }

    std::string pattern(const json&, const json& expression, const json& value) const
    {
        const bool fits =
            !value.is_string() ||
            std::regex_search(value.get<std::string>(), std::regex(std::string(expression)));
        return fits ? "" : fault(value.dump() + " does not match " + expression.dump());
    }

    std::string minimum(const json&, const json& limit, const json& value) const
    {
        return value.is_number() && value < limit ? fault(value.dump() + " is too small") : "";
    }

    std::string maximum(const json&, const json& limit, const json& value) const
    {
        return value.is_number() && value > limit ? fault(value.dump() + " is too large") : "";
    }

    std::string items(const json&, const json& schema, const json& value) const
    {
        for (size_t i = 0; value.is_array() && i < value.size(); ++i) {
            const std::string complaint = below(std::to_string(i)).run(schema, value[i]);
            if (!complaint.empty()) {
                return complaint;
            }
        }
        return {};
    }

    std::string properties(const json&, const json& schemas, const json& value) const
    {
        for (const auto& [name, schema] : schemas.items()) {
            const std::string complaint =
                value.contains(name) ? below(name).run(schema, value[name]) : std::string();
            if (!complaint.empty()) {
                return complaint;
            }
        }
        return {};
    }

    std::string required(const json&, const json& names, const json& value) const
    {
        for (const std::string name : names) {
            if (value.is_object() && !value.contains(name)) {
                return fault(name + " is missing");
            }
        }
        return {};
    }

    std::string additional(const json& schema, const json& allowed, const json& value) const
    {
        if (allowed != false) {
            throw std::invalid_argument("additionalProperties other than false");
        }
        for (const auto& item : value.items()) {
            if (value.is_object() && !schema.at("properties").contains(item.key())) {
                return fault(item.key() + " is unknown");
            }
        }
        return {};
    }

    const json& document_;
    std::string place_;
};

} // namespace

std::string schema_complaint(const json& schema, const std::string& definition, const json& value)
{
    return Check(schema, definition).run(schema.at("$defs").at(definition), value);
}

} // namespace ipfc_test
