// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "process.h"
#include "report_texts.h"
#include "temporary_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ipfc_test {

/// The recorded tool over a driver with the interfaces vsan0 and vsan10, in files of its own.
struct ToolSetup : testing::Test {
    ToolSetup()
    {
        put("ipfc/vsan0", kEmptyInterface);
        put("ipfc/vsan10", kInterface);
        put("ipfc/statistics", kStatistics);
        put("ipfc/ivrip_list", kInterVsanHosts);
        put("secondary_ip", kSecondaryAddresses);
        put("dbgtap/ipfc/errors/history_enabled", "1\n");
        put("dbgtap/ipfc/errors/log_enabled", "0\n");
        put("dbgtap/ipfc/errors/history", "VSAN number not valid\nbad \033[31m\xff byte\n");
        put("dbgtap/ipfc/events/history_enabled", "0\n");
        put("dbgtap/ipfc/events/log_enabled", "1\n");
        put("dbgtap/ipfc/events/history", "");
        write_file(directory.file("answers"), answers());
        environment = {{"IPFC_RECORD", directory.file("record")},
                       {"IPFC_DEVICE", "/dev/null"},
                       {"IPFC_PROC", directory.file("proc")},
                       {"IPFC_ANSWERS", directory.file("answers")}};
    }

    static std::string zeros(size_t bytes) { return std::string(2 * bytes, '0'); }

    /// The second reading of vsan10 has 500 packets more received, and lost its sent ones.
    static std::string answers()
    {
        return "c0345007 0 " + zeros(8) + "1000001122334455" + "20010066778899aa" + zeros(4 + 4) +
               zeros(20) + "\nc0345007 10 0a00000001000000" + "1000001122334455" +
               "20010066778899aa" + "000a0b0c" + "02000000" + "01000000" + "0a010203" + zeros(12) +
               "\nc0ac5008 0 00000000" + zeros(168) + "\n" + stats_of_10("0100", "0200") +
               stats_of_10("f501", "0000");
    }

    /// Each of the later counters is its own number; the first two are given.
    static std::string stats_of_10(const std::string& received, const std::string& sent)
    {
        std::string line = "c0ac5008 10 0a00000000000000" + received + zeros(6) + sent + zeros(6);
        const std::string digits = "0123456789abcdef";
        int number = 3;
        const auto add = [&](int bytes) {
            line += {digits[number / 16], digits[number % 16]};
            line += zeros(bytes - 1);
            ++number;
        };
        for (int i = 0; i < 8; ++i) {
            add(8);
        }
        for (int i = 0; i < 4; ++i) {
            add(4);
        }
        for (int i = 0; i < 8; ++i) {
            add(8);
        }
        add(4);
        return line + "\n";
    }

    void put(const std::string& name, const std::string& text) const
    {
        const std::filesystem::path path = directory.path() / "proc" / name;
        std::filesystem::create_directories(path.parent_path());
        write_file(path, text);
    }

    [[nodiscard]] std::string proc(const std::string& name) const
    {
        return read_file(directory.file("proc/" + name));
    }

    ProcessResult run(const std::vector<std::string>& words) const
    {
        return run_process(IPFCCTL_RECORDED, words, environment);
    }

    TemporaryDirectory directory;
    std::map<std::string, std::string> environment;
};

} // namespace ipfc_test
