"""What a store on a server costs, through Python and without it."""

import subprocess
import time
from dataclasses import replace

import harness
from harness import Goal, Row

TITLE = "A store on a server"

ABOUT = """
The clients have one processor and the redis-server, on a Unix socket, another one: the times are
what a client waits, the processor time is what it works. A thousand requests are in flight.
redis-py does with a pipeline of a thousand and hiredis what `vu_mom` does with an event loop; both
keep and give back messages. In a row with `publish` each message is also heard by one subscriber of
the same process. `engine` is the store library through its C interface, without Python, replies
delivered as messages; `hiredis` is its asynchronous layer in the same libuv loop, which gives back
bytes.
"""

OURS, REDIS, ENGINE, HIREDIS = "vu_mom", "redis-py", "engine", "hiredis"
PEERS = {OURS: [REDIS], ENGINE: [HIREDIS]}

TURNS = 15
TARGET_MS = 100.0
PROCESSOR = "ns of the client's processor"

GET, PUBLISH, ALONE = "get", "publish, heard once", "get, without Python"
GOALS = [
    Goal(work, candidate, peer, at_most, unit)
    for work, candidate, peer, at_most in (
        (GET, OURS, REDIS, 1 / 2.5),
        (PUBLISH, OURS, REDIS, 1 / 2),
        (ALONE, ENGINE, HIREDIS, 1 / 0.6),
    )
    for unit in ("ns", PROCESSOR)
]


def python_rows(path):
    from server.clients import Ours, Redis

    candidates = {OURS: Ours(path), REDIS: Redis(path)}
    works = {}
    for work, method in ((GET, "get"), (PUBLISH, "publish")):
        for name, candidate in candidates.items():
            works[work, name, None] = getattr(candidate, method)
    yield from harness.interleave(works, TURNS, TARGET_MS)
    for row in harness.interleave(works, TURNS, TARGET_MS, clock=time.process_time_ns):
        yield replace(row, unit=PROCESSOR)
    for candidate in candidates.values():
        candidate.close()


def engine_rows(build, path):
    program = [build / "bench" / "bin" / "bench_server", path, str(TURNS)]
    done = subprocess.run(program, check=True, stdout=subprocess.PIPE, text=True)
    for line in done.stdout.splitlines():
        candidate, waited, worked = line.split()
        yield Row(ALONE, candidate, float(waited), "ns")
        yield Row(ALONE, candidate, float(worked), PROCESSOR)


def rows(build):
    from server.clients import Server

    with Server() as path:
        yield from python_rows(path)
        yield from engine_rows(build, path)
