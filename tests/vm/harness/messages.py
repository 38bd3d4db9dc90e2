# SPDX-License-Identifier: GPL-2.0-only
"""Which kernel messages of level warning or worse a scenario may leave behind, and why.

Whatever is not in this list fails the scenario. The README gives the same list in prose.
"""

import re

WARNING = 4

#: (pattern of the whole message, the reason why it is no defect)
EXPECTED = [
    (
        r"(brim_platform|ipfc): loading out-of-tree module taints kernel\.",
        "every module that is not built with the kernel gets this",
    ),
    (
        r"tsc: (Unable to calibrate against PIT|PIT calibration deviates from \w+: \d+ \d+)",
        "at boot, when the host gives the emulated processor too little time; no scenario needs it",
    ),
    (
        r"APIC calibration not consistent with PM-Timer: \d+ms instead of 100ms",
        "the same; the kernel then goes by the PM timer",
    ),
    (
        r"hpet: Lost \d+ RTC interrupts",
        "whenever the host gives the machine too little time; no scenario needs that clock",
    ),
    (
        r"hrtimer: interrupt took \d+ ns",
        "the same: the host took the processor away in the middle of a timer interrupt",
    ),
    (
        r"Lock dependency validator: .*|\.\.\. (MAX_LOCK\w+|\w+HASH_SIZE): +\d+"
        r"| (memory used (by lock dependency info|for stack traces)|per task-struct memory footprint): .*",
        "how a kernel that checks its locks introduces itself",
    ),
    (
        r".{1,15} used greatest stack depth: \d+ bytes left",
        "a kernel that watches its stacks: a process that ends has used more than any before",
    ),
    (
        r"\*{58}|\*\* +\*\*|\*\* +NOTICE( NOTICE)+ +\*\*"
        r"|\*\* This system shows unhashed kernel memory addresses +\*\*"
        r"|\*\* (via the console|might reduce|If you see|the kernel, report|administrator!).* \*\*",
        "the same for one that checks its memory: it prints addresses as they are",
    ),
]


#: A kernel from before 3.2 prints half of what it says at boot without a level, which makes each a
#: warning. So up to the line that says this, only what looks like a defect counts.
READY = "the machine is ready"
DEFECT = re.compile(
    r"\bBUG\b|WARNING: at|Oops|Call Trace|INFO: (possible|task|inconsistent|lockdep)"
    r"|inconsistent lock|slab error|corruption|general protection"
)


def unexplained(log, also=(), old_kernel=False):
    """The messages of `log` (as `dmesg -r` prints it) that are bad and that nobody has explained.

    `also` are further patterns that the scenario at hand provokes on purpose.
    """
    patterns = [re.compile(pattern) for pattern, _ in EXPECTED] + [re.compile(p) for p in also]
    bad = []
    booting = old_kernel
    for line in log.splitlines():
        found = re.match(r"<(\d+)>\[\s*\d+\.\d+\] ?(.*)$", line)
        if not found:
            bad.append(f"(not a kernel message: {line!r})")
            continue
        level, text = int(found.group(1)) & 7, found.group(2)
        booting = booting and text != READY
        if booting and not DEFECT.search(text):
            continue
        if level <= WARNING and not any(pattern.fullmatch(text) for pattern in patterns):
            bad.append(f"<{level}> {text}")
    return bad
