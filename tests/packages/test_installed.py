"""What a user does with an installed vu_mom: `VU_PREFIX=/usr test_installed.py [CLASS...]`.

Needs nothing of the repository but this directory and examples/hello, and no build. Runs where
`cmake --install` has put things (tests/build), and where packages were installed
(`./dev test packages`).
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
HELLO = HERE.parents[1] / "examples" / "hello"
PREFIX = pathlib.Path(os.environ["VU_PREFIX"])
PYTHON_DIR = PREFIX / "lib" / "python3" / "dist-packages"
SYSTEM = PREFIX == pathlib.Path("/usr")
MODULES = [
    "vu_aio", "vu_enum", "vu_global", "vu_message", "vu_metrics", "vu_mom", "vu_mom_common",
    "vu_thread",
]


def environment():
    """As a user has it; where the prefix is not the system's, with what they have to set."""
    known = {"PATH": "%s:/usr/bin:/bin" % (PREFIX / "bin"), "HOME": "/nonexistent"}
    known.update(LC_ALL="C.UTF-8", PYTHONDONTWRITEBYTECODE="1")
    if not SYSTEM:
        found = list(PREFIX.glob("lib/**/pkgconfig"))
        known.update(PYTHONPATH=str(PYTHON_DIR), PKG_CONFIG_PATH=":".join(map(str, found)))
    return known


class Installed(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="vu-installed-"))
        self.addCleanup(shutil.rmtree, self.place)
        for name in ("hello.proto", "hello.py"):
            shutil.copy(str(HELLO / name), str(self.place))
        for path in (HERE / "consumer").iterdir():
            shutil.copy(str(path), str(self.place))

    def run_there(self, *command, stdin=""):
        """What the command prints; it must succeed."""
        ran = subprocess.run(
            list(map(str, command)), cwd=self.place, env=environment(), input=stdin,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True, timeout=300,
        )
        self.assertEqual(ran.returncode, 0, "%s:\n%s" % (command, ran.stdout))
        return ran.stdout

    def generate(self, proto):
        """As a user does; a prefix of one's own has to be told to protoc."""
        includes = [] if SYSTEM else ["-I.", "-I%s" % (PREFIX / "include")]
        self.run_there("protoc", *includes, "--vu_out=.", proto)


class Runtime(Installed):
    def test_every_module_is_imported_from_there(self):
        program = "import sys\nfor name in sys.argv[1:]: print(__import__(name).__file__)"
        files = self.run_there("/usr/bin/python3", "-c", program, *MODULES).split()
        self.assertEqual([str(PYTHON_DIR)] * len(MODULES), [
            str(pathlib.Path(file).parent).replace("/vu_aio", "") for file in files])

    def test_the_application_of_the_readme(self):
        self.generate("hello.proto")
        said = self.run_there("/usr/bin/python3", "hello.py")
        self.assertEqual(said, "changed: world\nHello, world\n")

    def test_the_tool_sets_and_gets(self):
        said = self.run_there(
            "vu-mom", "--store", "embedded:", "--proto", "hello.proto", "shell",
            stdin="set Greeting name=world text=Hello\nget Greeting name=world\n")
        self.assertEqual(said, "name  world\ntext  Hello\n")

    def test_the_tool_gives_help(self):
        self.assertIn("usage: vu-mom", self.run_there("vu-mom", "--help"))

    def test_completion_in_bash(self):
        script = PREFIX / "share" / "bash-completion" / "completions" / "vu-mom"
        program = (
            "complete() { :; }; . %s; unset -f complete; COMP_LINE='vu-mom wat' COMP_POINT=10;"
            " _vu_mom vu-mom; echo \"${COMPREPLY[@]}\"" % script)
        self.assertEqual(self.run_there("bash", "-c", program).strip(), "watch")

    def test_libraries_are_found_without_a_path_of_the_machine_that_built(self):
        for module in PYTHON_DIR.glob("vu_*.so"):
            data = module.read_bytes()
            self.assertEqual(b"$ORIGIN" in data, not SYSTEM, module)
            if SYSTEM:  # without debugging information
                self.assertNotIn(b"/build/", data, module)


class Development(Installed):
    def test_what_the_readme_names_is_there_to_read(self):
        place = PREFIX / "share" / "doc" / "vu-mom-dev"
        text = (place / "README.md").read_text(encoding="utf-8")
        named = re.findall(r"\]\((docs/[\w.-]+)\)", text)
        self.assertIn("docs/tutorial.md", named)
        for name in named + ["examples/netmon/netmon.py", "examples/chat/chat.proto"]:
            self.assertTrue((place / name).is_file(), name)
        self.assertFalse(list(place.glob("**/__pycache__")) + list(place.glob("**/CMakeLists.txt")))

    def build(self):
        where = [] if SYSTEM else ["-DCMAKE_PREFIX_PATH=%s" % PREFIX]
        self.run_there("cmake", "-S", ".", "-B", "build", "-DCMAKE_BUILD_TYPE=Debug", *where)
        self.run_there("cmake", "--build", "build")

    def test_a_project_that_finds_the_package(self):
        self.build()
        self.assertEqual(self.run_there("build/in_c"), "0 members came\n")
        self.assertEqual(self.run_there("build/in_cxx"), "stored by C++\n")
        program = "import sys; sys.path.insert(0, 'build'); import note_vu"
        program += "; print(note_vu.Note(title='a'))"
        said = self.run_there("/usr/bin/python3", "-c", program)
        self.assertEqual(said, "consumer.Note(title='a')\n")

    def test_a_version_that_is_not_there_is_refused(self):
        text = (self.place / "CMakeLists.txt").read_text()
        text = text.replace("LANGUAGES C CXX", "LANGUAGES C").replace("vu_mom 0.1", "vu_mom 7.0")
        (self.place / "CMakeLists.txt").write_text(text)
        with self.assertRaisesRegex(AssertionError, 'requested version "7.0"'):
            self.build()

    def test_pkg_config(self):
        flags = self.run_there("pkg-config", "--cflags", "--libs", "vu_mom_store").split()
        self.assertIn("-lvu_mom_impl", flags)
        command = ["cc", "-Wall", "-Werror", "in_c.c", "-o", "in_c", *flags]
        if not SYSTEM:
            libraries = [flag[2:] for flag in flags if flag.startswith("-L")]
            command += ["-Wl,-rpath," + ":".join(libraries)]
        self.run_there(*command)
        self.assertEqual(self.run_there("./in_c"), "0 members came\n")
        alone = self.run_there("pkg-config", "--cflags", "--libs", "vu_mom")
        self.assertNotIn("vu_mom_impl", alone)
        self.run_there("cc", "-Wall", "-Werror", "-c", "a_store.c", *alone.split())


class Types(Installed):
    """Type checkers find the stubs where they are installed. Needs mypy."""

    PROGRAM = """
from hello_vu import Greeting
from vu_global import VuGlobal
from vu_mom import VuMom
import vu_aio, vu_enum, vu_message, vu_metrics, vu_mom_common, vu_thread

async def text(client: vu_aio.Client) -> str:
    found = await client.get(0, Greeting(name="world"))
    return found.text if found is not None else ""

with VuGlobal() as glb:
    VuMom(glb).get("0", Greeting(name="world"), None)  # wrong
"""

    def test_a_program_of_a_user(self):
        self.generate("hello.proto")
        (self.place / "program.py").write_text(self.PROGRAM)
        wrong = [i for i, line in enumerate(self.PROGRAM.splitlines(), 1) if "# wrong" in line]
        with self.assertRaises(AssertionError) as said:
            self.run_there("/usr/bin/mypy", "--strict", "--no-error-summary", "program.py")
        found = [line for line in str(said.exception).splitlines() if " error: " in line]
        self.assertEqual([int(line.split(":")[1]) for line in found], wrong, found)


if __name__ == "__main__":
    unittest.main(testRunner=unittest.TextTestRunner(sys.stdout, verbosity=2))
