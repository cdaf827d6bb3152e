"""Which machine the numbers come from."""

import os
import pathlib
import platform
import re
import subprocess
import time


def first_line(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True)
    return done.stdout.splitlines()[0]


def cpu_model():
    text = pathlib.Path("/proc/cpuinfo").read_text()
    found = re.search(r"^model name\s*: (.*)$", text, re.MULTILINE)
    return found.group(1) if found else platform.machine()


def cached(build, name):
    """A variable of the build's CMake cache."""
    cache = (build / "CMakeCache.txt").read_text()
    found = re.search(r"^%s:\w+=(.*)$" % name, cache, re.MULTILINE)
    return found.group(1) if found else ""


def describe(build):
    build_type = cached(build, "CMAKE_BUILD_TYPE") or "RelWithDebInfo"
    flags = cached(build, "CMAKE_CXX_FLAGS_" + build_type.upper())
    return {
        "cpu": "%s, %d processors" % (cpu_model(), os.cpu_count()),
        "kernel": "%s %s %s" % (platform.system(), platform.release(), platform.machine()),
        "compiler": "%s, %s (%s)"
        % (first_line(cached(build, "CMAKE_CXX_COMPILER"), "--version"), build_type, flags),
        "interpreter": "%s %s" % (platform.python_implementation(), platform.python_version()),
        "date": time.strftime("%Y-%m-%d"),
        "load": "%.1f" % os.getloadavg()[0],
    }
