// SPDX-License-Identifier: GPL-2.0-only
// Identity, statistics and address of an interface, for the control device. No lock is taken: a
// reader may see members of slightly different instants, and a clear may lose a racing count.

#include "ipfc.h"

namespace {

// 0 and *priv, -22 or -6.
std::int32_t find_interface(vsan_id_t vsan_id, kvsan_interface_priv_t** priv)
{
    if (!vsan_id_valid(vsan_id)) {
        IPFC_ERROR("VSAN number not valid\n");
        return -EINVAL;
    }
    net_device* dev = vsan_interfaces[vsan_id];
    if (dev == nullptr) {
        IPFC_ERROR("VSAN interface %d doesn't exist\n", vsan_id);
        return -ENXIO;
    }
    *priv = ipfc_priv(dev);
    return 0;
}

// Counters wrap in the width of the record's own member.
void add_counters(ipfc_intf_stats_ioctl_t* to, const net_device_stats& stats,
                  const mib_counters_t& mib)
{
    to->rx_packets += stats.rx_packets;
    to->tx_packets += stats.tx_packets;
    to->rx_bytes += stats.rx_bytes;
    to->tx_bytes += stats.tx_bytes;
    to->rx_errors += stats.rx_errors;
    to->tx_errors += stats.tx_errors;
    to->rx_dropped += stats.rx_dropped;
    to->tx_dropped += stats.tx_dropped;
    to->multicast += stats.multicast;
    to->collisions += stats.collisions;
    to->ifInMulticastPkts += mib.ifInMulticastPkts;
    to->ifInBroadcastPkts += mib.ifInBroadcastPkts;
    to->ifOutMulticastPkts += mib.ifOutMulticastPkts;
    to->ifOutBroadcastPkts += mib.ifOutBroadcastPkts;
    to->ifHCInOctets += mib.ifHCInOctets;
    to->ifHCInUcastPkts += mib.ifHCInUcastPkts;
    to->ifHCInMulticastPkts += mib.ifHCInMulticastPkts;
    to->ifHCInBroadcastPkts += mib.ifHCInBroadcastPkts;
    to->ifHCOutOctets += mib.ifHCOutOctets;
    to->ifHCOutUcastPkts += mib.ifHCOutUcastPkts;
    to->ifHCOutMulticastPkts += mib.ifHCOutMulticastPkts;
    to->ifHCOutBroadcastPkts += mib.ifHCOutBroadcastPkts;
    to->ifInUnknownProtos += mib.ifInUnknownProtos;
}

} // namespace

std::int32_t ipfc_dev_get_intf_info(ipfc_get_intf_ioctl_t* intf_data)
{
    kvsan_interface_priv_t* priv = nullptr;
    const std::int32_t error = find_interface(intf_data->vsan_id, &priv);
    if (error != 0)
        return error;
    intf_data->intf_adm_status = priv->intf_adm_status;
    intf_data->ww_portname = priv->ww_portname;
    intf_data->ww_nodename = priv->ww_nodename;
    intf_data->fcid = priv->fcid;
    intf_data->num_sec_ip_addr = priv->num_sec_ip_addr;
    intf_data->ip_addr = priv->ip_addr;
    return 0;
}

// Only a snmp_stats of exactly 1 adds the snapshot: an operator's clear is not to set an SNMP
// reader's counters back.
std::int32_t ipfc_dev_intf_stats(ipfc_intf_stats_ioctl_t* intf_data)
{
    kvsan_interface_priv_t* priv = nullptr;
    const std::int32_t error = find_interface(intf_data->vsan_id, &priv);
    if (error != 0)
        return error;
    const ipfc_intf_stats_ioctl_t request = *intf_data;
    *intf_data = {};
    intf_data->vsan_id = request.vsan_id;
    intf_data->snmp_stats = request.snmp_stats;
    add_counters(intf_data, priv->stats, priv->mib_stats);
    if (intf_data->snmp_stats == 1)
        add_counters(intf_data, priv->last_stats, priv->last_mib_stats);
    return 0;
}

// The snapshot is replaced and not added to, deliberately: after two clears it counts from the
// first one on.
std::int32_t ipfc_clear_stats(vsan_id_t vsan_id)
{
    kvsan_interface_priv_t* priv = nullptr;
    const std::int32_t error = find_interface(vsan_id, &priv);
    if (error != 0)
        return error;
    priv->last_stats = priv->stats;
    priv->last_mib_stats = priv->mib_stats;
    memset(&priv->stats, 0, sizeof priv->stats);
    memset(&priv->mib_stats, 0, sizeof priv->mib_stats);
    return 0;
}

// Any address is taken; it is only reported back.
std::int32_t ipfc_set_ip(vsan_id_t vsan_id, inet_addr_t ip_addr)
{
    kvsan_interface_priv_t* priv = nullptr;
    const std::int32_t error = find_interface(vsan_id, &priv);
    if (error != 0)
        return error;
    priv->ip_addr = ip_addr;
    return 0;
}
