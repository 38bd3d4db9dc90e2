// SPDX-License-Identifier: GPL-2.0-only
// Creation of VSAN interfaces: what is refused, the device's settings, the order of effects.
#include "support/control.h"

#include <functional>

// The linker sends the module's calls of create_proc_entry here (see the test program's link
// options): creation makes one right after it has stored the device.
static std::function<void()> on_proc_entry;

extern "C" proc_dir_entry* __real_kapi_create_proc_entry(const char* name, mode_t mode,
                                                         proc_dir_entry* parent);
extern "C" proc_dir_entry* __wrap_kapi_create_proc_entry(const char* name, mode_t mode,
                                                         proc_dir_entry* parent)
{
    if (on_proc_entry)
        on_proc_entry();
    return __real_kapi_create_proc_entry(name, mode, parent);
}

namespace {

class InterfaceCreateTest : public ControlTest {};

TEST_F(InterfaceCreateTest, creation_has_its_effects_in_order)
{
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(happened(), (Texts{
                              "101 creating VSAN interface 10\n",
                              "101 ipfc_dev_create_mac wwn: 0x706050403020120 \n",
                              "create_proc_entry brim_sw/ipfc/vsan10",
                              "101 ipfc_create_vsan_interface created proc entry for device: "
                              "vsan10 \n",
                              "rtnl_lock",
                              "register_netdevice vsan10",
                              "rtnl_unlock",
                              "101 VSAN interface10 created\n",
                          }));
}

TEST_F(InterfaceCreateTest, the_device_is_in_its_slot_whole_before_its_report_appears)
{
    int reports = 0;
    on_proc_entry = [&reports] {
        ++reports;
        const net_device* const dev = vsan_interfaces[10];
        ASSERT_NE(dev, nullptr);
        EXPECT_EQ(ipfc_priv(dev)->vsan_id, 10);
        EXPECT_EQ(dev->dev_addr[0], 0x20);
        EXPECT_EQ(dev->broadcast[9], 0xFF);
        EXPECT_FALSE(twin::is_registered(dev));
    };
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    on_proc_entry = {};
    EXPECT_EQ(reports, 1);
}

TEST_F(InterfaceCreateTest, every_message_of_a_creation_reaches_both_outlets)
{
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(twin::log().raw(),
              (Texts{
                  "<7><{ipfc}>creating VSAN interface 10\n",
                  "<7><{ipfc}>ipfc_dev_create_mac wwn: 0x706050403020120 \n",
                  "<7><{ipfc}>ipfc_create_vsan_interface created proc entry for device: vsan10 \n",
                  "<7><{ipfc}>VSAN interface10 created\n",
              }));
    EXPECT_EQ(platform().take_texts(101),
              (Texts{
                  "creating VSAN interface 10\n",
                  "ipfc_dev_create_mac wwn: 0x706050403020120 \n",
                  "ipfc_create_vsan_interface created proc entry for device: vsan10 \n",
                  "VSAN interface10 created\n",
              }));
    EXPECT_TRUE(platform().take_texts(100).empty());
}

TEST_F(InterfaceCreateTest, vsan_4095_and_vsan_0_are_valid)
{
    for (const vsan_id_t vsan : {0, 4095}) {
        EXPECT_EQ(ipfc_create_vsan_interface(vsan, PORT_NAME, NODE_NAME), 0);
        ASSERT_NE(vsan_interfaces[vsan], nullptr);
        EXPECT_EQ(ipfc_priv(vsan_interfaces[vsan])->vsan_id, vsan);
    }
    EXPECT_NE(twin::find_device("vsan0"), nullptr);
    EXPECT_NE(twin::find_device("vsan4095"), nullptr);
}

TEST_F(InterfaceCreateTest, vsan_4096_and_minus_1_give_minus_22_with_the_message)
{
    const struct {
        vsan_id_t vsan;
        const char* event;
    } rows[] = {
        {4096, "101 creating VSAN interface 4096\n"},
        {-1, "101 creating VSAN interface -1\n"},
        {2147483647, "101 creating VSAN interface 2147483647\n"},
        {-2147483647 - 1, "101 creating VSAN interface -2147483648\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.vsan);
        EXPECT_EQ(ipfc_create_vsan_interface(row.vsan, PORT_NAME, NODE_NAME), -22);
        EXPECT_EQ(take_messages(), (Texts{row.event, "100 VSAN number not valid\n"}));
    }
    EXPECT_TRUE(twin::registered_devices().empty());
    EXPECT_EQ(twin::heap().live(twin::Kind::netdev), 0u);
}

TEST_F(InterfaceCreateTest, creating_an_existing_vsan_returns_0_and_changes_nothing)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    const twin::Bytes before = bytes_of(*ipfc_priv(dev));
    EXPECT_EQ(ipfc_create_vsan_interface(10, PEER_NAME, OTHER_NAME), 0);
    EXPECT_EQ(happened(), (Texts{"101 creating VSAN interface 10\n",
                                 "101 VSAN interface 10 already present\n"}));
    EXPECT_EQ(vsan_interfaces[10], dev);
    EXPECT_EQ(bytes_of(*ipfc_priv(dev)), before);
    EXPECT_EQ(twin::registered_devices().size(), 1u);
}

TEST_F(InterfaceCreateTest, without_memory_for_the_device_the_result_is_minus_12)
{
    twin::heap().fail_nth(twin::Kind::netdev, 1);
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), -12);
    EXPECT_EQ(take_messages(),
              (Texts{"101 creating VSAN interface 10\n", "100 No memory for new device\n"}));
    EXPECT_EQ(vsan_interfaces[10], nullptr);
    EXPECT_FALSE(twin::proc_exists("brim_sw/ipfc/vsan10"));
}

TEST_F(InterfaceCreateTest, creation_goes_on_without_its_proc_entry)
{
    twin::heap().fail_nth(twin::Kind::proc, 1);
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    twin::heap().never_fail();
    EXPECT_EQ(happened(),
              (Texts{
                  "101 creating VSAN interface 10\n",
                  "101 ipfc_dev_create_mac wwn: 0x706050403020120 \n",
                  "create_proc_entry brim_sw/ipfc/vsan10 failed",
                  "100 ipfc_create_vsan_interface couldn't proc entry for device: vsan10 \n",
                  "rtnl_lock",
                  "register_netdevice vsan10",
                  "rtnl_unlock",
                  "101 VSAN interface10 created\n",
              }));
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
}

TEST_F(InterfaceCreateTest, a_refused_registration_is_not_examined_and_deletion_copes_with_it)
{
    twin::take_device_name("vsan10");
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(platform().take_texts(101).back(), "VSAN interface10 created\n");
    ASSERT_NE(vsan_interfaces[10], nullptr);
    EXPECT_FALSE(twin::is_registered(vsan_interfaces[10]));
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(vsan_interfaces[10], nullptr);
}

TEST_F(InterfaceCreateTest, the_device_has_the_settings_of_a_vsan_interface)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    const net_device* const dev = twin::find_device("vsan10");
    ASSERT_NE(dev, nullptr);
    EXPECT_EQ(dev, vsan_interfaces[10]);
    EXPECT_STREQ(dev->name, "vsan10");
    EXPECT_EQ(dev->get_stats, &ipfc_dev_get_stats);
    EXPECT_EQ(dev->open, &ipfc_dev_open);
    EXPECT_EQ(dev->stop, &ipfc_dev_stop);
    EXPECT_EQ(dev->header_ops, &ipfc_header_ops);
    EXPECT_EQ(dev->header_ops->create, &ipfc_dev_hard_header);
    EXPECT_EQ(dev->header_ops->rebuild, &ipfc_dev_rebuild_header);
    EXPECT_EQ(dev->hard_start_xmit, &ipfc_dev_hard_start_xmit);
    EXPECT_EQ(dev->change_mtu, &ipfc_dev_change_mtu);
    EXPECT_EQ(dev->flags, 0x2u);
    EXPECT_EQ(dev->mtu, 1500u);
    EXPECT_EQ(dev->type, 18);
    EXPECT_EQ(dev->hard_header_len, 92); // 64 + 36 - 8
    EXPECT_EQ(dev->addr_len, 12);
    EXPECT_EQ(dev->destructor, nullptr);
}

TEST_F(InterfaceCreateTest, the_header_length_follows_the_stack_in_16_bits)
{
    const struct {
        int reserve;
        int trailer;
        unsigned length;
    } rows[] = {{0, 0, 36}, {128, 4, 160}, {8, 40, 4}, {0, 40, 65532}, {65536, 0, 36}};
    vsan_id_t vsan = 1;
    for (const auto& row : rows) {
        platform().header_reserve = row.reserve;
        platform().trailer_length = row.trailer;
        ASSERT_EQ(ipfc_create_vsan_interface(vsan, PORT_NAME, NODE_NAME), 0);
        EXPECT_EQ(vsan_interfaces[vsan]->hard_header_len, row.length);
        ++vsan;
    }
}

TEST_F(InterfaceCreateTest, the_private_area_is_all_zero_but_for_vsan_and_names)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    kvsan_interface_priv_t priv;
    memcpy(&priv, ipfc_priv(vsan_interfaces[10]), sizeof priv);
    EXPECT_EQ(priv.vsan_id, 10);
    EXPECT_EQ(bytes_of(priv.ww_portname),
              (twin::Bytes{0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07}));
    EXPECT_EQ(bytes_of(priv.ww_nodename),
              (twin::Bytes{0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08}));
    priv.vsan_id = 0;
    priv.ww_portname = {};
    priv.ww_nodename = {};
    memset(&priv.hash_lock, 0, sizeof priv.hash_lock);
    EXPECT_EQ(bytes_of(priv), twin::Bytes(sizeof priv));
}

TEST_F(InterfaceCreateTest, the_hardware_address_is_the_port_name_with_no_fcid)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    const unsigned char* const address = vsan_interfaces[10]->dev_addr;
    EXPECT_EQ(twin::Bytes(address, address + 12),
              (twin::Bytes{0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0, 0, 0, 0}));
}

TEST_F(InterfaceCreateTest, making_the_address_clears_an_earlier_fcid)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    ipfc_dev_create_mac(dev, PEER_NAME);
    EXPECT_EQ(twin::Bytes(dev->dev_addr, dev->dev_addr + 12),
              (twin::Bytes{0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01, 0, 0, 0, 0}));
    EXPECT_EQ(take_messages(), Texts{"101 ipfc_dev_create_mac wwn: 0x1eeddccbbaa0010 \n"});
}

TEST_F(InterfaceCreateTest, the_broadcast_address_is_the_broadcast_name_and_fcid)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    const unsigned char* const address = vsan_interfaces[10]->broadcast;
    EXPECT_EQ(
        twin::Bytes(address, address + 12),
        (twin::Bytes{0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF, 0xFF}));
}

TEST_F(InterfaceCreateTest, the_lock_of_a_new_interface_can_be_taken)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    rwlock_t* const lock = &ipfc_priv(vsan_interfaces[10])->hash_lock;
    twin::name_lock(lock, "hash_lock");
    twin::journal().clear();
    write_lock_bh(lock);
    write_unlock_bh(lock);
    EXPECT_EQ(happened_with_locks(),
              (Texts{"write_lock_bh hash_lock", "write_unlock_bh hash_lock"}));
}

TEST_F(InterfaceCreateTest, the_proc_entry_reports_the_new_interface)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(twin::proc_read("brim_sw/ipfc/vsan10").substr(0, 23), "\nVSAN Interface   10 :\n");
    EXPECT_EQ(twin::proc_mode("brim_sw/ipfc/vsan10"), 0444u);
}

TEST_F(InterfaceCreateTest, a_created_interface_registers_no_n_port)
{
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_TRUE(platform().options.empty());
    EXPECT_EQ(ipfc_priv(vsan_interfaces[10])->fcid.num, 0u);
}

} // namespace
