# SPDX-License-Identifier: GPL-2.0-only
"""Programs and libraries of today on a kernel that does not know two system calls' newer forms.

Today's C library asks for the state of an open file with newfstatat, an empty path and AT_EMPTY_PATH,
which kernels before 2.6.39 refuse, and waits without a time limit on the real-time clock, which
futex does not know before 2.6.28. In the copies for such a machine, each place that makes one of
these calls goes through a few instructions more, which make it fstat in that case, or drop the
clock. They go into the padding behind the code, or into the room that programs/room.c leaves.
"""

import struct

from .errors import NotReady

ELF_HEADER = struct.Struct("<16sHHIQQQIHHHHHH")
PROGRAM_HEADER = struct.Struct("<IIQQQQQQ")
PT_LOAD, EXECUTABLE, EM_X86_64 = 1, 1, 62
PAGE = 4096

#: mov $newfstatat, %eax; syscall
NEWFSTATAT = bytes.fromhex("b806010000 0f05")
#: mov $futex, %eax; syscall
FUTEX = bytes.fromhex("b8ca000000 0f05")

#: What goes in the place of each. Below the stack pointer may be something of the caller's.
DETOURS = {
    # test $AT_EMPTY_PATH, %r10d; je as_ever; cmpb $0, (%rsi); jne as_ever
    # lea -128(%rsp), %rsp; push %rsi; mov %rdx, %rsi; mov $fstat, %eax; syscall
    # pop %rsi; lea 128(%rsp), %rsp; jmp back
    # as_ever: mov $newfstatat, %eax; syscall; back:
    NEWFSTATAT: bytes.fromhex(
        "41f7c200100000 7420 803e00 751b"
        "488d642480 56 4889d6 b805000000 0f05"
        "5e 488da42480000000 eb07"
        "b806010000 0f05"
    ),
    # test %r10, %r10; jne as_ever
    # lea -128(%rsp), %rsp; push %rsi; and $~FUTEX_CLOCK_REALTIME, %esi; mov $futex, %eax; syscall
    # pop %rsi; lea 128(%rsp), %rsp; jmp back
    # as_ever: mov $futex, %eax; syscall; back:
    FUTEX: bytes.fromhex(
        "4d85d2 751e"
        "488d642480 56 81e6fffeffff b8ca000000 0f05"
        "5e 488da42480000000 eb07"
        "b8ca000000 0f05"
    ),
}
JUMP = struct.Struct("<Bi")

#: What programs/room.c puts into a program's code: traps that nothing runs into.
ROOM = b"\xcc" * 2048


def adapt(content, name):
    """The content of a file, with all such places adapted; anything else comes back as it is."""
    if content[:6] != b"\x7fELF\x02\x01" or not any(call in content for call in DETOURS):
        return content
    header = ELF_HEADER.unpack_from(content)
    if header[2] != EM_X86_64:
        return content
    image = bytearray(content)
    table, size, count = header[5], header[9], header[10]
    segments = [
        [table + number * size, *PROGRAM_HEADER.unpack_from(image, table + number * size)]
        for number in range(count)
    ]
    loaded = [segment for segment in segments if segment[1] == PT_LOAD]
    for segment in loaded:
        if segment[2] & EXECUTABLE:
            _adapt_segment(image, segment, loaded, name)
    return bytes(image)


def _adapt_segment(image, segment, loaded, name):
    at, kind, flags, offset, address, physical, in_file, in_memory, alignment = segment
    sites = []
    for call in DETOURS:
        found = image.find(call, offset, offset + in_file)
        while found >= 0:
            sites.append((found, call))
            found = image.find(call, found + 1, offset + in_file)
    if not sites:
        return
    needed = sum(len(DETOURS[call]) + JUMP.size for _, call in sites)
    end = image.find(ROOM, offset, offset + in_file)
    if end < 0:
        end = offset + in_file
        others = [other for other in loaded if other is not segment]
        if (
            needed > -end % PAGE
            or in_memory != in_file
            or any(end <= other[3] < end + needed for other in others)
            or any(image[end : end + needed])
        ):
            raise NotReady(f"{name}: no room behind the code for an old kernel's calls")
    elif needed > len(ROOM):
        raise NotReady(f"{name}: programs/room.c leaves too little room for an old kernel's calls")
    for site, call in sites:
        # Distances in the file are those in memory: both ends lie in one segment.
        image[site : site + len(call)] = JUMP.pack(0xE9, end - (site + JUMP.size)) + b"\x0f\x0b"
        detour = DETOURS[call]
        back = site + len(call) - (end + len(detour) + JUMP.size)
        image[end : end + len(detour) + JUMP.size] = detour + JUMP.pack(0xE9, back)
        end += len(detour) + JUMP.size
    in_file = max(in_file, end - offset)
    PROGRAM_HEADER.pack_into(
        image, at, kind, flags, offset, address, physical, in_file, in_file, alignment
    )
