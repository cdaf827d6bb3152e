"""The binding builds alone, and asks for nothing but what a device has.

The build runs with every package of the platform hidden from CMake, and its compiled files
are looked at for headers that are not the binding's.
"""

import glob
import os
import re

from build_tree import SOURCE, BuildTree, TreeTest, run

HIDDEN = ("Protobuf", "protobuf", "absl", "PkgConfig", "GTest", "benchmark")
RUNTIME_LIBRARIES = r"lib(c|m|gcc_s|stdc\+\+)\.so\.\d+|ld-linux[\w.-]*\.so\.\d+"
RUNTIME_VERSIONS = r"@@?(GLIBC|GLIBCXX|CXXABI|GCC)_[\w.]+$"
# Weak, without a version, resolved by the C runtime's start-up files where they are.
RUNTIME_MARKS = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}


class BindingOnly(TreeTest):
    alone: BuildTree
    module: str

    @classmethod
    def setUpClass(cls):
        path = cls.tree.file("binding-only")
        command = ["cmake", "-S", SOURCE, "-B", path, "-G", "Ninja", "-DVU_MOM_BINDING_ONLY=ON"]
        command += ["-DCMAKE_DISABLE_FIND_PACKAGE_%s=ON" % name for name in HIDDEN]
        if cls.tree.toolchain:
            command += ["-DCMAKE_TOOLCHAIN_FILE=" + cls.tree.toolchain]
        else:
            command += ["-DPython3_EXECUTABLE=" + cls.tree.python]
        run(*command)
        run("cmake", "--build", path)
        cls.alone = BuildTree(path)
        cls.module = cls.alone.file("python", "vu_mom.so")

    def test_undefined_symbols(self):
        symbols = self.alone.dynamic_symbols(self.module, "undefined")
        kinds = {"interpreter": [], "runtime": [], "store": [], "other": []}
        for symbol in symbols:
            if re.match(r"_?Py[A-Z_]\w*$", symbol):
                kinds["interpreter"].append(symbol)
            elif re.search(RUNTIME_VERSIONS, symbol) or symbol in RUNTIME_MARKS:
                kinds["runtime"].append(symbol)
            elif symbol.startswith("vu_mom_"):
                kinds["store"].append(symbol)
            else:
                kinds["other"].append(symbol)
        self.assertEqual(kinds["other"], [])
        self.assertTrue(kinds["interpreter"])
        self.assertTrue(kinds["runtime"])
        self.assertTrue(kinds["store"])
        print("\n* vu_mom.so alone: undefined symbols: "
              + ", ".join("%s %d" % (kind, len(names)) for kind, names in kinds.items()))

    def test_store_functions_are_declared(self):
        from test_store_exports import declared

        used = {s for s in self.alone.dynamic_symbols(self.module, "undefined")
                if s.startswith("vu_mom_")}
        self.assertLessEqual(used, declared("include", "vu_mom_impl.h"))

    def test_needed_libraries(self):
        for library in self.alone.needed_libraries(self.module):
            self.assertRegex(library, "^(%s|libvu_mom_impl\\.so)$" % RUNTIME_LIBRARIES)

    def test_exports(self):
        """The init function, and the mark that an embedding program sets; nothing else."""
        exported = sorted(self.alone.dynamic_symbols(self.module, "defined"))
        self.assertEqual(exported, ["PyInit_vu_mom", "vu_mom_is_main"])

    def test_nothing_of_the_platform_was_compiled_or_included(self):
        compiled = run("ninja", "-C", self.alone.path, "-t", "deps")
        self.assertIn(os.path.join("include", "vu_mom_impl.h"), compiled)
        foreign = [line.strip() for line in compiled.splitlines()
                   if re.search(r"/platform/|google/protobuf|/absl/|/uv\.h|hiredis", line)]
        self.assertEqual(foreign, [])
        self.assertEqual(glob.glob(self.alone.file("python", "vu_message*")), [])
