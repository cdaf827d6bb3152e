"""Many commands of one sort that follow each other in one turn, which may be carried out together:
each has its own reply and its own place in the order."""

import pytest

from messages import port

MANY = 100


@pytest.fixture(params=[False, True], ids=["clock stands", "clock runs"])
def client(store, request):
    store.clock_runs = request.param
    return store.open()


def test_gets_of_what_there_is_and_is_not(client, store):
    for number in range(0, MANY, 2):
        client.set(0, port(slot=number, speed=number))
    client.rpush(0, port(slot=1, speed=1))
    client.hmset(0, port(slot=3, speed=3), None)
    inboxes = [client.send("get", 0, port(slot=number)) for number in range(MANY)]
    store.drive()
    for number, [msg] in enumerate(inboxes):
        assert msg.key == ("north", 1, number)
        if number in (1, 3):
            assert (msg.status, msg.result) == (-1, None)
            assert ("list" if number == 1 else "hash") in msg.error
        elif number % 2 == 0:
            assert (msg.type_code, msg.result) == (1, port(slot=number, speed=number))
        else:
            assert (msg.status, msg.type_code, msg.result) == (0, 0, None)


def test_what_is_large_among_what_is_small(client, store):
    sizes = [10, 100000, 10, 0, 300000, 70000, 10]
    whole = client.watch(0, port(), 0)
    for number, size in enumerate(sizes):
        client.set(0, port(slot=number, name="x" * size))
    inboxes = [client.send("get", 0, port(slot=number)) for number in range(len(sizes))]
    for number, size in enumerate(sizes):
        client.publish(0, port(slot=number, name="y" * size))
    store.drive()
    assert [len(msg.result.name) for [msg] in inboxes] == sizes
    published = {event.key[2]: event.result.name for event in whole if event.type_code == 24}
    assert published == {number: "y" * size for number, size in enumerate(sizes)}


def test_publications_are_heard_one_by_one(client, store):
    site, one = client.watch(0, port(), 1), client.watch(0, port(slot=5), 3)
    numbers = [number % 10 for number in range(MANY)]
    for i, number in enumerate(numbers):
        client.publish(0, port("south" if number == 7 else "north", slot=number, speed=i))
    store.drive()
    heard = [event.result.speed for event in site]
    assert sorted(heard) == [i for i in range(MANY) if numbers[i] != 7]
    if store.engine.orders_objects:
        assert heard == sorted(heard)
    assert [event.result.speed for event in one] == [i for i in range(MANY) if numbers[i] == 5]


def test_other_commands_between_them(client, store):
    whole = client.watch(0, port(), 3)
    seen = []
    for number in range(MANY):
        client.publish(0, port(speed=2 * number))
        client.set(0, port(speed=2 * number + 1))
        seen.append(client.send("get", 0, port()))
        seen.append(client.send("get", 0, port()))
        client.publish(0, port(speed=2 * number))
        client.delete(0, port())
        seen.append(client.send("get", 0, port()))
    store.drive()
    found = [msg.result and msg.result.speed for [msg] in seen]
    assert found == [value for i in range(MANY) for value in (2 * i + 1, 2 * i + 1, None)]
    told = [(event.type_code, event.result and event.result.speed) for event in whole]
    one_round = [(24, 0), (1, 1), (24, 0), (29, None)]
    assert told == [
        (code, None if value is None else value + 2 * i)
        for i in range(MANY)
        for code, value in one_round
    ]


def test_only_what_is_published_between_begin_and_end_is_heard(client, store):
    for number in range(20):
        client.publish(0, port(speed=number))
    watched = client.watch(0, port(), 3)
    for number in range(20, 60):
        client.publish(0, port(speed=number))
    client.unsubscribe(0, port(), 3)
    for number in range(60, 80):
        client.publish(0, port(speed=number))
    store.drive()
    assert [event.result.speed for event in watched[:-1]] == list(range(20, 60))
    assert watched[-1].type_code == 28


def test_a_handle_that_closes_with_many_under_way(client, store):
    other = store.open()
    of_both = [
        (each, each.send("get", 0, port(slot=number)))
        for number in range(MANY)
        for each in (client, other)
    ]
    client.handle.close()
    store.drive()
    for each, [msg] in of_both:
        assert (msg.status == 0) == (each is other), msg


def test_the_clock_moves_between_them(client, store):
    client.set(0, port(speed=1))
    client.acted_on("pexpire", 0, port(), 3, 10)
    before = [client.send("get", 0, port()) for _ in range(20)]
    store.advance(11)
    after = [client.send("get", 0, port()) for _ in range(20)]
    store.drive()
    assert all(msg.result == port(speed=1) for [msg] in before)
    assert all(msg.result is None and msg.status == 0 for [msg] in after)
