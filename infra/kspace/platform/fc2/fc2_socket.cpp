// SPDX-License-Identifier: GPL-2.0-only
// Sockets: the bind filter, the queue, and the calls of data_ready.
//
// An information unit goes to one socket: the one that registered the N_Port it is addressed to, a
// broadcast to the first whose filter lets it in.
#include "platform/fc2/fc2_stack.h"

#include "kapi/wait.h"

// The argument is the platform's protocol number; this stack has one protocol.
int kfc2_sock_create(int, socket** sock, fc2_data_ready_t data_ready)
{
    fc2_stack* stack = fc2_current;
    if (stack == nullptr)
        return -ENODEV;
    auto* made = static_cast<socket*>(kzalloc(sizeof(socket), GFP_KERNEL));
    if (made == nullptr)
        return -ENOMEM;
    made->stack = stack;
    made->data_ready = data_ready;
    INIT_LIST_HEAD(&made->queue);
    irqsave_guard guard(stack->lock);
    list_add_tail(&made->link, &stack->sockets);
    *sock = made;
    return 0;
}

// This stack has one link and no interface indices of its own, so a filter that asks for one source
// interface would never match. m_rule and flags are kept and mean nothing further: match values are
// alternatives, and logins always reach the socket that registered the N_Port.
static bool is_sound(const sockaddr_fc2& filter)
{
    return filter.sa_family == AF_FC2 && filter.srcifindex == FC2_ANY_IFINDEX &&
           (filter.vsan == FC2_BIND_ANY_VSAN || filter.vsan <= VSAN_ID_MAX) &&
           (filter.nmatch == 0 || filter.m_size != 0) &&
           filter.m_size * filter.nmatch <= static_cast<int>(sizeof filter.m_values);
}

int kfc2_sock_bind(socket* sock, sockaddr_fc2* addr, int length)
{
    if (length != static_cast<int>(sizeof *addr) || !is_sound(*addr))
        return -EINVAL;
    irqsave_guard guard(sock->stack->lock);
    sock->filter = *addr;
    sock->bound = true;
    return 0;
}

// ---- the filter ----

static bool matches_values(const sockaddr_fc2& filter, const sk_buff* skb)
{
    if (filter.nmatch == 0)
        return true;
    std::uint8_t value[sizeof filter.m_values];
    if (skb_copy_bits(skb, filter.m_offset, value, filter.m_size) != 0)
        return false;
    for (unsigned int i = 0; i < filter.nmatch; i++)
        if (memcmp(filter.m_values + i * filter.m_size, value, filter.m_size) == 0)
            return true;
    return false;
}

static bool lets_in(const socket* sock, const fc2_frame& head, const sk_buff* skb)
{
    const sockaddr_fc2& filter = sock->filter;
    return sock->bound && (filter.vsan == FC2_BIND_ANY_VSAN || filter.vsan == head.vsan) &&
           filter.type == head.type && matches_values(filter, skb);
}

// The bind address: the destinations that are no N_Port's.
static bool is_bound_to(const socket* sock, std::uint32_t d_id)
{
    return ((d_id ^ fcid_value(sock->filter.d_id)) & fcid_value(sock->filter.d_idmask)) == 0;
}

static socket* receiver_of(fc2_stack* stack, bool login, const fc2_frame& head, const sk_buff* skb)
    KAPI_REQUIRES(stack->lock)
{
    const fc2_nport* nport = fc2_nport_find(stack, head.vsan, head.d_id);
    if (nport != nullptr)
        return login || lets_in(nport->owner, head, skb) ? nport->owner : nullptr;
    for (list_head* at = stack->sockets.next; at != &stack->sockets; at = at->next) {
        auto* sock = list_entry(at, socket, link);
        if (is_bound_to(sock, head.d_id) && lets_in(sock, head, skb))
            return sock;
    }
    return nullptr;
}

// ---- delivery ----

static void fill_header(fc2_iuhdr_t* header, std::uint16_t opcode, const fc2_frame& head,
                        unsigned int length)
{
    *header = {};
    header->opcode = opcode;
    header->length = static_cast<std::int32_t>(length);
    header->status = FC2_OK;
    header->sof = SOF_I3;
    header->eof = EOF_T;
    header->ttl = head.hop_count;
    header->sifindex = FC2_ANY_IFINDEX;
    header->difindex = FC2_ANY_IFINDEX;
    header->vsan = head.vsan;
    header->seq_cnt = head.seq_cnt;
    header->s_id = fcid_record(head.s_id);
    header->d_id = fcid_record(head.d_id);
    header->ox_id = head.ox_id;
    header->rx_id = head.rx_id;
    header->type = head.type;
    header->cs = CLASS_3;
    header->seq_id = head.seq_id;
    header->r_ctl = head.r_ctl;
    header->cs_ctl = head.cs_ctl;
    header->df_ctl = head.df_ctl;
    header->f_ctl = head.f_ctl;
    header->param.word = head.param;
}

// The socket that the unit was queued to, when the caller has become the one to announce it.
static socket* enqueue(fc2_stack* stack, fc2_queued* queued, const fc2_frame& head, bool* taken)
    KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    socket* sock = receiver_of(stack, queued->header.opcode != FC2_SEQUENCE, head, queued->skb);
    if (sock == nullptr) {
        stack->counters.unmatched++;
        return nullptr;
    }
    if (sock->num_queued == FC2_SOCKET_QUEUE_MAX) {
        stack->counters.overruns++;
        return nullptr;
    }
    stack->counters.delivered++;
    list_add_tail(&queued->link, &sock->queue);
    sock->num_queued++;
    *taken = true;
    if (sock->announcing)
        return nullptr;
    sock->announcing = true; // kfc2_sock_close waits for us from here on
    return sock;
}

// Calls data_ready for one unit after the other; on one processor at a time, so that the length
// that is announced is that of the unit that recvskb gives out. Ends early when a call takes none.
static void announce(fc2_stack* stack, socket* sock) KAPI_EXCLUDES(stack->lock)
{
    unsigned long flags;
    spin_lock_irqsave(&stack->lock, flags);
    while (!list_empty(&sock->queue)) {
        const unsigned long taken_before = sock->num_taken;
        const int length = list_entry(sock->queue.next, fc2_queued, link)->header.length;
        spin_unlock_irqrestore(&stack->lock, flags);
        sock->data_ready(sock, length);
        spin_lock_irqsave(&stack->lock, flags);
        if (sock->num_taken == taken_before)
            break;
    }
    sock->announcing = false;
    spin_unlock_irqrestore(&stack->lock, flags);
}

void fc2_deliver(fc2_stack* stack, std::uint16_t opcode, const fc2_frame& head, sk_buff* skb)
{
    bool taken = false;
    socket* sock = nullptr;
    auto* queued = static_cast<fc2_queued*>(kmalloc(sizeof(fc2_queued), GFP_ATOMIC));
    if (queued != nullptr) {
        fill_header(&queued->header, opcode, head, skb->len);
        queued->skb = skb;
        sock = enqueue(stack, queued, head, &taken);
    }
    if (!taken) {
        kfree(queued);
        dev_kfree_skb_any(skb);
        return;
    }
    if (sock != nullptr)
        announce(stack, sock);
}

static fc2_queued* take(socket* sock)
{
    irqsave_guard guard(sock->stack->lock);
    if (list_empty(&sock->queue))
        return nullptr;
    auto* queued = list_entry(fc2_list_take(&sock->queue), fc2_queued, link);
    sock->num_queued--;
    sock->num_taken++;
    return queued;
}

int kfc2_recvskb(socket* sock, fc2_iuhdr_t* header, sk_buff** skb)
{
    fc2_queued* queued = take(sock);
    if (queued == nullptr)
        return -EAGAIN;
    *header = queued->header;
    *skb = queued->skb;
    kfree(queued);
    return header->length;
}

// ---- the end ----

static bool is_announcing(const socket* sock)
{
    irqsave_guard guard(sock->stack->lock);
    return sock->announcing;
}

void kfc2_sock_close(socket* sock)
{
    fc2_stack* stack = sock->stack;
    {
        irqsave_guard guard(stack->lock);
        list_del_init(&sock->link);
        sock->bound = false;
    }
    fc2_nports_remove(stack, sock);
    // Nothing finds the socket any more; what is under way on another processor is short.
    while (is_announcing(sock))
        schedule();
    while (fc2_queued* queued = take(sock)) {
        dev_kfree_skb_any(queued->skb);
        kfree(queued);
    }
    kfree(sock);
}
