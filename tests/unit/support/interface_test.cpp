// SPDX-License-Identifier: GPL-2.0-only
#include "support/interface_test.h"

#include <algorithm>
#include <charconv>
#include <utility>

using namespace twin;

Bytes bytes(std::string_view text)
{
    Bytes result;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == ':' || text[at] == '\n') {
            ++at;
            continue;
        }
        unsigned value = 0;
        const char* const begin = text.data() + at;
        if (std::from_chars(begin, begin + 2, value, 16).ptr != begin + 2)
            die("not a byte: " + std::string(text.substr(at)));
        result.push_back(static_cast<std::uint8_t>(value));
        at += 2;
    }
    return result;
}

std::string hex(std::span<const std::uint8_t> data)
{
    std::string result;
    for (const std::uint8_t byte : data)
        result += strf(result.empty() ? "%02x" : " %02x", byte);
    return result;
}

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes result;
    for (const Bytes& part : parts)
        result.insert(result.end(), part.begin(), part.end());
    return result;
}

wwn_t wwn(const char* text)
{
    const Bytes octets = bytes(text);
    wwn_t name{};
    if (octets.size() != sizeof name.str)
        die(std::string("not a name: ") + text);
    std::copy(octets.begin(), octets.end(), name.str);
    return name;
}

fcid_t fcid(std::uint32_t address)
{
    return {.str = {0, static_cast<std::uint8_t>(address >> 16),
                    static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)}};
}

std::string text_of(wwn_t name)
{
    std::string text = hex(name.str);
    std::replace(text.begin(), text.end(), ' ', ':');
    return text;
}

std::string text_of(fcid_t address)
{
    return strf("%02x%02x%02x", address.str[1], address.str[2], address.str[3]);
}

std::vector<std::string> effects()
{
    std::vector<std::string> result;
    const std::vector<Event> events = journal().events();
    journal().clear();
    std::string awaited; // what the kernel log has to show next
    for (const Event& event : events) {
        if (event.source == Source::lock)
            continue;
        if (!awaited.empty()) {
            EXPECT_EQ(event.text, std::exchange(awaited, {})) << "in the kernel log";
            EXPECT_TRUE(event.source == Source::printk) << event.text;
            continue;
        }
        if (event.source == Source::message)
            awaited = "<7><{ipfc}>" + event.text.substr(4);
        if (event.source == Source::message || event.source == Source::platform ||
            event.source == Source::net || event.source == Source::printk)
            result.push_back(event.text);
    }
    EXPECT_EQ(awaited, "") << "never reached the kernel log";
    return result;
}

std::vector<std::string> messages()
{
    std::vector<std::string> result = effects();
    std::erase_if(result, [](const std::string& text) {
        return !text.starts_with("100 ") && !text.starts_with("101 ");
    });
    return result;
}

net_device* create_interface(vsan_id_t vsan_id, wwn_t port, fcid_t address)
{
    if (ipfc_create_vsan_interface(vsan_id, port, own_node) != 0)
        return nullptr;
    net_device* const dev = vsan_interfaces[vsan_id];
    ipfc_update_vsan_interface(vsan_id, address, 0x01080000u + static_cast<unsigned>(vsan_id),
                               IPFC_UPD_INTF_SET_FCID);
    dev_open(dev);
    return dev;
}

kpn_to_fcid_t* add_mapping(kvsan_interface_priv_t* priv, wwn_t port, fcid_t address)
{
    const UnnumberedAllocations set_up;
    kpn_to_fcid_t* const mapping = alloc_mapping(GFP_ATOMIC);
    ++num_mapping_obj;
    mapping->ww_portname = port;
    mapping->dest_fcid = address;
    kpn_to_fcid_t** link = &priv->kwwpn_hash_table[hash_pn(port)];
    while (*link != nullptr)
        link = &(*link)->next;
    *link = mapping;
    return mapping;
}

fc2_exch_status_t* add_exchange(kvsan_interface_priv_t*, kpn_to_fcid_t* mapping, fcid_t source,
                                std::int32_t handle)
{
    const UnnumberedAllocations set_up;
    auto* const exchange =
        static_cast<fc2_exch_status_t*>(kmem_cache_alloc(exch_obj_cachep, GFP_ATOMIC));
    ++num_exch_obj;
    *exchange = {.source_fcid = source, .fc2_handle = handle, .next = nullptr};
    fc2_exch_status_t** link = &mapping->fc2_exch;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = exchange;
    return exchange;
}

void drop_mappings(kvsan_interface_priv_t* priv)
{
    for (kpn_to_fcid_t*& head : priv->kwwpn_hash_table) {
        while (kpn_to_fcid_t* const mapping = head) {
            head = mapping->next;
            while (fc2_exch_status_t* const exchange = mapping->fc2_exch) {
                mapping->fc2_exch = exchange->next;
                kmem_cache_free(exch_obj_cachep, exchange);
                --num_exch_obj;
            }
            kmem_cache_free(mapping_obj_cachep, mapping);
            --num_mapping_obj;
        }
    }
}

std::vector<std::string> table_of(kvsan_interface_priv_t* priv)
{
    std::vector<std::string> lines;
    for (int bucket = 0; bucket < IPFC_NUM_BUCKETS; ++bucket) {
        for (const kpn_to_fcid_t* mapping = priv->kwwpn_hash_table[bucket]; mapping != nullptr;
             mapping = mapping->next) {
            std::string line = strf("%d ", bucket) + text_of(mapping->ww_portname) + " > " +
                               text_of(mapping->dest_fcid);
            for (const fc2_exch_status_t* exchange = mapping->fc2_exch; exchange != nullptr;
                 exchange = exchange->next)
                line += " " + text_of(exchange->source_fcid) + strf("=%d", exchange->fc2_handle);
            lines.push_back(line);
        }
    }
    return lines;
}

void InterfaceTest::SetUp()
{
    for (const int element : {IPFC_DBG_ERRORS, IPFC_DBG_EVENTS})
        platform().elements[element] = {.history = true, .log = true, .texts = {}};
    ASSERT_EQ(ipfc_module().load(), 0);
    dev = create_interface(own_vsan, own_port, own_fcid);
    ASSERT_NE(dev, nullptr);
    priv = ipfc_priv(dev);
    forget_so_far();
}

void InterfaceTest::tidy()
{
    platform().on_send = {};
    platform().on_logo = {};
    platform().on_option = {};
    UnloadedModuleTest::tidy();
}
