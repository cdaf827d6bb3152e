"""The platform's modules without memory: each allocation fails once, and all from the n-th on,
through the interpreter's allocators and through the malloc of the process.

Each action runs in a process of its own. An allocation that fails may show as MemoryError or
not at all; the action then does again what it did before. What failures leave behind is measured
by test_platform_calls.py, where it is the modules that fail: the interpreter itself leaves
arguments behind where it cannot make a frame.
"""
import gc
import inspect
import unittest

import vu_thread

import allocations
import inject
import platform_actions
from children import in_child

MOST_OPERATIONS = 5000


class Wrong(Exception):
    pass


def outcome(action, *arguments):
    """What the action came to, as something that can be compared."""
    try:
        return "answered", action(*arguments)
    except Exception as error:
        kind = type(error).__name__
        error.__traceback__ = error.__context__ = error.__cause__ = None
        return "raised", kind
    finally:
        allocations.give_back_contexts()


def armed(action, kind, first, last):
    """The same, with failures."""
    def arm(function):
        return inject.run(kind, first, last, function, (), None)
    if "arm" in inspect.signature(action).parameters:
        return outcome(action, arm)
    return outcome(arm, action)


# SystemError is the interpreter's own where memory is short. InputError comes of the commands on
# hashes: field numbers that cannot be converted reach the store as a null array.
SHOWS_NO_MEMORY = ("MemoryError", "SystemError", "InputError")


def run_out_of_memory(action, kind, once, note):
    """Raises Wrong where something is; returns how many allocations have failed."""
    clean = outcome(action)
    for n in range(1, MOST_OPERATIONS):
        note(n)
        what, found = armed(action, kind, n, n if once else inject.NEVER)
        was_hit = inject.hit() > 0
        if what == "raised" and found not in SHOWS_NO_MEMORY and (what, found) != clean:
            raise Wrong("operation %d: %s" % (n, found))
        again = outcome(action)
        if again != clean:
            raise Wrong("after operation %d: %r, and was %r" % (n, again, clean))
        if not was_hit:
            return n - 1
    raise Wrong("no end")


class Platform(unittest.TestCase):
    kind, once = inject.PYTHON, True

    def check(self, actions):
        failures = 0
        for name, action in actions:
            if (name in platform_actions.RUNS_ON
                    or self.kind == inject.MALLOC and name in platform_actions.ENDED_BY_LIBRARIES):
                continue

            def run(note, action=action):
                if self.kind == inject.MALLOC:
                    platform_actions.kept_loop = vu_thread.VuThreadMaster()
                gc.freeze()
                count = run_out_of_memory(action, self.kind, self.once, note)
                return "%d failures" % count
            with self.subTest(action=name):
                answer = in_child(run)
                self.assertRegex(answer, r"^\d+ failures$", name)
                failures += int(answer.split()[0])
        print("* %s: %d failures" % (self.id(), failures))

    def test_messages(self):
        self.check(platform_actions.message_actions())

    def test_results(self):
        self.check(platform_actions.result_actions())

    def test_loop(self):
        self.check(platform_actions.loop_actions())

    def test_global(self):
        self.check(platform_actions.global_actions())

    def test_store(self):
        self.check(platform_actions.store_actions())

    def test_commands(self):
        self.check(platform_actions.command_actions(inject.WHOLE))

    # What went wrong once.

    def test_no_memory_was_called_a_wrong_store(self):
        """ValueError, where the store could not be opened for lack of memory."""
        action = dict(platform_actions.store_actions())["open and close"]
        self.check([("open and close", action)])


class PlatformOn(Platform):
    once = False


class Malloc(Platform):
    kind = inject.MALLOC


class MallocOn(Malloc):
    once = False


if __name__ == "__main__":
    unittest.main()
