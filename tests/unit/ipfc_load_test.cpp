// SPDX-License-Identifier: GPL-2.0-only
// The module's memory from one load to the next, and start-up without memory.
#include "support/module_test.h"

#include "ipfc.h"

namespace {

using ModuleLoadTest = UnloadedModuleTest;

TEST_F(ModuleLoadTest, every_load_finds_the_variables_in_their_first_state)
{
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(ipfc_module().load([] { EXPECT_EQ(major, 0); }), 0);
        EXPECT_EQ(major, 254);
        EXPECT_EQ(num_mapping_obj, 0);
        num_mapping_obj = 7;
        delete_from_user = 1;
        ipfc_module().unload();
    }
}

TEST_F(ModuleLoadTest, loading_and_unloading_survive_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {});
    EXPECT_GT(total.allocations, 5u);
}

} // namespace
