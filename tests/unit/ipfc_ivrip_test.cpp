// SPDX-License-Identifier: GPL-2.0-only
// The table of hosts that are reached across VSANs: commands, keys, the flat list, start and end.
#include "support/interface_test.h"

#include "ivr_ip.h"

#include <memory>

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

constexpr unsigned add_command = 0x4014500C;
constexpr unsigned delete_command = 0x4014500D;

// A number as a command carries it: network order.
vsan_id_t network(std::uint32_t value)
{
    return static_cast<vsan_id_t>(__builtin_bswap32(value));
}

// The table from its head: "IP WWN FCID VSAN", each as the bytes that are stored.
Lines hosts()
{
    Lines lines;
    for (const list_head* link = ivrip_list_head.next; link != &ivrip_list_head;
         link = link->next) {
        const auto* const entry = reinterpret_cast<const ivrip_entry_t*>(
            reinterpret_cast<const char*>(link) - offsetof(ivrip_entry_t, next));
        const auto raw = [](const auto& field) {
            return hex(std::span(reinterpret_cast<const std::uint8_t*>(&field), sizeof field));
        };
        lines.push_back(raw(entry->ip_addr) + " | " + text_of(entry->pwwn) + " | " +
                        raw(entry->fcid) + " | " + raw(entry->vsan));
        EXPECT_EQ(link->next->prev, link);
    }
    return lines;
}

class IvripTest : public ModuleTest {
protected:
    // The 20 bytes of a record: address, name, FCID, VSAN.
    static int command(unsigned cmd, const char* record)
    {
        const UserMemory user(bytes(record), UserMemory::Access::read_only);
        EXPECT_EQ(user.size(), 20u);
        return ivrip_process_ioctl(cmd, user.argument());
    }
};

const char* const record = "0a 01 02 03 21 00 00 e0 8b 01 02 03 00 0a 0b 0c 00 00 00 05";

TEST_F(IvripTest, an_added_host_is_kept_exactly_as_the_command_carried_it)
{
    EXPECT_EQ(command(add_command, record), 0);
    EXPECT_EQ(hosts(),
              (Lines{"0a 01 02 03 | 21:00:00:e0:8b:01:02:03 | 00 0a 0b 0c | 00 00 00 05"}));
    EXPECT_EQ(journal().texts({Source::message}), Lines{});
}

TEST_F(IvripTest, adding_the_same_fcid_and_vsan_twice_keeps_one_entry_with_the_second_calls_values)
{
    EXPECT_EQ(command(add_command, record), 0);
    EXPECT_EQ(command(add_command, "c0 a8 00 01 10 00 00 00 00 00 00 01 00 0a 0b 0c 00 00 00 05"),
              0);
    EXPECT_EQ(hosts(),
              (Lines{"c0 a8 00 01 | 10:00:00:00:00:00:00:01 | 00 0a 0b 0c | 00 00 00 05"}));
}

TEST_F(IvripTest, the_same_fcid_in_another_vsan_and_another_fcid_in_the_same_are_distinct)
{
    EXPECT_EQ(command(add_command, record), 0);
    EXPECT_EQ(command(add_command, "0a 01 02 03 21 00 00 e0 8b 01 02 03 00 0a 0b 0c 00 00 00 06"),
              0);
    EXPECT_EQ(command(add_command, "0a 01 02 03 21 00 00 e0 8b 01 02 03 01 0a 0b 0c 00 00 00 05"),
              0);
    EXPECT_EQ(hosts(), (Lines{"0a 01 02 03 | 21:00:00:e0:8b:01:02:03 | 01 0a 0b 0c | 00 00 00 05",
                              "0a 01 02 03 | 21:00:00:e0:8b:01:02:03 | 00 0a 0b 0c | 00 00 00 06",
                              "0a 01 02 03 | 21:00:00:e0:8b:01:02:03 | 00 0a 0b 0c | 00 00 00 05"}))
        << "newest first";
}

TEST_F(IvripTest, an_update_keeps_the_entrys_place)
{
    for (std::uint32_t i = 1; i <= 3; ++i)
        EXPECT_EQ(ivrip_add_entry(i, peer_port, fcid(i), network(5)), 0);
    EXPECT_EQ(ivrip_add_entry(99, own_port, fcid(2), network(5)), 0);
    EXPECT_EQ(hosts(),
              (Lines{"03 00 00 00 | 10:00:00:5e:bf:0a:0b:01 | 00 00 00 03 | 00 00 00 05",
                     "63 00 00 00 | 20:00:00:5e:bf:01:02:03 | 00 00 00 02 | 00 00 00 05",
                     "01 00 00 00 | 10:00:00:5e:bf:0a:0b:01 | 00 00 00 01 | 00 00 00 05"}));
}

TEST_F(IvripTest, deleting_matches_on_fcid_and_vsan_only)
{
    EXPECT_EQ(command(add_command, record), 0);
    EXPECT_EQ(
        command(delete_command, "0a 01 02 03 21 00 00 e0 8b 01 02 03 00 0a 0b 0d 00 00 00 05"), 0);
    EXPECT_EQ(
        command(delete_command, "0a 01 02 03 21 00 00 e0 8b 01 02 03 00 0a 0b 0c 00 00 00 06"), 0);
    EXPECT_EQ(hosts().size(), 1u);
    EXPECT_EQ(
        command(delete_command, "ff ff ff ff ff ff ff ff ff ff ff ff 00 0a 0b 0c 00 00 00 05"), 0)
        << "address and name have no effect";
    EXPECT_EQ(hosts(), Lines{});
}

TEST_F(IvripTest, deleting_an_absent_entry_is_no_error)
{
    EXPECT_EQ(command(delete_command, record), 0);
    EXPECT_EQ(hosts(), Lines{});
}

TEST_F(IvripTest, entries_go_from_the_head_the_middle_and_the_tail)
{
    for (std::uint32_t gone = 1; gone <= 3; ++gone) {
        for (std::uint32_t i = 1; i <= 3; ++i)
            ivrip_add_entry(i, peer_port, fcid(i), 0);
        EXPECT_EQ(ivrip_del_entry(fcid(gone), 0), 0);
        const Lines left = hosts();
        ASSERT_EQ(left.size(), 2u);
        EXPECT_EQ(left[0].substr(0, 2), gone == 3 ? "02" : "03");
        EXPECT_EQ(left[1].substr(0, 2), gone == 1 ? "02" : "01");
        for (std::uint32_t i = 1; i <= 3; ++i)
            ivrip_del_entry(fcid(i), 0);
    }
}

// ---- commands ----

TEST_F(IvripTest, a_record_that_cannot_be_copied_in_gives_minus_14)
{
    const UserMemory user(19);
    for (const unsigned cmd : {add_command, delete_command}) {
        EXPECT_EQ(ivrip_process_ioctl(cmd, user.argument()), -14) << "the last byte is missing";
        EXPECT_EQ(ivrip_process_ioctl(cmd, 0), -14);
        EXPECT_EQ(ivrip_process_ioctl(cmd, 0xFFFFFFFFFFFFFFF0), -14);
    }
    EXPECT_EQ(hosts(), Lines{});
}

TEST_F(IvripTest, an_unknown_command_gives_minus_25_and_reads_nothing)
{
    const UserMemory user(bytes(record));
    for (const unsigned cmd :
         {0u, 0x4014500Bu, 0x4014500Eu, 0x4015500Cu, 0x8014500Cu, 0xC014500Du, 0x4014510Cu})
        EXPECT_EQ(ivrip_process_ioctl(cmd, user.argument()), -25);
    EXPECT_EQ(ivrip_process_ioctl(0, 0), -25);
    EXPECT_EQ(user_copies().from_user, 0u);
    EXPECT_EQ(user_copies().faults, 0u);
    EXPECT_EQ(hosts(), Lines{});
}

TEST_F(IvripTest, the_control_device_carries_both_commands)
{
    CharFile device("ipfc");
    ASSERT_EQ(device.error(), 0);
    const UserMemory user(bytes(record));
    EXPECT_EQ(device.ioctl(add_command, user.argument()), 0);
    EXPECT_EQ(hosts().size(), 1u);
    EXPECT_EQ(device.ioctl(delete_command, user.argument()), 0);
    EXPECT_EQ(hosts(), Lines{});
}

TEST_F(IvripTest, no_memory_for_a_new_entry_gives_minus_12_and_leaves_the_table_unchanged)
{
    EXPECT_EQ(command(add_command, record), 0);
    heap().fail_from(Kind::object, 1);
    EXPECT_EQ(command(add_command, "0a 01 02 04 21 00 00 e0 8b 01 02 04 00 0a 0b 0d 00 00 00 05"),
              -12);
    EXPECT_EQ(hosts().size(), 1u);
    EXPECT_EQ(command(add_command, "0a 01 02 04 21 00 00 e0 8b 01 02 04 00 0a 0b 0c 00 00 00 05"),
              0)
        << "an update needs none";
    EXPECT_EQ(hosts(),
              (Lines{"0a 01 02 04 | 21:00:00:e0:8b:01:02:04 | 00 0a 0b 0c | 00 00 00 05"}));
}

// ---- lock ----

TEST_F(IvripTest, every_operation_holds_the_tables_lock_once_with_interrupts_off)
{
    name_lock(&ivrip_list_lock, "ivrip_list_lock");
    const Lines once{"spin_lock_irqsave ivrip_list_lock", "spin_unlock_irqrestore ivrip_list_lock"};
    const auto list = std::make_unique<ivrip_fcid_list_t>();
    const std::function<void()> operations[] = {
        [] { ivrip_add_entry(1, peer_port, fcid(1), 0); },
        [] { ivrip_add_entry(2, peer_port, fcid(1), 0); },
        [&] { ivrip_get_did_list(list.get()); },
        [] { proc_read_at("brim_sw/ipfc/ivrip_list", 0, 1); },
        [] { ivrip_del_entry(fcid(1), 0); },
        [] { ivrip_del_entry(fcid(1), 0); },
    };
    for (const auto& operation : operations) {
        journal().clear();
        operation();
        EXPECT_EQ(journal().texts({Source::lock}), once);
        EXPECT_FALSE(context().irqs_off);
    }
    heap().fail_from(Kind::object, 1);
    journal().clear();
    EXPECT_EQ(ivrip_add_entry(1, peer_port, fcid(1), 0), -12);
    EXPECT_EQ(journal().texts({Source::lock}), once);
}

TEST_F(IvripTest, a_new_entry_is_a_sleeping_allocation_under_the_lock)
{
    EXPECT_EQ(heap().served_atomically().size(), 0u);
    ivrip_add_entry(1, peer_port, fcid(1), 0);
    EXPECT_EQ(heap().served_atomically().size(), 1u) << "GFP_KERNEL, served from the atomic pools";
}

TEST_F(IvripTest, interrupts_that_were_off_stay_off)
{
    const IrqsOffScope off;
    ivrip_add_entry(1, peer_port, fcid(1), 0);
    EXPECT_TRUE(context().irqs_off);
    ivrip_del_entry(fcid(1), 0);
    EXPECT_TRUE(context().irqs_off);
}

// ---- the flat list ----

TEST_F(IvripTest, the_flat_list_has_the_entries_as_stored_newest_first)
{
    EXPECT_EQ(command(add_command, record), 0);
    EXPECT_EQ(command(add_command, "0a 01 02 04 10 00 00 00 00 00 00 01 00 01 02 03 00 00 01 00"),
              0);
    const auto list = std::make_unique<ivrip_fcid_list_t>();
    std::memset(list.get(), 0xEE, sizeof *list);
    EXPECT_EQ(ivrip_get_did_list(list.get()), 0);
    EXPECT_EQ(list->num_entries, 2);
    EXPECT_EQ(hex(std::span(reinterpret_cast<const std::uint8_t*>(list->did_list), 36)),
              "00 01 02 03 00 00 01 00 10 00 00 00 00 00 00 01 "
              "00 0a 0b 0c 00 00 00 05 21 00 00 e0 8b 01 02 03 "
              "ee ee ee ee");
}

TEST_F(IvripTest, the_flat_list_of_an_empty_table_has_no_entries)
{
    const auto list = std::make_unique<ivrip_fcid_list_t>();
    list->num_entries = 77;
    EXPECT_EQ(ivrip_get_did_list(list.get()), 0);
    EXPECT_EQ(list->num_entries, 0);
}

TEST_F(IvripTest, the_flat_list_holds_255_entries)
{
    for (std::uint32_t i = 0; i < 255; ++i)
        ivrip_add_entry(i, peer_port, fcid(i), 0);
    const auto list = std::make_unique<ivrip_fcid_list_t>();
    EXPECT_EQ(ivrip_get_did_list(list.get()), 0);
    EXPECT_EQ(list->num_entries, 255);
    EXPECT_EQ(text_of(list->did_list[254].d_id), "000000");
    EXPECT_EQ(text_of(list->did_list[0].d_id), "0000fe");
}

TEST_F(IvripTest, the_flat_list_does_not_stop_at_255_entries)
{
    for (std::uint32_t i = 0; i < 260; ++i)
        ivrip_add_entry(i, peer_port, fcid(i), network(5));
    // A caller with room for more than the record holds.
    constexpr std::size_t slots = offsetof(ivrip_fcid_list_t, did_list);
    const auto room = std::make_unique<std::uint8_t[]>(slots + 261 * 16);
    std::memset(room.get(), 0xEE, slots + 261 * 16);
    EXPECT_EQ(ivrip_get_did_list(reinterpret_cast<ivrip_fcid_list_t*>(room.get())), 0);
    EXPECT_EQ(hex(std::span(room.get(), 4)), "04 01 00 00");
    EXPECT_EQ(hex(std::span(room.get() + slots + 255 * 16, 5 * 16 + 4)),
              "00 00 00 04 00 00 00 05 10 00 00 5e bf 0a 0b 01 "
              "00 00 00 03 00 00 00 05 10 00 00 5e bf 0a 0b 01 "
              "00 00 00 02 00 00 00 05 10 00 00 5e bf 0a 0b 01 "
              "00 00 00 01 00 00 00 05 10 00 00 5e bf 0a 0b 01 "
              "00 00 00 00 00 00 00 05 10 00 00 5e bf 0a 0b 01 "
              "ee ee ee ee");
}

// ---- start and end ----

TEST_F(IvripTest, entries_come_from_a_cache_of_their_own)
{
    ivrip_add_entry(1, peer_port, fcid(1), 0);
    for (const SlabCache& cache : slab_caches()) {
        if (cache.name != "ivrip_slab")
            continue;
        EXPECT_EQ(cache.size, sizeof(ivrip_entry_t));
        EXPECT_EQ(cache.align, 0u);
        EXPECT_EQ(cache.flags, 0x2000u);
        EXPECT_FALSE(cache.has_constructor);
        EXPECT_EQ(cache.objects, 1u);
        return;
    }
    FAIL() << "no such cache";
}

TEST_F(IvripTest, unloading_empties_the_table_and_leaves_the_entry_to_its_directory)
{
    for (std::uint32_t i = 0; i < 3; ++i)
        ivrip_add_entry(i, peer_port, fcid(i), 0);
    journal().clear();
    ipfc_module().unload();
    EXPECT_EQ(heap().live(Kind::object), 0u);
    const Lines texts = journal().texts({Source::proc});
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "remove_proc_entry brim_sw/ipfc/ivrip_list"),
              0);
}

TEST_F(IvripTest, unloading_empties_the_table_under_its_lock_before_the_cache_goes)
{
    ivrip_add_entry(1, peer_port, fcid(1), 0);
    ivrip_add_entry(2, peer_port, fcid(2), 0);
    name_lock(&ivrip_list_lock, "ivrip_list_lock");
    journal().clear();
    ipfc_module().unload();
    Lines texts = journal().texts({Source::lock, Source::slab});
    std::erase_if(texts,
                  [](const std::string& text) { return text.find("ivrip") == std::string::npos; });
    EXPECT_EQ(texts,
              (Lines{"spin_lock_irqsave ivrip_list_lock", "spin_unlock_irqrestore ivrip_list_lock",
                     "kmem_cache_destroy ivrip_slab"}));
}

using IvripLoadTest = UnloadedModuleTest;

TEST_F(IvripLoadTest, a_cache_that_cannot_be_made_is_told_with_its_text_as_it_is)
{
    heap().fail_nth(Kind::cache, 3);
    EXPECT_EQ(ipfc_module().load(), -12);
    EXPECT_EQ(twin::log().raw(), (Lines{"<3>vrip - Can not create the ivr_ip_list cache\n",
                                        "<3>ipfc - Can not initialize the IVRIP list\n"}));
}

TEST_F(IvripLoadTest, an_entry_that_cannot_be_made_takes_somebody_elses_entry_away)
{
    create_proc_entry("mip", 0, proc_brim_sw);
    journal().clear();
    heap().fail_nth(Kind::proc, 3); // the directory and the statistics come before
    EXPECT_EQ(ipfc_module().load(), -12);
    EXPECT_FALSE(proc_exists("brim_sw/mip"));
    EXPECT_EQ(journal().texts({Source::proc}).back(), "remove_proc_entry brim_sw/mip");
    EXPECT_EQ(twin::log().raw(), (Lines{"<3>ipfc - Can not initialize the IVRIP list\n"}));
    bool cache_left = false;
    for (const SlabCache& cache : slab_caches())
        cache_left = cache_left || cache.name == "ivrip_slab";
    EXPECT_TRUE(cache_left) << "the cache stays";
}

TEST_F(IvripLoadTest, filling_the_table_survives_being_out_of_memory)
{
    const OutOfMemoryRuns total = module_survives_out_of_memory([] {
        for (std::uint32_t i = 0; i < 3; ++i)
            ivrip_add_entry(i, peer_port, fcid(i), 0);
        ivrip_del_entry(fcid(1), 0);
    });
    EXPECT_GT(total.allocations, 12u);
}

} // namespace
