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
from vu_tool import transfer

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

    def prints(self, pattern, seconds):
        """Reads until this was printed since the last call of until(); whether it was."""
        end = time.monotonic() + seconds
        while not re.search(pattern, self.seen):
            if not select.select([self.master], [], [], max(0, end - time.monotonic()))[0]:
                return False
            try:
                self.seen += os.read(self.master, 65536).decode()
            except OSError:  # nobody holds the other side any more
                return False
        return True

    def until(self, pattern):
        """Reads until this was printed since the last call; gives what was."""
        assert self.prints(pattern, 60), "%r was not printed: %r" % (pattern, self.seen)
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

    def interrupt_line(self):
        """Ctrl-C at a prompt, until there is another one. The interpreter overlooks one that
        comes just when it has taken in a character and does not wait for the next yet."""
        self.type("\x03")
        for _ in range(12):
            if self.prints(PROMPT, 5):
                break
            self.type("\x03")
        self.until(PROMPT)


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


def test_progress(monkeypatch, capsys):
    """Ten times a second at most, in place, and at the end."""
    now = [100.0]
    monkeypatch.setattr(transfer.time, "monotonic", lambda: now[0])
    progress = transfer.Progress("loaded", 8, True)
    for _ in range(8):
        now[0] += 0.0625
        progress.step()
    progress.finish()
    lines = capsys.readouterr().err.split("\r")
    assert [line.rstrip() for line in lines] == ["", *(
        "loaded %d of 8 objects, 16/s" % count for count in (2, 4, 6, 8, 8)
    )]
    assert lines[-1].endswith("\n")


def test_progress_is_shown_at_a_terminal(terminal, tmp_path):
    (tmp_path / "file").write_text('{"type": "Settings", "kind": "single", "value": {}}\n' * 100)
    load = terminal("load", str(tmp_path / "file"))
    assert load.end() == 0
    assert re.fullmatch(r"loaded 100 of 100 objects, \d+/s", load.seen.split("\r")[-2].strip())


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
    shell.type("set Settings mo")
    shell.until("set Settings mo")
    shell.interrupt_line()
    shell.type("watch Settings\n")
    shell.until("watching contract.Settings")
    shell.type("\x03")
    shell.until(PROMPT)
    shell.type("watch Settings --seconds 0.1\n")
    shell.until("watching contract.Settings")
    shell.until(PROMPT)
    shell.type("\x04")
    assert shell.end() == 0


@pytest.mark.parametrize("word", ["exit", "quit"])
def test_words_that_a_new_user_ends_the_shell_with(terminal, word):
    shell = terminal("shell")
    shell.until(PROMPT)
    for help in ("help", "?"):
        shell.type(help + "\n")
        assert "Words are NAME=VALUE" in shell.until(PROMPT)
    shell.type(word + "\n")
    assert shell.end() == 0


def test_how_far_an_interrupted_load_came(terminal, tmp_path):
    """On a line of its own, which no prompt runs into."""
    (tmp_path / "file").write_text('{"type": "Settings", "kind": "single", "value": {}}\n' * 30000)
    load = terminal("load", str(tmp_path / "file"))
    load.until(r"\rloaded \d+ of 30000")
    load.type("\x03")
    assert load.end() == 130
    assert re.search(r"\rloaded [1-9]\d* of 30000 objects, \d+/s *\r\n$", load.seen)
