"""Fields of scalar types: values, ranges, wrong types, presence, bytes as protobuf makes them."""

import math
import struct
from typing import Any

import pytest
import vu_message
import vu_test_proto2_vu as old
import vu_test_scalars_vu as ours
from hypothesis import given
from hypothesis import strategies as st
from message_support import google_module

INTEGERS = {
    "i32": (-(2**31), 2**31 - 1),
    "i64": (-(2**63), 2**63 - 1),
    "u32": (0, 2**32 - 1),
    "u64": (0, 2**64 - 1),
    "s32": (-(2**31), 2**31 - 1),
    "s64": (-(2**63), 2**63 - 1),
    "f32": (0, 2**32 - 1),
    "f64": (0, 2**64 - 1),
    "sf32": (-(2**31), 2**31 - 1),
    "sf64": (-(2**63), 2**63 - 1),
}
TEXTS = st.text(st.characters(blacklist_categories=["Cs"]))
# Without -0.0, whose sign protobuf's implementation in Python loses.
FLOATS = st.floats(allow_nan=False).map(lambda number: number + 0.0)
FLOATS_32 = st.floats(allow_nan=False, width=32).map(lambda number: number + 0.0)
VALUES: dict[str, st.SearchStrategy[Any]] = {name: st.integers(*bounds) for name, bounds in INTEGERS.items()}
VALUES.update(
    real=FLOATS_32,
    wide=FLOATS,
    flag=st.booleans(),
    text=TEXTS,
    data=st.binary(),
    color=st.integers(-(2**31), 2**31 - 1),
)
MESSAGES = st.fixed_dictionaries({}, optional=VALUES)  # type: ignore[misc]


@pytest.fixture(scope="module")
def theirs():
    return google_module("vu_test_scalars_pb2")


@given(fields=MESSAGES)
def test_exchange_with_protobuf(fields):
    theirs = google_module("vu_test_scalars_pb2")
    our, their = ours.Single(**fields), theirs.Single(**fields)
    assert our.SerializeToString() == their.SerializeToString()
    assert our.ByteSize() == their.ByteSize()
    assert ours.Single.FromString(their.SerializeToString()) == our
    for name in VALUES:
        assert getattr(our, name) == getattr(their, name)
        assert type(getattr(our, name)) is type(getattr(their, name))


@given(fields=st.fixed_dictionaries({}, optional={n: st.lists(v) for n, v in VALUES.items()}))  # type: ignore[misc]
def test_exchange_repeated_with_protobuf(fields):
    theirs = google_module("vu_test_scalars_pb2")
    our, their = ours.Repeated(**fields), theirs.Repeated(**fields)
    assert our.SerializeToString() == their.SerializeToString()
    back = ours.Repeated.FromString(their.SerializeToString())
    assert back == our
    for name in VALUES:
        assert list(getattr(back, name)) == fields.get(name, [])


@pytest.mark.parametrize("name", sorted(INTEGERS))
def test_bounds_of_integers(name):
    least, most = INTEGERS[name]
    message = ours.Single()
    for value in (least, most):
        setattr(message, name, value)
        assert getattr(ours.Single.FromString(message.SerializeToString()), name) == value
    type_name = ours.Single.DESCRIPTOR.field(name).type
    for value in (least - 1, most + 1, 2**64, -(2**64), 10**40):
        if least <= value <= most:
            continue
        with pytest.raises(ValueError) as error:
            setattr(message, name, value)
        assert str(error.value) == "vu_test.scalars.Single.%s: value out of range for %s: %d" % (
            name,
            type_name,
            value,
        )
    assert getattr(message, name) == most


WRONG_TYPES = (
    [(name, value) for name in INTEGERS for value in (1.0, "1", b"1", None, [])]
    + [(name, value) for name in ("real", "wide") for value in ("1", b"1", None, [], 1j)]
    + [("flag", value) for value in ("", 1.0, None, [])]
    + [("text", value) for value in (b"", 1, None, ["a"], bytearray(b"a"))]
    + [("data", value) for value in ("", 1, None, [1])]
    + [("color", value) for value in (1.0, b"RED", None)]
)


@pytest.mark.parametrize("name, value", WRONG_TYPES)
def test_wrong_type_names_the_field(name, value):
    message = ours.Single()
    with pytest.raises(TypeError, match=r"^vu_test\.scalars\.Single\.%s: expected " % name):
        setattr(message, name, value)
    if value is not None:  # None leaves a field alone in a constructor
        with pytest.raises(TypeError, match=r"^vu_test\.scalars\.Single\.%s: expected " % name):
            ours.Single(**{name: value})
    assert message == ours.Single()


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        if isinstance(self.value, Exception):
            raise self.value
        return self.value


def test_anything_with_index_is_an_integer():
    assert ours.Single(i32=Index(7), u64=Index(2**63), flag=Index(1)).u64 == 2**63  # type: ignore[call-overload]
    assert ours.Single(i32=True).i32 == 1
    with pytest.raises(KeyError):
        ours.Single(i32=Index(KeyError("k")))  # type: ignore[call-overload]
    with pytest.raises(ValueError, match="out of range for uint32: -3"):
        ours.Single(u32=Index(-3))  # type: ignore[call-overload]


def test_floats():
    message = ours.Single(real=1.1, wide=10)
    assert message.real == struct.unpack("f", struct.pack("f", 1.1))[0]
    assert message.wide == 10.0 and type(message.wide) is float
    for value in (math.inf, -math.inf):
        message.real = message.wide = value
        assert message.real == message.wide == value
    message.real = message.wide = -0.0
    back = ours.Single.FromString(message.SerializeToString())
    assert math.copysign(1, back.real) == math.copysign(1, back.wide) == -1
    message.real = message.wide = math.nan
    assert math.isnan(message.real) and math.isnan(message.wide)
    assert message != message.__deepcopy__({})  # NaN differs from itself
    for name, value in (("real", 1e300), ("real", -3.5e38), ("wide", 10**400)):
        with pytest.raises(ValueError, match="Single.%s: value out of range for " % name):
            setattr(message, name, value)


def test_text_is_utf8():
    message = ours.Single(text="π\0\U0001f40d")
    assert message.text == "π\0\U0001f40d"
    assert message.SerializeToString() == b"\x72\x07" + "π\0\U0001f40d".encode()
    with pytest.raises(ValueError, match=r"Single\.text: not encodable as UTF-8: 'a\\ud800'"):
        message.text = "a\ud800"
    assert message.text == "π\0\U0001f40d"


def test_text_received_that_is_not_utf8():
    with pytest.raises(vu_message.DecodeError):
        ours.Single.FromString(b"\x72\x01\xff")  # proto3 checks
    message = old.Defaults.FromString(b"\x12\x01\xff")  # proto2 does not
    with pytest.raises(ValueError, match="Defaults.text: the bytes received are not UTF-8"):
        message.text
    assert repr(message) == "vu_test.old.Defaults(text=b'\\xff')"
    assert message.SerializeToString() == b"\x12\x01\xff"


def test_bytes():
    assert ours.Single(data=bytearray(b"\0\xff")).data == b"\0\xff"
    assert type(ours.Single(data=bytearray(b"a")).data) is bytes


def test_enums_are_numbers_with_names():
    assert ours.Color.RED == 1 and ours.RED is ours.Color.RED
    assert ours.Color.Name(2) == "GREEN" and ours.Color.Value("GREEN") == 2
    assert ours.Color.keys() == ["BLACK", "RED", "GREEN"]
    assert ours.Color.values() == [0, 1, 2]
    assert ours.Color.items() == [("BLACK", 0), ("RED", 1), ("GREEN", 2)]
    with pytest.raises(ValueError):
        ours.Color.Name(77)
    with pytest.raises(ValueError, match="Color has no value 'PINK'"):
        ours.Color.Value("PINK")
    message = ours.Single(color=ours.Color.RED)
    assert message.color == 1 and type(message.color) is int
    message.color = "GREEN"
    assert message.color == ours.Color.GREEN
    with pytest.raises(ValueError, match=r"Single\.color: vu_test\.scalars\.Color has no value 'X'"):
        message.color = "X"


def test_enums_of_proto3_are_open_and_those_of_proto2_closed():
    message = ours.Single(color=77)
    assert message.color == 77 and repr(message) == "vu_test.scalars.Single(color=77)"
    with pytest.raises(ValueError, match=r"Defaults\.level: vu_test\.old\.Level has no value 2"):
        old.Defaults(level=2)
    with pytest.raises(ValueError, match=r"levels\[1\]: vu_test\.old\.Level has no value 2"):
        old.Defaults(levels=[1, 2])
    unknown = b"\x20\x02"
    closed = old.Defaults.FromString(unknown)
    assert not closed.HasField("level") and closed.level == old.HIGH
    assert closed.SerializeToString() == unknown


def test_presence_with_optional():
    message = ours.Optional()
    for name in ("i32", "text", "data", "color", "wide", "flag"):
        assert not message.HasField(name)
        default = getattr(message, name)
        setattr(message, name, default)
        assert message.HasField(name)
        message.ClearField(name)
        assert not message.HasField(name)
    message = ours.Optional(i32=0, text="")
    assert message.SerializeToString() == b"\x08\x00\x12\x00"
    assert repr(message) == "vu_test.scalars.Optional(i32=0, text='')"
    assert message != ours.Optional(i32=0)
    assert ours.Optional.DESCRIPTOR.oneofs == ()
    with pytest.raises(ValueError):
        message.WhichOneof("_i32")


def test_no_presence_without_optional():
    message = ours.Single(i32=4)
    with pytest.raises(ValueError, match=r"vu_test\.scalars\.Single\.i32 is no optional field"):
        message.HasField("i32")
    with pytest.raises(ValueError, match=r"vu_test\.scalars\.Repeated\.i32 is repeated"):
        ours.Repeated().HasField("i32")
    message.i32 = 0
    assert message.SerializeToString() == b""


def test_defaults_of_proto2():
    message = old.Defaults()
    assert (message.number, message.text, message.data) == (-7, "none given", b"\x01\xff")
    assert message.level == old.Level.HIGH and message.wide == math.inf
    assert message.SerializeToString() == b""
    message.number = -7
    assert message.HasField("number") and message.SerializeToString() != b""
    message.ClearField("number")
    assert message.number == -7 and message == old.Defaults()


def test_names_that_do_not_exist():
    message = ours.Single()
    with pytest.raises(AttributeError):
        message.i31  # type: ignore[attr-defined]
    with pytest.raises(AttributeError):
        message.i31 = 1  # type: ignore[attr-defined]
    with pytest.raises(AttributeError, match=r"Single\.i32: fields are cleared with ClearField"):
        del message.i32
    for call in (message.HasField, message.ClearField):
        with pytest.raises(ValueError, match=r"vu_test\.scalars\.Single has no field 'i31'"):
            call("i31")
        with pytest.raises(TypeError, match="a field name must be a str, not int"):
            call(1)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="vu_test.scalars.Single has no field 'i31'"):
        ours.Single(i31=1)  # type: ignore[call-overload]
    with pytest.raises(ValueError, match="vu_test.scalars.Single has no oneof 'i32'"):
        message.WhichOneof("i32")


def test_fields_of_another_type():
    with pytest.raises(TypeError, match=r"vu_test\.scalars\.Single\.i32 is no field of Repeated"):
        ours.Single.i32.__get__(ours.Repeated())
    with pytest.raises(TypeError, match="is no field of int"):
        ours.Single.i32.__set__(3, 4)  # type: ignore[arg-type]


def test_descriptors():
    descriptor = ours.Keyed.DESCRIPTOR
    assert (descriptor.full_name, descriptor.name) == ("vu_test.scalars.Keyed", "Keyed")
    assert descriptor.file == "vu_test_scalars.proto"
    assert [field.name for field in descriptor.fields] == ["third", "first", "second", "hits"]
    assert [field.name for field in descriptor.key_fields] == ["first", "second", "third"]
    assert [field.key for field in descriptor.fields] == [3, 1, 2, 0]
    assert descriptor.counter is ours.Keyed.hits and ours.Keyed.hits.counter
    assert ours.Single.DESCRIPTOR.counter is None and ours.Single.DESCRIPTOR.key_fields == ()
    assert ours.Keyed.hits is descriptor.field("hits") is descriptor.fields_by_name["hits"]
    assert (ours.Keyed.hits.number, ours.Keyed.HITS_FIELD_NUMBER) == (4, 4)
    assert ours.Keyed.hits.type == "uint64" and ours.Keyed.second.type == "enum"
    assert ours.Maps.single.type == "map" and ours.Maps.single.repeated
    assert ours.Maps.single.message_type is ours.Single.DESCRIPTOR
    assert descriptor.message_class is ours.Keyed
    assert ours.Optional.i32.has_presence and not ours.Single.i32.has_presence
