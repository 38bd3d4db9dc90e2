// SPDX-License-Identifier: GPL-2.0-only
// The CRC of a frame, four bytes a step: each table advances the remainder past one byte more.
#include "platform/fc2/fc2_wire.h"

namespace {

inline constexpr std::uint32_t POLYNOMIAL = 0xEDB88320; // 0x04C11DB7 with its bits reversed

struct crc_tables {
    std::uint32_t past[4][256];
};

constexpr crc_tables make_tables()
{
    crc_tables tables = {};
    for (std::uint32_t byte = 0; byte < 256; byte++) {
        std::uint32_t remainder = byte;
        for (int bit = 0; bit < 8; bit++)
            remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? POLYNOMIAL : 0);
        tables.past[0][byte] = remainder;
    }
    for (int step = 1; step < 4; step++)
        for (int byte = 0; byte < 256; byte++) {
            std::uint32_t before = tables.past[step - 1][byte];
            tables.past[step][byte] = before >> 8 ^ tables.past[0][before & 0xFF];
        }
    return tables;
}

constinit const crc_tables TABLES = make_tables();

} // namespace

std::uint32_t fc_crc(const std::uint8_t* data, unsigned int length)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (; length >= 4; length -= 4, data += 4) {
        crc ^= load_le32(data);
        crc = TABLES.past[3][crc & 0xFF] ^ TABLES.past[2][crc >> 8 & 0xFF] ^
              TABLES.past[1][crc >> 16 & 0xFF] ^ TABLES.past[0][crc >> 24];
    }
    for (; length != 0; length--, data++)
        crc = crc >> 8 ^ TABLES.past[0][(crc ^ *data) & 0xFF];
    return ~crc;
}
