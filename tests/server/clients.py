"""Clients in one event loop, which know what became of each request and of each event."""

import collections
import time

import vu_global
import vu_mom
import vu_thread
from contract_vu import Port
from redis_server import call  # noqa: F401: for the tests, too

NOT_DONE = "not done: "
UNKNOWN = "unknown: "
GAP = "events may be missing: "


class Clients:
    """All clients of a test, driven together."""

    def __init__(self):
        self.loop = vu_thread.VuThreadMaster()
        self.all = []

    def open(self, address):
        self.all.append(Client(self, address))
        return self.all[-1]

    def turn(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.loop.run_once(min(0.02, max(end - time.monotonic(), 0)))

    def turn_until(self, condition, seconds=15):
        end = time.monotonic() + seconds
        while not condition():
            assert time.monotonic() < end, "it takes too long"
            self.loop.run_once(0.02)

    def finish(self):
        for client in self.all:
            client.handle.close()
        while self.loop.run_once(0):
            pass
        for client in self.all:
            client.check()
        self.all.clear()


class Client(vu_mom.VuMom):
    """Counts up in one object, and can watch it."""

    def __init__(self, clients, address):
        self.clients = clients
        self.handle = vu_global.VuGlobal(thread_master=clients.loop, store=address)
        super().__init__(self.handle)
        self.port = Port(site="here")
        self.requests = []  # the command of each, by its number
        self.replies = collections.defaultdict(list)
        self.order = []
        self.events = []
        self.is_watching = False

    def count(self, times=1):
        for _ in range(times):
            self.requests.append("incr")
            self.incr(0, self.port, len(self.requests) - 1)

    def read(self, times=1):
        for _ in range(times):
            self.requests.append("get")
            self.get(0, self.port, len(self.requests) - 1)

    def tell(self, times=1):
        """Publishes, which is not replied to and which no event of a write is taken for."""
        for _ in range(times):
            self.publish(0, self.port)

    def watch(self):
        self.is_watching = True
        self.subscribe(0, self.port, 3, "event")

    def on_incr_contract_Port(self, msg, p):
        self._replied(msg, p)

    def on_get_contract_Port(self, msg, p):
        self._replied(msg, p)

    def _replied(self, msg, p):
        self.replies[p].append(msg)
        self.order.append(p)

    def on_subscribe_contract_Port(self, msg, p):
        assert p == "event"
        self.events.append(msg)

    # ---- What became of it -----------------------------------------------------------

    def is_idle(self):
        return len(self.order) == len(self.requests)

    def settle(self, seconds=15):
        self.clients.turn_until(self.is_idle, seconds)

    def told(self, number):
        [reply] = self.replies[number]
        return reply

    def ask(self):
        """Counts up once; the reply."""
        self.count()
        self.settle()
        return self.told(len(self.requests) - 1)

    def counted(self):
        """The numbers that were replied, in the order of the requests."""
        replies = [self.told(i) for i, name in enumerate(self.requests) if name == "incr"]
        return [reply.result.value for reply in replies if reply.status == 0]

    def failures(self, start, command=None):
        return sum(
            self.told(i).status != 0 and self.told(i).error.startswith(start)
            for i, name in enumerate(self.requests)
            if command in (None, name)
        )

    def gaps(self):
        return [event for event in self.events if event.status != 0 and event.type_code != 28]

    def heard(self):
        """The numbers that events told of."""
        return [event.result.hits for event in self.events if event.type_code == 3]

    def check(self):
        """Each request was completed exactly once, in order, with a result, as not done or as
        unknown; a read is never unknown. A subscription has one end."""
        assert self.order == list(range(len(self.requests)))
        for number, command in enumerate(self.requests):
            reply = self.told(number)
            if reply.status == 0:
                continue
            closed = reply.error == "the store handle was closed"
            known = reply.error.startswith(NOT_DONE)
            unknown = reply.error.startswith(UNKNOWN) and command != "get"
            assert reply.status == -1 and (known or unknown or closed), reply
            assert reply.result is None
        ends = [event for event in self.events if event.type_code == 28]
        assert len(ends) == self.is_watching, ends
        for gap in self.gaps():
            assert (gap.status, gap.type_code, gap.result) == (-1, 0, None), gap
            assert gap.error.startswith(GAP), gap
