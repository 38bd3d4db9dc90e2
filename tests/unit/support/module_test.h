// SPDX-License-Identifier: GPL-2.0-only
// The module on the twin, above the fake platform.
#pragma once

#include "support/fake_platform.h"
#include "support/out_of_memory.h"
#include "support/twin_test.h"

// The module under test. Each load puts its variables, static ones included, back into the state
// that the file has, so that no test sees another one's counters, lists or major number.
twin::Module& ipfc_module();

// A kernel and a platform, the module not loaded. After the test the module is unloaded, what a
// failed start-up left is released, and nothing may be leaked, held or faulted.
class UnloadedModuleTest : public TwinTest {
protected:
    UnloadedModuleTest();
    ~UnloadedModuleTest() override;
    void tidy() override;
};

// The module loaded, its start-up no longer in the journal, the log and the debug history.
class ModuleTest : public UnloadedModuleTest {
protected:
    void SetUp() override;
};

// Empties the journal, the log, the debug histories and the platform's records (not its scripts).
void forget_so_far();

// Around survive_out_of_memory: each run is a platform of its own, a load, the scenario when that
// succeeded, and an unload or the release of what was left.
OutOfMemoryRuns module_survives_out_of_memory(const std::function<void()>& scenario);
