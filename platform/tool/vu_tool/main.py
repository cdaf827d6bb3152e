"""vu-mom: the command line."""

from __future__ import annotations

import argparse
import asyncio
import math
import os
import shlex
import signal
import sys
from typing import Dict, Iterable, List, Optional, Sequence, Tuple

import vu_mom
from vu_aio import Client

from . import __version__, commands, live, transfer
from .complete import candidates
from .context import Context
from .errors import BAD_USE, INTERRUPTED, STORE_FAILED, ToolError, unusable
from .protos import Types, compile_files
from .records import KINDS, SINGLE

EPILOG = """\
Words are NAME=VALUE; NAME.INNER=VALUE for a field of a field or an entry of a map; a repeated
field is named once for each element. Values of messages, and lists, can be JSON.

exit status:
  0    done
  1    nothing was found: no such object (get, scan, ttl, del), or one already (set --new)
  2    wrong use: the text says which argument
  3    the store refused or cannot be reached, or the output cannot be written
  130  interrupted

environment:
  VU_MOM_STORE  the store, where there is no --store
  VU_MOM_PROTO  .proto files, separated by ":", where there is no --proto
  VU_MOM_PATH   directories for -I, separated by ":"
"""

RUNNERS = {
    "get": commands.get,
    "set": commands.set_,
    "scan": commands.scan,
    "watch": live.watch,
    "publish": commands.publish,
    "ttl": commands.ttl,
    "del": commands.del_,
    "dump": transfer.dump,
    "load": transfer.load,
    "top": live.top,
}
# Ctrl-C is how these end.
ENDLESS = ("watch", "top")


def refused(text: str, expected: str) -> argparse.ArgumentTypeError:
    return argparse.ArgumentTypeError("expected %s, not %r" % (expected, text))


def positive(text: str) -> int:
    if not text.isdecimal() or int(text) < 1:
        raise refused(text, "a number from 1")
    return int(text)


def database(text: str) -> int:
    if not text.isdecimal() or int(text) >= 2**31:
        raise refused(text, "the number of a database")
    return int(text)


def number(text: str) -> float:
    """NaN where it is none."""
    try:
        return float(text)
    except ValueError:
        return math.nan


def seconds(text: str) -> float:
    if not 0 < number(text) < 1e9:
        raise refused(text, "a time in seconds")
    return number(text)


def score(text: str) -> float:
    if math.isnan(number(text)):
        raise refused(text, "a number")
    return number(text)


def common_options(behind: bool) -> argparse.ArgumentParser:
    """Taken before and behind the command."""
    parser = argparse.ArgumentParser(add_help=False, argument_default=argparse.SUPPRESS)
    suffix = "_behind" if behind else ""
    parser.add_argument("--store", metavar="URL", help="e.g. redis://host, or embedded:NAME")
    parser.add_argument(
        "--proto",
        metavar="FILE",
        action="append",
        dest="proto" + suffix,
        help="a .proto file with the message types (repeatable)",
    )
    parser.add_argument(
        "-I",
        metavar="DIR",
        action="append",
        dest="include" + suffix,
        help="where .proto files are imported from (repeatable)",
    )
    parser.add_argument("--db", metavar="N", type=database, help="number of the database (0)")
    parser.add_argument("--json", action="store_true", help="print lines of JSON")
    return parser


def make_parser() -> Tuple[argparse.ArgumentParser, Dict[str, argparse.ArgumentParser]]:
    parser = argparse.ArgumentParser(
        prog="vu-mom",
        description="Look into an object store, and change it.",
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        parents=[common_options(False)],
    )
    parser.add_argument("--version", action="version", version="vu-mom " + __version__)
    made: Dict[str, argparse.ArgumentParser] = {}
    subparsers = parser.add_subparsers(dest="command", metavar="COMMAND")

    def add(name: str, text: str, *, takes: str) -> argparse.ArgumentParser:
        sub = subparsers.add_parser(
            name, help=text, description=text, parents=[common_options(True)]
        )
        if takes == "a type":
            sub.add_argument("type", metavar="TYPE")
        elif takes == "maybe a type":
            sub.add_argument("type", metavar="TYPE", nargs="?")
        made[name] = sub
        return sub

    def words(sub: argparse.ArgumentParser, what: str) -> None:
        sub.add_argument("words", metavar="NAME=VALUE", nargs="*", help=what)

    one_key = "the fields of the key"
    some_keys = "the first fields of the key; none: every object of the type"
    words(add("get", "Show one object.", takes="a type"), one_key)

    sub = add("set", "Store a message; or add to a hash, list, set or sorted set.", takes="a type")
    words(sub, "the fields; or one JSON object")
    sub.add_argument("--kind", choices=list(KINDS.values()), default=SINGLE)
    sub.add_argument("--score", type=score, help="the score, for --kind zset")
    sub.add_argument("--new", action="store_true", help="only where nothing is stored")
    sub.add_argument("--keep", action="store_true", help="keep the lifetime that there is")
    sub.add_argument("--quiet", action="store_true", help="tell no subscriber")

    sub = add("scan", "Show objects; those of all types if none is named.", takes="maybe a type")
    words(sub, some_keys)
    sub.add_argument("--keys", action="store_true", help="show the keys alone")
    sub.add_argument("--limit", type=positive, metavar="N", help="show no more than these")

    sub = add("watch", "Show changes as they happen, until Ctrl-C.", takes="maybe a type")
    words(sub, some_keys)
    sub.add_argument("--field", action="append", metavar="NAME", help="only changes of this field")
    sub.add_argument("--count", type=positive, metavar="N", help="end after so many changes")
    sub.add_argument("--seconds", type=seconds, metavar="S", help="end after this time")

    words(add("publish", "Send a message to its subscribers.", takes="a type"), "the fields")

    sub = add("ttl", "Give objects a lifetime, or take it away.", takes="a type")
    sub.add_argument("seconds", metavar="SECONDS", help="from now on; none: no end")
    words(sub, some_keys)
    sub.add_argument("--field", action="append", metavar="NAME", help="of this field of a hash")
    sub.add_argument("--all", action="store_true", help="every object that matches")

    sub = add("del", "Delete objects.", takes="a type")
    words(sub, some_keys)
    sub.add_argument("--all", action="store_true", help="every object that matches")

    sub = add("dump", "Write a database as lines of JSON.", takes="nothing")
    sub.add_argument("types", metavar="TYPE", nargs="*", help="only these types")
    sub.add_argument("--output", metavar="FILE", help="in place of standard output")
    sub.add_argument("--progress", action="store_true", help="tell even where no terminal is")

    sub = add("load", "Store what dump has written, each object in place of its like.", takes="")
    sub.add_argument("file", metavar="FILE", nargs="?", default="-", help="-: standard input")
    sub.add_argument("--progress", action="store_true", help="tell even where no terminal is")

    sub = add("top", "Show counts and rates of changes, until Ctrl-C.", takes="maybe a type")
    words(sub, some_keys)
    sub.add_argument("--interval", type=seconds, metavar="S", default=2.0)
    sub.add_argument("--count", type=positive, metavar="N", help="end after so many reports")

    sub = add("shell", "Run commands from a file, one on each line.", takes="nothing")
    sub.add_argument("file", metavar="FILE", nargs="?", default="-", help="-: standard input")
    return parser, made


class Usage(Exception):
    """argparse has said what is wrong, or was asked for help."""

    def __init__(self, status: int) -> None:
        self.status = status


def parse(argv: Sequence[str]) -> argparse.Namespace:
    parser, made = make_parser()
    try:
        options, rest = parser.parse_known_args(argv)
        if options.command is None:
            parser.error("a COMMAND must be given; see --help")
        unknown = [word for word in rest if word.startswith("-") and word != "-"]
        # Words behind options, which argparse leaves over.
        if unknown or (rest and not hasattr(options, "words")):
            made[options.command].error("unrecognized arguments: " + " ".join(unknown or rest))
        if rest:
            options.words = list(options.words) + rest
    except SystemExit as end:
        raise Usage(end.code if isinstance(end.code, int) else BAD_USE)
    return options


def paths(options: argparse.Namespace, name: str, variable: str) -> List[str]:
    given: List[str] = getattr(options, name, []) + getattr(options, name + "_behind", [])
    return given or [path for path in os.environ.get(variable, "").split(":") if path]


def types_for(options: argparse.Namespace, program_dir: str) -> Types:
    protos = paths(options, "proto", "VU_MOM_PROTO")
    if not protos:
        raise ToolError("--proto: no .proto file is given, nor named by VU_MOM_PROTO")
    return compile_files(protos, paths(options, "include", "VU_MOM_PATH"), program_dir)


def store_for(options: argparse.Namespace) -> str:
    store = str(getattr(options, "store", "") or os.environ.get("VU_MOM_STORE", ""))
    if not store:
        raise ToolError("--store: no store is given, nor named by VU_MOM_STORE")
    return store


async def run(options: argparse.Namespace, program_dir: str) -> int:
    types = types_for(options, program_dir)
    try:
        client = Client(store_for(options))
    except ValueError as error:
        raise ToolError("--store: %s" % error)
    async with client:
        db, json = getattr(options, "db", 0), getattr(options, "json", False)
        context = Context(types, client, db, json)
        if options.command == "shell":
            return await shell(context, options)
        await RUNNERS[options.command](context, options)
    return 0


# ---- Several commands ---------------------------------------------------------------------


async def shell(context: Context, options: argparse.Namespace) -> int:
    if options.file == "-" and sys.stdin.isatty():
        return await dialogue(context)
    if options.file == "-":
        return await script(context, "standard input", sys.stdin)
    try:
        with open(options.file, encoding="utf-8") as file:
            lines = file.readlines()
    except (OSError, UnicodeError) as error:
        raise unusable("FILE", options.file, error)
    return await script(context, options.file, lines)


async def script(context: Context, name: str, lines: Iterable[str]) -> int:
    """Ends at the first error; where nothing was found it goes on."""
    worst = 0
    for number, line in enumerate(lines, 1):
        worst = max(worst, await run_line(context, line, "%s:%d: " % (name, number)))
        if worst >= BAD_USE:
            break
    return worst


async def dialogue(context: Context) -> int:
    """With a person, who may err. Ctrl-C ends a command or a line; Ctrl-D, exit and quit all."""
    import readline  # noqa: F401  # input() uses it

    loop = asyncio.get_running_loop()
    while True:
        signal.signal(signal.SIGINT, signal.default_int_handler)
        try:
            line = input("vu-mom> ")
        except KeyboardInterrupt:
            print()
            continue
        except EOFError:
            print()
            return 0
        if line.strip() in ("exit", "quit"):
            return 0
        if line.strip() in ("help", "?"):
            line = "--help"
        task = asyncio.ensure_future(run_line(context, line, ""))
        loop.add_signal_handler(signal.SIGINT, task.cancel)
        try:
            await task
        except asyncio.CancelledError:
            pass


async def run_line(context: Context, line: str, where: str) -> int:
    try:
        try:
            words = shlex.split(line, comments=True)
        except ValueError as error:
            raise ToolError(str(error).lower())
        if not words:
            return 0
        options = parse(words)
        for name in ("store", "proto", "proto_behind", "include", "include_behind"):
            if hasattr(options, name):
                raise ToolError("--%s belongs to the whole run" % name.partition("_")[0])
        if options.command == "shell":
            raise ToolError("shell cannot be used inside itself")
        db = getattr(options, "db", context.db)
        json = getattr(options, "json", context.json)
        await RUNNERS[options.command](context._replace(db=db, json=json), options)
    except Exception as error:
        return told(error, where)
    return 0


# ---- Errors -------------------------------------------------------------------------------


def told(error: Exception, where: str = "") -> int:
    """Says what went wrong; the exit status. Raises what is a fault of the tool."""
    if isinstance(error, Usage):
        return error.status
    if isinstance(error, ToolError):
        text, status = str(error), error.status
    elif isinstance(error, vu_mom.InputError):
        text, status = "the store refuses the arguments", BAD_USE
    elif isinstance(error, vu_mom.Error):
        text, status = str(error) or "the store refuses the command", STORE_FAILED
    elif isinstance(error, OSError) and not isinstance(error, BrokenPipeError):
        text, status = "the output cannot be written: %s" % error.strerror, STORE_FAILED
    elif isinstance(error, MemoryError):
        text, status = "out of memory", STORE_FAILED
    elif isinstance(error, OverflowError):
        text, status = "a number is too large: %s" % error, BAD_USE
    else:
        raise error
    if text:
        print("vu-mom: %s%s" % (where, text), file=sys.stderr, flush=True)
    return status


def complete(line: str, program_dir: str) -> None:
    parser, made = make_parser()

    def types_of(words: List[str]) -> Optional[Types]:
        """By the --proto and -I that were typed so far."""
        finder = argparse.ArgumentParser(add_help=False, allow_abbrev=False)
        finder.add_argument("--proto", action="append", default=[])
        finder.add_argument("-I", action="append", dest="include", default=[])
        options, _ = finder.parse_known_args(words)
        return types_for(options, program_dir)

    for candidate in candidates(line, parser, made, types_of):
        print(candidate)


def main(argv: Sequence[str], program_dir: str) -> int:
    if len(argv) == 2 and argv[0] == "--complete":
        complete(argv[1], program_dir)
        return 0
    command = ""
    try:
        options = parse(argv)
        command = str(options.command)
        return asyncio.run(run(options, program_dir))
    except KeyboardInterrupt:
        return 0 if command in ENDLESS else INTERRUPTED
    except BrokenPipeError:  # who reads has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except Exception as error:
        return told(error)
