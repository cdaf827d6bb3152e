"""What a call of the binding costs."""

import functools
import importlib.util
import pathlib
import sys
import time

import harness
from harness import Goal, Row

TITLE = "Binding calls"

ABOUT = """
The binding and the same calls written with Cython and with pybind11
([bench/peers](../bench/peers/README.md)), all against one store library that does nothing, with the
same message class, `PubSubMsg` and `VuGlobal`: only the binding differs. "Tuple and dict" is the binding compiled for the calling
convention of CPython below 3.7. `get with reply` is the command, the delivery of its reply and a
reply method that does nothing. The interpreter's column has the floors: what it takes to call a
method that does nothing. Times are the processor time of the one thread that does it all.
"""

OURS, OLD, CYTHON, PYBIND11 = "vu_mom", "tuple and dict", "Cython", "pybind11"
PEERS = {OURS: [CYTHON, PYBIND11], OLD: [CYTHON]}

GOALS = [
    Goal("set", OURS, CYTHON, 0.65),
    Goal("get with reply", OURS, CYTHON, 0.55),
    Goal("get with reply", OURS, PYBIND11, 0.25),
    Goal("set", OLD, CYTHON, 0.8),
    Goal("get with reply", OLD, CYTHON, 0.8),
]

ROUNDS = 3
TURNS = 40

SET, GET, IN_FLIGHT = "set", "get with reply", "{} gets in flight, one poll"
HMSET, ZADD = "hmset, {} tags", "zadd, {} members"


def environment(build):
    return {"LD_PRELOAD": str(build / "bench" / "lib" / "libvu_mom_impl.so")}


def load_vu_mom(path):
    """The binding from another file than the one that is found under its name."""
    sys.modules.pop("vu_mom", None)
    spec = importlib.util.spec_from_file_location("vu_mom", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def clients(build):
    import peer_cython
    import peer_pybind11
    import vu_global

    modules = {
        OURS: load_vu_mom(build / "python" / "vu_mom.so"),
        OLD: load_vu_mom(build / "bench" / "old" / "vu_mom.so"),
        CYTHON: peer_cython,
        PYBIND11: peer_pybind11,
    }
    glb = vu_global.VuGlobal()
    for name, module in modules.items():

        class Client(module.VuMom):
            def on_get_demo_Counter(self, msg, p):
                pass

        yield name, Client(glb)


class Plain:
    """The floor of a method written in Python."""

    def set(self, db, obj, flag=0):
        pass


def works_of(client, message):
    """What is measured of one client: {(work, size): function of how often to do it}."""
    from bench_support import poll

    def set_(repeat, set=client.set):
        for _ in range(repeat):
            set(0, message)

    def get(repeat, get=client.get):
        for _ in range(repeat):
            get(0, message, None)
            poll()

    def in_flight(count, repeat, get=client.get):
        for _ in range(repeat):
            for _ in range(count):
                get(0, message, None)
            poll()

    def hmset(count, repeat, hmset=client.hmset):
        tags = list(range(1, count + 1))
        for _ in range(repeat):
            hmset(0, message, tags)

    def zadd(count, repeat, zadd=client.zadd):
        scores = [float(i) for i in range(count)]
        messages = [message] * count
        for _ in range(repeat):
            zadd(0, scores, messages)

    works = {(SET, None): set_, (GET, None): get}
    for count in (1, 10, 100, 1000):
        works[IN_FLIGHT, count] = functools.partial(in_flight, count)
    for count in (1, 8, 64):
        works[HMSET, count] = functools.partial(hmset, count)
    for count in (1, 10, 100, 1000):
        works[ZADD, count] = functools.partial(zadd, count)
    return works


def floors(message):
    empty, nothing = message.empty, message.nothing

    def no_arguments(repeat):
        for _ in range(repeat):
            empty()

    def vector(repeat):
        for _ in range(repeat):
            nothing(0, message)

    def python(repeat, set=Plain().set):
        for _ in range(repeat):
            set(0, message)

    return {
        "empty method in C, no arguments": no_arguments,
        "empty method in C, two arguments": vector,
        "empty method in Python": python,
    }


def all_works(build):
    import bench_support

    message = bench_support.Message()
    works = {(work, "interpreter", None): f for work, f in floors(message).items()}
    for name, client in clients(build):
        for (work, size), function in works_of(client, message).items():
            works[work, name, size] = function
    return works


def rows(build):
    return harness.interleave(all_works(build), TURNS, 2.0, time.thread_time_ns)


def once(build):
    found = harness.instructions([sys.executable, __file__, str(build)])
    for what in all_works(build):
        work, candidate, size = what
        yield Row(work, candidate, harness.counted(found, label_of(what)), "instructions", size)


def label_of(what):
    return "/".join(map(str, what))


if __name__ == "__main__":
    works = all_works(pathlib.Path(sys.argv[1]))
    harness.count({label_of(what): function for what, function in works.items()})
