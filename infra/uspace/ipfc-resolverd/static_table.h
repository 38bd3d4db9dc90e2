// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/name_server.h"

#include <mutex>

namespace resolverd {

/// A table that the administrator keeps in a file, for fabrics without a name server to ask. The
/// table in force is the last one that could be read whole.
class StaticTable : public NameServer {
public:
    /// Throws as read_table does: there is no table in force yet that could stay.
    explicit StaticTable(std::string path);

    [[nodiscard]] std::string description() const override;
    [[nodiscard]] bool lives_with_driver() const override { return false; }
    std::optional<fcid_t> find(const Port& port) override;
    /// Throws MalformedText, or std::system_error for a file that cannot be read.
    Reading read_table() override;
    std::shared_ptr<ChangeSignal> watch() override;

private:
    const std::string path_;
    std::mutex mutex_;
    PortTable in_force_; ///< under mutex_
};

} // namespace resolverd
