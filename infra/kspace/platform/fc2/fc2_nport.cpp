// SPDX-License-Identifier: GPL-2.0-only
// The table of own N_Ports, kept through the socket options.
#include "platform/fc2/fc2_stack.h"

static unsigned int bucket_of(std::uint16_t vsan, std::uint32_t fcid)
{
    return (fcid ^ fcid >> 8 ^ fcid >> 16 ^ vsan) % FC2_NPORT_BUCKETS;
}

fc2_nport* fc2_nport_find(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid)
{
    list_head* bucket = &stack->nports[bucket_of(vsan, fcid)];
    for (list_head* at = bucket->next; at != bucket; at = at->next) {
        auto* nport = list_entry(at, fc2_nport, link);
        if (nport->vsan == vsan && nport->fcid == fcid)
            return nport;
    }
    return nullptr;
}

// The first N_Port for which the test holds.
template <typename Test>
static fc2_nport* find_any(fc2_stack* stack, Test test) KAPI_REQUIRES(stack->lock)
{
    for (list_head& bucket : stack->nports)
        for (list_head* at = bucket.next; at != &bucket; at = at->next) {
            auto* nport = list_entry(at, fc2_nport, link);
            if (test(nport))
                return nport;
        }
    return nullptr;
}

bool fc2_domain_is_ours(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid)
{
    return find_any(stack, [=](const fc2_nport* nport) {
               return nport->vsan == vsan && fcid_domain(nport->fcid) == fcid_domain(fcid);
           }) != nullptr;
}

// Ends one login of the N_Port with a LOGO; false when it has none. A peer that never answered has
// none to end, but it may have answered by now.
static bool log_out_one(fc2_stack* stack, fc2_nport* nport) KAPI_EXCLUDES(stack->lock)
{
    list_head dropped;
    INIT_LIST_HEAD(&dropped);
    fc2_frame frame;
    sk_buff* logo = nullptr;
    {
        irqsave_guard guard(stack->lock);
        if (list_empty(&nport->sessions))
            return false;
        auto* session = list_entry(nport->sessions.next, fc2_session, of_nport);
        if (session->state == fc2_login::open || session->state == fc2_login::pending)
            logo = fc2_els_logo(nport, session->peer, fc2_handle_ox_id(fc2_handle_next(stack)),
                                &frame);
        fc2_session_remove(stack, session, &dropped);
    }
    fc2_waiting_drop(stack, &dropped);
    if (logo != nullptr)
        fc2_transmit(stack, frame, logo);
    return true;
}

// An unlinked N_Port gets no new session, so this comes to an end.
static void log_out_and_free(fc2_stack* stack, fc2_nport* nport) KAPI_EXCLUDES(stack->lock)
{
    while (log_out_one(stack, nport)) {
    }
    fc2_name_withdraw(stack, nport->vsan, nport->fcid, nport->plogi.nport_wwn);
    kfree(nport);
}

static void unlink(fc2_stack* stack, fc2_nport* nport) KAPI_REQUIRES(stack->lock)
{
    list_del_init(&nport->link);
    stack->num_nports--;
}

void fc2_nports_remove(fc2_stack* stack, const socket* owner)
{
    for (;;) {
        fc2_nport* nport;
        {
            irqsave_guard guard(stack->lock);
            nport = find_any(stack, [=](const fc2_nport* any) { return any->owner == owner; });
            if (nport == nullptr)
                return;
            unlink(stack, nport);
        }
        log_out_and_free(stack, nport);
    }
}

static int insert(fc2_stack* stack, fc2_nport* nport) KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    if (fc2_nport_find(stack, nport->vsan, nport->fcid) != nullptr)
        return -EEXIST;
    if (stack->num_nports == FC2_NPORTS_MAX)
        return -ENOSPC;
    list_add_tail(&nport->link, &stack->nports[bucket_of(nport->vsan, nport->fcid)]);
    stack->num_nports++;
    return 0;
}

static int add_nport(socket* sock, const fc2_opt_nport_t& option)
{
    auto* nport = static_cast<fc2_nport*>(kzalloc(sizeof(fc2_nport), GFP_KERNEL));
    if (nport == nullptr)
        return -ENOMEM;
    nport->owner = sock;
    nport->vsan = option.vsan;
    nport->fcid = fcid_value(option.d_id);
    nport->plogi = option.plogi;
    INIT_LIST_HEAD(&nport->sessions);
    const int result = insert(sock->stack, nport);
    if (result != 0)
        kfree(nport);
    else
        fc2_name_register(sock->stack, option.vsan, fcid_value(option.d_id),
                          option.plogi.nport_wwn);
    return result;
}

static int remove_nport(socket* sock, const fc2_opt_nport_t& option)
{
    fc2_stack* stack = sock->stack;
    fc2_nport* nport;
    {
        irqsave_guard guard(stack->lock);
        nport = fc2_nport_find(stack, option.vsan, fcid_value(option.d_id));
        if (nport == nullptr || nport->owner != sock)
            return -EADDRNOTAVAIL;
        unlink(stack, nport);
    }
    log_out_and_free(stack, nport);
    return 0;
}

static bool names_an_nport(const fc2_opt_nport_t& option)
{
    const std::uint32_t fcid = fcid_value(option.d_id);
    return option.vsan <= VSAN_ID_MAX && option.d_idmask == FCID_MASK_NUM &&
           option.d_id.invalid == 0 && fcid != 0 && fcid != FCID_BROADCAST;
}

// The results reach the control device's caller, so they are negative error numbers: -EEXIST for an
// address that is registered already, -ENOSPC for a full table, -EADDRNOTAVAIL for an address that
// is not registered or is another socket's, -EINVAL for anything that is no N_Port's address.
int kfc2_setsockopt(socket* sock, int level, int option, void* value, int length)
{
    const auto* nport = static_cast<const fc2_opt_nport_t*>(value);
    if (level != SOL_FC2 || length != static_cast<int>(sizeof *nport))
        return -EINVAL;
    switch (option) {
    case FC2_OPT_ADD_NPORT:
        return names_an_nport(*nport) ? add_nport(sock, *nport) : -EINVAL;
    case FC2_OPT_RM_NPORT:
        return remove_nport(sock, *nport);
    default:
        return -EINVAL;
    }
}
