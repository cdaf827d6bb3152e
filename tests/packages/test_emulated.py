"""The packages for 32-bit ARM, unpacked with what they depend on into the tree VU_TREE, whose
programs run with qemu-arm."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

HELLO = pathlib.Path(__file__).resolve().parents[2] / "examples" / "hello"
TREE = pathlib.Path(os.environ["VU_TREE"])
MODULES = TREE / "usr" / "lib" / "python3" / "dist-packages"


class Emulated(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="vu-emulated-"))
        self.addCleanup(shutil.rmtree, self.place)

    def run_there(self, *command):
        ran = subprocess.run(
            list(map(str, command)), cwd=self.place, stdin=subprocess.DEVNULL, timeout=300,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True,
        )
        self.assertEqual(ran.returncode, 0, "%s:\n%s" % (command, ran.stdout))
        return ran.stdout

    def python(self, *arguments):
        return self.run_there(TREE / "usr" / "bin" / "python3-armhf", *arguments)

    def test_files_are_for_the_machine(self):
        files = list(MODULES.glob("vu_*.so")) + [TREE / "usr" / "bin" / "protoc-gen-vu"]
        files += TREE.glob("usr/lib/arm-linux-gnueabihf/libvu_mom_impl.so")
        self.assertEqual(len(files), 7)
        for file in files:
            said = self.run_there("readelf", "--file-header", "--arch-specific", "--dynamic", file)
            self.assertRegex(said, r"Machine: +ARM\n", file)
            self.assertIn("Tag_ABI_VFP_args: VFP registers", said, file)
            self.assertNotIn("PATH)", said, file)

    def test_every_module_is_imported(self):
        program = "import sys\nfor name in sys.argv[1:]: print(__import__(name).__file__)"
        names = sorted({path.name.split(".")[0] for path in MODULES.glob("vu_*")
                        if not path.name.endswith("-stubs")})
        self.assertIn("vu_mom", names)
        files = self.python("-c", program, *names).split()
        self.assertEqual(len(files), len(names))
        for file in files:
            self.assertTrue(file.startswith(str(MODULES)), file)

    def test_the_application_of_the_readme(self):
        plugin = self.place / "plugin"
        plugin.write_text('#!/bin/sh\nexec qemu-arm -L "%s" "%s/usr/bin/protoc-gen-vu"\n' % (TREE, TREE))
        plugin.chmod(0o755)
        self.run_there(
            "protoc", "--plugin=protoc-gen-vu=%s" % plugin, "--vu_out=.", "-I", HELLO,
            "-I", TREE / "usr" / "include", "hello.proto")
        shutil.copy(str(HELLO / "hello.py"), str(self.place))
        self.assertEqual(self.python("hello.py"), "changed: world\nHello, world\n")

    def test_the_tool_gives_help(self):
        self.assertIn("usage: vu-mom", self.python(TREE / "usr" / "bin" / "vu-mom", "--help"))


if __name__ == "__main__":
    unittest.main(testRunner=unittest.TextTestRunner(sys.stdout, verbosity=2))
