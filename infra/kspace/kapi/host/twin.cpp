// SPDX-License-Identifier: GPL-2.0-only
#include "twin.h"

namespace twin {

void reset()
{
    abandon_locks();
    context().softirqs.clear();
    if (context().rtnl)
        rtnl_unlock();
    reset_netstack();
    reset_devices();
    reset_char_devices();
    reset_proc();
    set_one_page_reports(false);
    reset_user_memory();
    reset_tasks();
    reset_clock();
    reset_slab_caches();
    heap().reset();
    lockdep::reset();
    log().clear();
    journal().clear();
    take_faults();
}

std::vector<std::string> audit()
{
    take_delivered(); // the network stack would have consumed them
    std::vector<std::string> problems;
    for (const std::string& text : heap().live_texts())
        problems.push_back("leaked: " + text);
    if (locks_held() != 0)
        problems.push_back(strf("%d locks still held", locks_held()));
    const Context& own = context();
    if (own.bh_depth != 0 || own.irqs_off || own.softirq_depth != 0)
        problems.push_back("left over: " + context_text());
    if (own.rtnl)
        problems.push_back("rtnl_lock still held");
    if (!own.softirqs.empty())
        problems.push_back("a raised softirq never ran");
    if (waiters() != 0)
        problems.push_back(strf("%zu entries still in wait queues", waiters()));
    if (pending_timers() != 0)
        problems.push_back(strf("%zu timers still pending", pending_timers()));
    if (open_files() != 0)
        problems.push_back(strf("%u devices still open", open_files()));
    for (std::string& text : take_faults())
        problems.push_back(std::move(text));
    return problems;
}

} // namespace twin
