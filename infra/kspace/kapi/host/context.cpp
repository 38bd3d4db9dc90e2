// SPDX-License-Identifier: GPL-2.0-only
#include "context.h"

#include "fault.h"

namespace twin {

// Runs when the thread ends: from then on nobody could let go what it held.
Context::~Context()
{
    if (!held.empty())
        fault(strf("a thread ended with %zu locks held", held.size()));
    if (bh_depth != 0 || irqs_off)
        fault("a thread ended with softirqs or interrupts off");
}

Context& context()
{
    thread_local Context own;
    return own;
}

bool in_atomic()
{
    const Context& own = context();
    return !own.held.empty() || own.bh_depth > 0 || own.softirq_depth > 0 || own.irqs_off;
}

std::string context_text()
{
    const Context& own = context();
    return strf("%zu locks held, softirqs %s, interrupts %s%s", own.held.size(),
                own.bh_depth > 0 ? "off" : "on", own.irqs_off ? "off" : "on",
                own.softirq_depth > 0 ? ", in softirq" : "");
}

void might_sleep(const char* what)
{
    if (in_atomic())
        fault(strf("%s may sleep, called while atomic (%s)", what, context_text().c_str()));
}

void bh_disable()
{
    ++context().bh_depth;
}

namespace {

// A softirq may raise another, which then runs in the same round.
void run_softirqs()
{
    Context& own = context();
    while (!own.softirqs.empty() && own.bh_depth == 0 && own.softirq_depth == 0 && !own.irqs_off) {
        std::function<void()> next = std::move(own.softirqs.front());
        own.softirqs.erase(own.softirqs.begin());
        SoftirqScope scope;
        next();
    }
}

} // namespace

void bh_enable()
{
    Context& own = context();
    if (own.bh_depth == 0) {
        fault("softirqs enabled more often than disabled");
        return;
    }
    --own.bh_depth;
    run_softirqs();
}

void restore_irqs(bool off)
{
    context().irqs_off = off;
    run_softirqs();
}

void raise_softirq(std::function<void()> function)
{
    context().softirqs.push_back(std::move(function));
    run_softirqs();
}

} // namespace twin
