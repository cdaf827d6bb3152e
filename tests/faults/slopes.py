"""By how much repeats of an action make references, blocks of memory and descriptors grow."""
import gc
import os
import sys
import unittest

import inject

COUNTS_REFERENCES = hasattr(sys, "gettotalrefcount")
N = 10 if inject.WHOLE else 1
# An emulated processor takes its time: one of so many ways to make a call.
EVERY = 6 if os.uname().machine.startswith("arm") and not inject.WHOLE else 1


def measure():
    sys._clear_type_cache()  # it keeps names that were looked up
    gc.collect()
    return (sys.gettotalrefcount() if COUNTS_REFERENCES else 0, sys.getallocatedblocks(),
            len(os.listdir("/proc/self/fd")))


def growth(action, repeats):
    """By how much references, blocks and descriptors grow in so many repeats."""
    before = measure()
    for _ in repeats:
        action()
    after = measure()
    return tuple(end - start for start, end in zip(before, after))


# Caches of the interpreter fill up at first; a leak grows in each round.
ROUNDS = 6
# Measuring takes something too, which is measured. A leak is one for each of 100 repeats, or
# of more.
NOISE = 2


class SlopeTest(unittest.TestCase):
    """Base of the suites of slopes."""

    def check(self, action, name, most=100 * N):
        """Runs the action up to so many times in each round."""
        for count in (3, most // 100, most // 10):
            for _ in range(count):
                action()
        repeats = range(most)
        rounds = []
        while len(rounds) < ROUNDS:
            own = growth(lambda: None, repeats)
            rounds.append(tuple(found - own for found, own in zip(growth(action, repeats), own)))
            if all(abs(grown) <= NOISE for grown in rounds[-1]):
                return
        self.fail("%s: references, blocks, descriptors grow by %s" % (name, rounds))
