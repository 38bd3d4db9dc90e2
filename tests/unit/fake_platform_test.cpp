// SPDX-License-Identifier: GPL-2.0-only
// The platform that module tests run on.
#include "support/fake_platform.h"
#include "support/twin_test.h"

#include "kapi/proc_fs.h"
#include "kapi/spinlock.h"

#include <cstring>

namespace {

using namespace twin;

struct Received {
    int nbytes;
    int result;
    fc2_iuhdr_t header;
    Bytes bytes;
    bool in_softirq;
    unsigned paged;
};

std::vector<Received> received;

int data_ready(socket* sock, int nbytes)
{
    Received entry{nbytes, 0, {}, {}, context().softirq_depth > 0, 0};
    sk_buff* skb = nullptr;
    entry.result = kfc2_recvskb(sock, &entry.header, &skb);
    if (skb != nullptr) {
        entry.bytes = skb_bytes(skb);
        entry.paged = skb->data_len;
        kfree_skb(skb);
    }
    received.push_back(entry);
    return 0;
}

class FakePlatformTest : public TwinTest {
protected:
    FakePlatformTest()
    {
        received.clear();
        platform().reset();
        EXPECT_EQ(kfc2_sock_create(0, &sock, data_ready), 0);
    }
    void tidy() override
    {
        if (platform().sock != nullptr)
            kfc2_sock_close(sock);
        platform().close();
    }

    int send(const Bytes& bytes)
    {
        fc2_iuhdr_t header{};
        header.vsan = 10;
        return kfc2_sendskb(sock, &header, make_skb(bytes, {.headroom = 64, .tailroom = 8}));
    }

    socket* sock = nullptr;
};

TEST_F(FakePlatformTest, a_send_is_kept_with_its_bytes_and_its_room)
{
    EXPECT_EQ(send({1, 2, 3}), 0x1234);
    ASSERT_EQ(platform().sends.size(), 1u);
    EXPECT_EQ(platform().sends[0].bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(platform().sends[0].header.vsan, 10);
    EXPECT_EQ(platform().sends[0].headroom, 64u);
    EXPECT_EQ(platform().sends[0].tailroom, 8);
    EXPECT_EQ(heap().live(Kind::skb), 0u);
}

TEST_F(FakePlatformTest, results_follow_the_script_and_then_the_default)
{
    platform().send_results = {-111, 7};
    EXPECT_EQ(send({1}), -111);
    EXPECT_EQ(send({1}), 7);
    EXPECT_EQ(send({1}), 0x1234);
}

TEST_F(FakePlatformTest, a_hook_runs_inside_the_send)
{
    int seen = 0;
    platform().on_send = [&](const SentIu& sent) { seen = static_cast<int>(sent.bytes.size()); };
    send({1, 2});
    EXPECT_EQ(seen, 2);
}

TEST_F(FakePlatformTest, a_send_under_a_lock_is_a_fault_unless_interrupts_are_off)
{
    spinlock_t lock{};
    spin_lock(&lock);
    send({1});
    spin_unlock(&lock);
    EXPECT_EQ(only_fault(), "kfc2_sendskb under a lock with interrupts on");
    unsigned long flags = 0;
    spin_lock_irqsave(&lock, flags);
    send({1});
    spin_unlock_irqrestore(&lock, flags);
    EXPECT_TRUE(platform().sends[1].irqs_off);
    EXPECT_EQ(platform().sends[1].locks, 1);
}

TEST_F(FakePlatformTest, a_delivered_unit_arrives_in_softirq_context)
{
    IncomingIu iu{.bytes = {1, 2, 3, 4}};
    iu.header.opcode = 1;
    EXPECT_TRUE(platform().deliver(iu));
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].nbytes, 4);
    EXPECT_EQ(received[0].result, 4);
    EXPECT_EQ(received[0].header.opcode, 1);
    EXPECT_EQ(received[0].header.length, 4);
    EXPECT_EQ(received[0].bytes, (Bytes{1, 2, 3, 4}));
    EXPECT_TRUE(received[0].in_softirq);
}

TEST_F(FakePlatformTest, a_delivered_unit_can_be_paged_and_can_lie)
{
    IncomingIu iu{.bytes = Bytes(100)};
    iu.layout.linear = 24;
    iu.nbytes = 99;
    iu.recv_result = -5;
    platform().deliver(iu);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].paged, 76u);
    EXPECT_EQ(received[0].nbytes, 99);
    EXPECT_EQ(received[0].result, -5);
}

TEST_F(FakePlatformTest, a_unit_waits_while_softirqs_are_off)
{
    bh_disable();
    platform().deliver({.bytes = {1}});
    EXPECT_TRUE(received.empty());
    bh_enable();
    EXPECT_EQ(received.size(), 1u);
}

TEST_F(FakePlatformTest, socket_options_are_kept_and_scripted)
{
    platform().option_results = {-17};
    fc2_opt_nport_t value{};
    value.vsan = 20;
    EXPECT_EQ(kfc2_setsockopt(sock, SOL_FC2, FC2_OPT_ADD_NPORT, &value, sizeof(value)), -17);
    EXPECT_EQ(kfc2_setsockopt(sock, SOL_FC2, FC2_OPT_RM_NPORT, &value, sizeof(value)), 0);
    ASSERT_EQ(platform().options.size(), 2u);
    EXPECT_EQ(platform().options[0].level, 267);
    EXPECT_EQ(platform().options[1].option, 2);
    EXPECT_EQ(platform().options[1].value.vsan, 20);
}

TEST_F(FakePlatformTest, a_closed_socket_cannot_be_used)
{
    kfc2_sock_close(sock);
    EXPECT_FALSE(platform().deliver({.bytes = {1}}));
    send({1});
    EXPECT_EQ(only_fault(), "kfc2_sendskb on a socket that is not open");
}

TEST_F(FakePlatformTest, debug_texts_go_to_the_history_that_is_on)
{
    const char* const descriptions[] = {"errors", "events"};
    const dbgtap_handle_t handle = dbgtap_dbg_init("mod", "a module", 2, descriptions);
    platform().elements[101].history = false;
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, 100), 1);
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(handle, 101), 0);
    EXPECT_EQ(dbgtap_is_hist_enabled_for_dbgelem(nullptr, 100), 0);
    EXPECT_EQ(dbgtap_chk_nofilter(handle, 100), 0);
    dbgtap_log_hist_for_dbgelem(handle, 100, "VSAN %d", 7);
    EXPECT_TRUE(platform().has_text(100, "VSAN 7"));
    EXPECT_EQ(platform().take_texts(100), std::vector<std::string>{"VSAN 7"});
    EXPECT_STREQ(dbgtap_getmodname(handle), "mod");
    EXPECT_EQ(journal().texts({Source::message}), std::vector<std::string>{"100 VSAN 7"});
    dbgtap_dbg_close(handle);
    EXPECT_EQ(platform().registrations, 0);
}

TEST_F(FakePlatformTest, secondary_addresses_answer_as_scripted)
{
    mip_mapping_t mapping{};
    int flag = 0;
    MipAnswer answer{.result = 0, .flag = 1, .mapping = {}};
    answer.mapping.add_data = 0x0c0b0a00;
    platform().mip_answers = {answer, {.result = 1, .flag = 0, .mapping = {}}};
    EXPECT_EQ(mip_lookup(0x0800, "packet", &mapping, &flag), 0);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(mapping.add_data, 0x0c0b0a00u);
    EXPECT_EQ(mip_lookup(0x0800, "packet", &mapping, &flag), 1);
    flag = 0;
    EXPECT_EQ(mip_lookup(0x86DD, "packet", &mapping, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(platform().mip_lookups.size(), 3u);
}

TEST_F(FakePlatformTest, an_interface_index_has_the_vsan_that_the_test_gave_it)
{
    vsan_id_t vsan = -1;
    platform().vsan_of_interface[5] = 30;
    EXPECT_EQ(if_index_vsan_get_vsan(5, &vsan), 0);
    EXPECT_EQ(vsan, 30);
    EXPECT_EQ(if_index_vsan_get_vsan(6, &vsan), -22);
}

TEST_F(FakePlatformTest, the_switch_directory_is_there)
{
    EXPECT_EQ(find_proc("brim_sw"), proc_brim_sw);
}

} // namespace
