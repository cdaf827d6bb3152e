"""The engines behind the contract, each with the little that it differs in for its tests:
how a fresh store is named, and when nothing is left to deliver."""

import itertools
import os
import pathlib
import sys

import vu_global
import vu_mom
from contract_vu import ByString

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

import redis_server  # noqa: E402

MANY_TURNS = 1000000


class EmbeddedEngine:
    """Stores inside the process, each under a name of its own."""

    is_remote = False
    _names = itertools.count()

    def stop(self):
        pass

    def fresh_store(self):
        return "embedded:contract-%d" % next(self._names)

    def turn(self, store):
        return store.loop.run_once(0)

    def drive(self, store):
        for _ in range(MANY_TURNS):
            if not store.turn():
                return
        raise AssertionError("the loop never comes to rest")

    def close(self, store):
        pass


class ServerEngine:
    """Stores on a redis-server, each with a prefix of its own."""

    is_remote = True
    _names = itertools.count()

    def __init__(self):
        # A test that lets many events wait is not about what a server does to slow subscribers.
        self.server = redis_server.RedisServer(
            "--client-output-buffer-limit", "pubsub 0 0 0"
        ).start()

    def stop(self):
        self.server.stop()

    def fresh_store(self):
        return self.server.url("contract-%d-%d" % (os.getpid(), next(self._names)))

    def turn(self, store):
        """Until all that was issued so far has happened; returns whether anything was heard."""
        before = store.deliveries
        self._round(store)
        return store.deliveries != before

    def drive(self, store):
        """What is done meanwhile by reply methods, scans and the sweeping of what is due needs
        another round."""
        while True:
            before = store.activity()
            self._round(store)
            while store.loop.run_once(0):
                pass
            if store.activity() == before:
                return

    def _round(self, store):
        """Everything that was issued has been answered, and its events have arrived, when a
        message published behind it has come back."""
        for address in {handle.store for handle in store.handles} | {store.address}:
            self._beacon(store, address).light()
        for _ in range(MANY_TURNS):
            if all(beacon.is_seen() for beacon in store.beacons.values()):
                return
            assert store.loop.run_once(30), "the server does not answer"

    def _beacon(self, store, address):
        beacon = store.beacons.get(address)
        if beacon is None:
            beacon = store.beacons[address] = Beacon(store.loop, address)
        return beacon

    def close(self, store):
        for beacon in store.beacons.values():
            beacon.handle.close()
        store.beacons.clear()


class Beacon(vu_mom.VuMom):
    """A client of nobody's, which hears when all that was issued before has happened."""

    DB = 2**31 - 1

    def __init__(self, loop, address):
        self.handle = vu_global.VuGlobal(thread_master=loop, store=address)
        super().__init__(self.handle)
        self.lit = self.heard = self.answered = 0
        self.place = "beacon %d" % os.getpid()
        self.subscribe(self.DB, ByString(id=self.place), 1, None)

    def light(self):
        self.lit += 1
        self.publish(self.DB, ByString(id=self.place, text=str(self.lit)))
        self.get(self.DB, ByString(id=self.place), self.lit)

    def is_seen(self):
        return self.heard == self.answered == self.lit

    def on_subscribe_contract_ByString(self, msg, p):
        if msg.type_code == 24:
            self.heard = int(msg.result.text)

    def on_get_contract_ByString(self, msg, p):
        assert msg.status == 0, msg
        self.answered = p


ENGINES = {"embedded": EmbeddedEngine, "server": ServerEngine}
