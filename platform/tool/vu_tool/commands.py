"""The commands that ask or change once: get, set, scan, publish, ttl, del."""

from __future__ import annotations

import argparse
import json
import math
from typing import Any, List, Optional, Sequence

from vu_message import Message

from .context import Context, Place, message_of, objects_of, place_of, settled
from .errors import NotFound, StoreFailed, ToolError
from .records import HASH, SINGLE, ZSET, Record, add, found, key_names, key_of, to_json
from .tables import sheet, show, table

QUIET, KEEP = 1, 2  # bits of the flag of `set`


def print_json(plain: Any) -> None:
    print(json.dumps(plain, ensure_ascii=False), flush=True)


async def read_one(context: Context, obj: Message) -> Optional[Record]:
    """An object of whatever kind."""
    level = len(obj.DESCRIPTOR.key_fields)
    for msg in await context.client.scan(context.db, obj, level):
        return found(type(obj), msg)
    return None


async def get(context: Context, options: argparse.Namespace) -> None:
    place = place_of(context.types, options.type, options.words)
    if not place.is_one_object:
        missing = key_names(place.cls)[place.level :]
        raise ToolError("the key lacks %s; scan reads several objects" % ", ".join(missing))
    record = await read_one(context, place.obj)
    if record is None:
        raise NotFound("nothing is stored there")
    if context.json:
        print_json(to_json(context.types, record))
    else:
        show(sheet(context.types, record))


async def set_(context: Context, options: argparse.Namespace) -> None:
    message, given = message_of(context.types, options.type, options.words)
    kind = options.kind
    if kind == ZSET and options.score is None:
        raise ToolError("--kind zset needs a --score")
    if kind != ZSET and options.score is not None:
        raise ToolError("--score belongs to --kind zset")
    if kind != SINGLE and (options.new or options.keep or options.quiet):
        raise ToolError("--new, --keep and --quiet belong to --kind single")
    client = context.client
    if options.new:
        if not await client.setnx(context.db, message):
            raise NotFound("something is stored there already")
        return
    if kind == SINGLE:
        flag = (QUIET if options.quiet else 0) | (KEEP if options.keep else 0)
        client.set(context.db, message, flag)
    else:
        fields = type(message).DESCRIPTOR.fields_by_name
        tags = tuple(fields[name].number for name in given if not fields[name].key)
        if kind == HASH and not tags:
            raise ToolError("no field is given besides the key")
        scores = (options.score,) if kind == ZSET else ()
        add(client, context.db, Record(kind, type(message), (), [message], tags, scores))
    await settled(context, message)
    stored = await read_one(context, message)
    if stored is not None and stored.kind != kind:
        raise StoreFailed("nothing was changed: the object is a %s, not a %s" % (stored.kind, kind))


async def scan(context: Context, options: argparse.Namespace) -> None:
    if options.type is None:
        places = [Place(cls, cls(), 0) for cls in context.types.named.values()]
    else:
        places = [place_of(context.types, options.type, options.words)]
    count = 0
    for place in places:
        count += await scan_place(context, options, place, len(places) > 1, count)
    if count == 0:
        raise NotFound("" if options.type is None or context.json else "nothing is stored there")


async def scan_place(
    context: Context, options: argparse.Namespace, place: Place, titled: bool, before: int
) -> int:
    """How many objects were shown."""
    records: List[Record] = []
    shown = 0
    objects = keys_of if options.keys else records_of
    async for record in objects(context, place):
        if options.limit is not None and before + shown >= options.limit:
            break
        shown += 1
        if context.json:
            plain = to_json(context.types, record)
            print_json({"type": plain["type"], "key": plain["value"]} if options.keys else plain)
        else:
            records.append(record)
    if records:
        records.sort(key=lambda record: record.key)
        title = [place.cls.DESCRIPTOR.full_name] if titled else []
        gap = [""] if titled and before else []
        show(gap + title + table(context.types, records))
    return shown


async def records_of(context: Context, place: Place) -> Any:
    async for msg in context.client.scan(context.db, place.obj, place.level):
        yield found(place.cls, msg)


async def keys_of(context: Context, place: Place) -> Any:
    async for obj in context.client.scan_index(context.db, place.obj, place.level):
        yield Record(SINGLE, place.cls, key_of(obj), [obj])


async def publish(context: Context, options: argparse.Namespace) -> None:
    message, _ = message_of(context.types, options.type, options.words)
    context.client.publish(context.db, message)
    await settled(context, message)


def report(context: Context, place: Place, keys: Sequence[Any]) -> None:
    """How many objects a command has acted on."""
    if context.json:
        name = place.cls.DESCRIPTOR.full_name
        print_json({"type": name, "objects": len(keys)})
    else:
        print("%d object%s" % (len(keys), "" if len(keys) == 1 else "s"))
    if not keys:
        raise NotFound("")


def seconds_of(text: str) -> Optional[float]:
    if text == "none":
        return None
    try:
        seconds = float(text)
    except ValueError:
        seconds = math.nan
    if not math.isfinite(seconds):
        raise ToolError("SECONDS: expected a number or none, not %r" % text)
    return seconds


async def ttl(context: Context, options: argparse.Namespace) -> None:
    seconds = seconds_of(options.seconds)
    place = objects_of(context.types, options.type, options.words, options.all)
    client, db = context.client, context.db
    fields = place.cls.DESCRIPTOR.fields_by_name
    for name in options.field or ():
        if name not in fields:
            raise ToolError("--field: %s has no field %r" % (place.cls.DESCRIPTOR.full_name, name))
    tags = [fields[name].number for name in options.field or ()]
    if tags and seconds is None:
        raise ToolError("SECONDS: a lifetime of a field is ended by writing the field, not by none")
    if seconds is None:
        keys = await client.del_expire(db, place.obj, place.level)
    elif tags:
        keys = await client.pexpire_fields(db, place.obj, place.level, tags, seconds)
    else:
        keys = await client.pexpire(db, place.obj, place.level, seconds)
    report(context, place, keys)


async def del_(context: Context, options: argparse.Namespace) -> None:
    place = objects_of(context.types, options.type, options.words, options.all)
    report(context, place, await context.client.pdel(context.db, place.obj, place.level))


