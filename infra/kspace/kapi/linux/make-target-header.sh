#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: make-target-header.sh LAYOUT.s BITS.o. Writes kapi_target.h: the target kernel's layouts as
# its own compiler sees them. OBJCOPY names the target's objcopy.
set -eu
layout=$1 bits=$2

# The compiled image of a buffer whose packet type is all ones and everything else zero: offset of
# the byte and the bits in it. "offset byte" of the only byte that is not zero.
image=$(mktemp)
trap 'rm -f "$image"' EXIT
"${OBJCOPY:-objcopy}" -O binary -j .data.kapi_pkt_type "$bits" "$image"
found=$(od -An -v -t u1 -w1 "$image" | awk '$1 != 0 { print NR - 1, $1 }')
# shellcheck disable=SC2086
set -- $found
[ $# -eq 2 ] || {
    echo "make-target-header: the packet type does not lie inside one byte: $found" >&2
    exit 1
}
offset=$1 byte=$2 shift=0
while [ $((byte & 1)) -eq 0 ]; do
    byte=$((byte >> 1)) shift=$((shift + 1))
done
[ "$byte" -eq 7 ] || {
    echo "make-target-header: the packet type is not three bits wide" >&2
    exit 1
}

echo "// SPDX-License-Identifier: GPL-2.0-only"
echo "// Offsets, sizes and constants of the target kernel, in bytes. Generated."
echo "#pragma once"
echo
sed -n -e 's/^[[:space:]]*\.ascii[[:space:]]*"\(.*\)".*/\1/' \
    -e 's/^->\([A-Z0-9_]*\) [$#]*\(-\{0,1\}[0-9][0-9]*\) .*/#define \1 \2/p' "$layout"
echo "#define KAPI_SKB_PKT_TYPE $offset"
echo "#define KAPI_SKB_PKT_TYPE_SHIFT $shift"
cat <<'END'

// A pointer or the bytes themselves.
#if KAPI_NETDEV_DEV_ADDR_SIZE == 8
using kapi_dev_addr_t = const unsigned char*;
#else
using kapi_dev_addr_t = const unsigned char[KAPI_NETDEV_DEV_ADDR_SIZE];
#endif

#if KAPI_SKB_MAC_HEADER_SIZE == 2
using kapi_skb_mac_header_t = unsigned short;
#else
using kapi_skb_mac_header_t = unsigned int;
#endif

// Locks and queues that are ready before the module's start-up: the glue runs through this table
// first. Each gets a lock class of its own.
struct kapi_static_init {
    void (*function)(void* object);
    void* object;
};
#define KAPI_STATIC_INIT(function, object)                                                         \
    extern "C" void function##_static(void* target);                                               \
    [[gnu::used, gnu::section("kapi_static_init")]] static constinit kapi_static_init              \
        kapi_static_init_##object                                                                  \
    {                                                                                              \
        function##_static, &object                                                                 \
    }
END
