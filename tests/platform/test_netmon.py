"""examples/netmon, run as a user runs it, on counters that change under its eyes: over a store
in the process and over one on a server, where its two applications are also run apart."""

import itertools
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

import redis_server  # noqa: E402

NETMON = pathlib.Path(__file__).parents[2] / "examples" / "netmon" / "netmon.py"

HEADINGS = (
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast"
    "|bytes    packets errs drop fifo colls carrier compressed\n"
)


def line(name, rx_bytes, tx_bytes=0, errors=0, drops=0):
    return "%6s: %d 1 %d %d 0 0 0 0 %d 1 0 0 0 0 0 0\n" % (
        name,
        rx_bytes,
        errors,
        drops,
        tx_bytes,
    )


class Netmon:
    """The program, reading counters from a file, with its output as it comes."""

    def __init__(self, directory, *options):
        self.counters = directory / "dev"
        self.options = options
        self.output = []

    def write(self, *lines):
        """The file is replaced in one step: a half-written one would be another test."""
        new = self.counters.with_suffix(".new")
        new.write_text(HEADINGS + "".join(lines), encoding="utf-8")
        os.replace(str(new), str(self.counters))

    def start(self):
        self.process = subprocess.Popen(
            [sys.executable, "-B", str(NETMON), "--proc", str(self.counters)] + list(self.options),
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            universal_newlines=True,
        )
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        for text in self.process.stdout:
            self.output.append(text.rstrip("\n"))

    def wait_for(self, pattern):
        """Waits for a new line that matches, and returns the match."""
        end = time.monotonic() + 60
        while time.monotonic() < end and (self.reader.is_alive() or self.output):
            while self.output:
                text = self.output.pop(0)
                found = re.search(pattern, text)
                if found:
                    return found
            time.sleep(0.01)
        raise AssertionError("no line matches %r" % pattern)

    def end(self):
        """Returns the exit status and the rest of the output."""
        status = self.process.wait(60)
        self.reader.join(60)
        return status, self.output


@pytest.fixture(scope="module")
def server():
    with redis_server.RedisServer() as running:
        yield running


prefixes = itertools.count()


@pytest.fixture
def store_on_server(server):
    return server.url("netmon-%d" % next(prefixes))


@pytest.fixture(params=["embedded", "server"])
def store(request):
    if request.param == "embedded":
        return "embedded:"
    return request.getfixturevalue("store_on_server")


@pytest.fixture
def netmon(tmp_path, store):
    yield from running(tmp_path, "--store", store)


@pytest.fixture
def one_of_two(tmp_path, store_on_server):
    yield from running(tmp_path, "--store", store_on_server, "--host", "netmon-test")


def running(tmp_path, *common):
    started = []

    def make(*options):
        started.append(Netmon(tmp_path, *common + options))
        return started[-1]

    yield make
    for each in started:
        if hasattr(each, "process"):
            each.process.kill()
            each.end()


def test_ends_by_itself(netmon):
    run = netmon("--seconds", "1", "--interval", "0.1")
    run.write(line("lo", 1000, 1000))
    run.start()
    status, output = run.end()
    assert status == 0
    assert re.search(r"^ +0\.0 s  network interfaces of \S+, every 0\.1 s$", output[0])
    assert sum("new: lo" in text for text in output) == 1
    assert sum(re.search(r"s  lo .* 1\.00 kB +1\.00 kB$", text) is not None for text in output) == 1
    samples = int(re.search(r"s  (\d+) samples$", output[-2]).group(1))
    assert 2 <= samples <= 11
    assert output[-1].endswith("  last alarms: none")


def test_shows_what_changes(netmon):
    run = netmon("--seconds", "300", "--interval", "0.1")
    run.write(line("lo", 1000), line("eth0", 5000000, 70, errors=3))
    run.start()
    run.wait_for(r"  interface +receiving +sending +received +sent$")
    run.wait_for(r"  lo +0 B/s +0 B/s +1\.00 kB +0 B$")

    # Traffic: how much a second depends on when a busy machine took the samples.
    run.write(line("lo", 1000), line("eth0", 15000000, 70, errors=3))
    run.wait_for(r"  eth0 +[\d.]*[1-9][\d.]* [MG]B/s +0 B/s +15\.0 MB +70 B$")

    # Faults: the difference, not the total; and only those that are new.
    run.write(line("lo", 1000, drops=5), line("eth0", 15000000, 70, errors=5))
    found = {run.wait_for(r"  ALARM (.*)").group(1) for _ in range(2)}
    assert found == {"lo: 5 drops", "eth0: 2 errors"}

    # An interface comes, another goes.
    run.write(line("lo", 1000, drops=5), line("wlan0", 1))
    run.wait_for(r"  new: wlan0$")
    run.wait_for(r"  gone: eth0$")

    run.process.send_signal(signal.SIGINT)
    status, output = run.end()
    assert status == 0
    assert output[-1].endswith("  last alarms: lo: 5 drops, eth0: 2 errors")


def test_the_busiest_comes_first(netmon):
    run = netmon("--seconds", "300", "--interval", "0.1")
    run.write(line("a", 0), line("b", 0), line("c", 0))
    run.start()
    run.wait_for(r"  c .* 0 B +0 B$")
    run.write(line("a", 1000), line("b", 9000000), line("c", 1000000))
    order = [run.wait_for(r"  ([abc]) .*[1-9].*").group(1) for _ in range(3)]
    assert order == ["b", "c", "a"]


def test_keeps_the_last_five_alarms(netmon):
    run = netmon("--seconds", "300", "--interval", "0.05")
    run.write(line("lo", 0))
    run.start()
    run.wait_for(r"  lo ")
    for drops in range(1, 8):
        run.write(line("lo", 0, drops=drops * 10 + sum(range(drops + 1))))
        run.wait_for(r"  ALARM lo: \d+ drops$")
    run.process.send_signal(signal.SIGINT)
    status, output = run.end()
    assert status == 0
    expected = ", ".join("lo: %d drops" % (10 + drops) for drops in range(3, 8))
    assert output[-1].endswith("  last alarms: " + expected)


def test_odd_counters(netmon):
    run = netmon("--seconds", "300", "--interval", "0.1")
    run.write(
        "nonsense\n",
        ": 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1\n",
        "short: 1 2 3\n",
        "words: a b c d e f g h i j k l m n o p\n",
        line("negative", -1),
        line("huge", 2**64),
        line("eth0:1", 2**63 - 1),
        "noblank:7 1 0 0 0 0 0 0 8 1 0 0 0 0 0 0 99 99\n",
    )
    run.start()
    names = {run.wait_for(r"  new: (.*)").group(1) for _ in range(2)}
    assert names == {"eth0:1", "noblank"}
    run.wait_for(r"  eth0:1 .* 9223 PB +0 B$")

    # Nothing to read for a while: what was there gets stale, then comes back.
    run.counters.unlink()
    assert {run.wait_for(r"  gone: (.*)").group(1) for _ in range(2)} == names
    run.write(line("lo", 1))
    run.wait_for(r"  new: lo$")


def test_two_processes(one_of_two):
    """The monitor knows of the counters what the collector has stored on the server."""
    monitor = one_of_two("--seconds", "300", "--interval", "0.1", "--only", "monitor")
    monitor.start()
    monitor.wait_for(r"network interfaces of netmon-test")
    collector = one_of_two("--seconds", "300", "--interval", "0.1", "--only", "collector")
    collector.write(line("lo", 1000), line("eth0", 5000000, 70, errors=3))
    collector.start()
    monitor.wait_for(r"  eth0 +.* 5\.00 MB +70 B$")
    collector.write(line("lo", 1000), line("eth0", 5000000, 70, errors=5))
    monitor.wait_for(r"  ALARM eth0: 2 errors$")
    collector.write(line("lo", 2000))
    monitor.wait_for(r"  gone: eth0$")

    # Another collector goes on where this one was killed; what it does not store expires.
    collector.process.kill()
    collector.end()
    other = one_of_two("--seconds", "300", "--interval", "0.1", "--only", "collector")
    other.write(line("wlan0", 70))
    other.start()
    assert {monitor.wait_for(r"  ((new|gone): .*)").group(1) for _ in range(2)} == {
        "new: wlan0",
        "gone: lo",
    }

    for each in (other, monitor):
        each.process.send_signal(signal.SIGINT)
        status, output = each.end()
        assert status == 0
    assert output[-1].endswith("  last alarms: eth0: 2 errors")


def test_a_server_that_goes_away(one_of_two, server):
    """Both go on, and say what they miss."""
    monitor = one_of_two("--seconds", "300", "--interval", "0.1")
    monitor.write(line("lo", 1000))
    monitor.start()
    monitor.wait_for(r"  lo +.* 1\.00 kB +0 B$")
    server.stop(keep=True)
    monitor.wait_for(r"not done: ")
    server.start()
    monitor.wait_for(r"events may be missing")
    monitor.write(line("lo", 3000))
    monitor.wait_for(r"  lo +.* 3\.00 kB +0 B$")
    monitor.process.send_signal(signal.SIGINT)
    status, _ = monitor.end()
    assert status == 0


def test_a_store_that_cannot_be(netmon):
    run = netmon("--store", "redis://host:port")
    run.write(line("lo", 1))
    run.start()
    status, output = run.end()
    assert status == 1
    assert output[0].startswith("netmon: store 'redis://host:port' cannot be opened: ")


def test_a_reader_that_has_seen_enough(netmon):
    run = netmon("--seconds", "300", "--interval", "0.05")
    run.write(line("lo", 1))
    child = subprocess.Popen(
        [sys.executable, "-B", str(NETMON), "--proc", str(run.counters)] + list(run.options),
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        universal_newlines=True,
    )
    child.stdout.readline()
    child.stdout.close()
    received = 1
    while child.poll() is None:  # until it has something to write
        received += 1000
        run.write(line("lo", received))
        time.sleep(0.05)
        assert received < 600000
    with child.stderr:
        assert child.stderr.read() == ""
    assert child.returncode == -signal.SIGPIPE


# Ends before it opens a store.
@pytest.mark.parametrize("store", ["embedded"], indirect=True)
def test_no_counters(netmon):
    run = netmon()
    run.start()
    status, output = run.end()
    assert status == 1
    assert len(output) == 1
    assert output[0].startswith("netmon: cannot read the counters: ")


@pytest.mark.parametrize("option", ["--seconds", "--interval"])
@pytest.mark.parametrize("value", ["0", "-1", "nan", "inf", "x"])
@pytest.mark.parametrize("store", ["embedded"], indirect=True)
def test_bad_option(netmon, option, value):
    run = netmon("%s=%s" % (option, value))
    run.write(line("lo", 1))
    run.start()
    status, output = run.end()
    assert status == 2
    assert option in output[-1] and value in output[-1]


def test_rate(monkeypatch):
    monkeypatch.syspath_prepend(str(NETMON.parent))
    from monitor import rate

    assert rate(1000, 3000, 0.5) == 4000.0
    assert rate(3000, 3000, 0.5) == 0.0
    assert rate(3000, 1000, 0.5) == 0.0  # counters were reset
    assert rate(1000, 3000, 0.0) == 0.0


def test_amount(monkeypatch):
    monkeypatch.syspath_prepend(str(NETMON.parent))
    from screen import amount

    numbers = (0, 999, 1000, 9994, 9996, 99940, 99960, 999499, 999500, 1e9, 2**63)
    assert [amount(number) for number in numbers] == [
        "0 B", "999 B", "1.00 kB", "9.99 kB", "10.0 kB", "99.9 kB", "100 kB", "999 kB",
        "1.00 MB", "1.00 GB", "9223 PB",
    ]  # fmt: skip


def test_the_machine_it_runs_on():
    """Without options: the kernel's counters, and the traffic that it makes itself."""
    child = subprocess.run(
        [sys.executable, "-B", str(NETMON), "--seconds", "1", "--interval", "0.1"],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        timeout=60,
    )
    assert child.returncode == 0, child.stdout
    interfaces = [path.name for path in pathlib.Path("/sys/class/net").iterdir() if path.is_dir()]
    assert interfaces
    for name in interfaces:
        assert "  new: %s\n" % name in child.stdout
