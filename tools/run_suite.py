"""Runs one test runner and counts: `run_suite.py LEG SUITE SECONDS COMMAND...`.

The output goes to build/logs/LEG-SUITE.log and is shown where something failed; lines that
begin with "* " are shown always. A line "passed failed skipped" is added to
build/logs/LEG.counts. Knows unittest, pytest and GoogleTest by their closing lines; any
other program is one test, which its exit status decides. A runner that exits with another
status than 0, runs out of time or runs no test has at least one failure.

It runs in a session of its own, and nothing of that session outlives it.
"""

import os
import re
import signal
import subprocess
import sys
import time

NOT_TESTS = 0, 0, 0


def number(pattern, text):
    """The number that the last match of `pattern` captures, or 0."""
    found = re.findall(pattern, text, re.MULTILINE)
    return int(found[-1]) if found else 0


def unittest_counts(log):
    ran = re.findall(r"^Ran (\d+) tests? in [\d.]+s$", log, re.MULTILINE)
    if not ran:
        return None
    end = re.findall(r"^(?:OK|FAILED)(?: \((.*)\))?$", log, re.MULTILINE)
    details = end[-1] if end else ""
    words = ("failures", "errors", "unexpected successes")
    failed = sum(number(r"(?:^|, )%s=(\d+)" % word, details) for word in words)
    skipped = number(r"skipped=(\d+)", details)
    return max(int(ran[-1]) - failed - skipped, 0), failed, skipped


def pytest_counts(log):
    end = re.findall(r"^=*\s?((?:\d+ \w+(?:, )?)+ in [\d.]+s.*)$", log, re.MULTILINE)
    if not end:
        return None
    failed = number(r"(\d+) failed", end[-1]) + number(r"(\d+) errors?", end[-1])
    passed = number(r"(\d+) passed", end[-1]) + number(r"(\d+) xfailed", end[-1])
    return passed, failed, number(r"(\d+) skipped", end[-1])


def googletest_counts(log):
    if not re.search(r"^\[==========\] \d+ tests? from \d+ test suites? ran\.", log, re.MULTILINE):
        return None
    words = ("PASSED", "FAILED", "SKIPPED")
    return tuple(number(r"^\[\s+%s\s+\] (\d+) tests?\b" % word, log) for word in words)


def tally(log, status):
    """(passed, failed, skipped) of a runner that wrote `log` and exited with `status`."""
    counts = unittest_counts(log) or pytest_counts(log) or googletest_counts(log)
    if counts is None:
        return (1, 0, 0) if status == 0 else (0, 1, 0)
    passed, failed, skipped = counts
    if not failed and (status != 0 or counts == NOT_TESTS):
        failed = 1
    return passed, failed, skipped


def run(command, limit, log):
    """Exit status of the command, or None where it ran out of time."""
    try:
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True
        )
    except OSError as error:
        log.write(b"%s\n" % str(error).encode())
        return 127
    try:
        return process.wait(limit)
    except subprocess.TimeoutExpired:
        return None
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def main(leg, suite, limit, *command):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    log_path = "build/logs/%s-%s.log" % (leg, suite)
    start = time.monotonic()
    with open(log_path, "wb") as file:
        status = run(command, float(limit), file)
    with open(log_path, encoding="utf-8", errors="replace") as file:
        log = file.read()
    passed, failed, skipped = tally(log, status)
    with open("build/logs/%s.counts" % leg, "a") as file:
        print(passed, failed, skipped, file=file)
    if failed:
        print(log)
        ending = "broken off after %s s" % limit if status is None else "exit status %d" % status
        print("(%s: %s)" % (" ".join(command), ending))
    else:
        sys.stdout.writelines(line + "\n" for line in log.splitlines() if line[:2] == "* ")
    seconds = time.monotonic() - start
    print(
        "-- %s %s: %d passed, %d failed, %d skipped; %.1f s"
        % (leg, suite, passed, failed, skipped, seconds)
    )


if __name__ == "__main__":
    main(*sys.argv[1:])
