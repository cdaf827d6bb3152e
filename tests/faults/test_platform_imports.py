"""The platform's modules and a generated one, imported without memory: each allocation of an import
fails once, and all from the n-th on; MemoryError or ImportError is raised, and the next import
works. platform_imports.py does the imports."""
import os
import subprocess
import sys
import unittest

import inject
import platform_imports

# In the reduced form, so many allocations lie between two that fail.
STEP = 1 if inject.WHOLE else 9


class PythonOnce(unittest.TestCase):
    kind, every = "python", "once"
    generated = "contract_vu"

    def check(self, name):
        program = os.path.abspath(platform_imports.__file__)
        answer = subprocess.check_output(
            [sys.executable, program, self.kind, self.every, str(STEP), name])
        lines = answer.decode().splitlines()
        self.assertRegex(lines[-1], r"^\d+ failures$")
        self.assertEqual(lines[:-1], [])
        self.assertGreater(int(lines[-1].split()[0]), 0)
        print("* %s: %s" % (self.id(), lines[-1]))

    def test_vu_message(self):
        self.check("vu_message")

    def test_vu_thread(self):
        self.check("vu_thread")

    def test_vu_global(self):
        self.check("vu_global")

    def test_vu_mom_common(self):
        self.check("vu_mom_common")

    def test_generated_module(self):
        self.check(self.generated)


class PythonOn(PythonOnce):
    every = "on"
    generated = "store_page_vu"  # making an enum, the interpreter runs for ever without memory


class MallocOnce(PythonOnce):
    kind = "malloc"
    # libprotobuf ends the process itself where malloc fails while it takes a file.
    test_generated_module = None


class MallocOn(MallocOnce):
    every = "on"


if __name__ == "__main__":
    unittest.main()
