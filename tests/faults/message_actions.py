"""Actions on messages to let operations fail in, as platform_actions.py has them."""
import copy
import pickle

import contract_vu
import vu_message
import vu_test_proto2_vu
import vu_test_scalars_vu
import vu_test_tree_vu
import vu_well_known


def raised(function, *arguments, **keywords):
    """The error of a call that has to fail; MemoryError goes on."""
    try:
        function(*arguments, **keywords)
    except MemoryError:
        raise
    except Exception as error:
        return "%s: %s" % (type(error).__name__, error)
    raise AssertionError("no error")


def port():
    return contract_vu.Port(name="eth0", site="here", rack=3, slot=-4, lanes=[1, 2, 3], up=True,
                            last=contract_vu.Port.Sample(time=5, load=0.5), note="none")


class Special(contract_vu.Port):
    def __init__(self, **values):
        super(Special, self).__init__(**values)


def message_actions():
    node = vu_test_tree_vu.Node
    descriptor = contract_vu.Port.DESCRIPTOR
    field = descriptor.fields[0]

    def lists():
        made = vu_test_scalars_vu.Repeated()
        views = [getattr(made, each.name) for each in made.DESCRIPTOR.fields]
        return [list(view) for view in views], [view.__reduce__()[1] for view in views]
    yield "texts of descriptors", lambda: (repr(descriptor), repr(field), field.full_name,
                                           repr(vars(contract_vu)["_FILE"]))
    yield "no such entry", lambda: raised(node().counts.pop, "nothing")
    yield "subclass", lambda: repr(Special(name="x"))
    yield "lists", lists
    message, other = port(), port()
    data = message.SerializeToString()

    def assign():
        made = contract_vu.Port()
        made.name = "a longer name than fits into a small string object"
        made.rack, made.up = 5, False
        made.lanes = [5, 6, 7]
        made.lanes.append(8)
        made.lanes.extend(range(20))
        del made.lanes[3:5]
        made.last.time = 7
        made.last.CopyFrom(contract_vu.Port.Sample(load=2.5))
        return made.SerializeToString()

    def parse():
        made = contract_vu.Port()
        made.ParseFromString(data)
        made.MergeFromString(data)
        return repr(made)
    yield from messages_that_are_refused()
    yield from messages_otherwise_written()
    yield "construct", lambda: repr(port())
    yield "assign", assign
    yield "parse", parse
    yield "serialise", lambda: message.SerializeToString(deterministic=True)
    yield "from string", lambda: contract_vu.Port.FromString(data) == message
    yield "repr", lambda: repr(message)
    yield "equal", lambda: (message == other, message == 5)
    yield "copy", lambda: repr(copy.copy(message)) + repr(copy.deepcopy(message))
    yield "from address", lambda: repr(contract_vu.Port(message.get_ptr()))
    yield "merge", lambda: contract_vu.Port().MergeFrom(message)
    yield "fields", lambda: len(message.ListFields())
    yield "clear", lambda: (port().Clear(), port().ClearField("name"), port().HasField("up"))
    yield "pickle", lambda: pickle.loads(pickle.dumps(message)) == message
    yield "wrong field", lambda: contract_vu.Port(nothing=1)  # type: ignore[call-overload]
    yield "wrong value", lambda: contract_vu.Port(rack="three")  # type: ignore[call-overload]
    yield "wrong data", lambda: contract_vu.Port.FromString(b"\xff\xff\xff")
    yield "many messages", lambda: [repr(getattr(module, name)()) for module in
                                    (vu_test_scalars_vu, vu_test_tree_vu, contract_vu)
                                    for name in sorted(vars(module))
                                    if isinstance(getattr(module, name), type)
                                    and hasattr(getattr(module, name), "get_ptr")]


def messages_that_are_refused():
    """Errors name the path of the field."""
    node = vu_test_tree_vu.Node
    held = node(child={"leaves": [{}, {}]}, by_name={"a": {}}, by_number={7: {"child": {}}})

    def assigned(part, name, value=5.5):
        return lambda: raised(setattr, part(), name, value)
    yield "path of an element", assigned(lambda: held.child.leaves[1], "name")
    yield "path of a value", assigned(lambda: held.by_number[7].child, "name")
    yield "path in a dict", assigned(lambda: held, "child", {"by_name": {"x": {"values": ["y"]}}})
    yield "path of an unknown name", assigned(lambda: held, "child", {"nodes": [{"nom": 5}]})
    yield "path of no name", assigned(lambda: held, "leaf", {5: 6})
    yield "path of a list", lambda: raised(held.child.leaves.extend, 5)
    yield "path of an item", lambda: raised(held.child.leaves.__setitem__, 1, 5)
    yield "path of a key", lambda: raised(held.by_name.get, 5)
    yield "path of an entry", lambda: raised(held.by_name.update, {"b": 5})
    yield "path of a copy", lambda: raised(held.child.CopyFrom, 5)


# libprotobuf ends the process where an error passes while it writes JSON and not even the memory
# for its own log is there.
WRITES_JSON = ("to json", "to json, indented")


def messages_otherwise_written():
    """JSON, the well-known types, and pickles of types without a module."""
    # Without maps: libprotobuf leaves them broken where there is no memory for an entry.
    message = vu_test_tree_vu.Node(name="n", leaf={"values": [1, 2]}, chosen_text="c")
    text = message.ToJson()
    old = vu_test_proto2_vu.Defaults(text="t")

    def wrong(*texts):
        return [raised(type(message).FromJson, each) for each in texts]
    yield "to json", message.ToJson
    yield "to json, indented", lambda: message.ToJson(indent=2)
    yield "to json, of proto2", old.ToJson
    yield "to json, wrong", lambda: (raised(message.ToJson, indent=-1),
                                     raised(message.ToJson, indent="x"),
                                     raised(old.ToJson, including_default_value_fields=True))
    yield "to json, out of range", lambda: raised(
        vu_well_known.Timestamp(seconds=2 ** 50).ToJson)
    yield "from json", lambda: type(message).FromJson(text) == message
    yield "from json, wrong", lambda: wrong("{", "[]", '{"x": 1}', '{"leaf": {"x": 1}}',
                                            '{"leaf": {"values": ["x"]}}', "\udc80")
    yield "no json for groups", lambda: raised(vu_test_proto2_vu.WithGroup().ToJson)

    def times():
        made = vu_well_known.Timestamp()
        made.FromJsonString("2026-11-21T19:30:00.5Z")
        return made.ToDatetime(), made.ToJsonString()

    def lists():
        made = vu_well_known.ListValue()
        made.extend([1, None, "x", [True]])
        return made[3][0], raised(made.append, {5})
    yield "times", times
    yield "list values", lists
    cls = vu_message.message_class("google.protobuf.SourceContext")
    yield "pickle by name", lambda: pickle.loads(pickle.dumps(cls(file_name="f")))
    yield "no such type", lambda: (raised(vu_message.descriptor, "x.y"),
                                   raised(vu_message.message_class, 5),
                                   raised(cls().__reduce__()[0], "x.y", b""))
    yield "abstract", lambda: raised(vu_message.Message.FromJson, "{}")
