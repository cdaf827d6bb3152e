"""subscribe, unsubscribe, publish: every change of an object, with the changed value."""

import pytest

import contract_vu
import vu_mom_common
from contract_vu import Port
from kinds import ELEMENT, MAKE
from messages import NAME, NOTE, RACK, SITE, SLOT, SPEED, port, settings

A, B, C = (port(name=name) for name in "abc")
COUNTED = port(name="a", hits=1)
HASH = vu_mom_common.HashResult
LIST = vu_mom_common.ListResult
SET = vu_mom_common.SetResult
SORTED = vu_mom_common.SortedsetResult


def no_change(client):
    pass


def linsert(client, pivot, obj, order):
    client.value("linsert", 0, pivot, obj, order)


# What is there before, what is done, what the event says: type code, class, content.
CHANGES = {
    "set": (no_change, lambda c: c.set(0, A), 1, Port, A),
    "set again": (lambda c: c.set(0, A), lambda c: c.set(0, A), 1, Port, A),
    "setow": (no_change, lambda c: c.setow(0, A, 1), 1, Port, A),
    "setnx": (no_change, lambda c: c.value("setnx", 0, A), 1, Port, A),
    "setnx_noreply": (no_change, lambda c: c.setnx_noreply(0, A), 1, Port, A),
    "incr of nothing": (no_change, lambda c: c.value("incr", 0, A), 3, Port, COUNTED),
    "incr": (lambda c: c.set(0, A), lambda c: c.value("incr", 0, B), 3, Port, COUNTED),
    "delete": (lambda c: c.set(0, A), lambda c: c.delete(0, A), 29, None, None),
    "delow": (lambda c: c.setow(0, A, 1), lambda c: c.delow(0, A, 1), 29, None, None),
    "pdel": (lambda c: c.set(0, A), lambda c: c.replies("pdel", 0, A, 0), 29, None, None),
    "pexpire": (lambda c: c.set(0, A), lambda c: c.replies("pexpire", 0, A, 0, 0), 0, None, None),
    "hmset": (no_change, lambda c: c.hmset(0, A, [NAME]), 4, HASH, (A, (NAME,))),
    "hmset of all": (
        lambda c: c.hmset(0, port(speed=1), None),
        lambda c: c.hmset(0, A, None),
        4, HASH, (A, (NAME, RACK, SITE, SLOT)),
    ),
    "hmset of the same": (
        lambda c: c.hmset(0, A, [NAME]), lambda c: c.hmset(0, A, [NAME]), 4, HASH, (A, (NAME,))
    ),
    "hmset, deleting": (
        lambda c: c.hmset(0, port(name="x", speed=1), None),
        lambda c: c.hmset(0, A, [NAME, SPEED]),
        4, HASH, (A, (NAME, SPEED)),
    ),
    "hmsetnx": (no_change, lambda c: c.hmsetnx(0, A, [NAME]), 6, HASH, (A, (NAME,))),
    "hmupdate": (
        lambda c: c.hmset(0, B, [NAME]), lambda c: c.hmupdate(0, A, [NAME]), 9, HASH, (A, (NAME,))
    ),
    "lpush": (lambda c: c.rpush(0, B), lambda c: c.lpush(0, A), 10, LIST, [A]),
    "rpush": (lambda c: c.rpush(0, B), lambda c: c.rpush(0, A), 11, LIST, [A]),
    "lpop": (
        lambda c: (c.rpush(0, A), c.rpush(0, B)),
        lambda c: c.value("lpop", 0, C),
        12, LIST, [A],
    ),
    "lpop of the last": (lambda c: c.rpush(0, A), lambda c: c.value("lpop", 0, C), 12, LIST, [A]),
    "rpop": (
        lambda c: (c.rpush(0, B), c.rpush(0, A)),
        lambda c: c.value("rpop", 0, C),
        13, LIST, [A],
    ),
    "linsert": (lambda c: c.rpush(0, B), lambda c: linsert(c, B, A, 0), 34, LIST, [A]),
    "lset": (lambda c: c.rpush(0, B), lambda c: c.value("lset", 0, A, 0), 35, LIST, [A]),
    "lrem": (
        lambda c: [c.rpush(0, obj) for obj in (A, B, A, A)],
        lambda c: c.lrem(0, A, 2),
        36, LIST, [A, A],
    ),
    "sadd": (no_change, lambda c: c.sadd(0, A), 18, SET, [A]),
    "srem": (lambda c: c.sadd(0, A), lambda c: c.srem(0, A), 19, SET, [A]),
    "zadd": (no_change, lambda c: c.zadd(0, [2], [A]), 39, SORTED, [(A, 2.0)]),
    "zadd, moving": (
        lambda c: c.zadd(0, [1], [A]),
        lambda c: c.zadd(0, [2], [A]),
        39, SORTED, [(A, 2.0)],
    ),
    "zrem": (
        lambda c: c.zadd(0, [1, 2], [A, B]),
        lambda c: c.zrem(0, [A, C]),
        40, SORTED, [(A, 1.0)],
    ),
    "zremrangebyscore": (
        lambda c: c.zadd(0, [1, 2, 3], [C, B, A]),
        lambda c: c.zremrangebyscore(0, A, 2, 9),
        41, SORTED, [(B, 2.0), (A, 3.0)],
    ),
    "zremrangebyrank": (
        lambda c: c.zadd(0, [1, 2, 3], [C, B, A]),
        lambda c: c.zremrangebyrank(0, A, -2, -1),
        42, SORTED, [(B, 2.0), (A, 3.0)],
    ),
    "publish": (no_change, lambda c: c.publish(0, A), 24, Port, A),
}


@pytest.mark.parametrize("change", CHANGES)
def test_the_event_of_a_change(client, store, change):
    before, do, type_code, kind, content = CHANGES[change]
    before(client)
    client.hmset(5, A, [NAME])
    watch = client.watch(0, port(), 3)
    store.drive()
    do(client)
    store.drive()
    [event] = watch
    assert event.type_code == type_code
    assert (event.key, event.db, event.tag) == (("north", 1, 1), 0, 0)
    assert (event.status, event.error) == (0, "")
    if kind is None:
        assert event.result is None
    elif kind is HASH:
        assert type(event.result) is HASH
        assert (event.result.obj, event.result.tags) == content
    else:
        assert type(event.result) is kind
        assert event.result == content


# What is done to an object and changes nothing.
NO_CHANGES = {
    "setnx": (lambda c: c.set(0, A), lambda c: c.value("setnx", 0, B)),
    "setow": (lambda c: c.setow(0, A, 1), lambda c: c.setow(0, B, 2)),
    "delow": (lambda c: c.setow(0, A, 1), lambda c: c.delow(0, B, 2)),
    "delete": (no_change, lambda c: c.delete(0, A)),
    "pdel": (no_change, lambda c: c.replies("pdel", 0, A, 0)),
    "pexpire of nothing": (no_change, lambda c: c.replies("pexpire", 0, A, 0, 0)),
    "pexpire": (lambda c: c.set(0, A), lambda c: c.replies("pexpire", 0, A, 0, 100)),
    "del_expire": (lambda c: c.set(0, A), lambda c: c.replies("del_expire", 0, A, 0)),
    "hmset": (lambda c: c.hmset(0, A, [NAME]), lambda c: c.hmset(0, B, [SPEED, NOTE])),
    "hmset of nothing": (no_change, lambda c: c.hmset(0, A, [SPEED])),
    "hmsetnx": (lambda c: c.hmset(0, A, [NAME]), lambda c: c.hmsetnx(0, B, [NAME])),
    "hmupdate": (no_change, lambda c: c.hmupdate(0, A, [NAME])),
    "reading a hash": (
        lambda c: c.hmset(0, A, [NAME]),
        lambda c: (c.value("hgetall", 0, A), c.value("hmget", 0, A, [NAME])),
    ),
    "reading a value": (lambda c: c.set(0, A), lambda c: c.value("get", 0, A)),
    "lpop": (no_change, lambda c: c.value("lpop", 0, A)),
    "lset": (lambda c: c.rpush(0, A), lambda c: c.value("lset", 0, B, 1)),
    "linsert": (lambda c: c.rpush(0, A), lambda c: linsert(c, B, C, 0)),
    "lrem": (lambda c: c.rpush(0, A), lambda c: c.lrem(0, B, 0)),
    "sadd": (lambda c: c.sadd(0, A), lambda c: c.sadd(0, A)),
    "srem": (lambda c: c.sadd(0, A), lambda c: c.srem(0, B)),
    "zadd": (lambda c: c.zadd(0, [1], [A]), lambda c: c.zadd(0, [1], [A])),
    "zrem": (lambda c: c.zadd(0, [1], [A]), lambda c: c.zrem(0, [B])),
    "zremrangebyscore": (lambda c: c.zadd(0, [1], [A]), lambda c: c.zremrangebyscore(0, A, 2, 3)),
    "zremrangebyrank": (lambda c: c.zadd(0, [1], [A]), lambda c: c.zremrangebyrank(0, A, 1, 3)),
    "scanning": (lambda c: c.set(0, A), lambda c: c.scanned(0, A, 0)),
}


@pytest.mark.parametrize("case", NO_CHANGES)
def test_no_change_is_no_event(client, store, case):
    before, do = NO_CHANGES[case]
    before(client)
    watch = client.watch(0, port(), 0)
    do(client)
    store.drive()
    assert watch == []


def test_zadd_tells_what_changed(client, store):
    client.zadd(0, [1, 2], [A, B])
    watch = client.watch(0, port(), 3)
    client.zadd(0, [1, 3, 4, 5], [A, B, C, C])
    store.drive()
    [event] = watch
    assert sorted(event.result, key=lambda pair: pair[1]) == [(B, 3.0), (C, 5.0)]


def test_a_subscription_reports_changes_not_what_is_there(client, store):
    client.set(0, A)
    watch = client.watch(0, port(), 3)
    store.drive()
    assert watch == []


def test_a_subscription_begins_with_the_command(client, store):
    client.set(0, A)
    watch = client.watch(0, port(), 3)
    client.set(0, B)
    store.drive()
    assert [event.result for event in watch] == [B]


# ---- Which objects ---------------------------------------------------------------------------

PLACES = [("a", 1, 1), ("a", 1, 2), ("a", 2, 1), ("ab", 1, 1), ("b", 1, 1)]


@pytest.mark.parametrize("level, count", [(0, 5), (1, 3), (2, 2), (3, 1), (4, 1), (2**32 - 1, 1)])
@pytest.mark.parametrize("publish", [False, True])
def test_levels(client, store, level, count, publish):
    watch = client.watch(0, port("a", 1, 1), level)
    for place in PLACES:
        if publish:
            client.publish(0, port(*place))
        else:
            client.set(0, port(*place))
    client.set(1, port("a", 1, 1))
    client.set(0, settings())
    store.drive()
    events = list(watch)
    if not store.engine.orders_objects:
        events.sort(key=lambda event: event.key)
    assert [event.key for event in events] == PLACES[:count]
    assert [event.type_code for event in events] == [24 if publish else 1] * count
    assert [event.result for event in events] == [port(*place) for place in PLACES[:count]]


def test_a_type_without_key_fields(client, store):
    watches = [client.watch(0, settings(mode="ignored"), level) for level in (0, 1, 99)]
    client.set(0, settings(mode="m"))
    store.drive()
    for [event] in watches:
        assert (event.type_code, event.result, event.key) == (1, settings(mode="m"), ())


def test_every_subscription_hears_a_change_once(client, store):
    watches = [client.watch(0, port("a"), level) for level in (0, 1, 1, 2, 3, 3, 3)]
    others = [client.watch(0, port("b"), level) for level in (1, 2, 3)]
    client.set(0, port("a"))
    store.drive()
    assert [len(watch) for watch in watches] == [1] * 7
    assert others == [[], [], []]


def test_events_of_one_object_come_in_the_order_of_its_changes(client, store):
    watch = client.watch(0, port(), 0)
    for number in range(500):
        client.set(0, port(speed=number))
        if number % 3 == 0:
            client.delete(0, port())
    client.rpush(0, A)
    store.drive()
    codes = [event.type_code for event in watch]
    speeds = [event.result.speed for event in watch if event.type_code == 1]
    assert speeds == list(range(500))
    expected = []
    for number in range(500):
        expected += [1, 29] if number % 3 == 0 else [1]
    assert codes == expected  # the list was refused: a value is there


def test_publish_stores_nothing(client, store):
    client.publish(0, A)
    store.drive()
    assert client.scanned(0, port(), 0) == {}
    client.rpush(0, B)
    watch = client.watch(0, port(), 3)
    client.publish(0, A)
    store.drive()
    assert [(event.type_code, event.result) for event in watch] == [(24, A)]
    assert client.value("lrange", 0, port(), 0, -1) == [B]


def test_events_outlive_their_delivery(client, store):
    watch = client.watch(0, port(), 0)
    client.set(0, port(name="x" * 1000))
    client.zadd(1, [1], [B])
    client.delete(0, port())
    store.drive()
    client.send("pdel", 0, port(), 0)
    store.drive()
    kept = watch.take()
    assert kept[0].result == port(name="x" * 1000)
    kept[0].result.name = "changed"
    assert kept[0].result.name == "changed"


# ---- unsubscribe -----------------------------------------------------------------------------


def ends(watch):
    return [event.type_code for event in watch] == [28]


def test_unsubscribe_gives_an_end_and_nothing_after(client, store):
    watch = client.watch(0, port("a"), 1)
    client.unsubscribe(0, port("a", 9, 9, name="ignored"), 1)
    client.set(0, port("a"))
    store.drive()
    client.set(0, port("a"))
    store.drive()
    [end] = watch
    assert (end.type_code, end.result, end.status) == (28, None, 0)


def test_what_happened_before_comes_before_the_end(client, store):
    watch = client.watch(0, port(), 3)
    client.set(0, A)
    client.delete(0, A)
    client.unsubscribe(0, port(), 3)
    client.set(0, B)
    store.drive()
    assert [event.type_code for event in watch] == [1, 29, 28]


def test_unsubscribe_ends_all_equal_subscriptions_and_no_others(client, store):
    equal = [client.watch(0, port("a", 1, slot), 2) for slot in (1, 2, 3)]
    others = [
        client.watch(0, port("a", 1), 1),
        client.watch(0, port("a", 1), 3),
        client.watch(0, port("a", 2), 2),
        client.watch(1, port("a", 1), 2),
        client.watch(0, contract_vu.ByString(id="a"), 1),
    ]
    [field] = client.watch_fields(0, port("a", 1), 2, [NAME])
    client.unsubscribe(0, port("a", 1, 77), 2)
    store.drive()
    assert all(ends(watch) for watch in equal)
    assert others == [[], [], [], [], []]
    assert field == []
    client.set(0, port("a", 1, 1, name="x"))
    store.drive()
    assert [len(watch) for watch in others] == [1, 1, 0, 0, 0]
    assert len(field) == 1
    assert all(ends(watch) for watch in equal)


def test_more_than_all_components_is_all_of_them(client, store):
    watches = [client.watch(0, port(), level) for level in (3, 4, 2**32 - 1)]
    client.unsubscribe(0, port(), 17)
    store.drive()
    assert all(ends(watch) for watch in watches)


def test_unsubscribe_of_nothing(client, store):
    client.unsubscribe(0, port(), 3)
    client.unsubscribe_field(0, port(), 3, [NAME])
    store.drive()
    assert client.log == []


def test_subscribing_again(client, store):
    first = client.watch(0, port(), 3)
    client.unsubscribe(0, port(), 3)
    second = client.watch(0, port(), 3)
    client.set(0, A)
    store.drive()
    assert ends(first)
    assert [event.type_code for event in second] == [1]


def test_only_the_callers_own_subscriptions_end(client, store):
    other = store.open()
    mine = client.watch(0, port(), 3)
    theirs = other.watch(0, port(), 3)
    client.unsubscribe(0, port(), 3)
    client.set(0, A)
    store.drive()
    assert ends(mine)
    assert [event.type_code for event in theirs] == [1]


@pytest.mark.parametrize("kind", MAKE)
def test_expiry_of_every_kind_is_an_event(client, store, kind):
    MAKE[kind](client)
    watch = client.watch(0, ELEMENT, 2)
    client.acted_on("pexpire", 0, ELEMENT, 3, 1)
    store.advance(1)
    store.drive()
    assert [(event.type_code, event.result, event.tag) for event in watch] == [(0, None, 0)]


def test_many_subscriptions(client, store):
    watches = [client.watch(0, port("a", 1, number), 3) for number in range(2000)]
    client.set(0, port("a", 1, 1234))
    store.drive()
    assert [len(watch) for watch in watches].index(1) == 1234
    assert sum(len(watch) for watch in watches) == 1


def test_counting_tells_subscribers_the_new_value(client, store):
    watch = client.watch(0, port(), 3)
    for _ in range(3):
        client.send("incr", 0, port())
    store.drive()
    assert [event.result.hits for event in watch] == [1, 2, 3]
