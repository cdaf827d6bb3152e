"""What the embedded store costs through Python."""

import harness
from harness import Goal

TITLE = "The embedded store through Python"

ABOUT = """
Messages go in and messages come out, for all the same. `vu_mom` is the binding with the embedded
store; a request with a reply is sent, delivered by `run_once(0)` and read in its reply method
before the next one begins, except where a thousand are in flight. redis-py uses hiredis and a
Unix socket to a redis-server on the same processor; sqlite3 keeps its tables in memory, one
statement and one transaction per operation; both keep the bytes of python3-protobuf's messages.
The dicts, which keep the same bytes, are the floor: nobody else can see what is in them.
"""

OURS, REDIS, SQLITE, DICT = "vu_mom", "redis-py", "sqlite3", "dict"
PEERS = {OURS: [REDIS, SQLITE, DICT]}

TURNS = 15

WORKS = {
    "set": "set",
    "get": "get",
    "1000 gets in flight, one of them": "get_in_flight",
    "incr": "incr",
    "hmset, 5 fields": "hmset",
    "hmget, 5 fields": "hmget",
    "lpush": "lpush",
    "lrange, 10 of 100": "lrange",
    "zadd, 1 of 1000": "zadd",
    "zrangebyscore, 10 of 1000": "zrangebyscore",
    "publish to one subscriber": "publish",
}

GOALS = [Goal(work, OURS, REDIS, 1 / 20) for work in WORKS]
GOALS += [Goal(work, OURS, SQLITE, 1 / 2) for work in WORKS]


def check():
    """Ends the program unless each request to our store is answered by a right reply."""
    from store.ours import Ours
    from store.work import OBJECTS, PAGE

    replies = []

    class Checking(Ours):
        class Client(Ours.Client):
            def arrived(self, msg, p):
                replies.append(msg)

            on_get_bench_Port = on_incr_bench_Port = on_hmget_bench_Port = arrived
            on_lrange_bench_Port = on_zrangebyscore_bench_Port = arrived
            on_subscribe_bench_Port = arrived

    ours = Checking()
    ours.set()(OBJECTS)
    expected = {
        "get": lambda msg, i: msg.result == ours.messages[i],
        "get_in_flight": lambda msg, i: msg.result == ours.messages[i],
        "incr": lambda msg, i: msg.result.value == 1,
        "hmget": lambda msg, i: msg.result.obj == ours.messages[i],
        "lrange": lambda msg, i: len(msg.result) == PAGE,
        "zrangebyscore": lambda msg, i: len(msg.result) == PAGE,
        "publish": lambda msg, i: msg.result == ours.messages[0],
    }
    for method, is_right in expected.items():
        replies.clear()
        getattr(ours, method)()(OBJECTS)
        if len(replies) != OBJECTS or not all(map(is_right, replies, range(OBJECTS))):
            raise SystemExit("%s: wrong replies" % method)
    ours.close()


def rows(build):
    from store.ours import Ours
    from store.peers import Dict, Redis, Sqlite

    check()
    candidates = {OURS: Ours(), REDIS: Redis(), SQLITE: Sqlite(), DICT: Dict()}
    try:
        works = {}
        for work, method in WORKS.items():
            for name, candidate in candidates.items():
                make = getattr(candidate, method)
                if make is not None:  # it has something of the kind
                    works[work, name, None] = make()
        yield from harness.interleave(works, TURNS)
    finally:
        for candidate in candidates.values():
            candidate.close()
