"""The well-known types of protocol buffers.

They are the classes of the fields that a .proto file declares with google.protobuf.Timestamp,
Duration, the wrappers, Struct, FieldMask and Empty, and can be made like other messages. Beside the
fields they have what Python knows them as, under the names that python3-protobuf has for it.
"""

import datetime
import json

import vu_message as _message

_SECOND = 10**9  # nanoseconds
_EPOCH = datetime.datetime(1970, 1, 1)


def _cut(number, unit):
    """How many whole units a number is, towards zero."""
    return number // unit if number >= 0 else -(-number // unit)


class _JsonString(_message.Message):
    """What JSON has as a string."""

    __slots__ = ()

    def ToJsonString(self):
        """The string that is the message in JSON. EncodeError: it is out of range."""
        return json.loads(self.ToJson())

    def FromJsonString(self, value):
        """Sets the message from such a string. DecodeError: it is none."""
        if not isinstance(value, str):
            raise TypeError("FromJsonString: expected a str, got %s" % type(value).__name__)
        self.CopyFrom(type(self).FromJson(json.dumps(value)))


class Timestamp(_JsonString):
    """A point in time: seconds since 1970-01-01 in UTC, and nanoseconds from there on."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Timestamp")
    SECONDS_FIELD_NUMBER = 1
    NANOS_FIELD_NUMBER = 2

    def ToDatetime(self, tzinfo=None):
        """The time in UTC without a time zone, or with `tzinfo`; whole microseconds.
        OverflowError: not in the years 1 to 9999."""
        moment = _EPOCH + datetime.timedelta(
            seconds=self.seconds, microseconds=self.nanos // 1000
        )
        if tzinfo is None:
            return moment
        return moment.replace(tzinfo=datetime.timezone.utc).astimezone(tzinfo)

    def FromDatetime(self, dt):
        """Sets the time. A datetime without a time zone is in UTC."""
        offset = dt.utcoffset()
        passed = dt.replace(tzinfo=None) - _EPOCH
        if offset is not None:
            passed -= offset
        self.seconds = passed.days * 86400 + passed.seconds
        self.nanos = passed.microseconds * 1000

    def GetCurrentTime(self):
        """Sets the time of this machine's clock."""
        self.FromDatetime(datetime.datetime.now(datetime.timezone.utc))

    def ToNanoseconds(self):
        """Nanoseconds since 1970."""
        return self.seconds * _SECOND + self.nanos

    def ToMicroseconds(self):
        """Whole microseconds since 1970, towards the past."""
        return self.ToNanoseconds() // 10**3

    def ToMilliseconds(self):
        """Whole milliseconds since 1970, towards the past."""
        return self.ToNanoseconds() // 10**6

    def ToSeconds(self):
        """Whole seconds since 1970, towards the past."""
        return self.seconds

    def FromNanoseconds(self, nanos):
        """Sets the time from nanoseconds since 1970."""
        seconds, rest = divmod(nanos, _SECOND)
        self.seconds = seconds
        self.nanos = rest

    def FromMicroseconds(self, micros):
        """Sets the time from microseconds since 1970."""
        self.FromNanoseconds(micros * 10**3)

    def FromMilliseconds(self, millis):
        """Sets the time from milliseconds since 1970."""
        self.FromNanoseconds(millis * 10**6)

    def FromSeconds(self, seconds):
        """Sets the time from seconds since 1970."""
        self.FromNanoseconds(seconds * _SECOND)


class Duration(_JsonString):
    """A span of time: seconds and nanoseconds, both of the same sign."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Duration")
    SECONDS_FIELD_NUMBER = 1
    NANOS_FIELD_NUMBER = 2

    def ToTimedelta(self):
        """The span in whole microseconds, towards zero. OverflowError: too long for Python."""
        return datetime.timedelta(seconds=self.seconds, microseconds=_cut(self.nanos, 1000))

    def FromTimedelta(self, td):
        """Sets the span."""
        seconds = td.days * 86400 + td.seconds
        self.FromNanoseconds(seconds * _SECOND + td.microseconds * 1000)

    def ToNanoseconds(self):
        """The span in nanoseconds."""
        return self.seconds * _SECOND + self.nanos

    def ToMicroseconds(self):
        """The span in whole microseconds, towards zero."""
        return _cut(self.ToNanoseconds(), 10**3)

    def ToMilliseconds(self):
        """The span in whole milliseconds, towards zero."""
        return _cut(self.ToNanoseconds(), 10**6)

    def ToSeconds(self):
        """The span in whole seconds, towards zero."""
        return self.seconds

    def FromNanoseconds(self, nanos):
        """Sets the span from nanoseconds."""
        seconds = _cut(nanos, _SECOND)
        self.seconds = seconds
        self.nanos = nanos - seconds * _SECOND

    def FromMicroseconds(self, micros):
        """Sets the span from microseconds."""
        self.FromNanoseconds(micros * 10**3)

    def FromMilliseconds(self, millis):
        """Sets the span from milliseconds."""
        self.FromNanoseconds(millis * 10**6)

    def FromSeconds(self, seconds):
        """Sets the span from seconds."""
        self.FromNanoseconds(seconds * _SECOND)


class FieldMask(_JsonString):
    """Paths of fields."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.FieldMask")
    PATHS_FIELD_NUMBER = 1


class Empty(_message.Message):
    """A message without fields."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Empty")


# ---- What JSON can say

NULL_VALUE = 0


def _fields_for(value):
    """The fields of a Value that says the same as a Python value."""
    if value is None:
        return {"null_value": NULL_VALUE}
    if isinstance(value, bool):
        return {"bool_value": value}
    if isinstance(value, str):
        return {"string_value": value}
    if isinstance(value, Struct):
        return {"struct_value": value}
    if isinstance(value, ListValue):
        return {"list_value": value}
    if isinstance(value, dict):
        fields = {key: _fields_for(each) for key, each in value.items()}
        return {"struct_value": {"fields": fields}}
    if isinstance(value, (list, tuple)):
        return {"list_value": {"values": [_fields_for(each) for each in value]}}
    return {"number_value": value}  # the field refuses what is no number


def _python_for(value):
    """None, a bool, float or str, or the Struct or ListValue in a Value."""
    kind = value.WhichOneof("kind")
    return None if kind in (None, "null_value") else getattr(value, kind)


class Value(_message.Message):
    """Anything that JSON can say: null, a number, a string, a bool, a Struct or a ListValue."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Value")
    NULL_VALUE_FIELD_NUMBER = 1
    NUMBER_VALUE_FIELD_NUMBER = 2
    STRING_VALUE_FIELD_NUMBER = 3
    BOOL_VALUE_FIELD_NUMBER = 4
    STRUCT_VALUE_FIELD_NUMBER = 5
    LIST_VALUE_FIELD_NUMBER = 6


class Struct(_message.Message):
    """A JSON object, used as a dict. Its values are None, bool, float, str, Struct and ListValue;
    dicts and lists are taken too, and copied."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Struct")
    FIELDS_FIELD_NUMBER = 1

    def __len__(self):
        return len(self.fields)

    def __contains__(self, key):
        return key in self.fields

    def __iter__(self):
        return iter(self.fields)

    def __getitem__(self, key):
        if key not in self.fields:
            raise KeyError(key)
        return _python_for(self.fields[key])

    def __setitem__(self, key, value):
        self.fields[key] = _fields_for(value)

    def __delitem__(self, key):
        del self.fields[key]

    def keys(self):
        """The names, in ascending order."""
        return self.fields.keys()

    def values(self):
        """The values, by name."""
        return [self[key] for key in self]

    def items(self):
        """Pairs of name and value, by name."""
        return [(key, self[key]) for key in self]

    def update(self, values):
        """Sets the members of a dict or Struct, all or none of them."""
        self.fields.update({key: _fields_for(value) for key, value in values.items()})

    def get_or_create_struct(self, key):
        """The Struct under a name, which is made one."""
        self.fields[key].struct_value.SetInParent()
        return self.fields[key].struct_value

    def get_or_create_list(self, key):
        """The ListValue under a name, which is made one."""
        self.fields[key].list_value.SetInParent()
        return self.fields[key].list_value


class ListValue(_message.Message):
    """A JSON array, used as a list of what a Struct has for values."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.ListValue")
    VALUES_FIELD_NUMBER = 1

    def __len__(self):
        return len(self.values)

    def __iter__(self):
        return iter([_python_for(value) for value in self.values])

    def __getitem__(self, index):
        found = self.values[index]
        if isinstance(index, slice):
            return [_python_for(value) for value in found]
        return _python_for(found)

    def __setitem__(self, index, value):
        if isinstance(index, slice):
            self.values[index] = [_fields_for(each) for each in value]
        else:
            self.values[index] = _fields_for(value)

    def __delitem__(self, index):
        del self.values[index]

    def items(self):
        """The values, as a list."""
        return list(self)

    def append(self, value):
        """Adds a value at the end."""
        self.values.append(_fields_for(value))

    def extend(self, values):
        """Adds the values of an iterable at the end, all or none of them."""
        self.values.extend([_fields_for(value) for value in values])

    def add_struct(self):
        """Adds an empty Struct at the end and returns it."""
        return self.values.add(struct_value={}).struct_value

    def add_list(self):
        """Adds an empty ListValue at the end and returns it."""
        return self.values.add(list_value={}).list_value


# ---- Wrappers: scalars that are there or not


class DoubleValue(_message.Message):
    """A double."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.DoubleValue")
    VALUE_FIELD_NUMBER = 1


class FloatValue(_message.Message):
    """A float."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.FloatValue")
    VALUE_FIELD_NUMBER = 1


class Int64Value(_message.Message):
    """An int64."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Int64Value")
    VALUE_FIELD_NUMBER = 1


class UInt64Value(_message.Message):
    """A uint64."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.UInt64Value")
    VALUE_FIELD_NUMBER = 1


class Int32Value(_message.Message):
    """An int32."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.Int32Value")
    VALUE_FIELD_NUMBER = 1


class UInt32Value(_message.Message):
    """A uint32."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.UInt32Value")
    VALUE_FIELD_NUMBER = 1


class BoolValue(_message.Message):
    """A bool."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.BoolValue")
    VALUE_FIELD_NUMBER = 1


class StringValue(_message.Message):
    """A string."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.StringValue")
    VALUE_FIELD_NUMBER = 1


class BytesValue(_message.Message):
    """Bytes."""

    __slots__ = ()
    DESCRIPTOR = _message.descriptor("google.protobuf.BytesValue")
    VALUE_FIELD_NUMBER = 1
