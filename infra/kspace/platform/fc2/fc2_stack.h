// SPDX-License-Identifier: GPL-2.0-only
// The FC-2 stack of one switch, and what its files share.
//
// One lock guards everything; it keeps interrupts off, for kfc2_sendskb comes with interrupts in
// any state. It is innermost: no frame is transmitted and no callback runs under it. Where both are
// needed, the frame is built under the lock and transmitted after it.
//
// Logins. Before the first sequence from an own N_Port to a peer a PLOGI goes out, and sequences
// wait for its answer; LS_RJT refuses the peer, silence makes it unreachable, either for a while.
// A PLOGI for an N_Port that a switch does not have is rejected when the switch owns the address's
// domain, which it does as soon as one of its N_Ports in that VSAN lies in the domain (a domain
// belongs to one switch, FC-SW); a PLOGI for anybody else is not answered.
// Data from a peer without a login are delivered: class 3 needs no buffers agreed upon, and after a
// restart of this switch its peers go on sending over the login that they still have.
#pragma once

#include "brim/fc2_intf.h"

#include "kapi/errno.h"
#include "kapi/jiffies.h"
#include "kapi/list.h"
#include "kapi/slab.h"
#include "kapi/spinlock.h"
#include "kapi/string.h"

#include "platform/fc2/fc2_frame.h"
#include "platform/fc2/fc2_guard.h"
#include "platform/fc2/fc2_names.h"
#include "platform/link.h"

// ---- limits: everything that the wire can make grow is bounded ----

inline constexpr unsigned int FC2_NPORTS_MAX = 16384;
inline constexpr unsigned int FC2_SESSIONS_MAX = 16384;
inline constexpr unsigned int FC2_IU_MAX = 0x10000 + 64; // bytes of one information unit
inline constexpr unsigned int FC2_SOCKET_QUEUE_MAX = 1024;
inline constexpr unsigned int FC2_WAITING_PER_PEER = 64; // sequences waiting for a login
inline constexpr unsigned int FC2_WAITING_BYTES_PER_PEER = 1 << 20;
inline constexpr unsigned int FC2_WAITING_BYTES = 16 << 20;
inline constexpr unsigned int FC2_SEQUENCES_MAX = 64; // sequences in reassembly
inline constexpr unsigned int FC2_SEQUENCE_FRAMES_MAX = 256;
inline constexpr unsigned int FC2_FRAMES_HELD_MAX = 4096; // by all of them
inline constexpr unsigned int FC2_LOOPED_MAX = 1024;      // frames on the way to an own N_Port

inline constexpr unsigned long FC2_TICK = HZ / 10;
inline constexpr unsigned long FC2_PLOGI_TIMEOUT = HZ;
inline constexpr unsigned int FC2_PLOGI_ATTEMPTS = 3;
inline constexpr unsigned long FC2_REFUSAL_HOLD = 5 * HZ;
inline constexpr unsigned long FC2_SEQUENCE_TIMEOUT = 2 * HZ; // E_D_TOV

inline constexpr unsigned int FC2_NPORT_BUCKETS = 256;
inline constexpr unsigned int FC2_SESSION_BUCKETS = 1024;
inline constexpr unsigned int FC2_EXCHANGES_PER_SESSION = 4;

// ---- records ----

struct fc2_counters {
    unsigned long frames_received;
    unsigned long frames_sent;
    unsigned long not_for_us;
    unsigned long malformed;
    unsigned long bad_crc;
    unsigned long unmatched; // information units that no socket wants
    unsigned long overruns;  // information units dropped for want of room or memory
    unsigned long delivered;
    unsigned long sequences_discarded;
    unsigned long logins_refused;
    unsigned long logins_unanswered;
};

// An own N_Port.
struct fc2_nport {
    list_head link; // bucket of the stack's table
    socket* owner;
    std::uint16_t vsan;
    std::uint32_t fcid;
    els_plogi_t plogi;  // in the processor's order, as registered
    list_head sessions; // fc2_session.of_nport
};

// An exchange that we originated and that a handle names. Its OX_ID is the handle's low 16 bits.
struct fc2_exchange {
    bool open;
    bool begun; // its first sequence has been given an identifier
    std::uint8_t next_seq_id;
    std::uint32_t handle;
};

enum class fc2_login : std::uint8_t { pending, open, refused, unreachable };

// What an own N_Port knows of one peer.
struct fc2_session {
    list_head link;     // bucket of the stack's table
    list_head of_nport; // fc2_nport.sessions
    list_head timed;    // fc2_stack.timed, while deadline matters
    fc2_nport* nport;
    std::uint32_t peer;
    fc2_login state;
    unsigned int max_data;  // bytes of data that the peer takes in a frame
    unsigned long deadline; // pending: of the answer; refused, unreachable: of the hold
    unsigned int attempts;
    std::uint16_t plogi_ox_id[FC2_PLOGI_ATTEMPTS];
    list_head waiting; // fc2_waiting
    unsigned int num_waiting;
    unsigned int bytes_waiting;
    unsigned int oldest_exchange; // the slot to be given up next
    fc2_exchange exchanges[FC2_EXCHANGES_PER_SESSION];
};

// A sequence that waits for its peer's login.
struct fc2_waiting {
    list_head link;
    sk_buff* skb;
    fc2_frame head;
};

// A sequence of which some frames have arrived, in the order of their SEQ_CNT less the first's.
struct fc2_sequence {
    list_head link; // fc2_stack.sequences, oldest first
    fc2_frame head; // headers of the first frame
    unsigned long deadline;
    unsigned int num_frames;
    unsigned int last;  // index of the frame that ends it; FC2_SEQUENCE_FRAMES_MAX: not seen
    unsigned int bytes; // of data, in all frames that are there
    sk_buff* frames[FC2_SEQUENCE_FRAMES_MAX];
};

// An information unit on its way to recvskb, or a frame to an own N_Port.
struct fc2_queued {
    list_head link;
    sk_buff* skb;
    fc2_iuhdr_t header;
};

struct fc2_stack {
    spinlock_t lock;
    brim_link* link;
    timer_list timer;
    bool stopping KAPI_GUARDED_BY(lock);
    bool ticking KAPI_GUARDED_BY(lock); // the timer runs and is not to be put off
    list_head sockets KAPI_GUARDED_BY(lock);
    list_head nports[FC2_NPORT_BUCKETS] KAPI_GUARDED_BY(lock);
    unsigned int num_nports KAPI_GUARDED_BY(lock);
    list_head sessions[FC2_SESSION_BUCKETS] KAPI_GUARDED_BY(lock);
    unsigned int num_sessions KAPI_GUARDED_BY(lock);
    list_head timed KAPI_GUARDED_BY(lock);
    unsigned int bytes_waiting KAPI_GUARDED_BY(lock);
    list_head sequences KAPI_GUARDED_BY(lock);
    unsigned int num_sequences KAPI_GUARDED_BY(lock);
    unsigned int frames_held KAPI_GUARDED_BY(lock);
    list_head looped KAPI_GUARDED_BY(lock);
    unsigned int num_looped KAPI_GUARDED_BY(lock);
    fc2_names names KAPI_GUARDED_BY(lock);
    std::uint32_t last_handle KAPI_GUARDED_BY(lock);
    fc2_counters counters KAPI_GUARDED_BY(lock);
};

struct socket {
    list_head link; // fc2_stack.sockets
    fc2_stack* stack;
    fc2_data_ready_t data_ready;
    // The rest is guarded by the stack's lock.
    bool bound;
    sockaddr_fc2 filter;
    list_head queue; // fc2_queued
    unsigned int num_queued;
    bool announcing; // somebody runs data_ready; only that one does
    unsigned long num_taken;
};

// Takes the first entry of a list that is not empty.
inline list_head* fc2_list_take(list_head* head)
{
    list_head* first = head->next;
    head->next = first->next;
    first->next->prev = head;
    INIT_LIST_HEAD(first);
    return first;
}

// Moves all entries of a list to the end of another.
inline void fc2_list_move(list_head* from, list_head* to)
{
    while (!list_empty(from))
        list_add_tail(fc2_list_take(from), to);
}

// ---- the stack ----

// The stack that new sockets belong to: a module's only one; a test's choice.
extern fc2_stack* fc2_current;

// Process context. Null when out of memory.
fc2_stack* fc2_stack_create(brim_link* link);
// The link must have been detached. Sockets that were left open are closed.
void fc2_stack_destroy(fc2_stack* stack);

// Starts the tick that deadlines and looped frames wait for.
void fc2_timer_kick(fc2_stack* stack) KAPI_REQUIRES(stack->lock);

// Sends a frame that is complete, to an own N_Port by way of the timer.
void fc2_transmit(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
    KAPI_EXCLUDES(stack->lock);

// ---- N_Ports ----

fc2_nport* fc2_nport_find(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid)
    KAPI_REQUIRES(stack->lock);
bool fc2_domain_is_ours(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid)
    KAPI_REQUIRES(stack->lock);
// Logs out every peer of every N_Port that the socket has registered.
void fc2_nports_remove(fc2_stack* stack, const socket* owner) KAPI_EXCLUDES(stack->lock);

// ---- logins ----

fc2_session* fc2_session_find(fc2_stack* stack, std::uint16_t vsan, std::uint32_t own,
                              std::uint32_t peer) KAPI_REQUIRES(stack->lock);
// Null when the table is full or memory is out.
fc2_session* fc2_session_add(fc2_stack* stack, fc2_nport* nport, std::uint32_t peer)
    KAPI_REQUIRES(stack->lock);
// Takes the session out; the sequences that waited go to dropped.
void fc2_session_remove(fc2_stack* stack, fc2_session* session, list_head* dropped)
    KAPI_REQUIRES(stack->lock);
// The state and, unless it is open, how long it lasts.
void fc2_session_set(fc2_stack* stack, fc2_session* session, fc2_login state,
                     unsigned long duration) KAPI_REQUIRES(stack->lock);
// Begins the next attempt to log in. The PLOGI, null when out of memory.
sk_buff* fc2_session_attempt(fc2_stack* stack, fc2_session* session, fc2_frame* frame)
    KAPI_REQUIRES(stack->lock);
// Moves the sequences that wait to the list.
void fc2_session_release(fc2_stack* stack, fc2_session* session, list_head* to)
    KAPI_REQUIRES(stack->lock);
void fc2_session_close_exchanges(fc2_session* session);
void fc2_waiting_drop(fc2_stack* stack, list_head* waiting) KAPI_EXCLUDES(stack->lock);

// Deals with logins whose deadline has passed.
void fc2_logins_expire(fc2_stack* stack) KAPI_EXCLUDES(stack->lock);

// ---- extended link services (FC-LS-2) ----

sk_buff* fc2_els_plogi(const fc2_nport* nport, std::uint32_t peer, std::uint16_t ox_id,
                       fc2_frame* frame);
sk_buff* fc2_els_logo(const fc2_nport* nport, std::uint32_t peer, std::uint16_t ox_id,
                      fc2_frame* frame);
// An ELS request or reply for an own N_Port, or for an address of an own domain; owns the buffer.
void fc2_els_receive(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb)
    KAPI_EXCLUDES(stack->lock);

// ---- sequences ----

std::uint32_t fc2_handle_next(fc2_stack* stack) KAPI_REQUIRES(stack->lock);
inline std::uint16_t fc2_handle_ox_id(std::uint32_t handle)
{
    return static_cast<std::uint16_t>(handle);
}

// Sends the buffer as one sequence, in as many frames as it takes; owns the buffer. head.param
// holds nothing; max_data is a multiple of 4.
void fc2_sequence_send(fc2_stack* stack, const fc2_frame& head, unsigned int max_data, sk_buff* skb)
    KAPI_EXCLUDES(stack->lock);
void fc2_waiting_send(fc2_stack* stack, list_head* waiting, unsigned int max_data)
    KAPI_EXCLUDES(stack->lock);
// What a frame may carry on the link, at most what the peer takes.
unsigned int fc2_max_data(const fc2_stack* stack, unsigned int peer_takes);

// Takes a data frame; the sequence's data and the headers of its first frame once it is complete,
// null before.
sk_buff* fc2_sequence_collect(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb,
                              fc2_frame* head) KAPI_EXCLUDES(stack->lock);
// Gives up sequences whose time is over; all of them when the stack stops.
void fc2_sequences_expire(fc2_stack* stack) KAPI_EXCLUDES(stack->lock);

// ---- delivery ----

// Hands an information unit to the socket that wants it; owns the buffer.
void fc2_deliver(fc2_stack* stack, std::uint16_t opcode, const fc2_frame& head, sk_buff* skb)
    KAPI_EXCLUDES(stack->lock);
