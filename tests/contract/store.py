"""The store as the contract suite sees it: fresh handles, clients that record, time by hand.

A test opens clients with `store.open()`, calls their commands, and lets `store.drive()` run
the event loop until nothing is left to deliver. Nothing sleeps: where time has to pass,
`store.advance(seconds)` moves the store's clock.

Two things hold in every test, without its asking: nothing is delivered from inside a
command, and every accepted request is completed exactly once (see Inbox and Store.finish).
"""

import collections
import contextlib
import functools
import gc
import sys
import weakref

import vu_global
import vu_mom
import vu_thread

END_MARKS = {
    "scan": 1,
    "scan_index": 1,
    "pexpire": 2,
    "del_expire": 3,
    "pexpire_field": 4,
    "pexpire_fields": 4,
    "pdel": 5,
}
ONE_REPLY = (
    "get incr setnx hmget hgetall lpop rpop llen lset linsert lrange smembers scard sismember "
    "zcard zrank zscore zcount zrange zrangebyscore"
).split()
NO_REPLY = (
    "set setow delow delete setnx_noreply hmset hmsetnx hmupdate lpush rpush lrem sadd srem "
    "zadd zrem zremrangebyscore zremrangebyrank publish"
).split()
SUBSCRIBING = "subscribe unsubscribe subscribe_field unsubscribe_field".split()
COMMANDS = ONE_REPLY + NO_REPLY + SUBSCRIBING + list(END_MARKS)
assert len(COMMANDS) == 47 + 2, len(COMMANDS)

SUBSCRIPTION_ENDED = 28

# One delivery: the reply method's prefix without "on_", the message class's name, what it got.
Arrival = collections.namedtuple("Arrival", "method type msg p")


class Inbox(list):
    """What arrived for one request or subscription, in order. Given to it as privdata.

    `last` tells which message completes the request.
    """

    def __init__(self, what, last):
        super().__init__()
        self.what = what
        self.last = last
        self.completed = False

    # Identity: messages never become part of a key.
    __hash__ = object.__hash__  # type: ignore[assignment]

    def __repr__(self):
        return "<%s: %s>" % (self.what, list.__repr__(self))

    def receive(self, msg):
        assert not self.completed, "%s: more after its end: %r" % (self.what, msg)
        self.append(msg)
        self.completed = bool(self.last(msg))

    def take(self):
        """What has arrived since the last take."""
        taken = list(self)
        self.clear()
        return taken


def _last_reply_of(command):
    if command in END_MARKS:
        return lambda msg: msg.end == END_MARKS[command]
    return lambda msg: True


def _is_end_of_subscription(msg):
    return msg.type_code == SUBSCRIPTION_ENDED


class Client(vu_mom.VuMom):
    """A client on a handle of its own. Every command is VuMom's, watched for deliveries
    inside the call; every reply method records."""

    def __init__(self, store, handle):
        self.store = store
        self.handle = handle
        self.log = []
        store.clients.add(self)
        super().__init__(handle)

    def __getattr__(self, name):
        if not name.startswith("on_"):
            raise AttributeError(name)
        _, method, _, kind = name.split("_", 3)
        return functools.partial(self._record, method, kind)

    def _record(self, method, kind, msg, p):
        self.store.note_delivery(method)
        self.log.append(Arrival(method, kind, msg, p))
        if isinstance(p, Inbox):
            p.receive(msg)

    # ---- A request and what it brings ------------------------------------------------

    def send(self, command, *args):
        """Sends a command that has replies; the inbox fills when the loop is driven."""
        inbox = self.store.inbox(command, _last_reply_of(command))
        getattr(self, command)(*args, inbox)
        return inbox

    def ask(self, command, *args):
        """The one reply to a command, whatever its status."""
        inbox = self.send(command, *args)
        self.store.drive()
        [msg] = inbox
        return msg

    def value(self, command, *args):
        """The result of a command that succeeds."""
        msg = self.ask(command, *args)
        assert (msg.status, msg.error) == (0, ""), msg
        return msg.result

    def number(self, command, *args):
        """The number that a command succeeds with."""
        return self.value(command, *args).value

    def failure(self, command, *args):
        """Asserts that a command fails in its reply, with no data. Returns the status."""
        msg = self.ask(command, *args)
        assert msg.result is None, msg
        assert msg.status < 0, msg
        assert msg.error, msg
        return msg.status

    def replies(self, command, *args):
        """The replies to a command on a level: those before the last, and the last."""
        inbox = self.send(command, *args)
        self.store.drive()
        assert inbox and inbox.completed, inbox
        assert all(msg.status == 0 for msg in inbox), inbox
        assert all(msg.end == 0 for msg in inbox[:-1]), inbox
        return inbox[:-1], inbox[-1]

    def acted_on(self, command, *args):
        """The keys of the objects that a command on a level acted on, sorted."""
        each, last = self.replies(command, *args)
        assert last.count == len(each), last
        assert last.result is None
        keys = sorted(msg.key for msg in each)
        assert len(set(keys)) == len(keys), keys
        return keys

    def scanned(self, db, obj, level, command="scan"):
        """What a scan finds: {key: (type code, result)}."""
        each, last = self.replies(command, db, obj, level)
        assert (last.type_code, last.result) == (0, None)
        found = {msg.key: (msg.type_code, msg.result) for msg in each}
        assert last.count == len(found)
        assert len(each) == len(found), "an object came twice though nothing changed"
        return found

    # ---- Subscriptions ---------------------------------------------------------------

    def watch(self, db, obj, level):
        """Subscribes; the inbox collects the events."""
        inbox = self.store.inbox("subscribe", _is_end_of_subscription)
        self.subscribe(db, obj, level, inbox)
        return inbox

    def watch_fields(self, db, obj, level, fields):
        """Subscribes to fields; one inbox for each."""
        inboxes = [
            self.store.inbox("subscribe_field %d" % field, _is_end_of_subscription)
            for field in fields
        ]
        kind = obj.short_name
        funcs = [functools.partial(self._record, "subscribe_field", kind) for _ in fields]
        self.subscribe_field(db, obj, level, list(fields), funcs, inboxes)
        return inboxes


def _watched(command):
    plain = getattr(vu_mom.VuMom, command)

    def call(self, *args, **keywords):
        with self.store.inside_a_command():
            return plain(self, *args, **keywords)

    call.__name__ = command
    return call


for _command in COMMANDS:
    setattr(Client, _command, _watched(_command))


class Store:
    """A store that nobody has used, and an event loop to drive its handles.

    Its clock stands still unless `clock_runs`: then what needs no time goes the ways that it
    goes outside of tests.
    """

    def __init__(self, engine, clock_runs=False):
        self.engine = engine
        self.clock_runs = clock_runs
        self.address = engine.fresh_store()
        self.loop = vu_thread.VuThreadMaster()
        self.handles = []
        self.clients = weakref.WeakSet()
        self.beacons = {}  # of the engine
        self.deliveries = 0
        self._commands = 0  # how many are under way
        self._activity = 0
        self._time_moved = False  # since the last drive
        self._inboxes = []
        self._unraisable = []
        self._trouble = []

    def open(self, address=None):
        """A client on a new handle."""
        handle = vu_global.VuGlobal(thread_master=self.loop, store=address or self.address)
        self.handles.append(handle)
        if not self.clock_runs:
            handle._advance_clock(0)
        return Client(self, handle)

    def turn(self):
        """Runs one turn of the loop; returns whether there was anything to do."""
        with self._listening():
            return self.engine.turn(self)

    def turn_until(self, condition):
        """Runs turns until `condition()` holds."""
        while not condition():
            assert self.turn(), "nothing is left to do"

    def drive(self):
        """Runs the loop until nothing is left to deliver."""
        with self._listening():
            self.engine.drive(self)
        self._time_moved = False

    def advance(self, seconds):
        """Moves the store's clock. What is due is delivered by the next drive."""
        self._time_moved = True
        self.handles[0]._advance_clock(seconds)

    def activity(self):
        """A number that grows with everything of which more may come."""
        return self._activity

    def is_scanning(self):
        """Whether a scan has not ended: it asks again and again, and may find nothing meanwhile."""
        return any(
            inbox.what.startswith("scan") and not inbox.completed
            for inbox in self._living_inboxes()
        )

    def inbox(self, what, last):
        inbox = Inbox(what, last)
        self._inboxes.append(weakref.ref(inbox))
        return inbox

    @contextlib.contextmanager
    def inside_a_command(self):
        self._commands += 1
        self._activity += 1
        try:
            with self._listening():
                yield
        finally:
            self._commands -= 1

    @contextlib.contextmanager
    def _listening(self):
        """Collects what no exception can tell: errors of reply methods."""
        outer = sys.unraisablehook
        sys.unraisablehook = self._unraisable.append
        try:
            yield
        finally:
            sys.unraisablehook = outer

    def note_delivery(self, method):
        self.deliveries += 1
        if self._time_moved or method.startswith("scan"):
            self._activity += 1
        if self._commands:
            self._trouble.append("something was delivered inside a command")

    def unraisable(self):
        """The errors of reply methods so far, which then do not fail the test."""
        errors = [(entry.exc_type, str(entry.exc_value)) for entry in self._unraisable]
        self._unraisable.clear()
        return errors

    def finish(self):
        """Closes all handles: everything accepted has completed then, and nothing holds on
        to what it was given."""
        for handle in self.handles:
            handle.close()
        self.drive()
        self.engine.close(self)
        assert not self._trouble, self._trouble
        assert not self._unraisable, self.unraisable()
        self.handles.clear()
        for client in self.clients:
            client.log.clear()
        left = [inbox for inbox in self._living_inboxes() if not inbox.completed]
        assert not left, "never completed: %r" % left
        del left
        if self._living_inboxes():
            gc.collect()
        held = self._living_inboxes()
        assert not held, "still held after its end: %r" % held

    def _living_inboxes(self):
        return [inbox() for inbox in self._inboxes if inbox() is not None]
