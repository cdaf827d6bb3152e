"""docs/asyncio.md does what it says: its examples run, in order, as one program, and mypy knows
the types that it promises."""

import ast
import asyncio
import contextlib
import doctest
import inspect
import io
import os
import pathlib
import re
import subprocess
import textwrap
import traceback
import types

import vu_aio

ROOT = pathlib.Path(__file__).parents[2]
PAGE = ROOT / "docs" / "asyncio.md"


def blocks(language):
    """The fenced blocks of a language: line number in the page and text."""
    text = PAGE.read_text(encoding="utf-8")
    for match in re.finditer(r"^```%s\n(.*?)^```$" % language, text, re.M | re.S):
        yield text.count("\n", 0, match.start(1)), match.group(1)


async def output_of(example, program):
    """What `python -m asyncio` prints for one input."""
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        try:
            code = compile(example.source, "asyncio.md", "single", ast.PyCF_ALLOW_TOP_LEVEL_AWAIT)
            result = types.FunctionType(code, program)()
            if inspect.isawaitable(result):
                await result
        except Exception:
            printed.write("Traceback (most recent call last):\n    ...\n")
            printed.write(traceback.format_exc().splitlines()[-1])
    return printed.getvalue()


def test_the_examples():
    program = {}
    ran = []

    async def run():
        for line, text in blocks("python"):
            for example in doctest.DocTestParser().get_examples(text):
                where = "line %d of the page: %s" % (line + example.lineno + 1, example.source)
                got = await asyncio.wait_for(output_of(example, program), 60)
                assert got.strip() == example.want.strip(), where
                ran.append(where)

    asyncio.run(run())
    assert len(ran) > 30


def test_the_messages_are_those_that_are_shown():
    [(_, shown)] = blocks("proto")
    source = (ROOT / "examples" / "chat" / "chat.proto").read_text(encoding="utf-8")
    assert source.endswith("\n" + shown)


def test_the_example_is_as_short_as_the_page_says():
    text = (ROOT / "examples" / "chat" / "chat.py").read_text(encoding="utf-8")
    assert len([line for line in text.splitlines() if line.strip()]) <= 80


def test_every_command_with_a_reply_is_in_the_table():
    replies = [
        name
        for name, command in vars(vu_aio.Client).items()
        if inspect.isfunction(command)
        and re.search("Future|Scan", command.__annotations__.get("return", ""))
    ]
    table = PAGE.read_text(encoding="utf-8").split("| --- | --- |\n")[1].split("\n\n")[0]
    assert sorted(re.findall(r"`(\w+)`", "".join(re.findall(r"^\|.*?\|", table, re.M)))) == sorted(
        replies
    )


# ---- Types ----------------------------------------------------------------------------

# The value of each expression, awaited where it can be, as mypy knows it.
TYPES = """
client.get(0, line)                    Optional[Line]
client.rpop(0, line)                   Optional[Line]
client.incr(0, visits)                 int
client.setnx(0, line)                  bool
client.lset(0, line, 1)                bool
client.zrank(0, line)                  Optional[int]
client.zscore(0, line)                 Optional[float]
client.hgetall(0, line)                Optional[HashResult[Line]]
client.hmget(0, line, [1])             Optional[HashResult[Line]]
client.lrange(0, line)                 LrangeResult[Line]
client.smembers(0, line)               SmembersResult[Line]
client.zrange(0, line)                 ZrangeResult[Line]
client.zrangebyscore(0, line, 0, 1)    ZrangebyscoreResult[Line]
client.pdel(0, line, 1)                List[Tuple[Union[int, bool, str, bytes], ...]]
client.scan(0, line, 1)                List[Found[Line]]
client.scan_index(0, line, 1)          List[Line]
client.subscribe(0, line, 1)           Subscription[Line]
client.subscribe_field(0, line, 1, [1])  Subscription[Line]
"""

PROLOGUE = """
from typing import List, Optional, Tuple, Union

from chat_vu import Line, Visits
from vu_aio import Change, Client, Found, Key, Scan, StoreError, Subscription
from vu_mom_common import (
    HashResult,
    LrangeResult,
    SmembersResult,
    ZrangebyscoreResult,
    ZrangeResult,
)

line = Line()
visits = Visits()
"""


def mypy(directory, program):
    """What `mypy --strict` says of a program, beside the package itself."""
    (directory / "program.py").write_text(PROLOGUE + program)
    python = pathlib.Path(vu_aio.__file__).parents[1]
    checked = subprocess.run(
        ["/usr/bin/mypy", "--strict", "--no-error-summary", "--cache-dir", str(directory / "cache")]
        + ["program.py"],
        cwd=directory,
        env=dict(os.environ, MYPYPATH=str(python)),
        capture_output=True,
        text=True,
        timeout=300,
    )
    return checked.stdout + checked.stderr


def test_types(tmp_path):
    lines = [re.split(r"\s{2,}", line) for line in TYPES.strip().splitlines()]
    program = "".join(
        "async def value_%d(client: Client) -> %s:\n    return %s%s\n"
        % (number, type_name, "" if "Subscription" in type_name else "await ", expression)
        for number, (expression, type_name) in enumerate(lines)
    )
    program += textwrap.dedent(
        """
        async def loops(client: Client) -> None:
            change: Change[Line]
            async for change in client.subscribe(0, line, 1):
                if isinstance(change.result, Line):
                    print(change.result.text)
            found: Found[Line]
            async for found in client.scan(0, line, 1):
                print(found.key)
            key: Line
            async for key in client.scan_index(0, line, 1):
                print(key.room)
            async with client.subscribe_field(0, line, 1, [2]) as changes:
                await changes.__anext__()
        """
    )
    [(_, shown)] = [block for block in blocks("python") if not block[1].startswith(">>>")]
    assert mypy(tmp_path, program + shown) == ""


def test_wrong_types_are_found(tmp_path):
    program = textwrap.dedent(
        """
        async def wrong(client: Client) -> None:
            a: Optional[Visits] = await client.get(0, line)
            b: Line = await client.get(0, line)
            client.get(0, "line")
            await client.set(0, line)
            client.linsert(0, line, visits, 0).nothing
            async for change in client.subscribe(0, line, 1):
                print(change.result.text)
        """
    )
    found = mypy(tmp_path, program).splitlines()
    first = PROLOGUE.count("\n") + 3
    lines = {int(message.split(":")[1]) for message in found if ": error:" in message}
    assert lines == {first + offset for offset in (0, 1, 2, 3, 4, 6)}, found
