"""A store behind Sentinels and a store on a cluster, from the URL to the last reply."""

import collections
import os
import tempfile

import pytest

from contract_vu import Port
from free_port import free_port
from redis_cluster import RedisCluster
from redis_server import RedisServer, call


class Sentinel:
    """A master without replicas, and the Sentinel that knows it by the name main."""

    def __init__(self):
        ports = [str(free_port()), str(free_port())]
        self.directory = tempfile.TemporaryDirectory()
        file = os.path.join(self.directory.name, "sentinel.conf")
        with open(file, "w", encoding="utf-8") as text:
            text.write("sentinel monitor main 127.0.0.1 %s 1\n" % ports[0])
        self.master = RedisServer("--port", ports[0], "--bind", "127.0.0.1")
        self.sentinel = RedisServer(file, "--sentinel", "--port", ports[1], "--bind", "127.0.0.1")
        self.place = "redis+sentinel://127.0.0.1:%s/main" % ports[1]

    def __enter__(self):
        self.master.start()
        self.sentinel.start()
        return self

    def __exit__(self, *exc_info):
        self.sentinel.stop()
        self.master.stop()
        self.directory.cleanup()


SLOTS = range(100)  # the last key component: objects of many partitions


def fill(client):
    """Writes objects and scans them; the scan is behind what was written."""
    scanned = []
    client.on_scan_contract_Port = lambda msg, p: scanned.append(msg)
    for slot in SLOTS:
        client.set(0, Port(site="here", slot=slot, speed=slot))
    client.scan(0, Port(site="here"), 1, None)
    client.clients.turn_until(lambda: scanned and scanned[-1].end == 1)
    assert all(msg.status == 0 for msg in scanned)
    assert scanned[-1].count == len(scanned) - 1
    found = sorted((msg.result.slot, msg.result.speed) for msg in scanned[:-1])
    assert found == [(slot, slot) for slot in SLOTS]


def use(clients, address):
    """Objects are written, listened to, scanned and deleted."""
    client = clients.open(address)
    deleted, heard = [], []
    client.on_pdel_contract_Port = lambda msg, p: deleted.append(msg)
    client.on_subscribe_contract_Port = lambda msg, p: heard.append(msg)
    client.subscribe(0, Port(site="here"), 1, None)
    fill(client)
    client.pdel(0, Port(site="here"), 1, None)
    clients.turn_until(lambda: deleted and deleted[-1].end == 5 and len(heard) >= 2 * len(SLOTS))
    assert all(msg.status == 0 for msg in deleted + heard)
    assert deleted[-1].count == len(deleted) - 1 == len(SLOTS)
    told = collections.defaultdict(list)
    for msg in heard:
        told[msg.key].append(msg.type_code)
    assert [told[key] for key in sorted(told)] == [[1, 29]] * len(SLOTS)
    return client


def test_a_store_behind_sentinels(clients):
    with Sentinel() as sentinel:
        use(clients, sentinel.place)


@pytest.mark.parametrize(
    "login, rules",
    [
        ("sentinel_password=p%26w", ["default", "resetpass", ">p&w"]),
        ("sentinel_user=asker&sentinel_password=pw", ["asker", "on", ">pw", "+@all"]),
    ],
)
def test_sentinels_with_a_password(clients, login, rules):
    with Sentinel() as sentinel:
        assert call(sentinel.sentinel, "ACL", "SETUSER", *rules) == "+OK"
        if rules[0] != "default":
            assert call(sentinel.sentinel, "ACL", "SETUSER", "default", "off") == "+OK"
        use(clients, sentinel.place + "?" + login)


def test_a_sentinel_that_lets_nobody_in(clients):
    with Sentinel() as sentinel:
        assert call(sentinel.sentinel, "ACL", "SETUSER", "default", ">secret") == "+OK"
        client = clients.open(sentinel.place + "?sentinel_password=wrong")
        client.read()
        client.settle()
        said = "not done: no Sentinel names the master 'main': WRONGPASS"
        assert client.told(0).error.startswith(said)


def test_a_store_on_a_cluster(clients):
    with RedisCluster() as cluster:
        client = use(clients, cluster.url())
        fill(client)
        assert all(call(member, "DBSIZE") != ":0" for member in cluster.members)
