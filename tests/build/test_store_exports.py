"""The store library offers its interface and nothing else."""

import os
import re
import unittest

from build_tree import SOURCE


def declared(*header):
    """The functions that a header declares."""
    with open(os.path.join(SOURCE, *header)) as file:
        text = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.DOTALL)
    return set(re.findall(r"^[a-z][\w ]*[ *](vu_(?:mom|platform)_\w+)\(", text, re.MULTILINE)) - set(
        re.findall(r"static inline [^;{]*?(vu_\w+)\(", text)
    )


class StoreExports(unittest.TestCase):
    def test_every_declared_function_and_no_other_symbol(self):
        commands = declared("include", "vu_mom_impl.h")
        platform = declared("platform", "include", "vu_platform.h")
        self.assertEqual(len(commands), 50)
        self.assertIn("vu_platform_open", platform)
        library = self.tree.file("lib", "libvu_mom_impl.so")
        exported = self.tree.dynamic_symbols(library, "defined")
        self.assertEqual(sorted(exported), sorted(commands | platform))

    def test_soname(self):
        """A preloaded library of the same name takes this one's place."""
        from build_tree import run

        library = self.tree.file("lib", "libvu_mom_impl.so")
        output = run(self.tree.tool("readelf"), "-d", "--wide", library)
        self.assertEqual(re.findall(r"\(SONAME\).*\[(.*)\]", output), ["libvu_mom_impl.so"])
