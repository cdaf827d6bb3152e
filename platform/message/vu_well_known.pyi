import datetime
from typing import (
    Any,
    ClassVar,
    Iterable,
    Iterator,
    KeysView,
    List,
    Mapping,
    Optional,
    Tuple,
    Union,
    overload,
)

import vu_message

NULL_VALUE: int

class _JsonString(vu_message.Message):
    """What JSON has as a string."""

    def ToJsonString(self) -> str:
        """The string that is the message in JSON. EncodeError: it is out of range."""
    def FromJsonString(self, value: str) -> None:
        """Sets the message from such a string. DecodeError: it is none."""

class Timestamp(_JsonString):
    """A point in time: seconds since 1970-01-01 in UTC, and nanoseconds from there on."""

    SECONDS_FIELD_NUMBER: ClassVar[int]
    NANOS_FIELD_NUMBER: ClassVar[int]
    seconds: vu_message.Field[int, int]
    nanos: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, seconds: Optional[int] = ..., nanos: Optional[int] = ...) -> None: ...
    def ToDatetime(self, tzinfo: Optional[datetime.tzinfo] = ...) -> datetime.datetime:
        """The time in UTC without a time zone, or with `tzinfo`; whole microseconds.
        OverflowError: not in the years 1 to 9999."""
    def FromDatetime(self, dt: datetime.datetime) -> None:
        """Sets the time. A datetime without a time zone is in UTC."""
    def GetCurrentTime(self) -> None:
        """Sets the time of this machine's clock."""
    def ToNanoseconds(self) -> int:
        """Nanoseconds since 1970."""
    def ToMicroseconds(self) -> int:
        """Whole microseconds since 1970, towards the past."""
    def ToMilliseconds(self) -> int:
        """Whole milliseconds since 1970, towards the past."""
    def ToSeconds(self) -> int:
        """Whole seconds since 1970, towards the past."""
    def FromNanoseconds(self, nanos: int) -> None:
        """Sets the time from nanoseconds since 1970."""
    def FromMicroseconds(self, micros: int) -> None:
        """Sets the time from microseconds since 1970."""
    def FromMilliseconds(self, millis: int) -> None:
        """Sets the time from milliseconds since 1970."""
    def FromSeconds(self, seconds: int) -> None:
        """Sets the time from seconds since 1970."""

class Duration(_JsonString):
    """A span of time: seconds and nanoseconds, both of the same sign."""

    SECONDS_FIELD_NUMBER: ClassVar[int]
    NANOS_FIELD_NUMBER: ClassVar[int]
    seconds: vu_message.Field[int, int]
    nanos: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, seconds: Optional[int] = ..., nanos: Optional[int] = ...) -> None: ...
    def ToTimedelta(self) -> datetime.timedelta:
        """The span in whole microseconds, towards zero. OverflowError: too long for Python."""
    def FromTimedelta(self, td: datetime.timedelta) -> None:
        """Sets the span."""
    def ToNanoseconds(self) -> int:
        """The span in nanoseconds."""
    def ToMicroseconds(self) -> int:
        """The span in whole microseconds, towards zero."""
    def ToMilliseconds(self) -> int:
        """The span in whole milliseconds, towards zero."""
    def ToSeconds(self) -> int:
        """The span in whole seconds, towards zero."""
    def FromNanoseconds(self, nanos: int) -> None:
        """Sets the span from nanoseconds."""
    def FromMicroseconds(self, micros: int) -> None:
        """Sets the span from microseconds."""
    def FromMilliseconds(self, millis: int) -> None:
        """Sets the span from milliseconds."""
    def FromSeconds(self, seconds: int) -> None:
        """Sets the span from seconds."""

class FieldMask(_JsonString):
    """Paths of fields."""

    PATHS_FIELD_NUMBER: ClassVar[int]
    paths: vu_message.Field[vu_message.RepeatedScalars[str], Iterable[str]]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, paths: Optional[Iterable[str]] = ...) -> None: ...

class Empty(vu_message.Message):
    """A message without fields."""

# What Struct and ListValue take, and give: None, bool, float, str, Struct or ListValue. As a union it
# would have to be narrowed at each step of what["a"]["b"].
_Given = Union[None, bool, float, str, Struct, ListValue, Mapping[str, Any], List[Any], Tuple[Any, ...]]
_Found = Any

class Value(vu_message.Message):
    """Anything that JSON can say: null, a number, a string, a bool, a Struct or a ListValue."""

    NULL_VALUE_FIELD_NUMBER: ClassVar[int]
    NUMBER_VALUE_FIELD_NUMBER: ClassVar[int]
    STRING_VALUE_FIELD_NUMBER: ClassVar[int]
    BOOL_VALUE_FIELD_NUMBER: ClassVar[int]
    STRUCT_VALUE_FIELD_NUMBER: ClassVar[int]
    LIST_VALUE_FIELD_NUMBER: ClassVar[int]
    null_value: vu_message.Field[int, Union[int, str]]
    number_value: vu_message.Field[float, float]
    string_value: vu_message.Field[str, str]
    bool_value: vu_message.Field[bool, bool]
    struct_value: vu_message.Field[Struct, Union[Struct, Mapping[str, Any]]]
    list_value: vu_message.Field[ListValue, Union[ListValue, Mapping[str, Any]]]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(
        self,
        *,
        null_value: Union[int, str, None] = ...,
        number_value: Optional[float] = ...,
        string_value: Optional[str] = ...,
        bool_value: Optional[bool] = ...,
        struct_value: Union[Struct, Mapping[str, Any], None] = ...,
        list_value: Union[ListValue, Mapping[str, Any], None] = ...
    ) -> None: ...

class Struct(vu_message.Message):
    """A JSON object, used as a dict. Its values are None, bool, float, str, Struct and ListValue;
    dicts and lists are taken too, and copied."""

    FIELDS_FIELD_NUMBER: ClassVar[int]
    fields: vu_message.Field[
        vu_message.MessageMap[str, Value], Mapping[str, Union[Value, Mapping[str, Any]]]
    ]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(
        self, *, fields: Optional[Mapping[str, Union[Value, Mapping[str, Any]]]] = ...
    ) -> None: ...
    def __len__(self) -> int: ...
    def __contains__(self, __key: str) -> bool: ...
    def __iter__(self) -> Iterator[str]: ...
    def __getitem__(self, __key: str) -> _Found: ...
    def __setitem__(self, __key: str, __value: _Given) -> None: ...
    def __delitem__(self, __key: str) -> None: ...
    def keys(self) -> KeysView[str]:
        """The names, in ascending order."""
    def values(self) -> List[_Found]:
        """The values, by name."""
    def items(self) -> List[Tuple[str, _Found]]:
        """Pairs of name and value, by name."""
    def update(self, values: Union[Struct, Mapping[str, Any]]) -> None:
        """Sets the members of a dict or Struct, all or none of them."""
    def get_or_create_struct(self, key: str) -> Struct:
        """The Struct under a name, which is made one."""
    def get_or_create_list(self, key: str) -> ListValue:
        """The ListValue under a name, which is made one."""

class ListValue(vu_message.Message):
    """A JSON array, used as a list of what a Struct has for values."""

    VALUES_FIELD_NUMBER: ClassVar[int]
    values: vu_message.Field[
        vu_message.RepeatedMessages[Value], Iterable[Union[Value, Mapping[str, Any]]]
    ]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(
        self, *, values: Optional[Iterable[Union[Value, Mapping[str, Any]]]] = ...
    ) -> None: ...
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[_Found]: ...
    @overload
    def __getitem__(self, __index: int) -> _Found: ...
    @overload
    def __getitem__(self, __index: slice) -> List[_Found]: ...
    @overload
    def __setitem__(self, __index: int, __value: _Given) -> None: ...
    @overload
    def __setitem__(self, __index: slice, __value: Iterable[_Given]) -> None: ...
    def __delitem__(self, __index: Union[int, slice]) -> None: ...
    def items(self) -> List[_Found]:
        """The values, as a list."""
    def append(self, value: _Given) -> None:
        """Adds a value at the end."""
    def extend(self, values: Iterable[_Given]) -> None:
        """Adds the values of an iterable at the end, all or none of them."""
    def add_struct(self) -> Struct:
        """Adds an empty Struct at the end and returns it."""
    def add_list(self) -> ListValue:
        """Adds an empty ListValue at the end and returns it."""

class DoubleValue(vu_message.Message):
    """A double."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[float, float]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[float] = ...) -> None: ...

class FloatValue(vu_message.Message):
    """A float."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[float, float]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[float] = ...) -> None: ...

class Int64Value(vu_message.Message):
    """An int64."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[int] = ...) -> None: ...

class UInt64Value(vu_message.Message):
    """A uint64."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[int] = ...) -> None: ...

class Int32Value(vu_message.Message):
    """An int32."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[int] = ...) -> None: ...

class UInt32Value(vu_message.Message):
    """A uint32."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[int, int]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[int] = ...) -> None: ...

class BoolValue(vu_message.Message):
    """A bool."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[bool, bool]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[bool] = ...) -> None: ...

class StringValue(vu_message.Message):
    """A string."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[str, str]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[str] = ...) -> None: ...

class BytesValue(vu_message.Message):
    """Bytes."""

    VALUE_FIELD_NUMBER: ClassVar[int]
    value: vu_message.Field[bytes, bytes]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, *, value: Optional[bytes] = ...) -> None: ...
