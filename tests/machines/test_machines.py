"""Processes of different machines on one server: what one writes the other reads, and both
hear of it, as if they were one process with a store inside it.

VU_OTHER_MACHINE is a command that runs Python as on another machine, such as

    env PYTHONPATH=build/armhf/python qemu-arm ... python3

Without it both processes are of this machine.
"""

import os
import pathlib
import shlex
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).parent
sys.path.insert(0, str(HERE))

import peer  # noqa: E402
from engines import EmbeddedEngine, ServerEngine  # noqa: E402

OTHER = shlex.split(os.environ.get("VU_OTHER_MACHINE", "")) or [sys.executable]
BATCHES = 60


@pytest.fixture(scope="module")
def engine():
    made = ServerEngine()
    yield made
    made.stop()


class Process:
    def __init__(self, python, url, seed):
        self.child = subprocess.Popen(
            python + ["-B", str(HERE / "peer.py"), url, str(seed)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            universal_newlines=True,
        )

    def ready(self):
        assert self.child.stdout.readline() == "ready\n"

    def tell(self, word):
        self.child.stdin.write(word + "\n")
        self.child.stdin.flush()

    def answer(self):
        return self.child.stdout.readline().rstrip("\n")

    def end(self):
        self.child.stdin.close()
        self.child.stdout.close()
        return self.child.wait(60)


@pytest.mark.parametrize("seed", [1, 2])
def test_two_processes_are_as_one(engine, seed):
    url = engine.fresh_store()
    one = peer.Peer(EmbeddedEngine(), seed)
    processes = [Process([sys.executable], url, seed), Process(OTHER, url, seed)]
    for process in processes:
        process.ready()
    for number in range(BATCHES):
        acting, waiting = processes if number % 2 else processes[::-1]
        acting.tell("run")
        waiting.tell("skip")
        expected = repr(one.run())
        assert (number, acting.answer()) == (number, expected)
        assert waiting.answer() == "None"
        expected = repr(one.heard())
        for process in processes:
            process.tell("heard")
        for process in processes:
            assert (number, process.answer()) == (number, expected)
    assert [process.end() for process in processes] == [0, 0]
    one.side.finish()
