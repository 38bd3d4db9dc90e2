// SPDX-License-Identifier: GPL-2.0-only
// Two switches on one segment, each an FC-2 stack with one socket, and a foreign station.
//
//     a (domain 0x0a)        b (domain 0x14)        the test
//          |                      |                     |
//     -----+----------------------+---------------------+-----
#pragma once

#include "support/fc_wire.h"
#include "support/twin_test.h"

#include "platform/fc2/fc2_stack.h"
#include "platform/host/fabric.h"
#include "platform/platform.h"

#include <memory>
#include <optional>

inline constexpr std::uint32_t a_fcid = 0x0A0A01;
inline constexpr std::uint32_t b_fcid = 0x140A01;
inline constexpr std::uint32_t station_fcid = 0x1E0A01; // of the domain 0x1e, which is nobody's
inline constexpr std::uint32_t broadcast_fcid = 0xFFFFFF;

// What a socket was given.
struct Received {
    fc2_iuhdr_t header;
    twin::Bytes bytes;
    int announced; // the length given to data_ready
    int result;    // recvskb's
    bool in_softirq;
};

// The bind record of an IP-over-FC socket.
sockaddr_fc2 ip_filter();
// The option that registers or removes an N_Port; its name ends in the FCID.
fc2_opt_nport_t nport_option(std::uint16_t vsan, std::uint32_t fcid);

class Switch {
public:
    explicit Switch(twin::Fabric& fabric);
    ~Switch();
    Switch(const Switch&) = delete;

    int add_nport(std::uint16_t vsan, std::uint32_t fcid) const;
    int remove_nport(std::uint16_t vsan, std::uint32_t fcid) const;
    // The module's way of sending: a whole exchange for a broadcast; handle -1: a new exchange.
    int send(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id, const twin::Bytes& bytes,
             int handle = -1) const;
    int send_logo(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id) const;
    // Information units that have arrived since the last call.
    std::vector<Received> take();
    void close();

    brim_link link;
    fc2_stack* stack;
    socket* sock = nullptr;
    bool takes = true; // data_ready calls recvskb

private:
    static int data_ready(socket* sock, int nbytes);
    std::vector<Received> received_;
};

// Header of a data sequence as the module fills it in.
fc2_iuhdr_t data_header(std::uint16_t vsan, std::uint32_t s_id, std::uint32_t d_id);
// A buffer as the module hands it down: room for the stack on both sides.
sk_buff* module_skb(const twin::Bytes& bytes);

class Fc2Test : public TwinTest {
protected:
    Fc2Test();
    void tidy() override;

    // a's port in VSAN 10 and b's.
    void register_both();
    // Logs a in to b; both have then an open login.
    void log_in();

    // Lets the clock go on by this many ticks, a tick at a time, frames arriving in between.
    void pass(unsigned long ticks);

    // Frames seen on the link from the given number on, with the CRC checked.
    std::vector<wire::Frame> frames_since(std::size_t first) const;

    twin::Fabric fabric;
    std::unique_ptr<Switch> a;
    std::unique_ptr<Switch> b;
};

// The station's PLOGI; payloads of its answers.
wire::Frame els(std::uint32_t s_id, std::uint32_t d_id, const twin::Bytes& payload);
wire::Frame els_reply(const wire::Frame& request, const twin::Bytes& payload);
extern const twin::Bytes station_plogi;
extern const twin::Bytes station_accept;
extern const twin::Bytes station_reject;
