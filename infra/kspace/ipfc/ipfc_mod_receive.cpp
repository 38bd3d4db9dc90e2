// SPDX-License-Identifier: GPL-2.0-only
// Reception: information units from the FC-2 socket, in softirq context. Data goes to the network
// stack; a peer's LOGO and PLOGI change the mapping table and the exchange state. hash_lock is
// taken for those two only.

#include "ipfc.h"

#include "kapi/jiffies.h"

namespace {

constexpr std::uint16_t ARP_HARDWARE_ETHERNET = 1;
constexpr unsigned int ARP_GROWTH = 12;

// ARP with 6-byte hardware addresses (RFC 826) as received.
struct ethernet_arp_t {
    be16_t hardware_type;
    be16_t protocol_type;
    std::uint8_t hardware_len;
    std::uint8_t protocol_len;
    be16_t operation;
    mac_t sender_mac;
    std::uint32_t sender_ip;
    mac_t target_mac;
    std::uint32_t target_ip;
} BRIM_WIRE;
static_assert(sizeof(ethernet_arp_t) == 28);

// The fixed part that ARP of either form begins with.
constexpr unsigned int ARP_FIXED_LEN = offsetof(ethernet_arp_t, sender_mac);

// ARP as the network stack expects it on these interfaces.
struct fc_arp_t {
    be16_t hardware_type;
    be16_t protocol_type;
    std::uint8_t hardware_len;
    std::uint8_t protocol_len;
    be16_t operation;
    ipfc_ll_addr_t sender;
    std::uint32_t sender_ip;
    ipfc_ll_addr_t target;
    std::uint32_t target_ip;
} BRIM_WIRE;
static_assert(sizeof(fc_arp_t) == sizeof(ethernet_arp_t) + ARP_GROWTH);

// One information unit on its way up.
struct reception {
    fc2_iuhdr_t header = {};
    sk_buff* skb = nullptr;
    vsan_id_t vsan_id = 0;
    net_device* dev = nullptr;
    kvsan_interface_priv_t* priv = nullptr;
    ipfc_ntw_hdr_t ntw = {};
    unsigned int length = 0; // network header included
};

void reject(reception& rx)
{
    IPFC_ERROR("Pkt reception error\n");
    if (rx.skb != nullptr)
        kfree_skb(rx.skb);
}

// A VSAN that the interface table has no slot for is one without an interface.
bool find_interface(reception& rx)
{
    rx.vsan_id = rx.header.vsan;
    rx.dev = vsan_id_valid(rx.vsan_id) ? vsan_interfaces[rx.vsan_id] : nullptr;
    if (rx.dev == nullptr) {
        IPFC_ERROR("Received packet for the  non-existing interface %d\n", rx.vsan_id);
        kfree_skb(rx.skb);
        return false;
    }
    rx.priv = ipfc_priv(rx.dev);
    return true;
}

// The port name in the payload of a link service, all that is read of it; false when the buffer
// ends before it does.
template <typename payload_t>
bool read_portname(const sk_buff* skb, wwn_t* portname)
{
    return skb_copy_bits(skb, offsetof(payload_t, nport_wwn), portname, sizeof *portname) == 0;
}

void receive_logo(reception& rx)
{
    wwn_t portname;
    if (!read_portname<els_logo_t>(rx.skb, &portname)) {
        reject(rx);
        return;
    }
    IPFC_EVENT("VSAN %d: received LOGO from WWN = %s\n", rx.vsan_id, wwn_text(portname).str);
    write_lock_bh(&rx.priv->hash_lock);
    delete_exch_status_for_fcid(rx.priv->kwwpn_hash_table, portname, rx.header.d_id);
    kernel_delete_pn_to_fcid_mapping(rx.priv->kwwpn_hash_table, portname, rx.vsan_id);
    IPFC_EVENT("VSAN %d, mapping removed for WW_PN = %s - PEER LOGO\n", rx.vsan_id,
               wwn_text(portname).str);
    write_unlock_bh(&rx.priv->hash_lock);
    kfree_skb(rx.skb);
}

// A fresh login from the peer discards the old exchange.
void receive_plogi(reception& rx)
{
    wwn_t portname;
    if (!read_portname<els_plogi_t>(rx.skb, &portname)) {
        reject(rx);
        return;
    }
    IPFC_EVENT("VSAN %d: received PLOGI from WWN = %s\n", rx.vsan_id, wwn_text(portname).str);
    kpn_to_fcid_t* mapping = nullptr;
    write_lock_bh(&rx.priv->hash_lock);
    if (search_pn_to_fcid_mapping(rx.priv->kwwpn_hash_table, portname, &mapping))
        del_fc2_exch_status(&mapping->fc2_exch, rx.header.d_id, rx.header.vsan, rx.header.s_id,
                            DONT_SEND_LOGO, rx.priv);
    write_unlock_bh(&rx.priv->hash_lock);
    kfree_skb(rx.skb);
}

void count_arrival(reception& rx)
{
    rx.length = rx.skb->len;
    rx.dev->last_rx = jiffies;
    ++rx.priv->stats.rx_packets;
    rx.priv->stats.rx_bytes += rx.length;
}

// Takes both headers off. Only dsap is examined of the LLC header, deliberately. A frame too short
// for them carries no protocol.
bool strip_headers(reception& rx)
{
    if (pskb_may_pull(rx.skb, IPFC_NTW_HDR_LEN + IPFC_LLC_HDR_LEN)) {
        memcpy(&rx.ntw, rx.skb->data, sizeof rx.ntw);
        skb_reset_mac_header(rx.skb);
        skb_pull(rx.skb, IPFC_NTW_HDR_LEN);
        const auto* llc = reinterpret_cast<const ipfc_llc_hdr_t*>(rx.skb->data);
        const std::uint16_t ethertype = be16_to_cpu(llc->ethertype);
        if (llc->dsap == 0xAA &&
            (ethertype == ETH_P_IP || ethertype == ETH_P_IPV6 || ethertype == ETH_P_ARP)) {
            rx.skb->protocol = llc->ethertype;
            skb_pull(rx.skb, IPFC_LLC_HDR_LEN);
            return true;
        }
    }
    IPFC_ERROR("VSAN %d Received a pkt with an invalid protocol - pkt dropped\n", rx.vsan_id);
    ++rx.priv->stats.rx_errors;
    ++rx.priv->mib_stats.ifInUnknownProtos;
    kfree_skb(rx.skb);
    return false;
}

bool sent_by_others(reception& rx)
{
    if (rx.ntw.hdr2.swwn.num != rx.priv->ww_portname.num || rx.header.s_id.num != rx.priv->fcid.num)
        return true;
    IPFC_ERROR("VSAN %d Received a packet from itself back\n", rx.vsan_id);
    kfree_skb(rx.skb);
    return false;
}

// The six bytes compared with the broadcast address begin two bytes further on in it, deliberately:
// what is sent to all ones counts as multicast.
void classify(reception& rx)
{
    mib_counters_t& mib = rx.priv->mib_stats;
    const mac_t& destination = rx.ntw.hdr1.daddr;
    if ((destination.ether_addr_octet[0] & 1) == 0) {
        skb_set_pkt_type(rx.skb, PACKET_HOST);
        ++mib.ifHCInUcastPkts;
        mib.ifHCInOctets += rx.length;
    } else if (memcmp(destination.ether_addr_octet, rx.dev->broadcast, sizeof destination) == 0) {
        skb_set_pkt_type(rx.skb, PACKET_BROADCAST);
        ++mib.ifInBroadcastPkts;
        ++mib.ifHCInBroadcastPkts;
    } else {
        skb_set_pkt_type(rx.skb, PACKET_MULTICAST);
        ++rx.priv->stats.multicast;
        ++mib.ifInMulticastPkts;
        ++mib.ifHCInMulticastPkts;
    }
}

bool drop_arp(reception& rx)
{
    IPFC_ERROR("%s: Cannot expand skb\n", "ipfc_data_ready");
    kfree_skb(rx.skb);
    return false;
}

void trace_ethernet_arp(const ethernet_arp_t& arp)
{
    const std::uint8_t* sender = arp.sender_mac.ether_addr_octet;
    const std::uint8_t* target = arp.target_mac.ether_addr_octet;
    IPFC_EVENT("Received ARP packet with old hardware format, faking to new format and pass it to "
               "IP stack\n");
    IPFC_EVENT("%s: Received pkt - sender hwaddr:%x.%x.%x.%x.%x.%x ipaddr:0x%x target "
               "hwaddr:%x.%x.%x.%x.%x.%x ipaddr:0x%x\n ",
               "ipfc_data_ready", sender[0], sender[1], sender[2], sender[3], sender[4], sender[5],
               be32_to_cpu(arp.sender_ip), target[0], target[1], target[2], target[3], target[4],
               target[5], be32_to_cpu(arp.target_ip));
}

// An Ethernet-format ARP becomes one with 12-byte addresses made of the port names and FCIDs.
bool convert_ethernet_arp(reception& rx)
{
    ethernet_arp_t arp = {};
    if (skb_copy_bits(rx.skb, 0, &arp, sizeof arp) != 0)
        return drop_arp(rx);
    trace_ethernet_arp(arp);
    sk_buff* longer =
        skb_copy_expand(rx.skb, static_cast<int>(skb_headroom(rx.skb)),
                        static_cast<int>(ARP_GROWTH) + skb_tailroom(rx.skb), GFP_ATOMIC);
    if (longer == nullptr)
        return drop_arp(rx);
    kfree_skb(rx.skb);
    rx.skb = longer;
    skb_put(longer, ARP_GROWTH);

    const fc_arp_t converted = {
        .hardware_type = cpu_to_be16(IPFC_ARP_HARDWARE_TYPE),
        .protocol_type = arp.protocol_type,
        .hardware_len = IPFC_LL_ADDR_LEN,
        .protocol_len = arp.protocol_len,
        .operation = arp.operation,
        .sender = {.ww_portname = rx.ntw.hdr2.swwn, .fcid = rx.header.s_id},
        .sender_ip = arp.sender_ip,
        .target = {.ww_portname = rx.ntw.hdr2.dwwn, .fcid = rx.header.d_id},
        .target_ip = arp.target_ip,
    };
    memcpy(longer->data, &converted, sizeof converted);
    return true;
}

// False when the packet has been dropped: an ARP too short for what is read of it, or no memory.
bool receive_arp(reception& rx)
{
    ethernet_arp_t arp = {};
    if (skb_copy_bits(rx.skb, 0, &arp, ARP_FIXED_LEN) != 0)
        return drop_arp(rx);
    IPFC_EVENT("Received ARP packet - hwaddr:0x%x/%d, pr:0x%x/%dop:0x%x, eth addr len:%d \n",
               arp.hardware_type, arp.hardware_len, arp.protocol_type, arp.protocol_len,
               arp.operation, ETH_ALEN);
    if (be16_to_cpu(arp.hardware_type) != ARP_HARDWARE_ETHERNET)
        return true;
    return convert_ethernet_arp(rx);
}

void receive_data(reception& rx)
{
    count_arrival(rx);
    if (!strip_headers(rx) || !sent_by_others(rx))
        return;
    rx.skb->dev = rx.dev;
    classify(rx);
    if (be16_to_cpu(rx.skb->protocol) == ETH_P_ARP && !receive_arp(rx))
        return;
    const int result = netif_rx(rx.skb);
    IPFC_EVENT("VSAN %d: pkt sent to upper layer, ret:0x%x \n", rx.vsan_id,
               static_cast<unsigned int>(result));
}

void receive(reception& rx)
{
    switch (rx.header.opcode) {
    case FC2_RECEIVED_LOGO:
        receive_logo(rx);
        return;
    case FC2_RECEIVED_PLOGI:
        receive_plogi(rx);
        return;
    case FC2_SEQUENCE:
        receive_data(rx);
        return;
    default:
        IPFC_ERROR("Received invalid primitive opcode %d\n", rx.header.opcode);
        kfree_skb(rx.skb);
    }
}

} // namespace

int ipfc_data_ready(socket*, int nbytes)
{
    reception rx;
    IPFC_EVENT("Receiving pkt from FC2\n");
    const int result = kfc2_recvskb(ipfc_fc2_sock, &rx.header, &rx.skb);
    if (result < 0 || result != nbytes || rx.header.status != FC2_OK || rx.skb == nullptr) {
        reject(rx);
        return 0;
    }
    if (find_interface(rx))
        receive(rx);
    return 0;
}
