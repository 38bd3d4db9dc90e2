// SPDX-License-Identifier: GPL-2.0-only
#include "support/fc_wire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

namespace wire {
namespace {

constexpr std::size_t vft_at = 28;
constexpr std::size_t data_at = 60;
constexpr std::size_t trailer = 8;

void big(Bytes& to, std::uint32_t value, unsigned bytes)
{
    while (bytes-- != 0)
        to.push_back(static_cast<std::uint8_t>(value >> 8 * bytes));
}

std::uint32_t big_at(const Bytes& from, std::size_t at, unsigned bytes)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < bytes; ++i)
        value = value << 8 | from.at(at + i);
    return value;
}

// Bit by bit, as IEEE 802.3 defines it.
std::uint32_t crc32(const std::uint8_t* data, std::size_t length)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < length; ++i)
        for (unsigned bit = 0; bit < 8; ++bit) {
            const bool out = ((crc ^ data[i] >> bit) & 1) != 0;
            crc = crc >> 1 ^ (out ? 0xEDB88320 : 0);
        }
    return ~crc;
}

void mac(Bytes& to, std::uint32_t fcid)
{
    if (fcid == 0xFFFFFF) {
        to.insert(to.end(), 6, 0xFF);
        return;
    }
    big(to, 0x0EFC00, 3);
    big(to, fcid, 3);
}

} // namespace

Bytes build(const Frame& frame)
{
    const auto fill = static_cast<unsigned>(-frame.data.size() & 3);
    Bytes out;
    mac(out, frame.d_id);
    mac(out, frame.s_id);
    big(out, 0x8906, 2);
    out.insert(out.end(), 13, 0);
    out.push_back(frame.sof);
    big(out, 0x50000000u | static_cast<std::uint32_t>(frame.vsan) << 1, 4);
    big(out, 0xFF000000, 4);
    big(out, static_cast<std::uint32_t>(frame.r_ctl) << 24 | frame.d_id, 4);
    big(out, frame.s_id, 4);
    big(out, static_cast<std::uint32_t>(frame.type) << 24 | frame.f_ctl | fill, 4);
    out.push_back(frame.seq_id);
    out.push_back(frame.df_ctl);
    big(out, frame.seq_cnt, 2);
    big(out, frame.ox_id, 2);
    big(out, frame.rx_id, 2);
    big(out, frame.param, 4);
    out.insert(out.end(), frame.data.begin(), frame.data.end());
    out.insert(out.end(), fill + trailer, 0);
    out[out.size() - 4] = frame.eof;
    return with_crc(std::move(out));
}

Bytes with_crc(Bytes frame)
{
    const std::size_t at = frame.size() - trailer;
    const std::uint32_t crc = crc32(frame.data() + vft_at, at - vft_at);
    for (unsigned i = 0; i < 4; ++i)
        frame[at + i] = static_cast<std::uint8_t>(crc >> 8 * i);
    return frame;
}

Frame parse(const Bytes& bytes)
{
    Frame frame;
    if (bytes.size() < data_at + trailer) {
        ADD_FAILURE() << "a frame of " << bytes.size() << " bytes";
        return frame;
    }
    EXPECT_EQ(bytes.size() % 4, 0u);
    EXPECT_EQ(hex(with_crc(bytes)), hex(bytes)) << "CRC";
    EXPECT_EQ(big_at(bytes, 12, 2), 0x8906u);
    EXPECT_EQ(big_at(bytes, vft_at, 2), 0x5000u);
    EXPECT_EQ(big_at(bytes, bytes.size() - 3, 3), 0u);
    frame.sof = bytes[27];
    frame.vsan = static_cast<std::uint16_t>(big_at(bytes, 30, 2) >> 1);
    frame.r_ctl = bytes[36];
    frame.d_id = big_at(bytes, 37, 3);
    frame.s_id = big_at(bytes, 41, 3);
    frame.type = bytes[44];
    frame.f_ctl = big_at(bytes, 45, 3) & ~3u;
    frame.seq_id = bytes[48];
    frame.df_ctl = bytes[49];
    frame.seq_cnt = static_cast<std::uint16_t>(big_at(bytes, 50, 2));
    frame.ox_id = static_cast<std::uint16_t>(big_at(bytes, 52, 2));
    frame.rx_id = static_cast<std::uint16_t>(big_at(bytes, 54, 2));
    frame.param = big_at(bytes, 56, 4);
    frame.eof = bytes[bytes.size() - 4];
    frame.data.assign(bytes.begin() + data_at, bytes.end() - trailer - (bytes[47] & 3));
    return frame;
}

Bytes hex(const std::string& text)
{
    Bytes bytes;
    std::string digits;
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            digits += c;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string hex(const Bytes& bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

Bytes ip_over_fc(std::uint16_t ethertype, const Bytes& payload)
{
    Bytes out = hex("1000020000000002 1000020000000001 aaaa03000000");
    big(out, ethertype, 2);
    return joined(std::move(out), payload);
}

Bytes counting(std::size_t length, std::uint8_t first)
{
    Bytes bytes(length);
    for (std::uint8_t& byte : bytes)
        byte = first++;
    return bytes;
}

Bytes joined(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

void write_pcap(const std::string& path, const std::vector<Bytes>& frames)
{
    std::ofstream file(path, std::ios::binary);
    const auto word = [&file](std::uint32_t value) {
        file.write(reinterpret_cast<const char*>(&value), sizeof value);
    };
    // Magic, version 2.4, no time zone, no accuracy, longest frame, link type Ethernet.
    for (std::uint32_t value : {0xA1B2C3D4u, 0x00040002u, 0u, 0u, 65535u, 1u})
        word(value);
    std::uint32_t second = 0;
    for (const Bytes& frame : frames) {
        const auto length = static_cast<std::uint32_t>(frame.size());
        for (std::uint32_t value : {second++, 0u, length, length})
            word(value);
        file.write(reinterpret_cast<const char*>(frame.data()),
                   static_cast<std::streamsize>(length));
    }
}

} // namespace wire
