// SPDX-License-Identifier: GPL-2.0-only
// The secondary-IP service: the addresses, the driver that serves them, and whether a packet comes
// from one of them.
#include "platform/mip.h"

#include "brim/ifindex.h"

#include "kapi/errno.h"
#include "kapi/netdevice.h"
#include "kapi/slab.h"
#include "kapi/string.h"

#include "platform/fc2/fc2_guard.h"
#include "platform/platform.h"

static DEFINE_SPINLOCK(mip_lock); // all that follows; lookups come in any context
static constinit mip_mapping_t* mappings KAPI_GUARDED_BY(mip_lock) = nullptr;
static constinit opt_func_t driver KAPI_GUARDED_BY(mip_lock) = {};
static constinit bool changing KAPI_GUARDED_BY(mip_lock) = false; // a driver's callback runs

static std::size_t address_length(const inet_addr_t& address)
{
    switch (address.addr_type) {
    case INET_ADDR_TYPE_IPV4:
        return sizeof address.a.ipv4_addr;
    case INET_ADDR_TYPE_IPV6:
        return sizeof address.a.ipv6_addr;
    default:
        return 0;
    }
}

static bool same_address(const inet_addr_t& a, const inet_addr_t& b)
{
    return a.addr_type == b.addr_type && memcmp(&a.a, &b.a, address_length(a)) == 0;
}

// The link that points at the mapping, or the one at the table's end.
static mip_mapping_t** place_of(const inet_addr_t& address, if_index_t ifindex)
    KAPI_REQUIRES(mip_lock)
{
    mip_mapping_t** place = &mappings;
    while (*place != nullptr &&
           !((*place)->ifindex == ifindex && same_address((*place)->ip_addr, address)))
        place = &(*place)->next;
    return place;
}

// Callbacks run without the lock, one at a time.
static int begin_change(const inet_addr_t& address, if_index_t ifindex, bool present,
                        opt_func_t* callbacks) KAPI_EXCLUDES(mip_lock)
{
    irqsave_guard guard(mip_lock);
    if (driver.opt_add_ip == nullptr || driver.opt_intf_type != IF_INDEX_TYPE(ifindex))
        return -ENODEV;
    if (changing)
        return -EBUSY;
    if ((*place_of(address, ifindex) != nullptr) != present)
        return present ? -EADDRNOTAVAIL : -EEXIST;
    *callbacks = driver;
    changing = true;
    return 0;
}

static int as_negative(int result)
{
    return result > 0 ? -result : result;
}

int mip_add(const mip_mapping_t& mapping)
{
    auto* made = static_cast<mip_mapping_t*>(kmalloc(sizeof(mip_mapping_t), GFP_KERNEL));
    if (made == nullptr)
        return -ENOMEM;
    *made = mapping;
    made->next = nullptr;
    opt_func_t callbacks;
    int result = begin_change(made->ip_addr, made->ifindex, false, &callbacks);
    if (result == 0) {
        result = as_negative(callbacks.opt_add_ip(made));
        irqsave_guard guard(mip_lock);
        changing = false;
        if (result == 0)
            *place_of(made->ip_addr, made->ifindex) = made;
    }
    if (result != 0)
        kfree(made);
    return result;
}

// Out of the table first: no packet takes the source of an N_Port that is being removed.
static mip_mapping_t* take_out(const inet_addr_t& address, if_index_t ifindex)
    KAPI_EXCLUDES(mip_lock)
{
    irqsave_guard guard(mip_lock);
    mip_mapping_t** place = place_of(address, ifindex);
    mip_mapping_t* gone = *place;
    if (gone != nullptr)
        *place = gone->next;
    return gone;
}

int mip_remove(const inet_addr_t& address, if_index_t ifindex)
{
    opt_func_t callbacks;
    int result = begin_change(address, ifindex, true, &callbacks);
    if (result != 0)
        return result;
    // Gone already when the driver has just left.
    mip_mapping_t* gone = take_out(address, ifindex);
    if (gone != nullptr)
        result = as_negative(callbacks.opt_del_ip(gone));
    kfree(gone);
    irqsave_guard guard(mip_lock);
    changing = false;
    return result;
}

void mip_for_each(void (*visit)(const mip_mapping_t& mapping, void* argument), void* argument)
{
    irqsave_guard guard(mip_lock);
    for (const mip_mapping_t* at = mappings; at != nullptr; at = at->next)
        visit(*at, argument);
}

// ---- the driver's side ----

// One driver at a time. Addresses that an earlier one has left are its own loss, so none are left:
// see mip_unregister_opt.
int mip_register_opt(opt_func_t callbacks)
{
    irqsave_guard guard(mip_lock);
    if (driver.opt_add_ip != nullptr)
        return -EBUSY;
    driver = callbacks;
    return 0;
}

// The driver is past being called, so its addresses go without a word.
void mip_unregister_opt(void)
{
    mip_mapping_t* left;
    {
        irqsave_guard guard(mip_lock);
        driver = {};
        left = mappings;
        mappings = nullptr;
    }
    while (left != nullptr) {
        mip_mapping_t* next = left->next;
        kfree(left);
        left = next;
    }
}

// Source address of a packet, out of what the caller guarantees to be there: an IPv4 header, an
// IPv6 header, or an ARP packet with 12-byte hardware addresses (of which the sender's protocol
// address ends at byte 24).
static bool source_of(std::uint16_t ethertype, const std::uint8_t* packet, inet_addr_t* source)
{
    switch (ethertype) {
    case ETH_P_IP:
        source->addr_type = INET_ADDR_TYPE_IPV4;
        memcpy(&source->a.ipv4_addr, packet + 12, 4);
        return true;
    case ETH_P_IPV6:
        source->addr_type = INET_ADDR_TYPE_IPV6;
        memcpy(&source->a.ipv6_addr, packet + 8, 16);
        return true;
    case ETH_P_ARP:
        source->addr_type = INET_ADDR_TYPE_IPV4;
        memcpy(&source->a.ipv4_addr, packet + 20, 4);
        return true;
    default:
        return false;
    }
}

// No packet is refused. An address that two interfaces share is the older one's: the packet does
// not tell its interface.
int mip_lookup(std::uint16_t ethertype, const void* packet, mip_mapping_t* mapping, int* flag)
{
    inet_addr_t source = {};
    *flag = 0;
    if (!source_of(ethertype, static_cast<const std::uint8_t*>(packet), &source))
        return 0;
    irqsave_guard guard(mip_lock);
    for (const mip_mapping_t* at = mappings; at != nullptr; at = at->next)
        if (same_address(at->ip_addr, source)) {
            *mapping = *at;
            mapping->next = nullptr;
            *flag = 1;
            return 0;
        }
    return 0;
}

int mip_start()
{
    return mip_proc_start();
}

void mip_stop()
{
    mip_proc_stop();
    mip_unregister_opt();
}
