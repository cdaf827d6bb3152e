"""The store library offers its interface and nothing else."""

import os
import re

from build_tree import SOURCE, TreeTest


def declared(*header):
    """The functions that a header declares."""
    with open(os.path.join(SOURCE, *header)) as file:
        text = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.DOTALL)
    return set(re.findall(r"^[a-z][\w ]*[ *](vu_(?:mom|platform)_\w+)\(", text, re.MULTILINE)) - set(
        re.findall(r"static inline [^;{]*?(vu_\w+)\(", text)
    )


class StoreExports(TreeTest):
    def test_every_declared_function_and_no_other_symbol(self):
        commands = declared("include", "vu_mom_impl.h")
        platform = declared("platform", "include", "vu_platform.h")
        self.assertEqual(len(commands), 50)
        self.assertIn("vu_platform_open", platform)
        library = self.tree.file("lib", "libvu_mom_impl.so")
        exported = self.tree.dynamic_symbols(library, "defined")
        self.assertEqual(sorted(exported), sorted(commands | platform))

    def test_every_exported_function_checks_its_thread(self):
        """In builds with assertions, before it does anything else."""
        checked = set()
        store = os.path.join(SOURCE, "platform", "store")
        for name in sorted(os.listdir(store)):
            if not name.endswith(".cpp"):
                continue
            with open(os.path.join(store, name)) as file:
                text = file.read()
            functions = re.findall(
                r"^VU_STORE_EXPORT [^{;]*?\b(vu_\w+)\([^{;]*\) \{\n  VU_STORE_ENTRY\(\);$",
                text, re.MULTILINE)
            self.assertEqual(len(functions), text.count("VU_STORE_EXPORT "), name)
            checked.update(functions)
        commands = declared("include", "vu_mom_impl.h")
        self.assertEqual(checked, commands | declared("platform", "include", "vu_platform.h"))

    def test_benchmarks_found_no_such_function(self):
        """Their stand-in for the library has each that the modules may ask for."""
        with open(os.path.join(SOURCE, "bench", "binding", "trivial_store.c")) as file:
            defined = re.findall(r"^EXPORT [^{;]*?\b(vu_platform_\w+)\(", file.read(), re.MULTILINE)
        declared_there = declared("platform", "include", "vu_platform.h")
        self.assertEqual(sorted(defined), sorted(declared_there))

    def test_soname(self):
        """A preloaded library of the same name takes this one's place."""
        from build_tree import run

        library = self.tree.file("lib", "libvu_mom_impl.so")
        output = run(self.tree.tool("readelf"), "-d", "--wide", library)
        self.assertEqual(re.findall(r"\(SONAME\).*\[(.*)\]", output), ["libvu_mom_impl.so"])
