// SPDX-License-Identifier: GPL-2.0-only
#include "process.h"

#include "temporary_directory.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace ipfc_test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result(texts.size() + 1, nullptr);
    std::transform(texts.begin(), texts.end(), result.begin(),
                   [](std::string& text) { return text.data(); });
    return result;
}

/// Runs in the child: only calls that are safe after a fork.
void redirect(int fd, const char* path, int flags)
{
    const int file = ::open(path, flags, 0600);
    if (file < 0 || ::dup2(file, fd) < 0) {
        ::_exit(126);
    }
}

} // namespace

ProcessResult run_process(const std::string& program, const std::vector<std::string>& arguments,
                          const std::map<std::string, std::string>& environment)
{
    const TemporaryDirectory directory;
    const std::string out = directory.file("out");
    const std::string err = directory.file("err");
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> settings;
    std::transform(environment.begin(), environment.end(), std::back_inserter(settings),
                   [](const auto& entry) { return entry.first + "=" + entry.second; });
    const std::vector<char*> argv = pointers(words);
    const std::vector<char*> envp = pointers(settings);

    const pid_t child = ::fork();
    if (child == 0) {
        redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
        redirect(STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT);
        redirect(STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        throw std::runtime_error("cannot run " + program);
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out), read_file(err)};
}

} // namespace ipfc_test
