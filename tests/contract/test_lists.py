"""Lists: messages in order."""

import sys

import pytest

import vu_mom
import vu_mom_common
from messages import port

LARGEST = 2 * sys.maxsize + 1  # of a size_t


def fill(client, names, obj=port):
    for name in names:
        client.rpush(0, obj(name=name))


def names(client, start=0, stop=-1):
    result = client.value("lrange", 0, port(), start, stop)
    assert type(result) is vu_mom_common.LrangeResult
    return "".join(message.name for message in result)


def test_push_at_both_ends(client):
    for end, name in ((client.rpush, "b"), (client.lpush, "a"), (client.rpush, "c")):
        end(0, port(name=name))
    assert names(client) == "abc"
    assert client.value("lrange", 0, port(), 0, -1) == [port(name=name) for name in "abc"]


def test_pop_at_both_ends(client):
    fill(client, "abcd")
    assert client.value("lpop", 0, port()) == port(name="a")
    assert client.value("rpop", 0, port()) == port(name="d")
    assert names(client) == "bc"


def test_an_emptied_list_is_gone(client):
    fill(client, "ab")
    assert client.value("lpop", 0, port()) == port(name="a")
    assert client.value("rpop", 0, port()) == port(name="b")
    assert client.value("lpop", 0, port()) is None
    assert client.scanned(0, port(), 0) == {}
    client.set(0, port(name="single"))
    assert client.value("get", 0, port()) == port(name="single")


def test_llen(client):
    length = client.value("llen", 0, port())
    assert type(length) is vu_mom_common.LlenResult and length.value == 0
    fill(client, "abc")
    assert client.number("llen", 0, port()) == 3


@pytest.mark.parametrize(
    "start, stop, expected",
    [
        (0, -1, "abcde"),
        (0, 0, "a"),
        (1, 3, "bcd"),
        (-2, -1, "de"),
        (-3, 3, "cd"),
        (0, 100, "abcde"),
        (-100, 1, "ab"),
        (-100, -5, "a"),
        (-100, -6, ""),
        (3, 2, ""),
        (5, 9, ""),
        (2**31 - 1, 2**31 - 1, ""),
        (-(2**31), 2**31 - 1, "abcde"),
        (-(2**31), -(2**31), ""),
    ],
)
def test_lrange(client, start, stop, expected):
    fill(client, "abcde")
    assert names(client, start, stop) == expected


def test_equal_messages_are_elements_of_their_own(client):
    fill(client, "aaa")
    assert names(client) == "aaa"


# ---- lset ------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "pos, expected",
    [(0, "Xbc"), (2, "abX"), (-1, "abX"), (-3, "Xbc"), (1, "aXc")],
)
def test_lset(client, pos, expected):
    fill(client, "abc")
    done = client.value("lset", 0, port(name="X"), pos)
    assert type(done) is vu_mom_common.LsetResult and done.value is True
    assert names(client) == expected


@pytest.mark.parametrize("pos", [3, -4, 2**31 - 1, -(2**31)])
def test_lset_where_no_element_is(client, pos):
    fill(client, "abc")
    assert client.number("lset", 0, port(name="X"), pos) is False
    assert names(client) == "abc"


# ---- linsert ---------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "pivot, order, expected",
    [("a", 0, "Xabcb"), ("a", 1, "aXbcb"), ("b", 0, "aXbcb"), ("b", 1, "abXcb"), ("c", 1, "abcXb")],
)
def test_linsert_beside_the_first_equal_message(client, pivot, order, expected):
    fill(client, "abcb")
    length = client.value("linsert", 0, port(name=pivot), port(name="X"), order)
    assert type(length) is vu_mom_common.LinsertResult and length.value == 5
    assert names(client) == expected


def test_linsert_without_pivot(client):
    fill(client, "ab")
    assert client.number("linsert", 0, port(name="c"), port(name="X"), 0) == -1
    assert client.number("linsert", 0, port(name="a", speed=1), port(name="X"), 0) == -1
    assert names(client) == "ab"


@pytest.mark.parametrize("order", [-1, 2, 2**31 - 1])
def test_linsert_in_no_known_order(client, order):
    fill(client, "ab")
    with pytest.raises(vu_mom.InputError):
        client.linsert(0, port(name="a"), port(name="X"), order, None)
    assert names(client) == "ab"


@pytest.mark.parametrize("pivot", [port("south", name="a"), port(slot=2, name="a")])
def test_linsert_beside_another_objects_message(client, pivot):
    fill(client, "ab")
    with pytest.raises(vu_mom.InputError):
        client.linsert(0, pivot, port(name="X"), 0, None)
    with pytest.raises(vu_mom.InputError):
        client.linsert(0, port(name="a"), pivot, 0, None)
    assert names(client) == "ab"


# ---- lrem ------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "count, expected",
    [(0, "bcb"), (1, "bacba"), (2, "bcba"), (3, "bcb"), (4, "bcb"), (LARGEST, "bcb")],
)
def test_lrem_of_the_first_equal_messages(client, count, expected):
    fill(client, "abacba")
    client.lrem(0, port(name="a"), count)
    assert names(client) == expected


def test_lrem_of_what_is_not_there(client):
    fill(client, "ab")
    client.lrem(0, port(name="c"), 0)
    client.lrem(0, port(name="a", speed=0), 0)
    assert names(client) == "ab"


def test_lrem_of_everything(client):
    fill(client, "aa")
    client.lrem(0, port(name="a"), 0)
    assert client.scanned(0, port(), 0) == {}


def test_a_long_list(client):
    for number in range(3000):
        client.rpush(0, port(speed=number))
    assert client.number("llen", 0, port()) == 3000
    middle = client.value("lrange", 0, port(), 1490, 1509)
    assert [message.speed for message in middle] == list(range(1490, 1510))
    everything = client.value("lrange", 0, port(), 0, -1)
    assert [message.speed for message in everything] == list(range(3000))
