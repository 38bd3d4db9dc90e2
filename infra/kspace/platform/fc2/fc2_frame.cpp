// SPDX-License-Identifier: GPL-2.0-only
#include "platform/fc2/fc2_frame.h"

#include "kapi/slab.h"
#include "kapi/string.h"

sk_buff* fc2_frame_alloc(unsigned int length)
{
    sk_buff* skb =
        alloc_skb(FC2_HEADER_RESERVE + length + FC_FILL_MAX + FC2_TRAILER_LEN, GFP_ATOMIC);
    if (skb != nullptr)
        skb_reserve(skb, FC2_HEADER_RESERVE);
    return skb;
}

bool fc2_frame_fits(const sk_buff* skb)
{
    const unsigned int fill = -skb->len & FCTL_FILL;
    return skb->data_len == 0 && !skb_shared(skb) && !skb_cloned(skb) &&
           skb_headroom(skb) >= FC_DATA_AT &&
           skb_tailroom(skb) >= static_cast<int>(fill + FC2_TRAILER_LEN);
}

static void write_mac(std::uint8_t* to, std::uint32_t fcid)
{
    if (fcid == FCID_BROADCAST) {
        memset(to, 0xFF, 6);
        return;
    }
    memcpy(to, FC_MAP, sizeof FC_MAP);
    store_be24(to + sizeof FC_MAP, fcid);
}

static void write_fc_header(std::uint8_t* to, const fc2_frame& frame, unsigned int fill)
{
    to[0] = frame.r_ctl;
    store_be24(to + 1, frame.d_id);
    to[4] = frame.cs_ctl;
    store_be24(to + 5, frame.s_id);
    to[8] = frame.type;
    store_be24(to + 9, (frame.f_ctl & ~FCTL_FILL) | fill);
    to[12] = frame.seq_id;
    to[13] = frame.df_ctl;
    store_be16(to + 14, frame.seq_cnt);
    store_be16(to + 16, frame.ox_id);
    store_be16(to + 18, frame.rx_id);
    store_be32(to + 20, frame.param);
}

static void write_headers(std::uint8_t* to, const fc2_frame& frame, unsigned int fill)
{
    memset(to, 0, FC_DATA_AT);
    write_mac(to, frame.d_id);
    write_mac(to + 6, frame.s_id);
    store_be16(to + 12, ETHERTYPE_FCOE);
    to[VFT_HEADER_AT - 1] = frame.first ? SOF_I3 : SOF_N3;
    to[VFT_HEADER_AT] = RCTL_VFT;
    store_be16(to + VFT_HEADER_AT + 2, static_cast<std::uint32_t>(frame.vsan) << 1);
    to[VFT_HEADER_AT + 4] = frame.hop_count;
    write_fc_header(to + FC_HEADER_AT, frame, fill);
}

void fc2_frame_enclose(sk_buff* skb, const fc2_frame& frame)
{
    const unsigned int fill = -skb->len & FCTL_FILL;
    memset(skb_put(skb, fill), 0, fill);
    write_headers(static_cast<std::uint8_t*>(skb_push(skb, FC_DATA_AT)), frame, fill);

    const unsigned int covered = skb->len - VFT_HEADER_AT;
    auto* trailer = static_cast<std::uint8_t*>(skb_put(skb, FC2_TRAILER_LEN));
    memset(trailer, 0, FC2_TRAILER_LEN);
    store_le32(trailer, fc_crc(skb->data + VFT_HEADER_AT, covered));
    trailer[FC_CRC_LEN] = fc2_frame_ends_sequence(frame) ? EOF_T : EOF_N;
}

static bool read_encapsulation(const std::uint8_t* at, unsigned int length, fc2_frame* frame)
{
    const std::uint8_t sof = at[VFT_HEADER_AT - 1];
    const std::uint8_t eof = at[length - FCOE_EOF_LEN];
    frame->first = sof == SOF_I3;
    return at[FCOE_HEADER_AT] >> 4 == 0 && (sof == SOF_I3 || sof == SOF_N3) &&
           (eof == EOF_N || eof == EOF_T);
}

// The version and the type of the VFT header are 0 in the only form that the standard defines.
static bool read_vft_header(const std::uint8_t* at, fc2_frame* frame)
{
    frame->vsan = static_cast<std::uint16_t>(load_be16(at + 2) >> 1 & 0xFFF);
    frame->hop_count = at[4];
    return at[0] == RCTL_VFT && (at[1] & 0xFC) == 0;
}

static void read_fc_header(const std::uint8_t* at, fc2_frame* frame)
{
    frame->r_ctl = at[0];
    frame->d_id = load_be24(at + 1);
    frame->cs_ctl = at[4];
    frame->s_id = load_be24(at + 5);
    frame->type = at[8];
    frame->f_ctl = load_be24(at + 9);
    frame->seq_id = at[12];
    frame->df_ctl = at[13];
    frame->seq_cnt = load_be16(at + 14);
    frame->ox_id = load_be16(at + 16);
    frame->rx_id = load_be16(at + 18);
    frame->param = load_be32(at + 20);
}

// Fill bytes make up the last word of the last frame; every other frame is whole words of data.
static bool data_length_is_right(unsigned int data, const fc2_frame& frame)
{
    const unsigned int fill = frame.f_ctl & FCTL_FILL;
    return data % 4 == 0 && data <= FC_DATA_MAX && fill <= data &&
           (fill == 0 || fc2_frame_ends_sequence(frame));
}

// The shortest frame is longer than Ethernet's minimum, so that nothing is padded behind the EOF
// and the frame's length tells the data's.
fc2_verdict fc2_frame_read(sk_buff* skb, fc2_frame* frame)
{
    const unsigned int length = skb->len;
    if (length < FC_DATA_AT + FC2_TRAILER_LEN)
        return fc2_verdict::malformed;
    if (length > FC_DATA_AT + FC_DATA_MAX + FC2_TRAILER_LEN)
        return fc2_verdict::malformed;
    if (!pskb_may_pull(skb, length))
        return fc2_verdict::malformed;
    const std::uint8_t* at = skb->data;
    if (load_be16(at + 12) != ETHERTYPE_FCOE)
        return fc2_verdict::not_ours;
    if (!read_encapsulation(at, length, frame) || !read_vft_header(at + VFT_HEADER_AT, frame))
        return fc2_verdict::malformed;
    read_fc_header(at + FC_HEADER_AT, frame);
    return data_length_is_right(length - FC_DATA_AT - FC2_TRAILER_LEN, *frame)
               ? fc2_verdict::good
               : fc2_verdict::malformed;
}

fc2_verdict fc2_frame_open(sk_buff* skb, const fc2_frame& frame)
{
    const unsigned int crc_at = skb->len - FC2_TRAILER_LEN;
    if (load_le32(skb->data + crc_at) != fc_crc(skb->data + VFT_HEADER_AT, crc_at - VFT_HEADER_AT))
        return fc2_verdict::bad_crc;
    skb_trim(skb, crc_at - (frame.f_ctl & FCTL_FILL));
    skb_pull(skb, FC_DATA_AT);
    return fc2_verdict::good;
}
