// SPDX-License-Identifier: GPL-2.0-only
// A whole switch on the twin: the module above the platform substitute, and a second switch's stack
// on the same segment.
//
//     administrator    network stack
//           \            /
//            module (vsan10)          the test
//                 |                       |
//       platform (domain 0x0a)     b (domain 0x14)
//                 |                       |
//     ------------+-----------------------+------
#include "support/fc2_rig.h"
#include "support/out_of_memory.h"

#include "ipfc.h"

#include "kapi/module.h"

extern "C" {
int brim_platform_module_init();
void brim_platform_module_exit();
}

namespace {

using namespace twin;

constexpr std::uint8_t own_name[] = {0x20, 0x01, 0x00, 0x5E, 0xBF, 0x00, 0x0A, 0x01};
constexpr std::uint8_t peer_address[] = {0x20, 0x01, 0x00, 0x5E, 0xBF, 0x00,
                                         0x14, 0x01, 0x00, 0x14, 0x0A, 0x01};
// Of b's domain, but no N_Port of its.
constexpr std::uint8_t absent_address[] = {0x20, 0x01, 0x00, 0x5E, 0xBF, 0x00,
                                           0x14, 0x77, 0x00, 0x14, 0x0A, 0x77};
constexpr std::uint8_t everybody[] = {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,
                                      0xFF, 0xFF, 0x00, 0xFF, 0xFF, 0xFF};

const Bytes packet = wire::hex("45000018 00000000 40110000 0a000001 0a000002 01020304");

// The module's frame to b: network header, LLC/SNAP header, packet.
const Bytes to_peer =
    wire::joined(wire::hex("1000005ebf001401 1000005ebf000a01 aaaa030000000800"), packet);

fcid_t fcid_of(std::uint32_t value)
{
    fcid_t fcid = {};
    fcid.domain = static_cast<std::uint8_t>(value >> 16);
    fcid.area = static_cast<std::uint8_t>(value >> 8);
    fcid.port = static_cast<std::uint8_t>(value);
    return fcid;
}

class SwitchTest : public TwinTest {
protected:
    void SetUp() override { start(); }
    void tidy() override { stop(); }

    void start()
    {
        const UnnumberedAllocations set_up;
        other = std::make_unique<Switch>(fabric);
        ASSERT_EQ(other->add_nport(10, b_fcid), 0);
        link = std::make_unique<brim_link>(fabric);
        set_module_link(link.get());
        ASSERT_EQ(platform_module.load(), 0);
        ASSERT_EQ(module.load(), 0);
    }

    void stop()
    {
        if (module.live())
            module.unload();
        if (platform_module.live())
            platform_module.unload();
        other.reset();
        link.reset();
        fabric.in_flight.clear();
    }

    // The administrator's commands. Null when memory did not suffice.
    net_device* bring_up()
    {
        CharFile file("ipfc");
        vsan_interface_ioctl_t record = {};
        record.vsan_id = 10;
        std::copy(std::begin(own_name), std::end(own_name), record.ww_portname.str);
        long result = file.command(IPFC_IOC_CREATE_INTF, record);
        record.fcid = fcid_of(a_fcid);
        record.action = IPFC_UPD_INTF_SET_FCID;
        if (result == 0)
            result = file.command(IPFC_IOC_UPDATE_INTF, record);
        net_device* const dev = find_device("vsan10");
        if (result != 0 || dev == nullptr || dev_open(dev) != 0)
            return nullptr;
        return dev;
    }

    void add_inter_vsan_host(ip_addr_t address, std::uint32_t fcid)
    {
        CharFile file("ipfc");
        ivrip_ioctl_t record = {};
        record.ip_addr = address;
        record.fcid = fcid_of(fcid);
        record.vsan = static_cast<vsan_id_t>(cpu_to_be32(10));
        file.command(IPFC_IOC_ADD_IVRIP, record);
    }

    // Data sequences among what arrived at the other switch.
    std::vector<Received> data_at_other()
    {
        fabric.deliver_all();
        std::vector<Received> units = other->take();
        std::erase_if(units, [](const Received& unit) { return unit.header.opcode != 1; });
        return units;
    }

    Fabric fabric;
    std::unique_ptr<Switch> other;
    std::unique_ptr<brim_link> link;
    Module platform_module{brim_platform_module_init, brim_platform_module_exit};
    Module module{kapi_module_init, kapi_module_exit};
};

TEST_F(SwitchTest, a_packet_reaches_the_other_switch_behind_both_headers)
{
    net_device* const dev = bring_up();
    ASSERT_NE(dev, nullptr);
    ASSERT_EQ(ip_output(dev, 0x0800, peer_address, packet), 0);
    const std::vector<Received> units = data_at_other();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(wire::hex(units[0].bytes), wire::hex(to_peer));
    EXPECT_EQ(units[0].header.vsan, 10);
    EXPECT_EQ(dev_stats(dev).tx_packets, 1u);
    EXPECT_EQ(dev_stats(dev).tx_bytes, to_peer.size());
}

TEST_F(SwitchTest, a_packet_longer_than_a_frame_arrives_whole)
{
    net_device* const dev = bring_up();
    ASSERT_NE(dev, nullptr);
    ASSERT_EQ(dev_set_mtu(dev, 65280), 0);
    const Bytes long_packet = wire::counting(60000);
    ASSERT_EQ(ip_output(dev, 0x86DD, peer_address, long_packet), 0);
    const std::vector<Received> units = data_at_other();
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].bytes.size(), 60024u);
    EXPECT_TRUE(std::equal(long_packet.begin(), long_packet.end(), units[0].bytes.begin() + 24));
}

TEST_F(SwitchTest, a_packet_of_the_other_switch_reaches_the_network_stack)
{
    net_device* const dev = bring_up();
    ASSERT_NE(dev, nullptr);
    ASSERT_GE(other->send(10, b_fcid, a_fcid, wire::ip_over_fc(0x0800, packet)), 0);
    fabric.deliver_all();
    const std::vector<Delivered> delivered = take_delivered();
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0].dev, dev);
    EXPECT_EQ(wire::hex(delivered[0].bytes), wire::hex(packet));
    EXPECT_EQ(delivered[0].protocol, 0x0800);
    EXPECT_TRUE(delivered[0].in_softirq);
}

TEST_F(SwitchTest, replicas_of_a_broadcast_leave_with_interrupts_off)
{
    net_device* const dev = bring_up();
    ASSERT_NE(dev, nullptr);
    ASSERT_EQ(other->add_nport(10, 0x140A02), 0);
    add_inter_vsan_host(1, b_fcid);
    add_inter_vsan_host(2, 0x140A02);
    ASSERT_EQ(ip_output(dev, 0x0800, everybody, packet), 0);
    EXPECT_EQ(data_at_other().size(), 3u);
    EXPECT_EQ(dev_stats(dev).tx_packets, 1u);
    // The inter-VSAN table's alone: neither hash_lock nor a lock of the stack.
    EXPECT_EQ(fabric.locks_held, 1u);
}

TEST_F(SwitchTest, a_peer_that_refuses_the_login_costs_one_error_a_packet)
{
    net_device* const dev = bring_up();
    ASSERT_NE(dev, nullptr);
    // The first packet waits for the login's answer; the next one meets the refusal.
    ip_output(dev, 0x0800, absent_address, packet);
    fabric.deliver_all();
    EXPECT_EQ(dev_stats(dev).tx_errors, 0u);
    ip_output(dev, 0x0800, absent_address, packet);
    EXPECT_EQ(dev_stats(dev).tx_errors, 1u);
    EXPECT_TRUE(data_at_other().empty());
}

TEST_F(SwitchTest, traffic_survives_being_out_of_memory)
{
    stop();
    const OutOfMemoryRuns total = survive_out_of_memory([&] {
        start();
        if (net_device* const dev = bring_up()) {
            add_inter_vsan_host(1, b_fcid);
            ip_output(dev, 0x0800, peer_address, packet);
            ip_output(dev, 0x0806, everybody, wire::counting(52));
            other->send(10, b_fcid, a_fcid, wire::ip_over_fc(0x0800, packet));
            fabric.deliver_all();
            take_delivered();
        }
        stop();
    });
    EXPECT_GT(total.allocations, 20u);
}

} // namespace
