// SPDX-License-Identifier: GPL-2.0-only
// Resolution with several tasks at once: sleeping readers, requests from many senders, answers
// meanwhile. And the same path without memory.
#include "support/control.h"

#include <atomic>
#include <cstring>
#include <thread>

namespace {

using twin::Bytes;
using twin::Process;

class ResolutionTasksTest : public ResolutionTest {
protected:
    // A blocking read of one request; what is read goes to *bytes when the task has ended.
    static std::function<long()> reader_of(twin::CharFile& file, Bytes* bytes = nullptr)
    {
        return [&file, bytes] {
            twin::UserMemory buffer(12);
            const long result = file.read(buffer.address(), 12);
            if (bytes != nullptr)
                *bytes = buffer.bytes();
            return result;
        };
    }
};

TEST_F(ResolutionTasksTest, a_read_of_an_empty_queue_blocks_until_a_request_comes)
{
    Bytes bytes;
    Process reader(reader_of(*opened, &bytes));
    ASSERT_TRUE(reader.wait_until_asleep());
    EXPECT_EQ(twin::waiters(), 1u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(reader.result(), 0);
    EXPECT_EQ(bytes, (Bytes{0x02, 0x01, 0, 0, 0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01}));
    EXPECT_EQ(twin::waiters(), 0u);
    EXPECT_EQ(twin::wake_ups().woken, 1u);
}

TEST_F(ResolutionTasksTest, a_signal_ends_a_sleeping_read_with_minus_512)
{
    Process reader(reader_of(*opened));
    ASSERT_TRUE(reader.wait_until_asleep());
    reader.send_signal();
    EXPECT_EQ(reader.result(), -512);
    EXPECT_EQ(twin::waiters(), 0u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(read_request(), 0);
}

TEST_F(ResolutionTasksTest, a_sleeping_reader_keeps_no_command_out)
{
    Process reader(reader_of(*opened));
    ASSERT_TRUE(reader.wait_until_asleep());
    twin::CharFile other("ipfc");
    EXPECT_EQ(other.ioctl(0x00005009, 0), 0);
    EXPECT_EQ(other.poll_once(), 0u);
    EXPECT_EQ(request(258), 0);
    EXPECT_EQ(reader.result(), 0);
}

TEST_F(ResolutionTasksTest, of_two_readers_one_gets_the_request_and_the_other_waits_again)
{
    twin::CharFile second_file("ipfc");
    Process first(reader_of(*opened));
    Process second(reader_of(second_file));
    ASSERT_TRUE(first.wait_until_asleep());
    ASSERT_TRUE(second.wait_until_asleep());
    EXPECT_EQ(twin::waiters(), 2u);
    EXPECT_EQ(request(258), 0);
    while (!first.finished() && !second.finished())
        std::this_thread::yield();
    Process& waiting = first.finished() ? second : first;
    ASSERT_TRUE(waiting.wait_until_asleep());
    EXPECT_FALSE(waiting.finished());
    EXPECT_EQ(twin::waiters(), 1u);
    EXPECT_EQ(request(259), 0);
    EXPECT_EQ(first.result(), 0);
    EXPECT_EQ(second.result(), 0);
    EXPECT_EQ(opened->poll_once(), 0u);
}

TEST_F(ResolutionTasksTest, the_eleventh_request_leaves_a_sleeping_reader_asleep)
{
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(request(258), 0);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(read_request(), 0);
    Process reader(reader_of(*opened));
    ASSERT_TRUE(reader.wait_until_asleep());
    const unsigned woken = twin::wake_ups().woken;
    EXPECT_EQ(request(258), -11);
    EXPECT_EQ(twin::wake_ups().woken, woken);
    EXPECT_FALSE(reader.finished());
    reader.send_signal();
    EXPECT_EQ(reader.result(), -512);
}

TEST_F(ResolutionTasksTest, senders_at_once_park_at_most_one_packet_too_many_each)
{
    constexpr int senders = 4;
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> accepted{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < senders; ++i) {
            threads.emplace_back([&accepted] {
                for (int n = 0; n < 5; ++n)
                    accepted += request(10) == 0 ? 1 : 0;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(skb_list_lenght, accepted.load());
        EXPECT_GE(accepted.load(), 10);
        EXPECT_LT(accepted.load(), 10 + senders);
        clear_mapping_list();
        clear_skb_list();
        EXPECT_EQ(skb_list_lenght, 0);
        EXPECT_EQ(live_packets(), 0u);
        EXPECT_EQ(opened->poll_once(), 0u);
    }
}

TEST_F(ResolutionTasksTest, every_request_is_read_once_and_every_packet_answered_once)
{
    constexpr int senders = 3;
    constexpr int each = 100;
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < senders; ++i) {
        threads.emplace_back([i] {
            for (int n = 0; n < each; ++n)
                while (request(i + 1) != 0)
                    std::this_thread::yield();
        });
    }
    // Two resolvers, each with a file of its own, answer what they read.
    std::vector<std::thread> resolvers;
    std::atomic<int> to_read{senders * each};
    for (int i = 0; i < 2; ++i) {
        resolvers.emplace_back([&answered, &to_read] {
            twin::CharFile file("ipfc");
            twin::UserMemory buffer(12);
            while (to_read.fetch_sub(1) > 0) {
                EXPECT_EQ(file.read(buffer.address(), 12), 0);
                vsan_id_t vsan = 0;
                memcpy(&vsan, buffer.address(), sizeof vsan);
                // The packet follows its request, so that it may not be there yet.
                while (user_pn_not_found(vsan, PEER_NAME) != 0)
                    std::this_thread::yield();
                ++answered;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (std::thread& thread : resolvers)
        thread.join();
    EXPECT_EQ(answered.load(), senders * each);
    EXPECT_EQ(skb_list_lenght, 0);
    EXPECT_EQ(live_packets(), 0u);
    EXPECT_EQ(opened->poll_once(), 0u);
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 0u);
}

TEST_F(ResolutionTasksTest, pollers_and_senders_do_not_disturb_each_other)
{
    std::atomic<bool> stop{false};
    std::thread poller([this, &stop] {
        while (!stop) {
            twin::PollEntry entry;
            const unsigned mask = opened->poll(entry);
            EXPECT_TRUE(mask == 0 || mask == 0x41) << mask;
        }
    });
    twin::CharFile file("ipfc");
    for (int n = 0; n < 200; ++n) {
        EXPECT_EQ(request(10), 0);
        EXPECT_EQ(reader_of(file)(), 0);
        EXPECT_EQ(user_pn_not_found(10, PEER_NAME), 0);
    }
    stop = true;
    poller.join();
}

// The module is loaded by each run of its own.
class ResolutionMemoryTest : public ResolutionTest {
protected:
    void SetUp() override {}

    // An interface that may have failed, up; null then.
    static net_device* try_interface()
    {
        ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME);
        net_device* const dev = vsan_interfaces[10];
        if (dev == nullptr)
            return nullptr;
        ipfc_update_vsan_interface(10, OWN_FCID, 1, IPFC_UPD_INTF_SET_FCID);
        twin::dev_open(dev);
        return dev;
    }
};

TEST_F(ResolutionMemoryTest, parking_and_every_answer_survive_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        net_device* const dev = try_interface();
        if (dev == nullptr)
            return;
        for (std::uint8_t mark = 0; mark < 4; ++mark)
            twin::transmit(output_skb(dev, output_packet(mark)), dev);
        user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID);
        user_pn_not_found(10, PEER_NAME);
        user_update_pn_to_fcid_mapping(10, PEER_NAME, NEW_FCID);
        user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID);
        user_delete_pn_to_fcid_mapping(10, PEER_NAME);
    });
    EXPECT_GT(total.allocations, 20u);
}

TEST_F(ResolutionMemoryTest, packets_that_stay_parked_at_unload_survive_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        net_device* const dev = try_interface();
        if (dev == nullptr)
            return;
        // Copied for room, an ARP packet kept twice for a while, and one as it is.
        for (const std::uint8_t type : {0x00, 0x06}) {
            Bytes packet = output_packet(1, PEER_NAME, type);
            packet.resize(132);
            sk_buff* const cramped = twin::make_skb(packet);
            cramped->dev = dev;
            twin::transmit(cramped, dev);
            twin::transmit(output_skb(dev, packet), dev);
        }
        ipfc_delete_vsan_interface(10);
    });
    EXPECT_GT(total.allocations, 20u);
}

TEST_F(ResolutionMemoryTest, commands_survive_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        twin::CharFile file("ipfc");
        if (file.error() != 0)
            return;
        vsan_interface_ioctl_t interface {
        };
        interface.vsan_id = 10;
        interface.fcid = OWN_FCID;
        interface.action = IPFC_UPD_INTF_SET_FCID;
        file.command(0x4034500E, std::as_const(interface));
        file.command(0x40345010, std::as_const(interface));
        file.command(0x40145011, std::as_const(interface));
        const pn_to_fcid_ioctl_t mapping{
            .vsan_id = 10, .ww_portname = PEER_NAME, .fcid = PEER_FCID};
        file.command(0x40105003, mapping);
        file.command(0x40105005, mapping);
        file.command(0x40105004, mapping);
        const ivrip_ioctl_t host{.ip_addr = 1, .pwwn = PEER_NAME, .fcid = PEER_FCID, .vsan = 5};
        file.command(0x4014500C, host);
        ipfc_get_intf_ioctl_t info{};
        info.vsan_id = 10;
        file.command(0xC0345007, info);
        file.command(0x4034500F, std::as_const(interface));
        file.ioctl(0x00005009, 0);
    });
    EXPECT_GT(total.allocations, 10u);
}

} // namespace
