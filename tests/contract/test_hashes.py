"""Hashes: a message stored field by field."""

import pytest

import contract_vu
import vu_mom_common
from messages import HITS, LANES, LAST, NAME, NOTE, RACK, SITE, SLOT, SPEED, UP, port, settings

KEYS = (RACK, SITE, SLOT)  # carried by every port() that the tests make


def fields(client, obj=None):
    """The hash as (message, field numbers without those of the key)."""
    result = client.value("hgetall", 0, obj or port())
    if result is None:
        return None
    assert type(result) is vu_mom_common.HashResult
    assert result.cls is contract_vu.Port
    assert list(result.tags) == sorted(result.tags)
    return result.obj, [tag for tag in result.tags if tag not in KEYS]


# ---- hmset -----------------------------------------------------------------------------------


def test_hmset_of_named_fields(client):
    client.hmset(0, port(name="eth0", speed=10, note="n"), [NAME, SPEED])
    assert fields(client) == (port(name="eth0", speed=10), [NAME, SPEED])


@pytest.mark.parametrize("nothing_named", [None, []])
def test_hmset_of_everything_the_message_carries(client, nothing_named):
    whole = port(name="eth0", speed=0, lanes=[3, 1], last=contract_vu.Port.Sample(time=9))
    client.hmset(0, whole, nothing_named)
    result = client.value("hgetall", 0, port())
    assert result.obj == whole
    assert result.tags == (NAME, SPEED, RACK, SITE, LANES, LAST, SLOT)


def test_hmset_leaves_the_other_fields(client):
    client.hmset(0, port(name="eth0", speed=10), None)
    client.hmset(0, port(note="n"), None)
    client.hmset(0, port(name="not named", up=True), [UP])
    assert fields(client) == (
        port(name="eth0", speed=10, up=True, note="n"),
        [NAME, SPEED, UP, NOTE],
    )


def test_hmset_replaces_fields_whole(client):
    client.hmset(0, port(lanes=[1, 2, 3], last=contract_vu.Port.Sample(time=1, load=2)), None)
    client.hmset(0, port(lanes=[9], last=contract_vu.Port.Sample(load=3)), [LANES, LAST])
    assert fields(client)[0] == port(lanes=[9], last=contract_vu.Port.Sample(load=3))


def test_a_named_field_that_is_not_carried_is_deleted(client):
    client.hmset(0, port(name="eth0", speed=10, note="n"), [NAME, SPEED, NOTE])
    client.hmset(0, port(note="new"), [NAME, SPEED, NOTE])
    assert fields(client) == (port(note="new"), [NOTE])


def test_a_hash_without_fields_is_gone(client):
    client.hmset(0, port(name="eth0"), [NAME])
    client.hmset(0, port(), [NAME])
    assert fields(client) is None
    assert client.scanned(0, port(), 0) == {}
    client.rpush(0, port())  # its place is free for another kind
    assert client.number("llen", 0, port()) == 1


def test_naming_nothing_that_is_carried_makes_no_hash(client):
    client.hmset(0, port(), [NAME, SPEED])
    client.hmset(0, settings(), None)
    assert fields(client) is None
    assert client.value("hgetall", 0, settings()) is None


def test_order_and_repetition_of_the_names_do_not_matter(client):
    client.hmset(0, port(name="eth0", speed=10), [SPEED, NAME, SPEED])
    result = client.value("hmget", 0, port(), [SPEED, NAME, SPEED, NAME])
    assert result.tags == (NAME, SPEED)
    assert result.obj == port(name="eth0", speed=10)


def test_key_fields_are_fields(client):
    client.hmset(0, port("north", 1, 1), [SITE])
    result = client.value("hgetall", 0, port())
    assert (result.obj, result.tags) == (port(), (SITE,))


# ---- hmsetnx, hmupdate -----------------------------------------------------------------------


def test_hmsetnx_only_where_none_of_the_fields_exists(client):
    client.hmsetnx(0, port(name="eth0", speed=10), [NAME, SPEED])
    client.hmsetnx(0, port(speed=20, note="n"), [SPEED, NOTE])
    assert fields(client) == (port(name="eth0", speed=10), [NAME, SPEED])
    client.hmsetnx(0, port(up=True, note="n"), [UP, NOTE])
    assert fields(client) == (
        port(name="eth0", speed=10, up=True, note="n"),
        [NAME, SPEED, UP, NOTE],
    )


def test_hmsetnx_of_everything_carried(client):
    client.hmsetnx(0, settings(mode="a"), None)
    client.hmsetnx(0, settings(mode="b", limit=1), None)
    client.hmsetnx(0, settings(limit=2), None)
    assert client.value("hgetall", 0, settings()).obj == settings(mode="a", limit=2)


def test_hmupdate_only_where_the_hash_exists(client):
    client.hmupdate(0, port(name="eth0"), [NAME])
    client.hmupdate(0, port(name="eth0"), None)
    assert fields(client) is None
    client.hmset(0, port(name="eth0"), [NAME])
    client.hmupdate(0, port(name="eth1", speed=10), [NAME, SPEED, NOTE])
    assert fields(client) == (port(name="eth1", speed=10), [NAME, SPEED])
    client.hmupdate(0, port(speed=20), [NAME, SPEED])
    assert fields(client) == (port(speed=20), [SPEED])


# ---- Reading ---------------------------------------------------------------------------------


def test_hmget_reads_the_named_fields(client):
    client.hmset(0, port(name="eth0", speed=10, note="n"), [NAME, SPEED, NOTE])
    result = client.value("hmget", 0, port(), [NOTE, NAME])
    assert (result.obj, result.tags) == (port(name="eth0", note="n"), (NAME, NOTE))


def test_hmget_tells_what_is_absent(client):
    client.hmset(0, port(name="eth0"), [NAME])
    result = client.value("hmget", 0, port(), [NAME, SPEED])
    assert result.tags == (NAME, SPEED)
    assert result.obj == port(name="eth0")
    assert not result.obj.HasField("speed")


def test_hmget_of_absent_fields_of_a_hash_is_not_hmget_of_nothing(client):
    client.hmset(0, port(name="eth0"), [NAME])
    result = client.value("hmget", 0, port(), [SPEED])
    assert result is not None
    assert result.tags == (SPEED,)
    assert client.value("hmget", 0, port("south"), [SPEED]) is None


@pytest.mark.parametrize("nothing_named", [None, []])
def test_hmget_naming_nothing_is_hgetall(client, nothing_named):
    client.hmset(0, port(name="eth0", speed=10), None)
    assert client.value("hmget", 0, port(), nothing_named) == client.value("hgetall", 0, port())


def test_results_are_copies(client, store):
    client.hmset(0, port(name="eth0"), [NAME])
    result = client.value("hgetall", 0, port())
    client.hmset(0, port(name="eth1"), [NAME])
    store.drive()
    assert result.obj == port(name="eth0")
    result.obj.name = "changed"
    assert fields(client)[0] == port(name="eth1")


def test_a_large_hash_field(client):
    long = "x" * 100000
    client.hmset(0, port(note=long, lanes=list(range(10000))), [NOTE, LANES])
    assert client.value("hmget", 0, port(), [NOTE]).obj.note == long
    assert list(fields(client)[0].lanes) == list(range(10000))


def test_counter_fields_are_ordinary_fields_of_a_hash(client):
    client.hmset(0, port(hits=3), [HITS])
    assert client.failure("incr", 0, port()) == -1
    assert fields(client) == (port(hits=3), [HITS])
