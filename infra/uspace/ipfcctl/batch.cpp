// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/batch.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace ipfcctl {

namespace {

constexpr const char* kStandardInput = "-";

std::vector<std::string> words_of(const std::string& line)
{
    std::vector<std::string> words;
    std::istringstream stream(line);
    for (std::string word; stream >> word && word.front() != '#';) {
        words.push_back(word);
    }
    return words;
}

ExitCode run_lines(std::istream& lines, const std::string& name, const Complain& complain,
                   const RunLine& run)
{
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::string place = name + ':' + std::to_string(++number) + ": ";
        const std::vector<std::string> words = words_of(line);
        if (words.empty()) {
            continue;
        }
        const ExitCode code =
            run(words, [&](const std::string& complaint) { complain(place + complaint); });
        if (code != kDone) {
            return code;
        }
    }
    if (lines.bad()) {
        complain(name + ": " + ::strerror(errno));
        return kWrongUsage;
    }
    return kDone;
}

} // namespace

ExitCode run_batch(const std::string& file, const Complain& complain, const RunLine& run)
{
    if (file == kStandardInput) {
        return run_lines(std::cin, "standard input", complain, run);
    }
    std::ifstream lines(file);
    if (!lines) {
        complain(file + ": " + ::strerror(errno));
        return kWrongUsage;
    }
    return run_lines(lines, file, complain, run);
}

} // namespace ipfcctl
