// SPDX-License-Identifier: GPL-2.0-only
// Start-up and shutdown that succeed: the order of their effects, and what is there in between.
#include "support/control.h"

#include <algorithm>

namespace {

using twin::Source;

class LoadOrderTest : public UnloadedModuleTest {
protected:
    static void load_with_major(int number)
    {
        ASSERT_EQ(ipfc_module().load([number] { major = number; }), 0);
    }

    // Names of the spin locks that were taken, in order, from one text of the journal to another.
    static Texts spin_locks_between(const std::string& from, const std::string& to)
    {
        Texts result;
        bool inside = false;
        for (const twin::Event& event : twin::journal().events()) {
            if (event.text == from || event.text == to)
                inside = event.text == from;
            else if (inside && event.text.starts_with("spin_lock_irqsave "))
                result.push_back(event.text.substr(18));
        }
        return result;
    }
};

TEST_F(LoadOrderTest, start_up_creates_everything_in_its_order)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    EXPECT_EQ(twin::journal().texts(), (Texts{
                                           "register_chrdev 0 ipfc = 254",
                                           "kmem_cache_create ipfc_mapping_cache",
                                           "kmem_cache_create exchange_cache",
                                           "kfc2_sock_create 0 = 0",
                                           "kfc2_sock_bind 128 = 0",
                                           "mip_register_opt = 0",
                                           "proc_mkdir brim_sw/ipfc",
                                           "create_proc_entry brim_sw/ipfc/statistics",
                                           "dbgtap_dbg_init ipfc",
                                           "kmem_cache_create ivrip_slab",
                                           "create_proc_entry brim_sw/ipfc/ivrip_list",
                                           "<6>Vombrel Ipfc ver 0.02 started\n",
                                       }));
}

TEST_F(LoadOrderTest, shutdown_deletes_interfaces_by_number_and_then_everything_in_its_order)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    ASSERT_EQ(ipfc_create_vsan_interface(4095, PORT_NAME, NODE_NAME), 0);
    ASSERT_EQ(ipfc_create_vsan_interface(3, PORT_NAME, NODE_NAME), 0);
    forget_so_far();
    ipfc_module().unload();
    EXPECT_EQ(twin::journal().texts(),
              (Texts{
                  "101 ipfc_delete_vsan_interface: Removing ALL secondary IPFC interfaces on "
                  "VSAN 3\n",
                  "101 Removing interface 3\n",
                  "rtnl_lock",
                  "remove_proc_entry brim_sw/ipfc/vsan3",
                  "rtnl_unlock",
                  "rtnl_lock",
                  "unregister_netdevice vsan3",
                  "rtnl_unlock",
                  "101 ipfc_delete_vsan_interface: Removing ALL secondary IPFC interfaces on "
                  "VSAN 4095\n",
                  "101 Removing interface 4095\n",
                  "rtnl_lock",
                  "remove_proc_entry brim_sw/ipfc/vsan4095",
                  "rtnl_unlock",
                  "rtnl_lock",
                  "unregister_netdevice vsan4095",
                  "rtnl_unlock",
                  "unregister_chrdev 254 ipfc",
                  "kmem_cache_destroy ipfc_mapping_cache",
                  "kmem_cache_destroy exchange_cache",
                  "kfc2_sock_close",
                  "remove_proc_entry brim_sw/ipfc/statistics",
                  "remove_proc_entry brim_sw/ipfc",
                  "mip_unregister_opt",
                  "dbgtap_dbg_close",
                  "kmem_cache_destroy ivrip_slab",
                  "<6>Vombrel Ipfc ver 0.02a terminated\n",
              }));
}

TEST_F(LoadOrderTest, shutdown_clears_the_requests_before_the_packets_behind_the_proc_directory)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    twin::journal().add(Source::test, "poll");
    ipfc_chr_poll(nullptr, nullptr); // takes the lock of the requests alone
    const Texts of_requests = spin_locks_between("poll", "unregister_chrdev 254 ipfc");
    ASSERT_EQ(of_requests.size(), 1u);
    ipfc_module().unload();
    Texts taken = spin_locks_between("remove_proc_entry brim_sw/ipfc", "mip_unregister_opt");
    taken.erase(std::unique(taken.begin(), taken.end()), taken.end());
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0], of_requests[0]);
    EXPECT_NE(taken[1], of_requests[0]);
}

TEST_F(LoadOrderTest, shutdown_frees_requests_and_packets_that_nobody_answered)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(ipfc_chr_request_mapping(5, PEER_NAME, twin::make_skb(twin::Bytes(40))), 0);
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 6u);
    EXPECT_EQ(skb_list_lenght, 3);
    ipfc_module().unload();
    EXPECT_EQ(skb_list_lenght, 0);
    EXPECT_EQ(twin::heap().live(twin::Kind::kmalloc), 0u);
    EXPECT_EQ(twin::heap().live(twin::Kind::skb), 0u);
}

TEST_F(LoadOrderTest, major_zero_makes_the_kernel_choose_and_major_holds_the_number)
{
    twin::take_major(254);
    load_with_major(0);
    EXPECT_EQ(major, 253);
    EXPECT_EQ(twin::find_char_device("ipfc")->major, 253u);
    twin::journal().clear();
    ipfc_module().unload();
    EXPECT_EQ(twin::journal().texts({Source::chrdev}), Texts{"unregister_chrdev 253 ipfc"});
}

TEST_F(LoadOrderTest, a_given_major_number_is_used_and_kept)
{
    load_with_major(200);
    EXPECT_EQ(major, 200);
    EXPECT_EQ(twin::find_char_device("ipfc")->major, 200u);
    twin::journal().clear();
    ipfc_module().unload();
    EXPECT_EQ(twin::journal().texts({Source::chrdev}), Texts{"unregister_chrdev 200 ipfc"});
}

TEST_F(LoadOrderTest, the_device_has_the_modules_operations)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    const file_operations* const operations = twin::find_char_device("ipfc")->operations;
    EXPECT_EQ(operations, &ipfc_fops);
    EXPECT_EQ(operations->read, &ipfc_chr_read);
    EXPECT_EQ(operations->write, &ipfc_chr_write);
    EXPECT_EQ(operations->poll, &ipfc_chr_poll);
    EXPECT_EQ(operations->ioctl, &ipfc_chr_ioctl);
    EXPECT_EQ(operations->compat_ioctl, &ipfc_compat_chr_ioctl);
    EXPECT_EQ(operations->open, &ipfc_chr_open);
    EXPECT_EQ(operations->release, &ipfc_chr_close);
}

TEST_F(LoadOrderTest, the_two_caches_hold_one_node_each_and_are_aligned_to_cache_lines)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    int found = 0;
    for (const twin::SlabCache& cache : twin::slab_caches()) {
        if (cache.name == "ivrip_slab")
            continue;
        ++found;
        EXPECT_EQ(cache.size, cache.name == "exchange_cache" ? sizeof(fc2_exch_status_t)
                                                             : sizeof(kpn_to_fcid_t));
        EXPECT_EQ(cache.align, 0u) << cache.name;
        EXPECT_EQ(cache.flags, 0x2000ul) << cache.name;
        EXPECT_FALSE(cache.has_constructor) << cache.name;
    }
    EXPECT_EQ(found, 2);
}

TEST_F(LoadOrderTest, the_socket_is_bound_by_the_record_byte_for_byte)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    ASSERT_EQ(platform().binds.size(), 1u);
    twin::Bytes expected = {
        25,   0,    0xFF, 0xFF,                         // family, VSAN
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, // source interface and mask
        0x00, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF, 0xFF, // destination and mask
        5,    3,    2,    3,                            // type, rule, size and number of values
        0x14, 0x00, 22,   0,                            // flags, offset of the ethertype
        0x08, 0x00, 0x08, 0x06, 0x86, 0xDD,             // IPv4, ARP, IPv6
    };
    expected.resize(128);
    EXPECT_EQ(bytes_of(platform().binds[0]), expected);
}

TEST_F(LoadOrderTest, a_bind_result_above_zero_is_no_failure)
{
    platform().bind_result = 3;
    EXPECT_EQ(ipfc_module().load(), 0);
}

TEST_F(LoadOrderTest, the_socket_calls_the_module_when_an_information_unit_has_arrived)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    forget_so_far();
    ASSERT_TRUE(platform().deliver({.bytes = twin::Bytes(60)}));
    const Texts calls = twin::journal().texts({Source::platform});
    EXPECT_EQ(calls, (Texts{"data_ready 60", "kfc2_recvskb = 60"}));
}

TEST_F(LoadOrderTest, start_up_zeroes_the_tables_of_all_vsans)
{
    ASSERT_EQ(ipfc_module().load([] {
        for (int i = 0; i < 4096; ++i) {
            kdbg_flags[i] = -1;
            vsan_interfaces[i] = reinterpret_cast<net_device*>(0x8);
        }
    }),
              0);
    EXPECT_TRUE(std::all_of(kdbg_flags, kdbg_flags + 4096, [](int flags) { return flags == 0; }));
    EXPECT_TRUE(std::all_of(vsan_interfaces, vsan_interfaces + 4096,
                            [](const net_device* dev) { return dev == nullptr; }));
}

TEST_F(LoadOrderTest, the_secondary_ip_service_gets_both_callbacks_for_interface_type_8)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    ASSERT_TRUE(platform().mip_callbacks);
    EXPECT_EQ(platform().mip_callbacks->opt_add_ip, &ipfc_mip_add_ip);
    EXPECT_EQ(platform().mip_callbacks->opt_del_ip, &ipfc_mip_del_ip);
    EXPECT_EQ(platform().mip_callbacks->opt_intf_type, 8);
}

TEST_F(LoadOrderTest, the_two_debug_elements_are_errors_and_events)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    EXPECT_EQ(platform().module_name, "ipfc");
    EXPECT_EQ(platform().module_description, "ipfc kernel debug");
    EXPECT_EQ(platform().element_descriptions, (Texts{"errors", "events"}));
    EXPECT_TRUE(platform().elements.contains(100));
    EXPECT_TRUE(platform().elements.contains(101));
}

TEST_F(LoadOrderTest, cleaning_up_without_interfaces_does_nothing_and_returns_0)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    forget_so_far();
    EXPECT_EQ(ipfc_fast_clean_up(), 0);
    EXPECT_EQ(twin::journal().events().size(), 0u);
}

TEST_F(LoadOrderTest, cleaning_up_deletes_every_interface_and_nothing_else)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    for (const vsan_id_t vsan : {4095, 0, 100})
        ASSERT_EQ(ipfc_create_vsan_interface(vsan, PORT_NAME, NODE_NAME), 0);
    forget_so_far();
    EXPECT_EQ(ipfc_fast_clean_up(), 0);
    EXPECT_EQ(twin::journal().texts({Source::netdev, Source::chrdev, Source::slab}),
              (Texts{"unregister_netdevice vsan0", "unregister_netdevice vsan100",
                     "unregister_netdevice vsan4095"}));
    EXPECT_EQ(vsan_interfaces[0], nullptr);
    EXPECT_EQ(vsan_interfaces[100], nullptr);
    EXPECT_EQ(vsan_interfaces[4095], nullptr);
    EXPECT_EQ(platform().open_sockets, 1);
    EXPECT_EQ(ipfc_create_vsan_interface(100, PORT_NAME, NODE_NAME), 0);
    EXPECT_NE(vsan_interfaces[100], nullptr);
}

TEST_F(LoadOrderTest, an_information_unit_after_cleaning_up_finds_no_interface_and_harms_nothing)
{
    ASSERT_EQ(ipfc_module().load(), 0);
    ASSERT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
    ASSERT_EQ(ipfc_fast_clean_up(), 0);
    fc2_iuhdr_t header{};
    header.opcode = FC2_SEQUENCE;
    header.vsan = 10;
    ASSERT_TRUE(platform().deliver({.header = header, .bytes = twin::Bytes(60)}));
    EXPECT_EQ(twin::delivered_count(), 0u);
}

} // namespace
