// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/debug_elements.h"

#include "libipfc/refusal.h"
#include "libipfc/report_scanner.h"

#include <cerrno>
#include <sstream>

namespace ipfc {

namespace {

constexpr const char* kDirectory = "dbgtap";

std::string file_of(const std::string& module, const std::string& element, const char* file)
{
    return std::string(kDirectory) + '/' + module + '/' + element + '/' + file;
}

const char* file_of(DebugSwitch which)
{
    return which == DebugSwitch::history ? "history_enabled" : "log_enabled";
}

[[noreturn]] void explain(const DeviceError& error)
{
    if (error.number() == ENOENT) {
        throw DeviceError("no such debug element", ENOENT);
    }
    throw error;
}

std::string read_file(const ProcTree& tree, const std::string& name)
{
    try {
        return tree.read(name);
    } catch (const DeviceError& error) {
        explain(error);
    }
}

void write_file(const ProcTree& tree, const std::string& name, std::string_view text)
{
    try {
        tree.write(name, text);
    } catch (const DeviceError& error) {
        explain(error);
    }
}

bool read_switch(const ProcTree& tree, const std::string& name)
{
    const std::string text = read_file(tree, name);
    if (text != "0\n" && text != "1\n") {
        throw BadReport(tree.path(name), 1, "neither 0 nor 1");
    }
    return text == "1\n";
}

} // namespace

DebugElement read_debug_element(const ProcTree& tree, const std::string& module,
                                const std::string& element)
{
    return {module, element,
            read_switch(tree, file_of(module, element, file_of(DebugSwitch::history))),
            read_switch(tree, file_of(module, element, file_of(DebugSwitch::log)))};
}

std::vector<DebugElement> read_debug_elements(const ProcTree& tree)
{
    std::vector<DebugElement> elements;
    for (const std::string& module : tree.list(kDirectory)) {
        for (const std::string& element : tree.list(std::string(kDirectory) + '/' + module)) {
            elements.push_back(read_debug_element(tree, module, element));
        }
    }
    return elements;
}

void set_debug_switch(const ProcTree& tree, const std::string& module, const std::string& element,
                      DebugSwitch which, bool on)
{
    write_file(tree, file_of(module, element, file_of(which)), on ? "1\n" : "0\n");
}

std::vector<std::string> read_debug_history(const ProcTree& tree, const std::string& module,
                                            const std::string& element)
{
    std::istringstream text(read_file(tree, file_of(module, element, "history")));
    std::vector<std::string> messages;
    for (std::string message; std::getline(text, message);) {
        messages.push_back(message);
    }
    return messages;
}

void clear_debug_history(const ProcTree& tree, const std::string& module,
                         const std::string& element)
{
    // Whatever is written empties it.
    write_file(tree, file_of(module, element, "history"), "\n");
}

} // namespace ipfc
