"""What a benchmark suite is written with.

A suite is a file bench/NAME/suite.py. `bench/run` finds it, runs it, and makes the tables, the
ratios, the JSON and docs/performance.md from what it yields. It has

  TITLE     a heading
  ABOUT     a paragraph: what is measured, and how
  PEERS     {candidate: [those it is compared with]}: the ratios to show
  GOALS     [Goal, ...]
  ROUNDS    how many fresh processes to run it in (optional, 1)
  environment(build)  more environment variables for those processes (optional)
  rows(build)         yields Rows, in each of the rounds
  once(build)         yields more of them after the rounds, in a process of its own (optional):
                      what repeats exactly, such as counts

and beside it, optionally, notes.md: what the page says below the suite's table.

rows runs in a process of its own with BUILD/python and BUILD/bench/python on its path, pinned to one processor with
everything that it starts. The file itself is imported elsewhere too, so it imports what it
measures inside of rows.

Smaller is better, always: yield times, counts or bytes, no rates.
"""

import gc
import pathlib
import re
import subprocess
import tempfile
import time
from dataclasses import dataclass
from typing import Optional


@dataclass
class Row:
    """One sample: what `candidate` paid for `work`.

    The same row may be yielded any number of times, in all rounds; it counts with its median.
    The ratio of two candidates is the median of the ratios of their samples, taken in the order
    in which they came, so that a change of the machine's speed meets both alike.
    A row with a size goes into the plot of cost against size; "{}" in the name of the work
    stands for the size: "hmset, {} tags".
    """

    work: str
    candidate: str
    value: float
    unit: str  # "ns", "us", "ms", "instructions", "bytes", ...
    size: Optional[int] = None


@dataclass
class Goal:
    """`candidate` takes at most this part of what `peer` takes for `work`."""

    work: str
    candidate: str
    peer: str
    at_most: float
    unit: str = "ns"
    size: Optional[int] = None


def nanoseconds(function, repeat, clock=time.perf_counter_ns):
    """How long one of `repeat` times takes; function(repeat) does them all."""
    start = clock()
    function(repeat)
    return (clock() - start) / repeat


def interleave(works, turns, target_ms=4.0, clock=time.perf_counter_ns):
    """Yields rows in ns for {(work, candidate, size): function(repeat)}, all in turns.

    Each is repeated for about target_ms per turn; the first turn warms up and is dropped.
    What one thread does without waiting for anybody is best measured by time.thread_time_ns,
    which leaves out what else the machine does.
    """
    repeats = {}
    for what, function in works.items():
        function(1)
        once = max(nanoseconds(function, 10, clock), 1.0)
        repeats[what] = max(1, int(target_ms * 1e6 / once))
    # The candidates for one work come one right after the other.
    places = {}
    for work, _, size in works:
        places.setdefault((work, size), len(places))
    order = sorted(works, key=lambda what: places[what[0], what[2]])
    for turn in range(turns + 1):
        for what in order:
            value = nanoseconds(works[what], repeats[what], clock)
            if turn:
                work, candidate, size = what
                yield Row(work, candidate, value, "ns", size)



def instructions(command):
    """Runs a command under callgrind: {label: instructions}.

    The labels are those of bench_count.stop in the command; "" stands for what ran after the
    last of them, which is the whole command where there are none.
    """
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out"
        valgrind = ["valgrind", "--tool=callgrind", "--callgrind-out-file=%s" % out]
        subprocess.run(valgrind + command, check=True, stderr=subprocess.PIPE)
        counts = {}
        for file in pathlib.Path(directory).iterdir():
            text = file.read_text()
            label = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
            total = re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)
            counts[label.group(1) if label else ""] = int(total.group(1))
        return counts


def count(works, repeat=20):
    """Counts the instructions of one time of each of {label: function(repeat)}, to be called
    in a command that `instructions` runs: each label comes twice, for `counted` to put together.
    """
    import bench_count

    gc.collect()
    gc.freeze()  # what is there by now needs no looking through
    for label, function in works.items():
        function(repeat)
        for times in (repeat, 2 * repeat):
            bench_count.start()
            function(times)
            bench_count.stop("%s %d" % (label, times))


def counted(counts, label, repeat=20):
    """What one more time took."""
    more, less = counts["%s %d" % (label, 2 * repeat)], counts["%s %d" % (label, repeat)]
    return (more - less) / repeat
