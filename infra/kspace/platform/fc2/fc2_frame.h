// SPDX-License-Identifier: GPL-2.0-only
// One frame: putting data into it and getting data out of it.
#pragma once

#include "kapi/skbuff.h"

#include "platform/fc2/fc2_wire.h"

// What the headers of a frame say.
struct fc2_frame {
    std::uint16_t vsan;
    std::uint8_t hop_count;
    std::uint32_t s_id;
    std::uint32_t d_id;
    std::uint8_t r_ctl;
    std::uint8_t cs_ctl;
    std::uint8_t type;
    std::uint8_t df_ctl;
    std::uint32_t f_ctl;
    std::uint8_t seq_id;
    std::uint16_t seq_cnt;
    std::uint16_t ox_id;
    std::uint16_t rx_id;
    std::uint32_t param;
    bool first; // of its sequence: SOFi3
};

inline bool fc2_frame_ends_sequence(const fc2_frame& frame)
{
    return (frame.f_ctl & FCTL_END_SEQUENCE) != 0;
}

// A buffer for length bytes of data with room for everything around them. Null: out of memory.
sk_buff* fc2_frame_alloc(unsigned int length);

// Whether the frame can be built around the buffer's data where they are, writing to nobody else's.
bool fc2_frame_fits(const sk_buff* skb);

// Builds the frame around the buffer's data: fill bytes and their count, CRC, EOF, all headers.
void fc2_frame_enclose(sk_buff* skb, const fc2_frame& frame);

enum class fc2_verdict { good, not_ours, malformed, bad_crc };

// Reads the headers of a received frame, which becomes linear; checks all that can be checked but
// the CRC.
[[nodiscard]] fc2_verdict fc2_frame_read(sk_buff* skb, fc2_frame* frame);

// Checks the CRC of a frame that was read, and leaves its data alone in the buffer.
[[nodiscard]] fc2_verdict fc2_frame_open(sk_buff* skb, const fc2_frame& frame);
