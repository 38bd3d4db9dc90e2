// SPDX-License-Identifier: GPL-2.0-only
// Network devices of the twin, and the stack around them.
#include "support/twin_test.h"

#include "kapi/slab.h"

#include <atomic>
#include <thread>

namespace {

using namespace twin;

int header_result;
bool header_frees;
int xmit_calls;
std::atomic<int> xmit_inside;
bool xmit_atomic;
int mtu_seen;

int create_header(sk_buff* skb, net_device*, unsigned short, const void*, const void*, unsigned)
{
    if (header_frees)
        kfree_skb(skb);
    else if (header_result > 0)
        skb_push(skb, 12);
    return header_result;
}

int start_xmit(sk_buff* skb, net_device*)
{
    ++xmit_calls;
    EXPECT_EQ(++xmit_inside, 1);
    xmit_atomic = in_atomic();
    --xmit_inside;
    kfree_skb(skb);
    return NETDEV_TX_OK;
}

int change_mtu(net_device* dev, int mtu)
{
    mtu_seen = mtu;
    if (mtu >= 68)
        dev->mtu = static_cast<unsigned>(mtu);
    return 0;
}

int succeed(net_device*)
{
    return 0;
}

constexpr header_ops headers = {.create = create_header,
                                .parse = nullptr,
                                .rebuild = nullptr,
                                .cache = nullptr,
                                .cache_update = nullptr};

class NetdevTest : public TwinTest {
protected:
    NetdevTest()
    {
        header_result = 40;
        header_frees = false;
        xmit_calls = 0;
        mtu_seen = 0;
        dev = make("dev0");
    }

    net_device* make(const char* name)
    {
        net_device* const made = alloc_etherdev_mq(64, 1);
        std::strcpy(made->name, name);
        made->header_ops = &headers;
        made->hard_start_xmit = start_xmit;
        made->change_mtu = change_mtu;
        made->open = succeed;
        made->stop = succeed;
        return made;
    }

    int registered(net_device* which)
    {
        rtnl_lock();
        const int result = register_netdevice(which);
        rtnl_unlock();
        return result;
    }

    void unregister(net_device* which)
    {
        rtnl_lock();
        unregister_netdevice(which);
        rtnl_unlock();
    }

    void tidy() override
    {
        for (net_device* which : registered_devices())
            unregister(which);
        release_devices();
    }

    sk_buff* packet() { return make_output_skb(dev, 0x0800, Bytes(20, 0xAB)); }

    net_device* dev;
};

TEST_F(NetdevTest, the_private_area_is_zeroed_and_exact)
{
    const auto* const area = static_cast<const unsigned char*>(netdev_priv(dev));
    EXPECT_EQ(area[63], 0);
    EXPECT_EQ(heap().size_of(dev), 256u + 64u);
}

TEST_F(NetdevTest, a_name_can_be_registered_once)
{
    EXPECT_EQ(registered(dev), 0);
    EXPECT_EQ(find_device("dev0"), dev);
    EXPECT_EQ(registered(make("dev0")), -17);
    take_device_name("dev1");
    EXPECT_EQ(registered(make("dev1")), -17);
}

TEST_F(NetdevTest, registration_can_be_refused_and_can_lack_memory)
{
    refuse_registration(-105);
    EXPECT_EQ(registered(dev), -105);
    heap().fail_nth(Kind::registration, 1);
    EXPECT_EQ(registered(make("dev1")), -12);
    EXPECT_TRUE(registered_devices().empty());
}

TEST_F(NetdevTest, unregistering_a_refused_device_changes_nothing)
{
    refuse_registration(-17);
    registered(dev);
    unregister(dev);
    EXPECT_EQ(heap().live(Kind::netdev), 1u);
}

TEST_F(NetdevTest, registration_needs_the_routing_netlink_lock)
{
    register_netdevice(dev);
    EXPECT_EQ(only_fault(), "register_netdevice without rtnl_lock");
}

TEST_F(NetdevTest, an_unregistered_device_stays_readable_until_the_module_goes)
{
    registered(dev);
    unregister(dev);
    EXPECT_STREQ(dev->name, "dev0");
    unregister(dev);
    EXPECT_EQ(only_fault(), "unregister_netdevice twice of one device");
    release_devices();
    EXPECT_EQ(heap().live(Kind::netdev), 0u);
}

TEST_F(NetdevTest, a_device_left_registered_is_a_fault)
{
    registered(dev);
    release_devices();
    EXPECT_EQ(only_fault(), "a module left the device dev0 registered");
}

TEST_F(NetdevTest, the_devices_address_is_written_by_part)
{
    dev_addr_mod(dev, 8, "\x00\x0a\x0b\x0c", 4);
    EXPECT_EQ(dev->dev_addr[9], 0x0a);
    EXPECT_EQ(dev->dev_addr[7], 0);
    EXPECT_THROW(dev_addr_mod(dev, 30, "abc", 3), KernelBug);
}

TEST_F(NetdevTest, taking_the_routing_netlink_lock_twice_dies)
{
    rtnl_lock();
    EXPECT_THROW(rtnl_lock(), KernelBug);
    rtnl_unlock();
    rtnl_unlock();
    EXPECT_EQ(only_fault(), "rtnl_unlock, which this thread does not hold");
}

TEST_F(NetdevTest, open_and_close_set_the_flag)
{
    registered(dev);
    EXPECT_EQ(dev_open(dev), 0);
    EXPECT_TRUE(is_up(dev));
    unregister(dev);
    EXPECT_FALSE(is_up(dev));
}

TEST_F(NetdevTest, the_mtu_goes_through_the_driver)
{
    EXPECT_EQ(dev_set_mtu(dev, 1500), 0);
    EXPECT_EQ(mtu_seen, 0);
    EXPECT_EQ(dev_set_mtu(dev, 7), 0);
    EXPECT_EQ(mtu_seen, 7);
    EXPECT_EQ(dev->mtu, 1500u);
    EXPECT_EQ(dev_set_mtu(dev, 9000), 0);
    EXPECT_EQ(dev->mtu, 9000u);
    EXPECT_EQ(dev_set_mtu(dev, -1), -22);
}

TEST_F(NetdevTest, header_construction_reports_what_was_pushed)
{
    const SkbPtr skb(packet());
    EXPECT_EQ(dev_hard_header(skb.get(), dev, 0x0800, nullptr, nullptr, 20), 12);
}

TEST_F(NetdevTest, a_failed_header_construction_frees_the_buffer_once)
{
    header_result = -22;
    sk_buff* skb = packet();
    EXPECT_EQ(dev_hard_header(skb, dev, 0x0800, nullptr, nullptr, 20), -22);
    EXPECT_FALSE(skb_alive(skb));

    header_result = -12;
    header_frees = true;
    skb = packet();
    EXPECT_EQ(dev_hard_header(skb, dev, 0x0800, nullptr, nullptr, 20), -12);
    EXPECT_FALSE(skb_alive(skb));
}

TEST_F(NetdevTest, a_header_that_frees_and_succeeds_is_a_fault)
{
    header_frees = true;
    dev_hard_header(packet(), dev, 0x0800, nullptr, nullptr, 20);
    EXPECT_EQ(only_fault(), "header construction succeeded and freed the buffer");
}

TEST_F(NetdevTest, output_on_a_device_that_is_up_reaches_the_driver_with_softirqs_off)
{
    registered(dev);
    dev_open(dev);
    EXPECT_EQ(ip_output(dev, 0x0800, nullptr, Bytes(20)), 0);
    EXPECT_EQ(xmit_calls, 1);
    EXPECT_TRUE(xmit_atomic);
}

TEST_F(NetdevTest, output_on_a_device_that_is_down_drops_the_buffer)
{
    registered(dev);
    EXPECT_EQ(ip_output(dev, 0x0800, nullptr, Bytes(20)), -100);
    EXPECT_EQ(xmit_calls, 0);
}

TEST_F(NetdevTest, two_senders_on_one_device_take_turns)
{
    registered(dev);
    dev_open(dev);
    const auto send = [&] {
        for (int i = 0; i < 200; ++i)
            transmit(packet(), dev);
    };
    std::thread one(send);
    std::thread two(send);
    one.join();
    two.join();
    EXPECT_EQ(xmit_calls, 400);
}

TEST_F(NetdevTest, delivered_buffers_wait_for_the_test)
{
    sk_buff* const skb = make_skb(Bytes{1, 2, 3});
    skb->dev = dev;
    skb->protocol = cpu_to_be16(0x86DD);
    skb_set_pkt_type(skb, PACKET_MULTICAST);
    EXPECT_EQ(netif_rx(skb), 0);
    const std::vector<Delivered> delivered = take_delivered();
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0].skb.get(), skb);
    EXPECT_EQ(delivered[0].bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(delivered[0].protocol, 0x86DD);
    EXPECT_EQ(delivered[0].pkt_type, PACKET_MULTICAST);
}

TEST_F(NetdevTest, a_dropped_delivery_is_freed_by_the_kernel)
{
    set_netif_rx_result(1);
    sk_buff* const skb = make_skb(Bytes{1});
    EXPECT_EQ(netif_rx(skb), 1);
    EXPECT_FALSE(skb_alive(skb));
    EXPECT_EQ(take_delivered()[0].bytes, Bytes{1});
}

TEST_F(NetdevTest, arp_find_writes_the_answer_or_takes_the_buffer)
{
    unsigned char address[6] = {};
    const SkbPtr kept(packet());
    set_arp_answer(0, Bytes{1, 2, 3, 4, 5, 6});
    EXPECT_EQ(arp_find(address, kept.get()), 0);
    EXPECT_EQ(address[5], 6);
    set_arp_answer(1, {});
    sk_buff* const taken = packet();
    EXPECT_EQ(arp_find(address, taken), 1);
    EXPECT_FALSE(skb_alive(taken));
    EXPECT_EQ(arp_questions().size(), 2u);
}

} // namespace
