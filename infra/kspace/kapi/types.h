// SPDX-License-Identifier: GPL-2.0-only
// Scalar types under the kernel's names, and byte order.
#pragma once

#include "compiler.h"

using gfp_t = unsigned int;

// As wide as a kernel's on x86-64, and the same types as a C library's, which tests include as
// well.
using mode_t = unsigned int;
using off_t = long;
using loff_t = long;
using ssize_t = long;

constexpr std::uint16_t be16_to_cpu(std::uint16_t wire)
{
    return __builtin_bswap16(wire);
}
constexpr std::uint16_t cpu_to_be16(std::uint16_t host)
{
    return __builtin_bswap16(host);
}
constexpr std::uint32_t be32_to_cpu(std::uint32_t wire)
{
    return __builtin_bswap32(wire);
}
constexpr std::uint32_t cpu_to_be32(std::uint32_t host)
{
    return __builtin_bswap32(host);
}
