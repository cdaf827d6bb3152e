"""Sets: messages, equal when their serialisations are."""

import vu_mom_common
from messages import port


def members(client):
    result = client.value("smembers", 0, port())
    assert type(result) is vu_mom_common.SmembersResult
    return sorted(message.name for message in result)


def test_add_and_read(client):
    for name in "bab":
        client.sadd(0, port(name=name))
    assert members(client) == ["a", "b"]
    result = client.value("smembers", 0, port())
    assert port(name="a") in result and port(name="b") in result


def test_scard(client):
    for name in "aba":
        client.sadd(0, port(name=name))
    size = client.value("scard", 0, port())
    assert type(size) is vu_mom_common.ScardResult and size.value == 2


def test_sismember(client):
    client.sadd(0, port(name="a"))
    answer = client.value("sismember", 0, port(name="a"))
    assert type(answer) is vu_mom_common.SismemberResult and answer.value is True
    assert client.number("sismember", 0, port(name="b")) is False
    assert client.number("sismember", 0, port("south", name="a")) is False


def test_members_differ_by_what_they_carry(client):
    for member in (port(), port(speed=0), port(note=""), port(lanes=[1, 2]), port(lanes=[2, 1])):
        client.sadd(0, member)
    assert client.number("scard", 0, port()) == 5
    assert client.number("sismember", 0, port(speed=0)) is True
    assert client.number("sismember", 0, port(speed=1)) is False


def test_equal_members_made_differently(client):
    one = port(name="a", speed=1, note="n")
    other = port()
    other.note = "n"
    other.speed = 2
    other.speed = 1
    other.name = "a"
    client.sadd(0, one)
    client.sadd(0, other)
    assert client.number("scard", 0, port()) == 1


def test_srem(client):
    for name in "abc":
        client.sadd(0, port(name=name))
    client.srem(0, port(name="b"))
    client.srem(0, port(name="x"))
    client.srem(0, port(name="c"), "ignored")
    assert members(client) == ["a"]


def test_an_emptied_set_is_gone(client):
    client.sadd(0, port(name="a"))
    client.srem(0, port(name="a"))
    assert client.scanned(0, port(), 0) == {}
    client.set(0, port(name="single"))
    assert client.value("get", 0, port()) == port(name="single")


def test_a_large_set(client):
    for number in range(3000):
        client.sadd(0, port(speed=number))
    for number in range(0, 3000, 2):
        client.srem(0, port(speed=number))
    result = client.value("smembers", 0, port())
    assert sorted(message.speed for message in result) == list(range(1, 3000, 2))
