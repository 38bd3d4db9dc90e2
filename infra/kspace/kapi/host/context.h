// SPDX-License-Identifier: GPL-2.0-only
// Each thread is one processor with one task on it: which locks it holds, whether softirqs and
// interrupts are off, and whether it may sleep.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace twin {

enum class LockMode { exclusive, shared };

struct HeldLock {
    const void* lock = nullptr;
    const void* lock_class = nullptr;
    LockMode mode = LockMode::exclusive;
    bool rw = false;                     // a reader/writer lock
    bool bh = false;                     // taken by a _bh form
    bool irqsave = false;                // taken by the _irqsave form
    unsigned long flags = 0;             // what the _irqsave form returned
    std::vector<const void*> outer = {}; // locks that were held when this one was taken
};

struct Context {
    std::vector<HeldLock> held;
    int bh_depth = 0;
    int softirq_depth = 0;
    bool irqs_off = false;
    bool rtnl = false;
    std::vector<std::function<void()>> softirqs; // raised and not yet run

    ~Context();
};

Context& context();

// A spin lock is held, or softirqs or interrupts are off, or a softirq runs.
bool in_atomic();
std::string context_text();

// A fault when the caller may not sleep.
void might_sleep(const char* what);

void bh_disable();
// Runs the raised softirqs when it was the last one and interrupts are on.
void bh_enable();
// Leaves interrupts off or on; on runs the raised softirqs.
void restore_irqs(bool off);

// Runs function as a softirq of this processor: at once, or when softirqs are allowed again.
void raise_softirq(std::function<void()> function);

class SoftirqScope {
public:
    SoftirqScope() { ++context().softirq_depth; }
    ~SoftirqScope() { --context().softirq_depth; }
    SoftirqScope(const SoftirqScope&) = delete;
};

class IrqsOffScope {
public:
    IrqsOffScope() : before_(context().irqs_off) { context().irqs_off = true; }
    ~IrqsOffScope() { context().irqs_off = before_; }
    IrqsOffScope(const IrqsOffScope&) = delete;

private:
    bool before_;
};

} // namespace twin
