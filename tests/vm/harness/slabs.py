# SPDX-License-Identifier: GPL-2.0-only
"""What the kernel's general allocator has given away."""

import re

from .errors import expect


def large_blocks(machine):
    """How many blocks of 4 and 8 KiB are in use; a network device is one of them."""
    # What the processors have at hand counts as used until it is taken back.
    table = machine.run(
        "for file in /sys/kernel/slab/kmalloc-*[48]k/shrink; do [ ! -e $file ] || echo 1 > $file; "
        "done; cat /proc/slabinfo"
    )
    caches = r"^(?:kmalloc-(?:cg-|rnd-\d\d-)?(?:4k|8k|4096|8192)|size-(?:4096|8192)) +(\d+)"
    found = sum(int(count) for count in re.findall(caches, table, re.MULTILINE))
    expect(found > 0, f"blocks of 4 and 8 KiB are counted:\n{table}")
    return found
