// SPDX-License-Identifier: GPL-2.0-only
#include "ipfc-resolverd/resolver.h"

#include "libipfc/names.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace resolverd {

bool device_is_gone(const ipfc::DeviceError& error)
{
    switch (error.number()) {
    case ENODEV:
    case EIO:
    case EBADF:
        return true;
    default:
        return false;
    }
}

Resolver::Resolver(QueryLimits limits, StartQuery start_query, Counters& counters, const Log& log)
    : limits_(limits), start_query_(std::move(start_query)), counters_(counters), log_(log)
{
}

bool Resolver::has_room() const
{
    // With every query hanging there is nothing to wait for: requests are turned away instead.
    return queries_.size() < limits_.running ||
           std::all_of(queries_.begin(), queries_.end(),
                       [](const auto& entry) { return entry.second.hangs; });
}

bool Resolver::idle() const
{
    return std::all_of(queries_.begin(), queries_.end(),
                       [](const auto& entry) { return entry.second.waiting == 0; });
}

std::optional<Clock::time_point> Resolver::next_deadline() const
{
    std::optional<Clock::time_point> next;
    for (const auto& [port, query] : queries_) {
        if (!query.hangs && (!next || query.deadline < *next)) {
            next = query.deadline;
        }
    }
    return next;
}

void Resolver::request(ipfc::ControlDevice& device, const Port& port, Clock::time_point now)
{
    ++counters_.requests;
    const auto running = queries_.find(port);
    if (running != queries_.end() && !running->second.hangs) {
        ++running->second.waiting;
        return;
    }
    if (running != queries_.end() || queries_.size() >= limits_.running) {
        ++counters_.turned_away;
        log_.debug(to_text(port) + ": the name server hangs");
        answer_all(device, port, std::nullopt, 1);
        return;
    }
    queries_.emplace(port, Query{now + limits_.timeout, 1, false, tables_});
    start_query_(port);
}

bool Resolver::command(const std::string& what, const std::function<void()>& send)
{
    try {
        send();
        return true;
    } catch (const ipfc::DeviceError& error) {
        if (device_is_gone(error)) {
            throw;
        }
        ++counters_.refusals;
        log_.warning(what + ": " + error.what());
        return false;
    }
}

void Resolver::count_parked(ipfc::Parked parked)
{
    // A packet may have gone with its interface.
    if (parked == ipfc::Parked::none) {
        ++counters_.no_packet;
    }
}

bool Resolver::add(ipfc::ControlDevice& device, const Port& port, fcid_t fcid)
{
    const std::string what = to_text(port) + " is at " + ipfc::to_text(fcid);
    if (!command(what, [&] { count_parked(device.add_mapping(port.vsan, port.name, fcid)); })) {
        return false;
    }
    ++counters_.added;
    told_.insert_or_assign(port, Told{fcid, ++answers_});
    log_.debug(what);
    return true;
}

void Resolver::not_found(ipfc::ControlDevice& device, const Port& port)
{
    const std::string what = to_text(port) + " is not found";
    const bool taken =
        command(what, [&] { count_parked(device.mapping_not_found(port.vsan, port.name)); });
    ++(taken ? counters_.not_found : counters_.unanswered);
    log_.debug(what);
}

void Resolver::answer(ipfc::ControlDevice& device, const Port& port, std::optional<fcid_t> fcid)
{
    // A driver that has no memory for the mapping keeps the packet; it must not stay for ever.
    if (!fcid || !add(device, port, *fcid)) {
        not_found(device, port);
    }
}

void Resolver::answer_all(ipfc::ControlDevice& device, const Port& port, std::optional<fcid_t> fcid,
                          size_t requests)
{
    try {
        for (; requests > 0; --requests) {
            answer(device, port, fcid);
        }
    } catch (const ipfc::DeviceError&) {
        counters_.unanswered += requests;
        throw;
    }
}

void Resolver::finish_query(const PortResult& result)
{
    const auto running = queries_.find(result.port);
    if (running == queries_.end()) {
        return;
    }
    if (running->second.hangs) {
        ++counters_.late;
    }
    counters_.unanswered += running->second.waiting;
    queries_.erase(running);
}

void Resolver::finish_query(ipfc::ControlDevice& device, const PortResult& result)
{
    const auto running = queries_.find(result.port);
    if (running == queries_.end() || running->second.waiting == 0) {
        finish_query(result);
        return;
    }
    const Query query = running->second;
    queries_.erase(running);
    if (!result.error.empty()) {
        counters_.failed += query.waiting;
        log_.warning(to_text(result.port) + ": the query failed: " + result.error);
    }
    answer_all(device, result.port, result.fcid, query.waiting);
    // The table that came while the query ran may have been the newer of both.
    table_is_due_ = table_is_due_ || query.tables_before != tables_;
}

void Resolver::expire(ipfc::ControlDevice& device, Clock::time_point now)
{
    for (auto& [port, query] : queries_) {
        if (query.hangs || now < query.deadline) {
            continue;
        }
        query.hangs = true;
        const size_t waiting = std::exchange(query.waiting, 0);
        counters_.timed_out += waiting;
        log_.warning(to_text(port) + ": no result after " +
                     std::to_string(limits_.timeout.count()) + " ms");
        answer_all(device, port, std::nullopt, waiting);
    }
}

void Resolver::give_up(ipfc::ControlDevice& device)
{
    for (auto& [port, query] : queries_) {
        query.hangs = true;
        answer_all(device, port, std::nullopt, std::exchange(query.waiting, 0));
    }
}

void Resolver::drop_requests()
{
    for (auto& [port, query] : queries_) {
        counters_.unanswered += std::exchange(query.waiting, 0);
    }
}

void Resolver::forget_answers()
{
    told_.clear();
}

void Resolver::port_left(ipfc::ControlDevice& device, const Port& port)
{
    const std::string what = to_text(port) + " has left";
    log_.info(what);
    if (command(what, [&] { device.delete_mapping(port.vsan, port.name); })) {
        ++counters_.deletes;
    }
}

void Resolver::port_moved(ipfc::ControlDevice& device, const Port& port, Told& told, fcid_t fcid)
{
    const std::string what = to_text(port) + " has moved to " + ipfc::to_text(fcid);
    log_.info(what);
    if (command(what, [&] { device.update_mapping(port.vsan, port.name, fcid); })) {
        ++counters_.updates;
    }
    // When it was refused, the interface has gone and its mappings with it; the entry stays until
    // the port leaves, and costs nothing.
    told.fcid = fcid;
}

void Resolver::begin_table()
{
    answers_before_table_ = answers_;
    table_is_due_ = false;
}

void Resolver::take_table(ipfc::ControlDevice& device, const PortTable& table)
{
    ++tables_;
    for (auto told = told_.begin(); told != told_.end();) {
        const auto& [port, last] = *told;
        const std::optional<fcid_t> now = look_up(table, port);
        if (last.number > answers_before_table_) {
            table_is_due_ = true;
            ++told;
        } else if (!now) {
            port_left(device, port);
            told = told_.erase(told);
        } else {
            if (!same_fcid(*now, last.fcid)) {
                port_moved(device, port, told->second, *now);
            }
            ++told;
        }
    }
}

} // namespace resolverd
