// SPDX-License-Identifier: GPL-2.0-only
#include "support/fake_platform.h"

#include "twin.h"

using namespace twin;

int mip_register_opt(opt_func_t callbacks)
{
    might_sleep("mip_register_opt");
    FakePlatform& fake = platform();
    int result = fake.mip_register_result;
    if (result == 0 && heap().attempt(Kind::platform, "mip_register_opt"))
        result = -12;
    journal().add(Source::platform, strf("mip_register_opt = %d", result));
    if (result == 0)
        fake.mip_callbacks = callbacks;
    return result;
}

void mip_unregister_opt()
{
    might_sleep("mip_unregister_opt");
    journal().add(Source::platform, "mip_unregister_opt");
    platform().mip_callbacks.reset();
}

int mip_lookup(uint16_t ethertype, const void* packet, mip_mapping_t* mapping, int* flag)
{
    FakePlatform& fake = platform();
    journal().add(Source::platform, strf("mip_lookup 0x%04x", ethertype));
    fake.mip_lookups.push_back({ethertype, packet, in_atomic()});
    MipAnswer answer = fake.mip_answer;
    if (!fake.mip_answers.empty()) {
        answer = fake.mip_answers.front();
        fake.mip_answers.pop_front();
    }
    if (answer.result != 0)
        return answer.result;
    *flag = answer.flag;
    if (answer.flag == 1)
        *mapping = answer.mapping;
    return 0;
}
