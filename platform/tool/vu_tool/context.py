"""What the commands of one run share, and what they are said to act on."""

from __future__ import annotations

import json
from typing import Any, List, NamedTuple, Sequence, Tuple, Type

import vu_mom
from vu_aio import Client
from vu_message import Message

from .errors import StoreFailed, ToolError
from .protos import Types
from .records import key_names
from .values import from_plain, tree_of


class Context(NamedTuple):
    types: Types
    client: Client
    db: int
    json: bool


class Place(NamedTuple):
    """Objects of a type: those that match the first `level` key components of `obj`."""

    cls: Type[Message]
    obj: Message
    level: int

    @property
    def is_one_object(self) -> bool:
        return self.level == len(self.cls.DESCRIPTOR.key_fields)


def place_of(types: Types, name: str, words: Sequence[str]) -> Place:
    """The objects that a type and some key fields name."""
    cls = types.find(name)
    tree = tree_of(types, cls, words)
    keys = key_names(cls)
    full_name = cls.DESCRIPTOR.full_name
    for given in tree:
        if given in cls.DESCRIPTOR.fields_by_name and given not in keys:
            there = "those are: " + ", ".join(keys) if keys else "there are none"
            raise ToolError("%s is no key field of %s; %s" % (given, full_name, there))
    obj = from_plain(types, cls, tree)
    level = len(tree)
    missing = [name for name in keys[:level] if name not in tree]
    if missing:
        raise ToolError(
            "%s must be given too: it comes first in the key of %s" % (missing[0], full_name)
        )
    return Place(cls, obj, level)


def objects_of(types: Types, name: str, words: Sequence[str], all_of_them: bool) -> Place:
    """The same for commands that change: several objects only where the user says so."""
    place = place_of(types, name, words)
    if not place.is_one_object and not all_of_them:
        missing = key_names(place.cls)[place.level :]
        raise ToolError(
            "the key lacks %s; --all acts on every object that matches" % ", ".join(missing)
        )
    return place


def message_of(types: Types, name: str, words: Sequence[str]) -> Tuple[Message, List[str]]:
    """A message with its whole key, from words or from one JSON object; the names given."""
    cls = types.find(name)
    tree: Any
    if len(words) == 1 and words[0].startswith("{"):
        tree = parse_json(words[0])
    else:
        tree = tree_of(types, cls, words)
    message = from_plain(types, cls, tree)
    for key in key_names(cls):
        if key not in tree:
            raise ToolError("the key lacks %s" % key)
    return message, list(tree)


def parse_json(text: str) -> Any:
    try:
        return json.loads(text)
    except ValueError as error:
        raise ToolError("no JSON: %s" % error)


async def settled(context: Context, obj: Message) -> None:
    """Returns when the store has done what was sent before; raises where it could not."""
    level = len(obj.DESCRIPTOR.key_fields)
    try:
        await context.client.scan_index(context.db, obj, level)
    except vu_mom.Error as error:
        raise StoreFailed("the store did not confirm it: %s" % error)
