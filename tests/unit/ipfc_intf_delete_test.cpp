// SPDX-License-Identifier: GPL-2.0-only
// Deletion of VSAN interfaces: what is refused, the order of effects, and racing deletions.
#include "support/control.h"

#include <algorithm>
#include <functional>
#include <thread>

// The linker sends the module's calls of remove_proc_entry here (see the test program's link
// options): deletion makes one just before it empties the slot.
static std::function<void(const char* name)> on_proc_removal;

extern "C" void __real_kapi_remove_proc_entry(const char* name, proc_dir_entry* parent);
extern "C" void __wrap_kapi_remove_proc_entry(const char* name, proc_dir_entry* parent)
{
    if (on_proc_removal)
        on_proc_removal(name);
    __real_kapi_remove_proc_entry(name, parent);
}

namespace {

using twin::Source;

class InterfaceDeleteTest : public ControlTest {
protected:
    static void expect_removal_option(const SocketOption& option, vsan_id_t vsan, fcid_t fcid)
    {
        EXPECT_EQ(option.level, 267);
        EXPECT_EQ(option.option, 2);
        EXPECT_EQ(option.length, 136);
        twin::Bytes expected(136);
        expected[2] = static_cast<std::uint8_t>(vsan);
        expected[3] = static_cast<std::uint8_t>(vsan >> 8);
        std::copy(fcid.str, fcid.str + 4, expected.begin() + 4);
        const std::uint8_t mask[] = {0x00, 0xFF, 0xFF, 0xFF};
        std::copy(mask, mask + 4, expected.begin() + 8);
        EXPECT_EQ(bytes_of(option.value), expected);
    }
};

TEST_F(InterfaceDeleteTest, vsan_4096_and_minus_1_give_minus_22_with_the_message)
{
    for (const vsan_id_t vsan : {4096, -1, -4096}) {
        EXPECT_EQ(ipfc_delete_vsan_interface(vsan), -22);
        EXPECT_EQ(take_messages(), Texts{"100 VSAN number not valid\n"});
    }
}

TEST_F(InterfaceDeleteTest, deleting_an_absent_vsan_returns_0)
{
    EXPECT_EQ(ipfc_delete_vsan_interface(4095), 0);
    EXPECT_EQ(happened(), Texts{"100 VSAN interface 4095 not active\n"});
    make_interface(10);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    forget_so_far();
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(happened(), Texts{"100 VSAN interface 10 not active\n"});
}

TEST_F(InterfaceDeleteTest, deletion_has_its_effects_in_order)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{
                  "101 ipfc_delete_vsan_interface: Removing ALL secondary IPFC interfaces on "
                  "VSAN 10\n",
                  "101 Removing interface 10\n",
                  "rtnl_lock",
                  "remove_proc_entry brim_sw/ipfc/vsan10",
                  "rtnl_unlock",
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
                  "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0xf0e0d00 \n",
                  "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0xf0e0d00 \n",
                  "kfc2_send_logo vsan 10 0a0b0c to 0d0e0f",
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
                  "kfc2_setsockopt RM_NPORT vsan 10 0a0b0c",
                  "rtnl_lock",
                  "unregister_netdevice vsan10",
                  "rtnl_unlock",
              }));
    EXPECT_EQ(vsan_interfaces[10], nullptr);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
    ASSERT_EQ(platform().logos.size(), 1u);
    const SentLogo& logo = platform().logos[0];
    EXPECT_EQ(logo.arg1, 3);
    EXPECT_EQ(logo.arg2, 20);
    EXPECT_EQ(logo.arg3, 0);
    EXPECT_EQ(logo.arg4, 0xFFFFFFFFu);
    EXPECT_EQ(logo.locks, 0);
}

TEST_F(InterfaceDeleteTest, the_report_goes_and_the_slot_is_emptied_under_the_networks_lock)
{
    net_device* const dev = make_interface(10);
    int removals = 0;
    on_proc_removal = [&](const char* name) {
        ++removals;
        EXPECT_STREQ(name, "vsan10");
        EXPECT_TRUE(twin::context().rtnl);
        EXPECT_EQ(vsan_interfaces[10], dev) << "the report goes first";
    };
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    on_proc_removal = {};
    EXPECT_EQ(removals, 1);
}

TEST_F(InterfaceDeleteTest, nobody_finds_the_interface_any_more_when_its_exchanges_end)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    int calls = 0;
    platform().on_logo = [&](const SentLogo&) {
        ++calls;
        EXPECT_EQ(vsan_interfaces[10], nullptr);
        EXPECT_TRUE(twin::is_registered(dev));
    };
    platform().on_option = [&](const SocketOption&) {
        ++calls;
        EXPECT_EQ(num_mapping_obj, 0);
        EXPECT_TRUE(twin::is_registered(dev));
    };
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    platform().on_logo = {};
    platform().on_option = {};
    EXPECT_EQ(calls, 2);
}

TEST_F(InterfaceDeleteTest, the_n_port_is_removed_by_a_record_with_three_fields)
{
    make_interface(0x123, OWN_FCID);
    EXPECT_EQ(ipfc_delete_vsan_interface(0x123), 0);
    ASSERT_EQ(platform().options.size(), 1u);
    expect_removal_option(platform().options[0], 0x123, OWN_FCID);
}

TEST_F(InterfaceDeleteTest, without_an_fcid_no_n_port_is_removed)
{
    make_interface(10);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_TRUE(platform().options.empty());
}

TEST_F(InterfaceDeleteTest, deletion_goes_on_when_the_n_port_cannot_be_removed)
{
    for (const int refusal : {-5, 7}) {
        net_device* const dev = make_interface(10, OWN_FCID);
        platform().option_results = {refusal};
        EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
        EXPECT_EQ(happened(),
                  (Texts{
                      "101 ipfc_delete_vsan_interface: Removing ALL secondary IPFC interfaces on "
                      "VSAN 10\n",
                      "101 Removing interface 10\n",
                      "rtnl_lock",
                      "remove_proc_entry brim_sw/ipfc/vsan10",
                      "rtnl_unlock",
                      "kfc2_setsockopt RM_NPORT vsan 10 0a0b0c",
                      "100 Delete intf - Failed to unregister the N_port for VSAN 10\n",
                      "rtnl_lock",
                      "unregister_netdevice vsan10",
                      "rtnl_unlock",
                  }));
        EXPECT_FALSE(twin::is_registered(dev));
        EXPECT_EQ(vsan_interfaces[10], nullptr);
    }
}

TEST_F(InterfaceDeleteTest, the_deleted_device_is_not_freed_before_the_module_goes)
{
    make_interface(10);
    make_interface(11);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(ipfc_delete_vsan_interface(11), 0);
    EXPECT_EQ(twin::heap().live(twin::Kind::netdev), 2u);
    EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    EXPECT_EQ(twin::heap().live(twin::Kind::netdev), 3u);
    ipfc_module().unload();
    EXPECT_EQ(twin::heap().live(twin::Kind::netdev), 0u);
}

TEST_F(InterfaceDeleteTest, deletion_takes_the_report_away)
{
    make_interface(10);
    EXPECT_TRUE(twin::proc_exists("brim_sw/ipfc/vsan10"));
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_FALSE(twin::proc_exists("brim_sw/ipfc/vsan10"));
}

TEST_F(InterfaceDeleteTest, a_second_deletion_that_waited_for_the_lock_finds_the_slot_empty)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    rtnl_lock();
    twin::journal().clear();
    twin::Process second([] { return ipfc_delete_vsan_interface(10); });
    // It has looked at the slot once it says that it removes the interface.
    const auto has_begun = [] {
        const Texts texts = twin::journal().texts({Source::message});
        return std::find(texts.begin(), texts.end(), "101 Removing interface 10\n") != texts.end();
    };
    while (!has_begun() && !second.finished())
        std::this_thread::yield();
    vsan_interfaces[10] = nullptr; // what a faster deletion does
    rtnl_unlock();
    EXPECT_EQ(second.result(), 0);
    EXPECT_EQ(happened(), (Texts{
                              "101 ipfc_delete_vsan_interface: Removing ALL secondary IPFC "
                              "interfaces on VSAN 10\n",
                              "101 Removing interface 10\n",
                              "rtnl_unlock",
                              "rtnl_lock",
                              "rtnl_unlock",
                          }));
    EXPECT_TRUE(twin::is_registered(dev));
    vsan_interfaces[10] = dev;
}

TEST_F(InterfaceDeleteTest, two_deletions_at_once_remove_the_interface_once)
{
    for (int round = 0; round < 20; ++round) {
        make_interface(10, OWN_FCID);
        rtnl_lock();
        twin::Process first([] { return ipfc_delete_vsan_interface(10); });
        twin::Process second([] { return ipfc_delete_vsan_interface(10); });
        const auto removing = [] {
            const Texts texts = twin::journal().texts({Source::message});
            return std::count(texts.begin(), texts.end(), "101 Removing interface 10\n");
        };
        while (removing() < 2)
            std::this_thread::yield();
        rtnl_unlock();
        EXPECT_EQ(first.result(), 0);
        EXPECT_EQ(second.result(), 0);
        EXPECT_EQ(twin::journal().texts({Source::netdev}), Texts{"unregister_netdevice vsan10"});
        EXPECT_EQ(platform().options.size(), 1u);
    }
}

TEST_F(InterfaceDeleteTest, a_mapping_that_a_late_sender_enters_does_not_leak)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    // Going down happens inside the unregistration, after the table was cleared.
    dev->stop = [](net_device* stopping) {
        put_mapping(stopping, PEER_NAME, PEER_FCID, /*open=*/true);
        return 0;
    };
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(InterfaceDeleteTest, a_deleted_vsan_can_be_created_again_with_other_names)
{
    make_interface(10, OWN_FCID);
    EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    EXPECT_EQ(ipfc_create_vsan_interface(10, PEER_NAME, OTHER_NAME), 0);
    const kvsan_interface_priv_t* const priv = ipfc_priv(vsan_interfaces[10]);
    EXPECT_EQ(priv->ww_portname.num, PEER_NAME.num);
    EXPECT_EQ(priv->ww_nodename.num, OTHER_NAME.num);
    EXPECT_EQ(priv->fcid.num, 0u);
    EXPECT_TRUE(twin::is_registered(vsan_interfaces[10]));
}

using InterfaceMemoryTest = UnloadedModuleTest;

TEST_F(InterfaceMemoryTest, creation_update_and_deletion_survive_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        if (ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME) != 0)
            return;
        ipfc_update_vsan_interface(10, OWN_FCID, 1, IPFC_UPD_INTF_SET_FCID);
        user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID);
        user_add_pn_to_fcid_mapping(10, OTHER_NAME, PEER_FCID);
        ipfc_update_vsan_interface(10, NO_FCID, 0, IPFC_UPD_INTF_REM_FCID);
        user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID);
        ipfc_delete_vsan_interface(10);
        ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME);
    });
    EXPECT_GT(total.allocations, 10u);
}

} // namespace
