"""dump and load: a whole database as lines of JSON."""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import shutil
import sys
import tempfile
import time
from typing import IO, Any, Iterator, List, Optional, Type

from vu_message import Message

from .context import Context, settled
from .errors import ToolError, unusable
from .records import Record, found, from_json, put, to_json

BETWEEN_REPORTS = 0.1  # seconds
WIDTH = 50  # of a report, to cover the one before
BETWEEN_CONFIRMATIONS = 1000  # objects


class Progress:
    """Tells on the terminal how far long work is."""

    def __init__(self, what: str, total: Optional[int], wanted: bool) -> None:
        self._what = what
        self._total = total
        self._is_wanted = wanted or sys.stderr.isatty()
        self._start = self._last = time.monotonic()
        self._is_shown = False
        self.count = 0

    def step(self) -> None:
        self.count += 1
        if self._is_wanted and time.monotonic() - self._last >= BETWEEN_REPORTS:
            self._last = time.monotonic()
            self._show("\r%s" % self._text().ljust(WIDTH))
            self._is_shown = True

    def _text(self) -> str:
        of_total = "" if self._total is None else " of %d" % self._total
        seconds = max(time.monotonic() - self._start, 1e-6)
        rate = self.count / seconds
        return "%s %d%s objects, %d/s" % (self._what, self.count, of_total, rate)

    def __enter__(self) -> Progress:
        return self

    def __exit__(self, kind: object, error: object, traceback: object) -> None:
        """Says what was done, on a line of its own; of work that was ended too, if any was done."""
        if kind is None or self.count:
            self.finish()

    def finish(self) -> None:
        start = "\r" if self._is_shown else ""
        self._show("%s%s\n" % (start, self._text().ljust(WIDTH if start else 0)))

    def _show(self, text: str) -> None:
        print(text, end="", file=sys.stderr, flush=True)


@contextlib.contextmanager
def output(path: Optional[str]) -> Iterator[IO[str]]:
    """A file that is there when it is complete; or standard output, a device or a pipe."""
    if path is None or path == "-":
        yield sys.stdout
        sys.stdout.flush()
        return
    if os.path.exists(path) and not os.path.isfile(path):  # nothing to put a file in the place of
        try:
            special = open(path, "w", encoding="utf-8")
        except OSError as error:
            raise unusable("--output", path, error)
        with special:
            yield special
        return
    try:
        directory = os.path.dirname(os.path.realpath(path))
        file = tempfile.NamedTemporaryFile("w", encoding="utf-8", dir=directory, delete=False)
    except OSError as error:
        raise unusable("--output", path, error)
    try:
        with file:
            yield file
        os.chmod(file.name, 0o666 & ~current_umask())
        os.replace(file.name, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(file.name)
        raise


def current_umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask


async def dump(context: Context, options: argparse.Namespace) -> None:
    types: List[Type[Message]] = [context.types.find(name) for name in options.types]
    with Progress("dumped", None, options.progress) as progress, output(options.output) as file:
        for cls in types or context.types.named.values():
            async for msg in context.client.scan(context.db, cls(), 0):
                plain = to_json(context.types, found(cls, msg))
                file.write(json.dumps(plain, ensure_ascii=False) + "\n")
                progress.step()


def numbered_records(context: Context, file: IO[bytes], name: str) -> Iterator[Record]:
    """Raises ToolError with the number of the line that is wrong."""
    for number, line in enumerate(file, 1):
        if not line.strip():
            continue
        try:
            plain = json.loads(line.decode("utf-8"), parse_constant=refuse_constant)
            yield from_json(context.types, plain)
        except (ValueError, ToolError) as error:
            raise ToolError("%s:%d: %s" % (name, number, error))


def refuse_constant(name: str) -> Any:
    raise ValueError("%s is no JSON" % name)


async def load(context: Context, options: argparse.Namespace) -> None:
    """Reads everything before it changes anything."""
    with contextlib.ExitStack() as files:
        if options.file == "-":
            name = "standard input"
            file: IO[bytes] = files.enter_context(tempfile.TemporaryFile())
            shutil.copyfileobj(sys.stdin.buffer, file)
        else:
            name = options.file
            try:
                file = files.enter_context(open(options.file, "rb"))
            except OSError as error:
                raise unusable("FILE", name, error)
        file.seek(0)
        total = sum(1 for _ in numbered_records(context, file, name))
        file.seek(0)
        last: Optional[Message] = None
        with Progress("loaded", total, options.progress) as progress:
            for record in numbered_records(context, file, name):
                put(context.client, context.db, record)
                last = record.values[0]
                progress.step()
                if progress.count % BETWEEN_CONFIRMATIONS == 0:
                    await settled(context, last)
            if last is not None:
                await settled(context, last)
