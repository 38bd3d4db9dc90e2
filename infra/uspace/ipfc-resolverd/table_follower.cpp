// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/table_follower.h"

#include "ipfc-resolverd/text_file.h"

#include <exception>
#include <utility>

namespace resolverd {

namespace {

constexpr std::chrono::seconds kSlowReading{5};

} // namespace

TableFollower::TableFollower(std::shared_ptr<NameServer> name_server, QueryRunner& queries,
                             std::chrono::milliseconds retry_interval, std::function<void()> begin,
                             Counters& counters, const Log& log)
    : name_server_(std::move(name_server)), queries_(queries), retry_interval_(retry_interval),
      begin_(std::move(begin)), counters_(counters), log_(log)
{
}

bool TableFollower::keep(bool wanted, Clock::time_point now)
{
    if (reading_ && !slow_ && now - began_ > kSlowReading) {
        slow_ = true;
        log_.warning(name_server_->description() + " does not let itself be read");
    }
    if (!wanted) {
        changes_.reset();
        retry_ = false;
        return false;
    }
    if (changes_) {
        return false;
    }
    try {
        changes_ = name_server_->watch();
    } catch (const std::exception& error) {
        complain(error.what(), now);
        return false;
    }
    return true;
}

pollfd TableFollower::raised_when(Clock::time_point now) const
{
    // A signal that could not be lowered stays raised: it must not keep the loop busy.
    if (!changes_ || reading_ || now < quiet_until_) {
        return {-1, 0, 0};
    }
    return changes_->raised_when();
}

void TableFollower::raised(short events)
{
    if (events != 0 && changes_ && !reading_) {
        start(changes_);
    }
}

void TableFollower::read()
{
    if (reading_) {
        again_ = true;
    } else {
        start(nullptr);
    }
}

bool TableFollower::due(Clock::time_point now) const
{
    return !reading_ && (again_ || (retry_ && now >= quiet_until_));
}

void TableFollower::start(std::shared_ptr<ChangeSignal> changes)
{
    reading_ = true;
    slow_ = false;
    began_ = Clock::now();
    again_ = false;
    retry_ = false;
    begin_();
    queries_.read_table(std::move(changes));
}

void TableFollower::complain(const std::string& text, Clock::time_point now)
{
    // The same trouble, met again by trying again, is said once.
    const bool said = text == complaint_ && now < quiet_until_ + retry_interval_;
    complaint_ = text;
    quiet_until_ = now + retry_interval_;
    if (!said) {
        log_.warning(name_server_->description() +
                     " cannot be read, what is in force stays: " + text);
    }
}

std::shared_ptr<const PortTable> TableFollower::take(const TableResult& result,
                                                     Clock::time_point now)
{
    reading_ = false;
    if (!result.error.empty()) {
        ++counters_.tables_failed;
        complain(result.error, now);
        retry_ = result.may_pass && changes_ != nullptr;
        return nullptr;
    }
    if (!result.table) {
        return nullptr;
    }
    ++counters_.tables;
    if (!last_ || !same_table(*last_, *result.table)) {
        log_.info(name_server_->description() + " lists " + counted(result.table->size(), "port") +
                  (result.remark.empty() ? "" : "; " + result.remark));
    }
    last_ = result.table;
    return result.table;
}

} // namespace resolverd
