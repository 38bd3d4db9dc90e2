// SPDX-License-Identifier: GPL-2.0-only
#include "support/module_test.h"

#include "kapi/module.h"

#include <memory>

// Where the linker puts the module's variables (see the image's rule in infra/kspace).
extern "C" {
extern unsigned char __start_ipfc_data[];
extern unsigned char __stop_ipfc_data[];
extern unsigned char __start_ipfc_bss[];
extern unsigned char __stop_ipfc_bss[];
}

namespace {

void end_module()
{
    if (ipfc_module().live())
        ipfc_module().unload();
    if (ipfc_module().left_over())
        platform().release_leftovers();
    ipfc_module().release_leftovers();
}

} // namespace

twin::Module& ipfc_module()
{
    static twin::Module one(
        kapi_module_init, kapi_module_exit,
        {{__start_ipfc_data, __stop_ipfc_data}, {__start_ipfc_bss, __stop_ipfc_bss}});
    return one;
}

UnloadedModuleTest::UnloadedModuleTest()
{
    ipfc_module();
    platform().reset();
}

UnloadedModuleTest::~UnloadedModuleTest()
{
    platform().close();
}

void UnloadedModuleTest::tidy()
{
    end_module();
    EXPECT_EQ(platform().open_sockets, 0) << "a socket was left open";
    EXPECT_EQ(platform().registrations, 0) << "a debug registration was left";
    EXPECT_FALSE(platform().mip_callbacks) << "the secondary-IP callbacks were left";
    platform().close();
}

void ModuleTest::SetUp()
{
    ASSERT_EQ(ipfc_module().load(), 0);
    forget_so_far();
}

void forget_so_far()
{
    FakePlatform& fake = platform();
    fake.sends.clear();
    fake.logos.clear();
    fake.options.clear();
    fake.mip_lookups.clear();
    for (auto& entry : fake.elements)
        entry.second.texts.clear();
    twin::log().clear();
    twin::journal().clear();
}

OutOfMemoryRuns module_survives_out_of_memory(const std::function<void()>& scenario)
{
    return survive_out_of_memory([&] {
        platform().reset();
        if (ipfc_module().load() == 0)
            scenario();
        end_module();
        platform().close();
    });
}
