"""Messages of every kind, exchanged with protobuf's own Python classes as bytes and as JSON, both
ways: those of the tests, and those that the protobuf project publishes and Debian ships."""

import ast
import importlib
import json
import pathlib

import message_support  # first: it chooses protobuf's classes
import google.protobuf
import pytest
import vu_message
import vu_test_proto2_vu
import vu_test_scalars_vu
import vu_test_tree_vu
from filled import VARIANTS, fill
from google.protobuf import descriptor_pb2, json_format
from google.protobuf.descriptor_pool import Default
from google.protobuf.message_factory import MessageFactory

OWN = [
    ("vu_test_scalars_pb2", vu_test_scalars_vu),
    ("vu_test_proto2_pb2", vu_test_proto2_vu),
    ("vu_test_tree_pb2", vu_test_tree_vu),
]
# Of the test messages that the protobuf project publishes Debian's python3-protobuf has these.
PUBLISHED = ["json_format_pb2.py", "json_format_proto3_pb2.py"]
# What comes with both libraries.
SHIPPED = ["descriptor", "type", "api", "source_context", "struct", "wrappers"]
# libprotobuf has no JSON for groups.
GROUPS = {"vu_test.old.WithGroup", "protobuf_unittest.TestFlagsAndStrings"}


def published_file(name):
    """The descriptor in a generated module, without what needs a file that is not shipped."""
    path = pathlib.Path(google.protobuf.__file__).parent / "util" / name
    calls = [node for node in ast.walk(ast.parse(path.read_text())) if isinstance(node, ast.Call)]
    (data,) = [
        ast.literal_eval(call.args[0])
        for call in calls
        if getattr(call.func, "attr", "") == "AddSerializedFile"
    ]
    file = descriptor_pb2.FileDescriptorProto.FromString(data)
    absent = "google/protobuf/unittest.proto"
    if absent in file.dependency:
        file.dependency.remove(absent)
        (extensions,) = [each for each in file.message_type if each.name == "TestExtensions"]
        file.message_type.remove(extensions)
    return file


def pairs_of(file, theirs, ours):
    """The classes of all messages of a file, the nested ones too."""

    def walk(prefix, messages):
        for message in messages:
            name = prefix + "." + message.name
            if not message.options.map_entry:
                yield name, theirs(name), ours(name)
                yield from walk(name, message.nested_type)

    return walk(file.package, file.message_type)


def all_pairs():
    def theirs(name):
        return MessageFactory().GetPrototype(Default().FindMessageTypeByName(name))

    for google_name, ours in OWN:
        file = descriptor_pb2.FileDescriptorProto()
        message_support.google_module(google_name).DESCRIPTOR.CopyToProto(file)
        yield from pairs_of(file, theirs, vu_message.message_class)
    for name in PUBLISHED:
        file = published_file(name)
        for needed in file.dependency:
            importlib.import_module(needed.removesuffix(".proto").replace("/", ".") + "_pb2")
        Default().AddSerializedFile(file.SerializeToString())
        vu_message.add_file(file.SerializeToString())
        yield from pairs_of(file, theirs, vu_message.message_class)
    for name in SHIPPED:
        module = __import__("google.protobuf.%s_pb2" % name, fromlist=["DESCRIPTOR"])
        file = descriptor_pb2.FileDescriptorProto()
        module.DESCRIPTOR.CopyToProto(file)
        yield from pairs_of(file, theirs, vu_message.message_class)


PAIRS = {name: (theirs, ours) for name, theirs, ours in all_pairs()}
WITH_JSON = [name for name in PAIRS if name not in GROUPS]


def both_filled(name, variants=range(VARIANTS)):
    """The same message in both, with other values each time."""
    theirs, ours = PAIRS[name]
    for variant in variants:
        their = fill(theirs(), variant)
        yield their, ours.FromString(their.SerializePartialToString())


def test_the_messages_that_are_published():
    published = [name for name in PAIRS if name.startswith(("protobuf_unittest.", "proto3."))]
    assert len(published) == 33
    assert len(PAIRS) > 90


@pytest.mark.parametrize("name", PAIRS)
def test_bytes_of_every_pair(name):
    theirs, ours = PAIRS[name]
    for their, our in both_filled(name):
        assert theirs.FromString(our.SerializePartialToString()) == their
        assert len(our.SerializePartialToString()) == our.ByteSize()
        # Their classes in Python do not know that fields of descriptor.proto are packed.
        if their.DESCRIPTOR.file.name != "google/protobuf/descriptor.proto":
            assert our.ByteSize() == their.ByteSize()
        assert ours.FromString(our.SerializePartialToString()) == our
        assert our.IsInitialized() == their.IsInitialized()
        assert [field.name for field, _ in our.ListFields()] == [
            field.name for field, _ in their.ListFields() if not field.is_extension
        ]


@pytest.mark.parametrize("name", WITH_JSON)
def test_json_of_every_pair(name):
    theirs, ours = PAIRS[name]
    for their, our in both_filled(name):
        assert ours.FromJson(json_format.MessageToJson(their)) == our
        assert json_format.Parse(our.ToJson(), theirs()) == their
        assert json.loads(our.ToJson()) == json_format.MessageToDict(their)
        assert ours.FromJson(our.ToJson()) == our


OPTIONS = ["preserving_proto_field_name", "use_integers_for_enums"]


@pytest.mark.parametrize("option", OPTIONS)
@pytest.mark.parametrize("name", WITH_JSON)
def test_json_with_options_of_every_pair(name, option):
    for their, our in both_filled(name, [1]):
        text = our.ToJson(**{option: True})
        assert json.loads(text) == json_format.MessageToDict(their, **{option: True})
        assert type(our).FromJson(text) == our


def test_fields_that_the_other_does_not_know():
    whole = fill(PAIRS["vu_test.scalars.Single"][0](), 1)
    data = whole.SerializeToString()
    theirs, ours = PAIRS["vu_test.scalars.Maps"]  # has none of these in this form
    their, our = theirs.FromString(data), ours.FromString(data)
    assert our.SerializeToString() == their.SerializeToString() == data
    our.i32[1] = 2
    their.MergeFromString(our.SerializeToString())
    assert PAIRS["vu_test.scalars.Single"][0].FromString(our.SerializeToString()).color == 1
    assert their.i32 == {1: 2}
    assert json.loads(our.ToJson()) == {"i32": {"1": 2}}


def descriptors():
    for name in ("any", "api", "descriptor", "duration", "struct", "type", "wrappers"):
        yield __import__("google.protobuf.%s_pb2" % name, fromlist=["DESCRIPTOR"]).DESCRIPTOR


@pytest.mark.parametrize("file", descriptors(), ids=lambda file: file.name)
def test_descriptors_of_the_files_themselves(file):
    """Messages as they are found in nature."""
    their = descriptor_pb2.FileDescriptorProto()
    file.CopyToProto(their)
    ours = vu_message.message_class("google.protobuf.FileDescriptorProto")
    our = ours.FromString(their.SerializeToString())
    assert our.SerializeToString() == their.SerializeToString()
    assert json.loads(our.ToJson()) == json_format.MessageToDict(their)
    assert ours.FromJson(json_format.MessageToJson(their)) == our
