"""What users of a store on a server see when something breaks. Whatever it is, Clients.finish
checks that each request was completed exactly once, in order, with a result, as not done or as
unknown, and that the subscription lived to the end."""

import signal
import time

import pytest

from clients import NOT_DONE, UNKNOWN, call
from proxy import Proxy

SHORT = {"command_timeout": "1", "connect_timeout": "1"}
LONGER = 2.5  # than what is short, twice


def restart(server, clients):
    server.process.kill()
    server.process.wait()
    clients.turn(0.2)
    server.start()


def pause(server, clients):
    server.process.send_signal(signal.SIGSTOP)
    clients.turn(LONGER)
    server.process.send_signal(signal.SIGCONT)


def kill_clients(server, clients):
    call(server, "CLIENT", "KILL", "TYPE", "normal")
    call(server, "CLIENT", "KILL", "TYPE", "pubsub")
    clients.turn(0.05)


def harm(kind):
    def do(proxy, clients):
        proxy.harm = kind
        clients.turn(LONGER)
        proxy.harm = None

    return do


# What is done to the server, or else to the way to it.
FAULTS = {
    "killed and restarted": (restart, None),
    "paused": (pause, None),
    "clients killed": (kill_clients, None),
    "reset in the middle of a reply": (None, harm("reset")),
    "black hole": (None, harm("black hole")),
    "corrupt bytes": (None, harm("corrupt")),
}


@pytest.mark.parametrize("name", sorted(FAULTS))
def test_storm(name, server, clients):
    """Requests all the time, and the fault in the middle of it."""
    at_server, on_the_way = FAULTS[name]
    with Proxy(server) as proxy:
        url = (proxy if on_the_way else server).url(**SHORT)
        client, watcher = clients.open(url), clients.open(server.url(**SHORT))
        watcher.watch()
        client.watch()
        for part in range(3):
            for _ in range(20):
                client.count(5)
                client.read(2)
                client.tell(3)
                clients.turn(0.005)
            if part == 1:
                began = time.monotonic()
                client.count(20)
                (at_server or on_the_way)(proxy if on_the_way else server, clients)
                client.settle(12)
                assert time.monotonic() - began < 12
            clients.turn(0.2)
        client.settle()
        clients.turn(1.3)  # the longest pause before a connection is made again
        last = next(filter(lambda reply: reply.status == 0, (client.ask() for _ in range(10))))
        clients.turn_until(lambda: last.result.value in client.heard())
        clients.turn_until(lambda: last.result.value in watcher.heard())
        clients.finish()

    # Nothing that was counted is lost, and nothing was counted twice.
    counted = client.counted()
    assert counted == sorted(set(counted))
    uncertain = client.failures(UNKNOWN)
    assert len(counted) <= last.result.value <= len(counted) + uncertain
    for one in (client, watcher):
        assert one.heard() == sorted(set(one.heard()))
        missing = set(counted) - set(one.heard())
        assert not missing or one.gaps(), missing
    # One gap for one fault: each connection that breaks is told of once. A connection that
    # spoils everything breaks again and again.
    if name != "corrupt bytes" and name != "reset in the middle of a reply":
        assert len(client.gaps()) == 1, client.gaps()
    if at_server is None:
        assert watcher.gaps() == []


def test_lost_connections_are_counted(server, clients):
    client = clients.open(server.url())
    client.watch()
    assert client.ask().status == 0

    def counted(*names):
        return tuple(client.handle.stats()[name] for name in names)

    assert counted("reconnects", "missed") == (0, 0)
    for times in (1, 2):
        kill_clients(server, clients)
        clients.turn_until(lambda: len(client.gaps()) == times)
        clients.turn_until(lambda: client.ask().status == 0)
        # That of the commands, and that of the events.
        assert counted("reconnects", "missed") == (2 * times, times)
    clients.finish()
    assert counted("reconnects", "missed", "pending", "unsent_bytes") == (4, 2, 0, 0)


def test_each_request_under_way_is_counted(server, clients):
    client = clients.open(server.url())
    client.ask()
    own = client.handle.stats()["pending"]  # the store asks for things itself
    client.read(40)
    client.count(2)
    client.tell(3)
    assert client.handle.stats()["pending"] == own + 45
    client.settle()
    clients.turn_until(lambda: client.handle.stats()["pending"] == 0)
    clients.finish()


def test_restarted_without_its_data(server, clients):
    client = clients.open(server.url())
    client.watch()
    assert [client.ask().result.value for _ in range(3)] == [1, 2, 3]
    clients.turn_until(lambda: client.heard() == [1, 2, 3])
    server.process.kill()
    server.process.wait()
    server.options = ["--appendonly", "no"]
    server.start()
    clients.turn_until(lambda: client.gaps())
    assert client.ask().result.value == 1  # its functions were loaded again, too
    clients.turn_until(lambda: client.heard() == [1, 2, 3, 1])


def test_trickle(server, clients):
    with Proxy(server) as proxy:
        client = clients.open(proxy.url())
        client.watch()
        assert client.ask().status == 0
        proxy.harm = "trickle"
        client.count(20)
        client.settle()
        clients.turn_until(lambda: client.heard() == list(range(1, 22)))
        assert client.counted() == list(range(1, 22))
        assert client.gaps() == []
        clients.finish()


def test_refused(clients, tmp_path):
    url = "redis+unix://%s/none.sock?command_timeout=0.3" % tmp_path
    client, watcher = clients.open(url), clients.open(url + "&prefix=other")
    client.count(3)
    client.read()
    watcher.watch()
    watcher.count(3)
    began = time.monotonic()
    client.settle(5)
    watcher.settle(5)
    assert time.monotonic() - began >= 0.3
    assert client.failures(NOT_DONE + "cannot reach %s/none.sock: " % tmp_path) == 4
    assert watcher.failures(NOT_DONE) == 3


def test_a_server_that_comes_later(server, clients):
    server.stop(keep=True)
    client = clients.open(server.url())
    client.watch()
    client.count(3)
    clients.turn(0.3)
    server.start()
    client.settle()
    assert client.counted() == [1, 2, 3]
    clients.turn_until(lambda: client.heard() == [1, 2, 3])
    assert client.gaps() == []


def test_wrong_password(server, clients):
    call(server, "CONFIG", "SET", "requirepass", "right")
    began = time.monotonic()
    wrong = clients.open(server.url(password="wrong"))
    reply = wrong.ask()
    assert reply.error.startswith(NOT_DONE + "cannot reach "), reply
    assert "WRONGPASS" in reply.error
    assert "NOAUTH" in clients.open(server.url()).ask().error
    assert time.monotonic() - began < 5  # not at the end of its time
    assert clients.open(server.url(password="right")).ask().result.value == 1


def test_out_of_memory(server, clients):
    client = clients.open(server.url())
    client.watch()
    assert client.ask().result.value == 1
    call(server, "CONFIG", "SET", "maxmemory", "1")
    reply = client.ask()
    assert reply.status == -1
    assert reply.error.startswith(NOT_DONE + "OOM "), reply
    client.read()
    client.settle()
    assert client.told(2).result.hits == 1
    call(server, "CONFIG", "SET", "maxmemory", "0")
    assert client.ask().result.value == 2
    clients.turn_until(lambda: client.heard() == [1, 2])
    assert client.gaps() == []


def test_functions_flushed(server, clients):
    client = clients.open(server.url())
    for _ in range(20):
        client.count(20)
        client.read()
        clients.turn(0.002)
        call(server, "FUNCTION", "FLUSH")
        # So that none is refused more than twice, for this flush and the one before: a command
        # that is refused a third time is given up.
        client.settle()
    assert client.counted() == list(range(1, 401))
    reads = [client.told(i).result.hits for i, name in enumerate(client.requests) if name == "get"]
    assert reads == [20 * i for i in range(1, 21)]


def test_a_slow_subscriber(server, clients):
    """It cannot keep up: the server ends its connection, and it is told so, once."""
    call(server, "CONFIG", "SET", "client-output-buffer-limit", "pubsub 262144 262144 0")
    client = clients.open(server.url())
    client.port.note = "x" * 20000
    client.watch()
    assert client.ask().status == 0
    clients.turn_until(lambda: client.heard() == [1])
    other = type(clients)()
    writer = other.open(server.url())
    for _ in range(20):
        writer.count(20)
        writer.settle()
    other.finish()
    clients.turn_until(lambda: client.gaps())
    last = client.ask().result.value
    assert last == 402
    clients.turn_until(lambda: last in client.heard())
    assert len(client.gaps()) == 1
    assert client.heard() == sorted(set(client.heard()))


def test_closing_completes_everything(server, clients):
    with Proxy(server) as proxy:
        client = clients.open(proxy.url())
        client.watch()
        assert client.ask().status == 0
        proxy.harm = "black hole"
        client.count(10)
        clients.turn(0.05)
        client.count(10)
        client.handle.close()
        assert client.is_idle()
        assert client.failures("the store handle was closed") == 20
        clients.finish()
