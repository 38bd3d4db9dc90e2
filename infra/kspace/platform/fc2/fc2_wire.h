// SPDX-License-Identifier: GPL-2.0-only
// Frames on the wire: Ethernet, FCoE encapsulation (FC-BB-5, 7.7), VFT header (FC-FS-3, 13.3), FC
// header (FC-FS-3, 11), data, CRC, EOF. Multi-byte fields are big-endian but for the CRC.
//
//    0 Ethernet   14   destination, source, type 0x8906
//   14 FCoE       14   version 0, reserved, SOF in the last byte
//   28 VFT         8   R_CTL 0x50, virtual fabric, hop count
//   36 FC         24
//   60 data     0..2112, a multiple of 4 with the fill bytes
//      CRC         4   over everything from the VFT header on
//      EOF         4   and three reserved bytes
#pragma once

#include "brim/types.h"

#include "kapi/types.h"

inline constexpr unsigned int ETH_HEADER_LEN = 14;
inline constexpr unsigned int FCOE_HEADER_LEN = 14;
inline constexpr unsigned int VFT_HEADER_LEN = 8;
inline constexpr unsigned int FC_HEADER_LEN = 24;
inline constexpr unsigned int FC_CRC_LEN = 4;
inline constexpr unsigned int FCOE_EOF_LEN = 4;

inline constexpr unsigned int FCOE_HEADER_AT = ETH_HEADER_LEN;
inline constexpr unsigned int VFT_HEADER_AT = FCOE_HEADER_AT + FCOE_HEADER_LEN;
inline constexpr unsigned int FC_HEADER_AT = VFT_HEADER_AT + VFT_HEADER_LEN;
inline constexpr unsigned int FC_DATA_AT = FC_HEADER_AT + FC_HEADER_LEN;
inline constexpr unsigned int FC2_TRAILER_LEN = FC_CRC_LEN + FCOE_EOF_LEN;
inline constexpr unsigned int FC2_HEADER_RESERVE = 64;

static_assert(FC_DATA_AT == 60 && FC_DATA_AT <= FC2_HEADER_RESERVE);
static_assert(FC2_TRAILER_LEN == 8);

inline constexpr unsigned int FC_FILL_MAX = 3;
inline constexpr unsigned int FC_DATA_MAX = 2112; // optional headers included
inline constexpr unsigned int FC_DATA_MIN = 256;  // smallest receive size of a login (FC-LS-2)
inline constexpr unsigned int FC_NETWORK_HEADER_LEN = 16;

// Behind the Ethernet header, around the data of one frame.
inline constexpr unsigned int FCOE_OVERHEAD =
    FCOE_HEADER_LEN + VFT_HEADER_LEN + FC_HEADER_LEN + FC2_TRAILER_LEN;

inline constexpr std::uint16_t ETHERTYPE_FCOE = 0x8906;
// Fabric-provided MAC address: this prefix, then the FCID (FC-BB-5, FC-MAP default).
inline constexpr std::uint8_t FC_MAP[3] = {0x0E, 0xFC, 0x00};

inline constexpr std::uint8_t SOF_I3 = 0x2E; // first frame of a class 3 sequence
inline constexpr std::uint8_t SOF_N3 = 0x36;
inline constexpr std::uint8_t EOF_N = 0x41;
inline constexpr std::uint8_t EOF_T = 0x42; // last frame of a sequence

inline constexpr std::uint8_t RCTL_VFT = 0x50;
inline constexpr std::uint8_t RCTL_ELS_REQUEST = 0x22;
inline constexpr std::uint8_t RCTL_ELS_REPLY = 0x23;
inline constexpr std::uint8_t FC_TYPE_ELS = 0x01;

inline constexpr std::uint32_t FCTL_RESPONDER = 0x800000; // sent by the exchange's responder
inline constexpr std::uint32_t FCTL_FIRST_SEQUENCE = 0x200000;
inline constexpr std::uint32_t FCTL_LAST_SEQUENCE = 0x100000;
inline constexpr std::uint32_t FCTL_END_SEQUENCE = 0x080000; // last frame of the sequence
inline constexpr std::uint32_t FCTL_TRANSFER_INITIATIVE = 0x010000;
inline constexpr std::uint32_t FCTL_RELATIVE_OFFSET = 0x000008; // PARAM is one
inline constexpr std::uint32_t FCTL_FILL = 0x000003;            // number of fill bytes

inline constexpr std::uint16_t FC_XID_NONE = 0xFFFF;
inline constexpr std::uint32_t FCID_BROADCAST = 0xFFFFFF;

inline std::uint16_t load_be16(const std::uint8_t* from)
{
    return static_cast<std::uint16_t>(from[0] << 8 | from[1]);
}

inline std::uint32_t load_be24(const std::uint8_t* from)
{
    return static_cast<std::uint32_t>(from[0] << 16 | from[1] << 8 | from[2]);
}

inline std::uint32_t load_be32(const std::uint8_t* from)
{
    return static_cast<std::uint32_t>(from[0]) << 24 | load_be24(from + 1);
}

inline std::uint32_t load_le32(const std::uint8_t* from)
{
    return static_cast<std::uint32_t>(from[3]) << 24 |
           static_cast<std::uint32_t>(from[2] << 16 | from[1] << 8 | from[0]);
}

inline void store_be16(std::uint8_t* to, std::uint32_t value)
{
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

inline void store_be24(std::uint8_t* to, std::uint32_t value)
{
    to[0] = static_cast<std::uint8_t>(value >> 16);
    store_be16(to + 1, value);
}

inline void store_be32(std::uint8_t* to, std::uint32_t value)
{
    to[0] = static_cast<std::uint8_t>(value >> 24);
    store_be24(to + 1, value);
}

inline void store_le32(std::uint8_t* to, std::uint32_t value)
{
    to[0] = static_cast<std::uint8_t>(value);
    to[1] = static_cast<std::uint8_t>(value >> 8);
    to[2] = static_cast<std::uint8_t>(value >> 16);
    to[3] = static_cast<std::uint8_t>(value >> 24);
}

// The 24-bit address of an FCID record, and back.
inline std::uint32_t fcid_value(fcid_t fcid)
{
    return load_be24(fcid.str + 1);
}

inline fcid_t fcid_record(std::uint32_t value)
{
    fcid_t fcid;
    store_be32(fcid.str, value);
    return fcid;
}

inline std::uint32_t fcid_domain(std::uint32_t fcid)
{
    return fcid >> 16;
}

// CRC-32 of FC (the one of IEEE 802.3), as a number that goes out least significant byte first.
std::uint32_t fc_crc(const std::uint8_t* data, unsigned int length);
