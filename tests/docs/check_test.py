#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""A document with one mistake in it is refused: the checks are worth something."""

import importlib.machinery
import importlib.util
import pathlib
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import documents  # noqa: E402


def load_check():
    loader = importlib.machinery.SourceFileLoader("check", str(HERE / "check"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check", loader))
    loader.exec_module(module)
    return module


CHECK = load_check()

#: Check, document, what stands there once at least, and what is made of its first occurrence.
MISTAKES = (
    ("names", "architecture.md", "`infra/uspace/libipfc/`", "`infra/uspace/libfc/`"),
    ("names", "architecture.md", "`ipfc_chr_read()`", "`ipfc_char_read()`"),
    ("names", "architecture.md", "](wire-format.md)", "](wire.md)"),
    ("names", "proc-reports.md", "wire-format.md#name-server-frames", "wire-format.md#names"),
    ("programs", "control-interface.md", "IPFC_IOC_GET_STATS, &counters", "IPFC_IOC_STATS, &counters"),
    ("programs", "control-interface.md", "device.get_info(10)", "device.info(10)"),
    ("records", "control-interface.md", "0xC0AC5008", "0xC0AC5009"),
    ("records", "control-interface.md", "| 12 | 4 | `fcid`", "| 12 | 4 | `ww_portname`"),
    ("records", "control-interface.md", "| 168 | 4 | `ifInUnknownProtos`", "| 164 | 4 | `ifInUnknownProtos`"),
    ("records", "control-interface.md", "| 4 | 8 | `ww_portname` | port name that", "| 4 | 4 | `ww_portname` | that"),
    ("records", "control-interface.md", "`IPFC_UPD_INTF_SET_ADM_UP` | 2", "`IPFC_UPD_INTF_SET_ADM_UP` | 3"),
    ("records", "control-interface.md", "| 13 | 0x4014500D | `IPFC_IOC_DEL_IVRIP`", "| 12 | 0x4014500C | `IPFC_IOC_ADD_IVRIP`"),
    ("records", "architecture.md", "`FC2_NAMES_MAX` | 16384", "`FC2_NAMES_MAX` | 16385"),
    ("frames", "wire-format.md", "| 68 | `02 12 00 00`", "| 68 | `02 13 00 00`"),
    ("frames", "wire-format.md", "| 14 | `13 × 00`", "| 14 | `12 × 00`"),
    ("frames", "wire-format.md", "0040  20 20 00 10", "0040  20 20 00 11"),
    ("frames", "wire-format.md", "OX_ID: 0x0001", "OX_ID: 0x0002"),
)  # fmt: skip


class Mistakes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def copies(self, name, right, wrong):
        """The documents, one of them with a mistake, elsewhere; links still lead to the true ones."""
        found = documents.documents()
        for document in found:
            if document.path.name == name:
                text = document.path.read_text()
                self.assertIn(right, text, f"{name} has it")
                (self.folder / name).write_text(text.replace(right, wrong, 1))
            else:
                (self.folder / document.path.name).symlink_to(document.path)
        for other in documents.FOLDER.iterdir():
            if other.suffix != ".md":
                (self.folder / other.name).symlink_to(other)
        return [documents.Document(path) for path in sorted(self.folder.glob("*.md"))]

    def test_each_mistake_is_found(self):
        for check, name, right, wrong in MISTAKES:
            with self.subTest(f"{name}: {wrong}"):
                for left_over in self.folder.iterdir():
                    left_over.unlink()
                copies = self.copies(name, right, wrong)
                with self.assertRaises(documents.Wrong):
                    getattr(CHECK, check)(copies)

    def test_nothing_to_check_is_not_a_success(self):
        path = self.folder / "empty.md"
        path.write_text("# Nothing\n")
        for check in ("names", "programs", "frames"):
            self.assertEqual(getattr(CHECK, check)([documents.Document(path)]), 0)
        with self.assertRaises(documents.Wrong):
            CHECK.records([documents.Document(path)])

    def test_a_block_without_end_and_an_unknown_comment_are_refused(self):
        path = self.folder / "broken.md"
        for text in ("```console\na# true\n", "<!-- varys: x -->\n", "```\nwhat?\n```\n"):
            path.write_text(text)
            with self.assertRaises(documents.Wrong):
                documents.Document(path)


if __name__ == "__main__":
    unittest.main()
