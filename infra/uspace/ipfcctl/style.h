// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <string_view>

namespace ipfcctl {

/// What a piece of text is, as far as its colour goes.
enum class Style { plain, heading, interface, wwn, fcid, address, good, bad };

/// The text between the terminal's codes for its style; as it is when color is false.
std::string painted(Style style, const std::string& text, bool color);

/// True when standard output is a terminal.
bool output_is_terminal();

/// The answer to --color's "auto", "always" or "never"; throws ipfc::BadArgument for other words.
/// NO_COLOR and a terminal that can do nothing are reasons against colours unless they are asked
/// for.
bool wants_color(std::string_view when, bool terminal);

} // namespace ipfcctl
