"""The test command counts what the runners say, and never calls a failure a success."""

import glob
import os
import sys
import tempfile
import time
import unittest

from build_tree import SOURCE

sys.path.insert(0, os.path.join(SOURCE, "tools"))
import run_suite  # noqa: E402

UNITTEST = "Ran %d tests in 0.004s\n\n%s\n"
GOOGLETEST = "[==========] 9 tests from 2 test suites ran. (0 ms total)\n[  PASSED  ] %d tests.\n"

# Output, exit status, (passed, failed, skipped).
CASES = (
    (UNITTEST % (12, "OK"), 0, (12, 0, 0)),
    (UNITTEST % (12, "OK (skipped=3)"), 0, (9, 0, 3)),
    (UNITTEST % (12, "OK (skipped=3, expected failures=1)"), 0, (9, 0, 3)),
    (UNITTEST % (12, "FAILED (failures=2, errors=1, skipped=4)"), 1, (5, 3, 4)),
    (UNITTEST % (12, "FAILED (unexpected successes=1)"), 1, (11, 1, 0)),
    (UNITTEST % (0, "FAILED (errors=1)"), 1, (0, 1, 0)),
    (UNITTEST % (0, "OK"), 0, (0, 1, 0)),
    (UNITTEST % (12, "OK"), -11, (12, 1, 0)),
    (UNITTEST % (12, "OK"), None, (12, 1, 0)),
    ("===== 7 passed in 0.12s =====\n", 0, (7, 0, 0)),
    ("7 passed, 1 warning in 65.01s (0:01:05)\n", 0, (7, 0, 0)),
    ("= 1 failed, 7 passed, 2 skipped, 1 error in 0.12s =\n", 1, (7, 2, 2)),
    ("= 7 passed, 1 xfailed in 0.12s =\n", 0, (8, 0, 0)),
    ("= no tests ran in 0.01s =\n", 5, (0, 1, 0)),
    ("= 2 errors in 0.01s =\n", 2, (0, 2, 0)),
    (GOOGLETEST % 9, 0, (9, 0, 0)),
    (GOOGLETEST % 7 + "[  SKIPPED ] 2 tests, listed below:\n", 0, (7, 0, 2)),
    (GOOGLETEST % 8 + "[  FAILED  ] 1 test, listed below:\n", 1, (8, 1, 0)),
    (GOOGLETEST % 9, 1, (9, 1, 0)),
    ("all is well\n", 0, (1, 0, 0)),
    ("", 3, (0, 1, 0)),
    ("", -6, (0, 1, 0)),
    ("", None, (0, 1, 0)),
)


class RunSuite(unittest.TestCase):
    def test_counts(self):
        for log, status, counts in CASES:
            with self.subTest(log=log, status=status):
                self.assertEqual(run_suite.tally(log, status), counts)

    def test_a_runner_that_hangs_is_ended_with_its_children(self):
        mark = "12345.%d" % os.getpid()
        with tempfile.TemporaryFile() as log:
            self.assertIsNone(run_suite.run(["sh", "-c", "sleep %s & wait" % mark], 0.5, log))
        end = time.monotonic() + 5
        while self.is_running("sleep", mark):
            self.assertLess(time.monotonic(), end)
            time.sleep(0.01)

    def test_a_runner_that_is_not_there_has_failed(self):
        with tempfile.TemporaryFile() as log:
            self.assertEqual(run_suite.run([os.path.join(SOURCE, "not-there")], 1, log), 127)

    def is_running(self, *command):
        for path in glob.glob("/proc/[0-9]*/cmdline"):
            try:
                with open(path, "rb") as file:
                    if file.read() == b"\0".join(word.encode() for word in command) + b"\0":
                        return True
            except OSError:
                pass  # it has ended meanwhile
        return False
