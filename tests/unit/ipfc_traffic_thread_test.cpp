// SPDX-License-Identifier: GPL-2.0-only
// Several processors in the data path at once, with the administrator and the resolver at work
// meanwhile; of use under ThreadSanitizer above all.
#include "support/receive_test.h"

#include <atomic>
#include <thread>

namespace {

using namespace twin;

class TrafficThreadsTest : public ReceiveTest {
protected:
    static constexpr int rounds = 150;

    void SetUp() override
    {
        ReceiveTest::SetUp();
        // Messages would put the threads in order.
        for (const int element : {IPFC_DBG_ERRORS, IPFC_DBG_EVENTS})
            platform().elements[element] = {.history = false, .log = false, .texts = {}};
    }
    void begin(std::function<void()> action)
    {
        threads.emplace_back([action = std::move(action)] {
            for (int n = 0; n < rounds; ++n)
                action();
        });
    }
    void join_all()
    {
        for (std::thread& thread : threads)
            thread.join();
    }
    void send_to(wwn_t port, fcid_t address) const
    {
        const ipfc_ll_addr_t peer = {.ww_portname = port, .fcid = address};
        ip_output(dev, ETH_P_IP, &peer, bytes(ipv4_packet));
    }
    void delete_mapping() const
    {
        const TableLock lock(priv);
        kernel_delete_pn_to_fcid_mapping(priv->kwwpn_hash_table, peer_port, own_vsan);
    }
    static void receive_els(std::uint16_t opcode, std::size_t length, std::size_t name_at)
    {
        Bytes payload(length);
        std::copy_n(peer_port.str, 8, payload.begin() + static_cast<std::ptrdiff_t>(name_at));
        IncomingIu iu = unit(std::move(payload));
        iu.header.opcode = opcode;
        receive(std::move(iu));
    }

    std::vector<std::thread> threads;
};

TEST_F(TrafficThreadsTest, senders_and_a_deleter_leave_the_table_whole)
{
    for (int i = 0; i < 2; ++i)
        begin([this] { send_to(peer_port, peer_fcid); });
    begin([this] { delete_mapping(); });
    join_all();
    EXPECT_LE(table_of(priv).size(), 1u);
}

TEST_F(TrafficThreadsTest, senders_of_two_interfaces_share_the_counters_alone)
{
    net_device* const second = create_interface(20, own_node, fcid(0x0a0b0d));
    ASSERT_NE(second, nullptr);
    for (net_device* const device : {dev, second})
        begin([device] {
            const ipfc_ll_addr_t peer = {.ww_portname = peer_port, .fcid = peer_fcid};
            ip_output(device, ETH_P_IP, &peer, bytes(ipv4_packet));
            const TableLock lock(ipfc_priv(device));
            kernel_delete_pn_to_fcid_mapping(ipfc_priv(device)->kwwpn_hash_table, peer_port,
                                             ipfc_priv(device)->vsan_id);
        });
    join_all();
    EXPECT_EQ(platform().sends.size(), 2u * rounds);
    EXPECT_TRUE(table_of(priv).empty());
    EXPECT_TRUE(table_of(ipfc_priv(second)).empty());
}

TEST_F(TrafficThreadsTest, receiving_and_a_peer_that_logs_in_and_out_disturb_no_sender)
{
    begin([this] { send_to(peer_port, peer_fcid); });
    begin([] {
        receive_els(FC2_RECEIVED_PLOGI, sizeof(els_plogi_t), offsetof(els_plogi_t, nport_wwn));
        receive(to_own, ip, ipv4_packet);
        receive_els(FC2_RECEIVED_LOGO, sizeof(els_logo_t), offsetof(els_logo_t, nport_wwn));
    });
    join_all();
    EXPECT_EQ(priv->stats.rx_packets, static_cast<unsigned long>(rounds));
    EXPECT_LE(table_of(priv).size(), 1u);
}

TEST_F(TrafficThreadsTest, every_answer_of_the_resolver_may_come_while_packets_are_sent)
{
    begin([this] { send_to(peer_port, peer_fcid); });
    begin([] { user_add_pn_to_fcid_mapping(own_vsan, peer_port, peer_fcid); });
    begin([] { user_update_pn_to_fcid_mapping(own_vsan, peer_port, fcid(0x777777)); });
    begin([] { user_delete_pn_to_fcid_mapping(own_vsan, peer_port); });
    begin([] { user_pn_not_found(own_vsan, peer_port); });
    join_all();
    EXPECT_LE(table_of(priv).size(), 1u);
}

TEST_F(TrafficThreadsTest, reports_are_read_and_counters_cleared_while_packets_are_sent)
{
    begin([this] { send_to(peer_port, peer_fcid); });
    begin([] { receive(to_own, ip, ipv4_packet); });
    begin([] {
        CharFile file("ipfc");
        ipfc_intf_stats_ioctl_t record{};
        record.vsan_id = own_vsan;
        EXPECT_EQ(file.command(IPFC_IOC_GET_STATS, record), 0);
        vsan_interface_ioctl_t interface {
        };
        interface.vsan_id = own_vsan;
        EXPECT_EQ(file.command(IPFC_IOC_CLEAR_STATS, interface), 0);
    });
    begin([] {
        for (const std::string& name : proc_children("brim_sw/ipfc"))
            EXPECT_FALSE(proc_read("brim_sw/ipfc/" + name).empty()) << name;
    });
    join_all();
    EXPECT_EQ(table_of(priv).size(), 1u);
}

} // namespace
