"""docs/vu-mom.md does what it says: its examples are run in one shell, with a redis-server."""

import os
import pathlib
import re
import subprocess
import sys

import pytest
from message_support import BUILD

from vu_tool import main

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(1, str(ROOT / "tests" / "support"))

from redis_server import RedisServer  # noqa: E402

PAGE = (ROOT / "docs" / "vu-mom.md").read_text(encoding="utf-8")


def blocks(language):
    return re.findall(r"^```%s\n(.*?)^```$" % language, PAGE, re.M | re.S)


def examples():
    """Command lines, and what the page says that each prints; [N] is an exit status."""
    for block in blocks("console"):
        for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, _, output = part.partition("\n")
            yield command, output


@pytest.fixture
def shell(tmp_path):
    """Runs a command line in a shell that keeps what earlier ones have set."""
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    (tmp_path / "vu-mom").write_text(
        '#!/bin/sh\nexec "%s" "%s" "$@"\n' % (sys.executable, BUILD / "bin" / "vu-mom")
    )
    (tmp_path / "vu-mom").chmod(0o755)
    path = "%s:%s" % (tmp_path, os.environ["PATH"])
    with RedisServer() as server:
        child = subprocess.Popen(
            ["bash"],
            cwd=tmp_path,
            env=dict(os.environ, SOCKET=server.socket, PATH=path),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            universal_newlines=True,
        )

        def run(command):
            child.stdin.write(command + '\necho "= $?"\n')
            child.stdin.flush()
            lines = []
            for line in child.stdout:
                if line.startswith("= "):
                    status = line[2:].strip()
                    return "".join(lines) + ("" if status == "0" else "[%s]\n" % status)
                lines.append(line)
            raise AssertionError("the shell is gone: " + "".join(lines))

        try:
            yield run
        finally:
            child.stdin.close()
            child.wait()
            child.stdout.close()


def test_the_examples(shell):
    ran = 0
    for command, output in examples():
        assert shell(command) == output, command
        ran += 1
    assert ran > 25


def test_the_messages_are_those_that_are_shown():
    [shown] = blocks("proto")
    source = (ROOT / "examples" / "chat" / "chat.proto").read_text(encoding="utf-8")
    assert source.endswith("\n" + shown)


def test_every_command_and_option_is_on_the_page():
    parser, commands = main.make_parser()
    # `--help` is said once, options common to all are in the table of their own.
    words = set(re.findall(r"--?[\w-]+", PAGE))
    for name, sub in commands.items():
        assert re.search(r"^\| `%s[ `]" % name, PAGE, re.M), name
        for option in sub._option_string_actions:
            assert option in words or option == "-h", (name, option)


def test_the_exit_statuses_are_those_of_the_help():
    table = re.search(r"^## Exit status\n(.*?)^```", PAGE, re.M | re.S).group(1)
    rows = re.findall(r"^\| (\d+) \| (.*?) \|$", table, re.M)
    helped = re.findall(r"^  (\d+) +(.*)$", main.EPILOG, re.M)
    plain = [(number, text.replace("`", "").replace(";", ":")) for number, text in rows]
    assert [number for number, _ in plain] == [number for number, _ in helped]
    for (_, text), (_, short) in zip(plain, helped):
        assert text.split(":")[0] == short.split(":")[0]
