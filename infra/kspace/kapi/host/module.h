// SPDX-License-Identifier: GPL-2.0-only
// Loading and unloading: what the kernel and the glue do around a module's start-up and end.
#pragma once

#include <functional>
#include <vector>

namespace twin {

// A module's writable memory, so that each load finds it as the file has it.
struct MemoryRange {
    unsigned char* begin;
    unsigned char* end;
};

class Module {
public:
    Module(int (*init)(), void (*exit)(), std::vector<MemoryRange> memory = {});
    ~Module();
    Module(const Module&) = delete;

    // Puts the module's memory into its first state, lets set_parameters set parameters, and runs
    // the start-up. After a failure all that the start-up left registered stays, for a test to look
    // at, until release_leftovers.
    int load(const std::function<void()>& set_parameters = {});

    // The module's end, then what the glue releases: devices that nobody freed, removed proc
    // entries. A fault when files are open.
    void unload();

    // After a failed load: takes back every registration that the start-up left.
    void release_leftovers();

    bool live() const { return live_; }
    bool left_over() const { return left_over_; }

    // The module whose start-up or end runs now; null when none does.
    static const Module* starting();

private:
    void restore_memory();

    int (*init_)();
    void (*exit_)();
    std::vector<MemoryRange> memory_;
    std::vector<std::vector<unsigned char>> first_state_;
    bool live_ = false;
    bool left_over_ = false;
};

} // namespace twin
