"""What a call costs: the binding, the same calls in Cython and in pybind11, and two floors.

Everything runs in one process against one store library that does nothing, in turns, so that
a change of the machine's speed meets all alike. Prints the median time of a call and the
ratios between the candidates; `--json` prints the numbers.

Run by `./dev bench binding`, which sets the paths.
"""

import argparse
import json
import statistics
import sys
import time

import bench_support
import peer_cython
import peer_pybind11
import vu_global
import vu_mom

TURNS = 31


class Replies:
    """Reply methods, the same for every client."""

    def on_get_demo_Counter(self, msg, p):
        pass


class Ours(Replies, vu_mom.VuMom):
    pass


class Cython(Replies, peer_cython.VuMom):
    pass


class Pybind11(Replies, peer_pybind11.VuMom):
    pass


class Plain:
    """The floor of a method written in Python."""

    def set(self, db, obj, flag=0):
        pass


def timed(function, repeat):
    start = time.perf_counter()
    function(repeat)
    return (time.perf_counter() - start) / repeat


def workloads(client, message):
    """The measured work of one client: a name and a function of how often to do it."""
    poll = bench_support.poll
    tags = list(range(1, 9))
    messages = [message] * 100
    scores = [float(i) for i in range(100)]

    def set_(repeat, set=client.set):
        for _ in range(repeat):
            set(0, message)

    def get(repeat, get=client.get):
        for _ in range(repeat):
            get(0, message, None)
            poll()

    def get_in_flight(repeat, get=client.get):
        for _ in range(repeat // 1000):
            for _ in range(1000):
                get(0, message, None)
            poll()

    def hmset(repeat, hmset=client.hmset):
        for _ in range(repeat):
            hmset(0, message, tags)

    def zadd(repeat, zadd=client.zadd):
        for _ in range(repeat):
            zadd(0, scores, messages)

    return {
        "set": (set_, 20000),
        "get with reply": (get, 8000),
        "1000 gets in flight": (get_in_flight, 8000),
        "hmset, 8 tags": (hmset, 8000),
        "zadd, 100 members": (zadd, 500),
    }


def floors(message):
    nothing = bench_support.nothing
    plain = Plain()

    def empty(repeat):
        for _ in range(repeat):
            nothing(0, message)

    def python(repeat, set=plain.set):
        for _ in range(repeat):
            set(0, message)

    return {"empty C call": (empty, 40000), "Python method": (python, 40000)}


def measure(turns):
    message = bench_support.Message()
    glb = vu_global.VuGlobal()
    work = {
        name: workloads(client, message)
        for name, client in (
            ("vu_mom", Ours(glb)),
            ("Cython", Cython(glb)),
            ("pybind11", Pybind11(glb)),
        )
    }
    samples = {}
    for turn in range(turns + 1):  # the first one warms up
        for name, (function, repeat) in floors(message).items():
            seconds = timed(function, repeat)
            if turn:
                samples.setdefault(("floor", name), []).append(seconds)
        for workload in work["vu_mom"]:
            for client in work:
                function, repeat = work[client][workload]
                seconds = timed(function, repeat)
                if turn:
                    samples.setdefault((client, workload), []).append(seconds)
    return samples


def ratio(samples, workload, client, peer):
    """The median of the ratios turn by turn."""
    return statistics.median(
        a / b for a, b in zip(samples[client, workload], samples[peer, workload])
    )


def report(samples):
    rows = []
    for workload in dict.fromkeys(name for client, name in samples if client == "vu_mom"):
        rows.append(
            {
                "work": workload,
                "vu_mom_ns": statistics.median(samples["vu_mom", workload]) * 1e9,
                "to_cython": ratio(samples, workload, "vu_mom", "Cython"),
                "to_pybind11": ratio(samples, workload, "vu_mom", "pybind11"),
            }
        )
    floor = {
        name: statistics.median(seconds) * 1e9
        for (client, name), seconds in samples.items()
        if client == "floor"
    }
    return {"floors_ns": floor, "rows": rows}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--turns", type=int, default=TURNS)
    parser.add_argument("--json", action="store_true", help="print the numbers as JSON")
    options = parser.parse_args()
    result = report(measure(options.turns))
    if options.json:
        json.dump(result, sys.stdout, indent=1)
        print()
        return
    for name, nanoseconds in result["floors_ns"].items():
        print("%-24s %8.0f ns" % (name, nanoseconds))
    print("%-24s %11s %10s %12s" % ("", "vu_mom", "/ Cython", "/ pybind11"))
    for row in result["rows"]:
        print(
            "%(work)-24s %(vu_mom_ns)8.0f ns %(to_cython)10.2f %(to_pybind11)12.2f" % row
        )


if __name__ == "__main__":
    main()
