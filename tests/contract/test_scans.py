"""scan and scan_index."""

import pytest

from contract_vu import Port, Settings
from kinds import MAKE
from messages import NAME, RACK, SITE, SLOT, SPEED, port, settings


def test_values_of_every_kind(client):
    client.set(0, port("a", name="x"))
    client.hmset(0, port("b", name="x", speed=1), [NAME, SPEED])
    for name in "xyx":
        client.rpush(0, port("c", name=name))
        client.sadd(0, port("d", name=name))
    client.zadd(0, [2, 1], [port("e", name="x"), port("e", name="y")])
    found = client.scanned(0, port(), 0)
    assert sorted(key[0] for key in found) == list("abcde")
    by_site = {key[0]: value for key, value in found.items()}
    assert by_site["a"] == (1, port("a", name="x"))
    type_code, result = by_site["b"]
    assert (type_code, result.obj, result.tags) == (4, port("b", name="x", speed=1), (NAME, SPEED))
    assert by_site["c"] == (10, [port("c", name=name) for name in "xyx"])
    type_code, result = by_site["d"]
    assert (type_code, sorted(message.name for message in result)) == (18, ["x", "y"])
    assert by_site["e"] == (39, [(port("e", name="y"), 1.0), (port("e", name="x"), 2.0)])


@pytest.mark.parametrize("kind", MAKE)
def test_keys_alone(client, kind):
    MAKE[kind](client)
    [(key, (type_code, result))] = client.scanned(0, port(), 0, "scan_index").items()
    assert (key, type_code) == (("north", 1, 1), 37)
    assert type(result) is Port and result == port()


def test_a_key_of_default_values(client):
    client.set(0, Port(name="x"))
    assert client.scanned(0, Port(), 3) == {("", 0, 0): (1, Port(name="x"))}
    assert client.scanned(0, Port(), 0, "scan_index") == {("", 0, 0): (37, Port())}


def test_the_last_reply_is_one_of_its_own(client):
    for command in ("scan", "scan_index"):
        inbox = client.send(command, 4, port(), 0)
        client.store.drive()
        [last] = inbox.take()
        assert (last.type_code, last.end, last.count, last.result) == (0, 1, 0, None)
        assert (last.db, last.status) == (4, 0)
    client.set(4, port())
    each, last = client.replies("scan", 4, port(), 0)
    assert [(msg.type_code, msg.end, msg.db) for msg in each] == [(1, 0, 4)]
    assert (last.type_code, last.end, last.count) == (0, 1, 1)


@pytest.mark.parametrize("command", ["scan", "scan_index"])
@pytest.mark.parametrize(
    "level, sites",
    [(0, ["a", "a", "ab", "b"]), (1, ["a", "a"]), (2, ["a"]), (3, ["a"]), (99, ["a"])],
)
def test_levels(client, command, level, sites):
    for place in (("a", 1, 1), ("a", 2, 1), ("ab", 1, 1), ("b", 1, 1)):
        client.set(0, port(*place))
    found = client.scanned(0, port("a", 1, 1), level, command)
    assert sorted(key[0] for key in found) == sites


def test_a_type_without_key_fields(client):
    assert client.scanned(0, Settings(), 0) == {}
    client.set(0, settings(mode="m"))
    for level in (0, 1, 2**32 - 1):
        assert client.scanned(0, Settings(), level) == {(): (1, settings(mode="m"))}
        assert client.scanned(0, Settings(), level, "scan_index") == {(): (37, settings())}


COUNT = 5000


@pytest.mark.parametrize("command", ["scan", "scan_index"])
def test_many_objects_come_in_batches(client, store, command):
    for number in range(COUNT):
        client.set(0, port("a", number % 7, number, speed=number))
    inbox = client.send(command, 0, port("a"), 1)
    turns = 0
    while not inbox.completed:
        before = len(inbox)
        assert store.turn()
        turns += len(inbox) > before
    assert turns > 1, "the loop was held until the end"
    assert inbox[-1].count == COUNT == len(inbox) - 1
    assert sorted(msg.key[2] for msg in inbox[:-1]) == list(range(COUNT))


def test_what_exists_throughout_is_found(client, store):
    """Each turn of the loop some objects go and others come."""
    stay = range(0, COUNT, 2)
    for number in range(COUNT):
        client.set(0, port("a", 1, number))
    inbox = client.send("scan_index", 0, port("a"), 1)
    seed = 1
    for turn in range(10 * COUNT):
        if inbox.completed:
            break
        for _ in range(20):
            seed = seed * 1103515245 + 12345 & 0x7FFFFFFF
            number = seed % COUNT | 1
            if seed & 1024:
                client.delete(0, port("a", 1, number))
            else:
                client.set(0, port("a", 1, number + COUNT))
        store.turn()
    assert inbox.completed
    found = {msg.key[2] for msg in inbox[:-1]}
    assert found >= set(stay)
    assert inbox[-1].count == len(inbox) - 1


def test_values_are_never_half_of_two_writes(client, store):
    for number in range(1000):
        client.set(0, port("a", 1, number, name="0", note="0"))
    inbox = client.send("scan", 0, port("a"), 1)
    turn = 0
    while not inbox.completed:
        turn += 1
        for number in range(0, 1000, 10):
            client.set(0, port("a", 1, number, name=str(turn), note=str(turn)))
        store.turn()
    assert all(msg.result.name == msg.result.note for msg in inbox[:-1])


def test_the_scanned_may_all_go_away(client, store):
    for number in range(2000):
        client.set(0, port("a", 1, number))
    inbox = client.send("scan", 0, port("a"), 1)
    store.turn_until(lambda: inbox)
    client.send("pdel", 0, port("a"), 0)
    store.drive()
    assert inbox.completed
    assert inbox[-1].count == len(inbox) - 1


def test_expired_objects_are_not_scanned(client, store):
    for number in range(10):
        client.set(0, port("a", 1, number))
    client.acted_on("pexpire", 0, port("a", 1, 3), 3, 5)
    store.advance(5)
    found = client.scanned(0, port("a"), 1)
    assert sorted(key[2] for key in found) == [0, 1, 2, 4, 5, 6, 7, 8, 9]


def test_scans_side_by_side(client, store):
    for number in range(1000):
        client.set(0, port("a", 1, number))
    inboxes = [
        client.send(command, 0, port("a"), level)
        for command in ("scan", "scan_index")
        for level in (0, 1, 2)
    ]
    store.drive()
    for inbox in inboxes:
        assert sorted(msg.key[2] for msg in inbox[:-1]) == list(range(1000))


def test_found_messages_outlive_the_scan(client, store):
    for number in range(600):
        client.set(0, port("a", 1, number, note="x" * number))
    found = client.scanned(0, port("a"), 1)
    client.send("pdel", 0, port("a"), 0)
    store.drive()
    for (_, _, number), (_, message) in found.items():
        assert message == port("a", 1, number, note="x" * number)


KEY_FIELDS = {RACK, SITE, SLOT}


def test_an_index_carries_the_key_fields_only(client):
    client.set(0, port("a", 2, 3, name="x", speed=0, up=True, note=""))
    [(_, named)] = client.scanned(0, port(), 0, "scan_index").values()
    assert named == port("a", 2, 3)
    assert not any(named.HasField(name) for name in ("speed", "up", "note", "last"))
