// SPDX-License-Identifier: GPL-2.0-only
// Two threads that share memory and have no order between them but the twin's own records, as two
// processors would that forgot a lock. ThreadSanitizer must end this program.
#include "kapi/slab.h"
#include "kapi/spinlock.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

int shared;
std::atomic<bool> first_done{false};

// Calls into the twin: each is written down, and each takes a lock for that.
void be_written_down()
{
    spinlock_t own;
    spin_lock_init(&own);
    spin_lock(&own);
    kfree(kmalloc(8, GFP_ATOMIC));
    spin_unlock(&own);
}

template <typename First, typename Second>
void one_after_the_other(First first, Second second)
{
    std::thread one([&] {
        first();
        be_written_down();
        first_done.store(true, std::memory_order_relaxed);
    });
    std::thread two([&] {
        while (!first_done.load(std::memory_order_relaxed))
            std::this_thread::yield();
        be_written_down();
        second();
    });
    one.join();
    two.join();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "write") == 0) {
        one_after_the_other([] { ++shared; }, [] { ++shared; });
    } else if (argc == 2 && std::strcmp(argv[1], "use_after_free") == 0) {
        auto* const block = static_cast<int*>(kmalloc(sizeof(int), GFP_KERNEL));
        one_after_the_other([block] { *block = 1; }, [block] { kfree(block); });
    } else {
        std::fputs("usage: unordered_threads write|use_after_free\n", stderr);
        return EXIT_FAILURE;
    }
    std::puts("nobody noticed");
    return EXIT_SUCCESS;
}
