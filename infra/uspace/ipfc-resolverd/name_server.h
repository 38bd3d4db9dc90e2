// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/port_table.h"

#include <poll.h>

#include <memory>
#include <optional>
#include <string>

namespace resolverd {

/// Tells that a name server's contents may have changed. It stays raised until it is consumed.
class ChangeSignal {
public:
    virtual ~ChangeSignal() = default;
    /// What to poll for; the errors of poll(2) count as raised too.
    [[nodiscard]] virtual pollfd raised_when() const = 0;
    /// Any thread. Lowers the signal; true when it was raised for this name server and not for
    /// something beside it. Throws when that cannot be told.
    virtual bool consume() = 0;
};

/// The whole of a name server's knowledge at one moment.
struct Reading {
    PortTable ports;
    std::string remark; ///< what the administrator should know about it; as a rule empty
};

/**
 * Who knows where the ports are. find and read_table may be called from any thread, several at a
 * time, may take as long as they like, and throw a std::exception when they fail.
 */
class NameServer {
public:
    virtual ~NameServer() = default;
    /// For messages.
    [[nodiscard]] virtual std::string description() const = 0;
    /// Whether it comes and goes with the driver's modules. Such a one is watched only while the
    /// control device is held, which keeps them loaded.
    [[nodiscard]] virtual bool lives_with_driver() const = 0;
    /// None: there is no such port.
    virtual std::optional<fcid_t> find(const Port& port) = 0;
    /// Reads everything anew. After a failure find goes on as before it.
    virtual Reading read_table() = 0;
    /// A new signal. What changes after the signal was made, or last consumed, raises it.
    virtual std::shared_ptr<ChangeSignal> watch() = 0;
};

} // namespace resolverd
