"""Map fields as dicts."""

import collections.abc
import copy
import pickle
from typing import Any

import pytest
import vu_message
import vu_test_proto2_vu as old
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
from hypothesis import given
from hypothesis import strategies as st
from message_support import google_module

Leaf = tree.Node.Leaf

KEYS = st.sampled_from("abcd")
NUMBERS = st.integers(-5, 5)
STEPS = st.one_of(
    st.tuples(st.just("__setitem__"), KEYS, NUMBERS),
    st.tuples(st.just("__delitem__"), KEYS),
    st.tuples(st.just("__contains__"), KEYS),
    st.tuples(st.just("get"), KEYS),
    st.tuples(st.just("get"), KEYS, NUMBERS),
    st.tuples(st.just("setdefault"), KEYS, NUMBERS),
    st.tuples(st.just("pop"), KEYS),
    st.tuples(st.just("pop"), KEYS, NUMBERS),
    st.tuples(st.just("update"), st.dictionaries(KEYS, NUMBERS)),
    st.tuples(st.just("clear")),
)


def outcome(method, arguments):
    try:
        return method(*arguments)
    except KeyError:
        return KeyError


@given(start=st.dictionaries(KEYS, NUMBERS), steps=st.lists(STEPS, max_size=12))
def test_scalars_are_a_dict(start, steps):
    message = tree.Node(counts=start)
    model, view = dict(start), message.counts
    for name, *arguments in steps:
        assert outcome(getattr(view, name), arguments) == outcome(getattr(model, name), arguments)
        assert view == model and len(view) == len(model)
        assert list(view) == sorted(model) and dict(view.items()) == model
    assert tree.Node.FromString(message.SerializeToString()).counts == model


@given(start=st.dictionaries(KEYS, NUMBERS), steps=st.lists(STEPS, max_size=12))
def test_messages_are_a_dict(start, steps):
    """Every value ever seen is held, and goes on to say what it said."""

    def leaves(value):
        if isinstance(value, dict):
            return {key: Leaf(name=str(number)) for key, number in value.items()}
        return Leaf(name=str(value)) if isinstance(value, int) else value

    message = tree.Node(by_name=leaves(start))
    model, view = leaves(start), message.by_name
    held = [(leaf, leaf.name) for leaf in view.values()]
    for name, *arguments in steps:
        arguments = [leaves(argument) for argument in arguments]
        assert outcome(getattr(view, name), arguments) == outcome(getattr(model, name), arguments)
        assert view == model and list(view) == sorted(model)
        held += [(leaf, leaf.name) for leaf in view.values()]
        for leaf, text in held:
            assert leaf.name == text and Leaf(leaf.get_ptr()).name == text
    assert tree.Node.FromString(message.SerializeToString()).by_name == model


# Without -0.0, whose sign protobuf's implementation in Python loses.
FLOATS = st.floats(allow_nan=False).map(lambda number: number + 0.0)
FLOATS_32 = st.floats(allow_nan=False, width=32).map(lambda number: number + 0.0)
MAPS: dict[str, st.SearchStrategy[Any]] = {
    "i32": st.dictionaries(st.integers(-(2**31), 2**31 - 1), st.integers(-(2**31), 2**31 - 1)),
    "i64": st.dictionaries(st.integers(-(2**63), 2**63 - 1), st.integers(-(2**63), 2**63 - 1)),
    "u32": st.dictionaries(st.integers(0, 2**32 - 1), st.integers(0, 2**32 - 1)),
    "u64": st.dictionaries(st.integers(0, 2**64 - 1), st.integers(0, 2**64 - 1)),
    "flag": st.dictionaries(st.booleans(), st.booleans()),
    "text": st.dictionaries(st.text("aß"), st.text("bπ")),
    "data": st.dictionaries(st.text("aß"), st.binary()),
    "wide": st.dictionaries(st.text("aß"), FLOATS),
    "real": st.dictionaries(st.text("aß"), FLOATS_32),
    "color": st.dictionaries(st.text("aß"), st.integers(-(2**31), 2**31 - 1)),
}


@given(fields=st.fixed_dictionaries({}, optional=MAPS), names=st.lists(st.text("xy", max_size=2)))  # type: ignore[misc]
def test_exchange_with_protobuf(fields, names):
    theirs = google_module("vu_test_scalars_pb2")
    our, their = scalars.Maps(**fields), theirs.Maps(**fields)
    for name in names:
        our.single[name].text = their.single[name].text = name
    assert our.SerializeToString(deterministic=True) == their.SerializeToString(deterministic=True)
    assert scalars.Maps.FromString(their.SerializeToString()) == our
    assert theirs.Maps.FromString(our.SerializeToString()) == their
    for name, values in fields.items():
        assert getattr(our, name) == values


def test_repeated_entries_in_bytes_count_once():
    entries = b"".join(tree.Node(counts={"a": n}).SerializeToString() for n in (1, 2, 3))
    message = tree.Node.FromString(entries)
    assert message.counts == {"a": 3}
    assert message.SerializeToString(True) == tree.Node(counts={"a": 3}).SerializeToString(True)
    assert message == tree.Node(counts={"a": 3})


def test_order_of_entries_is_nothing_to_a_deterministic_serialisation():
    keys = ["k%d" % i for i in range(50)]
    one = tree.Node(counts={key: 1 for key in keys})
    other = tree.Node(counts={key: 1 for key in reversed(keys)})
    third = tree.Node.FromString(
        b"".join(tree.Node(counts={key: 1}).SerializeToString() for key in reversed(keys))
    )
    expected = one.SerializeToString(deterministic=True)
    assert other.SerializeToString(deterministic=True) == expected
    assert third.SerializeToString(deterministic=True) == expected
    assert tree.Node(third.get_ptr()).SerializeToString(deterministic=True) == expected


def test_reading_makes_an_entry():
    message = tree.Node()
    assert message.counts["a"] == 0 and message.counts == {"a": 0}
    message.by_name["x"].name = "made"
    assert message.by_name.get_or_create("x").name == "made"
    assert message.by_name.get("y") is None and "y" not in message.by_name


def test_values_are_the_same_object_while_held():
    message = tree.Node(by_name={"a": {"name": "1"}})
    value = message.by_name["a"]
    assert message.by_name["a"] is value
    for i in range(1000):  # the table grows many times
        message.by_name["k%d" % i].name = "x"
    assert message.by_name["a"] is value and value.name == "1"
    value.name = "2"
    assert message.by_name["a"].name == "2"


def test_wrong_keys_and_values():
    message = tree.Node(counts={"a": 1})
    for call in (
        lambda: message.counts[1],  # type: ignore[index]
        lambda: message.counts.get(None),  # type: ignore[call-overload]
        lambda: 1 in message.counts,
        lambda: message.counts.__setitem__(b"a", 1),  # type: ignore[index]
        lambda: message.counts.update({"b": 2, 3: 4}),  # type: ignore[dict-item]
    ):
        with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.counts key: expected a str"):
            call()
    for call in (
        lambda: message.counts.__setitem__("a", "1"),  # type: ignore[assignment]
        lambda: message.counts.update(b="2"),  # type: ignore[call-overload]
        lambda: setattr(message, "counts", {"z": 1.0}),
        lambda: tree.Node(counts={"z": None}),  # type: ignore[dict-item]
    ):
        with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.counts\['[abz]'\]: expected an"):
            call()
    with pytest.raises(ValueError, match=r"counts\['a'\]: value out of range for int32: 2147483648"):
        message.counts["a"] = 2**31
    with pytest.raises(TypeError, match=r"Node\.counts: expected a mapping, got int"):
        message.counts = 5  # type: ignore[assignment]
    with pytest.raises(TypeError, match=r"by_name\['a'\]: expected vu_test\.tree\.Node\.Leaf, got Node"):
        message.by_name["a"] = tree.Node()  # type: ignore[assignment]
    with pytest.raises(KeyError, match="'gone'"):
        del message.counts["gone"]
    with pytest.raises(KeyError, match="'gone'"):
        message.counts.pop("gone")
    with pytest.raises(KeyError):
        tree.Node().counts.popitem()
    assert message.counts == {"a": 1} and len(message.by_name) == 0


def test_assignment_replaces():
    message = tree.Node(counts={"a": 1}, by_name={"x": {"name": "1"}})
    held = message.by_name["x"]
    message.counts = {"b": 2}
    message.by_name = {"x": Leaf(name="2"), "y": {"name": "3"}}
    assert message.counts == {"b": 2} and held.name == "1"
    assert {key: leaf.name for key, leaf in message.by_name.items()} == {"x": "2", "y": "3"}
    message.by_name = message.by_name
    message.counts = message.counts
    assert len(message.by_name) == 2 and message.counts == {"b": 2}
    message.by_name["x"] = message.by_name["y"]
    assert message.by_name["x"].name == "3" and held.name == "1"
    message.counts.MergeFrom(tree.Node(counts={"c": 3}).counts)
    assert message.counts == {"b": 2, "c": 3}
    assert message.counts.popitem() == ("c", 3)


def test_it_is_a_mapping():
    view = tree.Node(counts={"b": 2, "a": 1}).counts
    assert isinstance(view, collections.abc.MutableMapping)
    assert list(view.keys()) == ["a", "b"] and list(view.values()) == [1, 2]
    assert list(view.items()) == [("a", 1), ("b", 2)] and dict(view) == {"a": 1, "b": 2}
    assert repr(view) == "{'a': 1, 'b': 2}" and view != {"a": 1} and view != [1]
    with pytest.raises(TypeError):
        hash(view)
    with pytest.raises(TypeError):
        vu_message.ScalarMap()
    for other in (copy.copy(view), copy.deepcopy(view), pickle.loads(pickle.dumps(view))):
        assert type(other) is dict and other == view
    for key in view:
        view.pop(key)
    assert view == {}


def test_keys_in_numeric_order():
    message = tree.Node()
    for number in (5, -1, 100, 0):
        message.by_number[number].name = "n"
    assert list(message.by_number) == [-1, 0, 5, 100]


def test_merging_replaces_values_and_leaves_held_ones_alone():
    message = tree.Node(by_name={"a": {"name": "1"}, "b": {"name": "2"}})
    a, b = message.by_name["a"], message.by_name["b"]
    message.MergeFrom(tree.Node(by_name={"a": {"name": "new"}}))
    assert (a.name, message.by_name["a"].name) == ("1", "new")
    assert message.by_name["b"] is b
    b.name = "still in the map"
    assert message.by_name["b"].name == "still in the map"


def test_changes_of_a_value_are_never_missed():
    """Whatever reads the map in between, as text, as bytes, by comparing."""
    message = tree.Node(by_number={1: {"name": "a", "by_name": {"k": {"name": "b"}}}})
    inner = message.by_number[1].by_name["k"]
    for number in range(5):
        inner.name = str(number)
        inner.values.append(number)
        expected: Any = {1: {"name": "a", "by_name": {"k": {"name": str(number)}}}}
        expected[1]["by_name"]["k"]["values"] = range(number + 1)
        assert message == tree.Node(by_number=expected)
        assert repr(message) == repr(tree.Node(by_number=expected))
        assert tree.Node.FromString(message.SerializeToString()) == message
        assert tree.Node(message.get_ptr()) == message
        assert copy.deepcopy(message) == message


def test_stale_lists_of_entries():
    """Asking for missing required fields makes libprotobuf list the entries of maps."""
    message = old.Required(name="r", table={"k": {}})
    with pytest.raises(vu_message.EncodeError, match='table.*name'):
        message.SerializeToString()
    message.table["k"].name = "now set"
    assert old.Required.FromString(message.SerializeToString()).table["k"].name == "now set"
    held = message.table["k"]
    held.ClearField("name")
    with pytest.raises(vu_message.EncodeError):
        message.SerializeToString()
    held.name = "again"
    assert old.Required(message.get_ptr()) == message
    assert old.Required.FromString(message.SerializeToString()).table["k"].name == "again"


def test_the_view_outlives_the_message():
    view = tree.Node(by_name={"a": {"name": "1"}}).by_name
    view["b"].name = "2"
    assert {key: leaf.name for key, leaf in view.items()} == {"a": "1", "b": "2"}


def test_view_of_a_cleared_field_keeps_the_contents():
    message = tree.Node(by_name={"a": {"name": "1"}})
    view, value = message.by_name, message.by_name["a"]
    message.Clear()
    assert view["a"] is value and value.name == "1" and len(message.by_name) == 0
    value.name = "2"
    view["b"].name = "3"
    assert {key: leaf.name for key, leaf in view.items()} == {"a": "2", "b": "3"}
