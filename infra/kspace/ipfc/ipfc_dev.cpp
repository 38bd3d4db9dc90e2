// SPDX-License-Identifier: GPL-2.0-only
// The network device's small callbacks and its hardware address.

#include "ipfc.h"

namespace {

constexpr int MIN_MTU = 8;
constexpr int MAX_MTU = 65280;

} // namespace

net_device_stats* ipfc_dev_get_stats(net_device* dev)
{
    return &ipfc_priv(dev)->stats;
}

// A value out of range is ignored and not reported, deliberately.
int ipfc_dev_change_mtu(net_device* dev, int new_mtu)
{
    if (new_mtu >= MIN_MTU && new_mtu <= MAX_MTU)
        dev->mtu = static_cast<unsigned int>(new_mtu);
    return 0;
}

int ipfc_dev_open(net_device*)
{
    return 0;
}

int ipfc_dev_stop(net_device*)
{
    return 0;
}

void ipfc_dev_destructor(net_device* dev)
{
    IPFC_EVENT("Device destructor called\n");
    if (dev == nullptr || dev->priv == nullptr)
        return;
    kfree(dev->priv);
    dev->priv = nullptr;
}

void ipfc_dev_create_mac(net_device* dev, wwn_t ww_portname)
{
    IPFC_EVENT("%s wwn: 0x%llx \n", "ipfc_dev_create_mac", wwn_number(ww_portname));
    const ipfc_ll_addr_t address = {.ww_portname = ww_portname, .fcid = {}};
    dev_addr_mod(dev, 0, &address, sizeof address);
}

void ipfc_dev_update_mac(vsan_id_t vsan_id, fcid_t fcid)
{
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        IPFC_ERROR("%s No device found for vsan: %d \n", "ipfc_dev_update_mac", vsan_id);
        return;
    }
    dev_addr_mod(dev, offsetof(ipfc_ll_addr_t, fcid), &fcid, sizeof fcid);
    IPFC_EVENT("%s vsan: %d, fcid: 0x%x, addr_fcid: 0x%x \n", "ipfc_dev_update_mac", vsan_id,
               fcid.num, reinterpret_cast<const ipfc_ll_addr_t*>(dev->dev_addr)->fcid.num);
}
