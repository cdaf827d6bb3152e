"""Messages and results as the model writes them."""

import contract_vu
import vu_mom_common
from model import Message, Type

PORT = Type("Port", tuple(range(1, 11)), (5, 3, 9), ("", 0, 0), 6, 2**31 - 1)
SETTINGS = Type("Settings", (1, 2, 3), counter=3, counter_max=2**32 - 1)
BY_STRING = Type("ByString", (1, 2), (1,), ("",))

# Class of a message -> its type, its fields by number: name, and whether it has presence.
_FIELDS: dict[type, tuple[Type, list[tuple[int, str, bool]]]] = {
    contract_vu.Port: (
        PORT,
        [
            (1, "name", False),
            (2, "speed", True),
            (3, "rack", False),
            (4, "up", True),
            (5, "site", False),
            (6, "hits", False),
            (7, "lanes", False),
            (8, "last", True),
            (9, "slot", False),
            (10, "note", True),
        ],
    ),
    contract_vu.Settings: (
        SETTINGS,
        [(1, "mode", False), (2, "limit", True), (3, "starts", False)],
    ),
    contract_vu.ByString: (BY_STRING, [(1, "id", False), (2, "text", False)]),
}


def _value(value):
    if isinstance(value, (str, int, float, bytes)):
        return value
    if hasattr(value, "SerializeToString"):
        return value.SerializeToString()
    return tuple(value)


def plain(result):
    """What a result says, in the model's words."""
    entry = _FIELDS.get(type(result))
    if entry is not None:
        kind, fields = entry
        carried = []
        for number, name, has_presence in fields:
            if has_presence:
                if result.HasField(name):
                    carried.append((number, _value(getattr(result, name))))
            else:
                value = _value(getattr(result, name))
                if value:
                    carried.append((number, value))
        return Message(kind, tuple(carried), result.SerializeToString())
    if isinstance(result, vu_mom_common.ValueResult):
        return result.value
    if isinstance(result, vu_mom_common.HashResult):
        return ("hash", plain(result.obj), result.tags)
    if isinstance(result, vu_mom_common.SmembersResult):
        members = [plain(member) for member in result]
        assert len(set(members)) == len(members), members
        return frozenset(members)
    if isinstance(result, vu_mom_common.MessagesResult):
        return tuple(plain(element) for element in result)
    if isinstance(result, vu_mom_common.ScoredResult):
        return tuple((plain(member), score) for member, score in result)
    assert result is None, result
    return None


def event(msg):
    """A delivered event, in the model's words."""
    if msg.type_code == 28:
        return (28, 0, None, None)
    content = plain(msg.result)
    if msg.type_code in (39, 40):
        assert len(set(content)) == len(content), content
        content = frozenset(content)
    return (msg.type_code, msg.tag, msg.key, content)
