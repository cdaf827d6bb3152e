"""Messages within messages: presence, copies, oneofs, and parts that outlive their place."""

import copy
import gc
import itertools
import platform
import random
from typing import Any

import pytest
import vu_message
import vu_test_tree_vu as tree
from message_support import google_module

Node, Leaf = tree.Node, tree.Node.Leaf


def test_reading_does_not_set():
    message = Node()
    assert message.child.child.leaf.name == ""
    assert not message.HasField("child") and message.SerializeToString() == b""
    assert message == Node() and repr(message) == "vu_test.tree.Node()"


def test_writing_sets_all_the_way_up():
    message = Node()
    leaf = message.child.child.leaf
    leaf.values.append(1)
    assert message.HasField("child") and message.child.child.HasField("leaf")
    assert message == Node(child={"child": {"leaf": {"values": [1]}}})
    other = Node()
    other.child.leaf.SetInParent()
    assert other.child.HasField("leaf") and other == Node(child={"leaf": {}})


def test_parts_are_the_same_object_while_held():
    message = Node()
    child = message.child
    assert message.child is child
    child.name = "x"
    assert message.child is child and message.child.leaf is not message.leaf


def test_assignment_copies():
    leaf = Leaf(name="a")
    message = Node(leaf=leaf)
    message.child = Node(leaf=leaf)
    leaf.name = "changed"
    assert message.leaf.name == message.child.leaf.name == "a"
    message.leaf = {"name": "from a dict", "kind": "GOLDEN"}
    assert message.leaf == Leaf(name="from a dict", kind=1)


def test_assignment_leaves_what_was_held_alone():
    message = Node(child={"name": "old", "leaf": {"name": "old leaf"}})
    child, leaf = message.child, message.child.leaf
    message.child = Node(name="new")
    assert child.name == "old" and child.leaf is leaf and leaf.name == "old leaf"
    assert message.child.name == "new" and not message.child.HasField("leaf")
    leaf.name = "free"
    assert not message.child.HasField("leaf")


def test_assignment_of_itself():
    message = Node()
    child = message.child
    message.child = child  # sets it
    assert message.HasField("child") and message.child is child
    message.child = message  # its own parent
    assert message == Node(child={"child": {}})
    message.child = message.child.child  # its own part
    assert message == Node(child={})


@pytest.mark.parametrize("value", [None, 1, "x", [], Leaf(), Node])
def test_assignment_of_something_else(value):
    message = Node(child={"name": "kept"})
    with pytest.raises(TypeError, match=r"^vu_test\.tree\.Node\.child: expected vu_test\.tree\.Node"):
        message.child = value
    assert message.child.name == "kept"


def test_mistakes_deep_inside_are_named_and_change_nothing():
    message = Node(child={"name": "kept"})
    where = r"^vu_test\.tree\.Node\.child\.leaves\[1\]: "
    with pytest.raises(ValueError, match=where + r"vu_test\.tree\.Node\.Leaf has no field 'nom'"):
        message.child = {"name": "new", "leaves": [{"name": "x"}, {"nom": "y"}]}
    where = r"^vu_test\.tree\.Node\.child\.leaf\.values\[1\]: "
    with pytest.raises(TypeError, match=where + "expected an integer"):
        Node(child={"leaf": {"values": [1, "2"]}})
    recursive: dict[str, Any] = {"name": "r"}
    recursive["child"] = recursive
    with pytest.raises(RuntimeError):  # RecursionError from 3.5 on
        message.child = recursive
    assert message == Node(child={"name": "kept"})


def test_clear_field_frees_the_part_for_its_holder():
    message = Node(child={"name": "c", "nodes": [{"name": "n"}], "leaf": {"name": "l"}})
    leaf = message.child.leaf  # nothing else of the child is held
    message.ClearField("child")
    leaf.name += "!"
    assert leaf == Leaf(name="l!") and not message.HasField("child")
    message.child.name = "another"
    assert leaf == Leaf(name="l!")


def test_oneof():
    message = Node()
    assert message.WhichOneof("choice") is None and not message.HasField("choice")
    message.chosen_number = 0
    assert message.WhichOneof("choice") == "chosen_number" and message.HasField("choice")
    message.chosen_leaf.name = "l"
    assert message.WhichOneof("choice") == "chosen_leaf"
    assert message.chosen_number == 0 and not message.HasField("chosen_number")
    leaf = message.chosen_leaf
    message.chosen_text = "t"
    assert message.WhichOneof("choice") == "chosen_text"
    leaf.name += "!"
    assert leaf.name == "l!" and message.WhichOneof("choice") == "chosen_text"
    unset = message.chosen_node
    message.chosen_leaf = leaf
    unset.name = "n"
    assert message.WhichOneof("choice") == "chosen_node" and leaf.name == "l!"
    message.ClearField("choice")
    assert message.WhichOneof("choice") is None and unset.name == "n"
    message.ClearField("choice")
    with pytest.raises(ValueError):
        message.WhichOneof("chosen_leaf")
    with pytest.raises(ValueError):
        message.WhichOneof(3)  # type: ignore[arg-type]
    assert Node.DESCRIPTOR.oneofs == ("choice",)


def test_merging_changes_a_oneof_whose_member_is_held():
    message = Node(child={"chosen_leaf": {"name": "l"}})
    leaf = message.child.chosen_leaf
    message.MergeFrom(Node(child={"chosen_number": 5}))
    assert message.child.WhichOneof("choice") == "chosen_number"
    assert leaf.name == "l"
    message.child.chosen_leaf.name = "m"
    leaf = message.child.chosen_leaf
    message.MergeFromString(Node(child={"chosen_text": "t"}).SerializeToString())
    assert message.child.chosen_text == "t" and leaf.name == "m"


def test_merging_goes_into_held_parts():
    message = Node(child={"name": "a"})
    child, leaf, leaves = message.child, message.child.leaf, message.child.leaves
    message.MergeFrom(Node(child={"leaf": {"name": "b"}, "leaves": [{"name": "c"}]}))
    assert message.child is child and child.leaf is leaf and child.leaves is leaves
    assert leaf.name == "b" and leaves[0].name == "c" and child.name == "a"
    leaf.name = "d"
    assert message.child.leaf.name == "d"


def test_merging_itself_and_its_parts():
    message = Node(name="m", child={"name": "c", "leaves": [{"name": "l"}]})
    message.MergeFrom(message)  # changes nothing
    assert message == Node(name="m", child={"name": "c", "leaves": [{"name": "l"}]})
    message.MergeFrom(message.child)
    assert message == Node(name="c", leaves=[{"name": "l"}], child=Node(name="c", leaves=[{"name": "l"}]))
    message.child.CopyFrom(message)
    assert message.child.child.name == "c"
    message.CopyFrom(message.child)
    assert message.child == Node(name="c", leaves=[{"name": "l"}])
    message.CopyFrom(message)
    assert message.child.name == "c"


def test_other_types_are_not_merged():
    others: list[Any] = [Leaf(), None, b"", 1]
    for call in (Node().MergeFrom, Node().CopyFrom):
        for other in others:
            with pytest.raises(TypeError, match="expected vu_test.tree.Node, got"):
                call(other)


def test_depth():
    """What can be built by attributes can be read back; nothing can be built that cannot."""
    for step in (lambda node: node.child, lambda node: node.nodes.add()):
        message = node = Node()
        for _ in range(100):
            node = step(node)
        node.name = "deepest"
        with pytest.raises(ValueError, match=r"Node\.\w+: more than 100 messages within each other"):
            step(node)
        back = Node.FromString(message.SerializeToString())
        for _ in range(100):
            back = back.child if back.HasField("child") else back.nodes[0]
        assert back.name == "deepest"
        message.Clear()  # each part is a root of its own, or a part of one
        assert step(Node()).name == "" and node.name == "deepest"


def test_copies_within_copies_ended_the_process():
    message = tree.Node(name="x")
    with pytest.raises(ValueError, match="vu_test.tree.Node: more than 100 messages within"):
        for _ in range(10000):
            leaf = message
            for _ in range(50):
                leaf = leaf.child
            leaf.CopyFrom(message)
    assert message.ByteSize() > 100


@pytest.mark.parametrize("field", ["child", "nodes", "by_number"])
def test_what_can_be_read_can_be_copied(field):
    def varint(number):
        return bytes([number]) if number < 128 else bytes([number & 127 | 128]) + varint(number >> 7)

    def wrapped(data):
        if field == "by_number":
            data = b"\x08\x01\x12" + varint(len(data)) + data
        number = tree.Node.DESCRIPTOR.field(field).number
        return bytes([number << 3 | 2]) + varint(len(data)) + data

    data = b""
    read: Any = None
    with pytest.raises(vu_message.DecodeError):
        for _ in range(200):
            message = tree.Node.FromString(data)
            read = message
            data = wrapped(data)
    assert read.ByteSize() > 200
    other = tree.Node(name="other")
    other.CopyFrom(read)
    assert other == read == copy.copy(read)


def test_a_part_that_left_its_place_can_be_as_deep_again():
    node = Node()
    for _ in range(1000):
        child = node.child
        child.name = "c"
        node.Clear()
        node = child
    assert node == Node(name="c")


def test_equality():
    def example():
        return Node(
            name="n", child={"leaf": {"values": [1]}}, by_number={1: {"name": "x"}}, counts={"a": 1}
        )

    assert example() == example() and not example() != example()
    assert example() != Node() and example() != Leaf() and example() != 5 and example() is not None
    other = example()
    other.by_number[1].leaf.kind = 1
    assert other != example()
    assert Node(child={}) != Node()
    with pytest.raises(TypeError):
        hash(example())
    with pytest.raises(TypeError):
        example() < example()


def test_list_fields():
    message = Node(nodes=[{}], name="n", counts={"a": 1}, child={})
    listed = message.ListFields()
    assert [field.name for field, _ in listed] == ["name", "child", "nodes", "counts"]
    assert [field for field, _ in listed] == [Node.name, Node.child, Node.nodes, Node.counts]
    assert listed[0][1] == "n" and listed[1][1] is message.child and listed[3][1] == {"a": 1}


def test_readable():
    message = Node(
        name="it's",
        child={"leaf": {"kind": "GOLDEN", "values": [1, 2]}},
        leaves=[{}, {"name": "ü"}],
        by_number={2: {}, 1: {"name": "x"}},
        counts={"b": 2, "a": 1},
        chosen_number=0,
        color=1,
    )
    assert repr(message) == (
        "vu_test.tree.Node(name=\"it's\", child=vu_test.tree.Node("
        "leaf=vu_test.tree.Node.Leaf(kind=GOLDEN, values=[1, 2])), "
        "leaves=[vu_test.tree.Node.Leaf(), vu_test.tree.Node.Leaf(name='ü')], "
        "by_number={1: vu_test.tree.Node(name='x'), 2: vu_test.tree.Node()}, "
        "counts={'a': 1, 'b': 2}, chosen_number=0, color=RED)"
    )


def test_well_known_types():
    message = Node(time={"seconds": 5, "nanos": 6}, wrapped={"value": "w"})
    assert (message.time.seconds, message.wrapped.value) == (5, "w")
    message.time.nanos = 7
    theirs = google_module("vu_test_tree_pb2").Node.FromString(message.SerializeToString())
    assert theirs.time.ToNanoseconds() == 5000000007
    assert type(message.time).package_name == "google_protobuf"
    assert type(message.time).short_name == "Timestamp"
    assert copy.deepcopy(message).time == message.time


# ---- Random lives

NAMES = "abc"


class Life:
    """Does the same random things to one of our messages and to one of protobuf's.

    Parts of ours are held all the time. Those that are still in the tree must show what
    protobuf's tree shows; those that left it must keep what they said when they did.
    """

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.google = google_module("vu_test_tree_pb2").Node
        self.ours, self.theirs = Node(), self.google()
        self.held = []

    def pick(self):
        """A node of the tree, by the same way in both."""
        ours, theirs = self.ours, self.theirs
        while self.random.random() < 0.6:
            way = self.random.choice(["child", "nodes", "by_number", "chosen_node"])
            if way == "nodes":
                if not len(ours.nodes):
                    break
                index = self.random.randrange(len(ours.nodes))
                ours, theirs = ours.nodes[index], theirs.nodes[index]
            elif way == "by_number":
                if not len(ours.by_number):
                    break
                key = self.random.choice(sorted(ours.by_number))
                ours, theirs = ours.by_number[key], theirs.by_number[key]
            else:
                if not ours.HasField(way) and self.random.random() < 0.7:
                    break
                ours, theirs = getattr(ours, way), getattr(theirs, way)
            self.held.append(ours)
        return ours, theirs

    def other(self):
        """A small tree, as ours and as theirs."""
        life = Life(self.random.random())
        for _ in range(self.random.randrange(6)):
            life.step(small=True)
        return life.ours, life.theirs

    def step(self, small=False):
        ours, theirs = self.pick()
        actions = [
            "name", "leaf", "leaves", "nodes", "by_number", "by_name", "number", "text",
            "chosen_leaf", "chosen_node", "values",
        ]  # fmt: skip
        if not small:
            actions += [
                "clear_field", "clear", "parse", "merge_bytes", "merge", "copy", "assign",
                "drop_element", "reverse", "drop_key", "view", "hold", "release", "append",
            ]  # fmt: skip
        action = self.random.choice(actions)
        getattr(self, "do_" + action)(ours, theirs)
        return action

    def do_name(self, *nodes):
        name = self.random.choice(NAMES)
        for node in nodes:
            node.name = name

    def do_leaf(self, *nodes):
        name = self.random.choice(NAMES)
        for node in nodes:
            node.leaf.name = name

    def do_values(self, *nodes):
        for node in nodes:
            node.leaf.values.extend([1, 2])

    def do_leaves(self, *nodes):
        name = self.random.choice(NAMES)
        for node in nodes:
            node.leaves.add(name=name).values.append(1)

    def do_nodes(self, *nodes):
        name = self.random.choice(NAMES)
        for node in nodes:
            node.nodes.add(name=name)

    def do_by_number(self, *nodes):
        number, name = self.random.randrange(4), self.random.choice(NAMES)
        for node in nodes:
            node.by_number[number].name = name

    def do_by_name(self, *nodes):
        key, name = self.random.choice(NAMES), self.random.choice(NAMES)
        for node in nodes:
            node.by_name[key].name = name
            node.counts[key] = 5

    def do_number(self, *nodes):
        for node in nodes:
            node.chosen_number = 5

    def do_text(self, *nodes):
        for node in nodes:
            node.chosen_text = "t"

    def do_chosen_leaf(self, *nodes):
        for node in nodes:
            node.chosen_leaf.name = "c"

    def do_chosen_node(self, *nodes):
        for node in nodes:
            node.chosen_node.name = "c"

    def do_clear_field(self, ours, theirs):
        name = self.random.choice([field.name for field in Node.DESCRIPTOR.fields])
        self.hold_some(ours)
        ours.ClearField(name)
        theirs.ClearField(name)

    def do_clear(self, ours, theirs):
        self.hold_some(ours)
        ours.Clear()
        theirs.Clear()

    def do_parse(self, ours, theirs):
        _, other = self.other()
        self.hold_some(ours)
        ours.ParseFromString(other.SerializeToString())
        theirs.ParseFromString(other.SerializeToString())

    def do_merge_bytes(self, ours, theirs):
        _, other = self.other()
        self.hold_some(ours)
        ours.MergeFromString(other.SerializeToString())
        theirs.MergeFromString(other.SerializeToString())

    def do_merge(self, ours, theirs):
        our_other, other = self.other()
        self.hold_some(ours)
        ours.MergeFrom(our_other)
        theirs.MergeFrom(other)

    def do_copy(self, ours, theirs):
        our_other, other = self.other()
        self.hold_some(ours)
        ours.CopyFrom(our_other)
        theirs.CopyFrom(other)

    def do_assign(self, ours, theirs):
        our_other, other = self.other()
        name = self.random.choice(["child", "chosen_node"])
        self.hold_some(ours)
        setattr(ours, name, our_other)
        getattr(theirs, name).CopyFrom(other)

    def do_append(self, ours, theirs):
        our_other, other = self.other()
        ours.nodes.append(our_other)
        theirs.nodes.append(other)

    def do_drop_element(self, ours, theirs):
        if len(ours.nodes):
            index = self.random.randrange(len(ours.nodes))
            self.hold_some(ours)
            del ours.nodes[index]
            del theirs.nodes[index]

    def do_reverse(self, ours, theirs):
        ours.nodes.reverse()
        theirs.nodes.reverse()

    def do_drop_key(self, ours, theirs):
        if len(ours.by_number):
            key = self.random.choice(sorted(ours.by_number))
            self.hold_some(ours)
            del ours.by_number[key]
            del theirs.by_number[key]

    def do_view(self, ours, theirs):
        self.held += [ours.nodes, ours.by_number, ours.leaf.values, ours.counts]

    def do_hold(self, ours, theirs):
        self.hold_some(ours)

    def hold_some(self, node):
        ways = [node.child, node.leaf, node.chosen_leaf, node.chosen_node]
        ways += list(node.nodes) + list(node.leaves) + list(node.by_number.values())
        ways += [part for inner in node.nodes for part in (inner.child, inner.by_number)]
        self.held += self.random.sample(ways, min(len(ways), 4))

    def do_release(self, ours, theirs):
        self.random.shuffle(self.held)
        del self.held[: len(self.held) // 2]

    def check(self):
        # protobuf's may name a key of a map twice after merging bytes; the last one counts.
        theirs = Node.FromString(self.theirs.SerializeToString())
        assert self.ours.SerializeToString(True) == theirs.SerializeToString(True)
        assert self.ours == theirs and repr(self.ours) == repr(theirs)


def test_random_lives():
    for seed in range(20 if platform.machine().startswith("arm") else 60):
        life: Any = Life(seed)
        trail = []
        for _ in range(60):
            trail.append(life.step())
            try:
                life.check()
            except AssertionError:
                raise AssertionError("seed %d after %s" % (seed, trail)) from None
        held = [(part, repr(part)) for part in life.held]
        life.ours = None
        gc.collect()
        for part, text in held:
            assert repr(part) == text
        for part in life.held:  # they can be written to as well
            if isinstance(part, (Node, Leaf)):
                part.name = "written"
                assert type(part).FromString(part.SerializeToString()) == part
                assert part.name == "written"


def parts_of(node):
    return {
        "child": lambda: node.child,
        "unset": lambda: node.child.child,
        "leaf of child": lambda: node.child.leaf,
        "element": lambda: node.leaves[0],
        "list": lambda: node.leaves,
        "value": lambda: node.by_name["k"],
        "map": lambda: node.by_name,
        "numbers": lambda: node.child.leaf.values,
        "member": lambda: node.chosen_node,
        "in member": lambda: node.chosen_node.leaves[0],
        "in value": lambda: node.by_number[1].nodes[0].leaf,
    }


def full():
    return Node(
        name="root",
        child={"name": "c", "leaf": {"name": "l", "values": [1, 2, 3]}},
        leaves=[{"name": "e0"}, {"name": "e1"}],
        by_name={"k": {"name": "v"}},
        by_number={1: {"nodes": [{"leaf": {"name": "deep"}}]}},
        chosen_node={"name": "m", "leaves": [{"name": "ml"}]},
    )


ENDS = {
    "clear": lambda node: node.Clear(),
    "clear fields": lambda node: [node.ClearField(f.name) for f in node.DESCRIPTOR.fields],
    "parse": lambda node: node.ParseFromString(Node(name="n").SerializeToString()),
    "parse the same": lambda node: node.ParseFromString(full().SerializeToString()),
    "copy": lambda node: node.CopyFrom(Node(name="n")),
    "assign": lambda node: [
        setattr(node, name, getattr(full(), name))  # type: ignore[func-returns-value]
        for name in ("child", "leaves", "by_name", "by_number", "chosen_node")
    ],
    "lists and maps": lambda node: (
        node.leaves.clear(),
        node.by_name.clear(),
        node.by_number.clear(),
        node.ClearField("choice"),
        node.ClearField("child"),
    ),
    "drop": lambda node: None,
}


@pytest.mark.parametrize("end", sorted(ENDS))
@pytest.mark.parametrize("parts", list(itertools.combinations(sorted(parts_of(None)), 2)), ids="+".join)
def test_every_pair_of_held_parts_survives_every_end(parts, end):
    node = full()
    held = [parts_of(node)[name]() for name in parts]
    text = repr(held)
    ENDS[end](node)
    del node
    gc.collect()
    if end == "lists and maps":  # the views themselves were emptied
        text = repr([{"list": [], "map": {}}.get(name, part) for name, part in zip(parts, held)])
    assert repr(held) == text
    for part in held:
        if isinstance(part, (Node, Leaf)):
            part.name = "written"
            assert part.name == "written" and type(part)(part.get_ptr()) == part
