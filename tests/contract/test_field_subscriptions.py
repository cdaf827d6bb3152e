"""subscribe_field: every write, deletion or expiry of one field."""

import pytest

import vu_mom
import vu_mom_common
from messages import HITS, LANES, NAME, NOTE, SITE, SPEED, port, settings

HASH_WRITES = {
    4: lambda client, obj, tags: client.hmset(0, obj, tags),
    6: lambda client, obj, tags: client.hmsetnx(0, obj, tags),
    9: lambda client, obj, tags: client.hmupdate(0, obj, tags),
}


def codes(watch):
    return [event.type_code for event in watch]


# ---- Hashes ----------------------------------------------------------------------------------


@pytest.mark.parametrize("type_code", HASH_WRITES)
def test_a_hash_write_that_names_the_field(client, store, type_code):
    client.hmset(0, port(lanes=[1]), [LANES])
    name, speed, note = client.watch_fields(0, port(), 3, [NAME, SPEED, NOTE])
    HASH_WRITES[type_code](client, port(name="a", speed=1, note="n"), [SPEED, NAME])
    store.drive()
    assert note == []
    for watch, tag, carried in ((name, NAME, port(name="a")), (speed, SPEED, port(speed=1))):
        [event] = watch
        assert (event.type_code, event.tag) == (type_code, tag)
        assert (event.key, event.db) == (("north", 1, 1), 0)
        assert type(event.result) is vu_mom_common.HashResult
        assert (event.result.obj, event.result.tags) == (carried, (tag,))


@pytest.mark.parametrize("type_code", [4, 9])
def test_a_hash_write_that_deletes_the_field(client, store, type_code):
    client.hmset(0, port(name="a", speed=1), [NAME, SPEED])
    name, speed, note = client.watch_fields(0, port(), 3, [NAME, SPEED, NOTE])
    HASH_WRITES[type_code](client, port(name="b"), [NAME, SPEED, NOTE])
    store.drive()
    assert codes(name) == [type_code]
    assert [(event.type_code, event.tag, event.result) for event in speed] == [(29, SPEED, None)]
    assert note == []


def test_a_hash_write_of_everything_carried(client, store):
    site, name, speed = client.watch_fields(0, port(), 3, [SITE, NAME, SPEED])
    client.hmset(0, port(name="a"), None)
    store.drive()
    assert (codes(site), codes(name), codes(speed)) == ([4], [4], [])


def test_hash_writes_without_effect(client, store):
    client.hmset(0, port(name="a"), [NAME])
    name, speed = client.watch_fields(0, port(), 3, [NAME, SPEED])
    client.hmsetnx(0, port(name="b", speed=1), [NAME, SPEED])
    client.hmset(0, port(), [SPEED])
    client.delete(0, port("elsewhere"))
    client.hmupdate(0, port("elsewhere", name="b"), [NAME])
    store.drive()
    assert (name, speed) == ([], [])


# ---- Single values ---------------------------------------------------------------------------


def test_a_set_that_carries_the_field(client, store):
    name, speed, note = client.watch_fields(0, port(), 3, [NAME, SPEED, NOTE])
    client.set(0, port(name="a", speed=0))
    store.drive()
    assert (codes(name), codes(speed), codes(note)) == ([1], [1], [])
    [event] = speed
    assert (event.tag, event.key) == (SPEED, ("north", 1, 1))
    assert event.result == port(speed=0)
    assert event.result.HasField("speed")


def test_a_set_that_drops_the_field(client, store):
    client.set(0, port(name="a", speed=1))
    name, speed, note = client.watch_fields(0, port(), 3, [NAME, SPEED, NOTE])
    client.set(0, port(name="b"))
    store.drive()
    assert (codes(name), note) == ([1], [])
    assert [(event.type_code, event.tag, event.result) for event in speed] == [(29, SPEED, None)]


def test_a_quiet_set(client, store):
    [name] = client.watch_fields(0, port(), 3, [NAME])
    client.set(0, port(name="a"), 1)
    client.set(0, port(), 1)
    store.drive()
    assert name == []


@pytest.mark.parametrize(
    "write",
    [
        lambda client, obj: client.setow(0, obj, 1),
        lambda client, obj: client.setnx_noreply(0, obj),
        lambda client, obj: client.value("setnx", 0, obj),
    ],
)
def test_other_writes_of_a_value(client, store, write):
    name, speed = client.watch_fields(0, port(), 3, [NAME, SPEED])
    write(client, port(name="a"))
    store.drive()
    assert (codes(name), codes(speed)) == ([1], [])


def test_incr_writes_its_counter(client, store):
    name, hits = client.watch_fields(0, port(), 3, [NAME, HITS])
    assert client.number("incr", 0, port(name="a")) == 1
    assert (codes(name), codes(hits)) == ([3], [3])
    assert client.number("incr", 0, port()) == 2
    assert (codes(name), codes(hits)) == ([3], [3, 3])
    assert (hits[1].tag, hits[1].result) == (HITS, port(hits=2))


# ---- Deletion and expiry ---------------------------------------------------------------------

WRITE = {
    "single value": lambda client, obj: client.set(0, obj),
    "hash": lambda client, obj: client.hmset(0, obj, None),
}


@pytest.mark.parametrize("kind", WRITE)
@pytest.mark.parametrize("command", ["delete", "pdel"])
def test_a_deleted_object_deletes_its_fields(client, store, kind, command):
    WRITE[kind](client, port(name="a"))
    name, speed = client.watch_fields(0, port(), 3, [NAME, SPEED])
    if command == "delete":
        client.delete(0, port())
    else:
        client.acted_on("pdel", 0, port(), 3)
    store.drive()
    assert [(event.type_code, event.tag, event.result) for event in name] == [(29, NAME, None)]
    assert speed == []


@pytest.mark.parametrize("kind", WRITE)
def test_an_expired_object_expires_its_fields(client, store, kind):
    WRITE[kind](client, port(name="a"))
    name, speed = client.watch_fields(0, port(), 3, [NAME, SPEED])
    client.acted_on("pexpire", 0, port(), 3, 5)
    store.advance(5)
    store.drive()
    assert [(event.type_code, event.tag, event.result) for event in name] == [(0, NAME, None)]
    assert speed == []


def test_an_expired_field(client, store):
    client.hmset(0, port(name="a", speed=1), None)
    name, speed = client.watch_fields(0, port(), 3, [NAME, SPEED])
    whole = client.watch(0, port(), 3)
    client.acted_on("pexpire_field", 0, port(), 3, SPEED, 5)
    store.advance(4)
    store.drive()
    assert (name, speed, whole) == ([], [], [])
    store.advance(1)
    store.drive()
    assert name == []
    assert [(event.type_code, event.tag, event.result) for event in speed] == [(0, SPEED, None)]
    assert [(event.type_code, event.tag, event.result) for event in whole] == [(0, SPEED, None)]
    assert whole[0].key == ("north", 1, 1)


def test_the_last_field_of_a_hash_is_the_only_event(client, store):
    client.hmset(0, port(name="a"), [NAME])
    [name] = client.watch_fields(0, port(), 3, [NAME])
    whole = client.watch(0, port(), 3)
    client.acted_on("pexpire_field", 0, port(), 3, NAME, 5)
    store.advance(5)
    store.drive()
    assert [(event.type_code, event.tag) for event in name] == [(0, NAME)]
    assert [(event.type_code, event.tag) for event in whole] == [(0, NAME)]
    client.hmset(0, port(name="a"), [NAME])
    client.hmset(0, port(), [NAME])
    store.drive()
    assert codes(name) == [0, 4, 29]
    assert codes(whole) == [0, 4, 4]


def test_elements_are_no_fields(client, store):
    watches = client.watch_fields(0, port(), 0, [NAME, SPEED])
    element = port(name="a", speed=1)
    client.rpush(0, element)
    client.value("lpop", 0, element)
    client.sadd(0, element)
    client.srem(0, element)
    client.zadd(0, [1], [element])
    client.delete(0, element)
    store.drive()
    assert watches == [[], []]


def test_a_published_message_is_no_write(client, store):
    [name] = client.watch_fields(0, port(), 3, [NAME])
    client.publish(0, port(name="a"))
    store.drive()
    assert name == []


# ---- Which objects, which fields, how long ---------------------------------------------------


@pytest.mark.parametrize("level, count", [(0, 5), (1, 3), (2, 2), (3, 1), (99, 1)])
def test_levels(client, store, level, count):
    places = [("a", 1, 1), ("a", 1, 2), ("a", 2, 1), ("ab", 1, 1), ("b", 1, 1)]
    [watch] = client.watch_fields(0, port("a", 1, 1), level, [NAME])
    for place in places:
        client.hmset(0, port(*place, name="x"), [NAME])
    client.hmset(1, port("a", 1, 1, name="x"), [NAME])
    client.set(0, settings(mode="x"))
    store.drive()
    told = [event.key for event in watch]
    if not store.engine.orders_objects:
        told.sort()
    assert told == places[:count]


def test_each_field_has_its_own_function_and_argument(client, store):
    got = []

    def first(msg, p):
        if msg.type_code == 1:
            got.append(("first", msg.tag, p))

    def second(msg, p):
        if msg.type_code == 1:
            got.append(("second", msg.tag, p))

    fields, funcs = [NAME, SPEED, NAME], [first, second, second]
    client.subscribe_field(0, port(), 3, fields, funcs, ["a", "b", "c"])
    client.set(0, port(name="x", speed=1))
    store.drive()
    assert sorted(got) == [("first", NAME, "a"), ("second", NAME, "c"), ("second", SPEED, "b")]


def test_unsubscribe_field(client, store):
    name, speed, note = client.watch_fields(0, port("a"), 1, [NAME, SPEED, NOTE])
    [again] = client.watch_fields(0, port("a", 7), 1, [NAME])
    [deeper] = client.watch_fields(0, port("a"), 2, [NAME])
    whole = client.watch(0, port("a"), 1)
    client.set(0, port("a", name="x", speed=1, note="n"))
    client.unsubscribe_field(0, port("a", 9), 1, [NAME, SPEED])
    client.set(0, port("a", name="y", speed=2, note="m"))
    store.drive()
    assert (codes(name), codes(again), codes(speed)) == ([1, 28], [1, 28], [1, 28])
    assert (codes(note), codes(deeper), codes(whole)) == ([1, 1], [1, 1], [1, 1])
    assert (name[1].result, name[1].status) == (None, 0)
    client.unsubscribe(0, port("a"), 1)
    store.drive()
    assert (codes(whole), codes(note)) == ([1, 1, 28], [1, 1])


def test_unknown_fields_are_refused(client, store):
    for fields in ([11], [NAME, 99], [0], [2**31]):
        calls = [print] * len(fields)
        with pytest.raises(vu_mom.InputError):
            client.subscribe_field(0, port(), 3, fields, calls, fields)
        with pytest.raises(vu_mom.InputError):
            client.unsubscribe_field(0, port(), 3, fields)
    client.set(0, port(name="x"))
    store.drive()
