// SPDX-License-Identifier: GPL-2.0-only
// The stack as a whole: its record, its clock, and the way of a frame from and to the link.
#include "platform/fc2/fc2_stack.h"

constinit fc2_stack* fc2_current = nullptr;

static void tick(void* argument)
{
    auto* stack = static_cast<fc2_stack*>(argument);
    list_head looped;
    INIT_LIST_HEAD(&looped);
    {
        irqsave_guard guard(stack->lock);
        stack->ticking = false;
        fc2_list_move(&stack->looped, &looped);
        stack->num_looped = 0;
    }
    while (!list_empty(&looped)) {
        auto* queued = list_entry(fc2_list_take(&looped), fc2_queued, link);
        fc2_link_receive(stack, queued->skb);
        kfree(queued);
    }
    fc2_logins_expire(stack);
    fc2_sequences_expire(stack);
    fc2_names_tick(stack);
    irqsave_guard guard(stack->lock);
    if (!list_empty(&stack->timed) || stack->num_sequences != 0 || stack->names.num != 0)
        fc2_timer_kick(stack);
}

void fc2_timer_kick(fc2_stack* stack)
{
    if (stack->stopping || stack->ticking)
        return;
    stack->ticking = true;
    mod_timer(&stack->timer, jiffies + FC2_TICK);
}

fc2_stack* fc2_stack_create(brim_link* link)
{
    auto* stack = static_cast<fc2_stack*>(vmalloc(sizeof(fc2_stack)));
    if (stack == nullptr)
        return nullptr;
    memset(stack, 0, sizeof *stack);
    stack->link = link;
    spin_lock_init(&stack->lock);
    kapi_timer_setup(&stack->timer, tick, stack);
    irqsave_guard guard(stack->lock);
    INIT_LIST_HEAD(&stack->sockets);
    for (list_head& bucket : stack->nports)
        INIT_LIST_HEAD(&bucket);
    for (list_head& bucket : stack->sessions)
        INIT_LIST_HEAD(&bucket);
    INIT_LIST_HEAD(&stack->timed);
    INIT_LIST_HEAD(&stack->sequences);
    INIT_LIST_HEAD(&stack->looped);
    fc2_names_init(&stack->names);
    return stack;
}

static socket* first_socket(fc2_stack* stack)
{
    irqsave_guard guard(stack->lock);
    return list_empty(&stack->sockets) ? nullptr : list_entry(stack->sockets.next, socket, link);
}

void fc2_stack_destroy(fc2_stack* stack)
{
    while (socket* left = first_socket(stack))
        kfc2_sock_close(left);
    {
        irqsave_guard guard(stack->lock);
        stack->stopping = true;
    }
    del_timer_sync(&stack->timer);
    tick(stack);
    fc2_names_free(&stack->names);
    vfree(stack);
}

// Frames for an own N_Port never come back from a wire. They go the receiver's way in a softirq of
// its own, because the sender may hold locks that the receiver takes.
static bool loop_back(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    irqsave_guard guard(stack->lock);
    stack->counters.frames_sent++;
    if (frame.d_id == FCID_BROADCAST || fc2_nport_find(stack, frame.vsan, frame.d_id) == nullptr)
        return false;
    auto* queued = static_cast<fc2_queued*>(kmalloc(sizeof(fc2_queued), GFP_ATOMIC));
    if (queued == nullptr || stack->stopping || stack->num_looped == FC2_LOOPED_MAX) {
        stack->counters.overruns++;
        kfree(queued);
        dev_kfree_skb_any(skb);
        return true;
    }
    queued->skb = skb;
    list_add_tail(&queued->link, &stack->looped);
    stack->num_looped++;
    stack->ticking = true;
    mod_timer(&stack->timer, jiffies);
    return true;
}

void fc2_transmit(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    if (!loop_back(stack, frame, skb))
        brim_link_transmit(stack->link, skb);
}

// ---- reception ----

static bool count_verdict(fc2_stack* stack, fc2_verdict verdict)
{
    irqsave_guard guard(stack->lock);
    switch (verdict) {
    case fc2_verdict::good:
        return true;
    case fc2_verdict::not_ours:
        stack->counters.not_for_us++;
        return false;
    case fc2_verdict::malformed:
        stack->counters.malformed++;
        return false;
    case fc2_verdict::bad_crc:
        stack->counters.bad_crc++;
        return false;
    }
    return false;
}

static bool is_els(const fc2_frame& frame)
{
    return frame.type == FC_TYPE_ELS &&
           (frame.r_ctl == RCTL_ELS_REQUEST || frame.r_ctl == RCTL_ELS_REPLY);
}

// A link carries the frames of every port on it, in the manner of an old hub.
static fc2_verdict address_check(fc2_stack* stack, const fc2_frame& frame)
{
    irqsave_guard guard(stack->lock);
    stack->counters.frames_received++;
    if (frame.s_id == 0 || frame.s_id == FCID_BROADCAST)
        return fc2_verdict::malformed;
    if (frame.d_id == FCID_BROADCAST)
        return is_els(frame) ? fc2_verdict::not_ours : fc2_verdict::good;
    if (fc2_is_for_names(frame))
        return fc2_verdict::good;
    if (fc2_nport_find(stack, frame.vsan, frame.d_id) != nullptr)
        return fc2_verdict::good;
    return is_els(frame) && fc2_domain_is_ours(stack, frame.vsan, frame.d_id)
               ? fc2_verdict::good
               : fc2_verdict::not_ours;
}

static void receive_data(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    fc2_frame head;
    sk_buff* whole = fc2_sequence_collect(stack, frame, skb, &head);
    if (whole != nullptr)
        fc2_deliver(stack, FC2_SEQUENCE, head, whole);
}

void fc2_link_receive(fc2_stack* stack, sk_buff* skb)
{
    fc2_frame frame;
    fc2_verdict verdict = fc2_frame_read(skb, &frame);
    if (verdict == fc2_verdict::good)
        verdict = address_check(stack, frame);
    if (verdict == fc2_verdict::good)
        verdict = fc2_frame_open(skb, frame);
    // Of the routing values only the device data are a sequence for a socket.
    if (verdict == fc2_verdict::good && !is_els(frame) && frame.r_ctl >> 4 != 0)
        verdict = fc2_verdict::not_ours;
    if (!count_verdict(stack, verdict)) {
        dev_kfree_skb_any(skb);
        return;
    }
    if (is_els(frame))
        fc2_els_receive(stack, frame, skb);
    else if (fc2_is_for_names(frame))
        fc2_names_receive(stack, frame, skb);
    else
        receive_data(stack, frame, skb);
}
