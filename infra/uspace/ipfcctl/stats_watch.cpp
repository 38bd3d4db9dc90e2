// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/stats_watch.h"

#include "ipfcctl/interfaces.h"
#include "ipfcctl/json_of.h"
#include "ipfcctl/table.h"

#include <array>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <map>

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;
using Stats = ipfc_intf_stats_ioctl_t;

constexpr auto kPeriod = std::chrono::seconds(1);

struct Watched {
    const char* heading;
    const char* name;
    uint64_t Stats::*counter;
};

constexpr std::array<Watched, 8> kWatched{{{"RX-PKT/S", "rx_packets", &Stats::rx_packets},
                                           {"RX-BYTE/S", "rx_bytes", &Stats::rx_bytes},
                                           {"RX-ERR/S", "rx_errors", &Stats::rx_errors},
                                           {"RX-DROP/S", "rx_dropped", &Stats::rx_dropped},
                                           {"TX-PKT/S", "tx_packets", &Stats::tx_packets},
                                           {"TX-BYTE/S", "tx_bytes", &Stats::tx_bytes},
                                           {"TX-ERR/S", "tx_errors", &Stats::tx_errors},
                                           {"TX-DROP/S", "tx_dropped", &Stats::tx_dropped}}};

/// An interface's counters and when they were read.
struct Sample {
    Clock::time_point time;
    Stats counters;
};

using Samples = std::map<vsan_id_t, Sample>;

/// While it lives, the signals that end the watch wait to be asked for.
class EndSignals {
public:
    EndSignals()
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        ::sigprocmask(SIG_BLOCK, &signals_, &before_);
    }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;
    ~EndSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

    /// True when one came before the deadline.
    [[nodiscard]] bool came_before(Clock::time_point deadline) const
    {
        for (;;) {
            const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
            const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
            const timespec time{
                static_cast<time_t>(seconds.count()),
                static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
            if (::sigtimedwait(&signals_, nullptr, &time) > 0) {
                return true;
            }
            // Being stopped and continued ends the wait too, early.
            if (Clock::now() >= deadline) {
                return false;
            }
        }
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

Samples take_samples(const Watch& watch, Driver& driver)
{
    Samples samples;
    const auto records = ask_each(driver, watch.vsan, [&](vsan_id_t vsan) {
        const Stats counters = driver.device().get_stats(vsan, watch.counters);
        return Sample{Clock::now(), counters};
    });
    for (const Sample& sample : records) {
        samples.emplace(vsan_id_t(sample.counters.vsan_id), sample);
    }
    return samples;
}

Rate rate_of(const Watched& watched, const Samples& before, const Sample& now)
{
    const auto found = before.find(now.counters.vsan_id);
    if (found == before.end()) {
        return std::nullopt;
    }
    return rate_between(found->second.counters.*watched.counter, now.counters.*watched.counter,
                        now.time - found->second.time);
}

std::string text_of(Rate rate)
{
    if (!rate) {
        return "-";
    }
    char text[64];
    std::snprintf(text, sizeof(text), "%.0f", *rate);
    return text;
}

/// To a thousandth: what is behind is the clock's noise.
Json json_of_rate(Rate rate)
{
    return rate ? Json(std::round(*rate * 1000) / 1000) : Json();
}

std::string to_table(const Samples& before, const Samples& now, const Output& output)
{
    std::vector<Table::Column> columns{{"INTERFACE"}};
    for (const Watched& watched : kWatched) {
        columns.push_back({watched.heading, Align::right});
    }
    Table table(columns);
    for (const auto& [vsan, sample] : now) {
        std::vector<Table::Cell> row{{interface_name(vsan), Style::interface}};
        for (const Watched& watched : kWatched) {
            row.push_back({text_of(rate_of(watched, before, sample))});
        }
        table.add(row);
    }
    return table.text(output.color());
}

Json to_json(const Samples& before, const Samples& now)
{
    Json values = Json::array();
    for (const auto& [vsan, sample] : now) {
        Json rates;
        for (const Watched& watched : kWatched) {
            rates[watched.name] = json_of_rate(rate_of(watched, before, sample));
        }
        values.push_back({{"vsan", vsan}, {"ifname", interface_name(vsan)}, {"rates", rates}});
    }
    return values;
}

} // namespace

Rate rate_between(uint64_t before, uint64_t now, std::chrono::duration<double> time)
{
    if (now < before || time.count() <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(now - before) / time.count();
}

void watch_rates(const Watch& watch, Driver& driver, Output& output)
{
    const EndSignals signals;
    Samples before;
    for (uint64_t drawn = 1;; ++drawn) {
        Samples now = take_samples(watch, driver);
        // From the end of the reading, so that two readings are never closer than the period.
        const Clock::time_point next = Clock::now() + kPeriod;
        if (!output.redraw(to_table(before, now, output), to_json(before, now)) ||
            drawn == watch.count) {
            return;
        }
        before = std::move(now);
        if (signals.came_before(next)) {
            return;
        }
    }
}

} // namespace ipfcctl
