"""docs/porting.md does what it says: the cross build where the tree is for the 32-bit target, the
smallest platform where it is for this machine."""

import os
import re
import shutil
import sys
import tempfile

from build_tree import SOURCE, TreeTest

sys.path.insert(1, os.path.join(SOURCE, "tests", "docs"))
import page  # noqa: E402
from test_type_sizes import SIZES  # noqa: E402

page.SECONDS = 400  # a build prints nothing
PAGE = "porting.md"
with open(os.path.join(SOURCE, "docs", PAGE)) as file:
    TEXT = file.read()


def source(*path):
    with open(os.path.join(SOURCE, *path)) as file:
        return file.read()


class PortingPage(TreeTest):
    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="vu-porting-")
        self.addCleanup(shutil.rmtree, self.place)

    def session(self, **words):
        words = {word.replace("_", "/"): meant for word, meant in words.items()}
        return page.Session(SOURCE, dict(words, **{"/tmp": self.place}))

    def run_blocks(self, session, name):
        """Types the blocks of that name; saves the files before, those of other directories not."""
        for block in page.blocks(PAGE):
            if block.language == "console":
                if block.name == name:
                    session.run(page.Block("console", "", block.text, block.line))
            elif os.path.isdir(os.path.dirname(session.here(block.name))):
                session.save(block, block.name)
        return session.commands

    def test_cross_build(self):
        if not self.tree.is_armhf:
            self.skipTest("this tree is not for the 32-bit target")
        with self.session(
            build_device=os.path.join(self.place, "device"), _opt_device_sysroot=self.tree.sysroot
        ) as session:
            self.assertEqual(self.run_blocks(session, "cross"), 9)
        size = os.path.getsize(os.path.join(self.place, "device", "python", "vu_mom.so"))
        self.assertIn("It has about 80 kB.", TEXT)
        self.assertAlmostEqual(size / 1000, 80, delta=15)

    def test_smallest_platform(self):
        if self.tree.is_armhf:
            self.skipTest("this tree is not for this machine")
        with self.session(build_host=self.tree.path) as session:
            self.assertEqual(self.run_blocks(session, "native"), 5)

    def test_sizes(self):
        rows = re.findall(r"^\| (.*?) \| (\d+) \| (\d+) \|$", TEXT, re.M)
        self.assertEqual(len(rows), 5)
        for types, size, wide in rows:
            self.assertEqual(int(wide), 2 * int(size))
            for name in re.findall(r"`(\w+\.\w+)`", types):
                self.assertEqual(SIZES[name], int(size), name)
        numbers = {rows[-1][1], rows[-2][1]}
        others = [str(size) for name, size in SIZES.items() if name.endswith("Result")]
        self.assertEqual(set(others), numbers)

    def test_texts(self):
        """What is quoted of warnings and errors is what the module says."""
        warning = "compiletime version %s of module '%.100s' does not match runtime version %s"
        self.assertIn(warning, source("src", "module", "vu_mom.cpp"))
        self.assertIn(warning % ("3.4", "vu_mom", "2.7"), TEXT)
        wrong = "has the wrong size, try recompiling. Expected %zd, got %zd"
        self.assertIn(wrong, source("src", "module", "imported_types.cpp"))
        self.assertIn(wrong.replace("%zd", "%d") % (40, 32), TEXT)
