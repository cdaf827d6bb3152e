"""Messages of protobuf's own Python classes with something in every field."""

from google.protobuf.descriptor import FieldDescriptor as Field
from typing import Any

INTEGERS = {
    Field.TYPE_INT32: 31,
    Field.TYPE_SINT32: 31,
    Field.TYPE_SFIXED32: 31,
    Field.TYPE_INT64: 63,
    Field.TYPE_SINT64: 63,
    Field.TYPE_SFIXED64: 63,
}
NATURALS = {
    Field.TYPE_UINT32: 32,
    Field.TYPE_FIXED32: 32,
    Field.TYPE_UINT64: 64,
    Field.TYPE_FIXED64: 64,
}
OTHERS = {
    # Without -0.0, whose sign protobuf's implementation in Python loses.
    Field.TYPE_DOUBLE: [0.1, -2.5e300, float("inf"), float("-inf"), 0.0, 5e-324],
    # Not the largest: json_format refuses it in the form in which libprotobuf prints it.
    Field.TYPE_FLOAT: [0.10000000149011612, 1.0000000150474662e30, float("-inf"), 0.0, -1.5],
    Field.TYPE_BOOL: [True, False],
    Field.TYPE_STRING: ["text", "", 'é \U0001f40d "quoted" \\ <b>&\u2028\n\0', "x" * 300],
    Field.TYPE_BYTES: [b"data", b"", bytes(range(256)), b"\xff\xfe"],
}
VARIANTS = 5
DEPTH = 3

# What JSON has a form of its own for, in the ranges that it can say.
WELL_KNOWN: dict[str, Any] = {
    "Timestamp": [(0, 0), (1700000000, 123456789), (-62135596800, 0), (253402300799, 999999999)],
    "Duration": [(0, 0), (1, 500000000), (-1, -500000000), (315576000000, 0), (0, -1)],
    "FieldMask": [["a", "foo_bar.baz"], []],
}


def values_of(field):
    if field.type in INTEGERS:
        most = 2 ** INTEGERS[field.type]
        return [1, -most, most - 1, 0, -1]
    if field.type in NATURALS:
        return [1, 2 ** NATURALS[field.type] - 1, 0]
    if field.type == Field.TYPE_ENUM:
        return [value.number for value in field.enum_type.values]
    return OTHERS[field.type]


def value_of(field, variant):
    values = values_of(field)
    return values[variant % len(values)]


def is_map(field):
    return field.message_type is not None and field.message_type.GetOptions().map_entry


def fill_map(field, target, variant, depth):
    key, value = field.message_type.fields
    for number in (variant, variant + 1):
        if value.message_type is None:
            target[value_of(key, number)] = value_of(value, number)
        elif depth > 0:
            fill(target[value_of(key, number)], number, depth - 1)


def fill_field(message, field, variant, depth):
    target = getattr(message, field.name)
    if is_map(field):
        fill_map(field, target, variant, depth)
    elif field.message_type is not None:
        if depth > 0:
            repeated = field.label == Field.LABEL_REPEATED
            for part in [target.add(), target.add()] if repeated else [target]:
                part.SetInParent()
                fill(part, variant, depth - 1)
    elif field.label == Field.LABEL_REPEATED:
        target.extend(value_of(field, variant + more) for more in range(variant % 4))
    else:
        setattr(message, field.name, value_of(field, variant))


def fill(message, variant, depth=DEPTH):
    """Sets every field, of each oneof one; another value and member for each variant."""
    descriptor = message.DESCRIPTOR
    if descriptor.file.package == "google.protobuf" and descriptor.name in WELL_KNOWN:
        values = WELL_KNOWN[descriptor.name][variant % len(WELL_KNOWN[descriptor.name])]
        if descriptor.name == "FieldMask":
            message.paths.extend(values)
        else:
            message.seconds, message.nanos = values
        return message
    if descriptor.full_name == "google.protobuf.Value":
        kind = ("string_value", "null_value", "bool_value", "number_value")[variant % 4]
        setattr(message, kind, {"string_value": "x", "number_value": 2.5}.get(kind, 0))
        return message
    if descriptor.full_name == "google.protobuf.Any":
        return message  # what is in it is another matter
    for field in descriptor.fields:
        oneof = field.containing_oneof
        if oneof is None or oneof.fields[variant % len(oneof.fields)] is field:
            fill_field(message, field, variant, depth)
    return message
