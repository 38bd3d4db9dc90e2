// SPDX-License-Identifier: GPL-2.0-only
// An interface and the information units that arrive for it.
#pragma once

#include "support/xmit_test.h"

class ReceiveTest : public InterfaceTest {
protected:
    using Lines = std::vector<std::string>;

    // Network headers: from the peer to this port, to all, and to a group.
    static constexpr const char* to_own = "10 00 00 5e bf 01 02 03 10 00 00 5e bf 0a 0b 01 ";
    static constexpr const char* to_all = "10 00 ff ff ff ff ff ff 10 00 00 5e bf 0a 0b 01 ";
    static constexpr const char* to_group = "10 00 01 00 5e 00 00 01 10 00 00 5e bf 0a 0b 01 ";
    // LLC/SNAP headers.
    static constexpr const char* ip = "aa aa 03 00 00 00 08 00 ";
    static constexpr const char* arp = "aa aa 03 00 00 00 08 06 ";
    static constexpr const char* ipv6 = "aa aa 03 00 00 00 86 dd ";
    static constexpr const char* ipv4_packet =
        "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 02 0a 00 00 01";

    static IncomingIu unit(twin::Bytes data)
    {
        IncomingIu iu;
        iu.header.opcode = 1;
        iu.header.vsan = own_vsan;
        iu.header.s_id = peer_fcid;
        iu.header.d_id = own_fcid;
        iu.bytes = std::move(data);
        return iu;
    }
    static void receive(IncomingIu iu) { EXPECT_TRUE(platform().deliver(std::move(iu))); }
    static void receive(twin::Bytes data) { receive(unit(std::move(data))); }
    static void receive(const char* names, const char* llc, const char* packet)
    {
        receive(joined({bytes(names), bytes(llc), bytes(packet)}));
    }
    // Data cut into pages behind the first linear bytes.
    static void receive_paged(twin::Bytes data, unsigned linear, unsigned page = 4096)
    {
        IncomingIu iu = unit(std::move(data));
        iu.layout = {.headroom = 64, .tailroom = 8, .linear = linear, .page = page};
        receive(std::move(iu));
    }
    std::string counters() const { return counters_of(priv); }
};
