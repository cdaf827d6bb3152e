"""examples/hello, which README quotes."""

import pathlib
import subprocess
import sys

HELLO = pathlib.Path(__file__).parents[2] / "examples" / "hello" / "hello.py"


def test_hello():
    child = subprocess.run(
        [sys.executable, "-B", str(HELLO)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        universal_newlines=True,
        timeout=60,
    )
    assert child.stderr == ""
    assert child.stdout == "changed: world\nHello, world\n"
    assert child.returncode == 0
