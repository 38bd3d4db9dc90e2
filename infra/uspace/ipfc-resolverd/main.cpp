// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/command_line.h"
#include "ipfc-resolverd/daemon.h"

int main(int argc, char** argv)
{
    resolverd::block_signals();
    return resolverd::run_command_line(
        std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
