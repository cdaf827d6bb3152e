"""What the pages of docs/ show, run: shells, programs, and examples at Python's prompt.

A fenced block begins with its language and perhaps a word more. `console NAME` is what is typed
and seen at a terminal, the words after "$ " being typed; blocks of the same NAME are one
terminal. What runs at the end of a block of a named terminal goes on while other blocks are read,
and a line "^C" ends it.
"""

import doctest
import os
import pathlib
import queue
import re
import signal
import subprocess
import threading
import time

ROOT = pathlib.Path(__file__).parents[2]
SECONDS = 120  # that anything shown may take to be seen
END = "= "


def build():
    """The build directory of the modules that this interpreter imports."""
    import vu_mom

    return pathlib.Path(vu_mom.__file__).parents[1]


class Block:
    def __init__(self, language, name, text, line):
        self.language, self.name, self.text, self.line = language, name, text, line


def blocks(page):
    """The fenced blocks of docs/PAGE, in order."""
    text = (ROOT / "docs" / page).read_text(encoding="utf-8")
    for match in re.finditer(r"^```(\w+) ?([^\n]*)\n(.*?)^```$", text, re.M | re.S):
        line = text.count("\n", 0, match.start(3)) + 1
        yield Block(match.group(1), match.group(2), match.group(3), line)


def replaced(text, words):
    if not words:
        return text
    pattern = "|".join(map(re.escape, sorted(words, key=len, reverse=True)))
    return re.sub(pattern, lambda found: words[found.group()], text)


def run_prompt(page, program, replace=()):
    """Runs what stands behind ">>>" as one program; returns how many examples there were."""
    words = dict(replace)
    parser = doctest.DocTestParser()
    runner = doctest.DocTestRunner(optionflags=doctest.REPORT_ONLY_FIRST_FAILURE | doctest.ELLIPSIS)
    report = []
    for block in blocks(page):
        if block.language == "python" and ">>>" in block.text:
            part = parser.get_doctest(
                replaced(block.text, words), program, page, page, block.line - 1
            )
            runner.run(part, out=report.append, clear_globs=False)
            program.update(part.globs)
    assert runner.failures == 0, "".join(report)
    return runner.tries


class Terminal:
    """A shell, and what runs in it."""

    def __init__(self, directory, environment):
        # A runner started in the background has Ctrl-C ignored, and hands that on.
        previous = signal.signal(signal.SIGINT, signal.SIG_DFL)
        try:
            self.shell = subprocess.Popen(
                ["bash"],
                cwd=str(directory),
                env=environment,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
                universal_newlines=True,
            )
        finally:
            signal.signal(signal.SIGINT, previous)
        self.lines = queue.Queue()
        self.running = None
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.shell.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def next_line(self, where):
        try:
            line = self.lines.get(timeout=SECONDS)
        except queue.Empty:
            raise AssertionError("%s: nothing more is printed" % where)
        assert line is not None, where + ": the shell is gone"
        return line

    def type(self, command, where):
        assert self.running is None, "%s: %s still runs" % (where, self.running)
        self.shell.stdin.write(command + '\necho "%s$?"\n' % END)
        self.shell.stdin.flush()
        self.running = command

    def sees(self, output, where):
        for wanted in output:
            if wanted == "^C\n":
                self.interrupt()
            else:
                got = self.next_line(where)
                assert same(got, wanted), "%s: %r instead of %r" % (where, got, wanted)

    def finish(self, where):
        """The command is at its end and has printed nothing else."""
        got = self.next_line(where)
        assert got == END + "0\n", "%s: %r instead of the end of %s" % (where, got, self.running)
        self.running = None

    def interrupt(self):
        """Ctrl-C: to what runs in the shell, not to the shell."""
        path = "/proc/%d/task/%d/children" % (self.shell.pid, self.shell.pid)
        with open(path) as children:
            for child in children.read().split():
                os.kill(int(child), signal.SIGINT)

    def close(self):
        if self.running is not None:
            self.interrupt()
        self.shell.stdin.close()
        try:
            self.shell.wait(SECONDS)
        finally:
            self.shell.kill()
            self.shell.wait()
            self.reader.join(SECONDS)
            self.shell.stdout.close()


def same(got, wanted):
    """Whether a line is the one that is shown, where "..." stands for anything."""
    return re.fullmatch(".*".join(map(re.escape, wanted.split("..."))), got, re.S) is not None


class Session:
    """Runs the blocks of a page that are typed into terminals, in order.

    `replace` are words of the page and what stands in their place here.
    """

    def __init__(self, directory, replace=(), **environment):
        self.directory = pathlib.Path(directory)
        self.replace = dict(replace)
        self.environment = dict(os.environ, PYTHONUNBUFFERED="1", **environment)
        self.environment.pop("PYTHONPATH", None)
        self.terminals = {}
        self.commands = 0

    def __enter__(self):
        return self

    def __exit__(self, *exc_info):
        for terminal in self.terminals.values():
            terminal.close()

    def here(self, text):
        return replaced(text, self.replace)

    def terminal(self, name):
        if name not in self.terminals:
            self.terminals[name] = Terminal(self.directory, self.environment)
        return self.terminals[name]

    def save(self, block, path):
        """Writes what a block shows as a file, as a reader would with an editor."""
        (pathlib.Path(self.here(path))).write_text(self.here(block.text), encoding="utf-8")

    def run(self, block):
        terminal = self.terminal(block.name)
        head, *parts = re.split(r"^\$ ", self.here(block.text), flags=re.M)
        where = "line %d of the page" % block.line
        if head:
            terminal.sees(head.splitlines(True), where)
            if parts or "^C\n" in head:
                terminal.finish(where)
        for number, part in enumerate(parts):
            command, _, output = part.partition("\n")
            while command.endswith("\\"):
                more, _, output = output.partition("\n")
                command += "\n" + more
            terminal.type(command, "%s: %s" % (where, command))
            self.commands += 1
            terminal.sees(output.splitlines(True), "%s: %s" % (where, command))
            if not block.name or number + 1 < len(parts) or output.endswith("^C\n"):
                terminal.finish("%s: %s" % (where, command))


def wait_for_path(path):
    end = time.monotonic() + SECONDS
    while not os.path.exists(path):
        assert time.monotonic() < end, path
        time.sleep(0.01)
