"""Applications on the embedded store: from a command through the loop to the reply method."""

import asyncio
import gc
import os
import pickle
import select
import signal
import subprocess
import sys
import textwrap
import threading
import time
import weakref
from typing import Any

import pytest

import vu_mom
from end_to_end_vu import Count, Item
from vu_global import VuGlobal
from vu_mom import VuMom
from vu_thread import VuThreadMaster

CLOSED = "the store handle was closed"


class Client(VuMom):
    """Writes down what arrives: (command, value, status, privdata)."""

    def __init__(self, glb):
        super().__init__(glb)
        self.arrived = []

    def note(self, command, value, msg, p):
        self.arrived.append((command, value, msg.status, p))
        if callable(p):
            p(msg)

    def on_get_e2e_Item(self, msg, p):
        self.note("get", msg.result and msg.result.text, msg, p)

    def on_get_e2e_Count(self, msg, p):
        self.note("get", msg.result and msg.result.value, msg, p)

    def on_incr_e2e_Count(self, msg, p):
        self.note("incr", msg.result and msg.result.value, msg, p)

    def on_setnx_e2e_Item(self, msg, p):
        self.note("setnx", msg.result and msg.result.value, msg, p)

    def on_pexpire_e2e_Item(self, msg, p):
        self.note("pexpire", msg.end, msg, p)

    def on_subscribe_e2e_Item(self, msg, p):
        self.note("event", msg.type_code, msg, p)


store_number = 0


@pytest.fixture
def glb():
    """On a store of its own."""
    global store_number
    store_number += 1
    with VuGlobal(store="embedded:test%d" % store_number) as glb:
        yield glb


@pytest.fixture
def client(glb):
    return Client(glb)


def settle(glb):
    """Runs the loop until nothing is left to do."""
    while glb.run_once(0):
        pass


PROLOGUE = """
    import sys, threading, time
    from end_to_end_vu import Count, Item
    from vu_global import VuGlobal
    from vu_mom import VuMom
"""


def run_script(code, *, timeout=60):
    """Runs an application in a fresh interpreter; returns its output. It has to end well."""
    result = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(PROLOGUE + code)],
        capture_output=True,
        text=True,
        timeout=timeout,
    )
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


# ---- Round trips -------------------------------------------------------------------


def test_single_values(glb, client):
    apple = Item(name="apple", text="red")
    client.get(0, apple, "nothing yet")
    client.set(0, apple)
    client.get(0, Item(name="apple"), "stored")
    client.get(1, Item(name="apple"), "another database")
    client.setnx(0, Item(name="apple", text="green"), None)
    client.setnx(0, Item(name="pear", text="green"), None)
    client.delete(0, Item(name="apple"))
    client.get(0, Item(name="apple"), "deleted")
    client.setnx_noreply(0, Item(name="apple", text="brown"))
    client.get(0, Item(name="apple"), "stored again")
    assert client.arrived == []  # replies come from the loop and from nowhere else
    settle(glb)
    assert client.arrived == [
        ("get", None, 0, "nothing yet"),
        ("get", "red", 0, "stored"),
        ("get", None, 0, "another database"),
        ("setnx", False, 0, None),
        ("setnx", True, 0, None),
        ("get", None, 0, "deleted"),
        ("get", "brown", 0, "stored again"),
    ]


def test_counters(glb, client):
    for _ in range(3):
        client.incr(0, Count(name="visits"), None)
    client.get(0, Count(name="visits"), None)
    client.set(0, Count(name="visits", value=-1))
    client.incr(0, Count(name="visits"), None)
    settle(glb)
    assert [value for _, value, _, _ in client.arrived] == [1, 2, 3, 3, 0]


def test_owners(glb, client):
    client.setow(0, Item(name="door", text="mine"), 1)
    client.setow(0, Item(name="door", text="yours"), 2)
    client.get(0, Item(name="door"), None)
    client.delow(0, Item(name="door"), 2)
    client.get(0, Item(name="door"), None)
    client.delow(0, Item(name="door"), 1)
    client.get(0, Item(name="door"), None)
    settle(glb)
    assert [value for _, value, _, _ in client.arrived] == ["mine", "mine", None]


def test_types_are_stored_apart(glb, client):
    client.set(0, Item(name="x", text="item"))
    client.get(0, Count(name="x"), None)
    client.get(0, Item(name="x"), None)
    settle(glb)
    assert [value for _, value, _, _ in client.arrived] == [None, "item"]


def test_a_message_outlives_its_reply(glb, client):
    kept = []
    client.set(0, Item(name="a", text="x" * 1000))
    client.get(0, Item(name="a"), lambda msg: kept.append(msg.result))
    settle(glb)
    client.set(0, Item(name="a", text="y" * 1000))
    glb.close()
    gc.collect()
    assert kept[0].text == "x" * 1000


def test_a_sent_message_may_change_or_go_away(glb, client):
    item = Item(name="a", text="sent")
    client.set(0, item)
    del item
    gc.collect()
    client.get(0, Item(name="a"), None)
    gc.collect()
    settle(glb)
    assert client.arrived == [("get", "sent", 0, None)]


# ---- Order and turns ------------------------------------------------------------------


def test_replies_come_in_the_order_of_the_commands(glb, client):
    """More than one turn delivers, of several kinds and from two clients."""
    other = Client(glb)
    other.arrived = client.arrived
    client.set(0, Item(name="a", text="text"))
    for number in range(0, 3000, 3):
        client.get(0, Item(name="a"), number)
        other.incr(0, Count(name="c"), number + 1)
        client.setnx(0, Item(name="a"), number + 2)
    settle(glb)
    assert [p for _, _, _, p in client.arrived] == list(range(3000))
    assert {status for _, _, status, _ in client.arrived} == {0}


def test_a_turn_delivers_a_bounded_batch(glb, client):
    """A thousand replies neither hold up a timer nor a descriptor."""
    seen = []
    glb.thread_master.add_timer(0, lambda: seen.append(("timer", len(client.arrived))))
    glb.thread_master.call_soon(lambda: seen.append(("soon", len(client.arrived))))
    for number in range(1000):
        client.get(0, Item(name="a"), number)
    glb.run_once(0)
    assert 0 < len(client.arrived) <= 256
    settle(glb)
    assert len(client.arrived) == 1000
    assert [what for what, _ in sorted(seen)] == ["soon", "timer"]
    assert all(delivered <= 256 for _, delivered in seen)


def test_reply_methods_issue_commands(glb, client):
    """A chain of 1000 commands, each from the reply to the one before."""

    def again(msg):
        if msg.result.value < 1000:
            client.incr(0, Count(name="chain"), again)
        else:
            glb.stop()

    client.incr(0, Count(name="chain"), again)
    glb.run()
    assert [value for _, value, _, _ in client.arrived] == list(range(1, 1001))


def test_an_endless_chain_starves_nobody(glb, client):
    def again(msg):
        if not glb.closed:
            client.incr(0, Count(name="chain"), again)

    client.incr(0, Count(name="chain"), again)
    glb.thread_master.add_timer(0.02, glb.stop)
    glb.run()
    assert client.arrived


# ---- Several handles ---------------------------------------------------------------------


def test_handles_of_one_name_share_a_store(glb):
    writer = Client(glb)
    with VuGlobal(glb.thread_master, glb.store) as same, VuGlobal(store="embedded:o") as other:
        reader, stranger = Client(same), Client(other)
        writer.set(0, Item(name="shared", text="text"))
        reader.get(0, Item(name="shared"), None)
        stranger.get(0, Item(name="shared"), None)
        settle(glb)
        settle(other)
        assert reader.arrived == [("get", "text", 0, None)]
        assert stranger.arrived == [("get", None, 0, None)]


def test_two_handles_in_one_loop_take_turns(glb):
    with VuGlobal(glb.thread_master, glb.store) as same:
        clients = [Client(glb), Client(same)]
        for client in clients:
            for number in range(600):
                client.get(0, Item(name="a"), number)
        glb.run_once(0)
        assert all(0 < len(client.arrived) <= 256 for client in clients)
        settle(glb)
        assert [len(client.arrived) for client in clients] == [600, 600]


# ---- Exceptions ------------------------------------------------------------------------------


def test_an_exception_in_a_reply_method_does_not_stop_the_loop(glb, client, capfd):
    def fail(msg):
        raise KeyError("in a reply method")

    for number in range(5):
        client.get(0, Item(name="a"), fail if number == 2 else number)
    previous, sys.unraisablehook = sys.unraisablehook, lambda report: None
    try:
        settle(glb)
    finally:
        sys.unraisablehook = previous
    assert [p for _, _, _, p in client.arrived] == [0, 1, fail, 3, 4]
    assert "KeyError: 'in a reply method'" in capfd.readouterr().err


def test_a_missing_reply_method_is_an_error_of_the_command(glb):
    client = VuMom(glb)
    with pytest.raises(AttributeError, match="on_get_e2e_Item"):
        client.get(0, Item(name="a"), None)
    assert glb.run_once(0) is False


def test_wrong_input_changes_nothing(glb, client):
    with pytest.raises(vu_mom.InputError):
        client.get(-1, Item(name="a"), None)
    with pytest.raises(vu_mom.InputError):
        client.set(-1, Item(name="a"))
    assert glb.run_once(0) is False


# ---- The store's clock -----------------------------------------------------------------------


def expire(client, seconds, p=None):
    """Subscribes, stores, and sets a lifetime: the events are 1 (set) and, later, 0."""
    client.subscribe(0, Item(name="a"), 1, p)
    client.set(0, Item(name="a", text="x"))
    client.pexpire(0, Item(name="a"), 1, seconds, None)


def events(client):
    return [value for command, value, _, _ in client.arrived if command == "event"]


def test_the_loop_wakes_up_when_something_expires(glb, client):
    start = time.monotonic()
    expire(client, 0.05)
    while events(client) != [1, 0]:
        assert glb.run_once(10)
    assert time.monotonic() - start >= 0.05


def test_fileno_becomes_readable_when_something_expires(glb, client):
    fd = glb.fileno()
    start = time.monotonic()
    expire(client, 0.05)
    while events(client) != [1, 0]:
        assert select.select([fd], [], [], 10)[0]
        glb.run_once(0)
    assert time.monotonic() - start >= 0.05


def test_a_lifetime_set_by_another_thread_shortens_the_wait(glb, client):
    loop = threading.Thread(target=glb.run)
    loop.start()
    expire(client, 0.02, lambda msg: msg.type_code == 0 and glb.stop())
    loop.join(10)
    assert not loop.is_alive()
    assert events(client) == [1, 0]


def test_the_clock_moved_by_hand(glb, client):
    glb._advance_clock(0)
    expire(client, 3600)
    settle(glb)
    glb._advance_clock(3599.5)
    settle(glb)
    assert events(client) == [1]
    glb._advance_clock(0.5)
    settle(glb)
    assert events(client) == [1, 0]


# ---- Closing ------------------------------------------------------------------------------------


def test_close_completes_what_is_pending(glb, client):
    client.set(0, Item(name="a", text="x"))
    for number in range(1000):
        client.get(0, Item(name="a"), number)
    glb.close()
    assert client.arrived == [("get", None, -1, number) for number in range(1000)]
    glb.close()
    assert len(client.arrived) == 1000


def test_a_closed_handle_refuses_commands(glb, client):
    glb.close()
    for command in (
        lambda: client.get(0, Item(name="a"), None),
        lambda: client.set(0, Item(name="a")),
        lambda: client.incr(0, Count(name="a"), None),
        lambda: client.delete(0, Item(name="a")),
    ):
        with pytest.raises(vu_mom.Error):
            command()
    with pytest.raises(RuntimeError, match="this VuGlobal is closed"):
        Client(glb)
    assert client.arrived == []


def test_the_error_of_a_reply_says_why(glb, client):
    reasons = []
    client.get(0, Item(name="a"), lambda msg: reasons.append((msg.error, msg.key, msg.result)))
    glb.close()
    assert reasons == [(CLOSED, ("a",), None)]


def test_close_ends_subscriptions(glb, client):
    client.subscribe(0, Item(name="a"), 1, None)
    client.subscribe(0, Item(), 0, None)
    client.set(0, Item(name="a"))
    settle(glb)
    glb.close()
    assert events(client) == [1, 1, 28, 28]


def test_close_inside_a_reply_method(glb, client):
    """The delivery under way completes the rest, though it is more than a batch."""
    closed_at = []

    def close(msg):
        glb.close()
        closed_at.append(len(client.arrived))
        with pytest.raises(vu_mom.Error):
            client.get(0, Item(name="a"), None)
        glb.close()

    client.get(0, Item(name="a"), "before")
    client.get(0, Item(name="a"), close)
    for number in range(1000):
        client.get(0, Item(name="a"), number)
    glb.run_once(0)
    assert closed_at == [2]
    assert [status for _, _, status, _ in client.arrived] == [0, 0] + [-1] * 1000
    assert [p for _, _, _, p in client.arrived[2:]] == list(range(1000))
    assert glb.closed and glb.apps == ()


def test_close_from_another_thread_while_the_loop_runs(glb, client):
    done = threading.Event()
    thread = threading.Thread(target=glb.run)
    thread.start()
    client.get(0, Item(name="a"), lambda msg: done.set())
    assert done.wait(10)
    glb.close()
    glb.stop()
    thread.join(10)
    assert not thread.is_alive()


def test_dropping_the_client_while_replies_are_pending(glb):
    arrived = []
    client = Client(glb)
    client.get(0, Item(name="a"), arrived.append)
    gone = weakref.ref(client)
    del client
    gc.collect()
    settle(glb)
    assert len(arrived) == 1
    glb.close()
    gc.collect()
    assert gone() is None


def test_everything_is_freed_after_close():
    class Kept:
        pass

    glb = VuGlobal(store="embedded:freed")
    client = Client(glb)
    privdata = Kept()
    client.get(0, Item(name="a"), privdata)
    settle(glb)
    client.get(0, Item(name="a"), privdata)
    watched = [weakref.ref(thing) for thing in (glb, client, glb.thread_master, privdata)]
    glb.close()
    del glb, client, privdata
    gc.collect()
    assert [thing() for thing in watched] == [None] * 4


def test_dropping_the_last_reference_inside_a_reply_method():
    glb = VuGlobal(store="embedded:last")
    master = glb.thread_master
    things: dict[str, Any] = {"glb": glb, "client": Client(glb)}
    arrived = things["client"].arrived
    gone = weakref.ref(glb)

    def drop(msg):
        things["glb"].close()
        things.clear()
        gc.collect()

    things["client"].get(0, Item(name="a"), drop)
    things["client"].get(0, Item(name="a"), "after")
    del glb
    while master.run_once(0):
        pass
    gc.collect()
    assert gone() is None
    assert [status for _, _, status, _ in arrived] == [0, -1]


# ---- Threads and signals ------------------------------------------------------------------------------


def test_commands_from_another_thread_end_the_wait(glb, client):
    """Each round trip would take for ever if a wake-up were lost."""
    arrived = threading.Event()
    threads = []

    def on_reply(msg):
        threads.append(threading.get_ident())
        arrived.set()

    loop = threading.Thread(target=glb.run)
    loop.start()
    for number in range(1000):
        arrived.clear()
        client.incr(0, Count(name="c"), on_reply)
        assert arrived.wait(10)
    glb.stop()
    loop.join(10)
    assert set(threads) == {loop.ident}
    assert client.arrived[-1][1] == 1000


def test_commands_from_many_threads(glb, client):
    def work():
        for _ in range(500):
            client.incr(0, Count(name="c"), count)

    def count(msg):
        if len(client.arrived) == 2000:
            glb.stop()

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    glb.run()
    for thread in threads:
        thread.join()
    assert [value for _, value, _, _ in client.arrived] == list(range(1, 2001))


def test_ctrl_c_while_the_loop_runs(glb, client):
    def interrupt():
        time.sleep(0.05)
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    thread.start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        glb.run()
    thread.join()
    assert time.monotonic() - start < 10
    client.get(0, Item(name="a"), lambda msg: glb.stop())
    glb.run()
    assert len(client.arrived) == 1


# ---- Foreign loops ---------------------------------------------------------------------------------------


def test_fileno_is_readable_while_replies_are_queued(glb, client):
    def is_readable():
        return bool(select.select([glb], [], [], 0)[0])

    assert not is_readable()
    client.set(0, Item(name="a"))
    settle(glb)
    assert not is_readable()
    client.get(0, Item(name="a"), None)
    assert is_readable()
    for number in range(600):
        client.get(0, Item(name="a"), number)
    turns = 0
    while is_readable():
        assert glb.run_once(0)
        turns += 1
    assert turns >= 3
    assert len(client.arrived) == 601


def test_the_store_inside_an_asyncio_loop(glb, client):
    async def application():
        loop = asyncio.get_running_loop()
        loop.add_reader(glb.fileno(), glb.run_once, 0)

        async def incr(number):
            future = loop.create_future()
            client.incr(0, Count(name="c"), lambda msg: future.set_result(msg.result.value))
            return await asyncio.wait_for(future, 10)

        one_by_one = [await incr(number) for number in range(100)]
        together = await asyncio.gather(*(incr(number) for number in range(1000)))
        loop.remove_reader(glb.fileno())
        return one_by_one + together

    assert asyncio.run(application()) == list(range(1, 1101))


# ---- Pickling ----------------------------------------------------------------------------------------------


def test_a_pickled_client_is_bound_to_the_same_global(glb, client):
    copy = pickle.loads(pickle.dumps(client))
    assert glb.apps == (client,)
    copy.set(0, Item(name="a", text="by the copy"))
    client.get(0, Item(name="a"), None)
    settle(glb)
    assert client.arrived == [("get", "by the copy", 0, None)]


# ---- Processes -----------------------------------------------------------------------------------------------

APPLICATION = """
    class App(VuMom):
        def on_get_e2e_Item(self, msg, p):
            print("reply", msg.status, p, flush=True)
            if callable(p):
                p()
"""


def test_exit_with_pending_replies_completes_them():
    output = run_script(
        APPLICATION
        + """
    glb = VuGlobal()
    app = App(glb)
    app.get(0, Item(name="a"), 1)
    glb.run_once(0)
    for number in range(2, 4):
        app.get(0, Item(name="a"), number)
    print("end")
    """
    )
    assert output == "reply 0 1\nend\nreply -1 2\nreply -1 3\n"


def test_exit_after_everything_was_dropped():
    """Pending requests keep their application alive until they are completed."""
    output = run_script(
        APPLICATION
        + """
    App(VuGlobal()).get(0, Item(name="a"), 1)
    import gc
    gc.collect()
    print("end")
    """
    )
    assert output == "end\nreply -1 1\n"


def test_exit_from_inside_a_reply_method():
    output = run_script(
        APPLICATION
        + """
    glb = VuGlobal()
    app = App(glb)
    app.get(0, Item(name="a"), None)
    app.get(0, Item(name="a"), glb.close)
    app.get(0, Item(name="a"), None)
    glb.thread_master.call_soon(sys.exit)
    glb.run()
    """
    )
    assert output.splitlines()[0::2] == ["reply 0 None", "reply -1 None"]
    assert len(output.splitlines()) == 3


def test_ctrl_c_ends_an_application():
    """With the interpreter's usual traceback, and with what was pending completed."""
    code = (
        PROLOGUE
        + APPLICATION
        + """
    glb = VuGlobal()
    app = App(glb)
    glb.thread_master.call_soon(lambda: print("running", flush=True))
    try:
        glb.run()
    finally:
        app.get(0, Item(name="a"), None)
    """
    )
    application = subprocess.Popen(
        [sys.executable, "-c", textwrap.dedent(code)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    assert application.stdout.readline() == "running\n"
    application.send_signal(signal.SIGINT)
    output, errors = application.communicate(timeout=60)
    assert output == "reply -1 None\n"
    assert errors.endswith("KeyboardInterrupt\n")
    assert application.returncode == -signal.SIGINT


def test_exit_while_a_daemon_thread_runs_the_loop():
    output = run_script(
        APPLICATION
        + """
    glb = VuGlobal()
    app = App(glb)
    done = threading.Event()
    def loop():
        while True:
            glb.run()
    threading.Thread(target=loop, daemon=True).start()
    app.get(0, Item(name="a"), done.set)
    done.wait(10)
    print("end")
    """
    )
    assert output.splitlines()[-1] == "end" and output.startswith("reply 0 ")


def test_exit_while_a_daemon_thread_issues_commands():
    output = run_script(
        """
    from vu_mom import Error
    class App(VuMom):
        def on_get_e2e_Item(self, msg, p):
            pass
    glb = VuGlobal()
    app = App(glb)
    def loop():
        try:
            while True:
                app.get(0, Item(name="a"), None)
        except Error:
            pass
    threading.Thread(target=loop, daemon=True).start()
    glb.thread_master.add_timer(0.05, glb.stop)
    glb.run()
    print("end", flush=True)
    """
    )
    assert output == "end\n"


def test_a_refused_store_tells_why():
    with pytest.raises(ValueError, match="store 'gopher://x' cannot be opened: .*gopher"):
        VuGlobal(store="gopher://x")
