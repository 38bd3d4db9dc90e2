// SPDX-License-Identifier: GPL-2.0-only
// Extended link services (FC-LS-2, 4): PLOGI, LOGO and their answers.
#include "platform/fc2/fc2_stack.h"

namespace {

inline constexpr std::uint32_t ELS_LS_RJT = 0x01000000;
inline constexpr std::uint32_t ELS_LS_ACC = 0x02000000;
inline constexpr std::uint32_t ELS_PLOGI = 0x03000000;
inline constexpr std::uint32_t ELS_LOGO = 0x05000000;

// Reason and explanation of an LS_RJT (FC-LS-2, 4.2.4).
inline constexpr std::uint32_t RJT_PROTOCOL_ERROR = 0x070000;
inline constexpr std::uint32_t RJT_NO_SUCH_NPORT = 0x091F00;
inline constexpr std::uint32_t RJT_NO_RESOURCES = 0x092900;
inline constexpr std::uint32_t RJT_NOT_SUPPORTED = 0x0B2C00;

inline constexpr unsigned int PLOGI_LEN = sizeof(els_plogi_t);
inline constexpr unsigned int LOGO_LEN = sizeof(els_logo_t);
inline constexpr unsigned int LS_RJT_LEN = 8;
inline constexpr unsigned int LS_ACC_LEN = 4; // the answer to a LOGO

// Receive data field size of class 3, the low 12 bits of its service parameters' fourth half-word.
inline constexpr unsigned int CLASS3_RECV_SIZE_AT = offsetof(els_plogi_t, class3) + 6;

inline constexpr std::uint8_t ELS_HOP_COUNT = 0xFF; // as far as the fabric goes

fc2_frame request_frame(const fc2_nport* nport, std::uint32_t peer, std::uint16_t ox_id)
{
    fc2_frame frame = {};
    frame.vsan = nport->vsan;
    frame.hop_count = ELS_HOP_COUNT;
    frame.s_id = nport->fcid;
    frame.d_id = peer;
    frame.r_ctl = RCTL_ELS_REQUEST;
    frame.type = FC_TYPE_ELS;
    frame.f_ctl = FCTL_FIRST_SEQUENCE | FCTL_END_SEQUENCE | FCTL_TRANSFER_INITIATIVE;
    frame.ox_id = ox_id;
    frame.rx_id = FC_XID_NONE;
    frame.first = true;
    return frame;
}

fc2_frame reply_frame(const fc2_frame& request)
{
    fc2_frame frame = {};
    frame.vsan = request.vsan;
    frame.hop_count = ELS_HOP_COUNT;
    frame.s_id = request.d_id;
    frame.d_id = request.s_id;
    frame.r_ctl = RCTL_ELS_REPLY;
    frame.type = FC_TYPE_ELS;
    frame.f_ctl = FCTL_RESPONDER | FCTL_LAST_SEQUENCE | FCTL_END_SEQUENCE;
    frame.ox_id = request.ox_id;
    frame.rx_id = request.ox_id; // any number does; the exchange ends with this frame
    frame.first = true;
    return frame;
}

void write_class(std::uint8_t* to, const els_class_t& from)
{
    const std::uint16_t words[] = {
        from.serv_opts,       from.initiator_ctl,  from.rcpt_ctl,           from.recv_size,
        from.concurrent_seqs, from.end2end_credit, from.open_seqs_per_xchg, from.cls6mc_rxid};
    for (std::uint16_t word : words) {
        store_be16(to, word);
        to += 2;
    }
}

// The record is in the processor's order, the wire in its own; names and text are bytes in both.
void write_login(std::uint8_t* to, std::uint32_t code, const els_plogi_t& from)
{
    store_be32(to, code);
    store_be16(to + 4, from.common.fcph);
    store_be16(to + 6, from.common.buf2buf_credit);
    store_be16(to + 8, from.common.common_features);
    store_be16(to + 10, from.common.buf2buf_size);
    store_be16(to + 12, from.common.total_concurrent);
    store_be16(to + 14, from.common.off_by_info);
    store_be32(to + 16, from.common.e_d_tov);
    memcpy(to + 20, from.nport_wwn.str, sizeof from.nport_wwn.str);
    memcpy(to + 28, from.node_wwn.str, sizeof from.node_wwn.str);
    write_class(to + 36, from.class1);
    write_class(to + 52, from.class2);
    write_class(to + 68, from.class3);
    write_class(to + 84, from.class4);
    memcpy(to + 100, from.vendorversion, sizeof from.vendorversion);
}

sk_buff* login_frame(const fc2_nport* nport, std::uint32_t code, const fc2_frame& frame)
{
    sk_buff* skb = fc2_frame_alloc(PLOGI_LEN);
    if (skb == nullptr)
        return nullptr;
    write_login(static_cast<std::uint8_t*>(skb_put(skb, PLOGI_LEN)), code, nport->plogi);
    fc2_frame_enclose(skb, frame);
    return skb;
}

void reply(fc2_stack* stack, const fc2_frame& request, std::uint32_t code, unsigned int length,
           std::uint32_t reason)
{
    const fc2_frame frame = reply_frame(request);
    sk_buff* skb = fc2_frame_alloc(length);
    if (skb == nullptr)
        return; // as if the answer had been lost
    auto* payload = static_cast<std::uint8_t*>(skb_put(skb, length));
    store_be32(payload, code);
    if (length > 4)
        store_be32(payload + 4, reason);
    fc2_frame_enclose(skb, frame);
    fc2_transmit(stack, frame, skb);
}

void reject(fc2_stack* stack, const fc2_frame& request, std::uint32_t reason)
{
    reply(stack, request, ELS_LS_RJT, LS_RJT_LEN, reason);
}

// A peer that names a size below the smallest one allowed gets the smallest.
unsigned int peer_takes(const std::uint8_t* login)
{
    const unsigned int size = load_be16(login + CLASS3_RECV_SIZE_AT) & 0xFFC;
    if (size < FC_DATA_MIN)
        return FC_DATA_MIN;
    return size < FC_DATA_MAX ? size : FC_DATA_MAX;
}

// ---- requests ----

// A login that was open ends here, and its exchanges with it; sequences that wait for an answer to
// our own PLOGI need not wait any longer, whichever of two crossing ones is answered first.
bool accept_login(fc2_stack* stack, const fc2_frame& frame, const std::uint8_t* payload,
                  sk_buff** answer, list_head* released, unsigned int* max_data)
    KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    fc2_nport* nport = fc2_nport_find(stack, frame.vsan, frame.d_id);
    if (nport == nullptr)
        return true; // gone since the frame was let in: silence is right
    fc2_session* session = fc2_session_find(stack, frame.vsan, frame.d_id, frame.s_id);
    if (session == nullptr)
        session = fc2_session_add(stack, nport, frame.s_id);
    if (session == nullptr)
        return false;
    if (session->state != fc2_login::pending)
        fc2_session_close_exchanges(session);
    session->attempts = 0;
    session->max_data = peer_takes(payload);
    *max_data = session->max_data;
    fc2_session_set(stack, session, fc2_login::open, 0);
    fc2_session_release(stack, session, released);
    *answer = login_frame(nport, ELS_LS_ACC, reply_frame(frame));
    return true;
}

void receive_plogi(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    list_head released;
    INIT_LIST_HEAD(&released);
    unsigned int max_data = 0;
    sk_buff* answer = nullptr;
    if (skb->len < PLOGI_LEN || frame.s_id == frame.d_id) {
        reject(stack, frame, RJT_PROTOCOL_ERROR);
        dev_kfree_skb_any(skb);
        return;
    }
    if (!accept_login(stack, frame, skb->data, &answer, &released, &max_data)) {
        reject(stack, frame, RJT_NO_RESOURCES);
        dev_kfree_skb_any(skb);
        return;
    }
    // The socket learns of the new login before anything is sent over it.
    skb_trim(skb, PLOGI_LEN);
    fc2_deliver(stack, FC2_RECEIVED_PLOGI, frame, skb);
    if (answer != nullptr)
        fc2_transmit(stack, reply_frame(frame), answer);
    fc2_waiting_send(stack, &released, max_data);
}

void receive_logo(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    if (skb->len < LOGO_LEN) {
        reject(stack, frame, RJT_PROTOCOL_ERROR);
        dev_kfree_skb_any(skb);
        return;
    }
    list_head dropped;
    INIT_LIST_HEAD(&dropped);
    {
        irqsave_guard guard(stack->lock);
        fc2_session* session = fc2_session_find(stack, frame.vsan, frame.d_id, frame.s_id);
        if (session != nullptr)
            fc2_session_remove(stack, session, &dropped);
    }
    fc2_waiting_drop(stack, &dropped);
    reply(stack, frame, ELS_LS_ACC, LS_ACC_LEN, 0);
    skb_trim(skb, LOGO_LEN);
    fc2_deliver(stack, FC2_RECEIVED_LOGO, frame, skb);
}

void receive_request(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    bool known;
    {
        irqsave_guard guard(stack->lock);
        known = fc2_nport_find(stack, frame.vsan, frame.d_id) != nullptr;
    }
    const std::uint32_t code = load_be32(skb->data) & 0xFF000000;
    if (known && code == ELS_PLOGI)
        return receive_plogi(stack, frame, skb);
    if (known && code == ELS_LOGO)
        return receive_logo(stack, frame, skb);
    reject(stack, frame, known ? RJT_NOT_SUPPORTED : RJT_NO_SUCH_NPORT);
    dev_kfree_skb_any(skb);
}

// ---- answers ----

bool answers_plogi(const fc2_session* session, std::uint16_t ox_id)
{
    for (unsigned int i = 0; i < session->attempts; i++)
        if (session->plogi_ox_id[i] == ox_id)
            return true;
    return false;
}

// Only a PLOGI's answer matters; a LOGO's changes nothing.
void receive_reply(fc2_stack* stack, const fc2_frame& frame, const std::uint8_t* payload,
                   unsigned int length)
{
    const std::uint32_t code = load_be32(payload) & 0xFF000000;
    list_head released;
    INIT_LIST_HEAD(&released);
    list_head dropped;
    INIT_LIST_HEAD(&dropped);
    unsigned int max_data = 0;
    {
        irqsave_guard guard(stack->lock);
        fc2_session* session = fc2_session_find(stack, frame.vsan, frame.d_id, frame.s_id);
        if (session == nullptr || session->state != fc2_login::pending ||
            !answers_plogi(session, frame.ox_id))
            return;
        if (code == ELS_LS_ACC && length >= PLOGI_LEN) {
            session->max_data = max_data = peer_takes(payload);
            session->attempts = 0;
            fc2_session_set(stack, session, fc2_login::open, 0);
            fc2_session_release(stack, session, &released);
        } else if (code == ELS_LS_RJT) {
            stack->counters.logins_refused++;
            fc2_session_close_exchanges(session);
            fc2_session_set(stack, session, fc2_login::refused, FC2_REFUSAL_HOLD);
            fc2_session_release(stack, session, &dropped);
        }
    }
    fc2_waiting_drop(stack, &dropped);
    fc2_waiting_send(stack, &released, max_data);
}

} // namespace

sk_buff* fc2_els_plogi(const fc2_nport* nport, std::uint32_t peer, std::uint16_t ox_id,
                       fc2_frame* frame)
{
    *frame = request_frame(nport, peer, ox_id);
    return login_frame(nport, ELS_PLOGI, *frame);
}

sk_buff* fc2_els_logo(const fc2_nport* nport, std::uint32_t peer, std::uint16_t ox_id,
                      fc2_frame* frame)
{
    *frame = request_frame(nport, peer, ox_id);
    sk_buff* skb = fc2_frame_alloc(LOGO_LEN);
    if (skb == nullptr)
        return nullptr;
    auto* payload = static_cast<std::uint8_t*>(skb_put(skb, LOGO_LEN));
    store_be32(payload, ELS_LOGO);
    store_be32(payload + 4, nport->fcid);
    memcpy(payload + 8, nport->plogi.nport_wwn.str, sizeof nport->plogi.nport_wwn.str);
    fc2_frame_enclose(skb, *frame);
    return skb;
}

// Services longer than a frame are not among those that anybody asks for here.
void fc2_els_receive(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
{
    if (!frame.first || !fc2_frame_ends_sequence(frame) || skb->len < 4) {
        dev_kfree_skb_any(skb);
        return;
    }
    if (frame.r_ctl == RCTL_ELS_REQUEST)
        return receive_request(stack, frame, skb);
    receive_reply(stack, frame, skb->data, skb->len);
    dev_kfree_skb_any(skb);
}

// Class 3 alone, 2112 bytes to a frame, an E_D_TOV of 2000 ms.
void fc2_default_plogi(els_plogi_t* plogi)
{
    *plogi = {};
    plogi->code = ELS_PLOGI;
    plogi->common.fcph = 0x2020; // FC-PH-3 as highest and lowest version
    plogi->common.buf2buf_credit = 16;
    plogi->common.common_features = 0x8800; // continuously increasing offset, alternate credit
    plogi->common.buf2buf_size = FC_DATA_MAX;
    plogi->common.total_concurrent = 255;
    plogi->common.off_by_info = 0x001F;
    plogi->common.e_d_tov = 2000;
    plogi->class3.serv_opts = 0x8800; // valid, sequential delivery asked for
    plogi->class3.recv_size = FC_DATA_MAX;
    plogi->class3.concurrent_seqs = 255;
    plogi->class3.open_seqs_per_xchg = 1;
}
