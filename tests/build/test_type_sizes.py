"""The instance sizes of the sibling types, as the running types report them."""

import ast

from build_tree import TreeTest, run

SIZES = {
    "vu_thread.Thread": 20,
    "vu_thread.VuThreadMaster": 80,
    "vu_global.VuGlobal": 24,
    "vu_mom_common.PubSubMsg": 20,
    "vu_mom_common.HashResult": 20,
    "vu_mom_common.SetResult": 20,
    "vu_mom_common.ListResult": 20,
    "vu_mom_common.SortedsetResult": 20,
    "vu_mom_common.GetResult": 16,
    "vu_mom_common.IncrResult": 16,
    "vu_mom_common.SetnxResult": 16,
    "vu_mom_common.SmembersResult": 20,
    "vu_mom_common.LlenResult": 16,
    "vu_mom_common.LrangeResult": 20,
    "vu_mom_common.LinsertResult": 16,
    "vu_mom_common.LminsertResult": 16,
    "vu_mom_common.LmremResult": 16,
    "vu_mom_common.LsetResult": 16,
    "vu_mom_common.SaveResult": 16,
    "vu_mom_common.ZcardResult": 16,
    "vu_mom_common.ZrankResult": 16,
    "vu_mom_common.ZscoreResult": 16,
    "vu_mom_common.ZcountResult": 16,
    "vu_mom_common.ZrangeResult": 20,
    "vu_mom_common.ZrangebyscoreResult": 20,
    "vu_mom_common.ScardResult": 16,
    "vu_mom_common.SismemberResult": 16,
}

REPORT = """
import importlib, sys
sys.path.insert(0, sys.argv[1])
sizes = {}
for name in sys.argv[2:]:
    module, _, cls = name.partition(".")
    sizes[name] = getattr(importlib.import_module(module), cls).__basicsize__
print((sys.maxsize, sizes))
"""


class TypeSizes(TreeTest):
    def test_sizes_on_the_target(self):
        if not self.tree.is_armhf:
            self.skipTest("this tree is not for the 32-bit target")
        output = run(self.tree.python, "-c", REPORT, self.tree.file("python"), *sorted(SIZES))
        maxsize, sizes = ast.literal_eval(output.splitlines()[-1])
        self.assertEqual(maxsize, 2**31 - 1)
        for size in sorted(set(SIZES.values())):
            names = [name for name in SIZES if sizes[name] == size]
            print("\n* %d bytes on 32-bit ARM: %s" % (size, ", ".join(names)))
        self.assertEqual(sizes, SIZES)
