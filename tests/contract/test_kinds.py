"""A command on an object of another kind changes nothing; its reply is an error."""

import pytest

from kinds import ASKING, ELEMENT, MAKE, SCANNED, SENDING, ask
from messages import port

ASKING_ANOTHER = [
    (kind, command, rest)
    for kind in MAKE
    for other in ASKING
    if other != kind
    for command, rest in ASKING[other]
]
SENDING_ANOTHER = [
    (kind, command, call)
    for kind in MAKE
    for other in SENDING
    if other != kind
    for command, call in SENDING[other].items()
]


@pytest.mark.parametrize("kind", MAKE)
def test_scan_tells_the_kind(client, kind):
    MAKE[kind](client)
    [(type_code, result)] = client.scanned(0, ELEMENT, 3).values()
    assert (type_code, type(result)) == SCANNED[kind]


@pytest.mark.parametrize("kind, command, rest", ASKING_ANOTHER)
def test_asking_another_kind_is_an_error(client, kind, command, rest):
    MAKE[kind](client)
    before = client.scanned(0, ELEMENT, 3)
    watch = client.watch(0, ELEMENT, 0)
    reply = ask(client, command, rest, port(name="other"))
    assert reply.result is None
    assert reply.status == -1
    assert reply.error
    assert client.scanned(0, ELEMENT, 3) == before
    assert watch == []


@pytest.mark.parametrize(
    "kind, call",
    [(kind, call) for kind, _, call in SENDING_ANOTHER],
    ids=["%s-%s" % (kind, command) for kind, command, _ in SENDING_ANOTHER],
)
def test_writing_another_kind_has_no_effect(client, store, kind, call):
    MAKE[kind](client)
    before = client.scanned(0, ELEMENT, 3)
    watch = client.watch(0, ELEMENT, 0)
    call(client, port(name="other"))
    call(client, ELEMENT)
    store.drive()
    assert client.scanned(0, ELEMENT, 3) == before
    assert watch == []


@pytest.mark.parametrize("kind", MAKE)
def test_deletion_is_for_every_kind(client, store, kind):
    MAKE[kind](client)
    watch = client.watch(0, ELEMENT, 3)
    client.delete(0, port())
    store.drive()
    assert client.scanned(0, ELEMENT, 0) == {}
    [event] = watch
    assert (event.type_code, event.result, event.key) == (29, None, ("north", 1, 1))


@pytest.mark.parametrize("kind", MAKE)
@pytest.mark.parametrize("other", MAKE)
def test_a_deleted_object_makes_room_for_every_kind(client, kind, other):
    MAKE[kind](client)
    client.delete(0, port())
    MAKE[other](client)
    [(type_code, _)] = client.scanned(0, ELEMENT, 3).values()
    assert type_code == SCANNED[other][0]


# What there is to read where nothing is stored.
NOTHING = {
    "get": None,
    "hmget": None,
    "hgetall": None,
    "lpop": None,
    "rpop": None,
    "llen": 0,
    "lset": False,
    "linsert": 0,
    "lrange": [],
    "smembers": [],
    "scard": 0,
    "sismember": False,
    "zcard": 0,
    "zrank": None,
    "zscore": None,
    "zcount": 0,
    "zrange": [],
    "zrangebyscore": [],
}


@pytest.mark.parametrize(
    "command, rest",
    [
        (command, rest)
        for commands in ASKING.values()
        for command, rest in commands
        if command not in ("incr", "setnx")
    ],
)
def test_asking_where_nothing_is_stored(client, command, rest):
    watch = client.watch(0, ELEMENT, 0)
    reply = ask(client, command, rest, port(name="x"))
    assert (reply.status, reply.error) == (0, "")
    if NOTHING[command] is None:
        assert reply.result is None
    else:
        assert reply.result is not None
        assert reply.result == NOTHING[command]
    assert client.scanned(0, ELEMENT, 0) == {}
    assert watch == []


@pytest.mark.parametrize(
    "command",
    ["delow", "hmupdate", "lrem", "srem", "zrem", "zremrangebyscore", "zremrangebyrank"],
)
def test_removing_where_nothing_is_stored(client, store, command):
    [call] = [kind[command] for kind in SENDING.values() if command in kind]
    watch = client.watch(0, ELEMENT, 0)
    call(client, ELEMENT)
    store.drive()
    assert client.scanned(0, ELEMENT, 0) == {}
    assert watch == []
