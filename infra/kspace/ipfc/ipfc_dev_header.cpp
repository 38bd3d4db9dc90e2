// SPDX-License-Identifier: GPL-2.0-only
// Link-layer header construction: what an outgoing packet carries before transmission sees it. From
// the data pointer on: the FC-2 stack's reserve, the destination's hardware address (never on the
// wire), network header, LLC/SNAP header, packet.

#include "ipfc.h"

constinit const header_ops ipfc_header_ops = {
    .create = ipfc_dev_hard_header,
    .parse = nullptr,
    .rebuild = ipfc_dev_rebuild_header,
    .cache = nullptr,
    .cache_update = nullptr,
};

namespace {

constexpr char NAME[] = "ipfc_dev_hard_header";

// The text that stands for an absent address.
struct ll_addr_text {
    char str[30] = "(null)";
    explicit ll_addr_text(const ipfc_ll_addr_t* address)
    {
        if (address != nullptr)
            memcpy(str, wwn_text(address->ww_portname).str, sizeof str);
    }
};

std::uint32_t fcid_number(const ipfc_ll_addr_t* address)
{
    return address != nullptr ? be32_to_cpu(address->fcid.num) : 0;
}

bool is_broadcast(const ipfc_ll_addr_t* address)
{
    return address->fcid.num == FCID_BROADCAST_NUM;
}

// The IEEE 48-bit form of a port name: 10 00 and the six low bytes.
wwn_t ieee_name(wwn_t name)
{
    name.str[0] = 0x10;
    name.str[1] = 0x00;
    return name;
}

int fc2_room()
{
    return fc2_get_hdr_reserve() - fc2_get_tlrlen();
}

// Deliberately not the number of bytes pushed.
int positive_result()
{
    return fc2_get_hdr_reserve() + 4 - fc2_get_tlrlen();
}

int grow_headroom(sk_buff* skb)
{
    const auto needed = static_cast<unsigned int>(ipfc_header_room());
    const unsigned int headroom = skb_headroom(skb);
    if (needed <= headroom)
        return 0;
    if (pskb_expand_head(skb, static_cast<int>(needed - headroom), 0, GFP_ATOMIC) != 0) {
        IPFC_ERROR("Unable to allocate more headroom\n");
        return -ENOMEM;
    }
    return 0;
}

void push_llc_header(sk_buff* skb, unsigned short type)
{
    auto* llc = static_cast<ipfc_llc_hdr_t*>(skb_push(skb, sizeof(ipfc_llc_hdr_t)));
    *llc = {.dsap = 0xAA,
            .ssap = 0xAA,
            .llc = 0x03,
            .protid = {0, 0, 0},
            .ethertype = cpu_to_be16(type)};
}

ipfc_ntw_hdr_t* push_network_header(sk_buff* skb, wwn_t source)
{
    auto* header = static_cast<ipfc_ntw_hdr_t*>(skb_push(skb, sizeof(ipfc_ntw_hdr_t)));
    header->hdr2.swwn = ieee_name(source);
    return header;
}

// Enters a mapping for a port that the table does not know: the name as it came, not the key.
int enter_mapping(kvsan_interface_priv_t* priv, const ipfc_ll_addr_t* daddr)
{
    kpn_to_fcid_t* mapping = alloc_mapping(GFP_ATOMIC);
    if (mapping == nullptr) {
        IPFC_ERROR("Can not allocate new mapping - No mem\n");
        return -ENOMEM;
    }
    ++num_mapping_obj;
    mapping->ww_portname = daddr->ww_portname;
    mapping->dest_fcid = daddr->fcid;
    IPFC_EVENT("VSAN %d, mapping added for WW_PN = %s", priv->vsan_id,
               wwn_text(mapping->ww_portname).str);
    IPFC_EVENT(" FCID = %s - PACKET SEND \n", fcid_text(mapping->dest_fcid).str);

    write_lock_bh(&priv->hash_lock);
    add_pn_to_fcid_mapping(priv->kwwpn_hash_table, mapping, priv->vsan_id, priv);
    write_unlock_bh(&priv->hash_lock);
    return 0;
}

// Corrects the FCID of a known port from the address that the neighbour layer has, or enters the
// port. *destination is the name for the network header: the stored one, with whatever first two
// bytes it holds, for a known port. It is copied under the lock, since the node may go afterwards.
int resolve_unicast(kvsan_interface_priv_t* priv, const ipfc_ll_addr_t* daddr, wwn_t* destination)
{
    const wwn_t key = ieee_name(daddr->ww_portname);
    kpn_to_fcid_t* target = nullptr;
    fcid_t known_fcid = {};

    read_lock_bh(&priv->hash_lock);
    const bool found = search_pn_to_fcid_mapping(priv->kwwpn_hash_table, key, &target);
    if (found) {
        *destination = target->ww_portname;
        known_fcid = target->dest_fcid;
    }
    read_unlock_bh(&priv->hash_lock);

    if (!found) {
        *destination = key;
        return enter_mapping(priv, daddr);
    }
    if (known_fcid.num != daddr->fcid.num) {
        write_lock_bh(&priv->hash_lock);
        update_pn_to_fcid_mapping(priv->kwwpn_hash_table, key, daddr->fcid, priv->vsan_id, priv);
        write_unlock_bh(&priv->hash_lock);
    }
    return 0;
}

int write_destination(kvsan_interface_priv_t* priv, const ipfc_ll_addr_t* daddr,
                      ipfc_ntw_hdr_t* header)
{
    wwn_t destination = {.str = {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    if (!is_broadcast(daddr)) {
        const int error = resolve_unicast(priv, daddr, &destination);
        if (error != 0)
            return error;
    }
    header->hdr2.dwwn = destination;
    return 0;
}

// Transmission finds the destination here.
int push_destination_copy(sk_buff* skb, const ipfc_ll_addr_t* daddr, const ipfc_ntw_hdr_t* header)
{
    auto* copy = static_cast<ipfc_ll_addr_t*>(skb_push(skb, sizeof(ipfc_ll_addr_t)));
    if (copy == nullptr) {
        IPFC_ERROR("%s couldn't push daddr:%s saddr:%s\n", NAME, wwn_text(header->hdr2.dwwn).str,
                   wwn_text(header->hdr2.swwn).str);
        return 0;
    }
    if (daddr == nullptr) {
        IPFC_ERROR("%s dst. address is (null) - cannot be cached\n", NAME);
        return -EINVAL;
    }
    *copy = *daddr;
    IPFC_EVENT("%s pushed daddr:%s fcid:%s \n", NAME, wwn_text(copy->ww_portname).str,
               fcid_text(copy->fcid).str);
    return 0;
}

} // namespace

int ipfc_dev_hard_header(sk_buff* skb, net_device* dev, unsigned short type, const void* dev_daddr,
                         const void* dev_saddr, unsigned int len)
{
    kvsan_interface_priv_t* priv = ipfc_priv(dev);
    const auto* daddr = static_cast<const ipfc_ll_addr_t*>(dev_daddr);
    const auto* saddr = static_cast<const ipfc_ll_addr_t*>(dev_saddr);

    IPFC_EVENT("%s vsan:%d type:%#x len:%d saddr:%s s_id:0x%x daddr:%s d_id:0x%x\n", NAME,
               priv->vsan_id, type, static_cast<int>(len), ll_addr_text(saddr).str,
               fcid_number(saddr), ll_addr_text(daddr).str, fcid_number(daddr));
    if (type != ETH_P_IP && type != ETH_P_ARP && type != ETH_P_IPV6) {
        // Nothing is pushed, and yet the result is that of success, deliberately.
        IPFC_ERROR("%s invalid type:: 0x%x \n", NAME, type);
        return positive_result();
    }
    int error = grow_headroom(skb);
    if (error != 0)
        return error;

    push_llc_header(skb, type);
    ipfc_ntw_hdr_t* header =
        push_network_header(skb, saddr != nullptr ? saddr->ww_portname : priv->ww_portname);
    if (daddr != nullptr) {
        error = write_destination(priv, daddr, header);
        if (error != 0) {
            kfree_skb(skb); // this failure alone frees the buffer
            return error;
        }
    }
    IPFC_EVENT("%s ntw_hdr - saddr:%s daddr:%s\n", NAME, wwn_text(header->hdr2.swwn).str,
               wwn_text(header->hdr2.dwwn).str);
    error = push_destination_copy(skb, daddr, header);
    if (error != 0)
        return error;
    skb_push(skb, static_cast<unsigned int>(fc2_room()));
    return positive_result();
}

// The buffer begins with the network header here. A buffer too short for both headers is of no type
// that can be resolved.
int ipfc_dev_rebuild_header(sk_buff* skb)
{
    IPFC_EVENT("rebuild header called\n");
    std::uint16_t ethertype = 0;
    if (pskb_may_pull(skb, IPFC_NTW_HDR_LEN + IPFC_LLC_HDR_LEN)) {
        const auto* llc =
            reinterpret_cast<const ipfc_llc_hdr_t*>(skb->data + sizeof(ipfc_ntw_hdr_t));
        ethertype = be16_to_cpu(llc->ethertype);
    }
    if (ethertype != ETH_P_IP) {
        IPFC_ERROR("Don't know how to resolve type %04X addresses\n", ethertype);
        return 0;
    }
    auto* header = reinterpret_cast<ipfc_ntw_hdr_t*>(skb->data);
    header->hdr1.dmac_to_ww[0] = 0x10;
    header->hdr1.dmac_to_ww[1] = 0x00;
    return arp_find(header->hdr1.daddr.ether_addr_octet, skb);
}
