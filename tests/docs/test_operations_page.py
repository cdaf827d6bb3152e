"""docs/operations.md does what it says: its programs and examples run, and its figures are right."""

import pathlib
import re
import shutil
import subprocess
import tempfile

import page
import pytest

PAGE = "operations.md"
TEXT = (page.ROOT / "docs" / PAGE).read_text(encoding="utf-8")
# Figures of memory vary a little from run to run, and with what else is in a process.
TOLERANCE = 0.25


@pytest.fixture
def place():
    """A directory in place of /tmp, with a short name: a socket will be in it."""
    made = pathlib.Path(tempfile.mkdtemp(prefix="vu-operations-"))
    (made / "build").mkdir()
    (made / "build" / "host").symlink_to(page.build())
    yield made
    if (made / "ops.sock").exists():  # a test has failed before its end
        subprocess.run(["redis-cli", "-s", str(made / "ops.sock"), "shutdown", "nosave"])
    shutil.rmtree(str(made))


def measured(output):
    return {what: int(size) for what, size in re.findall(r"^(a.*): (-?\d+)$", output, re.M)}


def without_figures(block):
    return re.sub(r"^(a.*): \d+$", r"\1: ...", block, flags=re.M)


class Remembering(page.Terminal):
    """Keeps what was printed."""

    printed = ""

    def next_line(self, where):
        line = super().next_line(where)
        self.printed += line
        return line


def test_programs(place, monkeypatch):
    monkeypatch.setattr(page, "Terminal", Remembering)
    sizes, shown = [], []
    with page.Session(place, {"/tmp": str(place)}) as session:
        for block in page.blocks(PAGE):
            if block.name:
                session.save(block, block.name)
            elif block.language == "console":
                figures = measured(block.text)
                block.text = without_figures(block.text)
                before = len(session.terminal("").printed)
                run_with_servers(session, block, place)
                if figures:
                    shown.append(figures)
                    sizes.append(measured(session.terminal("").printed[before:]))
        assert session.commands == 7
    assert [list(figures) for figures in shown] == [list(figures) for figures in sizes]
    assert [len(figures) for figures in shown] == [6, 6]
    for figures, found in zip(shown, sizes):
        for what, size in figures.items():
            assert found[what] == pytest.approx(size, rel=TOLERANCE, abs=10), (what, found)


def run_with_servers(session, block, place):
    """A command that starts a server in the background is followed by a wait for it."""
    parts = re.split(r"^(?=\$ )", block.text, flags=re.M)
    for part in filter(None, parts):
        session.run(page.Block(block.language, block.name, part, block.line))
        if "--daemonize yes" in part:
            page.wait_for_path(str(place / "ops.sock"))


def test_examples(place):
    program = {}
    try:
        assert page.run_prompt(PAGE, program, {"/tmp": str(place)}) > 40
    finally:
        if "server" in program:
            program["server"].kill()
            program["server"].wait()


def test_limits_are_those_of_the_code():
    def constant(name, *path):
        text = page.ROOT.joinpath("platform", "store", *path).read_text(encoding="utf-8")
        found = re.search(r"\b%s = (.*?);" % name, text).group(1)
        found = re.sub(r"std::size_t\{(\d+)\}", r"\1", found).replace("'", "")
        return eval(found)

    assert constant("kMostWaiting", "session.h") == 2**20 and "2^20" in TEXT
    assert constant("kMostUnsentBytes", "server", "server_store.cpp") == 256 << 20
    assert "256 MiB" in TEXT
    assert constant("kMostEvents", "server", "server_store.cpp") == 65536
    assert constant("kBatch", "delivery.h") == 256
    assert constant("kLongestTime", "server", "address.cpp") == 86400
    assert constant("connect_timeout_us", "server", "address.h") == 5e6
    assert constant("command_timeout_us", "server", "address.h") == 10e6
    assert constant("kFirstPause", "server", "link.cpp") == 10e3
    assert constant("kLongestPause", "server", "link.cpp") == 1e6
    assert "| `connect_timeout` | 5 |" in TEXT and "| `command_timeout` | 10 |" in TEXT


def test_limits_of_urls():
    from vu_global import VuGlobal

    VuGlobal(store="redis+unix:///" + 106 * "a").close()
    VuGlobal(store="redis+unix:///a?command_timeout=86400").close()
    for wrong in ("redis+unix:///" + 107 * "a", "redis+unix:///a?command_timeout=86401"):
        with pytest.raises(ValueError):
            VuGlobal(store=wrong)
