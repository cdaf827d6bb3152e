"""Lifetimes of objects and of single fields."""

import pytest

from kinds import ASKING, ELEMENT, MAKE, ask
from messages import LANES, NAME, NOTE, SPEED, port

PLACE = ("north", 1, 1)


def exists(client, obj=None):
    return bool(client.scanned(0, obj or port(), 3))


# ---- Objects ---------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", MAKE)
def test_an_object_lives_until_its_time_is_up(client, store, kind):
    MAKE[kind](client)
    client.acted_on("pexpire", 0, ELEMENT, 3, 2.5)
    store.advance(2.499999)
    assert exists(client)
    store.advance(0.000001)
    assert not exists(client)


@pytest.mark.parametrize("kind", MAKE)
def test_an_expired_object_is_never_seen(client, store, kind):
    """Commands straight after the clock has moved, before anything could be swept."""
    for command, rest in ASKING[kind]:
        if command in ("incr", "setnx"):
            continue
        MAKE[kind](client)
        inbox = client.send("pexpire", 0, ELEMENT, 3, 1)
        store.drive()
        assert inbox[-1].count == 1
        store.advance(1)
        reply = ask(client, command, rest, ELEMENT)
        assert reply.status == 0
        assert not reply.result or reply.result == -1, command
        assert not exists(client)


@pytest.mark.parametrize("seconds", [0, -1, -0.000001, -1000000])
@pytest.mark.parametrize("kind", MAKE)
def test_no_time_left_is_at_once(client, store, kind, seconds):
    MAKE[kind](client)
    watch = client.watch(0, ELEMENT, 3)
    inbox = client.send("pexpire", 0, ELEMENT, 3, seconds)
    found = client.send("scan_index", 0, ELEMENT, 0)
    store.drive()
    assert [msg.key for msg in inbox[:-1]] == [PLACE]
    assert inbox[-1].count == 1
    assert [msg.type_code for msg in found] == [0], "seen by a later command"
    assert [(event.type_code, event.result) for event in watch] == [(0, None)]
    MAKE[kind](client)
    store.advance(1000)
    assert exists(client), "the old lifetime hit a new object"


def test_the_last_lifetime_counts(client, store):
    client.set(0, port())
    client.acted_on("pexpire", 0, port(), 3, 5)
    client.acted_on("pexpire", 0, port(), 3, 10)
    store.advance(9)
    assert exists(client)
    client.acted_on("pexpire", 0, port(), 3, 2)
    store.advance(2)
    assert not exists(client)


def test_a_long_lifetime(client, store):
    client.set(0, port())
    client.acted_on("pexpire", 0, port(), 3, 2**31 - 1)
    store.advance(2.0**31 - 2)
    assert exists(client)
    store.advance(1)
    assert not exists(client)


def test_del_expire(client, store):
    client.set(0, port())
    client.acted_on("pexpire", 0, port(), 3, 5)
    assert client.acted_on("del_expire", 0, port(), 3) == [PLACE]
    store.advance(100)
    assert exists(client)


def test_a_new_object_has_no_old_lifetime(client, store):
    client.set(0, port())
    client.acted_on("pexpire", 0, port(), 3, 5)
    client.delete(0, port())
    client.set(0, port(), 2)  # keep: but there is nothing left to keep
    store.advance(100)
    assert exists(client)


WRITES = {
    "set": (True, lambda client: client.set(0, port(name="b"))),
    "set, kept": (False, lambda client: client.set(0, port(name="b"), 2)),
    "setow": (True, lambda client: client.setow(0, port(name="b"), 1)),
    "setow, kept": (False, lambda client: client.setow(0, port(name="b"), 1, 2)),
    "setnx": (False, lambda client: client.setnx_noreply(0, port(name="b"))),
    "incr": (False, lambda client: client.number("incr", 0, port())),
}


@pytest.mark.parametrize("write", WRITES)
def test_which_writes_end_the_lifetime_of_a_value(client, store, write):
    ends, call = WRITES[write]
    client.set(0, port(name="a"))
    client.acted_on("pexpire", 0, port(), 3, 5)
    call(client)
    store.advance(6)
    assert exists(client) == ends


HASH_WRITES = {
    "hmset, all": (True, lambda client: client.hmset(0, port(name="b"), None)),
    "hmset, some": (False, lambda client: client.hmset(0, port(name="b"), [NAME])),
    "hmsetnx": (False, lambda client: client.hmsetnx(0, port(note="b"), [NOTE])),
    "hmupdate": (False, lambda client: client.hmupdate(0, port(name="b"), [NAME])),
}


@pytest.mark.parametrize("write", HASH_WRITES)
def test_which_writes_end_the_lifetime_of_a_hash(client, store, write):
    ends, call = HASH_WRITES[write]
    client.hmset(0, port(name="a"), None)
    client.acted_on("pexpire", 0, port(), 3, 5)
    call(client)
    store.advance(6)
    assert exists(client) == ends


ELEMENT_WRITES = {
    "list": lambda client: client.lpush(0, port(name="more")),
    "set": lambda client: client.sadd(0, port(name="more")),
    "sorted set": lambda client: client.zadd(0, [1], [port(name="more")]),
}


@pytest.mark.parametrize("kind", ELEMENT_WRITES)
def test_elements_leave_the_lifetime(client, store, kind):
    MAKE[kind](client)
    client.acted_on("pexpire", 0, port(), 3, 5)
    ELEMENT_WRITES[kind](client)
    store.advance(6)
    assert not exists(client)


def test_expiry_is_an_event(client, store):
    client.set(0, port("north"))
    client.set(0, port("south"))
    watch = client.watch(0, port(), 0)
    client.acted_on("pexpire", 0, port("north"), 1, 5)
    client.acted_on("pexpire", 0, port("south"), 1, 7)
    assert watch.take() == []
    store.advance(6)
    store.drive()
    [event] = watch.take()
    assert (event.type_code, event.result, event.tag) == (0, None, 0)
    assert (event.key[0], event.db, event.status) == ("north", 0, 0)
    store.advance(1)
    store.drive()
    assert [event.key[0] for event in watch.take()] == ["south"]
    store.advance(100)
    store.drive()
    assert watch.take() == []


def test_what_expires_comes_before_what_is_written_after(client, store):
    client.set(0, port(name="old"))
    client.acted_on("pexpire", 0, port(), 3, 5)
    watch = client.watch(0, port(), 0)
    store.advance(6)
    client.set(0, port(name="new"))
    store.drive()
    assert [event.type_code for event in watch] == [0, 1]


def test_what_expires_comes_before_what_is_published_after(client, store):
    client.set(0, port(name="old"))
    client.acted_on("pexpire", 0, port(), 3, 5)
    watch = client.watch(0, port(), 0)
    store.advance(6)
    client.publish(0, port(name="news"))
    store.drive()
    assert [event.type_code for event in watch] == [0, 24]


def test_events_tell_the_time(client, store):
    watch = client.watch(0, port(), 0)
    store.advance(0)
    client.set(0, port())
    store.advance(10)
    client.set(0, port())
    store.drive()
    first, second = watch
    assert second.time - first.time == pytest.approx(10, abs=0.01)


# ---- Fields of hashes ------------------------------------------------------------------------


def write(client, **fields):
    client.hmset(0, port(**fields), None)


def read(client):
    result = client.value("hgetall", 0, port())
    return result and result.obj


def test_a_field_lives_until_its_time_is_up(client, store):
    write(client, name="a", speed=1, lanes=[1, 2])
    assert client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5) == [PLACE]
    assert client.acted_on("pexpire_field", 0, port(), 1, LANES, 7) == [PLACE]
    store.advance(4.999999)
    assert read(client) == port(name="a", speed=1, lanes=[1, 2])
    store.advance(0.000001)
    assert read(client) == port(name="a", lanes=[1, 2])
    store.advance(2)
    assert read(client) == port(name="a")
    store.advance(100)
    assert read(client) == port(name="a")


def test_several_fields_at_once(client, store):
    write(client, name="a", speed=1, note="n")
    assert client.acted_on("pexpire_fields", 0, port(), 3, [NOTE, SPEED, NOTE], 5) == [PLACE]
    store.advance(5)
    assert read(client) == port(name="a")


@pytest.mark.parametrize("seconds", [0, -1])
def test_a_field_without_time_left_is_gone_at_once(client, seconds):
    write(client, name="a", speed=1)
    [watch] = client.watch_fields(0, port(), 3, [SPEED])
    whole = client.watch(0, port(), 3)
    assert client.acted_on("pexpire_field", 0, port(), 3, SPEED, seconds) == [PLACE]
    assert read(client) == port(name="a")
    for inbox in (watch, whole):
        assert [(event.type_code, event.tag, event.result) for event in inbox] == [(0, SPEED, None)]


def test_a_write_to_a_field_ends_its_lifetime(client, store):
    write(client, name="a", speed=1, note="n", lanes=[1])
    client.acted_on("pexpire_fields", 0, port(), 3, [NAME, SPEED, NOTE, LANES], 5)
    client.hmset(0, port(speed=2), [SPEED])
    client.hmupdate(0, port(note="m"), [NOTE])
    client.hmset(0, port(lanes=[2]), None)
    store.advance(6)
    assert read(client) == port(speed=2, note="m", lanes=[2])


def test_a_deleted_field_takes_its_lifetime_along(client, store):
    write(client, name="a", speed=1)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    client.hmset(0, port(), [SPEED])
    client.hmsetnx(0, port(speed=2), [SPEED])
    store.advance(6)
    assert read(client) == port(name="a", speed=2)


def test_an_expired_field_does_not_exist(client, store):
    write(client, name="a", speed=1)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    store.advance(5)
    client.hmsetnx(0, port(speed=2), [SPEED])
    assert read(client) == port(name="a", speed=2)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    store.advance(5)
    result = client.value("hmget", 0, port(), [NAME, SPEED])
    assert (result.obj, result.tags) == (port(name="a"), (NAME, SPEED))
    assert SPEED not in client.value("hgetall", 0, port()).tags


def test_a_scan_sees_no_expired_field(client, store):
    write(client, name="a", speed=1)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    store.advance(5)
    [(_, result)] = client.scanned(0, port(), 0).values()
    assert result.obj == port(name="a") and SPEED not in result.tags


def test_a_hash_whose_last_field_expires_is_gone(client, store):
    client.hmset(0, port(name="a", speed=1), [NAME, SPEED])
    client.acted_on("pexpire_fields", 0, port(), 3, [NAME], 5)
    client.acted_on("pexpire_fields", 0, port(), 3, [SPEED], 6)
    store.advance(5)
    assert exists(client)
    store.advance(1)
    assert not exists(client)
    assert read(client) is None


def test_del_expire_leaves_the_fields(client, store):
    write(client, name="a", speed=1)
    client.acted_on("pexpire", 0, port(), 3, 5)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    client.acted_on("del_expire", 0, port(), 3)
    store.advance(6)
    assert read(client) == port(name="a")


def test_the_object_may_go_first(client, store):
    write(client, name="a", speed=1)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 10)
    client.acted_on("pexpire", 0, port(), 3, 5)
    store.advance(5)
    assert read(client) is None
    write(client, name="b", speed=2)
    store.advance(100)
    assert read(client) == port(name="b", speed=2)


@pytest.mark.parametrize("swept", [False, True])
def test_what_ends_together_is_told_fields_first(client, store, swept):
    """Whether a command finds it ended or the loop sweeps it makes no difference."""
    write(client, name="a", speed=1, note="n")
    client.acted_on("pexpire_field", 0, port(), 3, NOTE, 5)
    client.acted_on("pexpire_field", 0, port(), 3, NAME, 5)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 4)
    client.acted_on("pexpire", 0, port(), 3, 5)
    watch = client.watch(0, port(), 3)
    store.advance(5)
    if swept:
        store.drive()
    assert read(client) is None
    assert [(event.type_code, event.tag) for event in watch] == [
        (0, SPEED),
        (0, NAME),
        (0, NOTE),
        (0, 0),
    ]


def test_only_hashes_that_have_the_field_match(client):
    client.set(0, port("a", speed=1))
    client.hmset(0, port("b", speed=2), [SPEED])
    client.hmset(0, port("c", name="n"), [NAME])
    client.rpush(0, port("d", speed=3))
    client.sadd(0, port("e", speed=3))
    client.zadd(0, [1], [port("f", speed=3)])
    assert client.acted_on("pexpire_field", 0, port(), 0, SPEED, 5) == [("b", 1, 1)]
    assert client.acted_on("pexpire_fields", 0, port(), 0, [NAME, SPEED], 5) == [
        ("b", 1, 1),
        ("c", 1, 1),
    ]
    assert client.acted_on("pexpire_field", 0, port("c"), 1, SPEED, 5) == []
    assert client.acted_on("pexpire_field", 0, port("none"), 1, SPEED, 5) == []


@pytest.mark.parametrize("kind", [kind for kind in MAKE if kind != "hash"])
def test_fields_of_other_kinds_have_no_lifetimes(client, store, kind):
    MAKE[kind](client)
    for command, fields in (("pexpire_field", NAME), ("pexpire_fields", [NAME])):
        for seconds in (0, 5):
            last = client.ask(command, 0, ELEMENT, 3, fields, seconds)
            assert (last.end, last.count, last.result) == (4, 0, None)
            assert last.status == -1 and last.error
    before = client.scanned(0, ELEMENT, 3)
    store.advance(6)
    assert client.scanned(0, ELEMENT, 3) == before != {}


def test_pexpire_fields_of_no_fields(client):
    client.pexpire_fields(0, port(), 3, [], 1.0, None)
    client.set(0, port(name="a"))
    assert client.value("get", 0, port()) == port(name="a")
    assert [arrival.method for arrival in client.log] == ["get"]
