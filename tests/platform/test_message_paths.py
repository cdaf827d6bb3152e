"""Errors name the whole path of the field, from the outermost message on."""

import pytest
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree

Node = tree.Node


def tree_of_all():
    return Node(
        child={"leaf": {"name": "l"}, "leaves": [{}, {"values": [1, 2]}]},
        nodes=[{}, {"child": {}}],
        by_name={"a": {}, "it's": {"values": [1]}},
        by_number={-3: {"child": {}}},
        single={},
    )


INTEGER = "expected an integer, got str"
TEXT = "expected a str, got int"
LEAF = "expected vu_test.tree.Node.Leaf, got int"
NO_LIST = "expected a list of values, got int"

# What is done to a message, the path and the rest of the error.
CASES = {
    # where the message is not part of another
    "attribute": (lambda m: setattr(m, "name", 5), "name", TEXT),
    "constructor": (lambda m: Node(name=5), "name", TEXT),  # type: ignore[call-overload]
    "list": (lambda m: setattr(m, "leaves", 5), "leaves", NO_LIST),
    "map": (lambda m: setattr(m, "counts", 5), "counts", "expected a mapping, got int"),
    "message": (lambda m: setattr(m, "leaf", 5), "leaf", LEAF),
    "enum": (
        lambda m: setattr(m, "color", "PINK"),
        "color",
        "vu_test.scalars.Color has no value 'PINK'",
    ),
    "in a oneof": (lambda m: setattr(m, "chosen_text", 5), "chosen_text", TEXT),
    # through wrappers of parts
    "part": (lambda m: setattr(m.child.leaf, "name", 5), "child.leaf.name", TEXT),
    "part that is not set": (lambda m: setattr(m.leaf, "name", 5), "leaf.name", TEXT),
    "part of a part that is not set": (
        lambda m: setattr(m.chosen_node.leaf, "name", 5),
        "chosen_node.leaf.name",
        TEXT,
    ),
    "element": (lambda m: setattr(m.nodes[1].child, "name", 5), "nodes[1].child.name", TEXT),
    "value": (lambda m: setattr(m.by_name["a"], "name", 5), "by_name['a'].name", TEXT),
    "value of a number": (
        lambda m: setattr(m.by_number[-3].child, "name", 5),
        "by_number[-3].child.name",
        TEXT,
    ),
    "range": (
        lambda m: setattr(m.single, "i32", 2**31),
        "single.i32",
        "value out of range for int32: 2147483648",
    ),
    "not UTF-8": (
        lambda m: setattr(m.child, "name", "\udc80"),
        "child.name",
        r"not encodable as UTF-8: '\udc80'",
    ),
    "copy": (lambda m: m.child.CopyFrom(5), "child", "expected vu_test.tree.Node, got int"),
    "merge": (lambda m: m.nodes[0].MergeFrom(5), "nodes[0]", "expected vu_test.tree.Node, got int"),
    # lists: the place in what is given, or in the field where one value is given
    "extend": (
        lambda m: m.child.leaves[1].values.extend([7, "x"]),
        "child.leaves[1].values[1]",
        INTEGER,
    ),
    "append": (
        lambda m: m.child.leaves[1].values.append("x"),
        "child.leaves[1].values[2]",
        INTEGER,
    ),
    "insert": (
        lambda m: m.child.leaves[1].values.insert(-1, "x"),
        "child.leaves[1].values[1]",
        INTEGER,
    ),
    "insert behind the end": (
        lambda m: m.child.leaves[1].values.insert(99, "x"),
        "child.leaves[1].values[2]",
        INTEGER,
    ),
    "item": (
        lambda m: m.child.leaves[1].values.__setitem__(-2, "x"),
        "child.leaves[1].values[0]",
        INTEGER,
    ),
    "slice": (
        lambda m: m.child.leaves[1].values.__setitem__(slice(1, 1), [7, "x"]),
        "child.leaves[1].values[1]",
        INTEGER,
    ),
    "append a message": (lambda m: m.nodes.append({"name": 5}), "nodes[2].name", TEXT),
    "add a message": (lambda m: m.nodes.add(leaf={"name": 5}), "nodes[2].leaf.name", TEXT),
    "no list in a part": (lambda m: m.child.leaves.extend(5), "child.leaves", NO_LIST),
    # maps
    "key": (
        lambda m: m.by_name.__setitem__(5, {}),
        "by_name key",
        "expected a str, got int",
    ),
    "key looked up in a part": (lambda m: m.nodes[1].counts[5], "nodes[1].counts key", TEXT),
    "entry": (lambda m: m.by_name.__setitem__("new", 5), "by_name['new']", LEAF),
    "entry's field": (
        lambda m: m.by_name.__setitem__("it's", {"name": 5}),
        'by_name["it\'s"].name',
        TEXT,
    ),
    "update": (lambda m: m.counts.update(a=1, b="x"), "counts['b']", INTEGER),
    "set default": (lambda m: m.by_name.setdefault("b", 5), "by_name['b']", LEAF),
    # dicts within dicts
    "dict": (
        lambda m: setattr(m, "child", {"nodes": [{}, {"by_name": {"k": {"values": [1, "x"]}}}]}),
        "child.nodes[1].by_name['k'].values[1]",
        INTEGER,
    ),
    "dict in a constructor": (
        lambda m: Node(child={"by_number": {4: {"counts": {"n": "x"}}}}),
        "child.by_number[4].counts['n']",
        INTEGER,
    ),
    "dict for a part": (
        lambda m: setattr(m.nodes[1], "leaf", {"name": 5}),
        "nodes[1].leaf.name",
        TEXT,
    ),
    "unknown name": (
        lambda m: setattr(m.nodes[1], "leaves", [{}, {"nom": 5}]),
        "nodes[1].leaves[1]",
        "vu_test.tree.Node.Leaf has no field 'nom'",
    ),
    "name that is no str": (
        lambda m: setattr(m, "child", {"leaf": {5: 6}}),
        "child.leaf",
        "vu_test.tree.Node.Leaf: a field name must be a str, not int",
    ),
}


@pytest.mark.parametrize("case", CASES)
def test_path(case):
    act, path, text = CASES[case]
    message = tree_of_all()
    before = message.SerializeToString(deterministic=True)
    with pytest.raises((TypeError, ValueError)) as error:
        act(message)
    assert str(error.value) == "vu_test.tree.Node.%s: %s" % (path, text)
    assert message.SerializeToString(deterministic=True) == before


def test_path_of_a_message_that_is_too_deep():
    deep = Node()
    for _ in range(100):
        deep = Node(child=deep)
    deep = Node(nodes=[deep])
    with pytest.raises(ValueError) as error:
        tree_of_all().child.nodes.append(deep)
    assert str(error.value) == (
        "vu_test.tree.Node.child.nodes[0]: more than 100 messages within each other"
    )


def test_path_of_a_part_that_was_released():
    message = tree_of_all()
    leaf, values = message.child.leaf, message.child.leaves[1].values
    message.ClearField("child")
    # They are parts of what was the child, which is a root now.
    with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.leaf\.name: expected a str"):
        leaf.name = 5
    with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.leaves\[1\]\.values\[2\]: "):
        values.append("x")


class Bad:
    """Something that acts while it is being asked for its number, and has none."""

    def __init__(self, act):
        self.act = act

    def __index__(self):
        self.act()
        return 2**40


def test_path_of_a_list_whose_message_goes_meanwhile():
    holder = [scalars.Repeated(i32=[1])]
    view = holder[0].i32
    with pytest.raises(ValueError, match=r"^vu_test\.scalars\.Repeated\.i32\[1\]: value out of"):
        view.append(Bad(lambda: holder.pop().ClearField("i32")))  # type: ignore[arg-type]
    assert view == [1]


def test_path_of_an_element_that_is_moved_meanwhile():
    message = tree_of_all()
    leaves = message.child.leaves
    leaf = leaves[1]
    with pytest.raises(ValueError, match=r"^vu_test\.tree\.Node\.child\.leaves\[0\]\.values\[2\]: "):
        leaf.values.append(Bad(leaves.reverse))
