// SPDX-License-Identifier: GPL-2.0-only
// Sequences on their way out: which exchange and login they use, and how they are cut into frames.
#include "platform/fc2/fc2_stack.h"

// Handles are not negative, and their low half is an OX_ID, which 0xFFFF is not.
std::uint32_t fc2_handle_next(fc2_stack* stack)
{
    do
        stack->last_handle = (stack->last_handle + 1) & 0x7FFFFFFF;
    while (fc2_handle_ox_id(stack->last_handle) == FC_XID_NONE);
    return stack->last_handle;
}

unsigned int fc2_max_data(const fc2_stack* stack, unsigned int peer_takes)
{
    const unsigned int mtu = brim_link_mtu(stack->link);
    if (mtu < FCOE_OVERHEAD + FC_DATA_MIN)
        return FC_DATA_MIN;
    const unsigned int fits = (mtu - FCOE_OVERHEAD) & ~3u;
    return fits < peer_takes ? fits : peer_takes;
}

// ---- cutting ----

static void send_whole(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    if (!fc2_frame_fits(skb)) {
        sk_buff* copy = fc2_frame_alloc(skb->len);
        if (copy != nullptr)
            skb_copy_bits(skb, 0, skb_put(copy, skb->len), static_cast<int>(skb->len));
        dev_kfree_skb_any(skb);
        if (copy == nullptr)
            return;
        skb = copy;
    }
    fc2_frame_enclose(skb, frame);
    fc2_transmit(stack, frame, skb);
}

// The network header is in the first frame alone (RFC 2625, 4.1), and the relative offset counts
// the bytes behind it.
static fc2_frame part_header(const fc2_frame& head, unsigned int number, unsigned int at)
{
    const unsigned int optional =
        (head.df_ctl & FC_DFCTL_NETWORK_HEADER) != 0 ? FC_NETWORK_HEADER_LEN : 0;
    fc2_frame frame = head;
    frame.seq_cnt = static_cast<std::uint16_t>(head.seq_cnt + number);
    frame.f_ctl |= FCTL_RELATIVE_OFFSET;
    frame.first = number == 0;
    if (!frame.first) {
        frame.df_ctl = 0;
        frame.param = at - optional;
    }
    return frame;
}

static void send_parts(fc2_stack* stack, const fc2_frame& head, unsigned int max_data,
                       const sk_buff* skb)
{
    unsigned int at = 0;
    for (unsigned int number = 0; at < skb->len; number++) {
        const unsigned int rest = skb->len - at;
        const unsigned int length = rest < max_data ? rest : max_data;
        fc2_frame frame = part_header(head, number, at);
        if (length == rest)
            frame.f_ctl |= FCTL_END_SEQUENCE;
        sk_buff* part = fc2_frame_alloc(length);
        if (part == nullptr)
            return; // the receiver discards the sequence
        skb_copy_bits(skb, static_cast<int>(at), skb_put(part, length), static_cast<int>(length));
        fc2_frame_enclose(part, frame);
        fc2_transmit(stack, frame, part);
        at += length;
    }
}

void fc2_sequence_send(fc2_stack* stack, const fc2_frame& head, unsigned int max_data, sk_buff* skb)
{
    max_data = fc2_max_data(stack, max_data);
    if (skb->len > max_data) {
        send_parts(stack, head, max_data, skb);
        dev_kfree_skb_any(skb);
        return;
    }
    fc2_frame frame = head;
    frame.f_ctl |= FCTL_END_SEQUENCE;
    frame.first = true;
    send_whole(stack, frame, skb);
}

void fc2_waiting_send(fc2_stack* stack, list_head* waiting, unsigned int max_data)
{
    while (!list_empty(waiting)) {
        auto* entry = list_entry(fc2_list_take(waiting), fc2_waiting, link);
        fc2_sequence_send(stack, entry->head, max_data, entry->skb);
        kfree(entry);
    }
}

// ---- exchanges ----

// A handle that has gone stale with its login is not an error: the sequence opens a new exchange,
// whose handle the caller gets.
static fc2_exchange* exchange_for(fc2_stack* stack, fc2_session* session, const fc2_iuhdr_t& header)
    KAPI_REQUIRES(stack->lock)
{
    if ((header.f_ctl & FC2_FCTL_FIRST_SEQUENCE) == 0)
        for (fc2_exchange& exchange : session->exchanges)
            if (exchange.open && exchange.handle == header.handle)
                return &exchange;
    fc2_exchange* exchange = nullptr;
    for (fc2_exchange& any : session->exchanges)
        if (!any.open)
            exchange = &any;
    if (exchange == nullptr)
        exchange = &session->exchanges[session->oldest_exchange++ % FC2_EXCHANGES_PER_SESSION];
    *exchange = {true, false, 0, fc2_handle_next(stack)};
    return exchange;
}

static void enter_exchange(fc2_frame* head, fc2_exchange* exchange, bool last)
{
    head->ox_id = fc2_handle_ox_id(exchange->handle);
    head->seq_id = exchange->next_seq_id++;
    head->f_ctl = exchange->begun ? 0 : FCTL_FIRST_SEQUENCE;
    if (last)
        head->f_ctl |= FCTL_LAST_SEQUENCE;
    exchange->begun = true;
    exchange->open = !last;
}

// ---- sending ----

// One kfc2_sendskb on its way.
struct departure {
    fc2_frame head;
    sk_buff* skb;
    int result;            // handle, or negative: the buffer stays behind
    bool waits;            // the login owns the buffer
    unsigned int max_data; // what the peer takes in a frame
    sk_buff* plogi;        // to be sent first
    fc2_frame plogi_frame;
};

static fc2_frame head_of(const fc2_iuhdr_t& header)
{
    fc2_frame head = {};
    head.vsan = header.vsan;
    head.hop_count = header.ttl;
    head.s_id = fcid_value(header.s_id);
    head.d_id = fcid_value(header.d_id);
    head.r_ctl = header.r_ctl;
    head.cs_ctl = header.cs_ctl;
    head.type = header.type;
    head.df_ctl = header.df_ctl;
    head.seq_cnt = header.seq_cnt;
    head.rx_id = FC_XID_NONE;
    return head;
}

static bool is_sendable(const fc2_iuhdr_t& header)
{
    return header.opcode == FC2_SEQUENCE && header.vsan <= VSAN_ID_MAX && header.r_ctl >> 4 == 0 &&
           fcid_value(header.d_id) != 0;
}

static int wait_for_login(fc2_stack* stack, fc2_session* session, const departure& sent)
    KAPI_REQUIRES(stack->lock)
{
    const unsigned int length = sent.skb->len;
    if (session->num_waiting == FC2_WAITING_PER_PEER ||
        session->bytes_waiting + length > FC2_WAITING_BYTES_PER_PEER ||
        stack->bytes_waiting + length > FC2_WAITING_BYTES)
        return -ENOBUFS;
    auto* entry = static_cast<fc2_waiting*>(kmalloc(sizeof(fc2_waiting), GFP_ATOMIC));
    if (entry == nullptr)
        return -ENOMEM;
    entry->skb = sent.skb;
    entry->head = sent.head;
    list_add_tail(&entry->link, &session->waiting);
    session->num_waiting++;
    session->bytes_waiting += length;
    stack->bytes_waiting += length;
    return 0;
}

static void send_over(fc2_stack* stack, fc2_session* session, const fc2_iuhdr_t& header,
                      departure* sent) KAPI_REQUIRES(stack->lock)
{
    if (session->state == fc2_login::refused || session->state == fc2_login::unreachable) {
        sent->result = session->state == fc2_login::refused ? -ECONNREFUSED : -EHOSTUNREACH;
        return;
    }
    const bool last = (header.f_ctl & FCTL_LAST_SEQUENCE) != 0;
    fc2_exchange* exchange = exchange_for(stack, session, header);
    const std::uint32_t handle = exchange->handle;
    enter_exchange(&sent->head, exchange, last);
    sent->max_data = session->max_data;
    sent->result = 0;
    if (session->state == fc2_login::pending) {
        sent->result = wait_for_login(stack, session, *sent);
        sent->waits = sent->result == 0;
    }
    if (sent->result == 0)
        sent->result = static_cast<int>(handle);
}

static void send_unicast(fc2_stack* stack, fc2_nport* nport, const fc2_iuhdr_t& header,
                         departure* sent) KAPI_REQUIRES(stack->lock)
{
    fc2_session* session = fc2_session_find(stack, nport->vsan, nport->fcid, sent->head.d_id);
    if (session == nullptr) {
        session = fc2_session_add(stack, nport, sent->head.d_id);
        if (session == nullptr) {
            sent->result = -ENOBUFS;
            return;
        }
        // A PLOGI that memory does not allow is made up for by the next attempt.
        sent->plogi = fc2_session_attempt(stack, session, &sent->plogi_frame);
    }
    send_over(stack, session, header, sent);
}

static void send_broadcast(fc2_stack* stack, const fc2_iuhdr_t& header, departure* sent)
    KAPI_REQUIRES(stack->lock)
{
    fc2_exchange exchange = {true, false, 0, fc2_handle_next(stack)};
    enter_exchange(&sent->head, &exchange, (header.f_ctl & FCTL_LAST_SEQUENCE) != 0);
    sent->max_data = FC_DATA_MAX;
    sent->result = static_cast<int>(exchange.handle);
}

static void prepare(fc2_stack* stack, const fc2_iuhdr_t& header, departure* sent)
    KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    fc2_nport* nport = fc2_nport_find(stack, header.vsan, sent->head.s_id);
    if (nport == nullptr)
        sent->result = -EADDRNOTAVAIL;
    else if (sent->head.d_id == FCID_BROADCAST)
        send_broadcast(stack, header, sent);
    else
        send_unicast(stack, nport, header, sent);
}

// -EINVAL for a header that makes no sequence, -EMSGSIZE for no data or too many, -EADDRNOTAVAIL
// for a source that is no registered N_Port, -ENOBUFS when too much waits for the login already.
int kfc2_sendskb(socket* sock, fc2_iuhdr_t* header, sk_buff* skb)
{
    fc2_stack* stack = sock->stack;
    departure sent = {};
    sent.skb = skb;
    if (!is_sendable(*header)) {
        sent.result = -EINVAL;
    } else if (skb->len == 0 || skb->len > FC2_IU_MAX) {
        sent.result = -EMSGSIZE;
    } else {
        sent.head = head_of(*header);
        prepare(stack, *header, &sent);
    }
    if (sent.plogi != nullptr)
        fc2_transmit(stack, sent.plogi_frame, sent.plogi);
    if (sent.result < 0)
        dev_kfree_skb_any(skb);
    else if (!sent.waits)
        fc2_sequence_send(stack, sent.head, sent.max_data, skb);
    return sent.result;
}

int fc2_get_hdr_reserve(void)
{
    return FC2_HEADER_RESERVE;
}

int fc2_get_tlrlen(void)
{
    return FC2_TRAILER_LEN;
}
