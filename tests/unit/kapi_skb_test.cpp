// SPDX-License-Identifier: GPL-2.0-only
// Socket buffers of the twin.
#include "support/twin_test.h"

#include "sanitizers.h"

#include "kapi/slab.h"

#include <numeric>

namespace {

using namespace twin;

using SkbTest = TwinTest;

Bytes counted(std::size_t size)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

TEST_F(SkbTest, push_and_put_stop_exactly_at_head_and_end)
{
    const SkbPtr skb(make_skb(counted(10), {.headroom = 4, .tailroom = 6}));
    EXPECT_EQ(skb_push(skb.get(), 4), skb->head);
    EXPECT_EQ(skb_put(skb.get(), 6), skb->head + 14);
    EXPECT_EQ(skb->len, 20u);
    EXPECT_EQ(skb_tailroom(skb.get()), 0);
    EXPECT_THROW(skb_push(skb.get(), 1), KernelBug);
    EXPECT_THROW(skb_put(skb.get(), 1), KernelBug);
    EXPECT_EQ(skb->len, 20u);
}

TEST_F(SkbTest, put_of_a_negative_length_shortens)
{
    const SkbPtr skb(make_skb(counted(40)));
    EXPECT_EQ(skb_put(skb.get(), static_cast<unsigned>(-12)), skb->head + 40);
    EXPECT_EQ(skb->len, 28u);
    EXPECT_EQ(skb->tail, 28u);
    EXPECT_EQ(skb_bytes(skb.get()), counted(28));
    EXPECT_THROW(skb_put(skb.get(), static_cast<unsigned>(-29)), KernelBug);
}

TEST_F(SkbTest, pull_beyond_the_length_moves_nothing)
{
    const SkbPtr skb(make_skb(counted(8)));
    EXPECT_EQ(skb_pull(skb.get(), 9), nullptr);
    EXPECT_EQ(skb->len, 8u);
    EXPECT_EQ(skb_pull(skb.get(), 8), skb->head + 8);
    EXPECT_EQ(skb->len, 0u);
}

TEST_F(SkbTest, pull_into_paged_data_dies)
{
    const SkbPtr skb(make_skb(counted(8), {.linear = 4}));
    EXPECT_THROW(skb_pull(skb.get(), 5), KernelBug);
    EXPECT_THROW(skb_put(skb.get(), 1), KernelBug);
}

TEST_F(SkbTest, trim_only_shortens)
{
    const SkbPtr skb(make_skb(counted(8)));
    skb_trim(skb.get(), 9);
    EXPECT_EQ(skb->len, 8u);
    skb_trim(skb.get(), 3);
    EXPECT_EQ(skb_bytes(skb.get()), counted(3));
}

TEST_F(SkbTest, reserve_stays_inside_an_empty_buffer)
{
    const SkbPtr skb(alloc_skb(16, GFP_KERNEL));
    skb_reserve(skb.get(), 16);
    EXPECT_EQ(skb_headroom(skb.get()), 16u);
    EXPECT_THROW(skb_reserve(skb.get(), 1), KernelBug);
    EXPECT_THROW(skb_reserve(skb.get(), -17), KernelBug);
}

TEST_F(SkbTest, freeing_twice_is_a_fault)
{
    sk_buff* const skb = make_skb(counted(1));
    kfree_skb(skb);
    EXPECT_FALSE(skb_alive(skb));
    kfree_skb(skb);
    EXPECT_NE(only_fault().find("kfree_skb of"), std::string::npos);
}

TEST_F(SkbTest, using_a_freed_buffer_dies)
{
    sk_buff* const skb = make_skb(counted(1));
    kfree_skb(skb);
    EXPECT_THROW(skb_push(skb, 0), KernelBug);
    take_faults();
}

TEST_F(SkbTest, a_shared_buffer_is_freed_by_its_last_holder)
{
    sk_buff* const skb = make_skb(counted(4));
    skb_get(skb);
    EXPECT_TRUE(skb_shared(skb));
    EXPECT_THROW(pskb_expand_head(skb, 1, 0, GFP_ATOMIC), KernelBug);
    kfree_skb(skb);
    EXPECT_TRUE(skb_alive(skb));
    EXPECT_FALSE(skb_shared(skb));
    dev_kfree_skb_any(skb);
    EXPECT_FALSE(skb_alive(skb));
}

TEST_F(SkbTest, a_clone_shares_the_bytes_and_outlives_the_original)
{
    sk_buff* const skb = make_skb(counted(4), {.headroom = 2});
    const SkbPtr clone(skb_clone(skb, GFP_ATOMIC));
    EXPECT_EQ(clone->data, skb->data);
    EXPECT_TRUE(skb_cloned(skb));
    EXPECT_TRUE(skb_cloned(clone.get()));
    kfree_skb(skb);
    EXPECT_FALSE(skb_cloned(clone.get()));
    EXPECT_EQ(skb_bytes(clone.get()), counted(4));
}

TEST_F(SkbTest, a_copy_is_linear_and_keeps_headroom_and_marks)
{
    const SkbPtr skb(
        make_skb(counted(50), {.headroom = 7, .tailroom = 3, .linear = 20, .page = 8}));
    skb->protocol = cpu_to_be16(0x0806);
    skb_set_pkt_type(skb.get(), PACKET_BROADCAST);
    skb_reset_mac_header(skb.get());
    skb_pull(skb.get(), 5);
    const SkbPtr copy(skb_copy(skb.get(), GFP_ATOMIC));
    EXPECT_EQ(copy->data_len, 0u);
    EXPECT_EQ(skb_headroom(copy.get()), 12u);
    EXPECT_EQ(skb_mac_header(copy.get()), copy->data - 5);
    EXPECT_EQ(skb_mac_header(copy.get())[0], 0);
    EXPECT_EQ(be16_to_cpu(copy->protocol), 0x0806);
    EXPECT_EQ(skb_pkt_type(copy.get()), PACKET_BROADCAST);
    EXPECT_EQ(skb_bytes(copy.get()), skb_bytes(skb.get()));
    EXPECT_FALSE(skb_cloned(copy.get()));
}

TEST_F(SkbTest, copy_expand_gives_the_room_asked_for_and_no_more)
{
    const SkbPtr skb(make_skb(counted(28), {.headroom = 24, .linear = 10, .page = 5}));
    const SkbPtr copy(skb_copy_expand(skb.get(), 24, 12, GFP_ATOMIC));
    EXPECT_EQ(skb_headroom(copy.get()), 24u);
    EXPECT_EQ(skb_tailroom(copy.get()), 12);
    EXPECT_EQ(skb_bytes(copy.get()), counted(28));
    skb_put(copy.get(), 12);
    EXPECT_THROW(skb_put(copy.get(), 1), KernelBug);
}

TEST_F(SkbTest, expand_head_moves_the_data_and_leaves_a_clone_alone)
{
    const SkbPtr skb(make_skb(counted(6), {.headroom = 1}));
    const SkbPtr clone(skb_clone(skb.get(), GFP_ATOMIC));
    ASSERT_EQ(pskb_expand_head(skb.get(), 10, 5, GFP_ATOMIC), 0);
    EXPECT_NE(skb->data, clone->data);
    EXPECT_EQ(skb_headroom(skb.get()), 11u);
    EXPECT_EQ(skb_tailroom(skb.get()), 5);
    EXPECT_FALSE(skb_cloned(clone.get()));
    skb->data[0] = 0xFF;
    EXPECT_EQ(skb_bytes(clone.get()), counted(6));
}

TEST_F(SkbTest, may_pull_makes_paged_bytes_linear)
{
    const SkbPtr skb(make_skb(counted(30), {.headroom = 3, .linear = 4, .page = 7}));
    EXPECT_TRUE(pskb_may_pull(skb.get(), 4));
    EXPECT_EQ(heap().attempts(), 0u);
    EXPECT_TRUE(pskb_may_pull(skb.get(), 20));
    EXPECT_EQ(skb_headlen(skb.get()), 20u);
    EXPECT_EQ(skb->data[19], 19);
    EXPECT_EQ(skb_bytes(skb.get()), counted(30));
    EXPECT_FALSE(pskb_may_pull(skb.get(), 31));
    EXPECT_TRUE(pskb_may_pull(skb.get(), 30));
    EXPECT_EQ(skb->data_len, 0u);
}

TEST_F(SkbTest, may_pull_without_memory_is_refused_and_changes_nothing)
{
    const SkbPtr skb(make_skb(counted(30), {.linear = 4}));
    heap().fail_from(1);
    EXPECT_FALSE(pskb_may_pull(skb.get(), 20));
    EXPECT_EQ(skb_headlen(skb.get()), 4u);
    EXPECT_EQ(skb_bytes(skb.get()), counted(30));
}

TEST_F(SkbTest, copy_bits_crosses_from_linear_to_paged_data)
{
    const SkbPtr skb(make_skb(counted(20), {.linear = 5, .page = 4}));
    std::uint8_t bytes[10];
    ASSERT_EQ(skb_copy_bits(skb.get(), 3, bytes, 10), 0);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(bytes[i], i + 3);
    EXPECT_EQ(skb_copy_bits(skb.get(), 11, bytes, 10), -14);
    EXPECT_EQ(skb_copy_bits(skb.get(), -1, bytes, 1), -14);
}

TEST_F(SkbTest, every_way_to_a_buffer_can_be_out_of_memory)
{
    const SkbPtr skb(make_skb(counted(4)));
    heap().fail_from(1);
    EXPECT_EQ(alloc_skb(1, GFP_ATOMIC), nullptr);
    EXPECT_EQ(skb_clone(skb.get(), GFP_ATOMIC), nullptr);
    EXPECT_EQ(skb_copy(skb.get(), GFP_ATOMIC), nullptr);
    EXPECT_EQ(skb_copy_expand(skb.get(), 1, 1, GFP_ATOMIC), nullptr);
    EXPECT_EQ(pskb_expand_head(skb.get(), 1, 1, GFP_ATOMIC), -12);
    EXPECT_EQ(heap().refused(), 5u);
}

TEST_F(SkbTest, a_buffer_that_nobody_frees_is_a_leak)
{
    sk_buff* const skb = make_skb(counted(4));
    EXPECT_EQ(heap().live(Kind::skb), 1u);
    EXPECT_EQ(heap().live(Kind::skb_data), 1u);
    const std::vector<std::string> problems = audit();
    EXPECT_EQ(problems.size(), 2u);
    kfree_skb(skb);
    EXPECT_TRUE(audit().empty());
}

#if TWIN_ASAN
using SkbDeathTest = SkbTest;

TEST_F(SkbDeathTest, the_byte_behind_the_storage_is_forbidden)
{
    const SkbPtr skb(make_skb(counted(4)));
    EXPECT_DEATH(static_cast<volatile unsigned char*>(skb->data)[4] = 1, "heap-buffer-overflow");
}
#endif

} // namespace
