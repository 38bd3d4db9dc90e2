# SPDX-License-Identifier: GPL-2.0-only
"""The small programs of tests/vm/programs, built for the machines: static, so that they need no
libraries there."""

import fcntl
import subprocess

from .errors import NotReady
from .kernel import ROOT

SOURCES = ROOT / "tests" / "vm" / "programs"
OUT = ROOT / "out" / "vm-programs"

FLAGS = ("-O1", "-Wall", "-Wextra", "-Werror", "-std=gnu11", "-static", f"-I{ROOT / 'include'}")
#: For programs that include bare.h: no library and no start files, which are there for 64 bits only.
BARE = (
    "-ffreestanding", "-fno-builtin", "-fno-stack-protector", "-fno-pic", "-no-pie", "-nostdlib",
)  # fmt: skip


def programs(*names):
    """Builds the programs; gives the `files` for Lab.boot().

    "thing" is thing.c; "thing32" is thing.c for 32 bits, which has to include bare.h.
    """
    OUT.mkdir(parents=True, exist_ok=True)
    with open(OUT / ".lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        return {f"bin/{name}": _build(name) for name in names}


def compile_static(source, program):
    """Builds one static program for the machines from a C source that uses the C library."""
    _compile(source, program, "-m64", str(SOURCES / "room.c"))


def _build(name):
    source, program = SOURCES / f"{name.removesuffix('32')}.c", OUT / name
    newest = max(path.stat().st_mtime for path in SOURCES.iterdir())
    if program.exists() and program.stat().st_mtime > newest:
        return program
    if '#include "bare.h"' in source.read_text():
        _compile(source, program, "-m32" if name.endswith("32") else "-m64", *BARE)
    else:
        compile_static(source, program)
    return program


def _compile(source, program, *flags):
    command = ["gcc", *FLAGS, *flags, "-o", str(program), str(source)]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise NotReady(f"{source} does not compile:\n{done.stderr}")
