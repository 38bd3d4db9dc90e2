// SPDX-License-Identifier: GPL-2.0-only
// Memory of the twin: numbered refusals, counts, slab caches, user memory.
#include "support/out_of_memory.h"
#include "support/twin_test.h"

#include "sanitizers.h"

#include "kapi/slab.h"
#include "kapi/uaccess.h"

// Memory is lost and freed twice here on purpose, which the analyzer sees as well as the twin does.
// NOLINTBEGIN(clang-analyzer-unix.Malloc)

namespace {

using namespace twin;

using HeapTest = TwinTest;
using SlabTest = TwinTest;
using UserMemoryTest = TwinTest;

TEST_F(HeapTest, the_nth_allocation_fails_once)
{
    heap().fail_nth(2);
    void* const first = kmalloc(1, GFP_ATOMIC);
    EXPECT_EQ(kmalloc(1, GFP_ATOMIC), nullptr);
    void* const third = kzalloc(1, GFP_ATOMIC);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(heap().attempts(), 3u);
    EXPECT_EQ(heap().refused(), 1u);
    kfree(first);
    kfree(third);
}

TEST_F(HeapTest, from_the_nth_allocation_on_all_fail)
{
    heap().fail_from(2);
    void* const first = kmalloc(1, GFP_ATOMIC);
    EXPECT_EQ(kmalloc(1, GFP_ATOMIC), nullptr);
    EXPECT_EQ(vmalloc(1), nullptr);
    heap().never_fail();
    void* const second = vmalloc(1);
    EXPECT_NE(second, nullptr);
    kfree(first);
    vfree(second);
}

TEST_F(HeapTest, one_kind_alone_can_fail)
{
    heap().fail_from(Kind::vmalloc, 1);
    EXPECT_EQ(vmalloc(1), nullptr);
    void* const block = kmalloc(1, GFP_ATOMIC);
    EXPECT_NE(block, nullptr);
    kfree(block);
}

TEST_F(HeapTest, freeing_twice_or_by_the_wrong_call_is_a_fault)
{
    void* const block = kmalloc(1, GFP_ATOMIC);
    vfree(block);
    EXPECT_NE(only_fault().find("vfree of"), std::string::npos);
    kfree(block);
    kfree(block);
    EXPECT_NE(only_fault().find("kfree of"), std::string::npos);
    kfree(nullptr);
}

TEST_F(HeapTest, what_is_not_freed_is_found)
{
    void* const block = kmalloc(24, GFP_ATOMIC);
    EXPECT_EQ(heap().live(Kind::kmalloc), 1u);
    EXPECT_EQ(audit(),
              std::vector<std::string>{"leaked: kmalloc \"kmalloc\", 24 bytes, allocation 1"});
    kfree(block);
}

TEST_F(HeapTest, zeroed_memory_is_zero_and_other_memory_is_not)
{
    auto* const zeroed = static_cast<unsigned char*>(kzalloc(4, GFP_ATOMIC));
    auto* const plain = static_cast<unsigned char*>(kmalloc(4, GFP_ATOMIC));
    EXPECT_EQ(zeroed[3], 0);
    EXPECT_NE(plain[3], 0);
    kfree(zeroed);
    kfree(plain);
}

TEST_F(HeapTest, a_block_beyond_the_largest_is_refused)
{
    EXPECT_EQ(kmalloc((4u << 20) + 1, GFP_KERNEL), nullptr);
}

TEST_F(HeapTest, the_out_of_memory_runs_reach_every_allocation_and_find_the_leak)
{
    const OutOfMemoryRuns total = survive_out_of_memory([] {
        void* const first = kmalloc(1, GFP_KERNEL);
        void* const second = first != nullptr ? kmalloc(1, GFP_KERNEL) : nullptr;
        kfree(second);
        kfree(first);
    });
    EXPECT_EQ(total.allocations, 2u);
    EXPECT_EQ(total.runs, 6u);
}

TEST_F(SlabTest, a_cache_shows_what_it_was_made_with)
{
    kmem_cache* const cache = kmem_cache_create("nodes", 24, 0, SLAB_HWCACHE_ALIGN, nullptr);
    void* const object = kmem_cache_alloc(cache, GFP_ATOMIC);
    ASSERT_EQ(slab_caches().size(), 1u);
    const SlabCache seen = slab_caches()[0];
    EXPECT_EQ(seen.name, "nodes");
    EXPECT_EQ(seen.size, 24u);
    EXPECT_EQ(seen.flags, 0x2000ul);
    EXPECT_FALSE(seen.has_constructor);
    EXPECT_EQ(seen.objects, 1u);
    kmem_cache_free(cache, object);
    kmem_cache_destroy(cache);
    EXPECT_EQ(journal().texts({Source::slab}),
              (std::vector<std::string>{"kmem_cache_create nodes", "kmem_cache_destroy nodes"}));
}

TEST_F(SlabTest, destroying_a_cache_with_objects_is_a_fault)
{
    kmem_cache* const cache = kmem_cache_create("nodes", 8, 0, 0, nullptr);
    void* const object = kmem_cache_alloc(cache, GFP_ATOMIC);
    kmem_cache_destroy(cache);
    EXPECT_EQ(only_fault(), "kmem_cache_destroy of nodes with 1 objects");
    kmem_cache_free(cache, object);
    EXPECT_NE(only_fault().find("kmem_cache_free with a cache that does not exist"),
              std::string::npos);
    heap().give_back(Kind::object, object, "test");
}

TEST_F(SlabTest, freeing_an_object_twice_or_to_another_cache_is_a_fault)
{
    kmem_cache* const one = kmem_cache_create("one", 8, 0, 0, nullptr);
    kmem_cache* const two = kmem_cache_create("two", 8, 0, 0, nullptr);
    void* const object = kmem_cache_alloc(one, GFP_ATOMIC);
    kmem_cache_free(two, object);
    EXPECT_NE(only_fault().find("two does not hold"), std::string::npos);
    kmem_cache_free(one, object);
    kmem_cache_free(one, object);
    EXPECT_NE(only_fault().find("one does not hold"), std::string::npos);
    kmem_cache_destroy(one);
    kmem_cache_destroy(two);
}

TEST_F(UserMemoryTest, a_copy_stops_at_the_unmapped_page)
{
    UserMemory user(10);
    user.fill(0);
    const char text[] = "0123456789abcdef";
    char* const near_end = user.chars() + 4;
    EXPECT_EQ(copy_to_user(near_end, text, 6), 0u);
    EXPECT_EQ(copy_to_user(near_end, text, 16), 10u);
    EXPECT_EQ(copy_to_user(user.unmapped(), text, 1), 1u);
    EXPECT_EQ(user.bytes()[4], '0');
    EXPECT_EQ(user.bytes()[9], '5');
    EXPECT_EQ(user.bytes()[3], 0);
    EXPECT_EQ(user_copies().faults, 2u);
}

TEST_F(UserMemoryTest, a_faulting_copy_from_user_clears_the_rest)
{
    UserMemory user(4);
    user.fill(7);
    unsigned char bytes[6];
    std::memset(bytes, 9, sizeof(bytes));
    EXPECT_EQ(copy_from_user(bytes, user.address(), 6), 2u);
    EXPECT_EQ(bytes[3], 7);
    EXPECT_EQ(bytes[4], 0);
    EXPECT_EQ(bytes[5], 0);
}

TEST_F(UserMemoryTest, kernel_memory_is_no_user_memory)
{
    void* const block = kmalloc(4, GFP_KERNEL);
    int number = 0;
    EXPECT_EQ(copy_to_user(block, &number, 4), 4u);
    EXPECT_EQ(copy_from_user(&number, block, 4), 4u);
    kfree(block);
}

TEST_F(UserMemoryTest, read_only_memory_can_be_read_alone)
{
    UserMemory user(4, UserMemory::Access::read_only);
    int number = 0;
    EXPECT_EQ(copy_to_user(user.address(), &number, 4), 4u);
    EXPECT_EQ(copy_from_user(&number, user.address(), 4), 0u);
}

TEST_F(UserMemoryTest, access_ok_looks_at_the_range_and_not_at_the_pages)
{
    const auto at = [](unsigned long address) { return reinterpret_cast<void*>(address); };
    EXPECT_TRUE(access_ok(VERIFY_WRITE, at(0), 12));
    EXPECT_TRUE(access_ok(VERIFY_WRITE, at(0x00007ffffffff000 - 12), 12));
    EXPECT_FALSE(access_ok(VERIFY_WRITE, at(0x00007ffffffff000 - 11), 12));
    EXPECT_FALSE(access_ok(VERIFY_WRITE, at(0xffff888000000000), 12));
    EXPECT_FALSE(access_ok(VERIFY_READ, at(~0ul), 12));
    UserMemory user(4);
    set_address_limit(user.argument());
    EXPECT_FALSE(access_ok(VERIFY_READ, user.address(), 4));
}

#if TWIN_ASAN
using HeapDeathTest = TwinTest;

TEST_F(HeapDeathTest, the_byte_behind_a_block_is_forbidden)
{
    auto* const block = static_cast<volatile char*>(kmalloc(12, GFP_ATOMIC));
    EXPECT_DEATH(block[12] = 1, "heap-buffer-overflow");
    kfree(const_cast<char*>(block));
}

TEST_F(HeapDeathTest, a_freed_block_is_forbidden)
{
    auto* const block = static_cast<volatile char*>(kmalloc(12, GFP_ATOMIC));
    kfree(const_cast<char*>(block));
    EXPECT_DEATH(block[0] = 1, "heap-use-after-free");
}
#elif !TWIN_TSAN
TEST_F(HeapTest, bytes_written_behind_a_block_are_found_when_it_is_freed)
{
    auto* const block = static_cast<volatile char*>(kmalloc(12, GFP_ATOMIC));
    block[12] = 1;
    kfree(const_cast<char*>(block));
    EXPECT_NE(only_fault().find("bytes behind"), std::string::npos);
}

TEST_F(HeapTest, bytes_written_to_a_freed_block_are_found)
{
    auto* const block = static_cast<volatile char*>(kmalloc(12, GFP_ATOMIC));
    kfree(const_cast<char*>(block));
    block[3] = 1;
    heap().reset();
    EXPECT_NE(only_fault().find("written after it was freed"), std::string::npos);
}
#endif

} // namespace

// NOLINTEND(clang-analyzer-unix.Malloc)
