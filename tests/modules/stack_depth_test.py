#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""scripts/stack-depth on small objects of the assembler's."""

import pathlib
import subprocess
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "stack-depth"

LEAF = "leaf: push %rbx\nsub $0x20,%rsp\nadd $0x20,%rsp\npop %rbx\nret\n"


class StackDepth(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.object = pathlib.Path(folder.name) / "module.o"

    def depth(self, text, *arguments):
        subprocess.run(["as", "-o", self.object, "-"], input=text, text=True, check=True)
        return subprocess.run(
            [TOOL, self.object, *arguments], capture_output=True, text=True, check=False
        )

    def expect(self, text, function, wanted):
        done = self.depth(text, function)
        self.assertEqual((done.stdout, done.stderr), (wanted + "\n", ""))

    def test_a_function_alone_needs_its_frame_and_the_return_address(self):
        self.expect(LEAF, "leaf", "   48 leaf")

    def test_a_call_adds_what_is_below_it(self):
        text = "top: push %rbp\nsub $8,%rsp\ncall leaf\nadd $8,%rsp\npop %rbp\nret\n" + LEAF
        self.expect(text, "top", "   72 top -> leaf")

    def test_the_deepest_of_several_ways_counts(self):
        text = "top: call small\ncall leaf\nret\nsmall: ret\n" + LEAF
        self.expect(text, "top", "   56 top -> leaf")

    def test_a_call_after_the_frame_is_gone_is_not_charged_with_it(self):
        text = "top: sub $0x100,%rsp\nadd $0x100,%rsp\njmp leaf\n" + LEAF
        self.expect(text, "top", "  264 top")

    def test_a_jump_to_another_function_takes_the_place_of_the_caller(self):
        self.expect("top: jmp leaf\n" + LEAF, "top", "   48 top -> leaf")

    def test_both_sides_of_a_branch_are_followed(self):
        text = "top: test %eax,%eax\nje 1f\nret\n1: sub $0x40,%rsp\ncall leaf\nadd $0x40,%rsp\nret\n"
        self.expect(text + LEAF, "top", "  120 top -> leaf")

    def test_code_behind_a_frame_pointer_is_understood(self):
        text = (
            "top: push %rbp\nmov %rsp,%rbp\npush %rbx\nsub $0x18,%rsp\ncall leaf\n"
            "lea -0x8(%rbp),%rsp\ncall leaf\nleave\ncall leaf\nret\n"
        )
        self.expect(text + LEAF, "top", "   96 top -> leaf")

    def test_a_function_of_another_section_is_found(self):
        text = "top: call cold\nret\n.section .text.unlikely,\"ax\"\nnop\ncold: sub $8,%rsp\nadd $8,%rsp\nret\n"
        self.expect(text, "top", "   24 top -> cold")

    def test_a_function_elsewhere_is_named_but_not_counted(self):
        text = "top: sub $8,%rsp\ncall elsewhere\nadd $8,%rsp\nret\n"
        self.expect(text + LEAF, "top", "   16 top")

    def test_a_call_through_a_pointer_is_shown(self):
        self.expect("top: call *%rax\nret\n", "top", "    8 top\n      top calls through a pointer")

    def test_recursion_is_an_error(self):
        done = self.depth("top: call other\nret\nother: call top\nret\n", "top")
        self.assertEqual(done.returncode, 2)
        self.assertIn("recursion: top -> other -> top", done.stderr)

    def test_a_stack_pointer_out_of_sight_is_an_error(self):
        done = self.depth("top: sub %rax,%rsp\nret\n", "top")
        self.assertEqual(done.returncode, 2)
        self.assertIn("sub %rax,%rsp", done.stderr)

    def test_the_limit_is_kept_or_not(self):
        self.assertEqual(self.depth(LEAF, "--limit", "48").returncode, 0)
        done = self.depth(LEAF, "--limit", "47")
        self.assertEqual((done.returncode, done.stderr), (1, "stack-depth: more than 47 bytes\n"))

    def test_an_unknown_function_is_an_error(self):
        done = self.depth(LEAF, "leave")
        self.assertEqual(done.returncode, 2)
        self.assertIn("no such function: leave", done.stderr)


if __name__ == "__main__":
    unittest.main()
