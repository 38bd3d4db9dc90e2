// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfc-resolverd/name_server.h"

namespace resolverd {

/// The fabric's name server, as the platform shows it: a text file under /proc that is poll(2)ed
/// for changes like /proc/mounts.
class FabricNameServer : public NameServer {
public:
    explicit FabricNameServer(std::string path);

    [[nodiscard]] std::string description() const override;
    [[nodiscard]] bool lives_with_driver() const override { return true; }
    std::optional<fcid_t> find(const Port& port) override;
    Reading read_table() override;
    std::shared_ptr<ChangeSignal> watch() override;

private:
    const std::string path_;
};

} // namespace resolverd
