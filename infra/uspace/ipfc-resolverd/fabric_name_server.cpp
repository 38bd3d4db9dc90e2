// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/fabric_name_server.h"

#include "ipfc-resolverd/text_file.h"

#include "libipfc/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace resolverd {

namespace {

/// Raised (POLLPRI) while the file differs from what this open file last read from its start.
class ProcSignal : public ChangeSignal {
public:
    // The loop itself opens it: should the path lead to a pipe, nobody waits for a writer.
    explicit ProcSignal(const std::string& path)
        : path_(path), file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
        if (!file_) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        read_from_start();
    }

    [[nodiscard]] pollfd raised_when() const override { return {file_.get(), POLLPRI, 0}; }

    bool consume() override
    {
        read_from_start();
        return true;
    }

private:
    void read_from_start()
    {
        char bytes[4096];
        if (::pread(file_.get(), bytes, sizeof(bytes), 0) < 0) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
    }

    std::string path_;
    ipfc::FileDescriptor file_;
};

} // namespace

FabricNameServer::FabricNameServer(std::string path) : path_(std::move(path)) {}

std::string FabricNameServer::description() const
{
    return "the fabric's name server (" + path_ + ")";
}

// Read anew for every query: a port that has just logged in is found.
std::optional<fcid_t> FabricNameServer::find(const Port& port)
{
    return look_up(parse_known_lines(read_file(path_)).ports, port);
}

Reading FabricNameServer::read_table()
{
    LenientTable table = parse_known_lines(read_file(path_));
    std::string remark;
    if (table.skipped_lines != 0) {
        remark = counted(table.skipped_lines, "line") + " not understood";
    }
    return {std::move(table.ports), std::move(remark)};
}

std::shared_ptr<ChangeSignal> FabricNameServer::watch()
{
    return std::make_shared<ProcSignal>(path_);
}

} // namespace resolverd
