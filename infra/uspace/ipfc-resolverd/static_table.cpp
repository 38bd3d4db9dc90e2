// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/static_table.h"

#include "ipfc-resolverd/file_watch.h"
#include "ipfc-resolverd/text_file.h"

#include <utility>

namespace resolverd {

StaticTable::StaticTable(std::string path) : path_(std::move(path))
{
    StaticTable::read_table();
}

std::string StaticTable::description() const
{
    return "the table " + path_;
}

std::optional<fcid_t> StaticTable::find(const Port& port)
{
    const std::lock_guard lock(mutex_);
    return look_up(in_force_, port);
}

Reading StaticTable::read_table()
{
    PortTable ports = parse_port_table(read_file(path_), path_);
    const std::lock_guard lock(mutex_);
    in_force_ = ports;
    return {std::move(ports), {}};
}

std::shared_ptr<ChangeSignal> StaticTable::watch()
{
    return std::make_shared<FileWatch>(path_);
}

} // namespace resolverd
