// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/log.h"
#include "ipfc-resolverd/name_server.h"
#include "ipfc-resolverd/resolver.h"

#include <chrono>
#include <memory>
#include <string>

namespace resolverd {

enum class BackEnd { fabric, table };

/// The configuration file's settings, each with the value it has when the file does not name it.
struct Configuration {
    BackEnd back_end = BackEnd::fabric;
    std::string name_server = "/proc/brim_sw/name_server";
    std::string table = "/etc/ipfc/ports";
    std::string device; ///< empty: search
    /// The driver's folder of reports, which shows whether there is any interface.
    std::string reports = "/proc/brim_sw/ipfc";
    QueryLimits queries;
    /// How often a device or name server that is missing is looked for.
    std::chrono::milliseconds retry_interval{500};
    Level log_level = Level::info;
};

inline constexpr const char* kConfigurationFile = "/etc/ipfc/resolverd.conf";

/// Lines "key = value". Throws MalformedText with the file's name.
Configuration parse_configuration(const std::string& text, const std::string& file);

/// Throws as the static table does when that is what is chosen and its file is not in order.
std::shared_ptr<NameServer> make_name_server(const Configuration& configuration);

} // namespace resolverd
