"""What it takes to start: small devices start often."""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

import harness
from harness import Row

TITLE = "Startup"

ABOUT = """
From the beginning of the process to its end: the interpreter alone (`python3 -S -E -c pass`, with
the same options everywhere), `import vu_mom` (which imports the platform's modules), and a whole
program ([first_reply.py](../bench/startup/first_reply.py)) that imports a message class, opens an
embedded store, stores a message and has it back. Instructions of this machine are counted by
callgrind; those of 32-bit ARM by a plugin of qemu-arm ([count_qemu.c](../bench/startup/count_qemu.c)),
with the same CPython 3.11 of Debian armhf. What `dlopen` and the system's loader do is in it.
"""

PROGRAM, IMPORT, ALONE = "first reply", "import vu_mom", "interpreter alone"
PEERS = {}
GOALS = []

NATIVE, ARM = "x86-64", "32-bit ARM, qemu"
TURNS = 25

ROOT = pathlib.Path(__file__).resolve().parents[2]
OPTIONS = ["-S", "-E", "-c"]  # no site, no environment: the same everywhere
WITH_PATH = "import sys; sys.path[:0] = %r; %s"


def programs(paths):
    """What Python is to do, by its name."""
    first_reply = (ROOT / "bench" / "startup" / "first_reply.py").read_text()
    return {
        ALONE: "pass",
        IMPORT: WITH_PATH % (paths, "import vu_mom"),
        PROGRAM: WITH_PATH % (paths, "exec(%r)" % first_reply),
    }


def milliseconds(command):
    start = time.perf_counter()
    subprocess.run(command, check=True)
    return (time.perf_counter() - start) * 1e3


def arm_instructions(build, command):
    with tempfile.NamedTemporaryFile("r") as count:
        plugin = build / "bench" / "lib" / "bench_count_qemu.so"
        environment = dict(os.environ, QEMU_PLUGIN="file=%s" % plugin, COUNT_TO=count.name)
        subprocess.run(command, check=True, env=environment)
        return int(count.read())


def rows(build):
    native = programs([str(build / "python")])
    commands = {work: [sys.executable] + OPTIONS + [text] for work, text in native.items()}
    for turn in range(TURNS + 1):
        for work, command in commands.items():
            value = milliseconds(command)
            if turn:  # the first one reads the files
                yield Row(work, NATIVE, value, "ms")
    for work, command in commands.items():
        yield Row(work, NATIVE, harness.instructions(command)[""], "instructions")

    # The modules for ARM; the messages are Python, and the same.
    arm_build = ROOT / "build" / "armhf"
    arm_python = ROOT / "build" / "sysroot" / "armhf" / "usr" / "bin" / "python3-armhf"
    if not (arm_build / "python" / "vu_mom.so").exists() or not arm_python.exists():
        raise SystemExit("startup: `./dev build armhf` comes first")
    for work, text in programs([str(arm_build / "python"), str(build / "python")]).items():
        command = [str(arm_python)] + OPTIONS + [text]
        arm_instructions(build, command)  # writes what is compiled of Python files
        yield Row(work, ARM, arm_instructions(build, command), "instructions")
