// SPDX-License-Identifier: GPL-2.0-only
// Network devices: allocation, registration, the routing netlink lock.
#include "netdev.h"

#include "context.h"
#include "fault.h"
#include "heap.h"
#include "journal.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <utility>

using namespace twin;

namespace {

// The device's own address lives behind the fields that drivers see.
constexpr std::size_t address_offset = 192;
static_assert(address_offset + MAX_ADDR_LEN <= KAPI_NETDEV_SIZE);
static_assert(KAPI_NETDEV_DESTRUCTOR + sizeof(void*) <= address_offset);

constexpr int e_exist = 17;
constexpr int e_inval = 22;
constexpr int e_nomem = 12;

// Fresh and refused devices may be registered; every one but a registered one goes with the module.
enum class State { fresh, refused, registered, unregistered };

std::mutex rtnl_mutex;
std::mutex mutex;
std::map<const net_device*, State> devices;
std::vector<net_device*> order; // registered ones
std::set<std::string> foreign_names;
int refuse_next; // an error number for the next registration, or 0

void must_hold_rtnl(const char* function)
{
    if (!context().rtnl)
        fault(std::string(function) + " without rtnl_lock");
}

std::string name_of(const net_device* dev)
{
    return std::string(dev->name, strnlen(dev->name, IFNAMSIZ));
}

bool valid_name(const std::string& name)
{
    return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           name.find_first_of("/ %:") == std::string::npos;
}

bool name_taken(const std::string& name)
{
    return foreign_names.count(name) != 0 ||
           std::any_of(order.begin(), order.end(),
                       [&](const net_device* dev) { return name_of(dev) == name; });
}

int try_to_register(net_device* dev)
{
    const std::string name = name_of(dev);
    if (heap().attempt(Kind::registration, "register_netdevice"))
        return -e_nomem;
    std::lock_guard guard(mutex);
    if (refuse_next != 0)
        return std::exchange(refuse_next, 0);
    if (!valid_name(name))
        return -e_inval;
    if (name_taken(name))
        return -e_exist;
    order.push_back(dev);
    return 0;
}

State state_of_device(const net_device* dev, const char* function)
{
    std::lock_guard guard(mutex);
    const auto found = devices.find(dev);
    if (found == devices.end())
        die(strf("%s of %p, which is no device", function, static_cast<const void*>(dev)));
    return found->second;
}

void set_state(const net_device* dev, State state)
{
    std::lock_guard guard(mutex);
    devices[dev] = state;
}

} // namespace

net_device* alloc_etherdev_mq(int priv_size, unsigned int queues)
{
    might_sleep("alloc_etherdev_mq");
    if (priv_size < 0 || queues != 1)
        fault(strf("alloc_etherdev_mq of %d bytes and %u queues", priv_size, queues));
    const std::size_t size = KAPI_NETDEV_PRIV_OFFSET + static_cast<std::size_t>(priv_size);
    auto* const dev =
        static_cast<net_device*>(heap().take(Kind::netdev, size, "alloc_etherdev_mq", true));
    if (dev == nullptr)
        return nullptr;
    // What the kernel's Ethernet set-up leaves.
    dev->mtu = 1500;
    dev->type = 1;
    dev->hard_header_len = 14;
    dev->addr_len = ETH_ALEN;
    dev->flags = 0x1002; // broadcast, multicast
    std::memset(dev->broadcast, 0xFF, ETH_ALEN);
    dev->dev_addr = dev->kapi_size + address_offset;
    dev->priv = netdev_priv(dev);
    set_state(dev, State::fresh);
    return dev;
}

int register_netdevice(net_device* dev)
{
    might_sleep("register_netdevice");
    must_hold_rtnl("register_netdevice");
    const State state = state_of_device(dev, "register_netdevice");
    if (state == State::registered || state == State::unregistered)
        die("register_netdevice of a device that was registered before");
    const int result = try_to_register(dev);
    journal().add(Source::netdev, "register_netdevice " + name_of(dev) +
                                      (result != 0 ? strf(" = %d", result) : ""));
    set_state(dev, result == 0 ? State::registered : State::refused);
    return result;
}

void unregister_netdevice(net_device* dev)
{
    might_sleep("unregister_netdevice");
    must_hold_rtnl("unregister_netdevice");
    const State state = state_of_device(dev, "unregister_netdevice");
    journal().add(Source::netdev, "unregister_netdevice " + name_of(dev) +
                                      (state == State::registered ? "" : " (not registered)"));
    if (state == State::unregistered)
        fault("unregister_netdevice twice of one device");
    // A device whose name was taken was never anybody's: there is nothing to undo.
    if (state != State::registered)
        return;
    if (is_up(dev))
        dev_close(dev);
    {
        std::lock_guard guard(mutex);
        order.erase(std::find(order.begin(), order.end(), dev));
    }
    set_state(dev, State::unregistered);
    if (dev->destructor != nullptr)
        dev->destructor(dev);
}

void rtnl_lock()
{
    might_sleep("rtnl_lock");
    if (context().rtnl)
        die("rtnl_lock, which this thread holds already");
    rtnl_mutex.lock();
    context().rtnl = true;
    journal().add(Source::rtnl, "rtnl_lock");
}

void rtnl_unlock()
{
    if (!context().rtnl) {
        fault("rtnl_unlock, which this thread does not hold");
        return;
    }
    might_sleep("rtnl_unlock");
    journal().add(Source::rtnl, "rtnl_unlock");
    context().rtnl = false;
    rtnl_mutex.unlock();
}

void dev_addr_mod(net_device* dev, unsigned int offset, const void* address, std::size_t length)
{
    state_of_device(dev, "dev_addr_mod");
    if (offset + length > MAX_ADDR_LEN)
        die("dev_addr_mod beyond the address");
    std::memcpy(dev->kapi_size + address_offset + offset, address, length);
}

namespace twin {

std::vector<net_device*> registered_devices()
{
    std::lock_guard guard(mutex);
    return order;
}

net_device* find_device(const std::string& name)
{
    for (net_device* dev : registered_devices())
        if (name_of(dev) == name)
            return dev;
    return nullptr;
}

bool is_registered(const net_device* dev)
{
    std::lock_guard guard(mutex);
    return std::find(order.begin(), order.end(), dev) != order.end();
}

void refuse_registration(int error)
{
    std::lock_guard guard(mutex);
    refuse_next = error;
}

void take_device_name(const std::string& name)
{
    std::lock_guard guard(mutex);
    foreign_names.insert(name);
}

void release_devices()
{
    std::lock_guard guard(mutex);
    for (auto entry = devices.begin(); entry != devices.end();) {
        if (entry->second == State::registered) {
            fault("a module left the device " + name_of(entry->first) + " registered");
            ++entry;
            continue;
        }
        heap().give_back(Kind::netdev, entry->first, "free_netdev");
        entry = devices.erase(entry);
    }
}

void reset_devices()
{
    std::lock_guard guard(mutex);
    for (const auto& entry : devices)
        heap().give_back(Kind::netdev, entry.first, "free_netdev");
    devices.clear();
    order.clear();
    foreign_names.clear();
    refuse_next = 0;
}

} // namespace twin
