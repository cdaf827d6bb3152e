"""The event loop: what is scheduled, in which order it runs, and how a loop ends."""

import contextlib
import gc
import math
import os
import queue
import select
import signal
import socket
import subprocess
import sys
import threading
import time
import weakref
from typing import Any

import pytest

from vu_thread import Thread, VuThreadMaster


@pytest.fixture
def master():
    return VuThreadMaster()


@contextlib.contextmanager
def reports():
    """The exceptions that are reported inside the block."""
    exceptions = []
    previous = sys.unraisablehook
    sys.unraisablehook = lambda report: exceptions.append(report.exc_value)
    try:
        yield exceptions
    finally:
        sys.unraisablehook = previous


@pytest.fixture
def sockets():
    pair = socket.socketpair()
    for end in pair:
        end.setblocking(False)
    yield pair
    for end in pair:
        end.close()


def readable(fd, timeout=0.0):
    return bool(select.select([fd], [], [], timeout)[0])


def run_script(code, *, timeout=60):
    """Runs `code` in a fresh interpreter; returns its output. It has to end well."""
    result = subprocess.run(
        [sys.executable, "-c", code], capture_output=True, text=True, timeout=timeout
    )
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


class Probe:
    """Something whose end can be watched."""

    def __call__(self):
        pass


# ---- Soon ------------------------------------------------------------------------


def test_soon_runs_in_order_with_arguments(master):
    calls = []
    for number in range(5):
        master.call_soon(lambda *args: calls.append(args), number, "x")
    assert calls == []
    assert master.run_once(0) is True
    assert calls == [(number, "x") for number in range(5)]
    assert master.run_once(0) is False


def test_soon_from_a_callback_waits_for_the_next_turn(master):
    calls = []
    master.call_soon(lambda: master.call_soon(calls.append, "second"))
    master.run_once(0)
    assert calls == []
    master.run_once(0)
    assert calls == ["second"]


def test_endless_soon_starves_nobody(master, sockets):
    seen: list[Any] = []

    def again():
        master.call_soon(again)

    again()
    master.add_timer(0.01, seen.append, "timer")
    sockets[1].send(b"x")
    def read():
        seen.append("reader")
        reader.cancel()

    reader: Any = master.add_reader(sockets[0], read)
    deadline = time.monotonic() + 10
    while len(seen) < 2 and time.monotonic() < deadline:
        master.run_once(0)
    assert sorted(seen) == ["reader", "timer"]


# ---- Timers ------------------------------------------------------------------------


@pytest.mark.parametrize("seconds", [0, 0.0004, 0.001, 0.0151, 0.05])
def test_a_timer_is_never_early(master, seconds):
    for _ in range(5):
        called = []
        start = time.monotonic()
        master.add_timer(seconds, lambda: called.append(time.monotonic()))
        assert master.run_once() is True
        assert called[0] - start >= seconds


def test_timers_run_in_the_order_of_their_times(master):
    calls = []
    for seconds in (0.03, 0.01, 0.02, 0):
        master.add_timer(seconds, calls.append, seconds)
    while len(calls) < 4:
        master.run_once()
    assert calls == [0, 0.01, 0.02, 0.03]


def test_a_repeating_timer_keeps_its_beat(master):
    beats = []
    start = time.monotonic()

    def beat():
        beats.append(time.monotonic() - start)
        if len(beats) == 10:
            timer.cancel()
            master.stop()

    timer = master.add_timer(0.01, beat, repeat=True)
    assert timer.active
    master.run()
    assert timer.cancelled
    for number, at in enumerate(beats, 1):
        assert at >= 0.01 * number
    assert not master.run_once(0.03)


def test_a_repeating_timer_leaves_out_missed_beats(master):
    beats = []
    timer = master.add_timer(0.01, beats.append, 1, repeat=True)
    time.sleep(0.1)
    master.run_once()
    assert len(beats) == 1
    assert not master.run_once(0)
    master.run_once()
    assert len(beats) == 2
    timer.cancel()


def test_a_late_callback_does_not_make_timers_early(master):
    times = {}
    master.call_soon(time.sleep, 0.05)  # the loop's own clock stands still meanwhile
    master.run_once(0)
    start = time.monotonic()
    master.add_timer(0.03, lambda: times.update(at=time.monotonic()))
    master.run_once()
    assert times["at"] - start >= 0.03


@pytest.mark.parametrize(
    "seconds, error, text",
    [
        (-1, ValueError, "seconds must be a number of seconds from 0 to 1e9, not -1"),
        (-1e-9, ValueError, "seconds must be"),
        (math.nan, ValueError, "seconds must be a number of seconds from 0 to 1e9, not nan"),
        (math.inf, ValueError, "seconds must be"),
        (2e9, ValueError, "seconds must be"),
        ("1", TypeError, "seconds must be a number of seconds, not str"),
        (None, TypeError, "seconds must be a number of seconds, not NoneType"),
        (10**400, OverflowError, ""),
    ],
)
def test_bad_durations(master, seconds, error, text):
    with pytest.raises(error, match=text):
        master.add_timer(seconds, print)
    if seconds is not None:
        with pytest.raises(error, match=text.replace("seconds must", "timeout must")):
            master.run_once(seconds)
    assert not master.run_once(0)


def test_bad_arguments(master):
    with pytest.raises(TypeError, match="func must be callable, not int"):
        master.add_timer(1, 2)
    with pytest.raises(TypeError, match="func must be callable, not NoneType"):
        master.call_soon(None)
    with pytest.raises(TypeError, match="func must be callable, not str"):
        master.add_reader(0, "x")
    with pytest.raises(TypeError, match=r"add_timer\(\) takes at least 2 positional arguments"):
        master.add_timer(1)
    with pytest.raises(TypeError, match=r"call_soon\(\) takes at least 1 positional argument \(0"):
        master.call_soon()
    with pytest.raises(TypeError, match="unexpected keyword argument 'again'"):
        master.add_timer(1, print, again=True)
    with pytest.raises(ValueError, match="seconds must be more than 0 for a timer that repeats"):
        master.add_timer(0, print, repeat=True)
    with pytest.raises(TypeError, match="takes no arguments"):
        VuThreadMaster(1)  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        Thread()


# ---- Descriptors ---------------------------------------------------------------------


def test_a_reader_runs_while_there_is_something_to_read(master, sockets):
    calls = []
    reader = master.add_reader(sockets[0], calls.append, "ready")
    assert not master.run_once(0)
    sockets[1].send(b"x")
    master.run_once()
    master.run_once()
    assert calls == ["ready", "ready"]
    sockets[0].recv(10)
    assert not master.run_once(0)
    assert reader.active and not reader.done
    assert reader.cancel()
    sockets[1].send(b"x")
    assert not master.run_once(0)


def test_reader_and_writer_of_one_descriptor(master, sockets):
    calls = []
    reader = master.add_reader(sockets[0].fileno(), calls.append, "r")
    writer = master.add_writer(sockets[0].fileno(), calls.append, "w")
    master.run_once()
    assert calls == ["w"]
    sockets[1].send(b"x")
    master.run_once()
    assert calls == ["w", "r", "w"]
    writer.cancel()
    master.run_once()
    assert calls == ["w", "r", "w", "r"]
    reader.cancel()
    assert not master.run_once(0)


def test_a_hang_up_wakes_the_reader(master, sockets):
    calls = []
    reader = master.add_reader(sockets[0], lambda: calls.append(sockets[0].recv(10)))
    sockets[1].close()
    master.run_once()
    assert calls == [b""]
    reader.cancel()


def test_a_broken_pipe_wakes_the_writer(master):
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    while True:
        try:
            os.write(writing, b"x" * 65536)
        except BlockingIOError:
            break
    calls = []
    writer = master.add_writer(writing, calls.append, 1)
    assert not master.run_once(0)
    os.close(reading)
    master.run_once()
    assert calls == [1]
    writer.cancel()
    os.close(writing)


def test_descriptors_that_cannot_be_watched(master, sockets, tmp_path):
    with pytest.raises(OSError, match="fd 987 cannot be watched"):
        master.add_reader(987, print)
    with open(tmp_path / "file", "w") as file:
        with pytest.raises(PermissionError, match="cannot be watched"):
            master.add_writer(file, print)
    with pytest.raises(ValueError):
        master.add_reader(-1, print)
    with pytest.raises(TypeError):
        master.add_reader("x", print)
    reader = master.add_reader(sockets[0], print)
    with pytest.raises(ValueError, match="has a reader already"):
        master.add_reader(sockets[0], print)
    reader.cancel()
    master.add_reader(sockets[0], print).cancel()


def test_a_descriptor_that_was_closed_while_watched(master):
    calls = []
    first = socket.socketpair()
    number = first[0].fileno()
    reader = master.add_reader(number, calls.append, "old")
    writer = master.add_writer(number, calls.append, "old")
    first[0].close()
    assert not master.run_once(0)
    second = socket.socketpair()
    assert second[0].fileno() == number
    second_reader = master.add_reader(number, calls.append, "new")
    assert reader.cancelled and writer.cancelled
    second[1].send(b"x")
    master.run_once()
    assert calls == ["new"]
    second_reader.cancel()
    for end in first + second:
        end.close()


def test_cancelling_after_closing_is_harmless(master, sockets):
    reader = master.add_reader(sockets[0], print)
    sockets[0].close()
    assert reader.cancel()
    assert not master.run_once(0)


def test_work_cancelled_by_an_earlier_callback_of_the_turn_does_not_run(master):
    calls = []
    work = []

    def cancel_the_others():
        calls.append(1)
        for other in work:
            other.cancel()

    for _ in range(3):
        work.append(master.call_soon(cancel_the_others))
    master.run_once(0)
    assert calls == [1]
    assert [thread.cancelled for thread in work] == [False, True, True]


# ---- Thread -------------------------------------------------------------------------


def states(thread):
    return thread.active, thread.done, thread.cancelled


def test_states(master):
    seen = []
    thread: Any = master.call_soon(lambda: seen.append(states(thread)))
    assert states(thread) == (True, False, False)
    master.run_once(0)
    assert seen == [(False, True, False)]
    assert states(thread) == (False, True, False)
    assert thread.cancel() is False
    other = master.add_timer(10, print)
    assert other.cancel() is True
    assert states(other) == (False, False, True)
    assert other.cancel() is False
    assert not master.run_once(0)


def test_repr(master, sockets):
    assert repr(master.call_soon(print)) == (
        "<vu_thread.Thread soon, active: <built-in function print>>"
    )
    reader = master.add_reader(sockets[0], print)
    assert repr(reader) == "<vu_thread.Thread reader of fd %d, active: %r>" % (
        sockets[0].fileno(),
        print,
    )
    reader.cancel()
    assert repr(reader) == "<vu_thread.Thread reader, cancelled>"
    timer = master.add_timer(0, int)
    master.run_once()
    assert repr(timer) == "<vu_thread.Thread timer, done>"


# ---- Exceptions ----------------------------------------------------------------------


def test_an_exception_is_reported_and_the_loop_goes_on(master, sockets):
    calls = []

    def fail(what):
        calls.append(what)
        raise KeyError(what)

    master.call_soon(fail, "soon")
    timer = master.add_timer(0.001, fail, "timer", repeat=True)
    sockets[1].send(b"x")
    reader = master.add_reader(sockets[0], fail, "reader")
    with reports() as reported:
        while calls.count("timer") < 2 or calls.count("reader") < 2:
            master.run_once()
    timer.cancel()
    reader.cancel()
    assert [error.args[0] for error in reported] == calls
    assert {type(error) for error in reported} == {KeyError}


@pytest.mark.parametrize("error", [KeyboardInterrupt, SystemExit, GeneratorExit])
def test_what_is_no_exception_leaves_the_loop(master, error):
    calls = []

    def leave():
        raise error

    master.call_soon(calls.append, 1)
    master.call_soon(leave)
    master.call_soon(calls.append, 2)
    master.call_soon(master.stop)
    with reports() as reported:
        with pytest.raises(error):
            master.run()
        assert calls == [1]
        assert not master.running
        master.run()
    assert calls == [1, 2]
    assert reported == []


# ---- Running and stopping ----------------------------------------------------------------


def test_run_once_waits_no_longer_than_asked(master):
    start = time.monotonic()
    assert master.run_once(0.05) is False
    assert 0.05 <= time.monotonic() - start < 5
    assert master.run_once(timeout=0) is False


def test_run_once_returns_as_soon_as_something_ran(master):
    master.add_timer(0.01, int)
    start = time.monotonic()
    assert master.run_once(60) is True
    assert time.monotonic() - start < 30


def test_stop_before_run_is_one_turn_without_waiting(master):
    calls = []
    master.call_soon(calls.append, 1)
    master.stop()
    master.run()
    assert calls == [1]
    master.stop()
    master.stop()
    assert master.run_once() is False
    assert master.run_once(0.01) is False


def test_stop_from_another_thread(master):
    for _ in range(20):
        thread = threading.Timer(0.002, master.stop)
        thread.start()
        master.run()
        thread.join()


def test_running_inside_a_callback_is_refused(master):
    master.call_soon(master.run)
    master.call_soon(master.run_once, 0)
    with reports() as reported:
        master.run_once(0)
    assert len(reported) == 2
    for error in reported:
        assert isinstance(error, RuntimeError)
        assert "running already" in str(error)


def test_another_master_may_run_inside_a_callback(master):
    inner = VuThreadMaster()
    calls = []
    inner.add_timer(0.01, lambda: (calls.append(1), inner.stop()))  # type: ignore[func-returns-value]
    master.call_soon(inner.run)
    master.call_soon(calls.append, 2)
    with reports() as reported:
        master.run_once()
    assert calls == [1, 2]
    assert reported == []


def test_two_threads_cannot_run_one_master(master):
    errors = []
    running = threading.Event()
    master.call_soon(running.set)
    thread = threading.Thread(target=master.run)
    thread.start()
    running.wait(10)
    assert master.running
    for call in (master.run, lambda: master.run_once(0)):
        with pytest.raises(RuntimeError, match="another thread"):
            call()
    master.stop()
    thread.join(10)
    assert not thread.is_alive() and errors == []
    assert not master.running


def test_the_interpreter_lock_is_free_while_waiting(master):
    progress = []

    def work():
        for _ in range(200):
            progress.append(1)
            time.sleep(0)
        master.stop()

    thread = threading.Thread(target=work)
    thread.start()
    master.run()
    thread.join()
    assert len(progress) == 200


def test_work_from_other_threads_ends_the_wait(master, sockets):
    """Each round trip would take for ever if a wake-up were lost."""
    here = threading.get_ident()
    calls = []
    done = threading.Event()
    scheduled = queue.SimpleQueue()
    loop = threading.Thread(target=master.run)
    loop.start()

    def called(what):
        # It may come here before the call that scheduled it has returned.
        scheduled.get().cancel()
        calls.append((what, threading.get_ident() == here))
        done.set()

    sockets[1].send(b"x")
    for _ in range(300):
        for schedule in (
            lambda: master.call_soon(called, "soon"),
            lambda: master.add_timer(0, called, "timer"),
            lambda: master.add_reader(sockets[0], called, "reader"),
        ):
            done.clear()
            scheduled.put(schedule())
            assert done.wait(60)
    master.stop()
    loop.join(10)
    assert not loop.is_alive()
    assert len(calls) == 900 and not any(in_this_thread for _, in_this_thread in calls)


# ---- fileno ------------------------------------------------------------------------------


def test_fileno_is_readable_when_there_is_something_to_do(master, sockets):
    fd = master.fileno()
    assert fd == master.fileno()
    assert not readable(fd)

    master.call_soon(int)
    assert readable(fd)
    assert master.run_once(0) and not readable(fd)

    master.call_soon(lambda: master.call_soon(int))
    master.run_once(0)
    assert readable(fd)
    assert master.run_once(0) and not readable(fd)

    sockets[1].send(b"x")
    reader = master.add_reader(sockets[0], lambda: sockets[0].recv(10))
    assert readable(fd)
    assert master.run_once(0) and not readable(fd)
    reader.cancel()

    master.stop()
    assert readable(fd)
    assert not master.run_once(0) and not readable(fd)


def test_fileno_knows_the_timers(master):
    master.add_timer(0.02, int)
    fd = master.fileno()
    start = time.monotonic()
    assert readable(fd, 10)
    assert time.monotonic() - start >= 0.015
    while not master.run_once(0):
        assert readable(fd, 10)
    assert not readable(fd)

    timer = master.add_timer(0.02, int)
    later = master.add_timer(60, int)
    assert not readable(fd)
    timer.cancel()
    calls = []
    master.add_timer(0.01, calls.append, 1, repeat=True)
    while len(calls) < 5:
        assert readable(fd, 10)
        master.run_once(0)
    later.cancel()


def test_fileno_inside_a_foreign_loop(master):
    """As an asyncio loop would use it."""
    poller = select.epoll()
    poller.register(master.fileno(), select.EPOLLIN)
    calls = []
    master.add_timer(0.01, calls.append, "timer")
    threading.Timer(0.03, lambda: master.call_soon(calls.append, "thread")).start()
    deadline = time.monotonic() + 10
    while len(calls) < 2 and time.monotonic() < deadline:
        if poller.poll(10):
            master.run_once(0)
    assert calls == ["timer", "thread"]
    poller.close()


def test_run_and_fileno_do_not_get_in_each_others_way(master):
    fd = master.fileno()
    threading.Timer(0.02, lambda: master.call_soon(master.stop)).start()
    master.add_timer(60, int)
    master.run()
    assert not readable(fd)
    master.call_soon(int)
    assert readable(fd)


# ---- References ---------------------------------------------------------------------------


@pytest.mark.parametrize("how", ["soon", "timer", "reader", "args"])
def test_active_work_keeps_its_function_and_ended_work_does_not(master, sockets, how):
    probe = Probe()
    gone = weakref.ref(probe)
    start: Any = {
        "soon": lambda: master.call_soon(probe),
        "timer": lambda: master.add_timer(0, probe),
        "reader": lambda: master.add_reader(sockets[0], probe),
        "args": lambda: master.call_soon(int.__bool__, probe),
    }[how]
    thread = start() if how != "args" else master.call_soon(lambda probe: None, probe)
    del probe
    gc.collect()
    assert gone() is not None
    if how == "reader":
        thread.cancel()
    else:
        master.run_once()
    assert gone() is None


def test_cancelled_work_is_released_at_once(master):
    probe = Probe()
    gone = weakref.ref(probe)
    thread = master.call_soon(probe)
    del probe
    thread.cancel()
    assert gone() is None


def test_work_is_kept_by_the_loop_alone(master):
    calls = []
    master.add_timer(0.001, calls.append, 1)
    gc.collect()
    master.run_once()
    assert calls == [1]


def test_dropping_a_master_with_pending_work(sockets):
    master = VuThreadMaster()
    gone = weakref.ref(master)
    work = [
        master.call_soon(print),
        master.add_timer(5, print),
        master.add_timer(5, print, repeat=True),
        master.add_reader(sockets[0], print),
        master.add_writer(sockets[0], print),
    ]
    del master
    assert gone() is None
    assert all(thread.cancelled for thread in work)
    assert not any(thread.cancel() for thread in work)


def test_a_cycle_through_the_loop_is_collected(sockets):
    class Application:
        def __init__(self):
            self.master = VuThreadMaster()
            self.timer = self.master.add_timer(60, self.tick)
            self.soon = self.master.call_soon(self.tick)
            self.reader = self.master.add_reader(sockets[0], self.tick)

        def tick(self):
            pass

    gone = weakref.ref(Application())
    gc.collect()
    assert gone() is None


def test_a_finaliser_that_schedules_and_cancels(master):
    class Nasty:
        def __del__(self):
            again.append(master.call_soon(again.append, "called"))
            for thread in others:
                thread.cancel()

        def __call__(self):
            pass

    again = []
    others = [master.call_soon(int), master.add_timer(0, int)]
    master.call_soon(Nasty()).cancel()
    assert all(thread.cancelled for thread in others)
    master.run_once(0)
    assert again[-1] == "called"


def test_a_subclass():
    class Master(VuThreadMaster):
        def __init__(self, name):
            self.name = name

    master = Master("x")
    master.call_soon(master.stop)
    master.run()
    assert master.name == "x"


def test_descriptors_of_dropped_masters_are_closed():
    before = len(os.listdir("/proc/self/fd"))
    for _ in range(50):
        master = VuThreadMaster()
        master.add_timer(1, int)
        master.fileno()
    del master
    assert len(os.listdir("/proc/self/fd")) == before


# ---- Signals ---------------------------------------------------------------------------------


def test_ctrl_c_ends_run(master):
    def interrupt():
        time.sleep(0.05)
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    thread.start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        master.run()
    thread.join()
    assert time.monotonic() - start < 10
    assert not master.running
    master.call_soon(master.stop)
    master.run()


def test_ctrl_c_inside_a_callback_ends_run(master):
    master.call_soon(os.kill, os.getpid(), signal.SIGINT)
    with reports() as reported:
        with pytest.raises(KeyboardInterrupt):
            master.run()
    assert reported == []


def test_signal_handlers_run_promptly_and_the_loop_goes_on(master):
    """The signal goes to another thread, which does not interrupt the wait of this one."""
    calls = []

    def handler(number, frame):
        calls.append(number)
        if len(calls) == 100:
            master.stop()

    def send():
        for count in range(100):
            signal.pthread_kill(threading.get_ident(), signal.SIGUSR1)
            while len(calls) <= count:
                time.sleep(0.0005)

    previous = signal.signal(signal.SIGUSR1, handler)
    thread = threading.Thread(target=send)
    thread.start()
    try:
        master.run()
    finally:
        thread.join(10)
        signal.signal(signal.SIGUSR1, previous)
    assert len(calls) == 100


def test_the_wake_up_descriptor_of_the_application_stays(master, sockets):
    previous = signal.set_wakeup_fd(sockets[1].fileno())
    try:
        master.run_once(0.01)
        assert signal.set_wakeup_fd(previous) == sockets[1].fileno()
    finally:
        signal.set_wakeup_fd(previous)
    master.run_once(0.01)
    assert signal.set_wakeup_fd(previous) == previous


# ---- Processes ----------------------------------------------------------------------------------


def test_a_forked_child_is_told(master):
    calls = []
    master.add_timer(0.01, calls.append, 1)
    parent_fd = master.fileno()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            texts = []
            for call in (
                master.run,
                lambda: master.run_once(0),
                master.fileno,
                lambda: master.call_soon(int),
                lambda: master.add_timer(1, int),
                lambda: master.add_reader(0, int),
            ):
                try:
                    call()
                except RuntimeError as error:
                    texts.append(str(error))
            fresh = VuThreadMaster()
            fresh.call_soon(fresh.stop)
            fresh.run()
            del master
            if len(texts) == 6 and all("make a new one after fork" in text for text in texts):
                status = 0
        finally:
            os._exit(status)
    assert os.waitpid(child, 0)[1] == 0
    assert readable(parent_fd, 10)
    while not calls:
        master.run_once(1)
    assert calls == [1]


def test_a_callback_that_forks(master):
    """The rest of the turn, and the loop, are the parent's alone."""
    calls = []
    children = []
    here = os.getpid()
    master.call_soon(lambda: children.append(os.fork()))
    master.call_soon(calls.append, 1)
    master.call_soon(master.stop)
    try:
        master.run()
    except RuntimeError as error:
        if os.getpid() != here:
            os._exit(0 if "make a new one after fork" in str(error) and not calls else 1)
        raise
    finally:
        if os.getpid() != here:
            os._exit(2)
    assert calls == [1]
    assert os.waitpid(children[0], 0)[1] == 0


def test_exit_with_pending_work():
    run_script(
        "from vu_thread import *; m = VuThreadMaster(); m.add_timer(1, print, repeat=True);"
        "m.call_soon(print); r = m.run_once(0); m.call_soon(print); t = m.add_timer(9, m.run)"
    )


def test_exit_while_a_daemon_thread_runs_the_loop():
    output = run_script(
        "import threading, time\n"
        "from vu_thread import *\n"
        "m = VuThreadMaster()\n"
        "n = []\n"
        "def loop():\n"
        "    while True: m.run()\n"
        "for seconds in (0.0005, 0.0007, 0.001): m.add_timer(seconds, n.append, 1, repeat=True)\n"
        "threading.Thread(target=loop, daemon=True).start()\n"
        "while len(n) < 20: time.sleep(0.001)\n"
        "print('ran')\n"
    )
    assert output == "ran\n"
