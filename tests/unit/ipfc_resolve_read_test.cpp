// SPDX-License-Identifier: GPL-2.0-only
// The resolver's side of the device: read, poll, write, open and close.
#include "support/control.h"

#include <functional>
#include <utility>

// The linker sends the module's calls of access_ok here (see the test program's link options): a
// reader makes one between its look at the queue and the taking of a request.
static std::function<void()> on_access_check;

extern "C" bool __real_kapi_access_ok(int type, const void* address, unsigned long size);
extern "C" bool __wrap_kapi_access_ok(int type, const void* address, unsigned long size)
{
    if (on_access_check)
        std::exchange(on_access_check, {})();
    return __real_kapi_access_ok(type, address, size);
}

namespace {

using twin::Bytes;
using twin::UserMemory;

constexpr unsigned NONBLOCK = 04000; // O_NONBLOCK

// VSAN 258, 10:00:aa:bb:cc:dd:ee:01.
const Bytes request_bytes = {0x02, 0x01, 0, 0, 0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01};

class ReadTest : public ResolutionTest {
protected:
    // The driver's read alone, without the kernel's own check of the address.
    long driver_read(void* address, unsigned flags = 0)
    {
        twin::CharFile other("ipfc", flags);
        loff_t position = 0;
        return ipfc_chr_read(other.filp(), static_cast<char*>(address), 12, &position);
    }
};

TEST_F(ReadTest, a_successful_read_returns_0_and_gives_vsan_and_name)
{
    EXPECT_EQ(request(258), 0);
    forget_so_far();
    Bytes bytes;
    EXPECT_EQ(read_request(&bytes), 0);
    EXPECT_EQ(bytes, request_bytes);
    EXPECT_TRUE(happened().empty());
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 1u); // the packet's record
    EXPECT_EQ(skb_list_lenght, 1);
    EXPECT_EQ(twin::waiters(), 0u);
}

TEST_F(ReadTest, requests_come_oldest_first)
{
    EXPECT_EQ(request(3, OTHER_NAME), 0);
    EXPECT_EQ(request(258, PEER_NAME), 0);
    EXPECT_EQ(request(-1, OTHER_NAME), 0);
    Bytes bytes;
    EXPECT_EQ(read_request(&bytes), 0);
    EXPECT_EQ(bytes, (Bytes{3, 0, 0, 0, 0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x02}));
    EXPECT_EQ(read_request(&bytes), 0);
    EXPECT_EQ(bytes, request_bytes);
    EXPECT_EQ(read_request(&bytes), 0);
    EXPECT_EQ(bytes[3], 0xFF);
}

TEST_F(ReadTest, a_read_of_11_or_13_bytes_returns_minus_1_and_consumes_nothing)
{
    EXPECT_EQ(request(258), 0);
    for (const std::size_t count : {0u, 1u, 11u, 13u, 24u, 4096u}) {
        forget_so_far();
        UserMemory buffer(4096);
        EXPECT_EQ(opened->read(buffer.address(), count), -1) << count;
        EXPECT_EQ(take_messages(), Texts{"100 Read request not valid from the process\n"});
    }
    EXPECT_EQ(twin::user_copies().to_user, 0u);
    Bytes bytes;
    EXPECT_EQ(read_request(&bytes), 0);
    EXPECT_EQ(bytes, request_bytes);
}

TEST_F(ReadTest, a_read_of_the_wrong_size_does_not_wait)
{
    UserMemory buffer(11);
    EXPECT_EQ(opened->read(buffer.address(), 11), -1);
    EXPECT_EQ(twin::waiters(), 0u);
}

TEST_F(ReadTest, an_empty_queue_gives_minus_11_to_a_file_that_does_not_block)
{
    twin::CharFile file("ipfc", NONBLOCK);
    UserMemory buffer(12);
    EXPECT_EQ(file.read(buffer.address(), 12), -11);
    EXPECT_TRUE(happened().empty());
    EXPECT_EQ(twin::waiters(), 0u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(file.read(buffer.address(), 12), 0);
    EXPECT_EQ(buffer.bytes(), request_bytes);
    EXPECT_EQ(file.read(buffer.address(), 12), -11);
}

TEST_F(ReadTest, a_pending_signal_ends_a_read_of_an_empty_queue_with_minus_512)
{
    twin::set_signal_pending(true);
    EXPECT_EQ(read_request(), -512);
    EXPECT_EQ(twin::waiters(), 0u);
    twin::set_signal_pending(false);
}

TEST_F(ReadTest, a_file_that_does_not_block_is_told_so_before_a_signal_counts)
{
    twin::CharFile file("ipfc", NONBLOCK);
    UserMemory buffer(12);
    twin::set_signal_pending(true);
    EXPECT_EQ(file.read(buffer.address(), 12), -11);
    twin::set_signal_pending(false);
}

TEST_F(ReadTest, a_waiting_request_is_read_in_spite_of_a_signal)
{
    EXPECT_EQ(request(258), 0);
    twin::set_signal_pending(true);
    EXPECT_EQ(read_request(), 0);
    twin::set_signal_pending(false);
}

TEST_F(ReadTest, a_buffer_outside_user_space_gives_minus_14_and_consumes_nothing)
{
    EXPECT_EQ(request(258), 0);
    forget_so_far();
    for (void* const address :
         {reinterpret_cast<void*>(0x00007fffffffeff5), reinterpret_cast<void*>(~0ul - 4)}) {
        EXPECT_EQ(driver_read(address), -14);
        EXPECT_EQ(take_messages(), Texts{"100 User memory area not valid\n"});
        EXPECT_EQ(twin::log().raw(), Texts{"<7><{ipfc}>User memory area not valid\n"});
        twin::log().clear();
        EXPECT_EQ(twin::waiters(), 0u);
    }
    EXPECT_EQ(opened->poll_once(), 0x41u);
    EXPECT_EQ(read_request(), 0);
}

TEST_F(ReadTest, the_buffer_is_looked_at_only_when_a_request_waits)
{
    EXPECT_EQ(driver_read(reinterpret_cast<void*>(~0ul - 4), NONBLOCK), -11);
    EXPECT_TRUE(happened().empty());
}

TEST_F(ReadTest, a_read_returns_the_bytes_not_copied_and_such_a_request_is_lost)
{
    const struct {
        std::size_t mapped;
        long left;
    } rows[] = {{0, 12}, {1, 11}, {4, 8}, {11, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(request(258), 0);
        forget_so_far();
        UserMemory buffer(row.mapped);
        EXPECT_EQ(opened->read(buffer.address(), 12), row.left);
        EXPECT_EQ(buffer.bytes(), Bytes(request_bytes.begin(),
                                        request_bytes.begin() + static_cast<long>(row.mapped)));
        EXPECT_EQ(opened->poll_once(), 0u);
        EXPECT_TRUE(happened().empty());
    }
    EXPECT_EQ(skb_list_lenght, 4);
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 4u);
}

TEST_F(ReadTest, read_only_memory_takes_nothing_and_the_request_is_lost)
{
    EXPECT_EQ(request(258), 0);
    UserMemory buffer(12, UserMemory::Access::read_only);
    EXPECT_EQ(opened->read(buffer.address(), 12), 12);
    EXPECT_EQ(opened->poll_once(), 0u);
}

TEST_F(ReadTest, a_reader_whose_request_another_one_took_waits_again)
{
    twin::CharFile file("ipfc", NONBLOCK);
    UserMemory buffer(12);
    EXPECT_EQ(request(258), 0);
    on_access_check = [this] { EXPECT_EQ(read_request(), 0); };
    EXPECT_EQ(file.read(buffer.address(), 12), -11);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(request(259), 0);
    on_access_check = [this] { EXPECT_EQ(read_request(), 0); };
    EXPECT_EQ(file.read(buffer.address(), 12), 0);
    EXPECT_EQ(buffer.bytes()[0], 0x03); // the next one
    EXPECT_EQ(twin::waiters(), 0u);
}

TEST_F(ReadTest, poll_gives_0x41_exactly_while_a_request_is_unread_even_after_its_answer)
{
    EXPECT_EQ(opened->poll_once(), 0u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(opened->poll_once(), 0x41u);
    EXPECT_EQ(user_pn_not_found(258, PEER_NAME), 0);
    EXPECT_EQ(user_pn_not_found(258, PEER_NAME), 0);
    EXPECT_EQ(skb_list_lenght, 0);
    EXPECT_EQ(opened->poll_once(), 0x41u);
    EXPECT_EQ(read_request(), 0);
    EXPECT_EQ(opened->poll_once(), 0x41u);
    EXPECT_EQ(read_request(), 0);
    EXPECT_EQ(opened->poll_once(), 0u);
}

TEST_F(ReadTest, a_poller_enters_the_readers_queue_and_is_woken_by_a_request)
{
    {
        twin::PollEntry entry;
        EXPECT_EQ(opened->poll(entry), 0u);
        EXPECT_EQ(twin::waiters(), 1u);
        EXPECT_FALSE(entry.woken());
        EXPECT_EQ(request(258), 0);
        EXPECT_TRUE(entry.woken());
        EXPECT_EQ(opened->poll_once(), 0x41u);
    }
    EXPECT_EQ(twin::waiters(), 0u);
}

TEST_F(ReadTest, poll_registers_and_looks_under_one_hold_of_the_lock)
{
    twin::journal().clear();
    poll_table table;
    EXPECT_EQ(opened->poll_once(&table), 0u);
    EXPECT_EQ(table.queues.size(), 1u);
    const Texts locks = happened_with_locks();
    ASSERT_EQ(locks.size(), 3u);
    EXPECT_TRUE(locks[0].starts_with("spin_lock_irqsave "));
    EXPECT_EQ(locks[1], "poll_wait");
    EXPECT_TRUE(locks[2].starts_with("spin_unlock_irqrestore "));
}

TEST_F(ReadTest, poll_and_read_wait_in_the_same_queue)
{
    poll_table table;
    opened->poll_once(&table);
    ASSERT_EQ(table.queues.size(), 1u);
    twin::Process reader([this] { return read_request(); });
    EXPECT_TRUE(reader.wait_until_asleep());
    EXPECT_EQ(twin::waiters(table.queues[0]), 1u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(reader.result(), 0);
}

TEST_F(ReadTest, write_accepts_nothing_and_returns_minus_1)
{
    UserMemory buffer(12);
    for (const std::size_t count : {0u, 1u, 12u})
        EXPECT_EQ(opened->write(buffer.address(), count), -1);
    EXPECT_TRUE(happened().empty());
    EXPECT_EQ(opened->poll_once(), 0u);
}

TEST_F(ReadTest, open_and_close_return_0_and_any_number_of_files_share_the_queue)
{
    EXPECT_EQ(ipfc_chr_open(opened->node(), opened->filp()), 0);
    EXPECT_EQ(ipfc_chr_close(opened->node(), opened->filp()), 0);
    twin::CharFile second("ipfc");
    twin::CharFile third("ipfc");
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(third.error(), 0);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(second.poll_once(), 0x41u);
    UserMemory buffer(12);
    EXPECT_EQ(third.read(buffer.address(), 12), 0);
    EXPECT_EQ(second.poll_once(), 0u);
    EXPECT_TRUE(happened().back().starts_with("101 VSAN 258 mapping requested"));
}

TEST_F(ReadTest, closing_a_file_leaves_requests_for_the_next_one)
{
    EXPECT_EQ(request(258), 0);
    opened.emplace("ipfc");
    EXPECT_EQ(opened->poll_once(), 0x41u);
    EXPECT_EQ(read_request(), 0);
}

} // namespace
