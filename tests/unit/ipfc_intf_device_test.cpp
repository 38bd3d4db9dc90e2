// SPDX-License-Identifier: GPL-2.0-only
// The device's callbacks that are not part of the data path.
#include "support/control.h"

namespace {

class DeviceCallbackTest : public ControlTest {};

TEST_F(DeviceCallbackTest, the_statistics_are_the_private_areas_own_member)
{
    net_device* const dev = make_interface(10);
    EXPECT_EQ(ipfc_dev_get_stats(dev), &ipfc_priv(dev)->stats);
    ipfc_priv(dev)->stats.rx_packets = 17;
    ipfc_priv(dev)->stats.tx_dropped = 3;
    EXPECT_EQ(twin::dev_stats(dev).rx_packets, 17u);
    EXPECT_EQ(twin::dev_stats(dev).tx_dropped, 3u);
}

TEST_F(DeviceCallbackTest, mtu_7_and_65281_are_ignored_with_result_0_and_8_and_65280_are_taken)
{
    net_device* const dev = make_interface(10);
    const struct {
        int wanted;
        unsigned mtu;
    } rows[] = {
        {8, 8},      {7, 8},       {65280, 65280},     {65281, 65280},          {0, 65280},
        {-1, 65280}, {9000, 9000}, {2147483647, 9000}, {-2147483647 - 1, 9000}, {1500, 1500},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ipfc_dev_change_mtu(dev, row.wanted), 0) << row.wanted;
        EXPECT_EQ(dev->mtu, row.mtu) << row.wanted;
    }
    EXPECT_TRUE(happened().empty());
}

TEST_F(DeviceCallbackTest, an_administrator_changes_the_mtu_through_the_driver)
{
    net_device* const dev = make_interface(10);
    EXPECT_EQ(twin::dev_set_mtu(dev, 65280), 0);
    EXPECT_EQ(dev->mtu, 65280u);
    EXPECT_EQ(twin::dev_set_mtu(dev, 65281), 0);
    EXPECT_EQ(dev->mtu, 65280u);
}

TEST_F(DeviceCallbackTest, open_and_stop_do_nothing_and_return_0)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    const twin::Bytes before = bytes_of(*ipfc_priv(dev));
    EXPECT_EQ(ipfc_dev_open(dev), 0);
    EXPECT_EQ(ipfc_dev_stop(dev), 0);
    EXPECT_EQ(bytes_of(*ipfc_priv(dev)), before);
    EXPECT_TRUE(happened().empty());
}

TEST_F(DeviceCallbackTest, the_destructor_frees_a_private_area_and_clears_the_pointer)
{
    net_device dev{};
    dev.priv = kmalloc(100, GFP_KERNEL);
    ipfc_dev_destructor(&dev);
    EXPECT_EQ(dev.priv, nullptr);
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 0u);
    EXPECT_EQ(take_messages(), Texts{"101 Device destructor called\n"});
}

TEST_F(DeviceCallbackTest, the_destructor_copes_without_device_and_without_private_area)
{
    net_device dev{};
    ipfc_dev_destructor(&dev);
    ipfc_dev_destructor(nullptr);
    EXPECT_EQ(take_messages(),
              (Texts{"101 Device destructor called\n", "101 Device destructor called\n"}));
}

TEST_F(DeviceCallbackTest, unregistration_runs_no_destructor)
{
    make_interface(10);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_FALSE(platform().has_text(101, "Device destructor called\n"));
}

} // namespace
