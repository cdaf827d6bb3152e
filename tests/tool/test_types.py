"""What is written in Python is typed: the packages and the examples throughout, the tests as far
as the types are not what they get wrong on purpose (tests/binding, contract, docs, faults, fuzz and
platform do)."""

import os
import pathlib
import subprocess

import pytest
import vu_tool

PYTHON = pathlib.Path(vu_tool.__file__).parents[1]
ROOT = pathlib.Path(__file__).parents[2]

# What is checked, and how. The short application of the README has no annotations.
CASES = {
    "vu_aio": ["--strict", "-p", "vu_aio"],
    "vu_metrics": ["--strict", "-m", "vu_metrics"],
    "vu_tool": ["--strict", "-p", "vu_tool"],
    "examples/chat": ["--strict"],
    "examples/hello": ["--strict", "--allow-untyped-defs"],
    "examples/netmon": ["--strict"],
    "tests/machines": ["--check-untyped-defs"],
    "tests/server": ["--check-untyped-defs"],
    "tests/support": ["--check-untyped-defs"],
    "tests/tool": ["--check-untyped-defs"],
}
# In tests, what may be None would only fail there and then; protobuf has no stubs.
IN_TESTS = ["union-attr", "var-annotated", "import"]


@pytest.fixture(scope="module")
def cache(tmp_path_factory):
    return tmp_path_factory.mktemp("mypy")


def mypy(cache, *arguments):
    """What it says."""
    checked = subprocess.run(
        ["/usr/bin/mypy", "--no-error-summary", "--cache-dir", str(cache), *arguments],
        cwd=cache,
        env=dict(os.environ, MYPYPATH="%s:%s" % (PYTHON, ROOT / "tests" / "support")),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        timeout=300,
    )
    assert checked.returncode == (1 if checked.stdout else 0), checked.stdout
    return checked.stdout


@pytest.mark.parametrize("what", CASES)
def test_mypy(what, cache):
    arguments = list(CASES[what])
    if what.startswith("tests"):
        arguments += ["--disable-error-code=" + code for code in IN_TESTS]
    if "/" in what:
        files = [str(path) for path in (ROOT / what).glob("*.py")]
        assert files
        arguments += files
    assert mypy(cache, *arguments) == ""


def test_what_is_wrong_is_found(cache):
    program = cache / "wrong.py"
    program.write_text("from chat_vu import Line\n\nLine(room=7)\n")
    said = mypy(cache, "--strict", str(program))
    assert 'wrong.py:3: error: No overload variant of "Line" matches' in said
