"""Random commands of all families, against the model: every reply and event, in order.

The test command runs a short profile. A long one, for a change to an engine:

    VU_MACHINE_EXAMPLES=20000 VU_MACHINE_STEPS=50 PYTHONPATH=build/host/python \\
        /usr/bin/python3 -m pytest -q tests/contract/test_machine.py

VU_MACHINE_SEED picks another sequence of examples; both profiles are reproducible.
"""

import collections
import functools
import os
import platform
from typing import Any

from hypothesis import HealthCheck, Phase, seed, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, initialize, rule, run_state_machine_as_test

import contract_vu
import plain
import store as harness
from model import FAILED, Model
from plain import event

SLOW = platform.machine().startswith("arm")  # a device, or an emulator
EXAMPLES = int(os.environ.get("VU_MACHINE_EXAMPLES", "60" if SLOW else "400"))
STEPS = int(os.environ.get("VU_MACHINE_STEPS", "50"))
SEED = int(os.environ.get("VU_MACHINE_SEED", "1"))

PORTS = [("", 0, 0), ("a", 1, -1), ("a", 1, 2), ("a", 0, 2), ("b", 1, 2)]
CARRIED: list[dict[str, Any]] = [
    {},
    {"name": "x"},
    {"name": "y", "speed": 0},
    {"speed": 7, "note": "n"},
    {"hits": 3, "lanes": [1, 2], "name": "x"},
    {"note": "", "up": False, "hits": 2**31 - 1},
]
SETTINGS: list[dict[str, Any]] = [
    {}, {"mode": "m"}, {"limit": 0, "starts": 5}, {"starts": 2**32 - 1}]


def _messages():
    """Groups of messages that name one object."""
    for site, rack, slot in PORTS:
        yield [contract_vu.Port(site=site, rack=rack, slot=slot, **more) for more in CARRIED]
    yield [
        contract_vu.Settings(**more)
        for more in SETTINGS
    ]
    for name in ("", "\0", "k"):
        yield [contract_vu.ByString(id=name, text=text) for text in ("", "t")]


class Both(collections.namedtuple("Both", "real ideal")):
    """A message, and what the model calls it."""

    __slots__ = ()

    def __repr__(self):
        return repr(self.real)


GROUPS = [[Both(msg, plain.plain(msg)) for msg in group] for group in _messages()]


# Random commands rarely meet: so each family of commands has an object that it mostly
# works on, and now and then one of any other.
def _groups_of(family):
    return st.sampled_from([GROUPS[family]] * (5 * len(GROUPS)) + GROUPS)


def _messages_of(family):
    everything = [both for group in GROUPS for both in group]
    return st.sampled_from(GROUPS[family] * (4 * len(GROUPS)) + everything)


VALUES, HASHES, LISTS, SETS, SORTED_SETS = range(5)
objects_with_lifetimes = st.sampled_from(
    [group[0] for group in GROUPS[:2] * 8 + GROUPS[2:5] * 2 + GROUPS[5:]]
)
messages = st.sampled_from([both for group in GROUPS[:5] * 3 + GROUPS[5:] for both in group])
# Handle, database, and whether the loop is driven afterwards.
places = st.sampled_from(
    [
        (handle, db, drive)
        for handle in (0, 0, 1)
        for db in (0,) * 9 + (1,)
        for drive in (True, False)
    ]
)
positions = st.integers(-4, 4)
levels = st.sampled_from([0, 1, 2, 3, 3, 3, 3, 2**32 - 1])
scores = st.sampled_from([0.0, 1.0, -1.5, 2.0, float("inf"), float("-inf")])
lifetimes = st.sampled_from([-1.5, 0, 1, 1, 1, 1.5, 1.5, 3, 9])

PORT_FIELDS = [1, 2, 4, 6, 10]


def fields_of(kind, drawn):
    """Field numbers that the type has, from a mask."""
    numbers = PORT_FIELDS if kind is plain.PORT else [2] if kind is plain.BY_STRING else [1, 2, 3]
    return [number for index, number in enumerate(numbers) if drawn >> index & 1]


class StoreMachine(RuleBasedStateMachine):
    engine: Any = None  # set for the run

    @initialize()
    def open(self):
        self.store = harness.Store(self.engine)
        self.clients = [self.store.open(), self.store.open()]
        self.model = Model()
        self.waiting = [[], []]  # per handle: inbox, command, what the model replied
        self.watches = []  # inbox, the model's subscription
        self.seen = [0, 0]  # how much of each client's log has been checked
        self.swept = True
        self.agreed = True
        self.closing = None  # the handle that was closed since the last drive
        # Somebody who hears everything, and somebody who watches the fields.
        for obj in (GROUPS[0][0], GROUPS[5][0], GROUPS[6][0]):
            self.subscribe_to((1, 0, False), obj, 0)
        self.subscribe_to_fields((1, 0, False), GROUPS[0][0], 0, 31)

    def teardown(self):
        if hasattr(self, "store") and self.agreed:
            self.drive()
            for handle, client in enumerate(self.clients):
                client.handle.close()
                self.model.close(handle)
            self.drive()
            self.store.finish()

    # ---- Running both ------------------------------------------------------------------

    def drive(self):
        self.agreed = False
        self.store.drive()
        self.swept = True
        for handle, waiting in enumerate(self.waiting):
            for inbox, command, expected in waiting:
                check_replies(inbox, command, expected)
            self.check_order(handle, [inbox for inbox, _, _ in waiting])
            waiting.clear()
        self.check_events()
        self.agreed = True

    def check_order(self, handle, inboxes):
        log = self.clients[handle].log
        order = []
        for arrival in log[self.seen[handle] :]:
            if arrival.method.startswith("subscribe"):
                continue
            if not order or order[-1] is not arrival.p:
                order.append(arrival.p)
        self.seen[handle] = len(log)
        assert len(order) == len(inboxes)
        assert all(arrived is sent for arrived, sent in zip(order, inboxes))

    def check_events(self):
        """What every subscription heard: of each object in the order of its changes."""
        for inbox, subscription in self.watches:
            if len(inbox) == len(subscription.events) == 0:
                continue
            arrived = [event(msg) for msg in inbox]
            if len(arrived) != 1 or arrived != subscription.events:
                heard, told = by_object(arrived), by_object(subscription.events)
                if self.engine.is_remote and subscription.handle == self.closing:
                    # What was still on its way to the handle is not heard any more.
                    told = {key: told[key][: len(heard[key])] for key in heard}
                assert heard == told
                assert [e for e in arrived[:-1] if e[0] == 28] == []
            inbox.clear()
            subscription.events.clear()
        self.watches = [watch for watch in self.watches if not watch[0].completed]

    def both(self, place, command, real, ideal):
        """A command with one value or none."""
        handle, db, drive = place
        expected = getattr(self.model, command)(db, *ideal)
        client = self.clients[handle]
        if command in harness.NO_REPLY:
            getattr(client, command)(db, *real)
        else:
            self.waiting[handle].append((client.send(command, db, *real), command, expected))
        if drive:
            self.drive()

    # ---- Single values -------------------------------------------------------------------

    @rule(
        place=places,
        command=st.sampled_from(
            "get get set set set setnx setnx_noreply incr incr delete publish".split()
        ),
        obj=_messages_of(VALUES),
    )
    def value(self, place, command, obj):
        if command == "incr" and not obj.ideal.type.counter:
            command = "get"
        self.both(place, command, (obj.real,), (obj.ideal,))

    @rule(
        place=places,
        command=st.sampled_from(["set", "set", "setow", "setow", "delow"]),
        obj=_messages_of(VALUES),
        owner=st.integers(0, 1),
        flag=st.integers(0, 3),
    )
    def value_with_flag(self, place, command, obj, owner, flag):
        rest = (flag,) if command == "set" else (owner, flag)
        self.both(place, command, (obj.real, *rest), (obj.ideal, *rest))

    # ---- Hashes --------------------------------------------------------------------------

    @rule(
        place=places,
        command=st.sampled_from(["hmset", "hmset", "hmsetnx", "hmupdate"]),
        obj=_messages_of(HASHES),
        mask=st.integers(-10, 31),  # below 1: none named
    )
    def write_hash(self, place, command, obj, mask):
        tags = fields_of(obj.ideal.type, max(mask, 0))
        self.both(place, command, (obj.real, tags), (obj.ideal, tags))

    @rule(place=places, obj=_messages_of(HASHES), mask=st.integers(-31, 31))
    def read_hash(self, place, obj, mask):
        if mask < 0:
            return self.both(place, "hgetall", (obj.real,), (obj.ideal,))
        tags = fields_of(obj.ideal.type, mask)
        self.both(place, "hmget", (obj.real, tags), (obj.ideal, tags))

    # ---- Lists ---------------------------------------------------------------------------

    @rule(
        place=places,
        command=st.sampled_from("lpush lpush rpush rpush lpop rpop llen lrem".split()),
        obj=_messages_of(LISTS),
        count=st.integers(0, 2),
    )
    def at_the_ends(self, place, command, obj, count):
        rest = (count,) if command == "lrem" else ()
        self.both(place, command, (obj.real, *rest), (obj.ideal, *rest))

    @rule(
        place=places,
        command=st.sampled_from(["lrange", "lrange", "lset"]),
        obj=_messages_of(LISTS),
        start=positions,
        stop=positions,
    )
    def at_positions(self, place, command, obj, start, stop):
        rest = (start,) if command == "lset" else (start, stop)
        self.both(place, command, (obj.real, *rest), (obj.ideal, *rest))

    @rule(
        place=places,
        group=_groups_of(LISTS),
        pivot=st.integers(0, 5),
        obj=st.integers(0, 5),
        order=st.integers(0, 1),
    )
    def linsert(self, place, group, pivot, obj, order):
        pivot, obj = group[pivot % len(group)], group[obj % len(group)]
        self.both(
            place, "linsert", (pivot.real, obj.real, order), (pivot.ideal, obj.ideal, order)
        )

    # ---- Sets ----------------------------------------------------------------------------

    @rule(
        place=places,
        command=st.sampled_from("sadd sadd sadd srem smembers scard sismember".split()),
        obj=_messages_of(SETS),
    )
    def in_a_set(self, place, command, obj):
        self.both(place, command, (obj.real,), (obj.ideal,))

    # ---- Sorted sets ---------------------------------------------------------------------

    @rule(
        place=places,
        group=_groups_of(SORTED_SETS),
        members=st.lists(st.tuples(st.integers(0, 5), scores), min_size=1, max_size=4),
    )
    def zadd(self, place, group, members):
        chosen = [group[index % len(group)] for index, _ in members]
        given = [score for _, score in members]
        self.both(
            place,
            "zadd",
            (given, [both.real for both in chosen]),
            (given, [both.ideal for both in chosen]),
        )

    @rule(
        place=places,
        group=_groups_of(SORTED_SETS),
        members=st.lists(st.integers(0, 5), max_size=3),
    )
    def zrem(self, place, group, members):
        chosen = [group[index % len(group)] for index in members]
        self.both(
            place, "zrem", ([both.real for both in chosen],), ([both.ideal for both in chosen],)
        )

    @rule(
        place=places,
        command=st.sampled_from("zcard zrank zrank zscore zrange zrange zremrangebyrank".split()),
        obj=_messages_of(SORTED_SETS),
        start=positions,
        stop=positions,
    )
    def by_rank(self, place, command, obj, start, stop):
        rest = (start, stop) if "range" in command else ()
        self.both(place, command, (obj.real, *rest), (obj.ideal, *rest))

    @rule(
        place=places,
        command=st.sampled_from("zcount zrangebyscore zremrangebyscore".split()),
        obj=_messages_of(SORTED_SETS),
        low=scores,
        high=scores,
    )
    def by_score(self, place, command, obj, low, high):
        self.both(place, command, (obj.real, low, high), (obj.ideal, low, high))

    # ---- Levels and time -------------------------------------------------------------------

    @rule(place=places, obj=objects_with_lifetimes, level=levels, seconds=lifetimes)
    def pexpire(self, place, obj, level, seconds):
        self.both(
            place,
            "pexpire",
            (obj.real, level, seconds),
            (obj.ideal, level, int(seconds * 1000000)),
        )

    @rule(
        place=places,
        command=st.sampled_from(["del_expire", "del_expire", "pdel"]),
        obj=objects_with_lifetimes,
        level=levels,
    )
    def on_level(self, place, command, obj, level):
        self.both(place, command, (obj.real, level), (obj.ideal, level))

    @rule(
        place=places,
        obj=_messages_of(HASHES),
        level=levels,
        mask=st.integers(1, 31),
        seconds=lifetimes,
        one=st.booleans(),
    )
    def pexpire_fields(self, place, obj, level, mask, seconds, one):
        tags = fields_of(obj.ideal.type, mask) or [2]
        handle, db, drive = place
        ideal = self.model.pexpire_fields(
            db, obj.ideal, level, tags[:1] if one else tags, int(seconds * 1000000)
        )
        command = "pexpire_field" if one else "pexpire_fields"
        inbox = self.clients[handle].send(
            command, db, obj.real, level, tags[0] if one else tags, seconds
        )
        self.waiting[handle].append((inbox, command, ideal))
        if drive:
            self.drive()

    @rule(seconds=st.sampled_from([0.5, 1, 1, 1.5, 4]), drive=st.booleans())
    def time_passes(self, seconds, drive):
        self.store.advance(seconds)
        self.model.advance(int(seconds * 1000000))
        self.swept = False
        if drive:
            self.drive()

    @rule(place=places, command=st.sampled_from(["scan", "scan_index"]), obj=messages, level=levels)
    def scan(self, place, command, obj, level):
        handle, db, _ = place  # reads when it is delivered: nothing may come between
        self.both((handle, db, True), command, (obj.real, level), (obj.ideal, level))

    # ---- Subscriptions, handles ----------------------------------------------------------------

    def sweep(self):
        """Subscriptions that come or go hear what the store has noticed by then."""
        if not self.swept:
            self.drive()

    @rule(place=places, obj=messages, level=levels)
    def subscribe(self, place, obj, level):
        self.subscribe_to(place, obj, level)

    def subscribe_to(self, place, obj, level):
        self.sweep()
        handle, db, drive = place
        inbox = self.clients[handle].watch(db, obj.real, level)
        self.watches.append((inbox, self.model.subscribe(handle, db, obj.ideal, level)))
        if drive:
            self.drive()

    @rule(place=places, obj=messages, level=levels, mask=st.integers(1, 31))
    def subscribe_field(self, place, obj, level, mask):
        self.subscribe_to_fields(place, obj, level, mask)

    def subscribe_to_fields(self, place, obj, level, mask):
        self.sweep()
        handle, db, drive = place
        tags = fields_of(obj.ideal.type, mask)
        if not tags:
            return
        inboxes = self.clients[handle].watch_fields(db, obj.real, level, tags)
        for tag, inbox in zip(tags, inboxes):
            self.watches.append((inbox, self.model.subscribe(handle, db, obj.ideal, level, tag)))
        if drive:
            self.drive()

    @rule(place=places, obj=messages, level=levels, mask=st.integers(0, 31))
    def unsubscribe(self, place, obj, level, mask):
        self.sweep()
        handle, db, drive = place
        tags = fields_of(obj.ideal.type, mask)
        if tags:
            self.clients[handle].unsubscribe_field(db, obj.real, level, tags)
            self.model.unsubscribe(handle, db, obj.ideal, level, tags)
        else:
            self.clients[handle].unsubscribe(db, obj.real, level)
            self.model.unsubscribe(handle, db, obj.ideal, level)
        if drive:
            self.drive()

    @rule(handle=st.sampled_from([0, 1, None, None]))
    def close(self, handle):
        """Closes a handle, with whatever it has pending, and opens another in its place."""
        if handle is None:
            return
        self.sweep()
        self.clients[handle].handle.close()
        self.model.close(handle)
        self.waiting[handle] = [
            (inbox, command, FAILED) for inbox, command, _ in self.waiting[handle]
        ]
        self.closing = handle
        self.drive()
        self.closing = None
        self.store.handles.remove(self.clients[handle].handle)
        self.clients[handle] = self.store.open()
        self.seen[handle] = 0


def by_object(events):
    grouped = {}
    for code, field, key, content in events:
        grouped.setdefault(key, []).append((code, field, content))
    return grouped


def check_replies(inbox, command, expected):
    assert inbox.completed, inbox
    last = inbox[-1]
    end = harness.END_MARKS.get(command, 0)
    assert last.end == end
    if expected is FAILED:
        assert len(inbox) == 1, inbox
        assert last.result is None and last.status == -1 and last.error, inbox
        return
    assert all((msg.status, msg.error) == (0, "") for msg in inbox), inbox
    if not end:
        assert plain.plain(last.result) == expected, (command, inbox, expected)
        return
    assert all(msg.end == 0 for msg in inbox[:-1]), inbox
    assert last.count == len(expected) == len(inbox) - 1, (command, inbox, expected)
    if command in ("scan", "scan_index"):
        found = {msg.key: (msg.type_code, plain.plain(msg.result)) for msg in inbox[:-1]}
        assert found == expected
        assert last.type_code == 0
    else:
        assert sorted(msg.key for msg in inbox[:-1]) == expected


def test_machine(engine):
    class Machine(StoreMachine):
        pass

    Machine.engine = engine
    run = functools.partial(
        run_state_machine_as_test,
        Machine,
        settings=settings(
            max_examples=EXAMPLES // 2 if engine.is_remote else EXAMPLES,
            stateful_step_count=STEPS,
            deadline=None,
            database=None,
            print_blob=True,
            phases=(Phase.generate, Phase.shrink),
            suppress_health_check=list(HealthCheck),
        ),
    )
    seed(SEED)(run)()
