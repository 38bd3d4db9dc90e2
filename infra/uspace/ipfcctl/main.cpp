// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/command_line.h"

#include <cstdio>
#include <iostream>

int main(int argc, char** argv)
{
    // Nothing was given at all only when a caller leaves out even the program's name.
    const int first = argc > 0 ? 1 : 0;
    const std::vector<std::string> words(argv + first, argv + argc);
    const ipfcctl::ExitCode code = ipfcctl::run_command_line(words, std::cout, std::cerr);
    if (!std::cout.flush()) {
        std::perror("ipfcctl: standard output");
        return ipfcctl::kRefused;
    }
    return code;
}
