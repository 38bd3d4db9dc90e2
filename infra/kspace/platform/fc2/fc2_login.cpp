// SPDX-License-Identifier: GPL-2.0-only
// Logins between own N_Ports and their peers: the table, its clock, and LOGO on request.
#include "platform/fc2/fc2_stack.h"

static unsigned int bucket_of(std::uint16_t vsan, std::uint32_t own, std::uint32_t peer)
{
    const std::uint32_t mixed = peer ^ peer >> 8 ^ own << 3 ^ own >> 5 ^ vsan;
    return (mixed ^ mixed >> 10) % FC2_SESSION_BUCKETS;
}

fc2_session* fc2_session_find(fc2_stack* stack, std::uint16_t vsan, std::uint32_t own,
                              std::uint32_t peer)
{
    list_head* bucket = &stack->sessions[bucket_of(vsan, own, peer)];
    for (list_head* at = bucket->next; at != bucket; at = at->next) {
        auto* session = list_entry(at, fc2_session, link);
        if (session->peer == peer && session->nport->fcid == own && session->nport->vsan == vsan)
            return session;
    }
    return nullptr;
}

fc2_session* fc2_session_add(fc2_stack* stack, fc2_nport* nport, std::uint32_t peer)
{
    if (stack->num_sessions == FC2_SESSIONS_MAX)
        return nullptr;
    auto* session = static_cast<fc2_session*>(kzalloc(sizeof(fc2_session), GFP_ATOMIC));
    if (session == nullptr)
        return nullptr;
    session->nport = nport;
    session->peer = peer;
    session->max_data = FC_DATA_MAX;
    INIT_LIST_HEAD(&session->waiting);
    INIT_LIST_HEAD(&session->timed);
    list_add_tail(&session->of_nport, &nport->sessions);
    list_add_tail(&session->link, &stack->sessions[bucket_of(nport->vsan, nport->fcid, peer)]);
    stack->num_sessions++;
    return session;
}

void fc2_session_remove(fc2_stack* stack, fc2_session* session, list_head* dropped)
{
    fc2_session_release(stack, session, dropped);
    list_del_init(&session->timed);
    list_del_init(&session->of_nport);
    list_del_init(&session->link);
    stack->num_sessions--;
    kfree(session);
}

void fc2_session_set(fc2_stack* stack, fc2_session* session, fc2_login state,
                     unsigned long duration)
{
    session->state = state;
    list_del_init(&session->timed);
    if (state == fc2_login::open)
        return;
    session->deadline = jiffies + duration;
    list_add_tail(&session->timed, &stack->timed);
    fc2_timer_kick(stack);
}

sk_buff* fc2_session_attempt(fc2_stack* stack, fc2_session* session, fc2_frame* frame)
{
    const std::uint16_t ox_id = fc2_handle_ox_id(fc2_handle_next(stack));
    session->plogi_ox_id[session->attempts++] = ox_id;
    fc2_session_set(stack, session, fc2_login::pending, FC2_PLOGI_TIMEOUT);
    return fc2_els_plogi(session->nport, session->peer, ox_id, frame);
}

void fc2_session_release(fc2_stack* stack, fc2_session* session, list_head* to)
{
    fc2_list_move(&session->waiting, to);
    stack->bytes_waiting -= session->bytes_waiting;
    session->bytes_waiting = 0;
    session->num_waiting = 0;
}

void fc2_session_close_exchanges(fc2_session* session)
{
    memset(session->exchanges, 0, sizeof session->exchanges);
}

void fc2_waiting_drop(fc2_stack* stack, list_head* waiting)
{
    while (!list_empty(waiting)) {
        auto* entry = list_entry(fc2_list_take(waiting), fc2_waiting, link);
        dev_kfree_skb_any(entry->skb);
        kfree(entry);
        irqsave_guard guard(stack->lock);
        stack->counters.overruns++;
    }
}

// ---- the clock ----

// What is due for one login: a PLOGI to send, sequences to drop.
struct expiry {
    sk_buff* plogi = nullptr;
    fc2_frame frame = {};
    list_head dropped;
};

static void expire(fc2_stack* stack, fc2_session* session, expiry* due) KAPI_REQUIRES(stack->lock)
{
    if (session->state != fc2_login::pending) {
        fc2_session_remove(stack, session, &due->dropped);
        return;
    }
    if (session->attempts < FC2_PLOGI_ATTEMPTS) {
        due->plogi = fc2_session_attempt(stack, session, &due->frame);
        return;
    }
    stack->counters.logins_unanswered++;
    fc2_session_release(stack, session, &due->dropped);
    fc2_session_close_exchanges(session);
    fc2_session_set(stack, session, fc2_login::unreachable, FC2_REFUSAL_HOLD);
}

static bool expire_one(fc2_stack* stack, expiry* due) KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    for (list_head* at = stack->timed.next; at != &stack->timed; at = at->next) {
        auto* session = list_entry(at, fc2_session, timed);
        if (!time_after(session->deadline, jiffies)) {
            expire(stack, session, due);
            return true;
        }
    }
    return false;
}

void fc2_logins_expire(fc2_stack* stack)
{
    for (;;) {
        expiry due;
        INIT_LIST_HEAD(&due.dropped);
        if (!expire_one(stack, &due))
            return;
        fc2_waiting_drop(stack, &due.dropped);
        if (due.plogi != nullptr)
            fc2_transmit(stack, due.frame, due.plogi);
    }
}

// ---- LOGO ----

// The last four arguments are the platform's own business: class, priority, flags and interface of
// a real switch. A LOGO goes out with or without a login, because the peer may believe in one; it
// also ends the hold on a peer that had refused or was silent.
int kfc2_send_logo(socket* sock, std::uint16_t vsan, fcid_t s_id, fcid_t d_id, int, int, int,
                   std::uint32_t)
{
    fc2_stack* stack = sock->stack;
    const std::uint32_t own = fcid_value(s_id);
    const std::uint32_t peer = fcid_value(d_id);
    if (peer == 0 || peer == FCID_BROADCAST)
        return -EINVAL;
    list_head dropped;
    INIT_LIST_HEAD(&dropped);
    fc2_frame frame;
    sk_buff* logo;
    {
        irqsave_guard guard(stack->lock);
        fc2_nport* nport = fc2_nport_find(stack, vsan, own);
        if (nport == nullptr)
            return -EADDRNOTAVAIL;
        fc2_session* session = fc2_session_find(stack, vsan, own, peer);
        if (session != nullptr)
            fc2_session_remove(stack, session, &dropped);
        logo = fc2_els_logo(nport, peer, fc2_handle_ox_id(fc2_handle_next(stack)), &frame);
    }
    fc2_waiting_drop(stack, &dropped);
    if (logo == nullptr)
        return -ENOMEM;
    fc2_transmit(stack, frame, logo);
    return 0;
}
