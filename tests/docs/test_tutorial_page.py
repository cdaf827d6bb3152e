"""docs/tutorial.md, done by the letter: its files are saved, its commands are typed."""

import doctest
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

import page
import pytest

PAGE = "tutorial.md"
PLACE = "/tmp/weather"


@pytest.fixture
def place():
    """A directory in place of /tmp, with a short name: a socket will be in it."""
    made = pathlib.Path(tempfile.mkdtemp(prefix="vu-tutorial-"))
    (made / "build").mkdir()
    (made / "build" / "host").symlink_to(page.build())
    yield made
    socket = made / "weather" / "store"
    if socket.exists():  # the test has failed before its end
        subprocess.run(["redis-cli", "-s", str(socket), "shutdown", "nosave"], check=True)
    shutil.rmtree(str(made))


def run_python_prompt(block, directory):
    """A block that begins with the interpreter: what stands behind ">>>" is typed to it."""
    command, _, text = block.text.partition("\n")
    assert command == "$ /usr/bin/python3"
    program = (
        "import doctest, sys\n"
        "test = doctest.DocTestParser().get_doctest(sys.stdin.read(), {}, 'page', None, 0)\n"
        "assert doctest.DocTestRunner().run(test) == (0, %d)\n"
        % len(doctest.DocTestParser().get_examples(text))
    )
    subprocess.run(
        ["/usr/bin/python3", "-c", program],
        input=text,
        cwd=str(directory),
        env=dict(os.environ, PYTHONPATH=str(page.build() / "python")),
        universal_newlines=True,
        check=True,
        timeout=page.SECONDS,
    )


def test_the_tutorial(place):
    weather = str(place / "weather")
    saved = []
    with page.Session(place, {PLACE: weather}) as session:
        for block in page.blocks(PAGE):
            if block.language != "console":
                session.save(block, os.path.join(PLACE, block.name))
                saved.append(block.name)
            elif ">>>" in block.text:
                run_python_prompt(block, weather)
            else:
                session.run(block)
            if "redis-server" in block.text:
                page.wait_for_path(os.path.join(weather, "store"))
        assert session.commands == 24
        session.terminal("display").finish("the end of the page")
    assert saved == ["weather.proto", "first.py", "weather.py", "alarm.py"]
    assert not os.path.exists(weather)


def test_a_missing_reply_method_is_an_error_that_names_it(place):
    """What the page says in words."""
    text = (page.ROOT / "docs" / PAGE).read_text(encoding="utf-8")
    assert re.search(r"reply method that is missing is an error where the command is called", text)
    from hello_vu import Greeting
    from vu_global import VuGlobal
    from vu_mom import VuMom

    with VuGlobal(store="embedded:tutorial") as glb:
        with pytest.raises(AttributeError, match="on_get_hello_Greeting"):
            VuMom(glb).get(0, Greeting(name="world"), None)
