"""Objects of a store: as a scan finds them, as lines of JSON, and back."""

from __future__ import annotations

from typing import Any, Dict, List, NamedTuple, Tuple, Type

from vu_aio import Client
from vu_message import Message
from vu_mom_common import PubSubMsg

from .errors import ToolError
from .protos import Types
from .values import float_from, float_to_plain, from_plain, to_plain

KINDS = {1: "single", 4: "hash", 10: "list", 18: "set", 39: "zset"}  # by type code of a scan
SINGLE, HASH, LIST, SET, ZSET = KINDS.values()


class Record(NamedTuple):
    """An object: what it holds, in order; `tags` of a hash, `scores` of a sorted set."""

    kind: str
    cls: Type[Message]
    key: Tuple[Any, ...]
    values: List[Message]
    tags: Tuple[int, ...] = ()
    scores: Tuple[float, ...] = ()


def found(cls: Type[Message], msg: PubSubMsg[Any]) -> Record:
    kind = KINDS[msg.type_code]
    if kind == SINGLE:
        return Record(kind, cls, msg.key, [msg.result])
    if kind == HASH:
        return Record(kind, cls, msg.key, [msg.result.obj], tags=msg.result.tags)
    if kind == ZSET:
        result = msg.result
        return Record(kind, cls, msg.key, list(result.messages), scores=result.scores)
    return Record(kind, cls, msg.key, list(msg.result))


def to_json(types: Types, record: Record) -> Dict[str, Any]:
    plain: Dict[str, Any] = {"type": record.cls.DESCRIPTOR.full_name, "kind": record.kind}
    if record.kind == SINGLE:
        plain["value"] = to_plain(types, record.values[0])
    elif record.kind == HASH:
        names = {field.number: field.name for field in record.cls.DESCRIPTOR.fields}
        plain["fields"] = [names[tag] for tag in record.tags]
        plain["value"] = to_plain(types, record.values[0], record.tags)
    else:
        plain["values"] = [to_plain(types, value) for value in record.values]
    if record.kind == ZSET:
        plain["scores"] = [float_to_plain(score) for score in record.scores]
    return plain


def member(plain: Dict[str, Any], name: str, kind: type) -> Any:
    value = plain.get(name)
    if not isinstance(value, kind):
        what = {"str": "a string", "list": "a list", "dict": "an object"}[kind.__name__]
        raise ToolError("%r must be %s" % (name, what))
    return value


def key_names(cls: Type[Message]) -> List[str]:
    """The key fields, in the order of their positions."""
    fields = sorted(cls.DESCRIPTOR.key_fields, key=lambda field: field.key)
    return [field.name for field in fields]


def key_of(message: Message) -> Tuple[Any, ...]:
    return tuple(getattr(message, name) for name in key_names(type(message)))


def from_json(types: Types, plain: Any) -> Record:
    if not isinstance(plain, dict):
        raise ToolError("expected an object with \"type\", \"kind\" and a value")
    cls = types.find(member(plain, "type", str))
    kind = member(plain, "kind", str)
    if kind not in KINDS.values():
        raise ToolError("'kind' must be one of %s" % ", ".join(KINDS.values()))
    if kind in (SINGLE, HASH):
        message = from_plain(types, cls, member(plain, "value", dict))
        values = [message]
    else:
        values = [from_plain(types, cls, each) for each in member(plain, "values", list)]
        if not values:
            raise ToolError("'values' must not be empty")
        if any(key_of(value) != key_of(values[0]) for value in values):
            raise ToolError("'values' must all have the same key")
    tags: Tuple[int, ...] = ()
    if kind == HASH:
        fields = cls.DESCRIPTOR.fields_by_name
        names = member(plain, "fields", list)
        unknown = [name for name in names if name not in fields]
        if unknown:
            raise ToolError("'fields' names no field of %s: %s" % (plain["type"], unknown[0]))
        if not names:
            raise ToolError("'fields' must not be empty")
        tags = tuple(fields[name].number for name in names)
    scores: Tuple[float, ...] = ()
    if kind == ZSET:
        scores = tuple(float_from("scores", score) for score in member(plain, "scores", list))
        if len(scores) != len(values):
            raise ToolError("'scores' must have as many elements as 'values'")
        if any(score != score for score in scores):
            raise ToolError("'scores' must not hold NaN")
    return Record(kind, cls, key_of(values[0]), values, tags, scores)


def put(client: Client, db: int, record: Record) -> None:
    """Stores an object as it was, in place of what is there."""
    first = record.values[0]
    client.delete(db, first)
    if record.kind == SINGLE:
        client.set(db, first)
    else:
        add(client, db, record)


def add(client: Client, db: int, record: Record) -> None:
    """Adds fields, elements or members to an object of a kind that has several."""
    if record.kind == HASH:
        client.hmset(db, record.values[0], record.tags)
    elif record.kind == LIST:
        for value in record.values:
            client.rpush(db, value)
    elif record.kind == SET:
        for value in record.values:
            client.sadd(db, value)
    else:
        client.zadd(db, record.scores, record.values)
