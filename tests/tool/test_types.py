"""What is written in Python is typed: the packages and the examples throughout, the tests as far
as it helps them. What a test gets wrong on purpose says so, or goes through Any."""

import os
import pathlib
import subprocess

import pytest
import vu_tool

PYTHON = pathlib.Path(vu_tool.__file__).parents[1]
ROOT = pathlib.Path(__file__).parents[2]
TESTS = ROOT / "tests"

# In tests, what may be None would only fail there and then; protobuf has no stubs.
IN_TESTS = ["--check-untyped-defs", "--warn-unused-ignores"]
IN_TESTS += ["--disable-error-code=" + code for code in ("union-attr", "var-annotated", "import")]
# Tests of the binding run with stand-ins for the modules beside it.
STAND_INS = [TESTS / "binding" / "siblings", TESTS / "binding"]
BINDING_FAULTS = ["imports", "outcomes", "scenarios", "test_calls", "test_memory", "test_slopes"]
BINDING_FAULTS += ["test_reply_slopes"]


def files(directory, but=()):
    """Those of a directory, without some."""
    found = sorted((ROOT / directory).glob("*.py"))
    assert found and {path.stem for path in found} >= set(but)
    return [str(path) for path in found if path.stem not in but]


# How what is checked, and what stands for modules of the same name. The short application of the
# README has no annotations.
CASES = {
    "vu_aio": (["--strict", "-p", "vu_aio"], []),
    "vu_metrics": (["--strict", "-m", "vu_metrics"], []),
    "vu_tool": (["--strict", "-p", "vu_tool"], []),
    "examples/chat": (["--strict", *files("examples/chat")], []),
    "examples/hello": (["--strict", "--allow-untyped-defs", *files("examples/hello")], []),
    "examples/netmon": (["--strict", *files("examples/netmon")], []),
    "tests/faults": ([*IN_TESTS, *files("tests/faults", but=BINDING_FAULTS)], []),
    "tests/faults, of the binding": (
        [*IN_TESTS, *(str(TESTS / "faults" / (name + ".py")) for name in BINDING_FAULTS)],
        STAND_INS,
    ),
}
for path in sorted({path.parent for path in TESTS.glob("**/*.py")}):
    name = str(path.relative_to(ROOT))
    stand_ins = STAND_INS if name in ("tests/binding", "tests/fuzz") else []
    CASES.setdefault(name, ([*IN_TESTS, *files(name)], stand_ins))


@pytest.fixture(scope="module")
def cache(tmp_path_factory):
    return tmp_path_factory.mktemp("mypy")


def mypy(cache, *arguments, first=()):
    """What it says. Modules are looked for in these directories first."""
    path = [*first, PYTHON, TESTS / "support"]
    # What is known of modules that something stands for is of no use to others.
    cache_of_its_own = cache / ("stand-ins" if first else "modules")
    checked = subprocess.run(
        ["/usr/bin/mypy", "--no-error-summary", "--cache-dir", str(cache_of_its_own), *arguments],
        cwd=cache,
        env=dict(os.environ, MYPYPATH=":".join(map(str, path))),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        timeout=300,
    )
    assert checked.returncode == (1 if checked.stdout else 0), checked.stdout
    return checked.stdout


@pytest.mark.parametrize("what", CASES)
def test_mypy(what, cache):
    arguments, first = CASES[what]
    assert mypy(cache, *arguments, first=first) == ""


# A program of a user, and what is found in it; or nothing.
PROGRAMS = {
    "a number for a text": (
        "from chat_vu import Line\n\nLine(room=7)\n",
        'wrong.py:3: error: No overload variant of "Line" matches',
    ),
    "lists that are not written out are not List[float], nor of any function": (
        "from chat_vu import Line\nfrom vu_global import VuGlobal\nfrom vu_mom import VuMom\n"
        "from vu_mom_common import PubSubMsg\n\n"
        "def changed(msg: PubSubMsg[Line], p: int) -> None: ...\n\n"
        "scores, tags, functions = [1, 2], [1], [changed]\n"
        "client = VuMom(VuGlobal())\n"
        "client.zadd(0, scores, [Line(), Line()])\n"
        "client.subscribe_field(0, Line(), 0, tags, functions, [1])\n",
        "",
    ),
    "a list of texts for scores": (
        "from chat_vu import Line\nfrom vu_global import VuGlobal\nfrom vu_mom import VuMom\n\n"
        "VuMom(VuGlobal()).zadd(0, ['1'], [Line()])\n",
        'wrong.py:5: error: Value of type variable "_Float" of "zadd" of "VuMom" cannot be "str"',
    ),
    "fields of a class that was asked for by name": (
        "import vu_message\n\nmade = vu_message.message_class('chat.Line')(room='here')\n"
        "made.text = 'x'\nprint(made.room, made.ToJson())\n",
        "",
    ),
    "what a Struct holds": (
        "from vu_well_known import Struct\n\nmade = Struct()\nmade.update({'a': {'b': [1]}})\n"
        "print(made['a']['b'][0])\n",
        "",
    ),
    "fields of a descriptor": (
        "from chat_vu import Line\n\ncounter = Line.DESCRIPTOR.counter\n"
        "print(counter.name if counter is not None else '', Line.DESCRIPTOR.fields[0].number)\n",
        "",
    ),
}


@pytest.mark.parametrize("what", PROGRAMS)
def test_what_is_wrong_is_found_and_nothing_else(what, cache):
    program, wrong = PROGRAMS[what]
    path = cache / "wrong.py"
    path.write_text(program)
    said = mypy(cache, "--strict", str(path))
    if wrong:
        assert wrong in said and said.count("error:") == 1
    else:
        assert said == ""
