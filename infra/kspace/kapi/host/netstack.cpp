// SPDX-License-Identifier: GPL-2.0-only
// The network stack around a driver: administration, output, and what the driver hands up.
#include "context.h"
#include "fault.h"
#include "journal.h"
#include "netdev.h"

#include "kapi/slab.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

using namespace twin;

namespace {

constexpr int e_inval = 22;
constexpr int e_netdown = 100;
constexpr int rx_drop = 1;

std::mutex mutex;
std::vector<Delivered> delivered;
int rx_result;
int arp_result = 1;
Bytes arp_address;
std::vector<ArpQuestion> questions;

thread_local int transmit_depth; // a device that sends through itself would recurse for ever

// One sender per device at a time, softirqs off.
std::map<const net_device*, std::mutex> transmit_locks;

std::mutex& transmit_lock_of(const net_device* dev)
{
    std::lock_guard guard(mutex);
    return transmit_locks[dev];
}

class TransmitScope {
public:
    explicit TransmitScope(const net_device* dev) : guard_(transmit_lock_of(dev))
    {
        ++transmit_depth;
        bh_disable();
    }
    ~TransmitScope()
    {
        --transmit_depth;
        bh_enable();
    }
    TransmitScope(const TransmitScope&) = delete;

private:
    std::lock_guard<std::mutex> guard_;
};

std::string name_of(const net_device* dev)
{
    return dev == nullptr ? "(no device)" : std::string(dev->name, strnlen(dev->name, IFNAMSIZ));
}

void must_hold_rtnl_for(const std::function<void()>& action)
{
    const bool had = context().rtnl;
    if (!had)
        rtnl_lock();
    action();
    if (!had)
        rtnl_unlock();
}

} // namespace

int netif_rx(sk_buff* skb)
{
    if (!skb_alive(skb)) {
        fault("netif_rx of no live buffer");
        return rx_drop;
    }
    journal().add(Source::net, "netif_rx " + name_of(skb->dev));
    Delivered entry{SkbPtr(skb),
                    skb_bytes(skb),
                    skb->dev,
                    be16_to_cpu(skb->protocol),
                    skb_pkt_type(skb),
                    skb->mac_header,
                    context().softirq_depth > 0};
    if (skb_shared(skb))
        fault("netif_rx of a shared buffer");
    std::lock_guard guard(mutex);
    // The kernel frees what it drops; the bytes stay for the test to see.
    if (rx_result == rx_drop)
        entry.skb.reset();
    delivered.push_back(std::move(entry));
    return rx_result;
}

int dev_queue_xmit(sk_buff* skb)
{
    net_device* const dev = skb->dev;
    journal().add(Source::net, "dev_queue_xmit " + name_of(dev));
    if (context().irqs_off)
        fault("dev_queue_xmit with interrupts off");
    if (!context().held.empty())
        fault("dev_queue_xmit under a lock: the driver's own locks are taken inside");
    if (dev == nullptr)
        die("dev_queue_xmit of a buffer without a device");
    // A device that is down has a queue that drops.
    if (!is_up(dev)) {
        kfree_skb(skb);
        return -e_netdown;
    }
    return transmit(skb, dev);
}

int arp_find(unsigned char* to, sk_buff* skb)
{
    journal().add(Source::net, "arp_find");
    int result;
    {
        std::lock_guard guard(mutex);
        questions.push_back({to, skb});
        result = arp_result;
        if (result == 0 && !arp_address.empty())
            std::memcpy(to, arp_address.data(), arp_address.size());
    }
    if (result != 0)
        kfree_skb(skb);
    return result;
}

namespace twin {

bool is_up(const net_device* dev)
{
    return (dev->flags & IFF_UP) != 0;
}

int dev_open(net_device* dev)
{
    int result = 0;
    must_hold_rtnl_for([&] {
        if (is_up(dev))
            return;
        result = dev->open != nullptr ? dev->open(dev) : 0;
        if (result == 0)
            dev->flags |= IFF_UP;
    });
    return result;
}

int dev_close(net_device* dev)
{
    int result = 0;
    must_hold_rtnl_for([&] {
        if (!is_up(dev))
            return;
        result = dev->stop != nullptr ? dev->stop(dev) : 0;
        dev->flags &= ~IFF_UP;
    });
    return result;
}

int dev_set_mtu(net_device* dev, int mtu)
{
    int result = 0;
    must_hold_rtnl_for([&] {
        if (mtu == static_cast<int>(dev->mtu))
            return;
        if (mtu < 0)
            result = -e_inval;
        else if (dev->change_mtu != nullptr)
            result = dev->change_mtu(dev, mtu);
        else
            dev->mtu = static_cast<unsigned>(mtu);
    });
    return result;
}

net_device_stats dev_stats(net_device* dev)
{
    return *dev->get_stats(dev);
}

int dev_hard_header(sk_buff* skb, net_device* dev, unsigned short type, const void* daddr,
                    const void* saddr, unsigned len)
{
    const unsigned before = skb->len;
    int result;
    bool freed;
    {
        FreeWatch watch(skb);
        result = dev->header_ops->create(skb, dev, type, daddr, saddr, len);
        freed = watch.freed();
    }
    // Of a driver's free only a note was made: this is the one that counts.
    if (result < 0) {
        kfree_skb(skb);
        return result;
    }
    if (freed) {
        fault("header construction succeeded and freed the buffer");
        kfree_skb(skb);
        return -1;
    }
    return static_cast<int>(skb->len - before);
}

sk_buff* make_output_skb(net_device* dev, std::uint16_t type, std::span<const std::uint8_t> packet)
{
    // The kernel rounds the room for headers up to 16 bytes, one step further when it fits.
    const unsigned headroom = (dev->hard_header_len & ~15u) + 16;
    sk_buff* const skb = make_skb(packet, {.headroom = headroom});
    skb->dev = dev;
    skb->protocol = cpu_to_be16(type);
    return skb;
}

int ip_output(net_device* dev, std::uint16_t type, const void* daddr,
              std::span<const std::uint8_t> packet)
{
    sk_buff* const skb = make_output_skb(dev, type, packet);
    const int result =
        dev_hard_header(skb, dev, type, daddr, nullptr, static_cast<unsigned>(packet.size()));
    return result < 0 ? result : dev_queue_xmit(skb);
}

int transmit(sk_buff* skb, net_device* dev)
{
    if (transmit_depth > 0) {
        fault("transmit inside transmit");
        kfree_skb(skb);
        return -e_netdown;
    }
    const TransmitScope scope(dev);
    const int result = dev->hard_start_xmit(skb, dev);
    if (result != NETDEV_TX_OK)
        fault(strf("a driver's transmit returned %d", result));
    return result;
}

std::vector<Delivered> take_delivered()
{
    std::lock_guard guard(mutex);
    return std::exchange(delivered, {});
}

std::size_t delivered_count()
{
    std::lock_guard guard(mutex);
    return delivered.size();
}

void set_netif_rx_result(int result)
{
    std::lock_guard guard(mutex);
    rx_result = result;
}

void set_arp_answer(int result, std::span<const std::uint8_t> address)
{
    std::lock_guard guard(mutex);
    arp_result = result;
    arp_address.assign(address.begin(), address.end());
}

std::vector<ArpQuestion> arp_questions()
{
    std::lock_guard guard(mutex);
    return questions;
}

void reset_netstack()
{
    take_delivered();
    std::lock_guard guard(mutex);
    rx_result = 0;
    arp_result = 1;
    arp_address.clear();
    questions.clear();
    transmit_locks.clear();
}

} // namespace twin
