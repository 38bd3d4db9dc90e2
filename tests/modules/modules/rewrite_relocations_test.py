#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""scripts/rewrite-relocations on small objects of the assembler's."""

import pathlib
import re
import subprocess
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "rewrite-relocations"
OLD_LOADER = "NONE 64 32 32S PC32"

CALLS = """
    .text
    .globl start
start:
    call near
    call far_away
    jmp far_away
    lea table(%rip), %rax
    mov $table, %rdi
    .globl near
near:
    ret
    .data
table:
    .quad near
    .long start
"""


class RewriteRelocations(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.object = self.folder / "module.ko"

    def assemble(self, text, name="module.ko", machine="--64"):
        path = self.folder / name
        subprocess.run(["as", machine, "-o", path, "-"], input=text, text=True, check=True)
        return path

    def rewrite(self, known=OLD_LOADER, path=None):
        return subprocess.run(
            [TOOL, "--known", known, path or self.object], capture_output=True, text=True, check=False
        )

    def relocations(self, path):
        """(offset, type, symbol and addend) of each, section after section."""
        told = subprocess.run(["readelf", "-rW", path], capture_output=True, text=True, check=True)
        lines = re.findall(r"(?m)^([0-9a-f]{16})  [0-9a-f]{16} (\S+) +[0-9a-f]+ (.*)$", told.stdout)
        return [(int(place, 16), kind, target) for place, kind, target in lines]

    def linked(self, path):
        """The code and data of a program made of the object."""
        far_away = self.assemble(".globl far_away\nfar_away: ret\n", "far_away.o")
        program = self.folder / "program"
        subprocess.run(["ld", "-e", "start", "-o", program, path, far_away], check=True)
        image = self.folder / "image"
        subprocess.run(["objcopy", "-O", "binary", program, image], check=True)
        return image.read_bytes()

    def test_a_call_becomes_relative_to_the_program_counter(self):
        self.assemble(CALLS)
        before = self.relocations(self.object)
        self.assertEqual([kind for _, kind, _ in before].count("R_X86_64_PLT32"), 3)
        self.assertEqual(self.rewrite().returncode, 0)
        expected = [(at, kind.replace("PLT32", "PC32"), target) for at, kind, target in before]
        self.assertEqual(self.relocations(self.object), expected)

    def test_the_linked_program_stays_the_same(self):
        self.assemble(CALLS)
        before = self.linked(self.object)
        self.assertEqual(self.rewrite().returncode, 0)
        self.assertEqual(self.linked(self.object), before)

    def test_nothing_but_the_types_of_relocations_changes(self):
        self.assemble(CALLS)
        before = self.object.read_bytes()
        self.assertEqual(self.rewrite().returncode, 0)
        after = self.object.read_bytes()
        self.assertEqual(len(after), len(before))
        changed = [(old, new) for old, new in zip(before, after) if old != new]
        self.assertEqual(changed, [(4, 2)] * 3)

    def test_a_module_without_calls_is_not_written_to(self):
        self.assemble(".data\n.quad table\ntable:\n")
        self.object.chmod(0o444)
        before = self.object.stat()
        self.assertEqual(self.rewrite().returncode, 0)
        after = self.object.stat()
        self.assertEqual((after.st_ino, after.st_mtime_ns), (before.st_ino, before.st_mtime_ns))

    def test_a_second_time_changes_nothing(self):
        self.assemble(CALLS)
        self.assertEqual(self.rewrite().returncode, 0)
        before = self.object.stat()
        self.assertEqual(self.rewrite().returncode, 0)
        self.assertEqual(self.object.stat().st_ino, before.st_ino)

    def test_a_loader_that_knows_calls_gets_them_as_they_are(self):
        self.assemble(CALLS)
        before = self.object.read_bytes()
        self.assertEqual(self.rewrite(OLD_LOADER + " PLT32").returncode, 0)
        self.assertEqual(self.object.read_bytes(), before)

    def test_a_relocation_that_the_loader_does_not_know_is_refused(self):
        for text, name, place in (
            ("call outside\nmov outside@GOTPCREL(%rip), %rax\n", "REX_GOTPCRELX", 8),
            (".quad outside - .\n", "PC64", 0),
            (".quad outside@GOTOFF\n", "GOTOFF64", 0),
            (".byte outside\n", "8", 0),
            (".word outside - .\n", "PC16", 0),
            ("mov %fs:outside@tpoff, %rax\n", "23", 5),
        ):
            with self.subTest(name):
                self.assemble(text)
                before = self.object.read_bytes()
                done = self.rewrite()
                self.assertEqual(done.returncode, 1)
                self.assertIn(f".text+{place:#x}: the loader knows no relocation {name}\n", done.stderr)
                self.assertEqual(self.object.read_bytes(), before)

    def test_sections_that_are_not_loaded_may_hold_anything(self):
        self.assemble('.section .debug_x,"",@progbits\n.quad outside - .\ncall outside\n')
        before = self.object.read_bytes()
        self.assertEqual(self.rewrite().returncode, 0)
        self.assertEqual(self.object.read_bytes(), before)

    def test_an_object_for_another_machine_is_refused(self):
        self.assemble("call outside\n", machine="--32")
        done = self.rewrite()
        self.assertEqual(done.returncode, 1)
        self.assertIn("not a relocatable object for x86-64", done.stderr)

    def test_a_program_is_refused(self):
        self.linked(self.assemble(CALLS))
        done = self.rewrite(path=self.folder / "program")
        self.assertEqual(done.returncode, 1)
        self.assertIn("not a relocatable object for x86-64", done.stderr)

    def test_a_file_that_is_cut_short_is_refused(self):
        whole = self.assemble(CALLS).read_bytes()
        for length in (0, 10, 63, 64, len(whole) // 2, len(whole) - 1):
            with self.subTest(length):
                self.object.write_bytes(whole[:length])
                done = self.rewrite()
                self.assertEqual(done.returncode, 1)
                self.assertRegex(done.stderr, r"^rewrite-relocations: [^\n]*\n$")
                self.assertEqual(self.object.read_bytes(), whole[:length])


if __name__ == "__main__":
    unittest.main()
