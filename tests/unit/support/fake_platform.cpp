// SPDX-License-Identifier: GPL-2.0-only
#include "support/fake_platform.h"

#include "support/fake_state.h"

#include "twin.h"

#include <algorithm>
#include <utility>

proc_dir_entry* proc_brim_sw;

FakePlatform& platform()
{
    static FakePlatform one;
    return one;
}

void FakePlatform::reset()
{
    close();
    *this = FakePlatform();
    const twin::UnnumberedAllocations set_up;
    proc_brim_sw = proc_mkdir("brim_sw", nullptr);
    twin::journal().clear();
}

void FakePlatform::release_leftovers()
{
    drop_sockets();
    drop_registrations();
    open_sockets = 0;
    registrations = 0;
    sock = nullptr;
    mip_callbacks.reset();
}

void FakePlatform::close()
{
    drop_sockets();
    drop_registrations();
    if (proc_brim_sw != nullptr)
        remove_proc_entry("brim_sw", nullptr);
    proc_brim_sw = nullptr;
}

std::vector<std::string> FakePlatform::take_texts(int element)
{
    return std::exchange(elements[element].texts, {});
}

bool FakePlatform::has_text(int element, const std::string& text) const
{
    const auto found = elements.find(element);
    return found != elements.end() &&
           std::find(found->second.texts.begin(), found->second.texts.end(), text) !=
               found->second.texts.end();
}
