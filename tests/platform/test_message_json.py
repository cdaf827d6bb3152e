"""Messages as JSON text. That it is the JSON of protocol buffers, test_message_exchange.py tells."""

import json
import math
from typing import Any

import pytest
import vu_message
import vu_test_proto2_vu as old
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
from google.protobuf import json_format
from message_support import google_module

Node = tree.Node


def test_one_line_or_indented():
    message = Node(name="n", leaf={"kind": 1, "values": [1, 2]}, by_name={"k": {}})
    line = '{"name":"n","leaf":{"kind":"GOLDEN","values":[1,2]},"byName":{"k":{}}}'
    assert message.ToJson() == line
    for indent in (0, 1, 2, 7, 100):
        text = message.ToJson(indent=indent)
        assert text == json.dumps(json.loads(line), indent=indent)
    assert Node().ToJson() == Node().ToJson(indent=4) == "{}"


def test_indented_text_keeps_its_strings():
    text = "  two\n    lines\n\n{ \u2028 }"
    message = scalars.Single(text=text)
    assert json.loads(message.ToJson(indent=3)) == {"text": text}


@pytest.mark.parametrize(
    "indent, error",
    [(-1, ValueError), (101, ValueError), (2**70, ValueError), ("2", TypeError), (1.0, TypeError)],
)
def test_wrong_indent(indent, error):
    with pytest.raises(error):
        Node().ToJson(indent=indent)


def test_arguments():
    for call in (
        lambda: Node().ToJson(2),  # type: ignore[misc]
        lambda: Node().ToJson(defaults=True),  # type: ignore[call-arg]
        lambda: Node.FromJson(),  # type: ignore[call-arg]
        lambda: Node.FromJson(b"{}"),  # type: ignore[arg-type]
        lambda: Node.FromJson(None),  # type: ignore[arg-type]
        lambda: Node.FromJson("{}", True),  # type: ignore[misc]
    ):
        with pytest.raises(TypeError):
            call()
    with pytest.raises(TypeError, match="abstract"):
        vu_message.Message.FromJson("{}")


def test_names_and_enums():
    message = Node(by_name={"k": {}}, chosen_text="c", color=1)
    assert message.ToJson() == '{"byName":{"k":{}},"chosenText":"c","color":"RED"}'
    text = message.ToJson(preserving_proto_field_name=True, use_integers_for_enums=True)
    assert text == '{"by_name":{"k":{}},"chosen_text":"c","color":1}'
    for each in (text, message.ToJson()):
        assert Node.FromJson(each) == message


def test_default_values():
    """Of what has no presence; of what is inside another message, where that is there."""
    theirs = google_module("vu_test_tree_pb2").Node
    for message in (Node(), Node(leaf={}, nodes=[{}], chosen_number=0)):
        their = theirs.FromString(message.SerializeToString())
        found = json.loads(message.ToJson(including_default_value_fields=True))
        assert found == json_format.MessageToDict(their, including_default_value_fields=True)
    assert json.loads(scalars.Optional().ToJson(including_default_value_fields=True)) == {}
    assert json.loads(scalars.Single().ToJson(including_default_value_fields=True)) == {
        "i32": 0,
        "i64": "0",
        "u32": 0,
        "u64": "0",
        "s32": 0,
        "s64": "0",
        "f32": 0,
        "f64": "0",
        "sf32": 0,
        "sf64": "0",
        "real": 0,
        "wide": 0,
        "flag": False,
        "text": "",
        "data": "",
        "color": "BLACK",
    }


def test_floats_that_are_no_numbers():
    message = scalars.Single(real=math.nan, wide=-math.inf)
    assert message.ToJson() == '{"real":"NaN","wide":"-Infinity"}'
    back = scalars.Single.FromJson(message.ToJson())
    assert math.isnan(back.real) and back.wide == -math.inf


def test_map_keys_come_in_order():
    message = Node(counts={str(number): number for number in range(50)})
    assert list(json.loads(message.ToJson())["counts"]) == sorted(map(str, range(50)))


def test_null_leaves_a_field_alone():
    assert Node.FromJson('{"name": null, "leaf": null, "leaves": null, "counts": null}') == Node()


def test_unknown_fields():
    text = '{"name": "n", "nome": 5, "leaf": {"deep": [{}]}, "nodes": [{"name": "x", "y": null}]}'
    with pytest.raises(vu_message.DecodeError, match="Cannot find field"):
        Node.FromJson(text)
    with pytest.raises(vu_message.DecodeError, match=r"^vu_test\.tree\.Node: nome: Cannot find"):
        Node.FromJson('{"name": "n", "nome": 5}')
    expected = Node(name="n", leaf={}, nodes=[{"name": "x"}])
    assert Node.FromJson(text, ignore_unknown_fields=True) == expected


def test_unknown_fields_and_extensions_are_left_out():
    message = scalars.Optional.FromString(scalars.Single(i32=5, data=b"x").SerializeToString())
    assert message.ToJson() == '{"i32":5}'


# Where the text is wrong, the path that the error names, and what it says.
WRONG = [
    ('{"name": 5}', "name", "invalid value 5 for type TYPE_STRING"),
    ('{"child": {"leaf": {"values": [1, "x"]}}}', "child.leaf.values[1]", "invalid value"),
    ('{"child": {"leaf": {"nom": 1}}}', "child.leaf.nom", "Cannot find field."),
    ('{"child": {"leaf": []}}', "child.leaf", "Proto field is not repeating"),
    ('{"nodes": [{}, {"leaf": {"kind": "NOPE"}}]}', "nodes[1].leaf.kind", 'invalid value "NOPE"'),
    ('{"child": {"time": "yesterday"}}', "child.time", "invalid value"),
    ('{"single": {"i32": 2147483648}}', "single.i32", "invalid value 2147483648"),
    ('{"single": {"u32": -1}}', "single.u32", "invalid value -1"),
    ('{"single": {"i32": 1.5}}', "single.i32", "invalid value 1.5"),
    ('{"single": {"real": 1e300}}', "single.real", "invalid value 1e+300"),
    ('{"single": {"data": "!!"}}', "single.data", 'invalid value "!!"'),
    ('{"single": {"flag": 1}}', "single.flag", "invalid value 1"),
    ('{"child": {"counts": {"a": "x"}}}', "child.counts[0].value", 'invalid value "x"'),
    ('{"byNumber": {"x": {}}}', "by_number[0].key", 'invalid value "x"'),
    ('{"child": {"chosenText": "a", "chosenNumber": 5}}', "child", "invalid value oneof field"),
    ("[]", None, "Root element must be a message."),
    ("null", None, "Root element must be a message."),
    ('"x"', None, "Root element must be a message."),
    ("", None, "Unexpected end of string"),
    ("{", None, "Unexpected end of string"),
    ('{"name" 5}', None, "Expected : between key:value pair."),
    ("{} {}", None, "Parsing terminated before end of input."),
    ('{"single": {"wide": 1e400}}', None, "Number exceeds the range of double."),
    ('{"name": "\\ud800"}', None, "Missing low surrogate."),
    ('{"child":' * 200 + "{}" + "}" * 200, None, "Message too deep."),
]


@pytest.mark.parametrize("text, path, said", WRONG)
def test_text_that_is_wrong(text, path, said):
    with pytest.raises(vu_message.DecodeError) as error:
        Node.FromJson(text)
    where = "vu_test.tree.Node" + ("." + path if path else "")
    assert str(error.value).startswith("%s: %s" % (where, said))
    assert "googleapis" not in str(error.value)


def test_text_that_is_no_unicode():
    with pytest.raises(ValueError):
        Node.FromJson('{"name": "\ud800"}')


def test_required_fields():
    assert old.Required.FromJson('{"name": "x"}') == old.Required(name="x")
    assert old.Required().ToJson() == "{}"
    with pytest.raises(vu_message.DecodeError, match=r"^vu_test\.old\.Required\.list\[1\]: missing"):
        old.Required.FromJson('{"name": "x", "list": [{"name": "y"}, {}]}')


def test_messages_that_json_cannot_say():
    message = Node(child={"time": {"seconds": 2**60}})
    with pytest.raises(vu_message.EncodeError) as error:
        message.ToJson()
    assert str(error.value).startswith("vu_test.tree.Node")
    assert "time" in str(error.value)


def test_text_of_proto2_that_is_not_utf8_was_cut_off():
    message = old.Defaults.FromString(b"\x12\x01\xff")
    with pytest.raises(vu_message.EncodeError) as error:
        message.ToJson()
    assert str(error.value) == "vu_test.old.Defaults.text: the text is not UTF-8"
    outer = old.Required(list=[{}], table={"k": {"inner": {"list": [{}, {"name": "n"}]}}})
    data = outer.SerializePartialToString().replace(b"\x0a\x01n", b"\x0a\x01\xff")
    outer = old.Required.FromString(data)
    with pytest.raises(vu_message.EncodeError) as error:
        outer.ToJson()
    assert str(error.value) == (
        "vu_test.old.Required.table[0].value.inner.list[1].name: the text is not UTF-8"
    )


def test_groups_were_left_out():
    calls: list[Any] = [old.WithGroup(part={"size": 4}).ToJson, lambda: old.WithGroup.FromJson("{}")]
    for call in calls:
        with pytest.raises(ValueError) as error:
            call()
        assert str(error.value) == "vu_test.old.WithGroup.part: a group, for which there is no JSON"


def test_default_values_of_bytes_were_wrong():
    with pytest.raises(vu_message.EncodeError) as error:
        old.Defaults().ToJson(including_default_value_fields=True)
    assert str(error.value) == (
        "vu_test.old.Defaults.data: its default value cannot be included in JSON"
    )
    assert old.Defaults(data=b"\1").ToJson() == '{"data":"AQ=="}'


def test_subclasses_and_types_without_a_module():
    class Mine(Node):
        pass

    assert type(Mine.FromJson('{"name": "n"}')) is Mine
    cls = vu_message.message_class("google.protobuf.SourceContext")
    assert cls.FromJson('{"fileName": "f"}').ToJson() == '{"fileName":"f"}'


def test_json_changes_nothing():
    message = Node(by_number={1: {"counts": {"b": 2}}}, leaf={"values": [1]})
    leaf, entry, before = message.leaf, message.by_number[1], repr(message)
    message.ToJson()
    leaf.values.append(2)
    entry.counts["b"] = 3
    assert json.loads(message.ToJson()) == {
        "byNumber": {"1": {"counts": {"b": 3}}},
        "leaf": {"values": [1, 2]},
    }
    assert repr(message) != before
