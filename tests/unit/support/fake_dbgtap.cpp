// SPDX-License-Identifier: GPL-2.0-only
#include "support/fake_platform.h"
#include "support/fake_state.h"

#include "records.h"
#include "twin.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

using namespace twin;

struct dbgtap_registration_ {
    explicit dbgtap_registration_(const char* modname) : name(modname) {}
    std::string name;
};

namespace {

std::mutex mutex;
std::vector<std::unique_ptr<dbgtap_registration_>> registered;

DebugElement* element_of(dbgtap_handle_t handle, int element)
{
    if (handle == nullptr)
        return nullptr;
    auto& elements = platform().elements;
    const auto found = elements.find(element);
    if (found == elements.end()) {
        fault(strf("debug element %d was not registered", element));
        return nullptr;
    }
    return &found->second;
}

} // namespace

void drop_registrations()
{
    RecordGuard guard(mutex);
    registered.clear();
}

dbgtap_handle_t dbgtap_dbg_init(const char* modname, const char* moddesc, int num_elements,
                                const char* const* descriptions)
{
    might_sleep("dbgtap_dbg_init");
    FakePlatform& fake = platform();
    journal().add(Source::platform, strf("dbgtap_dbg_init %s", modname));
    if (fake.dbgtap_out_of_memory || heap().attempt(Kind::platform, "dbgtap_dbg_init"))
        return nullptr;
    RecordGuard guard(mutex);
    fake.module_name = modname;
    fake.module_description = moddesc;
    fake.element_descriptions.assign(descriptions, descriptions + num_elements);
    for (int i = 0; i < num_elements; ++i)
        fake.elements[DBGTAP_FIRST_ELEMENT + i];
    ++fake.registrations;
    registered.push_back(std::make_unique<dbgtap_registration_>(modname));
    return registered.back().get();
}

void dbgtap_dbg_close(dbgtap_handle_t handle)
{
    might_sleep("dbgtap_dbg_close");
    journal().add(Source::platform, "dbgtap_dbg_close");
    if (handle == nullptr)
        return;
    RecordGuard guard(mutex);
    if (std::erase_if(registered, [&](const auto& entry) { return entry.get() == handle; }) == 0)
        fault("dbgtap_dbg_close of a handle that is not open");
    else
        --platform().registrations;
}

int dbgtap_is_hist_enabled_for_dbgelem(dbgtap_handle_t handle, int element)
{
    RecordGuard guard(mutex);
    const DebugElement* const entry = element_of(handle, element);
    return entry != nullptr && entry->history ? 1 : 0;
}

void dbgtap_log_hist_for_dbgelem(dbgtap_handle_t handle, int element, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        die("the test machine has no memory for a message");
    const std::string whole(text, static_cast<std::size_t>(length));
    std::free(text);
    RecordGuard guard(mutex);
    DebugElement* const entry = element_of(handle, element);
    if (entry == nullptr)
        return;
    if (!entry->history)
        fault(strf("a message for the history of element %d, which is off", element));
    journal().add(Source::message, strf("%d ", element) + whole);
    entry->texts.push_back(whole);
}

int dbgtap_chk_nofilter(dbgtap_handle_t handle, int element)
{
    RecordGuard guard(mutex);
    const DebugElement* const entry = element_of(handle, element);
    return entry != nullptr && entry->log ? 1 : 0;
}

const char* dbgtap_getmodname(dbgtap_handle_t handle)
{
    return handle == nullptr ? "" : handle->name.c_str();
}
