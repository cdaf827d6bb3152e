"""Sorted sets: messages with a score, ordered by score, then bytes."""

import math

import pytest

import vu_mom
import vu_mom_common
from messages import port

INF = math.inf


def fill(client, pairs):
    client.zadd(0, [score for _, score in pairs], [port(name=name) for name, _ in pairs])


def pairs(result):
    return [(message.name, score) for message, score in result]


def ranked(client, start=0, stop=-1):
    result = client.value("zrange", 0, port(), start, stop)
    assert type(result) is vu_mom_common.ZrangeResult
    return pairs(result)


def between(client, low, high):
    result = client.value("zrangebyscore", 0, port(), low, high)
    assert type(result) is vu_mom_common.ZrangebyscoreResult
    return pairs(result)


def test_order_is_by_score(client):
    fill(client, [("c", 3), ("a", -1.5), ("b", 2)])
    assert ranked(client) == [("a", -1.5), ("b", 2.0), ("c", 3.0)]
    assert client.value("zrange", 0, port(), 0, 0) == [(port(name="a"), -1.5)]


def test_equal_scores_are_ordered_by_bytes(client):
    fill(client, [("b", 1), ("ab", 1), ("a", 1), ("c", 0)])
    members = [port(name=name) for name in ("a", "ab", "b")]
    members.sort(key=lambda message: message.SerializeToString())
    assert ranked(client) == [("c", 0.0)] + [(message.name, 1.0) for message in members]


def test_bytes_are_those_of_the_whole_message(client):
    # "name" is numbered below the key fields, "note" above them; one member has neither.
    members = [port(), port(name="z"), port(note="a"), port(speed=0), port(name="a", note="")]
    client.zadd(0, [1] * len(members), members)
    members.sort(key=lambda message: message.SerializeToString())
    assert list(client.value("zrange", 0, port(), 0, -1).messages) == members


def test_zadd_moves_a_member(client):
    fill(client, [("a", 1), ("b", 2), ("c", 3)])
    fill(client, [("a", 2.5)])
    assert ranked(client) == [("b", 2.0), ("a", 2.5), ("c", 3.0)]
    assert client.number("zcard", 0, port()) == 3


def test_the_last_score_of_a_message_given_twice(client):
    fill(client, [("a", 1), ("b", 2), ("a", 3)])
    assert ranked(client) == [("b", 2.0), ("a", 3.0)]


def test_scores_are_doubles(client):
    scores = [5e-324, 1.7976931348623157e308, 0.1, 2**53 + 1, -0.0, True]
    client.zadd(0, scores, [port(speed=number) for number in range(len(scores))])
    for number, score in enumerate(scores):
        got = client.value("zscore", 0, port(speed=number))
        assert type(got) is vu_mom_common.ZscoreResult and got.value == float(score)


def test_infinite_scores(client):
    fill(client, [("high", INF), ("low", -INF), ("mid", 0)])
    assert ranked(client) == [("low", -INF), ("mid", 0.0), ("high", INF)]
    assert between(client, -INF, INF) == ranked(client)
    assert between(client, INF, INF) == [("high", INF)]
    assert between(client, -INF, -1e308) == [("low", -INF)]


@pytest.mark.parametrize(
    "start, stop, expected",
    [
        (0, -1, "abcde"),
        (1, 3, "bcd"),
        (-2, -1, "de"),
        (0, 100, "abcde"),
        (-100, 0, "a"),
        (3, 1, ""),
        (5, 5, ""),
        (-(2**31), 2**31 - 1, "abcde"),
        (-(2**31), -6, ""),
    ],
)
def test_zrange(client, start, stop, expected):
    fill(client, [(name, number) for number, name in enumerate("abcde")])
    assert "".join(name for name, _ in ranked(client, start, stop)) == expected
    client.zremrangebyrank(0, port(), start, stop)
    left = "".join(name for name, _ in ranked(client))
    assert left == "".join(name for name in "abcde" if name not in expected)


@pytest.mark.parametrize(
    "low, high, expected",
    [
        (1, 3, "bcd"),
        (1.5, 3.5, "cd"),
        (-INF, 1, "ab"),
        (3, INF, "de"),
        (2, 2, "c"),
        (3, 1, ""),
        (INF, -INF, ""),
        (10, 20, ""),
    ],
)
def test_score_bounds_are_inclusive(client, low, high, expected):
    fill(client, [(name, number) for number, name in enumerate("abcde")])
    assert "".join(name for name, _ in between(client, low, high)) == expected
    count = client.value("zcount", 0, port(), low, high)
    assert type(count) is vu_mom_common.ZcountResult and count.value == len(expected)
    client.zremrangebyscore(0, port(), low, high)
    left = "".join(name for name, _ in ranked(client))
    assert left == "".join(name for name in "abcde" if name not in expected)


def test_zrank_and_zscore(client):
    fill(client, [("a", 5), ("b", 1), ("c", 5)])
    for name, rank, score in (("b", 0, 1), ("a", 1, 5), ("c", 2, 5)):
        answer = client.value("zrank", 0, port(name=name))
        assert type(answer) is vu_mom_common.ZrankResult and answer.value == rank
        assert client.number("zscore", 0, port(name=name)) == score
    assert client.value("zrank", 0, port(name="x")) is None
    assert client.value("zscore", 0, port(name="x")) is None


def test_zcard(client):
    fill(client, [("a", 5), ("b", 1)])
    size = client.value("zcard", 0, port())
    assert type(size) is vu_mom_common.ZcardResult and size.value == 2


def test_zrem(client):
    fill(client, [("a", 1), ("b", 2), ("c", 3)])
    client.zrem(0, [port(name="a"), port(name="x"), port(name="c"), port(name="a")])
    assert ranked(client) == [("b", 2.0)]


@pytest.mark.parametrize("nothing", [None, []])
def test_zrem_of_no_messages(client, nothing):
    fill(client, [("a", 1)])
    client.zrem(0, nothing)
    assert ranked(client) == [("a", 1.0)]


def test_zadd_of_no_messages(client):
    client.zadd(0, [], [])
    assert client.scanned(0, port(), 0) == {}


@pytest.mark.parametrize("remove", ["zrem", "zremrangebyscore", "zremrangebyrank"])
def test_an_emptied_sorted_set_is_gone(client, remove):
    fill(client, [("a", 1), ("b", 2)])
    if remove == "zrem":
        client.zrem(0, [port(name="b"), port(name="a")])
    elif remove == "zremrangebyscore":
        client.zremrangebyscore(0, port(), 1, 2)
    else:
        client.zremrangebyrank(0, port(), 0, 1)
    assert client.scanned(0, port(), 0) == {}
    client.set(0, port(name="single"))
    assert client.value("get", 0, port()) == port(name="single")


NAN = math.nan


def test_nan_is_refused(client):
    fill(client, [("a", 1)])
    with pytest.raises(vu_mom.InputError):
        client.zadd(0, [2, NAN], [port(name="b"), port(name="c")])
    for low, high in ((NAN, 1), (1, NAN), (NAN, NAN)):
        with pytest.raises(vu_mom.InputError):
            client.zcount(0, port(), low, high, None)
        with pytest.raises(vu_mom.InputError):
            client.zrangebyscore(0, port(), low, high, None)
        with pytest.raises(vu_mom.InputError):
            client.zremrangebyscore(0, port(), low, high)
    assert ranked(client) == [("a", 1.0)]


@pytest.mark.parametrize("stranger", [port("south"), port(rack=2), port(slot=-1)])
def test_all_messages_name_one_object(client, stranger):
    fill(client, [("a", 1)])
    with pytest.raises(vu_mom.InputError):
        client.zadd(0, [2, 3], [port(name="b"), stranger])
    with pytest.raises(vu_mom.InputError):
        client.zrem(0, [port(name="a"), stranger])
    assert ranked(client) == [("a", 1.0)]
    assert client.number("zcard", 0, stranger) == 0


def test_a_large_sorted_set(client):
    numbers = list(range(3000))
    client.zadd(0, [number * 7 % 3000 for number in numbers], [port(speed=n) for n in numbers])
    for rank in (0, 1, 1499, 2998, 2999):
        [(message, score)] = client.value("zrange", 0, port(), rank, rank)
        assert score == rank and message.speed * 7 % 3000 == rank
        assert client.number("zrank", 0, message) == rank
    assert client.number("zcount", 0, port(), 1000, 1999) == 1000
    client.zremrangebyscore(0, port(), 0, 999)
    client.zremrangebyrank(0, port(), -1000, -1)
    left = client.value("zrange", 0, port(), 0, -1)
    assert list(left.scores) == [float(score) for score in range(1000, 2000)]
