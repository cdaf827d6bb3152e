"""When and how replies and events arrive."""

import gc
import subprocess
import sys
import weakref

import pytest

import vu_mom
from contract_vu import ByString, Colour, CountInt32, Mixed, Plain, Settings
from messages import NAME, port
from store import Client

ENDED = 28


def test_nothing_arrives_inside_a_command(client, store):
    client.watch(0, port(), 0)
    client.set(0, port(name="x"))
    client.send("get", 0, port())
    client.send("scan", 0, port(), 0)
    client.send("pdel", 0, port(), 0)
    client.unsubscribe(0, port(), 0)
    assert client.log == []
    store.drive()
    assert client.log != []


def test_replies_come_in_the_order_of_the_commands(client, store):
    for number in range(100):
        client.send("incr", 0, port())
        client.send("get", 0, port())
        if number % 10 == 0:
            client.send("pexpire", 0, port(), 0, 10)
            client.send("scan", 0, port(), 0)
        client.send("llen", 1, port())
    store.drive()
    expected = []
    for number in range(100):
        expected += ["incr", "get"]
        if number % 10 == 0:
            expected += ["pexpire", "pexpire", "scan", "scan"]
        expected += ["llen"]
    assert [arrival.method for arrival in client.log] == expected
    counted = [arrival.msg.result.value for arrival in client.log if arrival.method == "incr"]
    assert counted == list(range(1, 101))


def test_privdata_comes_back_as_it_was(client, store):
    things = [None, 0, "", [1], object(), client, port]
    for thing in things:
        client.get(0, port(), thing)
    store.drive()
    assert len(client.log) == len(things)
    assert all(arrival.p is thing for arrival, thing in zip(client.log, things))


def test_commands_from_a_reply_method(store):
    store.open()

    class Counting(Client):
        def on_incr_contract_Port(self, msg, p):
            self._record("incr", "Port", msg, p)
            if msg.result.value < 500:
                self.incr(0, port(), p + 1)
                self.set(1, port(speed=p))

    client = Counting(store, store.handles[0])
    client.incr(0, port(), 0)
    store.drive()
    assert [arrival.p for arrival in client.log] == list(range(500))
    assert client.value("get", 1, port()).speed == 498


def test_replies_to_commands_from_reply_methods_come_behind(store):
    store.open()

    class Asking(Client):
        def on_get_contract_Port(self, msg, p):
            self._record("get", "Port", msg, p)
            if p < 3:
                self.get(0, port(), p + 10)

    client = Asking(store, store.handles[0])
    for p in range(3):
        client.get(0, port(), p)
    store.drive()
    assert [arrival.p for arrival in client.log] == [0, 1, 2, 10, 11, 12]


def test_a_failing_reply_method_stops_nobody_else(store, capfd):
    store.open()

    class Failing(Client):
        def on_get_contract_Port(self, msg, p):
            self._record("get", "Port", msg, p)
            raise RuntimeError("reply method %d" % p)

    client = Failing(store, store.handles[0])
    for p in range(3):
        client.get(0, port(), p)
    length = client.send("llen", 0, port())
    store.drive()
    assert store.unraisable() == [(RuntimeError, "reply method %d" % p) for p in range(3)]
    assert [arrival.p for arrival in client.log[:3]] == [0, 1, 2]
    assert length.completed
    assert "reply method 2" in capfd.readouterr().err


# ---- Subscriptions from within ---------------------------------------------------------------


def test_unsubscribing_from_an_event(store):
    store.open()

    class Once(Client):
        def on_subscribe_contract_Port(self, msg, p):
            self._record("subscribe", "Port", msg, p)
            if msg.type_code == 1:
                self.unsubscribe(0, port(), 3)
                self.set(0, port(name="not heard"))

    client = Once(store, store.handles[0])
    client.subscribe(0, port(), 3, None)
    client.set(0, port(name="heard"))
    store.drive()
    assert [arrival.msg.type_code for arrival in client.log] == [1, ENDED]


def test_changing_what_is_watched_from_an_event(store):
    store.open()

    class Countdown(Client):
        def on_subscribe_contract_Port(self, msg, p):
            self._record("subscribe", "Port", msg, p)
            if msg.type_code == 1 and msg.result.speed > 0:
                self.set(0, port(speed=msg.result.speed - 1))

    client = Countdown(store, store.handles[0])
    client.subscribe(0, port(), 3, None)
    client.set(0, port(speed=300))
    store.drive()
    assert [arrival.msg.result.speed for arrival in client.log] == list(range(300, -1, -1))


# ---- Closing ---------------------------------------------------------------------------------


def pending(client, store):
    """Requests of every sort, accepted and not delivered."""
    for number in range(1000):
        client.set(0, port(slot=number))
    client.zadd(0, [1], [port("sorted")])
    return {
        "get": client.send("get", 0, port()),
        "incr": client.send("incr", 0, port()),
        "hgetall": client.send("hgetall", 0, port("none")),
        "zrange": client.send("zrange", 0, port("sorted"), 0, -1),
        "scan": client.send("scan", 0, port(), 0),
        "scan_index": client.send("scan_index", 0, port(), 0),
        "pexpire": client.send("pexpire", 0, port(), 1, 10),
        "pexpire_field": client.send("pexpire_field", 0, port(), 1, NAME, 10),
        "pexpire_fields": client.send("pexpire_fields", 0, port(), 1, [NAME], 10),
        "del_expire": client.send("del_expire", 0, port(), 1),
        "pdel": client.send("pdel", 0, port(), 1),
    }


FINISHING = {
    "scan": 1, "scan_index": 1, "pexpire": 2, "del_expire": 3,
    "pexpire_field": 4, "pexpire_fields": 4, "pdel": 5,
}


def assert_failed(msg, end):
    assert msg.result is None
    assert msg.status < 0 and msg.error
    assert msg.end == end


def test_a_closed_handle_completes_what_is_pending(client, store):
    watch = client.watch(0, port(), 0)
    [field] = client.watch_fields(0, port(), 0, [NAME])
    inboxes = pending(client, store)
    client.handle.close()
    store.drive()
    for command, inbox in inboxes.items():
        [msg] = inbox
        assert_failed(msg, FINISHING.get(command, 0))
    assert [event.type_code for event in field] == [ENDED]
    assert watch[-1].type_code == ENDED
    assert all(event.type_code != ENDED for event in watch[:-1])
    assert watch[-1].result is None


def test_closing_in_the_middle_of_a_scan(client, store):
    for number in range(5000):
        client.set(0, port(slot=number))
    inbox = client.send("scan", 0, port(), 0)
    store.turn_until(lambda: inbox)
    assert 0 < len(inbox) < 5000 and not inbox.completed
    client.handle.close()
    store.drive()
    assert_failed(inbox[-1], 1)
    assert all(msg.status == 0 for msg in inbox[:-1])


def test_closing_twice(client, store):
    inbox = client.send("get", 0, port())
    client.handle.close()
    client.handle.close()
    store.drive()
    client.handle.close()
    store.drive()
    assert len(inbox) == 1


def test_closing_from_a_reply_method(store):
    store.open()

    class Closing(Client):
        def on_get_contract_Port(self, msg, p):
            self._record("get", "Port", msg, p)
            if p == 1:
                self.handle.close()
                with pytest.raises(vu_mom.Error):
                    self.get(0, port(), "refused")
                self.handle.close()

    client = Closing(store, store.handles[0])
    watch = client.watch(0, port(), 3)
    client.get(0, port(), 0)
    client.get(0, port(), 1)
    client.get(0, port(), 2)
    scan = client.send("scan", 0, port(), 0)
    store.drive()
    first, closing, failed = [arrival for arrival in client.log if arrival.method == "get"]
    assert (first.msg.status, closing.msg.status) == (0, 0)
    assert_failed(failed.msg, 0)
    [last] = scan
    assert_failed(last, 1)
    assert [event.type_code for event in watch] == [ENDED]


def test_closing_from_the_middle_of_a_level(store):
    store.open()

    class Closing(Client):
        def on_pdel_contract_Port(self, msg, p):
            self._record("pdel", "Port", msg, p)
            if len(p) == 3:
                self.handle.close()

    client = Closing(store, store.handles[0])
    for number in range(10):
        client.set(0, port(slot=number))
    inbox = client.send("pdel", 0, port(), 0)
    store.drive()
    assert [msg.end for msg in inbox] == [0, 0, 0, 5]
    assert_failed(inbox[-1], 5)


def test_closing_from_an_event(store):
    store.open()

    class Closing(Client):
        def on_subscribe_contract_Port(self, msg, p):
            self._record("subscribe", "Port", msg, p)
            self.handle.close()

    client = Closing(store, store.handles[0])
    watch = client.watch(0, port(), 3)
    other = client.watch(0, port(), 0)
    client.set(0, port())
    store.drive()
    assert [event.type_code for event in watch][-1] == ENDED
    assert [event.type_code for event in other][-1] == ENDED


def test_closing_one_handle_leaves_the_others(client, store):
    other = store.open()
    watch = other.watch(0, port(), 0)
    inbox = other.send("get", 0, port())
    client.handle.close()
    other.set(0, port(name="x"))
    store.drive()
    assert [msg.status for msg in inbox] == [0]
    assert [event.type_code for event in watch] == [1]


# ---- Dropping things -------------------------------------------------------------------------


def test_dropping_the_client_while_replies_are_pending(store):
    client = store.open()
    client.set(0, port(name="x"))
    inbox = client.send("get", 0, port())
    scan = client.send("scan", 0, port(), 0)
    watch = client.watch(0, port(), 0)
    client.set(0, port(name="y"))
    del client
    gc.collect()
    store.drive()
    assert inbox[0].result == port(name="x")
    assert scan.completed
    assert [event.type_code for event in watch] == [1]


def test_dropping_client_and_handle_while_replies_are_pending(store):
    client = store.open()
    other = store.open()
    client.set(0, port(name="x"))
    inbox = client.send("get", 0, port())
    scan = client.send("scan", 0, port(), 0)
    handle = weakref.ref(client.handle)
    store.handles.remove(client.handle)
    del client
    gc.collect()
    store.drive()  # what is pending keeps them
    assert inbox[0].result == port(name="x")
    assert scan.completed
    gc.collect()
    assert handle() is None
    assert other.value("get", 0, port()) == port(name="x")


def test_dropping_results(client, store):
    for _ in range(100):
        client.set(0, port(note="x" * 10000))
        client.ask("get", 0, port())
        client.log.clear()
    assert client.value("get", 0, port()).note == "x" * 10000


def leave(message):
    pass


def lengthen(message):
    setattr(message, "text" if hasattr(message, "text") else "mode", "long" * 1000)


def add_unknown_field(message):
    message.MergeFromString(b"\xf8\x3e\x01")


def make_bare(message):
    message.Clear()


# Of each, one with all that it can have. Messages of these types are made of earlier ones.
FULL = {
    "all sorts of keys": Mixed(number=-7, flag=True, colour=Colour.BLUE, word="w", raw=b"r", text="t"),
    "a key": ByString(id="i", text="t"),
    "presence": Settings(mode="m", limit=0, starts=3),
    "a text": Plain(text="t"),
    "a counter": CountInt32(value=-9, text="t"),
}


@pytest.mark.parametrize("before", [leave, lengthen, add_unknown_field, make_bare])
@pytest.mark.parametrize("kind", FULL)
def test_results_have_nothing_of_those_before(client, kind, before):
    full = FULL[kind]
    bare = type(full)()
    client.set(0, full)
    client.set(1, bare)
    for _ in range(20):
        result = client.value("get", 0, full)
        assert result == full
        before(result)
        client.log.clear()
        del result
        result = client.value("get", 1, bare)
        assert result.SerializeToString() == b""
        assert result == bare
        client.log.clear()
        del result


def test_kept_results_stay_as_they_are(client):
    for number in range(50):
        client.set(0, ByString(id=str(number), text="t" * number))
    kept = {}
    for number in range(50):
        result = client.value("get", 0, ByString(id=str(number)))
        if number % 3 == 0:
            kept[number] = result
        client.log.clear()
    del result
    for number in range(50):
        client.value("get", 0, ByString(id=str(number)))
        client.log.clear()
    for number, result in kept.items():
        assert result == ByString(id=str(number), text="t" * number)


def test_a_result_dropped_in_its_reply_method(store):
    store.open()

    class Dropping(Client):
        def on_get_contract_ByString(self, msg, p):
            p.append(msg.result.text)

    client = Dropping(store, store.handles[0])
    seen = []
    for text in ("one", "another", ""):
        client.set(0, ByString(id=text, text=text))
        client.get(0, ByString(id=text), seen)
    store.drive()
    assert seen == ["one", "another", ""]


EXITING = """
import vu_global, vu_mom
from contract_vu import Port

class App(vu_mom.VuMom):
    def on_get_contract_Port(self, msg, p): pass
    def on_scan_contract_Port(self, msg, p): pass
    def on_subscribe_contract_Port(self, msg, p): pass

glb = vu_global.VuGlobal(store={store!r})
app = App(glb)
app.subscribe(0, Port(), 0, print)
for number in range(1000):
    app.set(0, Port(slot=number))
    app.get(0, Port(slot=number), app)
app.scan(0, Port(), 0, glb)
{last}
"""


@pytest.mark.parametrize(
    "last", ["", "glb.run_once(0)", "glb.close()", "del glb", "del app", "raise SystemExit(0)"]
)
def test_leaving_the_interpreter_with_work_pending(engine, last):
    script = EXITING.format(store=engine.fresh_store(), last=last)
    child = subprocess.run(
        [sys.executable, "-c", script], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60
    )
    assert (child.returncode, child.stdout) == (0, b"")
