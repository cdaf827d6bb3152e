"""Messages as JSON values, and from JSON values and from words such as `name=value`.

The JSON is that of protocol buffers: 64-bit integers as strings, bytes as base64, enums by name,
with the field names of the .proto file. Only that of the well-known types is made by Message.ToJson,
which knows no groups and no text that is not UTF-8, leaves out the parts of a key that are 0, cannot
show a hash's fields alone, and in whose errors (FromJson's) what would be right is not named.
"""

from __future__ import annotations

import base64
import binascii
import json
import math
import struct
from typing import Any, Callable, Dict, Iterable, List, Optional, Type

from vu_message import EncodeError, Message

from .errors import ToolError
from .protos import Types

# FieldDescriptorProto.Type
DOUBLE, FLOAT, INT64, UINT64, INT32, FIXED64, FIXED32, BOOL, STRING = range(1, 10)
GROUP, MESSAGE, BYTES, UINT32, ENUM, SFIXED32, SFIXED64, SINT32, SINT64 = range(10, 19)
WIDE = (INT64, UINT64, FIXED64, SFIXED64, SINT64)
MESSAGES = (GROUP, MESSAGE)
REPEATED = 3  # FieldDescriptorProto.Label


class Text(str):
    """A value as the user wrote it, still to be read by the type of its field."""


# ---- To JSON -----------------------------------------------------------------------------


def shortest_float(value: float) -> float:
    """The float that prints shortest of those that a 32-bit float cannot tell apart."""
    for digits in (6, 7, 8):
        short = float("%.*g" % (digits, value))
        if struct.pack("f", short) == struct.pack("f", value):
            return short
    return value


def float_to_plain(value: float) -> Any:
    if math.isfinite(value):
        return value
    return "NaN" if math.isnan(value) else "Infinity" if value > 0 else "-Infinity"


def scalar_to_plain(types: Types, field: Any, value: Any) -> Any:
    if field.type in WIDE:
        return str(value)
    if field.type == BYTES:
        return base64.b64encode(value).decode()
    if field.type in (DOUBLE, FLOAT):
        finite = field.type == FLOAT and math.isfinite(value)
        return float_to_plain(shortest_float(value) if finite else value)
    if field.type == ENUM:
        names = {number: name for name, number in reversed(types.enum_names(field).items())}
        return names.get(value, int(value))
    return value


def field_to_plain(types: Types, field: Any, value: Any) -> Any:
    entry = types.entry(field)
    if entry is not None:
        return {
            key_to_plain(key): single_to_plain(types, entry[1], value[key]) for key in sorted(value)
        }
    if field.label == REPEATED:
        return [single_to_plain(types, field, element) for element in value]
    return single_to_plain(types, field, value)


def key_to_plain(key: Any) -> str:
    return str(key).lower() if isinstance(key, bool) else str(key)


def is_well_known(cls: Type[Message]) -> bool:
    return cls.__module__ == "vu_well_known"


def well_known_to_plain(types: Types, message: Message) -> Any:
    try:
        return json.loads(message.ToJson())
    except EncodeError:  # such as a time out of range: its fields are all there is to say
        return to_plain(types, message)


def single_to_plain(types: Types, field: Any, value: Any) -> Any:
    if field.type not in MESSAGES:
        return scalar_to_plain(types, field, value)
    if is_well_known(type(value)):
        return well_known_to_plain(types, value)
    return to_plain(types, value)


def to_plain(
    types: Types, message: Message, only: Optional[Iterable[int]] = None
) -> Dict[str, Any]:
    """The fields that are set, or those of these numbers; key fields always."""
    set_fields = {field.number: field for field, _ in message.ListFields()}
    if only is not None:
        set_fields = {number: set_fields[number] for number in only if number in set_fields}
    for field in message.DESCRIPTOR.key_fields:
        set_fields[field.number] = field
    return {
        field.name: field_to_plain(types, types.field(field), getattr(message, field.name))
        for field in sorted(set_fields.values(), key=lambda field: field.number)
    }


# ---- From JSON and from words -----------------------------------------------------------------


def wrong(path: str, expected: str, value: Any) -> ToolError:
    shown = value if isinstance(value, Text) else json.dumps(value)
    return ToolError("%s: expected %s, not %s" % (path, expected, shown))


def integer_from(path: str, value: Any) -> int:
    if isinstance(value, str):
        try:
            return int(value, 0 if isinstance(value, Text) else 10)
        except ValueError:
            pass
    elif not isinstance(value, bool) and isinstance(value, (int, float)) and value == int(value):
        return int(value)
    raise wrong(path, "an integer", value)


def float_from(path: str, value: Any) -> float:
    if isinstance(value, (int, float, str)) and not isinstance(value, bool):
        try:
            return float(value)
        except ValueError:
            pass
    raise wrong(path, "a number", value)


def bool_from(path: str, value: Any) -> bool:
    if isinstance(value, bool):
        return value
    if isinstance(value, Text) and value.lower() in ("true", "1", "yes", "false", "0", "no"):
        return value.lower() in ("true", "1", "yes")
    raise wrong(path, "true or false", value)


def string_from(path: str, value: Any) -> str:
    if not isinstance(value, str):
        raise wrong(path, "a string", value)
    return str(value)


def bytes_from(path: str, value: Any) -> bytes:
    if isinstance(value, Text):
        return value.encode("utf-8", "surrogateescape")
    try:
        return base64.b64decode(string_from(path, value), validate=True)
    except binascii.Error:
        raise wrong(path, "base64", value)


READERS: Dict[int, Callable[[str, Any], Any]] = {
    DOUBLE: float_from,
    FLOAT: float_from,
    BOOL: bool_from,
    STRING: string_from,
    BYTES: bytes_from,
}


def enum_from(types: Types, field: Any, path: str, value: Any) -> int:
    names = types.enum_names(field)
    if isinstance(value, str) and value in names:
        return names[value]
    try:
        return integer_from(path, value)
    except ToolError:
        raise wrong(path, "one of " + ", ".join(names), value)


def well_known_from(path: str, cls: Type[Message], value: Any) -> Message:
    """From JSON, which as a word needs no quotes."""
    texts = [str(value), json.dumps(value)] if isinstance(value, Text) else [json.dumps(value)]
    for text in texts:
        try:
            return cls.FromJson(text)
        except ValueError:
            pass
    raise wrong(path, cls.DESCRIPTOR.full_name, value)


def single_from(types: Types, field: Any, path: str, cls: Type[Message], value: Any) -> Any:
    """`cls` is the class of the messages of a field of messages."""
    if field.type in MESSAGES and is_well_known(cls):
        return well_known_from(path, cls, value)
    if field.type in MESSAGES:
        return from_plain(types, cls, unquoted(path, value), path + ".")
    if field.type == ENUM:
        return enum_from(types, field, path, value)
    return READERS.get(field.type, integer_from)(path, value)


def unquoted(path: str, value: Any) -> Any:
    """What a word that is JSON says."""
    if not isinstance(value, Text):
        return value
    try:
        return json.loads(value)
    except ValueError:
        raise wrong(path, "JSON", value)


def key_from(field: Any, path: str, key: str) -> Any:
    return READERS.get(field.type, integer_from)(path, Text(key))


def field_from(types: Types, descriptor: Any, path: str, value: Any) -> Any:
    field = types.field(descriptor)
    cls = descriptor.message_type.message_class if descriptor.message_type else None
    entry = types.entry(field)
    if entry is not None:
        entries = unquoted(path, value)
        if not isinstance(entries, dict):
            raise wrong(path, "an object", entries)
        return {
            key_from(entry[0], path, key): single_from(types, entry[1], path + "." + key, cls, each)
            for key, each in entries.items()
        }
    if field.label == REPEATED:
        if isinstance(value, Text):
            value = unquoted(path, value)
        if not isinstance(value, list):
            raise wrong(path, "a list", value)
        return [
            single_from(types, field, "%s[%d]" % (path, number), cls, each)
            for number, each in enumerate(value)
        ]
    return single_from(types, field, path, cls, value)


def from_plain(types: Types, cls: Type[Message], plain: Any, path: str = "") -> Message:
    """A message. Errors name the field by its path; nothing is left out."""
    if not isinstance(plain, dict):
        raise wrong(path.rstrip(".") or cls.DESCRIPTOR.full_name, "an object", plain)
    fields = cls.DESCRIPTOR.fields_by_name
    values = {}
    for name, value in plain.items():
        if name not in fields:
            there = ", ".join(fields) or "none"
            raise ToolError(
                "%s%s: %s has no such field; there are: %s"
                % (path, name, cls.DESCRIPTOR.full_name, there)
            )
        if value is not None:
            values[name] = field_from(types, fields[name], path + name, value)
    try:
        return cls(**values)
    except (TypeError, ValueError, OverflowError) as error:
        raise ToolError("%s%s" % (path, error))


def tree_of(types: Types, cls: Type[Message], words: Iterable[str]) -> Dict[str, Any]:
    """What from_plain takes, from `name=value`, `name.inner=value`, `map.key=value`; a
    repeated field is named once per element, or given a JSON list."""
    tree: Dict[str, Any] = {}
    for word in words:
        name, equals, text = word.partition("=")
        if not equals:
            raise ToolError("expected NAME=VALUE, not %r" % word)
        insert(types, cls, tree, name.split("."), Text(text), name)
    return tree


def insert(
    types: Types,
    cls: Type[Message],
    tree: Dict[str, Any],
    path: List[str],
    text: Text,
    whole: str,
) -> None:
    name, rest = path[0], path[1:]
    descriptor = cls.DESCRIPTOR.fields_by_name.get(name)
    if descriptor is None:
        tree[name] = text  # from_plain says what is wrong with it
        return
    field = types.field(descriptor)
    if rest and types.entry(field) is not None:
        entries = tree.setdefault(name, {})
        if isinstance(entries, dict) and ".".join(rest) not in entries:
            entries[".".join(rest)] = text
            return
    elif rest:
        inner = tree.setdefault(name, {})
        if descriptor.message_type is None or field.label == REPEATED:
            raise ToolError("%s: %s is no message" % (whole, descriptor.full_name))
        if isinstance(inner, dict):
            insert(types, descriptor.message_type.message_class, inner, rest, text, whole)
            return
    elif name not in tree:
        one_of_many = field.label == REPEATED and types.entry(field) is None
        tree[name] = [text] if one_of_many and not text.startswith("[") else text
        return
    elif isinstance(tree[name], list):
        tree[name].append(text)
        return
    raise ToolError("%s is given twice" % whole)
