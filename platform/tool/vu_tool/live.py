"""watch and top: what happens in a store, as it happens."""

from __future__ import annotations

import argparse
import asyncio
import collections
import sys
import time
from typing import Any, Coroutine, Counter, Dict, List, Type

from vu_aio import EventsMissed, Subscription
from vu_message import Message

from .commands import print_json
from .context import Context, Place, place_of, settled
from .errors import ToolError
from .tables import cell, lines_of, show, words
from .values import to_plain

EVENTS = {
    0: "expired",
    1: "set",
    3: "incr",
    4: "hmset",
    6: "hmsetnx",
    9: "hmupdate",
    10: "lpush",
    11: "rpush",
    12: "lpop",
    13: "rpop",
    18: "sadd",
    19: "srem",
    24: "publish",
    29: "deleted",
    34: "linsert",
    35: "lset",
    36: "lrem",
    39: "zadd",
    40: "zrem",
    41: "zremrangebyscore",
    42: "zremrangebyrank",
}


def places_of(context: Context, options: argparse.Namespace) -> List[Place]:
    if options.type is not None:
        return [place_of(context.types, options.type, options.words)]
    return [Place(cls, cls(), 0) for cls in context.types.named.values()]


def subscribed(context: Context, place: Place, fields: List[str]) -> Subscription[Any]:
    if not fields:
        return context.client.subscribe(context.db, place.obj, place.level)
    known = place.cls.DESCRIPTOR.fields_by_name
    for name in fields:
        if name not in known:
            raise ToolError("--field: %s has no field %r" % (place.cls.DESCRIPTOR.full_name, name))
    tags = [known[name].number for name in fields]
    return context.client.subscribe_field(context.db, place.obj, place.level, tags)


def values_of(change: Any) -> List[Message]:
    """The messages that a change carries."""
    result = change.result
    if result is None:
        return []
    if isinstance(result, Message):
        return [result]
    if hasattr(result, "messages"):
        return list(result.messages)
    if hasattr(result, "tags"):
        return [] if result.obj is None else [result.obj]
    return list(result)


def change_to_json(context: Context, cls: Type[Message], change: Any) -> Dict[str, Any]:
    plain: Dict[str, Any] = {
        "event": EVENTS.get(change.type_code, str(change.type_code)),
        "type": cls.DESCRIPTOR.full_name,
        "key": [cell_of_key(part) for part in change.key],
        "time": change.time,
    }
    names = {field.number: field.name for field in cls.DESCRIPTOR.fields}
    if change.tag:
        plain["field"] = names[change.tag]
    if hasattr(change.result, "tags"):
        plain["fields"] = [names[tag] for tag in change.result.tags]
    plain["values"] = [to_plain(context.types, value) for value in values_of(change)]
    if hasattr(change.result, "scores"):
        plain["scores"] = list(change.result.scores)
    return plain


def cell_of_key(part: Any) -> Any:
    return part.decode("utf-8", "backslashreplace") if isinstance(part, bytes) else part


def print_change(context: Context, cls: Type[Message], change: Any) -> None:
    if context.json:
        print_json(change_to_json(context, cls, change))
        return
    at = time.strftime("%H:%M:%S", time.localtime(change.time))
    plain = change_to_json(context, cls, change)
    key = "/".join(cell(part) for part in plain["key"])
    event = plain["event"] + ("(%s)" % plain["field"] if "field" in plain else "")
    start = "%s  %-9s  %s %s" % (at, event, plain["type"], key)
    values = ["  " + words(context.types, value) for value in values_of(change)]
    show([(start + value).rstrip() for value in values or [""]])


async def watch(context: Context, options: argparse.Namespace) -> None:
    if options.field and options.type is None:
        raise ToolError("--field: a TYPE must be given")
    places = places_of(context, options)
    left = options.count if options.count is not None else -1
    enough = asyncio.Event()

    async def follow(place: Place, changes: Subscription[Any]) -> None:
        nonlocal left
        async for change in lasting(context, changes):
            print_change(context, place.cls, change)
            left -= 1
            if left == 0:
                enough.set()
                return

    readers: List[Coroutine[Any, Any, None]] = []
    for place in places:
        readers.append(follow(place, subscribed(context, place, options.field or [])))
    await settled(context, places[0].obj)
    names = ", ".join(place.cls.DESCRIPTOR.full_name for place in places)
    print("vu-mom: watching %s" % names, file=sys.stderr, flush=True)
    await run_until(enough, options.seconds, readers)


async def lasting(context: Context, changes: Subscription[Any]) -> Any:
    """The changes; what may be missing among them is told on the side."""
    while True:
        try:
            async for change in changes:
                yield change
            return
        except EventsMissed as missed:
            if context.json:
                print_json({"event": "missed", "error": str(missed)})
            else:
                print("vu-mom: %s" % missed, file=sys.stderr, flush=True)


async def run_until(
    enough: asyncio.Event, seconds: Any, tasks: List[Coroutine[Any, Any, None]]
) -> None:
    """Until it is enough, the time is over, or a task fails."""
    running = [asyncio.ensure_future(task) for task in tasks]

    async def all_of_them() -> None:
        await asyncio.gather(*running)

    ends = [asyncio.ensure_future(all_of_them()), asyncio.ensure_future(enough.wait())]
    try:
        await asyncio.wait(ends, timeout=seconds, return_when=asyncio.FIRST_COMPLETED)
        if ends[0].done():
            ends[0].result()
    finally:
        for task in [*ends, *running]:
            task.cancel()
        await asyncio.gather(*ends, *running, return_exceptions=True)


# ---- top ---------------------------------------------------------------------------------

# By name in JSON: the heading, for which a terminal has less room.
COLUMNS = {
    "set": "SET/S", "publish": "PUB/S", "deleted": "DEL/S", "expired": "EXP/S", "other": "OTHER/S"
}


def column_of(type_code: int) -> str:
    """`set` stands for all that write a whole value."""
    named = {0: "expired", 1: "set", 24: "publish", 29: "deleted"}
    return named.get(type_code, "other")


class Meter:
    """Counts of one type."""

    def __init__(self, place: Place) -> None:
        self.place = place
        self.objects = 0
        self.total = 0
        self.counted: Counter[str] = collections.Counter()

    async def listen(self, context: Context, changes: Subscription[Any]) -> None:
        async for change in lasting(context, changes):
            self.counted[column_of(change.type_code)] += 1
            self.total += 1

    async def count(self, context: Context) -> None:
        self.objects = 0
        objects = 0
        async for _ in context.client.scan_index(context.db, self.place.obj, self.place.level):
            objects += 1
        self.objects = objects

    def take(self, seconds: float) -> Dict[str, float]:
        """Changes per second since the last time."""
        rates = {column: round(self.counted[column] / seconds, 1) for column in COLUMNS}
        self.counted.clear()
        return rates


async def top(context: Context, options: argparse.Namespace) -> None:
    """Counts every object anew for each report: the time between reports is at least ten times
    what that takes."""
    meters = [Meter(place) for place in places_of(context, options)]
    readers: List[Coroutine[Any, Any, None]] = [
        meter.listen(context, subscribed(context, meter.place, [])) for meter in meters
    ]
    enough = asyncio.Event()

    async def report() -> None:
        before = time.monotonic()
        left = options.count if options.count is not None else -1
        pause = options.interval
        while left != 0:
            await asyncio.sleep(pause)
            start = time.monotonic()
            for meter in meters:
                await meter.count(context)
            now = time.monotonic()
            pause = max(options.interval, 10 * (now - start))
            print_meters(context, meters, now - before)
            before = now
            left -= 1
        enough.set()

    await run_until(enough, None, readers + [report()])


def print_meters(context: Context, meters: List[Meter], seconds: float) -> None:
    rows = []
    for meter in meters:
        name = meter.place.cls.DESCRIPTOR.full_name
        rates = meter.take(seconds)
        if context.json:
            plain = {"type": name, "objects": meter.objects, "changes": meter.total}
            print_json(dict(plain, per_second=rates, seconds=round(seconds, 3)))
        else:
            rates_text = ["%.1f" % rate for rate in rates.values()]
            rows.append([name, str(meter.objects), str(meter.total), *rates_text])
    if not context.json:
        if sys.stdout.isatty():
            print("\033[H\033[J", end="")
        headings = ["TYPE", "OBJECTS", "CHANGES", *COLUMNS.values()]
        show(lines_of(headings, rows) + [""])
