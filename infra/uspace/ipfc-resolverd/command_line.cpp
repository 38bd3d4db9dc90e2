// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/command_line.h"

#include "ipfc-resolverd/configuration.h"
#include "ipfc-resolverd/daemon.h"
#include "ipfc-resolverd/text_file.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>

namespace resolverd {

namespace {

constexpr const char* kProgram = "ipfc-resolverd";

enum ExitCode : int {
    kDone = 0,
    kWrongUsage = 1,
    kFailed = 2,
};

struct Options {
    std::string configuration = kConfigurationFile;
    bool configuration_given = false;
    bool check = false;
};

/// Without the usual file, and nobody having asked for one, the defaults hold.
Configuration read_configuration(const Options& options)
{
    if (!options.configuration_given && !std::filesystem::exists(options.configuration)) {
        return {};
    }
    return parse_configuration(read_file(options.configuration), options.configuration);
}

int run_daemon(const Configuration& configuration, std::shared_ptr<NameServer> name_server, Log log,
               const Surroundings& surroundings)
{
    Daemon daemon(configuration, std::move(name_server), log, surroundings);
    daemon.run();
    if (daemon.hanging() != 0) {
        // Threads that hang use objects that an orderly exit would take apart under them.
        ::_exit(kDone);
    }
    return kDone;
}

int run_options(const Options& options, const Surroundings& surroundings)
{
    Log log(STDERR_FILENO);
    Configuration configuration;
    std::shared_ptr<NameServer> name_server;
    try {
        configuration = read_configuration(options);
        name_server = make_name_server(configuration);
    } catch (const std::exception& error) {
        log.error(error.what());
        return kWrongUsage;
    }
    if (options.check) {
        std::cout << kProgram << ": the configuration is in order, asking "
                  << name_server->description() << '\n';
        return kDone;
    }
    log.set_threshold(configuration.log_level);
    try {
        return run_daemon(configuration, name_server, log, surroundings);
    } catch (const std::exception& error) {
        log.error(error.what());
        return kFailed;
    }
}

} // namespace

int run_command_line(const std::vector<std::string>& words, const Surroundings& surroundings)
{
    Options options;
    CLI::App app("Answer the IP over Fibre Channel driver's questions where ports are", kProgram);
    const CLI::Option* configuration =
        app.add_option("--config", options.configuration,
                       std::string("Configuration file; otherwise ") + kConfigurationFile +
                           ", if it exists")
            ->type_name("FILE");
    app.add_flag("--check", options.check,
                 "Check the configuration, and the table that it names, and end");
    app.footer("Stays in the foreground. SIGTERM ends it, SIGHUP reads the name server anew,\n"
               "SIGUSR1 shows what it has counted, SIGUSR2 lets go of the device for unloading.\n"
               "Exit status: 0 done, 1 wrong usage or configuration, 2 for any other failure.");
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return kDone;
    } catch (const CLI::ParseError& error) {
        std::cerr << kProgram << ": " << error.what() << "; see \"" << kProgram << " --help\"\n";
        return kWrongUsage;
    }
    options.configuration_given = configuration->count() != 0;
    return run_options(options, surroundings);
}

} // namespace resolverd
