// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command_line.h"

#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/session.h"

#include "libipfc/device_node.h"
#include "libipfc/names.h"
#include "libipfc/refusal.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace ipfcctl {

namespace {

constexpr const char* kProgram = "ipfcctl";

/// Words that form no command; the help of app tells what would.
struct UsageError {
    std::string complaint;
    const CLI::App* app;
};

std::string quoted(const std::string& word)
{
    return '"' + word + '"';
}

bool is_option(const std::string& word)
{
    return word.starts_with("-") && word.size() > 1;
}

/// The app of the last word that was understood.
const CLI::App& deepest_parsed(const CLI::App& app)
{
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? app : deepest_parsed(*parsed.back());
}

bool has_commands(const CLI::App& app)
{
    return !app.get_subcommands([](const CLI::App*) { return true; }).empty();
}

const CLI::App* find_command(const CLI::App& app, const std::string& name)
{
    const auto found =
        app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::string unknown_word(const CLI::App& app, const std::string& word)
{
    const char* kind = !has_commands(app)            ? "unexpected argument "
                       : app.get_parent() == nullptr ? "unknown object "
                                                     : "unknown command ";
    return kind + quoted(word);
}

std::string unknown_option(const CLI::App& app, const CLI::App& root, const std::string& word)
{
    if (&app != &root && root.get_option_no_throw(word) != nullptr) {
        return "option " + quoted(word) + " must stand before the object";
    }
    return "unknown option " + quoted(word);
}

bool takes_value(const CLI::App& app, const std::string& word)
{
    const CLI::Option* option = app.get_option_no_throw(word);
    return option != nullptr && option->get_items_expected_max() > 0;
}

/// "help" may stand in the place of any word of a command, and words behind it lead further down
/// ("help vsan create"): the app that it asks about, or null when nobody asks.
const CLI::App* app_of_help_word(const CLI::App& root, const std::vector<std::string>& words)
{
    const CLI::App* app = &root;
    bool asked = false;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (is_option(*word)) {
            if (takes_value(*app, *word) && std::next(word) != words.end()) {
                ++word;
            }
        } else if (*word == "help") {
            asked = true;
        } else if (const CLI::App* deeper = find_command(*app, *word)) {
            app = deeper;
        } else if (asked) {
            throw UsageError{unknown_word(*app, *word), app};
        } else {
            return nullptr;
        }
    }
    return asked ? app : nullptr;
}

/// The first app on the way down that was given words it does not know; null when all are known.
const CLI::App* app_with_words_left(const CLI::App& app)
{
    if (!app.remaining().empty()) {
        return &app;
    }
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? nullptr : app_with_words_left(*parsed.back());
}

/// The option that was written twice, for a mismatch between options and values; or null.
const CLI::Option* repeated_option(const CLI::App& app)
{
    const auto repeated = app.get_options(
        [](const CLI::Option* option) { return option->nonpositional() && option->count() > 1; });
    return repeated.empty() ? nullptr : repeated.front();
}

/// What is wrong, in this program's words where the library's are vague.
UsageError explain(const CLI::App& root, const CLI::ParseError& error)
{
    const CLI::App& last = deepest_parsed(root);
    const bool required = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    const bool extra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    // A misspelt word is named rather than the right one that is missing for it.
    if (const CLI::App* app = app_with_words_left(root); app != nullptr && (required || extra)) {
        const std::string word = app->remaining().front();
        return {is_option(word) ? unknown_option(*app, root, word) : unknown_word(*app, word), app};
    }
    if (required && has_commands(last)) {
        return {&last == &root ? "an object is missing" : "a command is missing", &last};
    }
    const CLI::Option* repeated = repeated_option(last);
    if (repeated != nullptr && dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        return {repeated->get_name() + " is given more than once", &last};
    }
    return {error.what(), &last};
}

std::unique_ptr<CLI::App> make_root(Session& session)
{
    auto root = std::make_unique<CLI::App>("Manage the IP over Fibre Channel driver", kProgram);
    root->footer("\"help\" in the place of any word shows the help of what stands before it.\n"
                 "Exit status: 0 done, 1 wrong usage, 2 refused by the driver or no driver.");
    root->require_subcommand(1);
    root->add_option("--device", session.device_path,
                     std::string("Control device; otherwise the one that ") +
                         ipfc::kDeviceVariable + " names, or the driver's own")
        ->type_name("PATH");
    root->add_flag("-j,--json", session.json, "Write results as JSON");
    add_vsan_commands(*root, session);
    add_module_commands(*root, session);
    label_commands(*root, "OBJECT [COMMAND] [ARGS]", "Objects");
    return root;
}

/// Leaves the command in the session; true when help was shown instead.
bool parse(CLI::App& root, std::vector<std::string> words, std::ostream& out)
{
    if (const CLI::App* app = app_of_help_word(root, words)) {
        out << help_of(*app);
        return true;
    }
    // The library takes the words from the end.
    std::reverse(words.begin(), words.end());
    try {
        root.parse(words);
    } catch (const CLI::CallForHelp&) {
        out << help_of(deepest_parsed(root));
        return true;
    } catch (const CLI::ParseError& error) {
        throw explain(root, error);
    } catch (const ipfc::BadArgument& error) {
        throw UsageError{error.what(), &deepest_parsed(root)};
    }
    return false;
}

ExitCode carry_out(const Session& session, std::ostream& out, std::ostream& err)
{
    try {
        ipfc::ControlDevice device = ipfc::ControlDevice::open(session.device_path);
        Output output(out, session.json);
        session.action(device, output);
    } catch (const ipfc::DeviceError& error) {
        err << kProgram << ": " << session.label << ": " << error.what() << '\n';
        return kRefused;
    }
    return kDone;
}

/// One line, whatever a user's words or the library's text contain.
std::string one_line(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
    return text;
}

} // namespace

ExitCode run_command_line(const std::vector<std::string>& words, std::ostream& out,
                          std::ostream& err)
{
    Session session;
    const std::unique_ptr<CLI::App> root = make_root(session);
    try {
        if (parse(*root, words, out)) {
            return kDone;
        }
    } catch (const UsageError& error) {
        err << kProgram << ": " << one_line(error.complaint) << "; see \"" << path_of(*error.app)
            << " --help\"\n";
        return kWrongUsage;
    }
    return carry_out(session, out, err);
}

} // namespace ipfcctl
