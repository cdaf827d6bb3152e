"""Checks of what a build directory holds: `run.py BUILD`.

Runs on this machine's Python for every target, and looks at the files with the tools of
the target.
"""

import os
import sys
import unittest

import build_tree

TESTS = os.path.dirname(os.path.abspath(__file__))


class WithBuildTree(unittest.TestLoader):
    """Gives every test case class that wants it the build directory as its attribute `tree`."""

    def __init__(self, tree):
        super().__init__()
        self.tree = tree

    def loadTestsFromTestCase(self, case):
        if issubclass(case, build_tree.TreeTest):
            case.tree = self.tree
        return super().loadTestsFromTestCase(case)


def main(path):
    suite = WithBuildTree(build_tree.BuildTree(path)).discover(TESTS)
    sys.stderr = sys.stdout
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: run.py BUILD")
    sys.exit(main(sys.argv[1]))
