"""Commands on every object that matches the leading key components."""

import pytest

from contract_vu import Settings
from kinds import ELEMENT, MAKE
from messages import port, settings

PLACES = [
    ("north", 1, 1),
    ("north", 1, 2),
    ("north", 2, 1),
    ("northern", 1, 1),
    ("south", 1, 1),
]

# level -> which of PLACES match ("north", 1, 1).
MATCHES = [(0, PLACES), (1, PLACES[:3]), (2, PLACES[:2]), (3, PLACES[:1])]
MATCHES += [(4, PLACES[:1]), (2**32 - 1, PLACES[:1])]


def fill(client, db=0):
    for place in PLACES:
        client.set(db, port(*place, name="x"))


@pytest.mark.parametrize("level, matching", MATCHES)
def test_pdel(client, level, matching):
    fill(client)
    fill(client, db=1)
    assert client.acted_on("pdel", 0, port("north", 1, 1, name="no key"), level) == matching
    left = [place for place in PLACES if place not in matching]
    assert sorted(client.scanned(0, port(), 0)) == left
    assert len(client.scanned(1, port(), 0)) == len(PLACES)


@pytest.mark.parametrize("level, matching", MATCHES)
def test_pexpire_and_del_expire(client, store, level, matching):
    fill(client)
    fill(client, db=1)
    assert client.acted_on("pexpire", 0, port("north", 1, 1), 0, 10) == PLACES
    assert client.acted_on("del_expire", 0, port("north", 1, 1), level) == matching
    store.advance(11)
    assert sorted(client.scanned(0, port(), 0)) == matching
    assert len(client.scanned(1, port(), 0)) == len(PLACES)


@pytest.mark.parametrize("level, matching", MATCHES)
def test_pexpire_reaches_what_matches(client, store, level, matching):
    fill(client)
    assert client.acted_on("pexpire", 0, port("north", 1, 1), level, 10) == matching
    store.advance(11)
    assert sorted(client.scanned(0, port(), 0)) == [p for p in PLACES if p not in matching]


@pytest.mark.parametrize("command, rest", [("pdel", ()), ("pexpire", (1,)), ("del_expire", ())])
@pytest.mark.parametrize("level", [0, 1, 3, 99])
def test_nothing_matches(client, command, rest, level):
    client.set(1, port())
    client.set(0, port("elsewhere") if level else settings())
    assert client.acted_on(command, 0, port(), level, *rest) == []


@pytest.mark.parametrize("command, rest", [("pdel", ()), ("pexpire", (1,)), ("del_expire", ())])
@pytest.mark.parametrize("level", [0, 1, 99])
def test_a_type_without_key_fields(client, command, rest, level):
    client.set(0, settings(mode="m"))
    assert client.acted_on(command, 0, Settings(), level, *rest) == [()]


@pytest.mark.parametrize("kind", MAKE)
def test_every_kind_matches(client, store, kind):
    MAKE[kind](client)
    assert client.acted_on("del_expire", 0, ELEMENT, 1) == [("north", 1, 1)]
    assert client.acted_on("pexpire", 0, ELEMENT, 1, 5) == [("north", 1, 1)]
    store.advance(4)
    assert len(client.scanned(0, ELEMENT, 0)) == 1
    assert client.acted_on("pdel", 0, ELEMENT, 1) == [("north", 1, 1)]
    assert client.scanned(0, ELEMENT, 0) == {}


def test_replies_name_their_objects_and_the_database(client):
    client.set(7, port("north", 1, 1))
    [each], last = client.replies("pexpire", 7, port("north", 1, 1), 1, 10)
    assert (each.db, each.key, each.end, each.result) == (7, ("north", 1, 1), 0, None)
    assert (last.db, last.end, last.count, last.result) == (7, 2, 1, None)


def test_many_objects(client):
    for number in range(2000):
        client.set(0, port(slot=number))
    assert len(client.acted_on("pexpire", 0, port(), 0, 100)) == 2000
    assert len(client.acted_on("pdel", 0, port(), 2)) == 2000
    assert client.scanned(0, port(), 0) == {}


def test_replies_are_of_the_moment_of_the_command(client, store):
    client.set(0, port("north"))
    early = client.send("pdel", 0, port(), 0)
    client.set(0, port("north"))
    client.set(0, port("south"))
    late = client.send("pdel", 0, port(), 0)
    store.drive()
    assert [msg.key[0] for msg in early[:-1]] == ["north"]
    assert sorted(msg.key[0] for msg in late[:-1]) == ["north", "south"]
    assert (early[-1].count, late[-1].count) == (1, 2)
