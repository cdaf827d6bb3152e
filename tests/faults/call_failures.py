"""Lets each call of the interpreter that the platform's modules make fail once, in the course of
actions that a suite provides: its tests. Used by test_platform_calls.py, in processes of their
own, each of which writes down what it found as lines of JSON.

An action is run without a failure, to see which call sites are on its way. For each site that
did not fail yet it is run again, several times, with that call failing; and in the end without
a failure: it has to work as before.
"""
import array
import ctypes
import faulthandler
import gc
import importlib
import json
import os
import signal
import sys
import time
import unittest
from typing import Callable, Dict

import pytest

import allocations
import inject

MODULES = ("vu_message", "vu_thread", "vu_global", "vu_mom_common")
# Seconds of the processor. An action that takes longer is left out: others do the same things.
LONGEST = 0.5
# Seconds. One that waits for what cannot come any more is broken off.
HANGS = 5.0
ROUNDS = 6
MANY = 400
# The bytes of the smallest block that malloc gives.
SMALLEST = 16


class Hangs(Exception):
    pass


def _break_off(number, frame):
    raise Hangs()


signal.signal(signal.SIGALRM, _break_off)


def measure(numbers, at):
    """Puts the blocks of the interpreter, bytes from malloc, and descriptors into an array."""
    numbers[at + 1] = allocations.allocated_bytes()
    numbers[at] = sys.getallocatedblocks()
    numbers[at + 2] = len(os.listdir("/proc/self/fd"))


def module_path(name):
    return os.path.join(inject.DIRECTORY, "platform", name + ".so")


def run(action, first=0, last=0):
    """How the action ended, armed: None or an exception; and what was reported meanwhile."""
    reported = []
    outer = sys.unraisablehook
    sys.unraisablehook = lambda found: reported.append(type(found.exc_value).__name__)
    error = None
    try:
        signal.setitimer(signal.ITIMER_REAL, HANGS)
        inject.run(inject.CALLS, first, last, action, (), {})
    except BaseException as raised:
        error = "%s: %s" % (type(raised).__name__, raised)
        raised.__traceback__ = raised.__context__ = raised.__cause__ = None
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        sys.unraisablehook = outer
    allocations.give_back_contexts()
    return error, reported


def growth(action, n):
    """Of blocks, bytes and descriptors, in each of many failures, rounded down."""
    numbers = array.array("q", 6 * [0])
    gc.collect()
    measure(numbers, 0)
    for _ in range(MANY):
        run(action, n, n)
    gc.collect()
    measure(numbers, 3)
    return [(numbers[what + 3] - numbers[what]) // MANY for what in range(3)]


class Failures(object):
    """All failures of one process, written down in a file."""

    def __init__(self, output):
        self.output = output
        self.seen = set()
        self.was_hit = False

    def write(self, **found):
        self.output.write(json.dumps(found) + "\n")
        self.output.flush()

    def let_fail(self, name, action):
        """The whole of it for one action."""
        if not self.seen:
            gc.freeze()  # collecting what is there already would take most of the time
        start = time.process_time()
        error, _ = run(action)
        if error is not None or time.process_time() - start > LONGEST:
            return
        error, _ = run(action)
        if error is not None:
            return  # it can be run once only
        places = inject.places()
        for n, place in enumerate(places, 1):
            if place in self.seen or not place[0][:-3] in MODULES:
                continue
            self.seen.add(place)
            self.let_one_fail(name, action, place, n)

    def let_one_fail(self, name, action, place, n):
        faulthandler.dump_traceback_later(600, exit=True)
        first = run(action, n, n)
        if first[0] is not None and first[0].startswith("Hangs"):
            self.write(action=name, library=place[0], address=place[1], error=first[0],
                       reported=first[1], again=run(action)[0], leaks=[])
            return
        numbers = array.array("q", (ROUNDS + 1) * [0, 0, 0])
        for i in range(ROUNDS + 1):
            if inject.hit() == 0 or inject.places()[n - 1] != place:
                # The way is not always the same: another action will do.
                self.seen.discard(place)
                faulthandler.cancel_dump_traceback_later()
                return
            measure(numbers, 3 * i)
            run(action, n, n)
        again, _ = run(action)
        faulthandler.cancel_dump_traceback_later()
        leaks = [min(numbers[i + 3] - numbers[i] for i in range(what, 3 * ROUNDS, 3))
                 for what in range(3)]
        if max(leaks) > 0:
            # Caches that fill up grow for a while; a leak goes on in all of many. Garbage in cycles
            # is none.
            leaks = [min(found) for found in zip(growth(action, n), growth(action, n))]
            if leaks[1] < SMALLEST:
                leaks[1] = 0
        leaks = [max(0, leak) for leak in leaks]
        self.write(action=name, library=place[0], address=place[1], error=first[0],
                   reported=first[1], again=again, leaks=leaks)


# --- where actions come from ------------------------------------------------------------------


class Plugin(object):
    """For pytest: lets calls fail in each test without fixtures."""

    def __init__(self, failures):
        self.failures = failures

    @pytest.hookimpl(tryfirst=True)
    def pytest_pyfunc_call(self, pyfuncitem):
        names = pyfuncitem._fixtureinfo.argnames
        parameters = pyfuncitem.callspec.params if hasattr(pyfuncitem, "callspec") else {}
        if not set(names) <= set(parameters) or hasattr(pyfuncitem.obj, "hypothesis"):
            return True
        arguments = dict((name, parameters[name]) for name in names)
        self.failures.let_fail(pyfuncitem.nodeid, lambda: pyfuncitem.obj(**arguments))
        return True





def run_pytest(failures, *arguments):
    status = pytest.main(["-q", "-p", "no:cacheprovider", "-p", "no:unraisableexception", "-s"]
                         + list(arguments), plugins=[Plugin(failures)])
    failures.write(done="pytest", status=int(status))


def run_cases(failures, directory):
    """The unittest cases of a directory, but for those that measure memory themselves."""
    sys.path.insert(0, directory)
    count = 0
    for file in sorted(os.listdir(directory)):
        if not (file.startswith("cases_") and file.endswith(".py")) or "memory" in file:
            continue
        suites = [unittest.defaultTestLoader.loadTestsFromName(file[:-3])]
        while suites:
            for test in suites.pop():
                if isinstance(test, unittest.TestSuite):
                    suites.append(test)
                else:
                    failures.let_fail(test.id(), test.debug)
                    count += 1
    failures.write(done="cases", status=0 if count else 1)


def run_actions(failures):
    """Those of platform_actions.py."""
    import platform_actions
    for name, action in platform_actions.all_actions():
        failures.let_fail(name, action)
    failures.write(done="actions", status=0)


def _import(name):
    """Imports a module whose import may have failed before, and uses what is in it."""
    module = importlib.import_module(name)
    if name == "contract_vu":
        # One that is imported, and one that is made, as no module was generated for it.
        for well_known in ("Timestamp", "Any"):
            importlib.import_module("vu_message").message_class("google.protobuf." + well_known)()
        if module.Port.FromString(module.Port(name="x").SerializeToString()).name != "x":
            raise AssertionError("no message")
    return module


def run_imports(failures, name):
    """The import of a module, each in a child process. Modules and message types live as long as
    the process."""
    for path in [module_path(name)] if name in MODULES else []:
        ctypes.CDLL(path)
    for other in MODULES[:MODULES.index(name)] if name in MODULES else ("vu_message", "vu_enum"):
        importlib.import_module(other)
    for n in range(1, 100000):
        readable, writable = os.pipe()
        pid = os.fork()
        if pid == 0:
            error, _ = run(lambda: _import(name), n, n)
            was_hit = inject.hit() != 0
            place = inject.places()[n - 1] if was_hit else None
            try:
                again = None if _import(name) else "no module"
            except BaseException as raised:
                again = "%s: %s" % (type(raised).__name__, raised)
            os.write(writable, json.dumps([place, error, again]).encode())
            os._exit(0)
        os.close(writable)
        with os.fdopen(readable, "rb") as answers:
            answer = answers.read()
        status = os.waitpid(pid, 0)[1]
        if status != 0 or not answer:
            failures.write(action="import %d of %s" % (n, name), library="?", address=0,
                           error="ended with status %d" % status, reported=[], again=None, leaks=[])
            continue
        place, error, again = json.loads(answer.decode())
        if place is None:
            break
        failures.write(action="import %d of %s" % (n, name), library=place[0], address=place[1],
                       error=error, reported=[], again=again, leaks=[])
    failures.write(done="import", status=0)


def main(kind, path, *arguments):
    with open(path, "w") as output:
        runners = {"pytest": run_pytest, "cases": run_cases, "actions": run_actions,
                   "imports": run_imports}  # type: Dict[str, Callable]
        runners[kind](Failures(output), *arguments)


if __name__ == "__main__":
    main(*sys.argv[1:])
