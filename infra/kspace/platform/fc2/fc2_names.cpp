// SPDX-License-Identifier: GPL-2.0-only
#include "platform/fc2/fc2_names.h"

#include "platform/fc2/fc2_stack.h"

namespace {

// Common transport information unit (FC-GS, 4): a preamble of 16 bytes and the command's own part.
inline constexpr std::uint8_t RCTL_UNSOLICITED_CONTROL = 0x02;
inline constexpr std::uint8_t FC_TYPE_CT = 0x20;
inline constexpr std::uint32_t DIRECTORY_SERVER = 0xFFFFFC;
inline constexpr std::uint8_t CT_REVISION = 0x01;
inline constexpr std::uint8_t CT_DIRECTORY_SERVICE = 0xFC;
inline constexpr std::uint8_t CT_NAME_SERVER = 0x02;
inline constexpr std::uint16_t CT_DA_ID = 0x0300;  // remove all of a port: port identifier
inline constexpr std::uint16_t CT_RPN_ID = 0x0212; // register port name: port identifier, port name
inline constexpr unsigned int CT_PREAMBLE_LEN = 16;
inline constexpr unsigned int CT_COMMAND_AT = 8;
inline constexpr unsigned int DA_ID_LEN = CT_PREAMBLE_LEN + 4;
inline constexpr unsigned int RPN_ID_LEN = CT_PREAMBLE_LEN + 12;

inline constexpr std::uint8_t NAMES_HOP_COUNT = 0xFF;

list_head* bucket_of(fc2_names* names, std::uint16_t vsan, wwn_t portname)
{
    std::uint32_t mixed = vsan;
    for (std::uint8_t byte : portname.str)
        mixed = mixed * 31 + byte;
    return &names->buckets[mixed % FC2_NAME_BUCKETS];
}

fc2_name* find(fc2_names* names, std::uint16_t vsan, wwn_t portname)
{
    list_head* bucket = bucket_of(names, vsan, portname);
    for (list_head* at = bucket->next; at != bucket; at = at->next) {
        auto* name = list_entry(at, fc2_name, bucket);
        if (name->vsan == vsan && name->portname.num == portname.num)
            return name;
    }
    return nullptr;
}

fc2_name* find_address(list_head* among, std::uint16_t vsan, std::uint32_t fcid)
{
    for (list_head* at = among->next; at != among; at = at->next) {
        auto* name = list_entry(at, fc2_name, order);
        if (name->vsan == vsan && name->fcid == fcid)
            return name;
    }
    return nullptr;
}

void forget(fc2_names* names, fc2_name* name)
{
    list_del_init(&name->bucket);
    list_del_init(&name->order);
    names->num--;
    if (name->own)
        names->num_own--;
    names->version++;
    kfree(name);
}

// Null when the table is full or memory is out.
fc2_name* enter(fc2_names* names, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname)
{
    if (names->num == FC2_NAMES_MAX)
        return nullptr;
    auto* name = static_cast<fc2_name*>(kzalloc(sizeof(fc2_name), GFP_ATOMIC));
    if (name == nullptr)
        return nullptr;
    name->vsan = vsan;
    name->fcid = fcid;
    name->portname = portname;
    INIT_LIST_HEAD(&name->order);
    list_add_tail(&name->bucket, bucket_of(names, vsan, portname));
    names->num++;
    names->version++;
    return name;
}

void put_in_order(list_head* order, fc2_name* name, unsigned long due)
{
    list_del_init(&name->order);
    name->due = due;
    list_add_tail(&name->order, order);
}

// ---- frames ----

fc2_frame frame_from(std::uint16_t vsan, std::uint32_t fcid, std::uint16_t ox_id)
{
    fc2_frame frame = {};
    frame.vsan = vsan;
    frame.hop_count = NAMES_HOP_COUNT;
    frame.s_id = fcid;
    frame.d_id = DIRECTORY_SERVER;
    frame.r_ctl = RCTL_UNSOLICITED_CONTROL;
    frame.type = FC_TYPE_CT;
    frame.f_ctl = FCTL_FIRST_SEQUENCE | FCTL_END_SEQUENCE | FCTL_TRANSFER_INITIATIVE;
    frame.ox_id = ox_id;
    frame.rx_id = FC_XID_NONE;
    frame.first = true;
    return frame;
}

sk_buff* command(std::uint16_t code, unsigned int length, std::uint32_t fcid)
{
    sk_buff* skb = fc2_frame_alloc(length);
    if (skb == nullptr)
        return nullptr;
    auto* to = static_cast<std::uint8_t*>(skb_put(skb, length));
    memset(to, 0, length);
    to[0] = CT_REVISION;
    to[4] = CT_DIRECTORY_SERVICE;
    to[5] = CT_NAME_SERVER;
    store_be16(to + CT_COMMAND_AT, code);
    store_be32(to + CT_PREAMBLE_LEN, fcid);
    return skb;
}

std::uint16_t next_ox_id(fc2_stack* stack) KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    return ++stack->names.ox_id % FC_XID_NONE;
}

// Lost for want of memory is as good as lost on the wire: the next announcement makes up for it.
void announce(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname)
{
    sk_buff* skb = command(CT_RPN_ID, RPN_ID_LEN, fcid);
    if (skb == nullptr)
        return;
    memcpy(skb->data + CT_PREAMBLE_LEN + 4, portname.str, sizeof portname.str);
    const fc2_frame frame = frame_from(vsan, fcid, next_ox_id(stack));
    fc2_frame_enclose(skb, frame);
    fc2_transmit(stack, frame, skb);
}

void announce_going(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid)
{
    sk_buff* skb = command(CT_DA_ID, DA_ID_LEN, fcid);
    if (skb == nullptr)
        return;
    const fc2_frame frame = frame_from(vsan, fcid, next_ox_id(stack));
    fc2_frame_enclose(skb, frame);
    fc2_transmit(stack, frame, skb);
}

// ---- what others say ----

// A port that has moved keeps its entry; an address that another port had is taken from it. Own
// ports are this switch's to know.
bool learn(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname)
    KAPI_REQUIRES(stack->lock)
{
    fc2_names* names = &stack->names;
    fc2_name* name = find(names, vsan, portname);
    if (name != nullptr && name->own)
        return false;
    const bool changed = name == nullptr || name->fcid != fcid;
    if (changed) {
        if (find_address(&names->own, vsan, fcid) != nullptr)
            return false;
        fc2_name* former = find_address(&names->others, vsan, fcid);
        if (former != nullptr)
            forget(names, former);
    }
    if (name == nullptr) {
        name = enter(names, vsan, fcid, portname);
        if (name == nullptr)
            return false;
        // Whoever has joined wants to know of ours.
        names->hurry = names->num_own;
    } else if (changed) {
        name->fcid = fcid;
        names->version++;
    }
    put_in_order(&names->others, name, jiffies + FC2_NAME_LIFETIME);
    fc2_timer_kick(stack);
    return changed;
}

bool unlearn(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid) KAPI_REQUIRES(stack->lock)
{
    fc2_name* name = find_address(&stack->names.others, vsan, fcid);
    if (name != nullptr)
        forget(&stack->names, name);
    return name != nullptr;
}

bool is_name_command(const std::uint8_t* at, unsigned int length)
{
    return length >= DA_ID_LEN && at[0] == CT_REVISION && at[4] == CT_DIRECTORY_SERVICE &&
           at[5] == CT_NAME_SERVER;
}

// True when the table is another one now. A port speaks for itself only.
bool obey(fc2_stack* stack, const fc2_frame& frame, const std::uint8_t* at, unsigned int length)
    KAPI_EXCLUDES(stack->lock)
{
    if (!is_name_command(at, length) || load_be24(at + CT_PREAMBLE_LEN + 1) != frame.s_id)
        return false;
    irqsave_guard guard(stack->lock);
    switch (load_be16(at + CT_COMMAND_AT)) {
    case CT_RPN_ID: {
        if (length < RPN_ID_LEN)
            return false;
        wwn_t portname;
        memcpy(portname.str, at + CT_PREAMBLE_LEN + 4, sizeof portname.str);
        return learn(stack, frame.vsan, frame.s_id, portname);
    }
    case CT_DA_ID:
        return unlearn(stack, frame.vsan, frame.s_id);
    default:
        return false;
    }
}

// ---- the clock ----

struct announcement {
    std::uint16_t vsan;
    std::uint32_t fcid;
    wwn_t portname;
};

bool next_announcement(fc2_stack* stack, announcement* next) KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    fc2_names* names = &stack->names;
    if (list_empty(&names->own) || stack->stopping)
        return false;
    auto* name = list_entry(names->own.next, fc2_name, order);
    if (names->hurry != 0)
        names->hurry--;
    else if (time_after(name->due, jiffies))
        return false;
    *next = {name->vsan, name->fcid, name->portname};
    put_in_order(&names->own, name, jiffies + FC2_NAME_INTERVAL);
    return true;
}

bool forget_silent_ones(fc2_stack* stack) KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    bool any = false;
    list_head* const others = &stack->names.others;
    for (list_head *at = others->next, *next; at != others; at = next) {
        next = at->next;
        auto* oldest = list_entry(at, fc2_name, order);
        if (time_after(oldest->due, jiffies))
            break;
        forget(&stack->names, oldest);
        any = true;
    }
    return any;
}

void free_all(list_head* names)
{
    for (list_head *at = names->next, *next; at != names; at = next) {
        next = at->next;
        kfree(list_entry(at, fc2_name, order));
    }
}

} // namespace

void fc2_names_init(fc2_names* names)
{
    for (list_head& bucket : names->buckets)
        INIT_LIST_HEAD(&bucket);
    INIT_LIST_HEAD(&names->own);
    INIT_LIST_HEAD(&names->others);
}

void fc2_names_free(fc2_names* names)
{
    free_all(&names->own);
    free_all(&names->others);
}

void fc2_name_register(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname)
{
    {
        irqsave_guard guard(stack->lock);
        fc2_names* names = &stack->names;
        fc2_name* name = find(names, vsan, portname);
        if (name != nullptr)
            forget(names, name); // it lived elsewhere, or here under another address
        name = enter(names, vsan, fcid, portname);
        if (name == nullptr)
            return;
        name->own = true;
        names->num_own++;
        put_in_order(&names->own, name, jiffies + FC2_NAME_INTERVAL);
        fc2_timer_kick(stack);
    }
    announce(stack, vsan, fcid, portname);
    fc2_names_changed();
}

void fc2_name_withdraw(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname)
{
    {
        irqsave_guard guard(stack->lock);
        fc2_name* name = find(&stack->names, vsan, portname);
        if (name == nullptr || !name->own || name->fcid != fcid)
            return;
        forget(&stack->names, name);
    }
    announce_going(stack, vsan, fcid);
    fc2_names_changed();
}

bool fc2_is_for_names(const fc2_frame& frame)
{
    return frame.d_id == DIRECTORY_SERVER && frame.type == FC_TYPE_CT &&
           frame.r_ctl == RCTL_UNSOLICITED_CONTROL;
}

void fc2_names_receive(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    if (frame.first && fc2_frame_ends_sequence(frame) && obey(stack, frame, skb->data, skb->len))
        fc2_names_changed();
    dev_kfree_skb_any(skb);
}

void fc2_names_tick(fc2_stack* stack)
{
    announcement next;
    for (unsigned int i = 0; i < FC2_NAMES_PER_TICK && next_announcement(stack, &next); i++)
        announce(stack, next.vsan, next.fcid, next.portname);
    if (forget_silent_ones(stack))
        fc2_names_changed();
}
