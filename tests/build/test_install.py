"""What `cmake --install` installs, and that it can be used from where it is.

tests/packages looks at the same in packages.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from build_tree import SOURCE, TreeTest, run

INSTALLED = os.path.join(SOURCE, "tests", "packages", "test_installed.py")
HEADERS = {"vu_mom_impl.h", "vu_mom_types.h", "vu_options.h", "vu_platform.h", "vu_store.h"}
COMPONENTS = ("binding", "platform", "tools", "development")


class Install(TreeTest):
    prefix: pathlib.Path
    files: dict[str, set[str]]  # of each component, relative to the prefix

    @classmethod
    def setUpClass(cls):
        cls.prefix = pathlib.Path(tempfile.mkdtemp(prefix="vu-install-"))
        cls.addClassCleanup(shutil.rmtree, str(cls.prefix))
        cls.files = {}
        before = set()
        for component in COMPONENTS:
            run("cmake", "--install", cls.tree.path, "--prefix", str(cls.prefix),
                "--component", component)
            now = {str(path.relative_to(cls.prefix)) for path in cls.prefix.glob("**/*")
                   if not path.is_dir()}
            cls.files[component] = now - before
            before = now

    def names(self, component, directory):
        """Of what a component has below a directory, the first parts."""
        found = {file[len(directory) + 1:].split("/")[0] for file in self.files[component]
                 if file.startswith(directory + "/")}
        return {name for name in found if not name.endswith("-stubs")}

    def test_the_binding_is_alone(self):
        modules = "lib/python3/dist-packages/"
        self.assertEqual(
            {file for file in self.files["binding"] if not file.startswith("share/doc/")},
            {modules + "vu_mom.so", modules + "vu_mom-stubs/__init__.pyi",
             modules + "vu_mom-stubs/py.typed"})

    def test_every_module_of_the_platform_and_its_stubs(self):
        """Found in the sources, so that a module that is new is not forgotten."""
        made = set()
        for source in pathlib.Path(SOURCE, "platform").glob("**/*.pyi"):
            made.add(source.stem)
        for source in pathlib.Path(SOURCE, "platform").glob("*/vu_*.py"):
            made.add(source.stem)
        self.assertLess({"vu_message", "vu_metrics"}, made)
        for module in made:
            stubs = "lib/python3/dist-packages/%s-stubs/" % module
            self.assertIn(stubs + "__init__.pyi", self.files["platform"])
            self.assertIn(stubs + "py.typed", self.files["platform"])
        installed = self.names("platform", "lib/python3/dist-packages")
        self.assertEqual({name.split(".")[0] for name in installed}, made | {"vu_aio"})
        self.assertIn("lib/python3/dist-packages/vu_aio/py.typed", self.files["platform"])

    def test_headers(self):
        self.assertEqual(self.names("development", "include/vu_mom"), HEADERS)
        self.assertEqual(self.names("tools", "include/vu"), {"options.proto"})

    def test_programs(self):
        self.assertEqual(self.names("tools", "bin"), {"vu-mom", "protoc-gen-vu"})

    def test_nothing_names_the_machine_that_built(self):
        for path in self.prefix.glob("**/*"):
            if path.is_file() and path.suffix not in (".so", ""):
                text = path.read_text(encoding="utf-8")
                self.assertNotIn(self.tree.path, text, str(path))
                self.assertNotIn(SOURCE, text, str(path))

    def test_run_paths(self):
        [library] = self.prefix.glob("lib/**/libvu_mom_impl.so")
        modules = list(self.prefix.glob("lib/python3/dist-packages/*.so"))
        self.assertEqual(len(modules), 5)
        for path in [library, self.prefix / "bin" / "protoc-gen-vu"] + modules:
            said = run(self.tree.tool("readelf"), "-d", "--wide", str(path))
            paths = re.findall(r"\((?:RUN|R)PATH\).*\[(.*)\]", said)
            if path in modules:
                [one] = paths
                found = one.replace("$ORIGIN", str(path.parent))
                self.assertTrue(one.startswith("$ORIGIN/"), one)
                self.assertEqual(os.path.realpath(found), str(library.parent.resolve()))
            else:
                self.assertEqual(paths, [], str(path))

    def test_it_can_be_used(self):
        if self.tree.is_armhf:
            self.skipTest("this tree is not for this machine")
        ran = subprocess.run(
            ["/usr/bin/python3", INSTALLED, "Runtime", "Development"],
            env=dict(os.environ, VU_PREFIX=str(self.prefix)), stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
        self.assertEqual(ran.returncode, 0, ran.stdout)
        self.assertRegex(ran.stdout, r"Ran 10 tests")
