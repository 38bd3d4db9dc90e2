// SPDX-License-Identifier: GPL-2.0-only
// Frames of a foreign station, put together byte by byte and without the stack's own code, so that
// both can be held against each other.
#pragma once

#include "skb.h"

#include <cstdint>
#include <string>

namespace wire {

using twin::Bytes;

// Fields of one frame; the defaults are a whole sequence of IP over FC in one frame.
struct Frame {
    std::uint16_t vsan = 10;
    std::uint32_t d_id = 0;
    std::uint32_t s_id = 0;
    std::uint8_t r_ctl = 0x04;
    std::uint8_t type = 0x05;
    std::uint32_t f_ctl = 0x280000;
    std::uint8_t seq_id = 0;
    std::uint8_t df_ctl = 0x20;
    std::uint16_t seq_cnt = 0;
    std::uint16_t ox_id = 0x1234;
    std::uint16_t rx_id = 0xFFFF;
    std::uint32_t param = 0;
    std::uint8_t sof = 0x2E;
    std::uint8_t eof = 0x42;
    Bytes data = {};
};

// The whole Ethernet frame, CRC and fill bytes included (their count goes into F_CTL).
Bytes build(const Frame& frame);

// The same frame with bytes of any kind between the headers and a good CRC.
Bytes with_crc(Bytes frame);

// Splits a frame on the link; fails the test when its CRC, EOF or lengths are wrong.
Frame parse(const Bytes& bytes);

// Bytes as text, "0a0b", and back; blanks in the text are skipped.
Bytes hex(const std::string& text);
std::string hex(const Bytes& bytes);

// A network header and an LLC/SNAP header with the ethertype, then payload.
Bytes ip_over_fc(std::uint16_t ethertype, const Bytes& payload);

// As many bytes, counting up from first.
Bytes counting(std::size_t length, std::uint8_t first = 0);

// The one, then the other.
Bytes joined(Bytes a, const Bytes& b);

// Writes frames as a capture of an Ethernet link.
void write_pcap(const std::string& path, const std::vector<Bytes>& frames);

} // namespace wire
