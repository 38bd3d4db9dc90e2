// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/session.h"

#include <CLI/App.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ipfcctl {

/// A word that follows a command by its place.
struct Argument {
    std::string name;
    std::string description;
    bool required = true;
};

/// The words behind a command as the user wrote them, by the arguments' names.
class Words {
public:
    /// Of an argument that was required.
    [[nodiscard]] const std::string& operator[](const std::string& name) const
    {
        return given_.at(name).value();
    }
    /// None when an optional one was left out.
    [[nodiscard]] std::optional<std::string> find(const std::string& name) const
    {
        return given_.at(name);
    }

private:
    friend CLI::App* add_command(CLI::App&, Session&, const std::string&, const std::string&,
                                 const std::vector<Argument>&,
                                 const std::function<DriverAction(const Words&)>&);
    std::map<std::string, std::optional<std::string>> given_;
};

/**
 * Adds a command below the object. choose turns the words into the action; it runs when the line
 * has been read, and throws ipfc::BadArgument before anything is sent when a word is wrong.
 */
CLI::App* add_command(CLI::App& object, Session& session, const std::string& name,
                      const std::string& description, const std::vector<Argument>& arguments,
                      const std::function<DriverAction(const Words&)>& choose);

extern const Argument kVsanArgument;
extern const Argument kOptionalVsanArgument;

vsan_id_t vsan_in(const Words& words);
std::optional<vsan_id_t> optional_vsan_in(const Words& words);

} // namespace ipfcctl
