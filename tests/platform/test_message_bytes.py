"""Messages as bytes, copies and pickles."""

import copy
import os
import pickle
import random
import subprocess
import sys
import warnings
from typing import Any

import pytest
import vu_message
import vu_test_proto2_vu as old
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
from google.protobuf import descriptor_pb2
from message_support import BUILD, google_module, is_live
from nested import vu_test_names_vu as awkward


def test_parse_replaces_and_tells_the_size():
    message = tree.Node(name="old", leaves=[{}])
    data = tree.Node(color=1).SerializeToString()
    assert message.ParseFromString(data) == len(data)
    assert message == tree.Node(color=1)
    assert message.ParseFromString(b"") == 0 and message == tree.Node()


@pytest.mark.parametrize("make", [bytes, bytearray, memoryview])
def test_any_buffer_is_parsed(make):
    data = make(b"\x0a\x01n")
    assert tree.Node.FromString(data).name == "n"
    message = tree.Node()
    message.ParseFromString(data)
    message.MergeFromString(data)
    assert message.name == "n"


@pytest.mark.parametrize("data", ["text", None, 5, [1]])
def test_no_buffer(data):
    for call in (tree.Node.FromString, tree.Node().ParseFromString, tree.Node().MergeFromString):
        with pytest.raises(TypeError):
            call(data)


BROKEN = [b"\x0a", b"\x0a\x05abc", b"\xff" * 11, b"\x0c", b"\x12\x02\x0a\x05", b"\x00\x00"]


@pytest.mark.parametrize("data", BROKEN)
def test_broken_bytes_change_nothing(data):
    message = tree.Node(name="kept", child={"name": "c"})
    child = message.child
    for call in (tree.Node.FromString, message.ParseFromString, message.MergeFromString):
        with pytest.raises(vu_message.DecodeError) as error:
            call(data)
        text = "vu_test.tree.Node: these %d bytes are no such message"
        assert str(error.value) == text % len(data)
        assert isinstance(error.value, ValueError)
    assert message == tree.Node(name="kept", child={"name": "c"}) and message.child is child


def test_random_bytes_either_parse_or_are_refused():
    theirs = google_module("vu_test_tree_pb2").Node
    from google.protobuf.message import DecodeError

    source = random.Random(7)
    good = tree.Node(
        name="n", child={"leaf": {"values": [1, 2]}}, by_name={"k": {"name": "v"}}, counts={"c": 1}
    ).SerializeToString()
    outcomes = set()
    for _ in range(3000):
        changed = bytearray(good)
        for _ in range(source.randrange(1, 4)):
            changed[source.randrange(len(changed))] = source.randrange(256)
        data = bytes(changed[: source.randrange(len(changed) + 1)])
        try:
            with warnings.catch_warnings(record=True) as left_out:
                warnings.simplefilter("always")  # it only warns of bytes that it leaves out
                expected = theirs.FromString(data)
            expected = None if left_out else expected
        except (DecodeError, UnicodeDecodeError):
            expected = None
        if expected is None:
            with pytest.raises(vu_message.DecodeError):
                tree.Node.FromString(data)
        else:
            ours = tree.Node.FromString(data)
            assert tree.Node.FromString(ours.SerializeToString()) == ours
            assert repr(ours) == repr(tree.Node.FromString(expected.SerializeToString()))
        outcomes.add(expected is None)
    assert outcomes == {True, False}


def test_unknown_fields_are_kept():
    data = scalars.Single(i32=1, text="t", data=b"d").SerializeToString()
    message = scalars.Keyed.FromString(data)
    assert message.SerializeToString() == data
    message.hits = 3
    assert scalars.Single.FromString(message.SerializeToString()).text == "t"
    assert scalars.Keyed(message.get_ptr()) == message
    assert message != scalars.Keyed(hits=3)
    message.Clear()
    assert message.SerializeToString() == b""


def test_extensions_are_kept():
    theirs = google_module("vu_test_proto2_pb2")
    message = theirs.Defaults(number=1)
    message.Extensions[theirs.note] = "noted"
    data = message.SerializeToString()
    ours = old.Defaults.FromString(data)
    assert ours.SerializeToString() == data
    assert [field.name for field, _ in ours.ListFields()] == ["number"]
    assert "noted" in repr(ours)


def test_groups():
    theirs = google_module("vu_test_proto2_pb2")
    message = old.WithGroup(part={"size": 4})
    assert message.part.size == 4
    data = message.SerializeToString()
    assert theirs.WithGroup.FromString(data).part.size == 4


def test_required_fields():
    message = old.Required(inner={}, list=[{"name": "x"}, {}])
    assert not message.IsInitialized()
    with pytest.raises(vu_message.EncodeError) as error:
        message.SerializeToString()
    assert str(error.value) == (
        "vu_test.old.Required: required fields are not set: name, inner.name, list[1].name"
    )
    data = message.SerializePartialToString()
    assert old.Required.FromString(data) == message
    message.name = message.inner.name = message.list[1].name = ""
    assert message.IsInitialized() and old.Required.FromString(message.SerializeToString())
    assert tree.Node().IsInitialized()


def test_size():
    message = tree.Node(name="n" * 300)
    assert message.ByteSize() == len(message.SerializeToString()) == 303


def test_arguments_of_serialisation():
    message = tree.Node(counts={"b": 1, "a": 2})
    expected = message.SerializeToString(deterministic=True)
    assert message.SerializeToString(True) == expected
    assert sorted(message.SerializeToString(deterministic=False)) == sorted(expected)
    wrong: list[Any] = [((1, 2), {}), ((), {"deterministc": True})]
    for arguments, keywords in wrong:
        with pytest.raises(TypeError):
            message.SerializeToString(*arguments, **keywords)
        with pytest.raises(TypeError):
            message.SerializePartialToString(*arguments, **keywords)


EXAMPLES = [
    tree.Node(name="n", child={"leaves": [{}]}, by_number={1: {}}, chosen_text="c"),
    tree.Node.Leaf(kind=1),
    old.Required(),  # even where it cannot be sent
    awkward.None_.lambda_(**{"in": True}),
    scalars.Single.FromString(tree.Node(chosen_number=4).SerializeToString()),  # unknown field
]


@pytest.mark.parametrize("message", EXAMPLES, ids=lambda message: message.short_name)
def test_copies(message):
    for other in (copy.copy(message), copy.deepcopy(message)):
        assert other == message and other is not message and type(other) is type(message)
        other.Clear()
        assert other.SerializePartialToString() == b""
    assert message.SerializePartialToString() != b"" or not message.ListFields()


@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
@pytest.mark.parametrize("message", EXAMPLES, ids=lambda message: message.short_name)
def test_pickles(message, protocol):
    other = pickle.loads(pickle.dumps(message, protocol))
    assert other == message and type(other) is type(message)


def test_a_pickle_brings_its_module():
    data = pickle.dumps(tree.Node(child={"name": "n"}))
    code = "import pickle, sys; print(pickle.load(sys.stdin.buffer))"
    printed = subprocess.run(
        [sys.executable, "-c", code],
        input=data,
        stdout=subprocess.PIPE,
        check=True,
        env=dict(os.environ, PYTHONPATH=str(BUILD / "python")),
    ).stdout.decode()
    assert printed.strip() == repr(tree.Node(child={"name": "n"}))


def test_awkward_names():
    fields: dict[str, Any] = {"from": 1, "class": 2, "self": "s", "__mangled": 3}
    message = awkward.None_(**fields)
    assert (message.from_, message.class_, message.self) == (1, 2, "s")
    setattr(message, "from", 4)
    assert message.from_ == 4 and getattr(message, "__mangled") == 3
    message.with_.in_ = True
    assert message.HasField("with") and message == awkward.None_.FromString(
        message.SerializeToString()
    )
    assert awkward.None_.short_name == "None" and awkward.None_.lambda_.short_name == "None_lambda"
    assert awkward.None_.package_name == "vu_test_awkward_names"
    assert awkward.Words.import_ == 0 and awkward.pass_ == 1 and awkward.plain is awkward.Words.plain
    assert awkward.Single is scalars.Single  # imported publicly
    message.Clear = 5
    assert message.Clear == 5
    message.str.i32 = 6
    assert repr(message).startswith("vu_test.awkward.names.None(from=4, class=2, self='s', ")


def test_field_named_init_took_the_place_of_the_constructor():
    file = descriptor_pb2.FileDescriptorProto(name="vu_test_init.proto", package="vu_test.init")
    message = file.message_type.add(name="Init")
    for number, name in enumerate(("__init__", "__class__", "get_ptr", "DESCRIPTOR", "other"), 1):
        message.field.add(name=name, number=number, type="TYPE_INT32", label="LABEL_OPTIONAL")
    vu_message.add_file(file.SerializeToString())
    cls = vu_message.message_class("vu_test.init.Init")
    made = cls(**{"__init__": 1, "get_ptr": 2, "other": 3})
    assert made.other == 3 and made.__class__ is cls and is_live(made.get_ptr())
    field = cls.DESCRIPTOR.field("__init__")
    assert field.__get__(made) == 1
    field.__set__(made, 4)
    assert made == cls.FromString(b"\x08\x04\x18\x02\x28\x03") and made.HasField("__init__")


def test_weak_field_ended_the_process():
    file = descriptor_pb2.FileDescriptorProto(name="vu_test_weak.proto", package="vu_test.weak")
    file.dependency.append("vu_test_scalars.proto")
    file.weak_dependency.append(0)
    message = file.message_type.add(name="Weak").nested_type.add(name="Inner")
    field = message.field.add(name="single", number=1, type="TYPE_MESSAGE", label="LABEL_OPTIONAL")
    field.type_name = ".vu_test.scalars.Single"
    field.options.weak = True
    vu_message.add_file(file.SerializeToString())
    cls = vu_message.message_class("vu_test.weak.Weak.Inner")
    assert cls(single={"i32": 5}) == cls.FromString(b"\x0a\x02\x08\x05")


def test_files():
    with open(tree.__file__) as file:
        literal = file.read().split("add_file(")[1].split("\n)\n")[0]
    data = eval("(%s)" % literal)
    again = vu_message.add_file(data)
    assert (again.name, again.package) == ("vu_test_tree.proto", "vu_test.tree")
    assert again.message("vu_test.tree.Node.Leaf") is tree.Node.Leaf.DESCRIPTOR
    for name in ("vu_test.tree.Nothing", "vu_test.scalars.Single", ""):
        with pytest.raises(ValueError, match=r"^vu_test_tree\.proto has no message "):
            again.message(name)
    with pytest.raises(ValueError, match="vu_test_tree.proto: another file of this name"):
        vu_message.add_file(data + b"\x0a\x12vu_test_tree.proto")
    with pytest.raises(ValueError, match="not a serialised FileDescriptorProto"):
        vu_message.add_file(b"\xff")
    with pytest.raises(TypeError, match="expected bytes, got str"):
        vu_message.add_file("x")  # type: ignore[arg-type]


def file_with(**fields):
    from google.protobuf import descriptor_pb2

    return descriptor_pb2.FileDescriptorProto(**fields).SerializeToString()


def test_files_with_mistakes():
    with pytest.raises(ValueError, match=r"^vu_bad1\.proto: .*vu_absent\.proto"):
        vu_message.add_file(file_with(name="vu_bad1.proto", dependency=["vu_absent.proto"]))
    field = {"name": "f", "number": 1, "label": 1, "type": 11, "type_name": ".Absent"}
    with pytest.raises(ValueError, match=r'^vu_bad2\.proto: .*"\.Absent" is not defined'):
        vu_message.add_file(
            file_with(name="vu_bad2.proto", message_type=[{"name": "M", "field": [field]}])
        )
    with pytest.raises(ValueError, match=r"^vu_bad3\.proto: .*already defined"):
        vu_message.add_file(
            file_with(name="vu_bad3.proto", message_type=[{"name": "M"}, {"name": "M"}])
        )


def test_bundled_files():
    """The runtime's own vu/options.proto is the one that users import."""
    descriptors = BUILD / "share" / "vu" / "options.proto"
    data = subprocess.run(
        ["protoc", "-I", BUILD / "share", "-o", "/dev/stdout", descriptors],
        stdout=subprocess.PIPE,
        check=True,
    ).stdout
    from google.protobuf import descriptor_pb2

    (file,) = descriptor_pb2.FileDescriptorSet.FromString(data).file
    assert vu_message.add_file(file.SerializeToString(deterministic=True)).package == "vu"
    duration = vu_message.message_class("google.protobuf.Duration")
    assert duration(seconds=3).SerializeToString() == b"\x08\x03"
    assert vu_message.message_class("vu_test.tree.Node") is tree.Node
    with pytest.raises(KeyError):
        vu_message.message_class("vu_test.tree.Nothing")
    with pytest.raises(TypeError):
        vu_message.message_class(5)  # type: ignore[arg-type]


def test_a_class_needs_a_descriptor():
    with pytest.raises(TypeError, match="DESCRIPTOR must be a MessageDescriptor, not int"):
        type(tree.Node)("Bad", (vu_message.Message,), {"DESCRIPTOR": 5})  # type: ignore[misc]
    abstract = type(tree.Node)("Abstract", (vu_message.Message,), {})  # type: ignore[misc]
    with pytest.raises(TypeError, match="abstract"):
        abstract()


def test_message_of_a_type_without_a_module_could_not_be_pickled():
    cls = vu_message.message_class("google.protobuf.SourceContext")
    message = cls(file_name="f")
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        other = pickle.loads(pickle.dumps(message, protocol))
        assert other == message and type(other) is cls
    assert copy.deepcopy([message, message]) == [message, message]
    reduced: Any = message.__reduce__()
    function, arguments = reduced
    with pytest.raises(KeyError, match="no message type 'a.b' is known"):
        function("a.b", arguments[1])
    with pytest.raises(vu_message.DecodeError):
        function(arguments[0], b"\xff")
    for wrong in ((), (arguments[0],), (5, b""), (arguments[0], "text")):
        with pytest.raises(TypeError):
            function(*wrong)
