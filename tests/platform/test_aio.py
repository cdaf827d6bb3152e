"""vu_aio: stores in asyncio event loops."""

import asyncio
import contextlib
import functools
import gc
import itertools
import pathlib
import platform
import sys
import threading
import weakref
from typing import Any

import pytest

import vu_mom
import vu_mom_common
from end_to_end_vu import Count, Item
from contract_vu import Port, Settings
from vu_aio import Client, EventsMissed, StoreError
from vu_global import VuGlobal
from vu_thread import VuThreadMaster

sys.path.insert(1, str(pathlib.Path(__file__).parents[1] / "support"))

from redis_server import RedisServer  # noqa: E402

CLOSED = "the store handle was closed"
NUMBERS = itertools.count()
# A test that waits for longer than this waits for what never comes.
LIMIT = 60


# An emulated processor takes a minute for each.
ENGINES = ["embedded"] if platform.machine().startswith("arm") else ["embedded", "server"]
server = None  # None: stores are embedded


@pytest.fixture(autouse=True, scope="module", params=ENGINES)
def engine(request):
    """Every test runs on stores inside the process, and on those of a redis-server."""
    global server
    if request.param == "server":
        server = RedisServer().start()
    yield
    if server is not None:
        server.stop()
        server = None


def fresh_store():
    if server is not None:
        return server.url("aio-%d" % next(NUMBERS))
    return "embedded:aio-%d" % next(NUMBERS)


def run(coroutine):
    """Runs it in an event loop of its own. Nothing may go wrong where no exception can tell:
    in the loop, and in what the store calls."""
    trouble: list[Any] = []

    async def main():
        loop = asyncio.get_running_loop()
        loop.set_exception_handler(lambda _, context: trouble.append(context))
        return await asyncio.wait_for(coroutine, LIMIT)

    outer, sys.unraisablehook = sys.unraisablehook, trouble.append
    try:
        result = asyncio.run(main())
        gc.collect()
    finally:
        sys.unraisablehook = outer
    assert trouble == []
    return result


def with_client(test):
    """Runs a coroutine function with a client of a store of its own."""

    @functools.wraps(test)
    def with_client():
        async def main():
            async with Client(fresh_store()) as client:
                await test(client)

        run(main())

    del vars(with_client)["__wrapped__"]  # pytest would look for a fixture "client"
    return with_client


def expected_by(client):
    """How many replies and ends of subscriptions have not arrived."""
    return client._hub.expected


async def settled(client):
    """Returns when all is delivered that was sent before."""
    with contextlib.suppress(StoreError):
        await client.get(0, Settings(mode="none"))


async def until(condition):
    for _ in range(10000):
        if condition():
            return
        await asyncio.sleep(0.001)
    raise AssertionError("never came true")


def port(slot=1, **fields):
    return Port(site="north", rack=1, slot=slot, **fields)


# ---- Every command ------------------------------------------------------------------


@with_client
async def test_single_values(client):
    apple = Item(name="apple", text="red")
    assert await client.get(0, apple) is None
    client.set(0, apple)
    assert await client.get(0, Item(name="apple")) == apple
    assert await client.get(1, Item(name="apple")) is None
    assert await client.setnx(0, Item(name="apple", text="green")) is False
    assert await client.setnx(0, Item(name="pear")) is True
    client.delete(0, apple)
    client.setnx_noreply(0, Item(name="apple", text="brown"))
    assert (await client.get(0, apple)).text == "brown"
    assert [await client.incr(0, Count(name="c")) for _ in range(3)] == [1, 2, 3]


@with_client
async def test_owners(client):
    client.setow(0, Item(name="door", text="mine"), 1)
    client.setow(0, Item(name="door", text="yours"), 2)
    assert (await client.get(0, Item(name="door"))).text == "mine"
    client.delow(0, Item(name="door"), 2)
    assert await client.get(0, Item(name="door")) is not None
    client.delow(0, Item(name="door"), 1)
    assert await client.get(0, Item(name="door")) is None


@with_client
async def test_hashes(client):
    name, speed = Port.NAME_FIELD_NUMBER, Port.SPEED_FIELD_NUMBER
    assert await client.hgetall(0, port()) is None
    assert await client.hmget(0, port(), [name]) is None
    client.hmupdate(0, port(name="not there"))
    client.hmset(0, port(name="eth0", speed=10), [name])
    client.hmsetnx(0, port(name="eth1", speed=10), [name, speed])
    client.hmupdate(0, port(speed=20), (speed,))
    found = await client.hgetall(0, port())
    assert isinstance(found, vu_mom_common.HashResult)
    assert (found.obj.name, found.obj.speed, found.tags) == ("eth0", 20, (name, speed))
    assert (await client.hmget(0, port(), iter([speed]))).tags == (speed,)
    assert (await client.hmget(0, port())).tags == (name, speed)


@with_client
async def test_lists(client):
    def item(text):
        return Item(name="list", text=text)

    async def texts(*bounds):
        return [found.text for found in await client.lrange(0, item(""), *bounds)]

    assert await client.lpop(0, item("")) is None
    assert await client.rpop(0, item("")) is None
    assert await client.llen(0, item("")) == 0
    assert await texts() == []
    for text in "bcb":
        client.rpush(0, item(text))
    client.lpush(0, item("a"))
    assert await texts() == list("abcb")
    assert await texts(1, -2) == list("bc")
    assert await client.lset(0, item("d"), 3) is True
    assert await client.lset(0, item("d"), 4) is False
    assert await client.linsert(0, item("d"), item("x"), 0) == 5
    assert await client.linsert(0, item("?"), item("x"), 0) == -1
    client.lrem(0, item("x"), 0)
    assert await client.lpop(0, item("")) == item("a")
    assert await client.rpop(0, item("")) == item("d")
    assert await client.llen(0, item("")) == 2


@with_client
async def test_sets(client):
    def item(text):
        return Item(name="set", text=text)

    assert list(await client.smembers(0, item(""))) == []
    client.sadd(0, item("a"))
    client.sadd(0, item("b"))
    client.srem(0, item("a"))
    assert await client.scard(0, item("")) == 1
    assert await client.sismember(0, item("b")) is True
    assert await client.sismember(0, item("a")) is False
    assert await client.smembers(0, item("")) == [item("b")]


@with_client
async def test_sorted_sets(client):
    def item(text):
        return Item(name="zset", text=text)

    assert list(await client.zrange(0, item(""))) == []
    client.zadd(0, (3, 1, 2, 4), map(item, "cabd"))
    assert [(found.text, score) for found, score in await client.zrange(0, item(""))] == [
        ("a", 1.0),
        ("b", 2.0),
        ("c", 3.0),
        ("d", 4.0),
    ]
    assert await client.zcard(0, item("")) == 4
    assert await client.zrank(0, item("c")) == 2
    assert await client.zrank(0, item("?")) is None
    assert await client.zscore(0, item("c")) == 3.0
    assert await client.zscore(0, item("?")) is None
    assert await client.zcount(0, item(""), 2, float("inf")) == 3
    assert await client.zrangebyscore(0, item(""), 2, 2) == [(item("b"), 2.0)]
    client.zrem(0, [item("b")])
    client.zremrangebyscore(0, item(""), 4, 4)
    client.zremrangebyrank(0, item(""), 0, 0)
    assert await client.zrange(0, item(""), 0, -1) == [(item("c"), 3.0)]


@with_client
async def test_lifetimes_and_deletion(client):
    keys = [("north", 1, slot) for slot in (1, 2)]
    name = Port.NAME_FIELD_NUMBER
    for slot in (1, 2):
        client.hmset(0, port(slot, name="x"), [name])
    assert sorted(await client.pexpire(0, port(), 2, 100)) == keys
    assert sorted(await client.pexpire_field(0, port(), 0, name, 100)) == keys
    assert await client.pexpire_fields(0, port(), 3, {name}, 100) == keys[:1]
    assert await client.pexpire_fields(0, port(), 3, [], 100) == []
    assert sorted(await client.del_expire(0, port(), 1)) == keys
    assert sorted(await client.pdel(0, port(), 0)) == keys
    assert await client.pdel(0, port(), 0) == []


@with_client
async def test_an_expired_object_is_gone(client):
    client.set(0, Item(name="a"))
    await client.pexpire(0, Item(name="a"), 1, 5)
    client.glb._advance_clock(4.9)
    assert await client.get(0, Item(name="a")) is not None
    client.glb._advance_clock(0.1)
    assert await client.get(0, Item(name="a")) is None


def fill_with_kinds(client):
    client.set(0, port(1, name="single"))
    client.hmset(0, port(2, name="hash"))
    client.rpush(0, port(3, name="list"))
    client.sadd(0, port(4, name="set"))
    client.zadd(0, [1], [port(5, name="zset")])


KINDS = {
    1: (1, Port),
    2: (4, vu_mom_common.HashResult),
    3: (10, vu_mom_common.LrangeResult),
    4: (18, vu_mom_common.SmembersResult),
    5: (39, vu_mom_common.ZrangeResult),
}


@with_client
async def test_scan(client):
    fill_with_kinds(client)
    by_list = await client.scan(0, port(), 2)
    by_loop = [msg async for msg in client.scan(0, port(), 2)]
    for found in by_list, by_loop:
        assert {msg.key[2]: (msg.type_code, type(msg.result)) for msg in found} == KINDS
        assert len(found) == 5
    [only] = await client.scan(0, port(), 99)
    assert (only.key, only.result) == (("north", 1, 1), port(1, name="single"))
    assert await client.scan(1, port(), 0) == []


@with_client
async def test_scan_index(client):
    fill_with_kinds(client)
    found = await client.scan_index(0, Port(), 0)
    assert sorted(found, key=lambda each: each.slot) == [port(slot) for slot in range(1, 6)]
    assert [each.slot async for each in client.scan_index(0, port(3), 3)] == [3]


def test_every_command_is_there():
    theirs = {name for name in dir(vu_mom.VuMom) if not name.startswith("_")}
    ours = {name for name in dir(Client) if not name.startswith("_")}
    # Who leaves the loop ends a subscription.
    left_out = {"debug_show_all", "unsubscribe", "unsubscribe_field"}
    assert ours - theirs == {"close", "closed", "glb"}
    assert theirs - ours == left_out


# ---- Errors ----------------------------------------------------------------------------


@with_client
async def test_the_error_of_a_reply_is_raised(client):
    client.rpush(0, Item(name="a"))
    with pytest.raises(StoreError) as raised:
        await client.get(0, Item(name="a"))
    assert raised.value.status == -1
    assert raised.value.error == "the object is a list, not a single value"
    assert str(raised.value) == raised.value.error
    assert isinstance(raised.value, vu_mom.Error)
    with pytest.raises(StoreError, match="is a list"):
        await client.incr(0, Count(name="a")) and await client.scard(0, Item(name="a"))
    with pytest.raises(StoreError, match="not a hash"):
        await client.pexpire_field(0, Item(name="a"), 1, Item.TEXT_FIELD_NUMBER, 1)


@with_client
async def test_refused_arguments_raise_at_the_call(client):
    for refused in (
        lambda: client.get(-1, Item(name="a")),
        lambda: client.zcount(0, Item(name="a"), float("nan"), 0),
        lambda: client.hmget(0, Item(name="a"), [99]),
        lambda: client.incr(0, Item(name="a")),
        lambda: client.scan(-1, Item(), 0),
        lambda: client.pdel(-1, Item(), 0),
        lambda: client.subscribe(-1, Item(), 0),
        lambda: client.subscribe_field(0, Item(), 0, [1, 99]),
    ):
        with pytest.raises(vu_mom.InputError):
            refused()
    with pytest.raises(OverflowError):
        client.subscribe(0, Item(), -1)
    with pytest.raises(OverflowError):
        client.scan(0, Item(), -1)
    with pytest.raises(AttributeError):
        client.get(0, "no message")
    with pytest.raises(ValueError, match="fields"):
        client.subscribe_field(0, Item(), 0, [])
    with pytest.raises(ValueError, match="limit"):
        client.subscribe(0, Item(), 0, limit=0)
    assert expected_by(client) == 0


def test_a_client_needs_a_running_loop():
    with pytest.raises(RuntimeError, match="no running event loop"):
        Client(fresh_store())


def test_a_store_that_cannot_be_opened():
    async def main():
        with pytest.raises(ValueError, match="gopher"):
            Client("gopher://x")

    asyncio.run(main())


# ---- Order, numbers -----------------------------------------------------------------------


@with_client
async def test_commands_are_sent_when_they_are_called(client):
    first = client.incr(0, Count(name="c"))
    client.set(0, Count(name="c", value=10))
    second = client.incr(0, Count(name="c"))
    assert await second == 11
    assert first.done() and first.result() == 1


@with_client
async def test_tens_of_thousands_in_flight(client):
    total = 30000
    futures = [client.incr(0, Count(name="c")) for _ in range(total)]
    assert expected_by(client) == total
    assert not any(future.done() for future in futures)
    assert await asyncio.gather(*futures) == list(range(1, total + 1))
    assert expected_by(client) == 0


@with_client
async def test_many_tasks_get_their_own_replies(client):
    async def worker(number):
        mine = Item(name=str(number), text="text %d" % number)
        for _ in range(5):
            client.set(0, mine)
            assert await client.get(0, Item(name=mine.name)) == mine

    await asyncio.gather(*map(worker, range(500)))


@with_client
async def test_many_in_flight_do_not_starve_the_loop(client):
    """Between the first and the last reply the rest of the loop has its turns."""
    seen = []
    futures = [client.get(0, Item(name="a")) for _ in range(5000)]

    async def other():
        while not futures[-1].done():
            seen.append(sum(future.done() for future in futures))
            await asyncio.sleep(0)

    await asyncio.gather(other(), *futures)
    assert len(set(seen)) >= 10


@with_client
async def test_a_loop_without_work_sleeps(client):
    """Nothing wakes it while nothing is due, also with a subscription and a lifetime. With a
    server one client of them all looks every tenth of a second for what is due."""
    subscription = client.subscribe(0, Item(), 0)
    client.set(0, Item(name="a"))
    await client.pexpire(0, Item(name="a"), 1, 1000)
    await subscription.__anext__()
    await settled(client)
    turns = []
    loop: Any = asyncio.get_running_loop()
    original = loop._run_once
    loop._run_once = lambda: (turns.append(1), original())  # type: ignore[func-returns-value]
    await asyncio.sleep(0.3)
    assert len(turns) <= (5 if server is None else 20)


# ---- Cancellation, time-outs ---------------------------------------------------------------


@with_client
async def test_a_cancelled_reply_goes_nowhere(client):
    """Every second request is given up after it was sent; each other gets its own reply."""
    for number in range(100):
        client.set(0, Item(name=str(number), text="text %d" % number))
    futures = [client.get(0, Item(name=str(number))) for number in range(100)]
    for future in futures[::2]:
        future.cancel()
    kept = await asyncio.gather(*futures[1::2])
    assert [item.text for item in kept] == ["text %d" % number for number in range(1, 100, 2)]
    assert all(future.cancelled() for future in futures[::2])
    await settled(client)
    assert expected_by(client) == 0


@with_client
async def test_a_cancelled_task(client):
    async def waits():
        await client.get(0, Item(name="a"))

    task = asyncio.ensure_future(waits())
    await asyncio.sleep(0)  # it has sent its command
    assert expected_by(client) == 1
    task.cancel()
    with pytest.raises(asyncio.CancelledError):
        await task
    assert (await client.incr(0, Count(name="c"))) == 1
    assert expected_by(client) == 0


@with_client
async def test_the_command_of_a_cancelled_reply_is_done(client):
    client.incr(0, Count(name="c")).cancel()
    assert await client.incr(0, Count(name="c")) == 2


@with_client
async def test_time_outs(client):
    """A loop that is kept from delivering lets every request time out; late replies reach
    nobody, and the next requests get theirs."""
    hub, loop = client._hub, asyncio.get_running_loop()
    descriptor = client.glb.fileno()
    loop.remove_reader(descriptor)
    late = [client.incr(0, Count(name="c")) for _ in range(10)]
    for future in late:
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(future, 0.001)
    assert hub.expected == 10
    loop.add_reader(descriptor, client.glb.run_once, 0)
    assert await asyncio.wait_for(client.incr(0, Count(name="c")), LIMIT) == 11
    assert hub.expected == 0
    assert all(future.cancelled() for future in late)


@with_client
async def test_cancelling_at_every_moment(client):
    """A race between time-outs and replies: whoever is not cancelled gets its own number."""
    results = []

    async def one(number, delay):
        client.set(0, Item(name=str(number), text=str(number)))
        future = client.get(0, Item(name=str(number)))
        try:
            found = await asyncio.wait_for(future, delay)
        except asyncio.TimeoutError:
            assert future.cancelled()
            results.append(None)
        else:
            assert found.text == str(number)
            results.append(number)

    await asyncio.gather(*(one(number, number % 50 * 2e-4) for number in range(2000)))
    assert len(results) == 2000
    await settled(client)
    assert expected_by(client) == 0


@with_client
async def test_what_was_given_up_is_freed(client):
    futures = [client.get(0, Item(name="a")) for _ in range(10)]
    references = [weakref.ref(future) for future in futures]
    for future in futures:
        future.cancel()
    del futures, future
    await settled(client)
    gc.collect()
    assert [reference() for reference in references] == [None] * 10


@with_client
async def test_a_scan_that_is_given_up(client):
    for number in range(1000):
        client.set(0, Item(name=str(number)))
    async for msg in client.scan(0, Item(), 0):
        break
    assert msg.result.name
    task = asyncio.ensure_future(asyncio.wait_for(client.scan_index(0, Item(), 0), 100))
    await asyncio.sleep(0)
    task.cancel()
    with pytest.raises(asyncio.CancelledError):
        await task
    assert len(await client.scan_index(0, Item(), 0)) == 1000
    await until(lambda: expected_by(client) == 0)


# ---- Subscriptions ---------------------------------------------------------------------------


async def take(subscription, count):
    return [await asyncio.wait_for(subscription.__anext__(), LIMIT) for _ in range(count)]


@with_client
async def test_changes_arrive_in_order(client):
    changes = client.subscribe(0, Item(), 0)
    client.set(0, Item(name="a", text="1"))
    client.rpush(0, Item(name="b"))
    client.delete(0, Item(name="a"))
    client.publish(0, Item(name="c", text="news"))
    client.set(1, Item(name="a"))
    seen = []
    async for change in changes:
        seen.append((change.type_code, change.key))
        if len(seen) == 4:
            break
    assert seen == [(1, ("a",)), (11, ("b",)), (29, ("a",)), (24, ("c",))]
    changes.close()
    assert changes.closed
    with pytest.raises(StopAsyncIteration):
        await changes.__anext__()


@with_client
async def test_breaking_off_unsubscribes(client):
    """Without a name, without a with statement: the end of the loop is enough."""
    asyncio.get_running_loop().call_soon(client.publish, 0, Item(name="a"))
    async for change in client.subscribe(0, Item(name="a"), 1):
        break
    assert change.type_code == 24
    await until(lambda: expected_by(client) == 0)
    assert client._hub._channels == {}


@with_client
async def test_a_with_block_unsubscribes(client):
    async with client.subscribe(0, Item(name="a"), 1) as changes:
        client.publish(0, Item(name="a"))
        await take(changes, 1)
        assert expected_by(client) == 1
    assert client._hub._channels == {}
    await until(lambda: expected_by(client) == 0)


@with_client
async def test_a_cancelled_reader_unsubscribes(client):
    async def reader():
        async for _ in client.subscribe(0, Item(), 0):
            pass

    task = asyncio.ensure_future(reader())
    await asyncio.sleep(0)
    assert expected_by(client) == 1
    task.cancel()
    with pytest.raises(asyncio.CancelledError):
        await task
    del task
    await until(lambda: expected_by(client) == 0)


@with_client
async def test_dropped_on_another_thread(client):
    held = [client.subscribe(0, Item(), 0)]
    thread = threading.Thread(target=held.clear)
    thread.start()
    thread.join()
    await until(lambda: expected_by(client) == 0)


@with_client
async def test_a_cancelled_read_loses_nothing(client):
    """Reading with time-outs sees every change once."""
    changes = client.subscribe(0, Count(), 0)
    total = 300
    seen = []

    async def write():
        for _ in range(total):
            client.incr(0, Count(name="c"))
            await asyncio.sleep(0)

    writer = asyncio.ensure_future(write())
    for turn in itertools.count():
        try:
            change = await asyncio.wait_for(changes.__anext__(), turn % 5 * 1e-4)
        except asyncio.TimeoutError:
            continue
        seen.append(change.result.value)
        if len(seen) == total:
            break
    await writer
    assert seen == list(range(1, total + 1))


@with_client
async def test_two_readers_of_the_same(client):
    """The store ends subscriptions to the same objects together; here each has its own end."""
    one = client.subscribe(0, Port(site="north"), 1)
    two = client.subscribe(0, Port(site="north", rack=9), 1)
    other = client.subscribe(0, Port(site="north"), 0)
    assert expected_by(client) == 2
    client.publish(0, port(name="first"))
    one.close()
    client.publish(0, port(name="second"))
    assert [change.result.name for change in await take(two, 2)] == ["first", "second"]
    two.close()
    client.publish(0, port(name="third"))
    names = [change.result.name for change in await take(other, 3)]
    assert names == ["first", "second", "third"]
    again = client.subscribe(0, Port(site="north"), 1)  # while the first ends
    client.publish(0, port(name="fourth"))
    assert [change.result.name for change in await take(again, 1)] == ["fourth"]
    await until(lambda: expected_by(client) == 2)


@with_client
async def test_levels_beyond_the_key_are_the_whole_key(client):
    one, two = client.subscribe(0, port(), 3), client.subscribe(0, port(), 99)
    client.publish(0, port())
    await take(one, 1)
    one.close()
    client.publish(0, port())
    await take(two, 2)


@with_client
async def test_the_message_of_a_subscription_may_change(client):
    named = port()
    changes = client.subscribe(0, named, 3)
    named.slot = 2
    changes.close()
    await until(lambda: expected_by(client) == 0)


@with_client
async def test_fields(client):
    text, name = Item.TEXT_FIELD_NUMBER, Item.NAME_FIELD_NUMBER
    both = client.subscribe_field(0, Item(), 0, [text, name, text])
    only = client.subscribe_field(0, Item(), 0, (text,))
    client.set(0, Item(name="a", text="x"))
    seen = await take(both, 2)
    assert sorted(change.tag for change in seen) == [name, text]
    both.close()
    client.set(0, Item(name="a", text="y"))
    seen = await take(only, 2)
    assert [(change.tag, change.result.text) for change in seen] == [(text, "x"), (text, "y")]
    await until(lambda: expected_by(client) == 1)
    only.close()
    await until(lambda: expected_by(client) == 0)


@with_client
async def test_a_slow_reader_is_told_what_it_misses(client):
    changes = client.subscribe(0, Count(), 0, limit=3)
    for first in (1, 6):
        for _ in range(5):
            client.incr(0, Count(name="c"))
        await settled(client)
        seen = [change.result.value for change in await take(changes, 3)]
        assert seen == list(range(first, first + 3))
        with pytest.raises(EventsMissed, match="3 were waiting") as raised:
            await changes.__anext__()
        assert raised.value.status == -1
    client.incr(0, Count(name="c"))
    assert [change.result.value for change in await take(changes, 1)] == [11]


@with_client
async def test_missed_events_of_the_store(client):
    """A lost connection: the store says so in an event that names no object."""
    changes = client.subscribe(0, Item(), 0)
    lost = vu_mom_common.PubSubMsg.of(status=-1, error="events may be missing: lost")
    [channel] = client._hub._channels.values()
    client._hub._event(lost, channel)
    with pytest.raises(EventsMissed, match="^events may be missing: lost$"):
        async for _ in changes:
            raise AssertionError("an error was taken for a change")
    client.publish(0, Item(name="a"))
    assert [change.key for change in await take(changes, 1)] == [("a",)]


@with_client
async def test_one_reader_at_a_time(client):
    changes = client.subscribe(0, Item(), 0)
    task = asyncio.ensure_future(changes.__anext__())
    await asyncio.sleep(0)
    with pytest.raises(RuntimeError, match="another task"):
        await changes.__anext__()
    client.publish(0, Item(name="a"))
    assert (await task).key == ("a",)


# ---- Closing -------------------------------------------------------------------------------


def test_close_completes_what_is_pending():
    async def main():
        async def all_of(stream):
            return [value async for value in stream]

        client = Client(fresh_store())
        client.set(0, Item(name="a"))
        single = client.get(0, Item(name="a"))
        level = client.pdel(0, Item(), 0)
        found = asyncio.ensure_future(all_of(client.scan(0, Item(), 0)))
        changes = asyncio.ensure_future(all_of(client.subscribe(0, Item(), 0)))
        await asyncio.sleep(0)
        hub = client._hub
        client.close()
        client.close()
        for pending in single, level, found:
            with pytest.raises(StoreError, match=CLOSED):
                await pending
        assert await changes == []
        assert client.closed and client.glb.closed
        assert hub.expected == 0 and hub._driver is None

    run(main())


def test_commands_of_a_closed_client():
    async def main():
        async with Client(fresh_store()) as client:
            pass
        for refused in (
            lambda: client.get(0, Item(name="a")),
            lambda: client.set(0, Item(name="a")),
            lambda: client.scan(0, Item(), 0),
            lambda: client.pexpire_fields(0, Item(), 0, [], 1),
            lambda: client.subscribe(0, Item(), 0),
        ):
            with pytest.raises(StoreError, match="^the client is closed$"):
                refused()
        with pytest.raises(StoreError, match="closed"):
            async with client:
                pass

    run(main())


@pytest.mark.parametrize("awaited", [False, True])
def test_an_error_is_not_buried_under_what_was_pending(awaited):
    """asyncio complains of each error of a future that nobody awaits, but of none of those that
    come of closing the client; where one is awaited, it is raised."""

    async def main():
        with pytest.raises(KeyError):
            async with Client(fresh_store()) as client:
                futures: list[Any] = [client.get(0, Item()), client.llen(0, Item())]
                futures.append(client.pdel(0, Item(), 0))
                raise KeyError("what went wrong")
        assert all(future.done() for future in futures)
        for future in futures if awaited else []:
            with pytest.raises(StoreError, match="closed"):
                await future

    run(main())  # fails where something was complained of


def test_closing_ends_the_loops_over_subscriptions():
    async def main():
        async with Client(fresh_store()) as client:
            ended: list[Any] = []

            async def reader():
                async for change in client.subscribe(0, Item(), 0):
                    ended.append(change.key)
                ended.append("end")

            task = asyncio.ensure_future(reader())
            await asyncio.sleep(0)
            client.publish(0, Item(name="a"))
            await settled(client)
            await until(lambda: ended)
        await task
        assert ended == [("a",), "end"]

    run(main())


# ---- Sharing -----------------------------------------------------------------------------


def test_clients_of_one_VuGlobal():
    """They share what the store knows of; each ends its own."""

    async def main():
        with VuGlobal(store=fresh_store()) as glb:
            one, two = Client(glb), Client(glb)
            mine, theirs = one.subscribe(0, Item(), 0), two.subscribe(0, Item(), 0)
            pending = one.get(0, Item(name="a"))
            one.close()
            assert one.closed and not glb.closed and mine.closed
            assert await pending is None
            two.set(0, Item(name="a"))
            assert [change.key for change in await take(theirs, 1)] == [("a",)]
            two.close()
            assert len(glb.apps) == 1
            await until(lambda: glb.apps[0]._driver is None)
            async with Client(glb) as three:
                assert await three.get(0, Item(name="a")) == Item(name="a")
                assert len(glb.apps) == 1

    run(main())


def test_what_is_pending_arrives_after_close_where_the_VuGlobal_stays():
    async def main():
        with VuGlobal(store=fresh_store()) as glb:
            async with Client(glb) as client:
                futures = [client.incr(0, Count(name="c")) for _ in range(1000)]
            assert await asyncio.gather(*futures) == list(range(1, 1001))
            hub = glb.apps[0]
            assert hub.expected == 0 and hub._driver is None

    run(main())


def test_a_VuGlobal_that_is_closed_under_its_clients():
    async def main():
        glb = VuGlobal(store=fresh_store())
        async with Client(glb) as client:
            pending = client.get(0, Item(name="a"))
            changes = client.subscribe(0, Item(), 0)
            glb.close()
            with pytest.raises(StoreError, match=CLOSED):
                await pending
            with pytest.raises(StoreError, match=CLOSED):
                await changes.__anext__()
            assert [change async for change in changes] == []
            with pytest.raises(vu_mom.Error):
                client.set(0, Item(name="a"))
        with pytest.raises(RuntimeError, match="closed"):
            Client(glb)

    run(main())


def test_a_VuGlobal_in_one_loop_after_another():
    glb = VuGlobal(store=fresh_store())

    async def tidy():
        async with Client(glb) as client:
            return await client.incr(0, Count(name="c"))

    async def untidy():
        client = Client(glb)
        client.subscribe(0, Count(), 0)
        client.incr(0, Count(name="c"))
        return client

    assert run(tidy()) == 1
    left = run(untidy())
    assert run(tidy()) == 3
    left.close()
    assert run(tidy()) == 4
    glb.close()


def test_a_VuGlobal_in_two_loops_at_once():
    glb = VuGlobal(store=fresh_store())

    async def main():
        async with Client(glb):
            with pytest.raises(RuntimeError, match="another event loop"):
                await asyncio.get_running_loop().run_in_executor(None, asyncio.run, other())

    async def other():
        Client(glb)

    run(main())
    glb.close()


def test_several_stores_in_one_event_loop_of_vu_thread():
    async def main():
        master = VuThreadMaster()
        with VuGlobal(master, fresh_store()) as one, VuGlobal(master, fresh_store()) as two:
            async with Client(one) as first:
                async with Client(two) as second:
                    second.set(0, Item(name="a"))
                    assert await first.get(0, Item(name="a")) is None
                    assert await second.get(0, Item(name="a")) is not None
                assert await first.get(0, Item(name="a")) is None

    run(main())


def test_beside_an_application_with_reply_methods():
    class App(vu_mom.VuMom):
        def on_get_e2e_Item(self, msg, p):
            p.set_result(msg.result)

    async def main():
        with VuGlobal(store=fresh_store()) as glb:
            app = App(glb)
            async with Client(glb) as client:
                client.set(0, Item(name="a"))
                future = asyncio.get_running_loop().create_future()
                app.get(0, Item(name="a"), future)
                assert await future == await client.get(0, Item(name="a"))

    run(main())


def test_a_client_that_nobody_closed_is_freed():
    async def main():
        client = Client(fresh_store())
        client.set(0, Item(name="a"))
        await client.get(0, Item(name="a"))
        return weakref.ref(client), weakref.ref(client.glb)

    references = run(main())
    gc.collect()
    assert [reference() for reference in references] == [None, None]
