// SPDX-License-Identifier: GPL-2.0-only
// Sockets and N_Ports: the calls, what they refuse, and what the filter lets in.
#include "support/fc2_rig.h"

namespace {

using twin::Bytes;

class Fc2SocketTest : public Fc2Test {
protected:
    // A single frame of the station's for the destination.
    void arrive(std::uint32_t d_id, const Bytes& data, std::uint8_t type = 5,
                std::uint16_t vsan = 10)
    {
        wire::Frame frame;
        frame.vsan = vsan;
        frame.s_id = station_fcid;
        frame.d_id = d_id;
        frame.type = type;
        frame.data = data;
        fabric.send(wire::build(frame));
        fabric.deliver_all();
    }

    const Bytes ip = wire::ip_over_fc(0x0800, wire::counting(20));
};

TEST_F(Fc2SocketTest, the_room_that_the_stack_needs_is_fixed)
{
    EXPECT_EQ(fc2_get_hdr_reserve(), 64);
    EXPECT_EQ(fc2_get_tlrlen(), 8);
}

TEST_F(Fc2SocketTest, default_login_parameters_are_class_3_with_2112_bytes)
{
    els_plogi_t plogi;
    memset(&plogi, 0xEE, sizeof plogi);
    fc2_default_plogi(&plogi);
    EXPECT_EQ(plogi.common.buf2buf_size, 2112);
    EXPECT_EQ(plogi.class3.recv_size, 2112);
    EXPECT_EQ(plogi.class3.serv_opts & 0x8000, 0x8000);
    EXPECT_EQ(plogi.class1.serv_opts | plogi.class2.serv_opts | plogi.class4.serv_opts, 0);
    EXPECT_EQ(plogi.common.e_d_tov, 2000u);
    EXPECT_EQ(std::uint64_t{plogi.nport_wwn.num}, 0u); // packed
}

TEST_F(Fc2SocketTest, a_socket_without_a_stack_is_refused)
{
    socket* none = nullptr;
    EXPECT_EQ(kfc2_sock_create(0, &none, [](socket*, int) { return 0; }), -19);
    EXPECT_EQ(none, nullptr);
}

TEST_F(Fc2SocketTest, bind_refuses_records_that_make_no_sense)
{
    struct {
        const char* name;
        void (*spoil)(sockaddr_fc2& filter);
    } const rows[] = {
        {"another family", [](sockaddr_fc2& f) { f.sa_family = 2; }},
        {"a VSAN beyond the last", [](sockaddr_fc2& f) { f.vsan = 4096; }},
        {"one source interface", [](sockaddr_fc2& f) { f.srcifindex = 7; }},
        {"values of no size", [](sockaddr_fc2& f) { f.m_size = 0; }},
        {"more values than there is room for", [](sockaddr_fc2& f) { f.nmatch = 51; }},
        {"values larger than there is room for", [](sockaddr_fc2& f) { f.m_size = 34; }},
    };
    for (const auto& row : rows) {
        sockaddr_fc2 filter = ip_filter();
        row.spoil(filter);
        EXPECT_EQ(kfc2_sock_bind(a->sock, &filter, 128), -22) << row.name;
    }
    sockaddr_fc2 filter = ip_filter();
    EXPECT_EQ(kfc2_sock_bind(a->sock, &filter, 127), -22);
    EXPECT_EQ(kfc2_sock_bind(a->sock, &filter, 128), 0);
}

TEST_F(Fc2SocketTest, what_the_filter_asks_for_arrives_and_nothing_else)
{
    register_both();
    struct {
        const char* name;
        std::uint32_t d_id;
        std::uint8_t type;
        bool arrives;
        Bytes data;
    } const rows[] = {
        {"IPv4", a_fcid, 5, true, wire::ip_over_fc(0x0800, {1})},
        {"ARP", a_fcid, 5, true, wire::ip_over_fc(0x0806, {1})},
        {"IPv6", a_fcid, 5, true, wire::ip_over_fc(0x86DD, {1})},
        {"IPv4 to all", broadcast_fcid, 5, true, wire::ip_over_fc(0x0800, {1})},
        {"ARP to all", broadcast_fcid, 5, true, wire::ip_over_fc(0x0806, {1})},
        {"another ethertype", a_fcid, 5, false, wire::ip_over_fc(0x0801, {1})},
        {"another type", a_fcid, 8, false, wire::ip_over_fc(0x0800, {1})},
        {"no ethertype, just short", a_fcid, 5, false, wire::counting(23)},
        {"nothing", a_fcid, 5, false, {}},
        {"headers alone", a_fcid, 5, true, wire::ip_over_fc(0x0800, {})},
        {"a port that is not ours", a_fcid + 1, 5, false, wire::ip_over_fc(0x0800, {1})},
    };
    for (const auto& row : rows) {
        arrive(row.d_id, row.data, row.type);
        EXPECT_EQ(a->take().size(), row.arrives ? 1u : 0u) << row.name;
    }
}

TEST_F(Fc2SocketTest, a_filter_for_one_vsan_keeps_out_the_others)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    ASSERT_EQ(a->add_nport(20, a_fcid), 0);
    sockaddr_fc2 filter = ip_filter();
    filter.vsan = 20;
    ASSERT_EQ(kfc2_sock_bind(a->sock, &filter, 128), 0);
    arrive(a_fcid, ip, 5, 10);
    EXPECT_TRUE(a->take().empty());
    arrive(a_fcid, ip, 5, 20);
    EXPECT_EQ(a->take().size(), 1u);
}

TEST_F(Fc2SocketTest, a_filter_without_match_values_takes_any_payload)
{
    register_both();
    sockaddr_fc2 filter = ip_filter();
    filter.nmatch = 0;
    ASSERT_EQ(kfc2_sock_bind(a->sock, &filter, 128), 0);
    arrive(a_fcid, {1, 2, 3});
    EXPECT_EQ(a->take().size(), 1u);
}

TEST_F(Fc2SocketTest, broadcasts_reach_only_a_socket_that_is_bound_to_them)
{
    register_both();
    sockaddr_fc2 filter = ip_filter();
    filter.d_id.num = 0x01020300;
    ASSERT_EQ(kfc2_sock_bind(a->sock, &filter, 128), 0);
    arrive(broadcast_fcid, ip);
    EXPECT_TRUE(a->take().empty());
    EXPECT_EQ(b->take().size(), 1u);
}

TEST_F(Fc2SocketTest, each_port_of_several_receives)
{
    for (std::uint32_t fcid = 0x0A0001; fcid <= 0x0A0003; ++fcid)
        ASSERT_EQ(a->add_nport(10, fcid), 0);
    ASSERT_EQ(a->add_nport(11, 0x0A0001), 0);
    for (std::uint32_t fcid = 0x0A0001; fcid <= 0x0A0003; ++fcid) {
        arrive(fcid, ip);
        const std::vector<Received> units = a->take();
        ASSERT_EQ(units.size(), 1u);
        EXPECT_EQ(units[0].header.d_id.port, fcid & 0xFF);
    }
    arrive(0x0A0001, ip, 5, 11);
    EXPECT_EQ(a->take().size(), 1u);
    arrive(0x0A0002, ip, 5, 11);
    EXPECT_TRUE(a->take().empty());
}

TEST_F(Fc2SocketTest, registration_refuses_what_is_there_and_what_is_no_port)
{
    EXPECT_EQ(a->add_nport(10, a_fcid), 0);
    EXPECT_EQ(a->add_nport(10, a_fcid), -17);
    EXPECT_EQ(a->add_nport(4095, a_fcid), 0);
    EXPECT_EQ(a->add_nport(4096, a_fcid), -22);
    EXPECT_EQ(a->add_nport(10, 0), -22);
    EXPECT_EQ(a->add_nport(10, broadcast_fcid), -22);
    fc2_opt_nport_t option = nport_option(10, 0x0A0A02);
    option.d_idmask = 0xFFFF0000;
    EXPECT_EQ(kfc2_setsockopt(a->sock, 267, FC2_OPT_ADD_NPORT, &option, 136), -22);
    option = nport_option(10, 0x0A0A02);
    option.d_id.invalid = 1;
    EXPECT_EQ(kfc2_setsockopt(a->sock, 267, FC2_OPT_ADD_NPORT, &option, 136), -22);
}

TEST_F(Fc2SocketTest, removal_refuses_what_is_not_there)
{
    EXPECT_EQ(a->remove_nport(10, a_fcid), -99);
    EXPECT_EQ(a->remove_nport(10, 0), -99);
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    EXPECT_EQ(a->remove_nport(11, a_fcid), -99);
    EXPECT_EQ(a->remove_nport(10, a_fcid), 0);
    EXPECT_EQ(a->remove_nport(10, a_fcid), -99);
    arrive(a_fcid, ip);
    EXPECT_TRUE(a->take().empty());
}

TEST_F(Fc2SocketTest, a_port_is_removed_by_the_socket_that_added_it)
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    fc2_current = a->stack;
    socket* other = nullptr;
    ASSERT_EQ(kfc2_sock_create(0, &other, [](socket*, int) { return 0; }), 0);
    fc2_current = nullptr;
    fc2_opt_nport_t option = nport_option(10, a_fcid);
    EXPECT_EQ(kfc2_setsockopt(other, 267, FC2_OPT_RM_NPORT, &option, 136), -99);
    kfc2_sock_close(other);
    EXPECT_EQ(a->remove_nport(10, a_fcid), 0);
}

TEST_F(Fc2SocketTest, options_of_another_kind_are_refused)
{
    fc2_opt_nport_t option = nport_option(10, a_fcid);
    EXPECT_EQ(kfc2_setsockopt(a->sock, 266, FC2_OPT_ADD_NPORT, &option, 136), -22);
    EXPECT_EQ(kfc2_setsockopt(a->sock, 267, FC2_OPT_NPORT, &option, 136), -22);
    EXPECT_EQ(kfc2_setsockopt(a->sock, 267, FC2_OPT_ADD_NPORT, &option, 135), -22);
    EXPECT_EQ(kfc2_setsockopt(a->sock, 267, FC2_OPT_ADD_NPORT, &option, 136), 0);
}

TEST_F(Fc2SocketTest, the_table_of_ports_is_bounded)
{
    std::uint32_t fcid = 0x010000;
    for (unsigned i = 0; i < FC2_NPORTS_MAX; ++i)
        ASSERT_EQ(a->add_nport(static_cast<std::uint16_t>(i % 4096), fcid++), 0);
    EXPECT_EQ(a->add_nport(10, fcid), -28);
    EXPECT_EQ(a->remove_nport(0, 0x010000), 0);
    EXPECT_EQ(a->add_nport(10, fcid), 0);
}

TEST_F(Fc2SocketTest, sends_that_make_no_sequence_are_refused_and_freed)
{
    register_both();
    EXPECT_EQ(a->send(10, b_fcid, a_fcid, ip), -99);
    EXPECT_EQ(a->send(20, a_fcid, b_fcid, ip), -99);
    EXPECT_EQ(a->send(20, a_fcid, broadcast_fcid, ip), -99);
    EXPECT_EQ(a->send(4096, a_fcid, b_fcid, ip), -22);
    EXPECT_EQ(a->send(10, a_fcid, 0, ip), -22);
    fc2_iuhdr_t header = data_header(10, a_fcid, b_fcid);
    header.opcode = FC2_ELS_PLOGI;
    EXPECT_EQ(kfc2_sendskb(a->sock, &header, module_skb(ip)), -22);
    header = data_header(10, a_fcid, b_fcid);
    header.r_ctl = 0x22;
    EXPECT_EQ(kfc2_sendskb(a->sock, &header, module_skb(ip)), -22);
    EXPECT_TRUE(fabric.seen.empty());
}

TEST_F(Fc2SocketTest, receiving_from_an_empty_queue_fails)
{
    fc2_iuhdr_t header;
    sk_buff* skb = nullptr;
    EXPECT_EQ(kfc2_recvskb(a->sock, &header, &skb), -11);
    EXPECT_EQ(skb, nullptr);
}

TEST_F(Fc2SocketTest, units_that_nobody_takes_wait_in_a_bounded_queue_and_go_with_the_socket)
{
    register_both();
    a->takes = false;
    for (unsigned i = 0; i < FC2_SOCKET_QUEUE_MAX + 5; ++i)
        arrive(a_fcid, ip);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), FC2_SOCKET_QUEUE_MAX);
    a->close();
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(Fc2SocketTest, a_unit_left_behind_is_announced_again_with_its_own_length)
{
    register_both();
    a->takes = false;
    arrive(a_fcid, ip);
    a->takes = true;
    arrive(a_fcid, wire::ip_over_fc(0x0800, wire::counting(30)));
    const std::vector<Received> units = a->take();
    ASSERT_EQ(units.size(), 3u);
    EXPECT_EQ(units[0].announced, 44);
    EXPECT_EQ(units[1].announced, 44);
    EXPECT_EQ(units[1].result, 44);
    EXPECT_EQ(units[2].announced, 54);
    EXPECT_EQ(units[2].result, 54);
}

TEST_F(Fc2SocketTest, closing_removes_the_ports_and_logs_their_peers_out)
{
    log_in();
    const std::size_t before = fabric.seen.size();
    a->close();
    EXPECT_EQ(frames_since(before).at(0).data.at(0), 0x05);
    fabric.deliver_all();
    EXPECT_EQ(b->take().at(0).header.opcode, 0x0403);
    fc2_iuhdr_t header = data_header(10, b_fcid, a_fcid);
    EXPECT_GE(kfc2_sendskb(b->sock, &header, module_skb(ip)), 0);
    fabric.deliver_all();
    EXPECT_EQ(fabric.seen.size(), before + 3) << "nobody is left to answer";
}

// ---- contexts ----

TEST_F(Fc2SocketTest, sending_with_interrupts_off_neither_enables_them_nor_sleeps)
{
    log_in();
    {
        twin::IrqsOffScope scope;
        EXPECT_GE(a->send(10, a_fcid, b_fcid, wire::ip_over_fc(0x0800, wire::counting(9000))), 0);
        EXPECT_GE(a->send(10, a_fcid, broadcast_fcid, ip), 0);
        EXPECT_GE(a->send(10, a_fcid, station_fcid, ip), 0);
        EXPECT_EQ(a->send_logo(10, a_fcid, station_fcid), 0);
        EXPECT_TRUE(twin::context().irqs_off);
    }
    fabric.deliver_all();
    EXPECT_EQ(b->take().size(), 2u);
}

} // namespace
