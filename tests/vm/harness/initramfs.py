# SPDX-License-Identifier: GPL-2.0-only
"""The whole file system of a test machine, written as one cpio archive without being root."""

import os
import pathlib
import re
import shutil
import subprocess

from . import oldcalls
from .errors import NotReady
from .programs import programs

SEARCH = os.pathsep.join([os.environ.get("PATH", ""), "/usr/sbin", "/sbin", "/usr/bin", "/bin"])

#: Programs of this computer that a machine gets, with the libraries they are linked to.
#: busybox has an `ip` and a `ping` too, but they know neither -j nor 12-byte addresses; and its
#: shell prefers its own programs to those of the search path, so the shell is another one.
PROGRAMS = ("ip", "ping", "dash")

#: Such a kernel makes no device files by itself.
OLD_NODES = (
    ("dev/null", 1, 3),
    ("dev/zero", 1, 5),
    ("dev/random", 1, 8),
    ("dev/urandom", 1, 9),
    ("dev/kmsg", 1, 11),
    ("dev/ttyS0", 4, 64),
    ("dev/ttyS1", 4, 65),
)


class Archive:
    """A cpio archive in the "newc" format that the kernel unpacks at boot."""

    def __init__(self, old_kernel):
        self._old_kernel = old_kernel
        self._parts = []
        self._folders = set()
        self._inode = 0

    def file(self, path, content, mode=0o644):
        """Adds a regular file, and the folders above it."""
        self._above(path)
        if self._old_kernel:
            content = oldcalls.adapt(content, path)
        self._member(path, 0o100000 | mode, content)

    def link(self, path, target):
        self._above(path)
        self._member(path, 0o120777, target.encode())

    def folder(self, path):
        path = path.strip("/")
        if path and path not in self._folders:
            self._above(path)
            self._folders.add(path)
            self._member(path, 0o040755, b"")

    def node(self, path, major, minor):
        """Adds a character device."""
        self._above(path)
        self._member(path, 0o020600, b"", major, minor)

    def write(self, path):
        self._member("TRAILER!!!", 0, b"")
        path.write_bytes(b"".join(self._parts))

    def _above(self, path):
        parent = os.path.dirname(path.strip("/"))
        if parent:
            self.folder(parent)

    def _member(self, path, mode, content, major=0, minor=0):
        self._inode += 1
        name = path.strip("/").encode() + b"\0"
        fields = (self._inode, mode, 0, 0, 1, 0, len(content), 0, 0, major, minor, len(name), 0)
        head = b"070701" + b"".join(b"%08x" % field for field in fields) + name
        for part in (head, content):
            self._parts.append(part + b"\0" * (-len(part) % 4))


def build(path, kernel, stock_modules, files):
    """Writes the archive for `kernel` to `path`.

    `stock_modules` are loaded by the machine itself before it reports for duty; `files` maps a
    path in the machine to a file of this computer.
    """
    archive = Archive(kernel.old)
    for folder in ("proc", "sys", "dev", "run", "tmp", "root"):
        archive.folder(folder)
    archive.node("dev/console", 5, 1)
    _init(archive, kernel)
    _busybox(archive)
    libraries = _programs(archive, kernel)
    archive.link("bin/sh", "dash")
    modules = kernel.closure(stock_modules)
    for name, content in modules:
        archive.file(f"modules/{name}.ko", content)
    archive.file("etc/boot-modules", "".join(f"{name}\n" for name, _ in modules).encode())
    archive.file("etc/passwd", b"root::0:0:root:/root:/bin/sh\n")
    for inside, outside in files.items():
        outside = pathlib.Path(outside)
        archive.file(inside, outside.read_bytes(), outside.stat().st_mode & 0o777)
        if inside.startswith("bin/"):
            libraries |= linked_libraries(outside)
    for library in sorted(libraries):
        archive.file(library, pathlib.Path(library).read_bytes(), 0o755)
    archive.write(path)


def _init(archive, kernel):
    script = (pathlib.Path(__file__).parent / "init").read_bytes()
    if not kernel.old:
        archive.file("init", script, 0o755)
        return
    # Everything in the machine runs under a process that makes up for what the kernel lacks.
    for path, program in programs("newcomer").items():
        archive.file(path, program.read_bytes(), 0o755)
    archive.file("init", b"#!/bin/newcomer /servant\n", 0o755)
    archive.file("servant", script, 0o755)
    # The kernel runs it for each new device.
    archive.file("hotplug", b"#!/bin/newcomer /bin/mdev\n", 0o755)
    archive.file("etc/mdev.conf", b".* 0:0 600\n")
    for path, major, minor in OLD_NODES:
        archive.node(path, major, minor)


def find_program(name):
    path = shutil.which(name, path=SEARCH)
    if path is None:
        raise NotReady(f"the program {name} is missing on this computer")
    return path


def _busybox(archive):
    program = find_program("busybox")
    archive.file("bin/busybox", pathlib.Path(program).read_bytes(), 0o755)
    applets = subprocess.run([program, "--list"], check=True, capture_output=True, text=True)
    for applet in applets.stdout.split():
        if applet not in PROGRAMS and applet not in ("busybox", "init", "sh"):
            archive.link(f"bin/{applet}", "busybox")


def _programs(archive, kernel):
    """Puts the programs in; gives the libraries that they are linked with."""
    libraries = set()
    for name in PROGRAMS:
        program = find_program(name)
        folder = "bin"
        if kernel.old and name == "ip":
            folder = "sbin"
            front = pathlib.Path(__file__).parent / "old-ip"
            archive.file("bin/ip", front.read_bytes(), 0o755)
        archive.file(f"{folder}/{name}", pathlib.Path(program).read_bytes(), 0o755)
        libraries |= linked_libraries(program)
    return libraries


def linked_libraries(program):
    """None for a static program, of which ldd says so and fails."""
    told = subprocess.run(["ldd", str(program)], check=False, capture_output=True, text=True)
    return set(re.findall(r"(/\S+) \(0x", told.stdout))
