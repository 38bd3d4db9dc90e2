// SPDX-License-Identifier: GPL-2.0-only
// The network devices that exist, and the kernel's ways into a driver through them.
#pragma once

#include "skb.h"

#include "kapi/netdevice.h"

#include <optional>
#include <string>
#include <vector>

namespace twin {

// ---- devices ----

std::vector<net_device*> registered_devices(); // in the order of registration
net_device* find_device(const std::string& name);
bool is_registered(const net_device* dev);
bool is_up(const net_device* dev);

// The next register_netdevice fails with this error.
void refuse_registration(int error);
// A device of somebody else's owns this name.
void take_device_name(const std::string& name);

// Frees every device that is not registered; what the glue does when a module goes.
void release_devices();

// ---- what an administrator does ----

// Calls open and sets IFF_UP; stop. 0, or what the driver returned.
int dev_open(net_device* dev);
int dev_close(net_device* dev);
// The kernel's path of "ip link set mtu": the driver's change_mtu decides.
int dev_set_mtu(net_device* dev, int mtu);
net_device_stats dev_stats(net_device* dev);

// ---- the stack's transmit side ----

// Header construction as the stack and the glue do it: a negative result frees the buffer, exactly
// once, whether or not the driver freed it too; a positive one becomes the pushed length. For the
// driver's bare result call dev->header_ops->create.
int dev_hard_header(sk_buff* skb, net_device* dev, unsigned short type, const void* daddr,
                    const void* saddr, unsigned len);

// A buffer as the stack allocates it for output: room for the device's headers, then the packet.
sk_buff* make_output_skb(net_device* dev, std::uint16_t type, std::span<const std::uint8_t> packet);

// Header construction, then dev_queue_xmit. The stack's result: negative when header construction
// failed, otherwise dev_queue_xmit's.
int ip_output(net_device* dev, std::uint16_t type, const void* daddr,
              std::span<const std::uint8_t> packet);

// The driver's transmit routine as the kernel calls it, softirqs off; the buffer is the driver's.
int transmit(sk_buff* skb, net_device* dev);

// ---- what drivers handed up or asked for ----

struct Delivered {
    SkbPtr skb; // null when the result was a drop
    Bytes bytes;
    net_device* dev;
    std::uint16_t protocol; // host order
    unsigned char pkt_type;
    unsigned mac_header; // from head
    bool in_softirq;
};

// Buffers given to netif_rx since the last call, oldest first.
std::vector<Delivered> take_delivered();
std::size_t delivered_count();
// netif_rx's result from now on; 1 (NET_RX_DROP) also frees the buffer.
void set_netif_rx_result(int result);

struct ArpQuestion {
    const unsigned char* to;
    const sk_buff* skb;
};

// arp_find's answer from now on: 0 with the bytes that it writes, or a result with which the kernel
// takes the buffer.
void set_arp_answer(int result, std::span<const std::uint8_t> address);
std::vector<ArpQuestion> arp_questions();

// For the reset of the twin.
void reset_devices();
void reset_netstack();

} // namespace twin
