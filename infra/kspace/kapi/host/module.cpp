// SPDX-License-Identifier: GPL-2.0-only
#include "module.h"

#include "chrdev.h"
#include "context.h"
#include "fault.h"
#include "netdev.h"
#include "procfs.h"
#include "slab_caches.h"

#include <atomic>

namespace twin {
namespace {

std::atomic<const Module*> now_starting{nullptr};

// Sanitizers keep forbidden bytes between a program's variables; these two copy them as well.
__attribute__((no_sanitize("address", "thread"), noinline)) void
raw_copy(unsigned char* to, const unsigned char* from, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        const_cast<volatile unsigned char*>(to)[i] =
            const_cast<const volatile unsigned char*>(from)[i];
}

// Marks what is registered meanwhile as this module's.
class Starting {
public:
    explicit Starting(const Module* module) { now_starting = module; }
    ~Starting() { now_starting = nullptr; }
};

} // namespace

const Module* Module::starting()
{
    return now_starting;
}

Module::Module(int (*init)(), void (*exit)(), std::vector<MemoryRange> memory)
    : init_(init), exit_(exit), memory_(std::move(memory))
{
    for (const MemoryRange& range : memory_) {
        const auto size = static_cast<std::size_t>(range.end - range.begin);
        first_state_.emplace_back(size);
        raw_copy(first_state_.back().data(), range.begin, size);
    }
}

Module::~Module()
{
    if (live_ || left_over_)
        fault("a module was still loaded at the end of the test");
}

void Module::restore_memory()
{
    for (std::size_t i = 0; i < memory_.size(); ++i)
        raw_copy(memory_[i].begin, first_state_[i].data(), first_state_[i].size());
}

int Module::load(const std::function<void()>& set_parameters)
{
    if (live_ || left_over_)
        die("load of a module that is loaded");
    restore_memory();
    if (set_parameters)
        set_parameters();
    might_sleep("load");
    left_over_ = true; // also when the start-up dies half-way
    int result;
    {
        Starting starting(this);
        result = init_();
    }
    if (result > 0)
        fault(strf("a module's start-up returned %d", result));
    live_ = result == 0;
    left_over_ = !live_;
    return result;
}

void Module::unload()
{
    if (!live_)
        die("unload of a module that is not loaded");
    if (open_files() != 0)
        fault("unload while a device is open");
    might_sleep("unload");
    {
        Starting stopping(this);
        exit_();
    }
    live_ = false;
    for (const CharDevice& device : char_devices())
        if (device.owner == this)
            fault("a module left its character device registered");
    // The shutdown leaves these on purpose, and the glue takes them with the module's memory.
    release_devices();
    release_proc_entries(this, /*left_is_fault=*/true);
    release_slab_caches(this, /*left_is_fault=*/true);
}

void Module::release_leftovers()
{
    if (!left_over_)
        return;
    // What could still call into the module goes first.
    left_over_ = false;
    release_char_devices(this);
    release_devices();
    release_proc_entries(this, /*left_is_fault=*/false);
    release_slab_caches(this, /*left_is_fault=*/false);
}

} // namespace twin
