"""What only a store on a server does: it outlives its handles, other loops and processes share
it, it has a clock of its own, and it may be away."""

import platform
import time

import pytest

import redis_server
import store as harness
import vu_global
import vu_mom
import vu_thread
from engines import ServerEngine
from messages import NAME, port


@pytest.fixture(scope="module")
def engine():
    made = ServerEngine()
    yield made
    made.stop()


@pytest.fixture
def elsewhere(engine, store):
    """The same store on another event loop, with connections of its own."""
    other = harness.Store(engine)
    other.address = store.address
    yield other
    other.finish()


def both_drive(one, other):
    for _ in range(3):
        one.drive()
        other.drive()


def test_what_is_stored_outlives_all_handles(client, store, elsewhere):
    for number in range(1000):
        client.set(0, port("a", 1, number, speed=number))
    assert client.value("get", 0, port()) is None  # its reply is behind theirs
    client.handle.close()
    store.engine.close(store)
    other = elsewhere.open()
    assert other.value("get", 0, port("a", 1, 999)) == port("a", 1, 999, speed=999)
    assert len(other.acted_on("pdel", 0, port("a"), 1)) == 1000


def test_closing_the_last_handle_waits_for_nothing(client, store, elsewhere):
    client.set(0, port(name="first"))
    store.drive()
    store.engine.close(store)
    for number in range(1000):
        client.set(0, port("a", 1, number, speed=number))
    inbox = client.send("get", 0, port())
    scan = client.send("scan", 0, port(), 0)
    watch = client.watch(0, port(), 0)
    client.handle.close()
    for last in (inbox, scan, watch):
        [msg] = last
        assert msg.status == -1 and msg.result is None and msg.error
    other = elsewhere.open()
    found = other.scanned(0, port("a"), 1)
    assert all(value == (1, port(*key, speed=key[2])) for key, value in found.items())


def test_another_loop_hears_what_happens(client, store, elsewhere):
    other = elsewhere.open()
    whole = other.watch(0, port(), 0)
    [name] = other.watch_fields(0, port(), 3, [NAME])
    elsewhere.drive()
    mine = client.watch(0, port(), 1)
    client.set(0, port(name="a"))
    client.hmset(1, port(name="other database"), None)
    other.set(0, port("south"))
    both_drive(store, elsewhere)
    assert [event.result.site for event in whole] == ["north", "south"] or [
        event.result.site for event in whole
    ] == ["south", "north"]
    assert [event.result for event in name] == [port(name="a")]
    assert [event.result for event in mine] == [port(name="a")]
    client.unsubscribe(0, port(), 1)
    other.set(0, port(name="b"))
    both_drive(store, elsewhere)
    assert mine[-1].type_code == 28
    assert whole[-1].result == port(name="b")


SLOW = platform.machine().startswith("arm")  # a device, or an emulator


def test_many_events_come_in_order(client, store, elsewhere):
    """More than a handle lets wait, where the machine is fast enough for so many."""
    watch = client.watch(0, port(), 3)
    store.drive()
    other = elsewhere.open()
    count = 3000 if SLOW else 70000
    for number in range(count):
        other.publish(0, port(speed=number))
        if number % 5000 == 0:
            elsewhere.drive()
            store.loop.run_once(0)  # reads all there is, delivers a few
    elsewhere.drive()
    store.drive()
    assert [event.result.speed for event in watch] == list(range(count))


# ---- Time ------------------------------------------------------------------------------------


class Watcher(vu_mom.VuMom):
    def __init__(self, address):
        self.loop = vu_thread.VuThreadMaster()
        self.handle = vu_global.VuGlobal(thread_master=self.loop, store=address)
        super().__init__(self.handle)
        self.heard = []
        self.replies = []

    def on_subscribe_contract_Port(self, msg, p):
        self.heard.append(msg)

    def __getattr__(self, name):
        if name.startswith("on_"):
            return lambda msg, p: self.replies.append(msg)
        raise AttributeError(name)

    def run_until(self, condition, *others):
        end = time.monotonic() + 60
        while not condition():
            assert time.monotonic() < end
            for one in (self,) + others:
                one.loop.run_once(0.01)


def test_lifetimes_end_by_the_clock_of_the_server(engine):
    one = Watcher(engine.fresh_store())
    one.subscribe(0, port(), 3, None)
    one.set(0, port(name="a"))
    began = time.time()
    one.pexpire(0, port(), 3, 0.3, None)
    one.run_until(lambda: len(one.heard) == 2)
    assert [event.type_code for event in one.heard] == [1, 0]
    assert 0.299 < one.heard[1].time - one.heard[0].time < 30
    assert time.time() - began > 0.298
    one.handle.close()


def test_another_client_sweeps_when_one_has_gone(engine):
    address = engine.fresh_store()
    first, second = Watcher(address), Watcher(address)
    first.set(0, port())
    first.get(0, port(), None)
    first.run_until(lambda: first.replies)  # it has asked for the lease by now
    second.subscribe(0, port(), 3, None)
    second.pexpire(0, port(), 3, 0.2, None)
    second.run_until(lambda: second.replies, first)
    first.handle.close()
    second.run_until(lambda: second.heard)
    assert second.heard[0].type_code == 0
    second.handle.close()


# ---- A server that is not there --------------------------------------------------------------


def test_nobody_answers():
    with redis_server.RedisServer() as server:
        address = server.url("away", connect_timeout=0.2, command_timeout=0.5)
        server.stop(keep=True)
        client = Watcher(address)
        client.subscribe(0, port(), 3, None)
        client.set(0, port())
        client.get(0, port(), None)
        client.scan(0, port(), 0, None)
        client.pdel(0, port(), 0, None)
        client.run_until(lambda: len(client.replies) == 3)
        for msg, end in zip(client.replies, (0, 1, 5)):
            assert (msg.status, msg.result, msg.end) == (-1, None, end)
            assert msg.error.startswith("not done: ")
        assert client.heard == []

        # It comes, and everything goes on: the subscription too.
        server.start()
        client.replies.clear()
        client.run_until(lambda: client.heard)
        [gap] = client.heard
        assert (gap.type_code, gap.status, gap.result, gap.key) == (0, -1, None, ())
        assert gap.error.startswith("events may be missing: ")
        client.set(0, port(name="now"))
        client.run_until(lambda: len(client.heard) == 2)
        assert client.heard[1].result == port(name="now")
        client.handle.close()
        assert client.heard[-1].type_code == 28
