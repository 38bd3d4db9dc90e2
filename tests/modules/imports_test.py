#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""docs/porting.md lists what the build lets ipfc.ko import, and each name once."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def groups(text):
    """Purpose and names of each group, in order."""
    found = []
    for line in text.splitlines():
        if line.startswith("["):
            found.append((line, []))
        elif line and not line.startswith("#"):
            found[-1][1].extend(line.split())
    return found


class Imports(unittest.TestCase):
    def setUp(self):
        self.built = groups((ROOT / "infra/kspace/kapi/linux/imports").read_text())
        document = (ROOT / "docs/porting.md").read_text()
        self.told = groups(re.search(r"(?ms)^```imports\n(.*?)^```$", document)[1])

    def test_the_document_has_the_list_of_the_build(self):
        self.assertEqual(self.told, self.built)

    def test_each_name_is_there_once(self):
        names = [name for _, group in self.built for name in group]
        self.assertEqual(sorted(names), sorted(set(names)))
        self.assertGreater(len(names), 100)

    def test_the_platform_gives_what_the_headers_declare(self):
        declared = set()
        for header in ("fc2_intf", "dbgtap_intf", "mip_intf", "ifindex"):
            text = (ROOT / f"include/brim/{header}.h").read_text()
            call = r"(?m)^(?!.*\binline\b).*\b((?:k?fc2|dbgtap|mip|if_index)_\w+)\("
            declared |= set(re.findall(call, text))
        platform = set(self.built[0][1])
        self.assertEqual(self.built[0][0], "[The platform]")
        self.assertEqual(platform - {"proc_brim_sw"}, declared)


if __name__ == "__main__":
    unittest.main()
