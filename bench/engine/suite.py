"""What the engine costs without Python: bench_engine, in C++ with Google Benchmark."""

import json
import os
import subprocess
import tempfile

from harness import Goal, Row

TITLE = "The engine alone"

ABOUT = """
The embedded engine in C++ ([bench/engine](../bench/engine)), beside
`absl::flat_hash_map<std::string, std::string>` with the same keys of 21 bytes and values of 60, and,
for sorted sets, an `absl::btree_set` of scores and members with a `flat_hash_map` from member to
score. `get` copies the value out of the store; `set` is the whole command: the value in place of
another, the kind, lifetime and subscribers looked at. The C interface is the same with messages: a
message serialised and its key read, the reply delivered as a message. Objects are visited in no
order; the size is how many there are, for subscriptions how many of those.
"""

ENGINE, MAP, TREE, INTERFACE = "engine", "flat_hash_map", "btree_set", "C interface"
PEERS = {ENGINE: [MAP, TREE]}

SIZES = (1000, 100000, 1000000)

GOALS = [
    Goal(work, ENGINE, MAP, 3, size=size)
    for work in ("get, {} objects", "set, {} objects")
    for size in SIZES
]

# The rows in their order: what bench_engine calls them, and what they are called here.
WORKS = {
    "get": "get, {} objects",
    "set": "set, {} objects",
    "set and delete": "set and delete, {} objects",
    "zadd, a new score": "zadd, a new score, {} members",
    "read 10 from a score on": "read 10 from a score on, {} members",
    "rank of a score": "rank of a score, {} members",
    "set, its event delivered": "set, its event delivered, {} subscriptions",
    "subscribe and unsubscribe": "subscribe and unsubscribe, {} subscriptions",
    "memory of an object": "memory of an object, {} objects",
}
CANDIDATES = (ENGINE, MAP, TREE, INTERFACE)

SAMPLES = 9


def rows(build):
    with tempfile.TemporaryDirectory() as directory:
        out = os.path.join(directory, "out.json")
        subprocess.run(
            [
                build / "bench" / "bin" / "bench_engine",
                "--benchmark_out=" + out,
                "--benchmark_min_time=0.02",
                "--benchmark_repetitions=%d" % SAMPLES,
                "--benchmark_enable_random_interleaving=true",
            ],
            check=True,
            stdout=subprocess.DEVNULL,
        )
        with open(out, encoding="utf-8") as file:
            samples = json.load(file)["benchmarks"]
    found = []
    for sample in samples:
        if sample["run_type"] != "iteration":
            continue
        work, candidate, size = sample["run_name"].split("/")[:3]
        value, unit = sample["cpu_time"], sample["time_unit"]
        if "bytes" in sample:
            value, unit = sample["bytes"], "bytes"
        found.append(Row(WORKS[work], candidate, value, unit, int(size)))
    order = list(WORKS.values())
    found.sort(key=lambda row: (order.index(row.work), row.size, CANDIDATES.index(row.candidate)))
    yield from found
