// SPDX-License-Identifier: GPL-2.0-only
// What the tests of the registry, the control device and resolution share: the ports that they
// name, the messages of both outlets, and interfaces that exist.
#pragma once

#include "support/module_test.h"

#include "ipfc.h"
#include "ivr_ip.h"

#include <optional>
#include <string>
#include <vector>

// Entries of the list of parked packets.
extern std::int32_t skb_list_lenght;

// Printed as 20:01:02:03:04:05:06:07, and as the number 0x706050403020120.
inline constexpr wwn_t PORT_NAME = {.str = {0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07}};
inline constexpr wwn_t NODE_NAME = {.str = {0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08}};
// 10:00:aa:bb:cc:dd:ee:01, 0x1eeddccbbaa0010.
inline constexpr wwn_t PEER_NAME = {.str = {0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01}};
// In another bucket than PEER_NAME.
inline constexpr wwn_t OTHER_NAME = {.str = {0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x02}};

// 0x0a0b0c, as a number 0xc0b0a00.
inline constexpr fcid_t OWN_FCID = {.str = {0x00, 0x0A, 0x0B, 0x0C}};
// 0x0d0e0f, 0xf0e0d00.
inline constexpr fcid_t PEER_FCID = {.str = {0x00, 0x0D, 0x0E, 0x0F}};
// 0x111213, 0x13121100.
inline constexpr fcid_t NEW_FCID = {.str = {0x00, 0x11, 0x12, 0x13}};
inline constexpr fcid_t NO_FCID = {};

using Texts = std::vector<std::string>;

// What was said since the journal was emptied, "100 text" for errors and "101 text" for events,
// level and prefix left out. Every one must have gone to the history and then, in the same words,
// to the kernel log. Empties the journal.
inline Texts take_messages()
{
    const Texts both = twin::journal().texts({twin::Source::message, twin::Source::printk});
    EXPECT_EQ(both.size() % 2, 0u) << "a message went to one outlet only";
    Texts said;
    for (std::size_t i = 0; i + 1 < both.size(); i += 2) {
        said.push_back(both[i]);
        EXPECT_EQ(both[i + 1], "<7><{ipfc}>" + both[i].substr(4));
    }
    twin::journal().clear();
    return said;
}

// Everything that happened, the kernel log's share of the debug messages left out.
inline Texts happened_with_locks()
{
    Texts result;
    for (const twin::Event& event : twin::journal().events())
        if (event.source != twin::Source::printk || event.text.substr(0, 4) != "<7><")
            result.push_back(event.text);
    return result;
}

// The same without the locks.
inline Texts happened()
{
    Texts result;
    for (const twin::Event& event : twin::journal().events())
        if (event.source != twin::Source::lock &&
            (event.source != twin::Source::printk || event.text.substr(0, 4) != "<7><"))
            result.push_back(event.text);
    return result;
}

// The module loaded, both debug elements in both outlets.
class ControlTest : public ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        platform().elements[IPFC_DBG_ERRORS].log = true;
        platform().elements[IPFC_DBG_EVENTS].log = true;
    }

    // An interface, up, with an N_Port when fcid is one; its creation is forgotten.
    static net_device* make_interface(vsan_id_t vsan, fcid_t fcid = NO_FCID)
    {
        EXPECT_EQ(ipfc_create_vsan_interface(vsan, PORT_NAME, NODE_NAME), 0);
        net_device* const dev = vsan_interfaces[vsan];
        if (dev == nullptr) {
            ADD_FAILURE() << "no interface for VSAN " << vsan;
            return nullptr;
        }
        if (fcid.num != 0) {
            EXPECT_EQ(ipfc_update_vsan_interface(vsan, fcid, 1, IPFC_UPD_INTF_SET_FCID), 0);
        }
        EXPECT_EQ(twin::dev_open(dev), 0);
        twin::name_lock(&ipfc_priv(dev)->hash_lock, "hash_lock");
        forget_so_far();
        return dev;
    }

    // Puts a mapping into the interface's table, with one exchange of OWN_FCID when open.
    static void put_mapping(net_device* dev, wwn_t name, fcid_t fcid, bool open = false)
    {
        kvsan_interface_priv_t* const priv = ipfc_priv(dev);
        kpn_to_fcid_t* const mapping = alloc_mapping(GFP_KERNEL);
        ASSERT_NE(mapping, nullptr);
        ++num_mapping_obj;
        mapping->ww_portname = name;
        mapping->dest_fcid = fcid;
        write_lock_bh(&priv->hash_lock);
        add_pn_to_fcid_mapping(priv->kwwpn_hash_table, mapping, priv->vsan_id, priv);
        write_unlock_bh(&priv->hash_lock);
        if (open) {
            auto* const exchange =
                static_cast<fc2_exch_status_t*>(kmem_cache_alloc(exch_obj_cachep, GFP_KERNEL));
            ASSERT_NE(exchange, nullptr);
            ++num_exch_obj;
            *exchange = {.source_fcid = OWN_FCID, .fc2_handle = 0x77, .next = nullptr};
            write_lock_bh(&priv->hash_lock);
            mapping->fc2_exch = exchange;
            write_unlock_bh(&priv->hash_lock);
        }
        forget_so_far();
    }

    // The FCID that the table holds for the name, 0 when it holds none.
    static std::uint32_t mapped_to(net_device* dev, wwn_t name)
    {
        const kpn_to_fcid_t* const mapping =
            find_mapping_quietly(ipfc_priv(dev)->kwwpn_hash_table, name);
        return mapping == nullptr ? 0 : mapping->dest_fcid.num;
    }
};

// The control device open, and closed before the module goes.
class OpenDeviceTest : public ControlTest {
protected:
    void SetUp() override
    {
        ControlTest::SetUp();
        opened.emplace("ipfc");
        ASSERT_EQ(opened->error(), 0);
    }
    void tidy() override
    {
        opened.reset();
        ControlTest::tidy();
    }

    // The whole system call, with the record at the end of mapped memory.
    long command(unsigned code, const twin::Bytes& record)
    {
        return opened->ioctl(code, twin::UserMemory(record).argument());
    }

    std::optional<twin::CharFile> opened;
};

// What tests of resolution share: packets as transmission gets them.
class ResolutionTest : public OpenDeviceTest {
protected:
    // 56 bytes of the stack's room, the destination copy (peer at PEER_FCID), the network header,
    // the LLC/SNAP header, and an IPv4 packet of 20 bytes whose last byte tells packets apart.
    static twin::Bytes output_packet(std::uint8_t mark, wwn_t peer = PEER_NAME,
                                     std::uint8_t type = 0x00)
    {
        twin::Bytes packet(56, 0x77);
        const auto append = [&packet](std::initializer_list<std::uint8_t> more) {
            packet.insert(packet.end(), more);
        };
        const auto append_name = [&](wwn_t name) {
            packet.insert(packet.end(), name.str, name.str + 8);
        };
        append_name(peer);
        append({0x00, 0x0D, 0x0E, 0x0F});
        append_name(peer);
        append({0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07});
        append({0xAA, 0xAA, 0x03, 0x00, 0x00, 0x00, 0x08, type});
        append({0x45, 0, 0, 20, 0, 0, 0, 0, 64, 17, 0, 0, 10, 1, 2, 3, 10, 1, 2, mark});
        return packet;
    }

    // The packet in a buffer that needs no copy on its way.
    static sk_buff* output_skb(net_device* dev, const twin::Bytes& packet)
    {
        sk_buff* const skb = twin::make_skb(packet, {.headroom = 64, .tailroom = 16});
        skb->dev = dev;
        skb->protocol = cpu_to_be16(ETH_P_IP);
        return skb;
    }

    // Transmission of a packet to a port that the table does not hold; the buffer that was parked.
    static sk_buff* park(net_device* dev, std::uint8_t mark, wwn_t peer = PEER_NAME)
    {
        sk_buff* const skb = output_skb(dev, output_packet(mark, peer));
        const std::int32_t before = skb_list_lenght;
        EXPECT_EQ(twin::transmit(skb, dev), 0);
        EXPECT_EQ(skb_list_lenght, before + 1);
        return skb;
    }

    // A request without a packet from transmission.
    static int request(vsan_id_t vsan, wwn_t name = PEER_NAME)
    {
        sk_buff* const skb = twin::make_skb(twin::Bytes(40));
        const int result = ipfc_chr_request_mapping(vsan, name, skb);
        if (result != 0)
            kfree_skb(skb);
        return result;
    }

    // Packets that the platform was given, by their last byte.
    static std::vector<int> sent_marks()
    {
        std::vector<int> marks;
        for (const SentIu& iu : platform().sends)
            marks.push_back(iu.bytes.back());
        return marks;
    }

    static std::size_t live_packets() { return twin::heap().live(twin::Kind::skb); }

    // Reads one request: the result of the read.
    long read_request(twin::Bytes* bytes = nullptr)
    {
        twin::UserMemory buffer(12);
        buffer.fill(0xEE);
        const long result = opened->read(buffer.address(), 12);
        if (bytes != nullptr)
            *bytes = buffer.bytes();
        return result;
    }
};

// The first size bytes of a record.
template <typename Record>
twin::Bytes bytes_of(const Record& record, std::size_t size = sizeof(Record))
{
    const auto* const first = reinterpret_cast<const std::uint8_t*>(&record);
    return {first, first + size};
}
