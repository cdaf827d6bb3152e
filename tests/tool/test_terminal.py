"""vu-mom at a terminal."""

import os
import pathlib
import pty
import re
import select
import struct
import subprocess
import sys
import termios
import time
from fcntl import ioctl

import pytest
from message_support import BUILD

CONTRACT = pathlib.Path(__file__).parents[1] / "contract" / "contract.proto"
WIDTH = 60


class Terminal:
    """The program, with a terminal of 60 columns."""

    def __init__(self, *words):
        self.master, slave = pty.openpty()
        ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, WIDTH, 0, 0))
        environment = dict(os.environ, VU_MOM_STORE="embedded:", VU_MOM_PROTO=str(CONTRACT))
        environment.update(TERM="dumb", COLUMNS="", LINES="")
        self.child = subprocess.Popen(
            [sys.executable, str(BUILD / "bin" / "vu-mom"), *words],
            stdin=slave,
            stdout=slave,
            stderr=slave,
            env=environment,
            start_new_session=True,
            preexec_fn=lambda: ioctl(0, termios.TIOCSCTTY, 0),
        )
        os.close(slave)
        self.seen = ""

    def type(self, text):
        os.write(self.master, text.encode())

    def until(self, pattern):
        """Reads until this was printed since the last call; gives what was."""
        end = time.monotonic() + 60
        while not re.search(pattern, self.seen):
            ready, _, _ = select.select([self.master], [], [], max(0, end - time.monotonic()))
            assert ready, "%r was not printed: %r" % (pattern, self.seen)
            try:
                self.seen += os.read(self.master, 65536).decode()
            except OSError:
                raise AssertionError("%r was not printed: %r" % (pattern, self.seen))
        found = re.search(pattern, self.seen)
        shown, self.seen = self.seen[: found.end()], self.seen[found.end() :]
        return shown

    def end(self):
        """Its exit status."""
        end = time.monotonic() + 60
        while self.child.poll() is None:
            assert time.monotonic() < end, self.seen
            if select.select([self.master], [], [], 0.05)[0]:
                try:
                    self.seen += os.read(self.master, 65536).decode()
                except OSError:  # nobody holds the other side any more
                    pass
        return self.child.returncode


@pytest.fixture
def terminal():
    made = []

    def run(*words):
        made.append(Terminal(*words))
        return made[-1]

    yield run
    for each in made:
        each.child.kill()
        each.child.wait()
        os.close(each.master)


PROMPT = "vu-mom> "


def test_shell(terminal):
    """A person may err; lines are no longer than the terminal is wide."""
    shell = terminal("shell")
    shell.until(PROMPT)
    shell.type("get Setings\n")
    assert "no message type 'Setings'" in shell.until(PROMPT)
    shell.type("get Settings\n")
    assert "vu-mom: nothing is stored there" in shell.until(PROMPT)
    shell.type("set Settings mode=%s\n" % ("x" * 100))
    shell.until(PROMPT)
    shell.type("scan Settings\n")
    lines = shell.until(PROMPT).splitlines()
    assert lines[-3:-1] == ["MODE", "x" * (WIDTH - 1) + "…"]
    shell.type("\x04")
    assert shell.end() == 0


def test_progress(terminal, tmp_path):
    line = '{"type": "Settings", "kind": "single", "value": {}}\n'
    (tmp_path / "file").write_text(line * 20000)
    load = terminal("load", str(tmp_path / "file"))
    assert load.end() == 0
    reports = load.seen.strip().split("\r")
    assert all(re.match(r"loaded \d+ of 20000 objects, \d+/s", each) for each in reports if each)
    assert len(reports) >= 3


def test_top_draws_anew(terminal):
    top = terminal("top", "Settings", "--interval", "0.1")
    screen = "\x1b[H\x1b[J"
    top.until(re.escape(screen))
    for _ in range(2):
        drawn = top.until(re.escape(screen)).replace(screen, "").splitlines()
        assert drawn[0].startswith("TYPE") and drawn[0].split()[1] == "OBJECTS"
        assert drawn[1].split()[:3] == ["contract.Settings", "0", "0"]
        assert all(len(line) <= WIDTH for line in drawn)
    top.type("\x03")
    assert top.end() == 0


def test_ctrl_c_ends_a_line_or_a_command(terminal):
    shell = terminal("shell")
    shell.until(PROMPT)
    shell.type("set Settings mo\x03")
    shell.until(PROMPT)
    shell.type("watch Settings\n")
    shell.until("watching contract.Settings")
    shell.type("\x03")
    shell.until(PROMPT)
    shell.type("watch Settings --seconds 0.1\n")
    shell.until("watching contract.Settings")
    shell.until(PROMPT)
    shell.type("\x04")
    assert shell.end() == 0
