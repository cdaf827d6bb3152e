"""What a configured build directory says about itself, and running tools on it."""

import os
import re
import subprocess
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def run(*command):
    """The output of a command; an error that shows it where the command fails."""
    result = subprocess.run(
        command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        universal_newlines=True,
    )
    if result.returncode != 0:
        raise AssertionError(
            "%s: exit status %d\n%s" % (" ".join(command), result.returncode, result.stdout)
        )
    return result.stdout


class BuildTree:
    """A build directory, read through its CMakeCache.txt."""

    def __init__(self, path):
        self.path = os.path.abspath(path)
        self.cache = {}
        with open(os.path.join(self.path, "CMakeCache.txt")) as file:
            for line in file:
                match = re.match(r"([^#/][^:=]*):\w+=(.*)$", line)
                if match:
                    self.cache[match.group(1)] = match.group(2)

    def file(self, *parts):
        return os.path.join(self.path, *parts)

    @property
    def toolchain(self):
        return self.cache.get("CMAKE_TOOLCHAIN_FILE", "")

    @property
    def is_armhf(self):
        return os.path.basename(self.toolchain) == "armhf.cmake"

    @property
    def sysroot(self):
        return os.path.abspath(self.cache["VU_ARMHF_SYSROOT"]) if self.is_armhf else "/"

    @property
    def python(self):
        """The interpreter that imports what lies in this tree."""
        if self.is_armhf:
            return os.path.join(self.sysroot, "usr/bin/python3-armhf")
        return self.cache.get("Python3_EXECUTABLE", "/usr/bin/python3")

    def tool(self, name):
        """A tool of the compiler's family: "gcc", "g++", "nm", "readelf"."""
        return "arm-linux-gnueabihf-" + name if self.is_armhf else name

    def compiler(self, name):
        """The start of a compiler's command line, for "gcc" or "g++"."""
        target = ["--sysroot=" + self.sysroot] if self.is_armhf else []
        return [self.tool(name)] + target

    @property
    def python_include(self):
        for directory in (
            self.cache.get("Python3_INCLUDE_DIR"),
            os.path.join(self.sysroot, "usr/include/python3.11"),
        ):
            if directory and os.path.isdir(directory):
                return directory
        raise AssertionError("no Python headers are known in " + self.path)

    def dynamic_symbols(self, library, kind):
        """Names in the dynamic table, version and all; kind "defined" or "undefined"."""
        output = run(self.tool("nm"), "-D", "-P", "--%s-only" % kind, library)
        return [line.split()[0] for line in output.splitlines() if line]

    def needed_libraries(self, library):
        output = run(self.tool("readelf"), "-d", "--wide", library)
        return re.findall(r"\(NEEDED\).*\[(.*)\]", output)


class TreeTest(unittest.TestCase):
    """Looks at the build directory `tree`."""

    tree: BuildTree
