"""Repeated fields as lists: whatever a list does, they do."""

import collections.abc
import copy
import pickle

import pytest
import vu_message
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
from hypothesis import given
from hypothesis import strategies as st

Leaf = tree.Node.Leaf

SMALL = st.integers(-3, 3)
POSITIONS = st.integers(-6, 6)
SLICES = st.builds(
    slice,
    st.none() | POSITIONS,
    st.none() | POSITIONS,
    st.none() | st.sampled_from([-3, -2, -1, 1, 2, 3]),
)
STEPS = st.one_of(
    st.tuples(st.just("append"), SMALL),
    st.tuples(st.just("extend"), st.lists(SMALL, max_size=4)),
    st.tuples(st.just("insert"), POSITIONS, SMALL),
    st.tuples(st.just("pop")),
    st.tuples(st.just("pop"), POSITIONS),
    st.tuples(st.just("remove"), SMALL),
    st.tuples(st.just("reverse")),
    st.tuples(st.just("sort")),
    st.tuples(st.just("clear")),
    st.tuples(st.just("index"), SMALL),
    st.tuples(st.just("index"), SMALL, POSITIONS, POSITIONS),
    st.tuples(st.just("count"), SMALL),
    st.tuples(st.just("__contains__"), SMALL),
    st.tuples(st.just("__getitem__"), POSITIONS | SLICES),
    st.tuples(st.just("__setitem__"), POSITIONS, SMALL),
    st.tuples(st.just("__setitem__"), SLICES, st.lists(SMALL, max_size=4)),
    st.tuples(st.just("__delitem__"), POSITIONS | SLICES),
)


def outcome(method, arguments):
    try:
        return method(*arguments)
    except (IndexError, ValueError) as error:
        return type(error)


@given(start=st.lists(SMALL, max_size=6), steps=st.lists(STEPS, max_size=12))
def test_scalars_are_a_list(start, steps):
    message = scalars.Repeated(i32=start)
    model, view = list(start), message.i32
    for name, *arguments in steps:
        assert outcome(getattr(view, name), arguments) == outcome(getattr(model, name), arguments)
        assert view == model and len(view) == len(model) and list(view) == model
    assert scalars.Repeated.FromString(message.SerializeToString()).i32 == model


def as_leaves(value):
    """A step for numbers as the same step for messages of that name."""
    if isinstance(value, list):
        return [as_leaves(item) for item in value]
    return Leaf(name=str(value))


def as_numbers(value):
    if isinstance(value, Leaf):
        return int(value.name)
    if isinstance(value, list):
        return [as_numbers(item) for item in value]
    return value


TAKES_VALUES = {
    "append": [0],
    "extend": [0],
    "insert": [1],
    "remove": [0],
    "index": [0],
    "count": [0],
    "__contains__": [0],
    "__setitem__": [1],
}


@given(start=st.lists(SMALL, max_size=6), steps=st.lists(STEPS, max_size=12))
def test_messages_are_a_list(start, steps):
    """Every element ever seen is held, and goes on to say what it said."""
    message = tree.Node(leaves=[Leaf(name=str(number)) for number in start])
    model, view = list(start), message.leaves
    held = [(leaf, leaf.name, leaf.get_ptr()) for leaf in view]
    for name, *arguments in steps:
        ours = list(arguments)
        for i in TAKES_VALUES.get(name, []):
            ours[i] = as_leaves(ours[i])
        if name == "sort":
            method = lambda: view.sort(key=lambda leaf: int(leaf.name))  # noqa: E731
        else:
            method = getattr(view, name)
        assert as_numbers(outcome(method, ours)) == outcome(getattr(model, name), arguments)
        assert as_numbers(list(view)) == model
        held += [(leaf, leaf.name, leaf.get_ptr()) for leaf in view]
        for leaf, text, address in held:
            assert leaf.name == text and leaf.get_ptr() == address
    back = tree.Node.FromString(message.SerializeToString())
    assert as_numbers(list(back.leaves)) == model
    for leaf, _, _ in held:
        leaf.name = "changed"
    assert [leaf.name for leaf in view] == ["changed"] * len(model)


def test_elements_are_the_same_object_while_held():
    message = tree.Node(leaves=[{"name": "a"}, {"name": "b"}])
    first = message.leaves[0]
    assert message.leaves[0] is first and message.leaves[1] is not first
    message.leaves.reverse()
    assert message.leaves[1] is first
    message.leaves.sort(key=lambda leaf: leaf.name)
    assert message.leaves[0] is first
    assert message.leaves is message.leaves


def test_values_are_copied_in():
    leaf = Leaf(name="a", values=[1])
    message = tree.Node(leaves=[leaf])
    message.leaves.append(leaf)
    message.leaves.insert(0, leaf)
    message.leaves[1] = leaf
    leaf.name = "changed"
    assert [item.name for item in message.leaves] == ["a", "a", "a"]


def test_add():
    message = tree.Node()
    leaf = message.leaves.add(name="a", values=[1, 2])
    leaf.kind = Leaf.GOLDEN
    assert message == tree.Node(leaves=[{"name": "a", "values": [1, 2], "kind": 1}])
    with pytest.raises(ValueError, match="has no field 'nope'"):
        message.leaves.add(nope=1)
    with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.leaves\[1\]\.values\[0\]: "):
        message.leaves.add(name="half", values=["x"])
    with pytest.raises(TypeError, match="keyword arguments only"):
        message.leaves.add(leaf)  # type: ignore[call-arg]
    assert len(message.leaves) == 1
    assert not hasattr(scalars.Repeated().i32, "add")


def test_all_or_nothing():
    message = scalars.Repeated(u32=[1, 2, 3])
    for call in (
        lambda: message.u32.extend([4, -1]),
        lambda: message.u32.extend(iter([4, "5"])),  # type: ignore[arg-type]
        lambda: message.u32.__setitem__(slice(0, 2), [4, -1]),
        lambda: message.u32.__iadd__([9, None]),  # type: ignore[list-item]
        lambda: setattr(message, "u32", [4, 2**32]),
    ):
        where = r"^vu_test\.scalars\.Repeated\.u32\[1\]: "
        with pytest.raises((TypeError, ValueError), match=where):
            call()
        assert message.u32 == [1, 2, 3]
    leaves = tree.Node(leaves=[{"name": "a"}])
    with pytest.raises(TypeError, match=r"leaves\[1\]: expected vu_test\.tree\.Node\.Leaf, got"):
        leaves.leaves.extend([Leaf(name="b"), tree.Node()])  # type: ignore[list-item]
    assert len(leaves.leaves) == 1


@pytest.mark.parametrize("value", [5, None, "abc", b"abc", {"a": 1}])
def test_no_list(value):
    message = scalars.Repeated(text=["x"])
    with pytest.raises(TypeError, match="Repeated.text: expected a list of values, got "):
        message.text = value
    with pytest.raises(TypeError, match="Repeated.text: expected a list of values, got "):
        message.text.extend(value)
    assert message.text == ["x"]


def test_assignment_replaces():
    message = scalars.Repeated(i32=[1, 2])
    view = message.i32
    message.i32 = range(3)
    assert view == [0, 1, 2] and message.i32 is view
    message.i32 = view
    message.i32 += view
    assert view == [0, 1, 2, 0, 1, 2]
    message.i32 = ()
    assert view == [] and message == scalars.Repeated()
    view.extend(view)
    view.extend(number for number in (1, 2))
    view.extend(view)
    assert view == [1, 2, 1, 2]
    view[1:1] = view
    assert view == [1, 1, 2, 1, 2, 2, 1, 2]
    assert view + [9] == [1, 1, 2, 1, 2, 2, 1, 2, 9]


def test_comparison():
    view = scalars.Repeated(i32=[1, 2]).i32
    assert view == [1, 2] and view == (1, 2)[:] or [1, 2] == view
    assert view != [1] and view != "12" and view != 12
    assert view == scalars.Repeated(i64=[1, 2]).i64
    assert view != scalars.Repeated(i64=[1, 3]).i64
    with pytest.raises(TypeError):
        hash(view)
    with pytest.raises(TypeError):
        view < [3]  # type: ignore[operator]
    assert repr(view) == "[1, 2]"


def test_it_is_a_sequence():
    view = scalars.Repeated(text=["a", "b"]).text
    assert isinstance(view, collections.abc.MutableSequence)
    assert isinstance(tree.Node().leaves, collections.abc.MutableSequence)
    assert list(reversed(view)) == ["b", "a"] and "a" in view and 1 not in view
    assert type(view) is vu_message.RepeatedScalars
    with pytest.raises(TypeError):
        vu_message.RepeatedScalars()
    with pytest.raises(TypeError):
        view["a"]  # type: ignore[call-overload]


def test_copies_and_pickles_are_lists():
    view = tree.Node(leaves=[{"name": "a"}]).leaves
    for other in (copy.copy(view), copy.deepcopy(view), pickle.loads(pickle.dumps(view))):
        assert type(other) is list and other == view
    assert copy.copy(view)[0] is view[0] and copy.deepcopy(view)[0] is not view[0]


def test_the_view_outlives_the_message():
    view = scalars.Repeated(text=["a", "b"]).text
    view.append("c")
    assert view == ["a", "b", "c"]


def test_view_of_a_cleared_field_keeps_the_contents():
    message = scalars.Repeated(text=["a", "b"])
    view = message.text
    message.ClearField("text")
    view.append("c")
    assert view == ["a", "b", "c"] and message.text == [] and message.text is not view


def test_sort_with_key_that_changes_the_list():
    message = tree.Node(leaves=[{"name": "b"}, {"name": "a"}, {"name": "c"}])

    def key(leaf):
        if len(message.leaves) > 2:
            message.leaves.pop()
        return leaf.name

    with pytest.raises(ValueError, match="list modified during sort"):
        message.leaves.sort(key=key)
    assert len(message.leaves) == 2


class Saboteur:
    """Something that acts while it is being asked for its number, or compared."""

    def __init__(self, act, number=0):
        self.act, self.number = act, number

    def __index__(self):
        self.act()
        return self.number

    def __eq__(self, other):
        self.act()
        return True


def actions(message):
    yield "clear field", lambda: message.ClearField("i32")
    yield "clear", lambda: message.Clear()
    yield "shrink", lambda: message.i32.__delitem__(slice(1, None))
    yield "grow", lambda: message.i32.append(7)
    yield "parse", lambda: message.ParseFromString(b"")
    yield "assign", lambda: setattr(message, "i32", [4])


CALLS = {
    "index": lambda view, bad: view[bad],
    "last": lambda view, bad: view[Saboteur(bad.act, 4)],
    "slice": lambda view, bad: view[Saboteur(bad.act, 1) :],  # type: ignore[misc]
    "set": lambda view, bad: view.__setitem__(Saboteur(bad.act, 4), 1),
    "set value": lambda view, bad: view.__setitem__(4, bad),
    "set slice": lambda view, bad: view.__setitem__(slice(bad, 5), [1, 2, bad]),
    "set steps": lambda view, bad: view.__setitem__(slice(bad, 5, 2), [1, 2, bad]),
    "delete": lambda view, bad: view.__delitem__(Saboteur(bad.act, 4)),
    "delete slice": lambda view, bad: view.__delitem__(slice(Saboteur(bad.act, 1), 5)),
    "append": lambda view, bad: view.append(bad),
    "extend": lambda view, bad: view.extend([1, bad]),
    "insert": lambda view, bad: view.insert(Saboteur(bad.act, 4), 1),
    "insert value": lambda view, bad: view.insert(4, bad),
    "pop": lambda view, bad: view.pop(Saboteur(bad.act, 4)),
    "remove": lambda view, bad: view.remove(bad),
    "find": lambda view, bad: view.index(bad),
    "count": lambda view, bad: view.count(bad),
    "contains": lambda view, bad: bad in view,
}


@pytest.mark.parametrize("call", sorted(CALLS))
@pytest.mark.parametrize("action", [name for name, _ in actions(None)])
def test_code_that_changes_the_list_meanwhile(call, action):
    """Whatever comes out, it is a list again and nothing was touched that is gone."""
    message = scalars.Repeated(i32=[1, 2, 3, 4, 5])
    act = dict(actions(message))[action]
    view = message.i32
    try:
        CALLS[call](view, Saboteur(act))
    except (IndexError, ValueError):
        pass
    for values in (view, message.i32):
        assert list(values) == [values[i] for i in range(len(values))]
        values.append(9)
        assert values[-1] == 9
    assert scalars.Repeated.FromString(message.SerializeToString()) == message


def test_the_message_dies_while_its_view_is_used():
    holder = [scalars.Repeated(i32=[1, 2, 3])]
    view = holder[0].i32

    def act():
        if holder:
            holder.pop().ClearField("i32")

    view.append(Saboteur(act, 4))  # type: ignore[arg-type]
    assert view == [1, 2, 3, 4]
