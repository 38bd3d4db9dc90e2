// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/style.h"

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>

namespace ipfcctl {

/// Results on standard output, as text for people or as one JSON value a command.
class Output {
public:
    /// How the user wants results to look.
    struct Form {
        bool json = false;
        bool details = false;
        bool color = false;
        bool terminal = false;
    };

    Output(std::ostream& stream, const Form& form) : stream_(stream), form_(form) {}

    /// True when the user asked for more than the usual.
    [[nodiscard]] bool details() const { return form_.details; }
    /// The text in its colour, when there are colours.
    [[nodiscard]] std::string paint(Style style, const std::string& text) const
    {
        return painted(style, text, form_.color);
    }
    [[nodiscard]] bool color() const { return form_.color; }

    /// Writes the text and a line end (nothing for no text), or the value, whichever the user asked
    /// for.
    void show(const std::string& text, const nlohmann::ordered_json& value);
    /// As show, in the place of what a terminal showed before. False when nobody reads any more.
    [[nodiscard]] bool redraw(const std::string& text, const nlohmann::ordered_json& value);
    /// As show, for a reader who waits for each of several. False when nobody reads any more.
    [[nodiscard]] bool append(const std::string& text, const nlohmann::ordered_json& value);

private:
    std::ostream& stream_;
    Form form_;
};

} // namespace ipfcctl
