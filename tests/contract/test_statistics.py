"""VuGlobal.stats(): what a handle counts, on every engine."""

import pytest
import vu_mom
from messages import NAME, port

COUNTERS = ("commands", "refused", "replies", "errors", "events", "missed", "reconnects")
GAUGES = ("waiting", "pending", "unsent_bytes")


def counted(client, before=None):
    """The counters that are not 0, or that have grown since."""
    stats = client.handle.stats()
    assert tuple(stats) == COUNTERS + GAUGES
    assert all(type(number) is int for number in stats.values())
    grown = {name: stats[name] - (before or {}).get(name, 0) for name in COUNTERS}
    return {name: number for name, number in grown.items() if number}


def settled(client):
    return [client.handle.stats()[name] for name in GAUGES]


def test_nothing_was_done_yet(client, store):
    store.drive()  # a store on a server has commands of its own
    assert counted(client) == {} and settled(client) == [0, 0, 0]


# What is called, and what it adds to the counters.
CASES = {
    "without a reply": (lambda c: c.set(0, port()), dict(commands=1)),
    "a reply": (lambda c: c.send("get", 0, port()), dict(commands=1, replies=1)),
    "a reply with an error": (
        lambda c: (c.rpush(0, port()), c.send("get", 0, port())),
        dict(commands=2, replies=1, errors=1),
    ),
    "a scan": (
        lambda c: (c.set(0, port()), c.send("scan", 0, port(), 0)),
        dict(commands=2, replies=2),
    ),
    "a level": (
        lambda c: (c.set(0, port()), c.send("pexpire", 0, port(), 0, 100)),
        dict(commands=2, replies=2),
    ),
    "an event and its subscription's end": (
        lambda c: (
            c.watch(0, port(), 0),
            c.set(0, port()),
            c.unsubscribe(0, port(), 0),
        ),
        dict(commands=3, events=2),
    ),
    "a field": (
        lambda c: (
            c.hmset(0, port(name="x"), [NAME]),
            c.send("hmget", 0, port(), [NAME]),
        ),
        dict(commands=2, replies=1),
    ),
}


@pytest.mark.parametrize("name", sorted(CASES))
def test_counted(name, client, store):
    call, wanted = CASES[name]
    call(client)
    store.drive()
    assert counted(client) == wanted
    assert settled(client) == [0, 0, 0]


def test_refused(client):
    with pytest.raises(vu_mom.InputError):
        client.set(-1, port())
    with pytest.raises(vu_mom.InputError):
        client.hmget(0, port(), [999], None)
    assert counted(client) == dict(refused=2)


def test_each_handle_counts_its_own(client, store):
    other = store.open()
    other.watch(0, port(), 0)
    store.drive()
    client.set(0, port())
    store.drive()
    assert counted(client) == dict(commands=1)
    assert counted(other) == dict(commands=1, events=1)


def test_waiting_until_delivered(client, store):
    store.drive()
    client.send("get", 0, port())
    stats = client.handle.stats()
    assert stats["replies"] == 0
    assert stats["waiting"] + stats["pending"] == 1
    store.drive()
    assert settled(client) == [0, 0, 0] and client.handle.stats()["replies"] == 1


def test_counters_stay_after_close(client, store):
    client.set(0, port())
    client.send("get", 0, port())
    store.drive()
    client.handle.close()
    with pytest.raises(vu_mom.Error):
        client.set(0, port())
    assert counted(client) == dict(commands=2, replies=1, refused=1)
    assert settled(client) == [0, 0, 0]
