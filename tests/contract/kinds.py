"""The five kinds of objects: how one is made, and which commands are for it alone."""

from typing import Any

import vu_mom_common

from messages import NAME, port

ELEMENT = port(name="element", speed=7)


def _make_sorted_set(client):
    client.zadd(0, [2.5], [ELEMENT])


MAKE = {
    "single value": lambda client: client.set(0, ELEMENT),
    "hash": lambda client: client.hmset(0, ELEMENT, None),
    "list": lambda client: client.rpush(0, ELEMENT),
    "set": lambda client: client.sadd(0, ELEMENT),
    "sorted set": _make_sorted_set,
}

# What a scan says of it: type code and class of the result.
SCANNED = {
    "single value": (1, type(ELEMENT)),
    "hash": (4, vu_mom_common.HashResult),
    "list": (10, vu_mom_common.LrangeResult),
    "set": (18, vu_mom_common.SmembersResult),
    "sorted set": (39, vu_mom_common.ZrangeResult),
}

# (command, arguments behind the message) with one reply.
ASKING: dict[str, list[tuple[str, tuple[Any, ...]]]] = {
    "single value": [("get", ()), ("incr", ()), ("setnx", ())],
    "hash": [("hmget", ([NAME],)), ("hmget", (None,)), ("hgetall", ())],
    "list": [
        ("lpop", ()),
        ("rpop", ()),
        ("llen", ()),
        ("lset", (0,)),
        ("linsert", (ELEMENT, 0)),
        ("lrange", (0, -1)),
    ],
    "set": [("smembers", ()), ("scard", ()), ("sismember", ())],
    "sorted set": [
        ("zcard", ()),
        ("zrank", ()),
        ("zscore", ()),
        ("zcount", (0, 9)),
        ("zrange", (0, -1)),
        ("zrangebyscore", (0, 9)),
    ],
}

# Commands without a reply, as calls with a client and a message.
SENDING = {
    "single value": {
        "set": lambda client, obj: client.set(0, obj),
        "setow": lambda client, obj: client.setow(0, obj, 1),
        "delow": lambda client, obj: client.delow(0, obj, 1),
        "setnx_noreply": lambda client, obj: client.setnx_noreply(0, obj),
    },
    "hash": {
        "hmset": lambda client, obj: client.hmset(0, obj, None),
        "hmset of a field": lambda client, obj: client.hmset(0, obj, [NAME]),
        "hmsetnx": lambda client, obj: client.hmsetnx(0, obj, None),
        "hmupdate": lambda client, obj: client.hmupdate(0, obj, None),
    },
    "list": {
        "lpush": lambda client, obj: client.lpush(0, obj),
        "rpush": lambda client, obj: client.rpush(0, obj),
        "lrem": lambda client, obj: client.lrem(0, obj, 0),
    },
    "set": {
        "sadd": lambda client, obj: client.sadd(0, obj),
        "srem": lambda client, obj: client.srem(0, obj),
    },
    "sorted set": {
        "zadd": lambda client, obj: client.zadd(0, [1], [obj]),
        "zrem": lambda client, obj: client.zrem(0, [obj]),
        "zremrangebyscore": lambda client, obj: client.zremrangebyscore(0, obj, 0, 9),
        "zremrangebyrank": lambda client, obj: client.zremrangebyrank(0, obj, 0, -1),
    },
}


def ask(client, command, rest, obj):
    """The reply to a command of ASKING."""
    if command == "linsert":
        pivot, order = rest
        return client.ask(command, 0, pivot, obj, order)
    return client.ask(command, 0, obj, *rest)
