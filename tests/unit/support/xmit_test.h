// SPDX-License-Identifier: GPL-2.0-only
// An interface and the packets that a stack hands to its transmission.
#pragma once

#include "support/interface_test.h"

#include <thread>

// Every counter of the interface that is not 0, "name=value" with blanks between.
inline std::string counters_of(const kvsan_interface_priv_t* priv)
{
    const net_device_stats& stats = priv->stats;
    const mib_counters_t& mib = priv->mib_stats;
    const std::pair<const char*, unsigned long> rows[] = {
        {"rx_packets", stats.rx_packets},
        {"tx_packets", stats.tx_packets},
        {"rx_bytes", stats.rx_bytes},
        {"tx_bytes", stats.tx_bytes},
        {"rx_errors", stats.rx_errors},
        {"tx_errors", stats.tx_errors},
        {"rx_dropped", stats.rx_dropped},
        {"tx_dropped", stats.tx_dropped},
        {"multicast", stats.multicast},
        {"collisions", stats.collisions},
        {"ifInMulticastPkts", mib.ifInMulticastPkts},
        {"ifInBroadcastPkts", mib.ifInBroadcastPkts},
        {"ifOutMulticastPkts", mib.ifOutMulticastPkts},
        {"ifOutBroadcastPkts", mib.ifOutBroadcastPkts},
        {"ifHCInOctets", mib.ifHCInOctets},
        {"ifHCInUcastPkts", mib.ifHCInUcastPkts},
        {"ifHCInMulticastPkts", mib.ifHCInMulticastPkts},
        {"ifHCInBroadcastPkts", mib.ifHCInBroadcastPkts},
        {"ifHCOutOctets", mib.ifHCOutOctets},
        {"ifHCOutUcastPkts", mib.ifHCOutUcastPkts},
        {"ifHCOutMulticastPkts", mib.ifHCOutMulticastPkts},
        {"ifHCOutBroadcastPkts", mib.ifHCOutBroadcastPkts},
        {"ifInUnknownProtos", mib.ifInUnknownProtos},
    };
    std::string text;
    for (const auto& [name, value] : rows)
        if (value != 0)
            text += twin::strf("%s%s=%lu", text.empty() ? "" : " ", name, value);
    return text;
}

// Runs function on another processor while this one waits, as in the middle of a send.
template <typename Function>
void elsewhere(Function function)
{
    std::thread(function).join();
}

class XmitTest : public InterfaceTest {
protected:
    using Lines = std::vector<std::string>;

    static constexpr const char* ipv4_packet =
        "45 00 00 14 00 00 00 00 40 01 00 00 0a 00 00 01 0a 00 00 02";
    static constexpr const char* arp_request =
        "00 12 08 00 0c 04 00 01 20 00 00 5e bf 01 02 03 00 0a 0b 0c 0a 00 00 01 "
        "00 00 00 00 00 00 00 00 00 00 00 00 0a 00 00 02";
    // Destination copy and network header.
    static constexpr const char* to_peer = "10 00 00 5e bf 0a 0b 01 00 14 15 16 "
                                           "10 00 00 5e bf 0a 0b 01 10 00 00 5e bf 01 02 03 ";
    static constexpr const char* to_all = "10 00 ff ff ff ff ff ff 00 ff ff ff "
                                          "10 00 ff ff ff ff ff ff 10 00 00 5e bf 01 02 03 ";
    // LLC/SNAP headers.
    static constexpr const char* ip = "aa aa 03 00 00 00 08 00 ";
    static constexpr const char* arp = "aa aa 03 00 00 00 08 06 ";
    static constexpr const char* ipv6 = "aa aa 03 00 00 00 86 dd ";

    // As header construction leaves it: the stack's reserve in front.
    static twin::Bytes buffer(const char* addresses, const char* llc, const char* packet)
    {
        return joined({twin::Bytes(56, 0xEE), bytes(addresses), bytes(llc), bytes(packet)});
    }
    sk_buff* make(const char* addresses, const char* llc, const char* packet) const
    {
        sk_buff* const skb =
            twin::make_skb(buffer(addresses, llc, packet), {.headroom = 56, .tailroom = 12});
        skb->dev = dev;
        return skb;
    }
    void send(const char* addresses, const char* llc, const char* packet)
    {
        EXPECT_EQ(twin::transmit(make(addresses, llc, packet), dev), 0);
    }
    void send_unicast() { send(to_peer, ip, ipv4_packet); }
    void send_broadcast() { send(to_all, ip, ipv4_packet); }
    std::string counters() const { return counters_of(priv); }
    static const fc2_iuhdr_t& header(std::size_t n) { return platform().sends.at(n).header; }
    static std::string header_bytes(std::size_t n)
    {
        const auto* const begin = reinterpret_cast<const std::uint8_t*>(&header(n));
        return hex(std::span(begin, sizeof(fc2_iuhdr_t)));
    }
    static std::string sent(std::size_t n) { return hex(platform().sends.at(n).bytes); }
};
