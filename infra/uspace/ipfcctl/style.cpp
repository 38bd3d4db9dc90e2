// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/style.h"

#include "libipfc/names.h"

#include <unistd.h>

#include <cstdlib>

namespace ipfcctl {

namespace {

const char* code_of(Style style)
{
    switch (style) {
    case Style::plain:
        return "";
    case Style::heading:
        return "\033[1m";
    case Style::interface:
        return "\033[36m";
    case Style::wwn:
        return "\033[33m";
    case Style::fcid:
        return "\033[35m";
    case Style::address:
        return "\033[34m";
    case Style::good:
        return "\033[32m";
    case Style::bad:
        return "\033[31m";
    }
    return "";
}

bool is_set(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool is_dumb()
{
    const char* terminal = std::getenv("TERM");
    return terminal == nullptr || std::string_view(terminal) == "dumb";
}

} // namespace

std::string painted(Style style, const std::string& text, bool color)
{
    return color && style != Style::plain ? code_of(style) + text + "\033[0m" : text;
}

bool output_is_terminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

bool wants_color(std::string_view when, bool terminal)
{
    if (when == "auto") {
        return terminal && !is_set("NO_COLOR") && !is_dumb();
    }
    if (when != "always" && when != "never") {
        throw ipfc::BadArgument("--color", when, "neither \"auto\", \"always\" nor \"never\"");
    }
    return when == "always";
}

} // namespace ipfcctl
