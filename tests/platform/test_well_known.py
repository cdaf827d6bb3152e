"""vu_well_known: the well-known types, as fields and on their own."""

import copy
import datetime
import os
import pickle
import subprocess
import sys

import pytest
import vu_message
import vu_test_tree_vu as tree
import vu_well_known as known
from google.protobuf import duration_pb2, struct_pb2, timestamp_pb2
from hypothesis import given
from hypothesis import strategies as st
from message_support import BUILD

UTC = datetime.timezone.utc
EAST = datetime.timezone(datetime.timedelta(hours=5, minutes=30))


def test_fields_are_of_these_classes():
    node = tree.Node(time={"seconds": 5}, wrapped={"value": "w"})
    assert type(node.time) is known.Timestamp and type(node.wrapped) is known.StringValue
    assert tree.Node(time=known.Timestamp(seconds=5)).time == node.time
    assert vu_message.message_class("google.protobuf.Timestamp") is known.Timestamp
    assert tree.Node.time.message_type is known.Timestamp.DESCRIPTOR
    node.time.FromSeconds(7)
    assert node.time.seconds == 7
    pending = tree.Node()
    pending.time.FromSeconds(7)
    assert pending.HasField("time")


def test_fields_are_of_these_classes_where_nobody_has_imported_them():
    code = (
        "import sys, vu_test_tree_vu as tree; node = tree.Node();"
        "assert 'vu_well_known' not in sys.modules;"
        "node.time.FromSeconds(5); import vu_well_known;"
        "assert type(node.time) is vu_well_known.Timestamp; print(node)"
    )
    printed = subprocess.run(
        [sys.executable, "-c", code],
        stdout=subprocess.PIPE,
        check=True,
        env=dict(os.environ, PYTHONPATH=str(BUILD / "python")),
    ).stdout.decode()
    assert printed == "vu_test.tree.Node(time=google.protobuf.Timestamp(seconds=5))\n"


def test_every_class_is_that_of_its_type():
    classes: list[type[vu_message.Message]] = [
        each
        for name, each in vars(known).items()
        if isinstance(each, type) and not name.startswith("_")
    ]
    assert len(classes) == 16
    for cls in classes:
        assert vu_message.message_class("google.protobuf." + cls.__name__) is cls
        assert cls.package_name == "google_protobuf" and cls.short_name == cls.__name__
        for field in cls.DESCRIPTOR.fields:
            assert getattr(cls, field.name.upper() + "_FIELD_NUMBER") == field.number
        message = cls()
        assert copy.deepcopy(message) == pickle.loads(pickle.dumps(message)) == message


MOMENTS = [
    datetime.datetime(1970, 1, 1),
    datetime.datetime(2026, 11, 21, 19, 30, 0, 123456),
    datetime.datetime(1969, 12, 31, 23, 59, 59, 999999),
    datetime.datetime(1, 1, 1),
    datetime.datetime(9999, 12, 31, 23, 59, 59, 999999),
    datetime.datetime(2026, 7, 1, 12, tzinfo=UTC),
    datetime.datetime(2026, 7, 1, 12, tzinfo=EAST),
]


@pytest.mark.parametrize("moment", MOMENTS, ids=str)
def test_datetimes(moment):
    ours, theirs = known.Timestamp(), timestamp_pb2.Timestamp()
    ours.FromDatetime(moment)
    theirs.FromDatetime(moment)
    assert (ours.seconds, ours.nanos) == (theirs.seconds, theirs.nanos)
    assert ours.ToDatetime() == theirs.ToDatetime()
    assert ours.ToDatetime(UTC) == moment if moment.tzinfo else ours.ToDatetime() == moment
    if 1 < moment.year < 9999:
        east = ours.ToDatetime(tzinfo=EAST)
        assert east == theirs.ToDatetime(EAST) and east.utcoffset() == EAST.utcoffset(None)
    assert ours.ToJsonString() == theirs.ToJsonString()
    back = known.Timestamp()
    back.FromJsonString(theirs.ToJsonString())
    assert back == ours


def test_the_current_time():
    before = datetime.datetime.now(UTC)
    now = known.Timestamp()
    now.GetCurrentTime()
    assert before <= now.ToDatetime(UTC) <= datetime.datetime.now(UTC)


UNITS = ["Nanoseconds", "Microseconds", "Milliseconds", "Seconds"]
PAST = st.integers(-62135596800 * 10**9, 253402300799 * 10**9)


@given(nanos=PAST)
def test_units_of_timestamps(nanos):
    ours, theirs = known.Timestamp(), timestamp_pb2.Timestamp()
    ours.FromNanoseconds(nanos)
    theirs.FromNanoseconds(nanos)
    assert ours.ToNanoseconds() == nanos and 0 <= ours.nanos < 10**9
    for unit, size in zip(UNITS, (1, 10**3, 10**6, 10**9)):
        whole = getattr(ours, "To" + unit)()
        assert whole == getattr(theirs, "To" + unit)() == nanos // size
        back = known.Timestamp()
        getattr(back, "From" + unit)(whole)
        assert back.ToNanoseconds() == whole * size


@given(nanos=st.integers(-(10**18), 10**18))
def test_units_of_durations(nanos):
    ours, theirs = known.Duration(), duration_pb2.Duration()
    ours.FromNanoseconds(nanos)
    theirs.FromNanoseconds(nanos)
    assert (ours.seconds, ours.nanos) == (theirs.seconds, theirs.nanos)
    for unit in UNITS:
        whole = getattr(ours, "To" + unit)()
        assert whole == getattr(theirs, "To" + unit)()
        back = known.Duration()
        getattr(back, "From" + unit)(whole)
        assert getattr(back, "To" + unit)() == whole
    assert ours.ToTimedelta() == datetime.timedelta(microseconds=ours.ToMicroseconds())
    assert ours.ToJsonString() == theirs.ToJsonString()


@pytest.mark.parametrize("micros", [0, 1, -1, 1500000, -1500000, -(10**14), 10**14 + 1])
def test_timedeltas(micros):
    delta = datetime.timedelta(microseconds=micros)
    ours, theirs = known.Duration(), duration_pb2.Duration()
    ours.FromTimedelta(delta)
    theirs.FromTimedelta(delta)
    assert (ours.seconds, ours.nanos) == (theirs.seconds, theirs.nanos)
    assert ours.ToTimedelta() == theirs.ToTimedelta() == delta
    back = known.Duration()
    back.FromJsonString(ours.ToJsonString())
    assert back == ours


def test_what_is_out_of_range():
    for seconds in (10**12, -(10**12)):
        with pytest.raises(OverflowError):
            known.Timestamp(seconds=seconds).ToDatetime()
        with pytest.raises(vu_message.EncodeError, match=r"^google\.protobuf\.Timestamp"):
            known.Timestamp(seconds=seconds).ToJsonString()
    with pytest.raises(OverflowError):
        known.Duration(seconds=10**15).ToTimedelta()
    with pytest.raises(ValueError, match=r"^google\.protobuf\.Timestamp\.seconds: value out of"):
        known.Timestamp().FromSeconds(2**63)


@pytest.mark.parametrize("cls", [known.Timestamp, known.Duration])
@pytest.mark.parametrize("text", ["", "yesterday", "12", "1970-01-01"])
def test_strings_that_are_wrong(cls, text):
    message = cls(seconds=5)
    with pytest.raises(vu_message.DecodeError):
        message.FromJsonString(text)
    with pytest.raises(TypeError, match="expected a str, got int"):
        message.FromJsonString(5)
    assert message == cls(seconds=5)


def test_field_masks():
    mask = known.FieldMask(paths=["foo_bar", "a.b_c"])
    assert mask.ToJsonString() == "fooBar,a.bC"
    back = known.FieldMask()
    back.FromJsonString("fooBar,a.bC")
    assert back == mask


CONTENTS = {"null": None, "yes": True, "number": 2.5, "text": "t", "list": [1, [None]], "in": {"a": 1}}


def test_structs_are_dicts():
    ours, theirs = known.Struct(), struct_pb2.Struct()
    ours.update(CONTENTS)
    theirs.update(CONTENTS)
    assert theirs.FromString(ours.SerializeToString()) == theirs
    assert known.Struct.FromString(theirs.SerializeToString()) == ours
    assert list(ours) == sorted(CONTENTS) == list(ours.keys()) and len(ours) == 6
    assert ours["null"] is None and ours["yes"] is True and ours["number"] == 2.5
    assert "text" in ours and "txt" not in ours and ours["text"] == "t"
    assert list(ours["list"])[0] == 1 and ours["in"]["a"] == 1
    assert dict(ours.items())["text"] == "t" and ours.values()[-1] is True
    ours["text"] = ours["in"]
    assert ours["text"] == ours["in"] and type(ours["text"]) is known.Struct
    del ours["text"]
    for call in (lambda: ours["text"], lambda: ours.__delitem__("text")):
        with pytest.raises(KeyError):
            call()
    assert "text" not in ours
    ours.get_or_create_struct("new")["x"] = 1
    ours.get_or_create_list("more").append("y")
    assert ours["new"]["x"] == 1 and ours["more"].items() == ["y"]
    assert ours.get_or_create_struct("new")["x"] == 1


def test_list_values_are_lists():
    ours, theirs = known.ListValue(), struct_pb2.ListValue()
    ours.extend([None, True, 2, "t", [1], {"a": 2}])
    theirs.extend([None, True, 2, "t", [1], {"a": 2}])
    assert ours.SerializeToString() == theirs.SerializeToString()
    assert ours.items()[:4] == [None, True, 2, "t"] == ours[:4] and len(ours) == 6
    assert ours[-1]["a"] == 2 and ours[4][0] == 1 and type(ours[4]) is known.ListValue
    ours[0] = "first"
    ours[1:3] = ["second"]
    del ours[2:]
    assert list(ours) == ["first", "second"]
    ours.add_struct()["k"] = 1
    ours.add_list().append(2)
    ours.append(ours[2])
    assert ours[2]["k"] == ours[4]["k"] == 1 and ours[3].items() == [2]  # type: ignore[call-overload]


def test_errors_of_structs_name_the_path():
    struct = known.Struct()
    with pytest.raises(TypeError) as error:
        struct["a"] = [{"b": {5}}]
    assert str(error.value) == (
        "google.protobuf.Struct.fields['a'].list_value.values[0].struct_value.fields['b']"
        ".number_value: expected a number, got set"
    )
    with pytest.raises(TypeError, match=r"^google\.protobuf\.Struct\.fields key: expected a str"):
        struct[5] = 1  # type: ignore[index]
    assert len(struct) == 0


def test_structs_are_json():
    struct = known.Struct.FromJson('{"a": [1, {"b": null}]}')
    assert struct["a"][1]["b"] is None
    assert struct.ToJson() == '{"a":[1,{"b":null}]}'
    assert known.Value(number_value=5).ToJson() == "5"
    assert known.Value.FromJson("[true]").list_value[0] is True
    assert known.Int64Value.FromJson('"7"') == known.Int64Value(value=7)
