"""The engines behind the contract, each with the little that it differs in for its tests:
how a fresh store is named, and when nothing is left to deliver."""

import itertools
import os
import pathlib
import sys
from typing import Any

import vu_global
import vu_mom
from contract_vu import ByString

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

import redis_cluster  # noqa: E402
import redis_server  # noqa: E402

MANY_TURNS = 1000000
MANY_ROUNDS = 100000

# A test that lets many events wait is not about what a server does to slow subscribers, nor is
# one on a slow machine about how long a command may take.
PATIENT = ("--client-output-buffer-limit", "pubsub 0 0 0")
PATIENCE = {"connect_timeout": 100, "command_timeout": 100}


class EmbeddedEngine:
    """Stores inside the process, each under a name of its own."""

    is_remote = False
    orders_objects = True  # events of different objects come in the order of the commands
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
    orders_objects = True
    _names = itertools.count()

    def __init__(self):
        self.server = self.make_server().start()

    def make_server(self):
        return redis_server.RedisServer(*PATIENT)

    def make_beacon(self, loop, address):
        return Beacon(loop, address)

    def stop(self):
        self.server.stop()

    def fresh_store(self):
        prefix = "contract-%d-%d" % (os.getpid(), next(self._names))
        return self.server.url(prefix, **PATIENCE)

    def turn(self, store):
        """Until all that was issued so far has happened; returns whether anything was heard."""
        before = store.deliveries
        self._round(store)
        return store.deliveries != before

    def drive(self, store):
        """What is done meanwhile by reply methods, scans and the sweeping of what is due needs
        another round."""
        for _ in range(MANY_ROUNDS):
            before = store.activity()
            self._round(store)
            while store.loop.run_once(0):
                pass
            if store.activity() == before and not store.is_scanning():
                return
        raise AssertionError("a scan never ends, or it never comes to rest")

    def _round(self, store):
        """Everything that was issued has been answered, and its events have arrived, when a
        message published behind it has come back."""
        for address in {handle.store for handle in store.handles} | {store.address}:
            self._beacon(store, address).light()
        for _ in range(MANY_TURNS):
            for beacon in store.beacons.values():
                assert not beacon.troubles, beacon.troubles
            if all(beacon.is_seen() for beacon in store.beacons.values()):
                return
            assert store.loop.run_once(60), "the server does not answer"

    def _beacon(self, store, address):
        beacon = store.beacons.get(address)
        if beacon is None:
            beacon = store.beacons[address] = self.make_beacon(store.loop, address)
        return beacon

    def close(self, store):
        for beacon in store.beacons.values():
            beacon.handle.close()
        store.beacons.clear()


class ClusterEngine(ServerEngine):
    """Stores on three masters, each with a prefix of its own."""

    orders_objects = False

    def make_server(self):
        return redis_cluster.RedisCluster(*PATIENT)

    def make_beacon(self, loop, address):
        return ClusterBeacon(loop, address)


class Beacon(vu_mom.VuMom):
    """A client of nobody's, which hears when all that was issued before has happened."""

    DB = 2**31 - 1
    _numbers = itertools.count()

    def __init__(self, loop, address):
        self.handle = vu_global.VuGlobal(thread_master=loop, store=address)
        super().__init__(self.handle)
        self.lit = self.heard = self.answered = 0
        self.troubles = []
        self.place = "beacon %d-%d" % (os.getpid(), next(self._numbers))
        self.begin()

    def begin(self):
        self.subscribe(self.DB, ByString(id=self.place), 1, None)

    def light(self):
        self.lit += 1
        self.publish(self.DB, ByString(id=self.place, text=str(self.lit)))
        self.get(self.DB, ByString(id=self.place), self.lit)

    def is_seen(self):
        return self.heard == self.answered == self.lit

    def on_subscribe_contract_ByString(self, msg, p):
        if msg.status != 0 and msg.type_code != 28:
            self.troubles.append(msg.error)
        elif msg.type_code == 24:
            self.heard = int(msg.result.text)

    def on_get_contract_ByString(self, msg, p):
        if msg.status != 0:
            self.troubles.append(msg.error)
        self.answered = p


class ClusterBeacon(Beacon):
    """What one master publishes may arrive before what another one has published earlier, but
    a subscription ends when everything has arrived."""

    def begin(self):
        pass

    def light(self):
        self.lit += 1
        self.subscribe(self.DB, ByString(id=self.place), 1, self.lit)
        self.unsubscribe(self.DB, ByString(id=self.place), 1)
        self.get(self.DB, ByString(id=self.place), self.lit)

    def on_subscribe_contract_ByString(self, msg, p):
        if msg.type_code == 28:
            self.heard = p
        else:
            self.troubles.append(msg.error)


ENGINES: dict[str, Any] = {
    "cluster": ClusterEngine, "embedded": EmbeddedEngine, "server": ServerEngine}
