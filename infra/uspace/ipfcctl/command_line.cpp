// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command_line.h"

#include "ipfcctl/batch.h"
#include "ipfcctl/commands.h"
#include "ipfcctl/help.h"
#include "ipfcctl/session.h"

#include "libipfc/device_node.h"
#include "libipfc/names.h"
#include "libipfc/refusal.h"
#include "libipfc/report_scanner.h"

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
        return {"a command is missing", &last};
    }
    const CLI::Option* repeated = repeated_option(last);
    if (repeated != nullptr && dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        return {repeated->get_name() + " is given more than once", &last};
    }
    return {error.what(), &last};
}

void add_options(CLI::App& root, Options& options)
{
    root.add_option("--device", options.device_path,
                    std::string("Control device; otherwise the one that ") + ipfc::kDeviceVariable +
                        " names, or the driver's own")
        ->type_name("PATH");
    root.add_option("--proc-root", options.proc_root,
                    std::string("Directory of reports; otherwise the one that ") +
                        ipfc::kProcVariable + " names, or /proc/brim_sw")
        ->type_name("DIR");
    root.add_flag("-j,--json", options.json, "Write results as JSON");
    root.add_flag("-s,--details", options.details, "Show more");
    root.add_option("-c,--color", options.color,
                    "Colours: auto (on a terminal, unless NO_COLOR is set), always, never")
        ->type_name("WHEN");
    root.add_option("-b,--batch", options.batch,
                    "Carry out the commands of a file, one a line, up to the first that fails; - "
                    "reads standard input")
        ->type_name("FILE");
}

/// A line of a batch has no options of its own in front of the object.
std::unique_ptr<CLI::App> make_root(Session& session)
{
    auto root = std::make_unique<CLI::App>("Manage the IP over Fibre Channel driver", kProgram);
    root->footer("\"help\" in the place of any word shows the help of what stands before it.\n"
                 "Exit status: 0 done, 1 wrong usage, 2 refused by the driver or no driver.");
    root->require_subcommand(0, 1);
    if (!session.in_batch) {
        add_options(*root, session.options);
    }
    add_vsan_commands(*root, session);
    add_map_commands(*root, session);
    add_resolve_command(*root, session);
    add_exchange_commands(*root, session);
    add_stats_commands(*root, session);
    add_ivr_commands(*root, session);
    add_ip_commands(*root, session);
    add_secondary_commands(*root, session);
    add_debug_commands(*root, session);
    add_module_commands(*root, session);
    label_commands(*root, "OBJECT [COMMAND] [ARGS]", "Objects");
    return root;
}

/// Either an object or a batch, not both.
void check_object(const CLI::App& root, const Session& session)
{
    const bool has_batch =
        root.get_option_no_throw("--batch") != nullptr && root.count("--batch") != 0;
    if (has_batch && session.action) {
        throw UsageError{"an object cannot stand beside --batch", &root};
    }
    if (has_batch && session.options.batch.empty()) {
        throw UsageError{"--batch \"\": the name of a file is empty", &root};
    }
    if (!has_batch && !session.action) {
        throw UsageError{"an object is missing", &root};
    }
}

/// Leaves the command in the session; true when help was shown instead.
bool parse(CLI::App& root, std::vector<std::string> words, Session& session, std::ostream& out)
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
    check_object(root, session);
    return false;
}

Output::Form form_of(const Options& options, const CLI::App& root)
{
    Output::Form form{options.json, options.details, false, output_is_terminal()};
    try {
        form.color = wants_color(options.color, form.terminal);
    } catch (const ipfc::BadArgument& error) {
        throw UsageError{error.what(), &root};
    }
    return form;
}

/// One line, whatever a user's words or the library's text contain.
std::string one_line(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
    return text;
}

ExitCode carry_out(const Session& session, Driver& driver, Output& output, const Complain& complain)
{
    try {
        session.action(driver, output);
    } catch (const ipfc::DeviceError& error) {
        complain(session.label + ": " + error.what());
        return kRefused;
    } catch (const ipfc::BadReport& error) {
        complain(session.label + ": " + one_line(error.what()));
        return kRefused;
    }
    return kDone;
}

ExitCode refuse_usage(const UsageError& error, const Complain& complain)
{
    complain(one_line(error.complaint) + "; see \"" + path_of(*error.app) + " --help\"");
    return kWrongUsage;
}

ExitCode run_batch_line(const std::vector<std::string>& words, Driver& driver, Output& output,
                        std::ostream& out, const Complain& complain)
{
    Session session;
    session.in_batch = true;
    const std::unique_ptr<CLI::App> root = make_root(session);
    try {
        if (parse(*root, words, session, out)) {
            return kDone;
        }
    } catch (const UsageError& error) {
        return refuse_usage(error, complain);
    }
    return carry_out(session, driver, output, complain);
}

} // namespace

ExitCode run_command_line(const std::vector<std::string>& words, std::ostream& out,
                          std::ostream& err)
{
    const Complain complain = [&err](const std::string& complaint) {
        err << kProgram << ": " << complaint << '\n';
    };
    Session session;
    const std::unique_ptr<CLI::App> root = make_root(session);
    Output::Form form;
    try {
        if (parse(*root, words, session, out)) {
            return kDone;
        }
        form = form_of(session.options, *root);
    } catch (const UsageError& error) {
        return refuse_usage(error, complain);
    }
    Driver driver(session.options.device_path, session.options.proc_root);
    Output output(out, form);
    if (session.action) {
        return carry_out(session, driver, output, complain);
    }
    return run_batch(session.options.batch, complain,
                     [&](const std::vector<std::string>& line, const Complain& complain_of_line) {
                         return run_batch_line(line, driver, output, out, complain_of_line);
                     });
}

} // namespace ipfcctl
