"""What the tests share: the client and its messages, instrumented arguments, captured
reports, and the base class that checks every test for leaks."""
import contextlib
import ctypes
import gc
import io
import os
import subprocess
import sys
import unittest
import warnings
import weakref

import recorder  # loads the store library: before vu_mom

import vu_global
import vu_mom
import vu_mom_common

import cases

MYPY = False  # type checkers take it for True
if MYPY:
    from typing import Any
else:  # for the interpreters that have no `typing`
    Any = object

# Type checkers let a client of this class be given anything, as the tests do.
VuMom = vu_mom.VuMom  # type: Any

HANDLE = 0x12345678
ADDRESS = 0x1000  # of the ordinary message
POINTER_BITS = 8 * ctypes.sizeof(ctypes.c_void_p)
LONG_BITS = 8 * ctypes.sizeof(ctypes.c_long)
SIZE_LIMIT = 2 ** (8 * ctypes.sizeof(ctypes.c_size_t))

if hasattr(gc, "freeze"):
    gc.freeze()  # what is there now needs no collecting

# How many of the module's references to the allocator are redirected.
WATCHED = recorder.watch("tests/binding/python/vu_mom.so")


class Message(object):
    """A message of package demo, type Counter, at an address of the test's choosing."""
    package_name = "demo"
    short_name = "Counter"

    def __init__(self, address=ADDRESS):
        self.address = address

    def get_ptr(self):
        return self.address


class Privdata(object):
    """Something to hand in and to count references of."""


class Client(VuMom):
    """Has no reply methods of its own."""


class Listener(Client):
    """Has every reply method for Message, and writes replies down as (name, msg, p)."""

    def __init__(self, glb):
        super(Listener, self).__init__(glb)
        self.replies = []


def _reply_method(name):
    def method(self, msg, p):
        self.replies.append((name, msg, p))
    method.__name__ = name
    return method


for _prefix in sorted(set(row.prefix for row in cases.REPLYING)):
    setattr(Listener, _prefix + "demo_Counter", _reply_method(_prefix + "demo_Counter"))


def reply_name(row):
    return row.prefix + "demo_Counter"


def result_class(row):
    return getattr(vu_mom_common, row.result)


# --- errors ---------------------------------------------------------------------------------


def binding_frames(error):
    """The functions of the binding that an exception passed through, outermost first."""
    names, traceback = [], error.__traceback__
    while traceback is not None:
        code = traceback.tb_frame.f_code
        if code.co_filename == "vu_mom":
            names.append(code.co_name)
        traceback = traceback.tb_next
    return names


def _text_of(function, number):
    try:
        function(ctypes.py_object(number))
    except OverflowError as error:
        return str(error)
    raise AssertionError("no overflow")


# The interpreter's own texts; they differ between versions.
LONG_OVERFLOW = _text_of(ctypes.pythonapi.PyLong_AsLong, 2 ** 70)
UNSIGNED_LONG_OVERFLOW = _text_of(ctypes.pythonapi.PyLong_AsUnsignedLong, 2 ** 70)
LONG_LONG_OVERFLOWS = (LONG_OVERFLOW, _text_of(ctypes.pythonapi.PyLong_AsLongLong, 2 ** 70))


def float_refusal(value):
    """The interpreter's own text where a double is wanted."""
    try:
        ctypes.pythonapi.PyFloat_AsDouble(ctypes.py_object(value))
    except TypeError as error:
        return str(error)
    raise AssertionError("%r is a number" % (value,))


class Reports(object):
    """What was reported as unraisable: the printed text, and (name, type, str of the value)
    of each report where the interpreter has sys.unraisablehook."""

    def __init__(self):
        self.stream = io.StringIO()
        self.unraisable = []

    @property
    def text(self):
        return self.stream.getvalue()


@contextlib.contextmanager
def reports():
    found = Reports()
    stderr = sys.stderr
    hook = getattr(sys, "unraisablehook", None)  # type: Any

    def note(unraisable):
        found.unraisable.append((unraisable.object, unraisable.exc_type, str(unraisable.exc_value)))
        hook(unraisable)

    sys.stderr = found.stream
    if hook is not None:
        sys.unraisablehook = note
    try:
        yield found
    finally:
        sys.stderr = stderr
        if hook is not None:
            sys.unraisablehook = hook
        for name in ("last_type", "last_value", "last_traceback", "last_exc"):
            if hasattr(sys, name):  # printing an exception leaves it there
                delattr(sys, name)


@contextlib.contextmanager
def warnings_ignored():
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        yield


@contextlib.contextmanager
def silence():
    """What is written to the process's standard error, and not to sys.stderr, is dropped."""
    kept = os.dup(2)
    nowhere = os.open(os.devnull, os.O_WRONLY)
    os.dup2(nowhere, 2)
    try:
        yield
    finally:
        os.dup2(kept, 2)
        os.close(kept)
        os.close(nowhere)


# --- arguments ------------------------------------------------------------------------------


class Int(object):
    """An integer by conversion only, which logs when it is converted."""

    def __init__(self, value, log=None, step=None):
        self.value, self.log, self.step = value, log, step

    def __int__(self):
        if self.log is not None:
            self.log.happens(self.step)
        return self.value


class Float(Int):
    """The same for floats."""

    def __float__(self):
        return Int.__int__(self)

    def __int__(self):
        raise AssertionError("converted as an integer")


class OnlyIndex(object):
    def __index__(self):
        return 1


class OnlyTrunc(object):
    def __trunc__(self):
        return 1


class Failure(Exception):
    """Raised by a step that is told to fail."""


class Steps(object):
    """The steps that happened, in order; raises Failure at the step with number `fail_at`."""

    def __init__(self, fail_at=None):
        self.seen = []
        self.fail_at = fail_at

    def happens(self, step):
        self.seen.append(step)
        if len(self.seen) - 1 == self.fail_at:
            raise Failure(step)


class WatchedMessage(object):
    """A message of which every use is a step."""

    def __init__(self, log, step, address):
        self._log, self._step, self._address = log, step, address

    @property
    def package_name(self):
        self._log.happens("package")
        return "demo"

    @property
    def short_name(self):
        self._log.happens("short")
        return "Counter"

    @property  # type: ignore[misc]
    def __class__(self):
        self._log.happens("class")
        return Message

    def get_ptr(self):
        self._log.happens(self._step)
        return Int(self._address, self._log, "address")


class WatchedListener(Listener):
    """A listener of which looking up __getfunc and calling it are steps."""
    log = None


def _watched_getfunc(self):
    if self.log is not None:
        self.log.happens("lookup")

    def getfunc(name):
        if self.log is not None:
            self.log.happens("call")
        return getattr(self, name)
    return getfunc


# Not in the class body, where the name would be mangled.
setattr(WatchedListener, "__getfunc", property(_watched_getfunc))


# --- values of each parameter ---------------------------------------------------------------

OBJ_ADDRESS = -(2 ** 31) + 7  # every bit counts, and negative is not special
PIVOT_ADDRESS = 2 ** 31 - 5
NUMBERS = {
    "db": -3, "flag": -17, "order": 2 ** 31 - 1, "start": -2 ** 31, "stop": -2, "pos": 11,
    "tag": -19, "level": 2 ** 32 - 1, "owner": -2 ** 63 + 5, "count": SIZE_LIMIT - 1, "min": -0.5,
    "max": float("inf"), "time": -1.5,
}
TAGS = [5, SIZE_LIMIT - 1]
SCORES = [2.5, float("-inf")]
SECONDS, MICROSECONDS = -1, -500000


def values(row, privdata, numbers=NUMBERS):
    """A value for each parameter of a row, by name."""
    result = {}  # type: dict
    for name in row.names:
        if name == "obj":
            result[name] = Message(OBJ_ADDRESS)
        elif name == "pivot":
            result[name] = Message(PIVOT_ADDRESS)
        elif name == "privdata":
            result[name] = privdata
        elif name in ("field_tags", "fields"):
            result[name] = list(TAGS)
        elif name == "scores":
            result[name] = list(SCORES)
        elif name == "objs":
            result[name] = [Message(OBJ_ADDRESS), Message(PIVOT_ADDRESS)]
        elif name == "funcs":
            result[name] = [ignore, ignore]
        elif name == "args":
            result[name] = [privdata, privdata]
        else:
            result[name] = numbers[name]
    return result


def ignore(msg, p):
    """A function for subscriptions that nothing is delivered to."""


def watched_values(row, log):
    """The same values, each use of which is a step."""
    result = values(row, None)
    for name, value in result.items():
        if name in ("obj", "pivot"):
            result[name] = WatchedMessage(log, name, value.address)
        elif name == "objs":
            result[name] = [WatchedMessage(log, "objs[%d]" % i, message.address)
                            for i, message in enumerate(value)]
        elif name in cases.KINDS:
            kind = Float if cases.KINDS[name] == cases.DOUBLE else Int
            result[name] = kind(value, log, name)
        elif name in cases.LISTS_OF and cases.LISTS_OF[name] is not None:
            kind = Float if cases.LISTS_OF[name] == cases.DOUBLE else Int
            result[name] = [kind(element, log, "%s[%d]" % (name, i))
                            for i, element in enumerate(value)]
    return result


def positional(row, arguments):
    return [arguments[name] for name in row.names]


# --- the base class -------------------------------------------------------------------------


def give_back_contexts(test, p, count):
    """Finds the contexts that were kept with p, and gives back the one reference of each."""
    if count == 0:
        return
    found = [id(thing) for thing in gc.get_objects()
             if type(thing) is dict and "cb" in thing and thing.get("p") is p]
    test.assertEqual(len(found), count)
    for context in found:
        test.take_back(context)


class Made(object):
    """A context made by a test. Only the reference of the store keeps it."""

    def __init__(self, keys):
        token = Privdata()
        self.alive = weakref.ref(token)
        self.seen = []
        context = dict(keys, token=token)
        self.address = recorder.keep(context)


class Callbacks(object):
    """The addresses of the three callbacks, found out once."""

    def __init__(self):
        client = Listener(vu_global.VuGlobal(HANDLE))
        self.wrap = self._of(client.get, 0, Message(), None)
        self.scan = self._of(client.scan, 0, Message(), 0, None)
        self.sub = self._of(client.subscribe, 0, Message(), 0, None)

    @staticmethod
    def _of(method, *arguments):
        recorder.clear()
        recorder.answer(0)
        method(*arguments)
        sent = dict(recorder.calls()[0].arguments)
        recorder.give_back(sent["context"])
        recorder.clear()
        return sent["callback"]


CALLBACKS = None


def callbacks():
    global CALLBACKS
    if CALLBACKS is None:
        CALLBACKS = Callbacks()
    return CALLBACKS


# Only a debug interpreter has it.
COUNTS_REFERENCES = hasattr(sys, "gettotalrefcount")


_settling = []  # what measuring itself adds to the total


def changes_of_references(action, repeats=3):
    """By how much each of some repeats of an action changes the total of references, once it
    has settled."""
    def measure(measured):
        changes = []
        for _ in range(repeats + 2):
            before = sys.gettotalrefcount()
            measured()
            gc.collect()
            changes.append(sys.gettotalrefcount() - before)
        return changes[2:]

    if not _settling:
        _settling.append(sorted(measure(lambda: None))[repeats // 2])
    return [change - _settling[0] for change in measure(action)]


@contextlib.contextmanager
def _nothing():
    yield


class BindingTest(unittest.TestCase):
    """Has a listening client `self.client`, its VuGlobal `self.glb`, a message `self.obj` and a
    privdata `self.p`.

    After each test: no block of the module's is left allocated and nothing was freed wrongly,
    unless the test took note of it. Where the interpreter counts references, each test runs
    several times more, and must leave their total unchanged; references that commands keep on
    purpose are given back by the test, each exactly once, which counts them.
    """

    repeats = True
    _repeating = False
    client_class = Listener  # type: Any
    client = glb = obj = p = None  # type: Any

    def setUp(self):
        recorder.clear()
        recorder.free_blocks()
        recorder.fail_allocation(0)
        recorder.answer(0)
        self.assertGreaterEqual(WATCHED, 2, "malloc and free of vu_mom.so")
        self.callbacks = callbacks()
        recorder.clear()
        self.glb = vu_global.VuGlobal(HANDLE)
        self.client = self.client_class(self.glb)
        self.glb.apps[:] = []
        self.obj = Message()
        self.p = Privdata()

    def tearDown(self):
        live = recorder.live_blocks()
        wrong = recorder.wrong_frees()
        recorder.clear()
        recorder.free_blocks()
        recorder.fail_allocation(0)
        vu_mom_common.failures.clear()
        self.client = self.glb = self.obj = self.p = None
        self.assertEqual((live, wrong), (0, 0), "blocks left, wrong frees")

    def run(self, result=None):
        result = result if result is not None else self.defaultTestResult()
        bad = len(result.failures) + len(result.errors) + len(result.skipped)
        super(BindingTest, self).run(result)
        if (not COUNTS_REFERENCES or not self.repeats or result.shouldStop
                or bad != len(result.failures) + len(result.errors) + len(result.skipped)):
            return result
        try:
            self._repeating = True
            changes = self._changes_over_repeats()
        except Exception:
            result.addError(self, sys.exc_info())
            return result
        if sorted(changes)[len(changes) // 2] != 0:
            try:
                self.fail("each repeat of the test leaves something behind: %s" % changes)
            except self.failureException:
                result.addFailure(self, sys.exc_info())
        return result

    def subTest(self, *args, **kwargs):
        if self._repeating:  # outside unittest's run, which some versions refuse
            return _nothing()
        return super(BindingTest, self).subTest(*args, **kwargs)

    def _changes_over_repeats(self):
        return changes_of_references(self._repeat)

    def _repeat(self):
        self.setUp()
        try:
            getattr(self, self._testMethodName)()
        finally:
            self.tearDown()

    # Calls of the library.

    def only_call(self):
        found = recorder.calls()
        self.assertEqual(len(found), 1, found)
        return found[0]

    def only_arguments(self):
        return dict(self.only_call().arguments)

    def assert_nothing_sent(self):
        self.assertEqual(recorder.calls(), [])

    def sent_context(self):
        """The address of the context of the only call."""
        context = self.only_arguments()["context"]
        self.assertIsNotNone(context)
        return context

    # Errors.

    @contextlib.contextmanager
    def refuses(self, error_class, text=None, frames=None):
        """The block raises exactly error_class with this text through these functions."""
        try:
            yield
        except Exception as error:
            self.assertIs(type(error), error_class, repr(error))
            if text is not None:
                self.assertEqual(str(error), text)
            if frames is not None:
                self.assertEqual(binding_frames(error), ["vu_mom." + name for name in frames])
            error.__traceback__ = None
        else:
            self.fail("%s not raised" % error_class.__name__)

    def assert_reported(self, found, function, error_class, text=""):
        """Exactly one report: printed with its traceback, and unraisable under the name."""
        name = "vu_mom." + function
        if found.unraisable or hasattr(sys, "unraisablehook"):
            self.assertEqual(found.unraisable, [(name, error_class, text)])
        self.assertIn("Traceback (most recent call last):\n", found.text)
        self.assertRegex(found.text, r'File "vu_mom", line \d+, in ' + name + "\n")
        shown = error_class.__name__
        if error_class.__module__ != "builtins":
            shown = error_class.__module__ + "." + shown
        line = shown + (": " + text if text else "") + "\n"
        lines = found.text.splitlines(True)
        self.assertIn(line, lines)
        ignored = [i for i, at in enumerate(lines) if at.startswith("Exception ignored in")]
        self.assertEqual(len(ignored), 1, found.text)
        self.assertIn(name, lines[ignored[0]])
        # Once with the traceback, before the report, and once in the report.
        self.assertLess(lines.index(line), ignored[0])
        self.assertIn(shown, "".join(lines[ignored[0]:]))

    # Contexts.

    def extra_references(self, context):
        """How many references to the context at an address the store has: one, normally."""
        found = recorder.object_at(context)
        own = {}
        return sys.getrefcount(found) - sys.getrefcount(own)

    def take_back(self, context):
        """Gives back the one reference that was kept, and proves that it was the last."""
        self.assertEqual(self.extra_references(context), 1)
        recorder.give_back(context)

    def made(self, **keys):
        """A context with a cb that only notes what it is called with."""
        context = Made(keys)
        content = recorder.object_at(context.address)
        content.setdefault("p", "private")
        seen = context.seen
        content.setdefault("cb", lambda *arguments: seen.append(arguments))
        return context

    def references(self, made):
        """The references to a context that a test made; it is freed where there are none."""
        return 0 if made.alive() is None else self.extra_references(made.address)

    def take_back_made(self, made):
        self.assertEqual(self.references(made), 1)
        recorder.give_back(made.address)
        self.assertIsNone(made.alive())

    def assert_quiet(self, found):
        self.assertEqual((found.text, found.unraisable), ("", []))

    def record(self, type_code=0, data=0, end_mark=0):
        return recorder.Reply(type_code=type_code, data=data, unread=0xABABABAB, end_mark=end_mark)

    def reply(self, context, data=0, end_mark=0, type_code=0, first=0x77):
        """Delivers a reply through wrap; nothing may be reported."""
        record = self.record(type_code, data, end_mark)
        with reports() as found:
            recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context, first)
        self.assertEqual(found.text, "")
        return record


def run_python(source, environment=None):
    """Runs source in a fresh interpreter of the same kind; returns (status, output, errors)."""
    environ = dict(os.environ)
    environ.update(environment or {})
    child = subprocess.Popen(
        [sys.executable, "-c", source], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environ,
        universal_newlines=True)
    output, errors = child.communicate()
    return child.returncode, output, errors
