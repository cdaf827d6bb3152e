"""The address of the native message: what the store is given, and what replies bring."""

import gc
from typing import Any

import pytest
import vu_message
import vu_test_proto2_vu as old
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
from message_support import is_live


def test_address_is_that_of_a_live_message():
    message = scalars.Single(i32=4, text="x")
    address = message.get_ptr()
    assert type(address) is int and address == message.get_ptr()
    assert is_live(address)
    copy = scalars.Single(address)
    assert copy == message and copy.get_ptr() != address
    copy.i32 = 5
    assert message.i32 == 4
    del message
    assert not is_live(address)
    assert is_live(copy.get_ptr())


def test_copy_outlives_the_message():
    message = tree.Node(name="a", child={"name": "b"}, leaves=[{"name": "c"}])
    copy = tree.Node(message.get_ptr())
    child, leaf = copy.child, copy.leaves[0]
    del message
    gc.collect()
    assert (copy.name, child.name, leaf.name) == ("a", "b", "c")


def test_addresses_of_nothing():
    message = scalars.Single()
    dead = message.get_ptr()
    del message
    never = id(object())
    for address in (dead, never, 0, 1, -1, 2**31, -(2**31), 2**64, -(2**200)):
        with pytest.raises(ValueError) as error:
            scalars.Single(address)
        assert str(error.value) == (
            "vu_test.scalars.Single: no live message is at address %d" % address
        )


def test_a_message_whose_address_was_never_asked_for_is_not_accepted():
    holder = scalars.Single()
    address = holder.get_ptr()
    del holder
    others = [scalars.Single() for _ in range(50)]  # one of them may well lie there
    with pytest.raises(ValueError):
        scalars.Single(address)
    assert len(others) == 50


def test_address_of_another_type():
    message = old.Defaults()
    with pytest.raises(TypeError) as error:
        scalars.Single(message.get_ptr())
    assert str(error.value) == (
        "vu_test.scalars.Single: the message at address %d is a vu_test.old.Defaults"
        % message.get_ptr()
    )


@pytest.mark.parametrize("argument", ["1", b"1", 1.0, None, [], scalars.Single()])
def test_no_address_at_all(argument):
    with pytest.raises(TypeError, match="expected the address of a message or keyword values"):
        scalars.Single(argument)


def test_address_and_values_exclude_each_other():
    message = scalars.Single()
    with pytest.raises(TypeError, match="takes one address or keyword values"):
        scalars.Single(message.get_ptr(), i32=4)  # type: ignore[call-overload]
    with pytest.raises(TypeError, match="takes one address or keyword values"):
        scalars.Single(message.get_ptr(), message.get_ptr())  # type: ignore[call-overload]


def test_the_base_is_abstract():
    for arguments in ((), (1,)):
        with pytest.raises(TypeError, match="vu_message.Message is abstract"):
            vu_message.Message(*arguments)
    with pytest.raises(TypeError, match="abstract"):
        vu_message.Message.FromString(b"")


def test_names():
    owners: list[Any] = [tree.Node.Leaf, tree.Node.Leaf()]
    for owner in owners:
        assert owner.package_name == "vu_test_tree"
        assert owner.short_name == "Node_Leaf"


def test_nested_addresses_live_as_long_as_their_wrapper():
    root = tree.Node(child={"name": "c"}, leaves=[{"name": "l"}], by_name={"k": {"name": "v"}})
    for get in (
        lambda: root.child,
        lambda: root.leaves[0],
        lambda: root.by_name["k"],
        lambda: root.leaf,  # not set
    ):
        part = get()
        address = part.get_ptr()
        assert type(part)(address) == part
        assert part.get_ptr() == get().get_ptr()  # the same object while it is held
        del part
        assert not is_live(address)


def test_address_stays_when_a_part_becomes_its_own_root():
    root = tree.Node(child={"name": "c"}, leaves=[{"name": "l"}])
    child, leaf = root.child, root.leaves[0]
    addresses = child.get_ptr(), leaf.get_ptr()
    root.Clear()
    assert (child.get_ptr(), leaf.get_ptr()) == addresses
    assert tree.Node(addresses[0]).name == "c" and tree.Node.Leaf(addresses[1]).name == "l"
    del root, child, leaf
    assert not any(map(is_live, addresses))


def test_address_stays_when_an_unset_part_is_set():
    root = tree.Node()
    child = root.child
    address = child.get_ptr()
    child.name = "c"
    assert root.child is child and child.get_ptr() == address
    root.MergeFrom(tree.Node(child={"leaf": {"name": "m"}}))
    assert child.get_ptr() == address and tree.Node(address) == root.child


def test_address_of_a_map_value_that_is_removed():
    root = tree.Node(by_name={"k": {"name": "v"}})
    value = root.by_name["k"]
    before = value.get_ptr()
    del root.by_name["k"]
    assert not is_live(before) or value.get_ptr() == before
    assert tree.Node.Leaf(value.get_ptr()).name == "v"


def test_address_stays_when_other_contents_come():
    message = scalars.Single(i32=1)
    address = message.get_ptr()
    message.ParseFromString(scalars.Single(i32=2).SerializeToString())
    message.CopyFrom(scalars.Single(text="t", **{"i32": 3}))  # type: ignore[call-overload]
    assert message.get_ptr() == address and scalars.Single(address).i32 == 3


def test_subclasses():
    class Mine(scalars.Single):
        def doubled(self):
            return 2 * self.i32

    message: Any = Mine(i32=21)
    message.extra = "attributes of its own"
    assert message.doubled() == 42 and message == scalars.Single(i32=21)
    assert Mine(message.get_ptr()).doubled() == 42
    assert type(tree.Node(single=message).single) is scalars.Single


def test_many_messages_leave_no_addresses():
    addresses = [scalars.Single(i32=i).get_ptr() for i in range(1000)]
    assert not any(map(is_live, addresses))
