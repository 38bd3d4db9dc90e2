// SPDX-License-Identifier: GPL-2.0-only
// Frames put together again into sequences.
//
// A sequence is opened by its first frame; the others may come in any order after it. A frame is
// placed by its SEQ_CNT alone, so frames cannot overlap. One that contradicts the others discards
// its sequence and no other; what is incomplete when its time is over, or when more sequences or
// frames are held than the limits allow, goes too, the oldest first.
#include "platform/fc2/fc2_stack.h"

namespace {

bool same_sequence(const fc2_frame& a, const fc2_frame& b)
{
    return a.s_id == b.s_id && a.d_id == b.d_id && a.vsan == b.vsan && a.ox_id == b.ox_id &&
           a.seq_id == b.seq_id && ((a.f_ctl ^ b.f_ctl) & FCTL_RESPONDER) == 0;
}

fc2_sequence* find(fc2_stack* stack, const fc2_frame& frame) KAPI_REQUIRES(stack->lock)
{
    for (list_head* at = stack->sequences.next; at != &stack->sequences; at = at->next) {
        auto* sequence = list_entry(at, fc2_sequence, link);
        if (same_sequence(sequence->head, frame))
            return sequence;
    }
    return nullptr;
}

void unlink(fc2_stack* stack, fc2_sequence* sequence) KAPI_REQUIRES(stack->lock)
{
    list_del_init(&sequence->link);
    stack->num_sequences--;
    stack->frames_held -= sequence->num_frames;
}

void free_sequence(fc2_sequence* sequence)
{
    for (sk_buff* frame : sequence->frames)
        if (frame != nullptr)
            dev_kfree_skb_any(frame);
    kfree(sequence);
}

void discard(fc2_stack* stack, fc2_sequence* sequence) KAPI_REQUIRES(stack->lock)
{
    stack->counters.sequences_discarded++;
    unlink(stack, sequence);
    free_sequence(sequence);
}

// Makes room for one frame more; the sequence that it belongs to may be the one that goes.
void make_room(fc2_stack* stack) KAPI_REQUIRES(stack->lock)
{
    while (stack->frames_held >= FC2_FRAMES_HELD_MAX)
        discard(stack, list_entry(stack->sequences.next, fc2_sequence, link));
}

fc2_sequence* open_sequence(fc2_stack* stack, const fc2_frame& frame) KAPI_REQUIRES(stack->lock)
{
    if (stack->num_sequences >= FC2_SEQUENCES_MAX)
        discard(stack, list_entry(stack->sequences.next, fc2_sequence, link));
    auto* sequence = static_cast<fc2_sequence*>(kzalloc(sizeof(fc2_sequence), GFP_ATOMIC));
    if (sequence == nullptr) {
        stack->counters.overruns++;
        return nullptr;
    }
    sequence->head = frame;
    sequence->deadline = jiffies + FC2_SEQUENCE_TIMEOUT;
    sequence->last = FC2_SEQUENCE_FRAMES_MAX;
    list_add_tail(&sequence->link, &stack->sequences);
    stack->num_sequences++;
    fc2_timer_kick(stack);
    return sequence;
}

// A first frame whose sequence is open already is that sequence's own, come twice, or the first of
// a later sequence under the same identifier, whose predecessor then lost a frame.
bool came_twice(const fc2_sequence* sequence, const fc2_frame& frame, const sk_buff* skb)
{
    const sk_buff* held = sequence->frames[0];
    return sequence->head.seq_cnt == frame.seq_cnt && held->len == skb->len &&
           memcmp(held->data, skb->data, skb->len) == 0;
}

fc2_sequence* sequence_for(fc2_stack* stack, const fc2_frame& frame, const sk_buff* skb)
    KAPI_REQUIRES(stack->lock)
{
    fc2_sequence* sequence = find(stack, frame);
    if (!frame.first)
        return sequence;
    if (sequence != nullptr) {
        if (came_twice(sequence, frame, skb))
            return sequence;
        discard(stack, sequence);
    }
    return open_sequence(stack, frame);
}

// The place of a frame behind the first, wrapping like SEQ_CNT itself.
unsigned int place_of(const fc2_sequence* sequence, const fc2_frame& frame)
{
    return static_cast<std::uint16_t>(frame.seq_cnt - sequence->head.seq_cnt);
}

// Whether the frame can belong to the sequence as far as it is known.
bool is_plausible(const fc2_sequence* sequence, const fc2_frame& frame, unsigned int place,
                  unsigned int length)
{
    if (place >= FC2_SEQUENCE_FRAMES_MAX || length == 0 || (place == 0) != frame.first)
        return false;
    if (sequence->bytes + length > FC2_IU_MAX)
        return false;
    if (sequence->last != FC2_SEQUENCE_FRAMES_MAX && place > sequence->last)
        return false;
    if (!fc2_frame_ends_sequence(frame))
        return true;
    if (sequence->last != FC2_SEQUENCE_FRAMES_MAX && sequence->last != place)
        return false;
    for (unsigned int later = place + 1; later < FC2_SEQUENCE_FRAMES_MAX; later++)
        if (sequence->frames[later] != nullptr)
            return false;
    return true;
}

// Copies and frees a complete sequence's frames.
sk_buff* join(fc2_sequence* sequence)
{
    sk_buff* whole = fc2_frame_alloc(sequence->bytes);
    if (whole != nullptr)
        for (unsigned int i = 0; i <= sequence->last; i++) {
            const sk_buff* part = sequence->frames[i];
            memcpy(skb_put(whole, part->len), part->data, part->len);
        }
    return whole;
}

// What became of a frame.
enum class placed { kept, surplus, complete };

placed place_frame(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb, fc2_sequence** found)
    KAPI_EXCLUDES(stack->lock)
{
    irqsave_guard guard(stack->lock);
    make_room(stack);
    fc2_sequence* sequence = sequence_for(stack, frame, skb);
    if (sequence == nullptr)
        return placed::surplus;
    const unsigned int place = place_of(sequence, frame);
    if (place < FC2_SEQUENCE_FRAMES_MAX && sequence->frames[place] != nullptr)
        return placed::surplus;
    if (!is_plausible(sequence, frame, place, skb->len)) {
        discard(stack, sequence);
        return placed::surplus;
    }
    sequence->frames[place] = skb;
    sequence->num_frames++;
    sequence->bytes += skb->len;
    stack->frames_held++;
    if (fc2_frame_ends_sequence(frame))
        sequence->last = place;
    if (sequence->num_frames != sequence->last + 1)
        return placed::kept;
    unlink(stack, sequence);
    *found = sequence;
    return placed::complete;
}

// A sender may repeat the network header in every frame.
void strip_repeated_header(const fc2_frame& frame, sk_buff* skb)
{
    if (!frame.first && (frame.df_ctl & FC_DFCTL_NETWORK_HEADER) != 0)
        skb_pull(skb, FC_NETWORK_HEADER_LEN);
}

} // namespace

sk_buff* fc2_sequence_collect(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb,
                              fc2_frame* head)
{
    *head = frame;
    if (frame.first && fc2_frame_ends_sequence(frame))
        return skb;
    strip_repeated_header(frame, skb);
    fc2_sequence* sequence = nullptr;
    const placed outcome = place_frame(stack, frame, skb, &sequence);
    if (outcome == placed::surplus)
        dev_kfree_skb_any(skb);
    if (outcome != placed::complete)
        return nullptr;
    *head = sequence->head;
    sk_buff* whole = join(sequence);
    free_sequence(sequence);
    if (whole == nullptr) {
        irqsave_guard guard(stack->lock);
        stack->counters.overruns++;
    }
    return whole;
}

void fc2_sequences_expire(fc2_stack* stack)
{
    irqsave_guard guard(stack->lock);
    while (!list_empty(&stack->sequences)) {
        auto* oldest = list_entry(stack->sequences.next, fc2_sequence, link);
        if (!stack->stopping && time_after(oldest->deadline, jiffies))
            return;
        discard(stack, oldest);
    }
}
