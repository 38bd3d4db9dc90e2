// SPDX-License-Identifier: GPL-2.0-only
// Transmission: one packet to its destination's FC address, an ARP packet a second time in the form
// with 6-byte hardware addresses, a broadcast once more to each inter-VSAN host of the VSAN.
//
// hash_lock is write-held from the lookup to the end, except around each send; what a send or an
// unlocked interval may take away (buffer, mapping node) is copied before.

#include "ipfc.h"
#include "ivr_ip.h"

#include "kapi/jiffies.h"

namespace {

constexpr char NAME[] = "ipfc_dev_hard_start_xmit";

// The network-layer packet behind the headers: where an IPv4 header has its protocol number.
constexpr unsigned int PROTOCOL_OFFSET = 9;
constexpr std::uint8_t PROTOCOL_RSVP = 46;

constexpr unsigned int WIRE_HEADERS_LEN = IPFC_NTW_HDR_LEN + IPFC_LLC_HDR_LEN;

// ARP with 12-byte and with 6-byte hardware addresses (RFC 826): offsets from the ARP header.
constexpr unsigned int ARP_LEN = 40;
constexpr unsigned int ARP_SENDER_IP = 20;
constexpr unsigned int ARP_TARGET_IP = 36;
constexpr int ARP_SHRINK = 12;

struct old_arp_t {
    std::uint8_t hardware_type[2];
    std::uint8_t protocol_type[2];
    std::uint8_t hardware_len;
    std::uint8_t protocol_len;
    std::uint8_t operation[2];
    mac_t sender_mac;
    std::uint8_t sender_ip[4];
    mac_t target_mac;
    std::uint8_t target_ip[4];
} BRIM_WIRE;
static_assert(sizeof(old_arp_t) == ARP_LEN - ARP_SHRINK);

enum class outcome { go_on, done };

// One packet on its way.
struct transmission {
    net_device* dev;
    kvsan_interface_priv_t* priv;
    sk_buff* skb;
    sk_buff* skb_old_arp = nullptr;
    sk_buff* skb_bcast = nullptr;
    wwn_t dwwn = {};
    fcid_t daddr_fcid = {}; // of the destination copy
    std::uint16_t ethertype = 0;
    bool broadcast = false;
    fcid_t s_id = {};
    kpn_to_fcid_t* target = nullptr; // valid while the lock has not been let go since its lookup
    wwn_t target_wwn = {};
    fcid_t target_fcid = {};
    unsigned int length = 0; // of the buffer as sent
    kpn_to_fcid_t broadcast_target = {};
    fc2_iuhdr_t iuhdr = {};
    fc2_iuhdr_t first_iuhdr = {}; // as of the first send
};

unsigned int fc2_room()
{
    return static_cast<unsigned int>(fc2_get_hdr_reserve() - fc2_get_tlrlen());
}

void free_copy(sk_buff*& skb)
{
    if (skb != nullptr)
        dev_kfree_skb_any(skb);
    skb = nullptr;
}

outcome drop(transmission& tx)
{
    ++tx.priv->stats.tx_dropped;
    dev_kfree_skb_any(tx.skb);
    free_copy(tx.skb_old_arp);
    return outcome::done;
}

bool room_for_fc2(const sk_buff* skb)
{
    return skb_headroom(skb) >= fc2_room() && skb->data_len == 0 &&
           static_cast<int>(skb->end - skb->tail) > fc2_get_tlrlen() + 3;
}

outcome make_room(transmission& tx)
{
    if (room_for_fc2(tx.skb))
        return outcome::go_on;
    sk_buff* copy =
        skb_copy_expand(tx.skb, static_cast<int>(fc2_room()), fc2_get_tlrlen() + 4, GFP_ATOMIC);
    if (copy == nullptr) {
        IPFC_ERROR("No memory to resize a skb\n");
        return drop(tx);
    }
    ++ipfc_skbs_copied;
    ipfc_bytes_copied += tx.skb->len;
    dev_kfree_skb_any(tx.skb);
    tx.skb = copy;
    return outcome::go_on;
}

// Nothing else can be told of a packet too short for its headers: its ethertype reads 0.
outcome drop_unknown(transmission& tx)
{
    IPFC_ERROR("%s: vsan:%d - unknown pkt type:%#x ... dropped\n", NAME, tx.priv->vsan_id,
               tx.ethertype);
    ++tx.priv->stats.tx_errors;
    dev_kfree_skb_any(tx.skb);
    return outcome::done;
}

ipfc_ntw_hdr_t* network_header(const sk_buff* skb)
{
    return reinterpret_cast<ipfc_ntw_hdr_t*>(skb->data);
}

// Leaves the data pointer at the network header.
outcome take_destination_copy(transmission& tx)
{
    if (tx.skb->len < fc2_room() + IPFC_LL_ADDR_LEN + WIRE_HEADERS_LEN)
        return drop_unknown(tx);
    skb_pull(tx.skb, fc2_room());
    const auto* daddr = reinterpret_cast<const ipfc_ll_addr_t*>(tx.skb->data);
    tx.daddr_fcid = daddr->fcid;
    IPFC_EVENT("%s: cached - daddr:%#llx fcid:%#x\n", NAME, wwn_number(daddr->ww_portname),
               daddr->fcid.num);
    skb_pull(tx.skb, IPFC_LL_ADDR_LEN);
    tx.dwwn = network_header(tx.skb)->hdr2.dwwn;
    return outcome::go_on;
}

// The copy is counted even when it could not be made, deliberately.
void save_arp(transmission& tx)
{
    tx.skb_old_arp = skb_copy(tx.skb, GFP_ATOMIC);
    if (tx.skb_old_arp == nullptr)
        IPFC_ERROR("%s: failed to create copy of arp pkt \n", NAME);
    ++ipfc_skbs_copied;
    ipfc_bytes_copied += tx.skb->len;
}

outcome check_ethertype(transmission& tx)
{
    const auto* llc =
        reinterpret_cast<const ipfc_llc_hdr_t*>(tx.skb->data + sizeof(ipfc_ntw_hdr_t));
    tx.ethertype = be16_to_cpu(llc->ethertype);
    if (tx.ethertype == ETH_P_ARP)
        save_arp(tx);
    else if (tx.ethertype != ETH_P_IP && tx.ethertype != ETH_P_IPV6)
        return drop_unknown(tx);
    return outcome::go_on;
}

// What the secondary-IP service may read of a packet: up to the source address and beyond.
unsigned int shortest_packet(std::uint16_t ethertype)
{
    switch (ethertype) {
    case ETH_P_IP:
        return 20;
    case ETH_P_IPV6:
        return 40;
    default:
        return ARP_LEN;
    }
}

outcome choose_source(transmission& tx)
{
    tx.s_id = tx.priv->fcid;
    if (tx.priv->num_sec_ip_addr <= 0)
        return outcome::go_on;
    mip_mapping_t mapping = {};
    int flag = 0;
    if (tx.skb->len < WIRE_HEADERS_LEN + shortest_packet(tx.ethertype) ||
        mip_lookup(tx.ethertype, tx.skb->data + WIRE_HEADERS_LEN, &mapping, &flag) != 0)
        return drop(tx);
    if (flag == 1) {
        network_header(tx.skb)->hdr1.saddr = mapping.source_mac;
        tx.s_id.num = mapping.add_data;
    }
    return outcome::go_on;
}

// A parked packet comes back through transmission, so it is parked as transmission got it.
outcome park(transmission& tx)
{
    free_copy(tx.skb_old_arp);
    skb_push(tx.skb, IPFC_LL_ADDR_LEN + fc2_room());
    if (ipfc_chr_request_mapping(tx.priv->vsan_id, tx.dwwn, tx.skb) != 0)
        return drop(tx);
    return outcome::done;
}

outcome find_target(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    tx.broadcast = tx.daddr_fcid.num == FCID_BROADCAST_NUM;
    if (tx.broadcast) {
        IPFC_ERROR("%s: dst addr is broadcast\n", NAME);
        tx.target = &tx.broadcast_target;
    } else {
        IPFC_ERROR("%s: dst addr is unicast\n", NAME);
        if (!search_pn_to_fcid_mapping(tx.priv->kwwpn_hash_table, tx.dwwn, &tx.target))
            return park(tx);
    }
    tx.target_wwn = tx.target->ww_portname;
    tx.target_fcid = tx.target->dest_fcid;
    return outcome::go_on;
}

void choose_exchange(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    if (tx.broadcast) {
        IPFC_EVENT("%s: new exchange for arp packet\n", NAME);
        tx.iuhdr.f_ctl = FC2_FCTL_FIRST_LAST_SEQUENCE;
        tx.skb_bcast = skb_copy(tx.skb, GFP_ATOMIC);
        if (tx.skb_bcast == nullptr)
            IPFC_ERROR("%s: failed to create copy of bcast skb for unicast\n", NAME);
        return;
    }
    const fc2_exch_status_t* exchange = get_fc2_exch_status(tx.target->fc2_exch, tx.s_id);
    if (exchange != nullptr) {
        tx.iuhdr.f_ctl = 0;
        tx.iuhdr.handle = static_cast<std::uint32_t>(exchange->fc2_handle);
    } else {
        tx.iuhdr.f_ctl = FC2_FCTL_FIRST_SEQUENCE;
    }
}

void fill_header(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    tx.iuhdr.opcode = FC2_SEQUENCE;
    tx.iuhdr.length = static_cast<std::int32_t>(tx.skb->len);
    tx.iuhdr.sifindex = FC2_ANY_IFINDEX;
    tx.iuhdr.difindex = FC2_ANY_IFINDEX;
    tx.iuhdr.atype = AT_FC;
    tx.iuhdr.ttl = 0xFF;
    tx.iuhdr.vsan = static_cast<std::uint16_t>(tx.priv->vsan_id);
    tx.iuhdr.s_id = tx.s_id;
    tx.iuhdr.d_id = tx.target_fcid;
    tx.iuhdr.type = FC_TYPE_IP;
    tx.iuhdr.err_policy = FC2_EP_DISCARD_SINGLE;
    tx.iuhdr.cs = CLASS_3;
    tx.iuhdr.r_ctl = FC_RCTL_UNSOLICITED_DATA;
    tx.iuhdr.df_ctl = FC_DFCTL_NETWORK_HEADER;
    choose_exchange(tx);
    // Whatever the ethertype, deliberately: the byte is the protocol only in an IPv4 header.
    if (tx.skb->len > WIRE_HEADERS_LEN + PROTOCOL_OFFSET &&
        tx.skb->data[WIRE_HEADERS_LEN + PROTOCOL_OFFSET] == PROTOCOL_RSVP) {
        tx.iuhdr.flags |= FC2_IU_TE_ONLY;
        IPFC_EVENT("setting TE_ONLY");
    }
}

int send_unlocked(transmission& tx, fc2_iuhdr_t* header, sk_buff* skb)
    KAPI_REQUIRES(tx.priv->hash_lock)
{
    write_unlock_bh(&tx.priv->hash_lock);
    const int result = kfc2_sendskb(ipfc_fc2_sock, header, skb);
    write_lock_bh(&tx.priv->hash_lock);
    return result;
}

int send_packet(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    tx.length = tx.skb->len;
    IPFC_EVENT("%s: skb->len: %d\n", NAME, static_cast<int>(tx.length));
    tx.first_iuhdr = tx.iuhdr;
    const int result = send_unlocked(tx, &tx.iuhdr, tx.skb);
    tx.skb = nullptr;
    tx.target = nullptr;
    IPFC_EVENT("%s: fc2 returned : %x\n", NAME, static_cast<unsigned int>(result));
    return result;
}

// The node may have gone with the lock free; a broadcast has no exchange to end.
void end_exchange(transmission& tx, logo_req_t logo) KAPI_REQUIRES(tx.priv->hash_lock)
{
    kpn_to_fcid_t* target = tx.broadcast ? &tx.broadcast_target
                                         : find_mapping_quietly(tx.priv->kwwpn_hash_table, tx.dwwn);
    if (target != nullptr)
        del_fc2_exch_status(&target->fc2_exch, tx.s_id, tx.priv->vsan_id, tx.iuhdr.d_id, logo,
                            tx.priv);
}

void send_failed(transmission& tx, int error) KAPI_REQUIRES(tx.priv->hash_lock)
{
    free_copy(tx.skb_old_arp);
    IPFC_ERROR("%s: error:%d - sending pkt to vsan:%d wwn:%#llx fcid:%#x\n", NAME, -error,
               tx.priv->vsan_id, wwn_number(tx.target_wwn), tx.target_fcid.num);
    if (error == -EBADE || error == -ECONNREFUSED) {
        IPFC_EVENT("%s: Connection refused. Delete fc2 exch status and send LOGO\n", NAME);
        end_exchange(tx, SEND_LOGO);
    } else if (error == -EHOSTUNREACH) {
        end_exchange(tx, DONT_SEND_LOGO);
    }
    ++tx.priv->stats.tx_errors;
}

// False when the node has gone while the lock was free. A failed allocation is silent: the next
// packet opens a new exchange.
bool note_exchange(transmission& tx, int handle) KAPI_REQUIRES(tx.priv->hash_lock)
{
    kpn_to_fcid_t* target = nullptr;
    if (!search_pn_to_fcid_mapping(tx.priv->kwwpn_hash_table, tx.dwwn, &target))
        return false;
    fc2_exch_status_t* exchange = get_fc2_exch_status(target->fc2_exch, tx.s_id);
    if (exchange != nullptr) {
        exchange->fc2_handle = handle;
        return true;
    }
    exchange = static_cast<fc2_exch_status_t*>(kmem_cache_alloc(exch_obj_cachep, GFP_ATOMIC));
    if (exchange == nullptr)
        return true;
    ++num_exch_obj;
    *exchange = {.source_fcid = tx.s_id, .fc2_handle = handle, .next = nullptr};
    add_fc2_exch_status(&target->fc2_exch, exchange);
    return true;
}

// In the copy, the ARP header shrinks by the six bytes that each hardware address loses.
void rewrite_arp(sk_buff* skb)
{
    const ipfc_ntw_hdr_t* header = network_header(skb);
    unsigned char* arp = skb->data + WIRE_HEADERS_LEN;
    auto* old_arp = reinterpret_cast<old_arp_t*>(arp);
    std::uint8_t sender_ip[4];
    std::uint8_t target_ip[4];
    memcpy(sender_ip, arp + ARP_SENDER_IP, sizeof sender_ip);
    memcpy(target_ip, arp + ARP_TARGET_IP, sizeof target_ip);

    skb_put(skb, static_cast<unsigned int>(-ARP_SHRINK));
    old_arp->hardware_type[0] = 0x00;
    old_arp->hardware_type[1] = 0x01;
    old_arp->hardware_len = ETH_ALEN;
    old_arp->sender_mac = header->hdr1.saddr;
    memcpy(old_arp->sender_ip, sender_ip, sizeof sender_ip);
    old_arp->target_mac = header->hdr1.daddr;
    memcpy(old_arp->target_ip, target_ip, sizeof target_ip);
}

void resend_old_arp(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    if (tx.skb_old_arp == nullptr) {
        IPFC_EVENT("%s: Failed to save old data\n", NAME);
        return;
    }
    if (tx.skb_old_arp->len < WIRE_HEADERS_LEN + ARP_LEN) {
        IPFC_ERROR("%s: Invalid skb_put() - data length too small\n", NAME);
        free_copy(tx.skb_old_arp);
        return;
    }
    rewrite_arp(tx.skb_old_arp);
    IPFC_EVENT("%s: skb_old_arp->len: %d\n", NAME, static_cast<int>(tx.skb_old_arp->len));
    // The header's length stays the unshortened one; the result does not matter.
    const int result = send_unlocked(tx, &tx.first_iuhdr, tx.skb_old_arp);
    tx.skb_old_arp = nullptr;
    IPFC_EVENT("fc2 returned : %x for sending old arp request\n",
               static_cast<unsigned int>(result));
}

// The list's lock is taken with interrupts off and hash_lock is let go and taken again inside it.
void replicate(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    unsigned long flags;
    spin_lock_irqsave(&ivrip_list_lock, flags);
    for (list_head* link = ivrip_list_head.next; link != &ivrip_list_head; link = link->next) {
        const ivrip_entry_t* entry = list_entry(link, ivrip_entry_t, next);
        if (be32_to_cpu(static_cast<std::uint32_t>(entry->vsan)) != tx.iuhdr.vsan)
            continue;
        sk_buff* replica = skb_copy(tx.skb_bcast, GFP_ATOMIC);
        if (replica == nullptr)
            continue;
        tx.iuhdr.d_id = entry->fcid;
        const int result = send_unlocked(tx, &tx.iuhdr, replica);
        IPFC_EVENT("For replicated bcast pkt to fcid:0x%x,fc2 ret:%x\n", entry->fcid.num,
                   static_cast<unsigned int>(result));
    }
    spin_unlock_irqrestore(&ivrip_list_lock, flags);
    free_copy(tx.skb_bcast);
}

bool still_mapped(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    kpn_to_fcid_t* target = nullptr;
    return search_pn_to_fcid_mapping(tx.priv->kwwpn_hash_table, tx.dwwn, &target);
}

void count_and_replicate(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    tx.dev->trans_start = jiffies;
    ++tx.priv->stats.tx_packets;
    tx.priv->stats.tx_bytes += tx.length;
    if (!tx.broadcast) {
        if (!still_mapped(tx))
            return;
        tx.priv->mib_stats.ifHCOutOctets += tx.length;
        ++tx.priv->mib_stats.ifHCOutUcastPkts;
    } else {
        ++tx.priv->mib_stats.ifOutBroadcastPkts;
        ++tx.priv->mib_stats.ifHCOutBroadcastPkts;
        if (tx.skb_bcast != nullptr)
            replicate(tx);
    }
    IPFC_EVENT("vsan:%d - pkt sent to wwn:%#llx fcid:%#x\n", tx.priv->vsan_id,
               wwn_number(tx.target_wwn), tx.target_fcid.num);
}

void transmit_locked(transmission& tx) KAPI_REQUIRES(tx.priv->hash_lock)
{
    if (find_target(tx) == outcome::done)
        return;
    fill_header(tx);
    const int result = send_packet(tx);
    if (result < 0) {
        send_failed(tx, result);
        return;
    }
    // When a unicast's node has gone, a kept ARP copy is not freed, deliberately.
    if (!tx.broadcast && !note_exchange(tx, result))
        return;
    if (tx.ethertype == ETH_P_ARP)
        resend_old_arp(tx);
    count_and_replicate(tx);
}

} // namespace

int ipfc_dev_hard_start_xmit(sk_buff* in_skb, net_device* dev)
{
    transmission tx{.dev = dev, .priv = ipfc_priv(dev), .skb = in_skb};
    tx.broadcast_target.ww_portname = {.str = {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    tx.broadcast_target.dest_fcid.num = FCID_BROADCAST_NUM;
    IPFC_EVENT("%s: vsan:%d - entering pkt sending routine\n", NAME, tx.priv->vsan_id);
    if (tx.priv->fcid.num == 0) {
        IPFC_ERROR("%s: trying to send a packet with src fcid = 0\n", NAME);
        drop(tx);
        return NETDEV_TX_OK;
    }
    if (make_room(tx) == outcome::done || take_destination_copy(tx) == outcome::done ||
        check_ethertype(tx) == outcome::done || choose_source(tx) == outcome::done)
        return NETDEV_TX_OK;

    write_lock_bh(&tx.priv->hash_lock);
    transmit_locked(tx);
    write_unlock_bh(&tx.priv->hash_lock);
    free_copy(tx.skb_bcast); // left over after a failed send
    return NETDEV_TX_OK;
}
