// SPDX-License-Identifier: GPL-2.0-only
#include "support/fc2_rig.h"

#include <map>

using twin::Bytes;
using wire::joined;

namespace {

// data_ready carries no context but the socket.
std::map<socket*, Switch*> switches;

fcid_t fcid_of(std::uint32_t value)
{
    fcid_t fcid;
    fcid.str[0] = 0;
    fcid.str[1] = static_cast<std::uint8_t>(value >> 16);
    fcid.str[2] = static_cast<std::uint8_t>(value >> 8);
    fcid.str[3] = static_cast<std::uint8_t>(value);
    return fcid;
}

} // namespace

sockaddr_fc2 ip_filter()
{
    sockaddr_fc2 filter = {};
    filter.sa_family = 25;
    filter.vsan = 0xFFFF;
    filter.srcifindex = 0xFFFFFFFF;
    filter.srcifmask = 0xFFFFFFFF;
    filter.d_id = fcid_of(0xFFFFFF);
    filter.d_idmask = fcid_of(0xFFFFFF);
    filter.type = 5;
    filter.m_rule = 3;
    filter.m_size = 2;
    filter.nmatch = 3;
    filter.flags = 0x14;
    filter.m_offset = 22;
    const std::uint8_t values[] = {0x08, 0x00, 0x08, 0x06, 0x86, 0xDD};
    std::copy(std::begin(values), std::end(values), filter.m_values);
    return filter;
}

fc2_opt_nport_t nport_option(std::uint16_t vsan, std::uint32_t fcid)
{
    fc2_opt_nport_t option = {};
    option.flags = 10;
    option.vsan = vsan;
    option.d_id = fcid_of(fcid);
    option.d_idmask = 0xFFFFFF00;
    fc2_default_plogi(&option.plogi);
    option.plogi.common.common_features |= 0x200;
    const Bytes name = wire::hex("2001020000000000");
    std::copy(name.begin(), name.end(), option.plogi.nport_wwn.str);
    option.plogi.nport_wwn.str[5] = static_cast<std::uint8_t>(fcid >> 16);
    option.plogi.nport_wwn.str[6] = static_cast<std::uint8_t>(fcid >> 8);
    option.plogi.nport_wwn.str[7] = static_cast<std::uint8_t>(fcid);
    option.plogi.node_wwn.str[0] = 0x10;
    return option;
}

Switch::Switch(twin::Fabric& fabric) : link(fabric), stack(fc2_stack_create(&link))
{
    if (stack == nullptr)
        return;
    brim_link_attach(&link, stack);
    fc2_current = stack;
    if (kfc2_sock_create(0, &sock, data_ready) == 0) {
        switches[sock] = this;
        sockaddr_fc2 filter = ip_filter();
        EXPECT_EQ(kfc2_sock_bind(sock, &filter, 128), 0);
    }
    fc2_current = nullptr;
}

Switch::~Switch()
{
    close();
    if (stack == nullptr)
        return;
    brim_link_detach(&link);
    fc2_stack_destroy(stack);
}

void Switch::close()
{
    if (sock == nullptr)
        return;
    kfc2_sock_close(sock);
    switches.erase(sock);
    sock = nullptr;
}

int Switch::data_ready(socket* sock, int nbytes)
{
    Switch* self = switches.at(sock);
    Received received = {};
    received.announced = nbytes;
    received.in_softirq = twin::context().softirq_depth != 0;
    EXPECT_TRUE(twin::context().held.empty()) << "data_ready is called with a lock held";
    if (self->takes) {
        sk_buff* skb = nullptr;
        received.result = kfc2_recvskb(sock, &received.header, &skb);
        if (received.result >= 0) {
            received.bytes = twin::skb_bytes(skb);
            kfree_skb(skb);
        }
    }
    self->received_.push_back(received);
    return 0;
}

int Switch::add_nport(std::uint16_t vsan, std::uint32_t fcid) const
{
    fc2_opt_nport_t option = nport_option(vsan, fcid);
    return kfc2_setsockopt(sock, 267, FC2_OPT_ADD_NPORT, &option, sizeof option);
}

int Switch::remove_nport(std::uint16_t vsan, std::uint32_t fcid) const
{
    fc2_opt_nport_t option = {};
    option.vsan = vsan;
    option.d_id = fcid_of(fcid);
    option.d_idmask = 0xFFFFFF00;
    return kfc2_setsockopt(sock, 267, FC2_OPT_RM_NPORT, &option, sizeof option);
}

fc2_iuhdr_t data_header(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id)
{
    fc2_iuhdr_t header = {};
    header.opcode = FC2_SEQUENCE;
    header.sifindex = header.difindex = 0xFFFFFFFF;
    header.ttl = 0xFF;
    header.vsan = vsan;
    header.s_id = fcid_of(s_id);
    header.d_id = fcid_of(d_id);
    header.type = 5;
    header.err_policy = 1;
    header.cs = 3;
    header.r_ctl = 4;
    header.df_ctl = 0x20;
    header.f_ctl = d_id == 0xFFFFFF ? 0x300000 : 0x200000;
    return header;
}

sk_buff* module_skb(const Bytes& bytes)
{
    return twin::make_skb(bytes, {.headroom = 68, .tailroom = 12});
}

int Switch::send(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id, const Bytes& bytes,
                 int handle) const
{
    fc2_iuhdr_t header = data_header(vsan, s_id, d_id);
    header.length = static_cast<int>(bytes.size());
    if (handle >= 0) {
        header.f_ctl = 0;
        header.handle = static_cast<std::uint32_t>(handle);
    }
    return kfc2_sendskb(sock, &header, module_skb(bytes));
}

int Switch::send_logo(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id) const
{
    return kfc2_send_logo(sock, vsan, fcid_of(s_id), fcid_of(d_id), 3, 20, 0, 0xFFFFFFFF);
}

std::vector<Received> Switch::take()
{
    return std::exchange(received_, {});
}

// ---- the fixture ----

Fc2Test::Fc2Test() : a(std::make_unique<Switch>(fabric)), b(std::make_unique<Switch>(fabric))
{
    fabric.carries_names = false;
}

void Fc2Test::tidy()
{
    a.reset();
    b.reset();
    // A device's queue has locks of its own, which are not to be taken inside the stack's.
    EXPECT_EQ(fabric.locks_held, 0u);
}

void Fc2Test::register_both()
{
    ASSERT_EQ(a->add_nport(10, a_fcid), 0);
    ASSERT_EQ(b->add_nport(10, b_fcid), 0);
}

void Fc2Test::log_in()
{
    register_both();
    ASSERT_GE(a->send(10, a_fcid, b_fcid, wire::ip_over_fc(0x0800, wire::counting(20))), 0);
    fabric.deliver_all();
    const std::vector<Received> units = b->take();
    ASSERT_EQ(units.size(), 2u);
    ASSERT_EQ(units[0].header.opcode, 0x0402);
    ASSERT_EQ(units[1].header.opcode, 0x0001);
}

void Fc2Test::pass(unsigned long ticks)
{
    while (ticks-- != 0) {
        twin::advance(1);
        fabric.deliver_all();
    }
}

std::vector<wire::Frame> Fc2Test::frames_since(std::size_t first) const
{
    std::vector<wire::Frame> frames;
    for (std::size_t i = first; i < fabric.seen.size(); ++i)
        frames.push_back(wire::parse(fabric.seen[i]));
    return frames;
}

// ---- extended link services of the station ----

wire::Frame els(std::uint32_t s_id, std::uint32_t d_id, const Bytes& payload)
{
    wire::Frame frame;
    frame.s_id = s_id;
    frame.d_id = d_id;
    frame.r_ctl = 0x22;
    frame.type = 0x01;
    frame.f_ctl = 0x290000;
    frame.df_ctl = 0;
    frame.ox_id = 0x0777;
    frame.data = payload;
    return frame;
}

wire::Frame els_reply(const wire::Frame& request, const Bytes& payload)
{
    wire::Frame frame = els(request.d_id, request.s_id, payload);
    frame.r_ctl = 0x23;
    frame.f_ctl = 0x980000;
    frame.ox_id = request.ox_id;
    frame.rx_id = 0x0042;
    return frame;
}

// Port name 20:00:00:00:5e:00:53:01, class 3 alone with 512 bytes a frame.
static const Bytes login_parameters = wire::hex("2020 0001 8800 0840 00ff 001f 000007d0"
                                                "200000005e005301 100000005e005301"
                                                "00000000000000000000000000000000"
                                                "00000000000000000000000000000000"
                                                "800000000000020000ff000000010000"
                                                "00000000000000000000000000000000"
                                                "00000000000000000000000000000000");
const Bytes station_plogi = joined(wire::hex("03000000"), login_parameters);
const Bytes station_accept = joined(wire::hex("02000000"), login_parameters);
const Bytes station_reject = wire::hex("01000000 00090000");
