"""What names an object: database, type and key components."""

import pytest

import contract_vu
from contract_vu import Mixed
from messages import port

BLUE, GREEN, RED = 5, 1, 0

KEYS = [
    (contract_vu.ByInt, [0, 1, -1, 2**63 - 1, -(2**63)]),
    (contract_vu.ByUnsigned, [0, 1, 2**63, 2**64 - 1]),
    (contract_vu.ByBool, [False, True]),
    (contract_vu.ByEnum, [RED, GREEN, BLUE]),
    (contract_vu.ByString, ["", "a", "ab", "b", "a\0b", "\u00e4\u6f22\U0001f600", "x" * 5000]),
    (contract_vu.ByBytes, [b"", b"a", b"ab", b"\0", b"\xff\xfe", b"x" * 5000]),
]


@pytest.mark.parametrize("kind, ids", KEYS)
def test_each_key_is_an_object_of_its_own(client, kind, ids):
    for number, key in enumerate(ids):
        client.set(0, kind(id=key, text=str(number)))
    for number, key in enumerate(ids):
        reply = client.ask("get", 0, kind(id=key))
        assert reply.result == kind(id=key, text=str(number))
        assert reply.key == (key,)
        assert type(reply.key[0]) is (int if kind is contract_vu.ByEnum else type(key))
    found = client.scanned(0, kind(), 0, "scan_index")
    assert sorted(found) == sorted((key,) for key in ids)
    for (key,), (type_code, named) in found.items():
        assert (type_code, named) == (37, kind(id=key))
    client.delete(0, kind(id=ids[0]))
    assert sorted(client.scanned(0, kind(), 0)) == sorted((key,) for key in ids[1:])


def test_types_with_equal_keys_are_apart(client):
    client.set(0, contract_vu.ByInt(id=1, text="int"))
    client.set(0, contract_vu.ByBool(id=True, text="bool"))
    client.set(0, contract_vu.ByEnum(id=1, text="enum"))
    client.set(0, contract_vu.ByUnsigned(id=1, text="unsigned"))
    assert client.value("get", 0, contract_vu.ByInt(id=1)).text == "int"
    assert client.value("get", 0, contract_vu.ByBool(id=True)).text == "bool"
    assert client.value("get", 0, contract_vu.ByEnum(id=1)).text == "enum"
    assert client.value("get", 0, contract_vu.ByUnsigned(id=1)).text == "unsigned"


def mixed(number=-7, flag=True, colour=BLUE, word="w", raw=b"\0\xff", text=""):
    return Mixed(number=number, flag=flag, colour=colour, word=word, raw=raw, text=text)


def test_components_come_in_the_order_of_their_positions(client):
    client.set(0, mixed(text="x"))
    reply = client.ask("get", 0, mixed())
    assert reply.key == (-7, True, BLUE, "w", b"\0\xff")
    assert reply.result == mixed(text="x")


def test_every_component_counts(client):
    others = [
        mixed(number=7),
        mixed(flag=False),
        mixed(colour=RED),
        mixed(word=""),
        mixed(raw=b""),
        mixed(0, False, RED, "", b""),
    ]
    client.set(0, mixed(text="x"))
    for other in others:
        assert client.value("get", 0, other) is None
        client.set(0, other)
    assert client.value("get", 0, mixed()) == mixed(text="x")
    assert len(client.scanned(0, mixed(), 0)) == 1 + len(others)


LEVELS = [
    (0, 7),
    (1, 5),  # number
    (2, 4),  # and flag
    (3, 3),  # and colour
    (4, 2),  # and word
    (5, 1),
    (6, 1),
    (2**32 - 1, 1),
]


@pytest.mark.parametrize("level, expected", LEVELS)
def test_levels_go_by_position(client, level, expected):
    objects = [
        mixed(),
        mixed(raw=b"other"),
        mixed(word="other"),
        mixed(colour=RED),
        mixed(flag=False),
        mixed(number=1),
        mixed(number=2),
    ]
    for obj in objects:
        client.set(0, obj)
    found = client.scanned(0, mixed(), level)
    assert sorted(found) == sorted(
        (obj.number, obj.flag, obj.colour, obj.word, obj.raw) for obj in objects[:expected]
    )


def test_neighbouring_strings_do_not_run_together(client):
    one = Mixed(word="ab", raw=b"c")
    other = Mixed(word="a", raw=b"bc")
    client.set(0, one)
    assert client.value("get", 0, other) is None
    assert client.scanned(0, Mixed(word="a"), 4) == {}
    assert len(client.scanned(0, Mixed(word="ab"), 4)) == 1


def test_databases_are_apart(client):
    numbers = [0, 1, 15, 16, 1000, 2**31 - 1]
    for db in numbers:
        client.set(db, port(name=str(db)))
    for db in numbers:
        reply = client.ask("get", db, port())
        assert (reply.result.name, reply.db) == (str(db), db)
        assert len(client.scanned(db, port(), 0)) == 1
    client.delete(15, port())
    assert client.value("get", 15, port()) is None
    assert client.value("get", 16, port()).name == "16"
    assert client.value("get", 2, port()) is None
