// SPDX-License-Identifier: GPL-2.0-only
#include "journal.h"

#include "records.h"

#include <algorithm>
#include <mutex>

namespace twin {
namespace {

std::mutex mutex;
std::vector<Event> entries; // oldest first

} // namespace

Journal& journal()
{
    static Journal one;
    return one;
}

void Journal::add(Source source, std::string text)
{
    RecordGuard guard(mutex);
    entries.push_back({source, std::move(text)});
}

void Journal::clear()
{
    RecordGuard guard(mutex);
    entries.clear();
}

std::vector<Event> Journal::events() const
{
    RecordGuard guard(mutex);
    return entries;
}

std::vector<std::string> Journal::texts() const
{
    std::vector<std::string> result;
    for (const Event& event : events())
        if (event.source != Source::lock)
            result.push_back(event.text);
    return result;
}

std::vector<std::string> Journal::texts(std::initializer_list<Source> sources) const
{
    std::vector<std::string> result;
    for (const Event& event : events())
        if (std::find(sources.begin(), sources.end(), event.source) != sources.end())
            result.push_back(event.text);
    return result;
}

} // namespace twin
