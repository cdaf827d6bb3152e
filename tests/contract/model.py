"""The store as a plain Python program: what every command does, replies and reports.

Objects are dictionaries, time is an integer that somebody sets, and nothing waits: a
command returns its reply, and what subscriptions hear is appended to their `events`.
"""

import dataclasses
import math

# What a scan calls the kinds, and a reply or event the contents.
SINGLE, HASH, LIST, SET, SORTED = 1, 4, 10, 18, 39

FAILED = "failed"  # a reply with no data and an error
ENDED = (28, 0, None, None)


@dataclasses.dataclass(frozen=True)
class Type:
    """What the store knows of a message type. `keys` are field numbers by position."""

    name: str
    numbers: tuple
    keys: tuple = ()
    defaults: tuple = ()  # of the key fields
    counter: int = 0
    counter_max: int = 0


@dataclasses.dataclass(frozen=True)
class Message:
    """The fields that a message carries, as pairs of number and value, ascending."""

    type: Type
    fields: tuple
    data: bytes = dataclasses.field(default=b"", compare=False)  # its serialisation

    @property
    def key(self):
        carried = dict(self.fields)
        return tuple(
            carried.get(number, default)
            for number, default in zip(self.type.keys, self.type.defaults)
        )


def message(type, key, carried):
    """A message of these fields that names an object of this key."""
    carried = dict(carried)
    for number, component, default in zip(type.keys, key, type.defaults):
        if component != default:
            carried[number] = component
    return Message(type, tuple(sorted(carried.items())))


class Object:
    def __init__(self, kind, content):
        self.kind = kind
        self.content = content
        self.owner = None
        self.ends = math.inf
        self.field_ends = {}


class Subscription:
    """`events` are (type code, field, key, content)."""

    def __init__(self, handle, db, type, prefix, field):
        self.handle = handle
        self.watches = (db, type, prefix, field)
        self.events = []


class WrongKind(Exception):
    pass


def _replying(command):
    """A command on another kind of object fails, having done nothing."""

    def run(self, *args):
        try:
            return command(self, *args)
        except WrongKind:
            return FAILED

    return run


def _part(sequence, start, stop):
    size = len(sequence)
    start = max(start + size if start < 0 else start, 0)
    stop = stop + size if stop < 0 else stop
    return sequence[start : max(stop + 1, start)]


class Model:
    def __init__(self):
        self.now = 0
        self.objects = {}
        self.subscriptions = []

    # ---- Finding and telling -----------------------------------------------------------

    def _find(self, db, msg, kind):
        found = self.objects.get((db, msg.type, msg.key))
        if found is not None and found.kind != kind:
            raise WrongKind
        return found

    def _put(self, db, msg, kind, content):
        made = self.objects[db, msg.type, msg.key] = Object(kind, content)
        return made

    def _tell(self, place, code, content, field=0):
        db, type, key = place
        for subscription in self.subscriptions:
            watched_db, watched_type, prefix, watched_field = subscription.watches
            if (watched_db, watched_type, watched_field) != (db, type, field):
                continue
            if key[: len(prefix)] == prefix:
                subscription.events.append((code, field, key, content))

    def _tell_gone(self, place, gone, code):
        self._tell(place, code, None)
        for number in place[1].numbers:
            if self._carries(place, gone, number):
                self._tell(place, code, None, number)

    def _carries(self, place, found, number):
        if found.kind == SINGLE:
            return number in found.content or number in place[1].keys
        return found.kind == HASH and number in found.content

    def _remove(self, place, code):
        self._tell_gone(place, self.objects.pop(place), code)

    def _matching(self, db, msg, level):
        prefix = msg.key[:level]
        return sorted(
            place
            for place in self.objects
            if place[:2] == (db, msg.type) and place[2][: len(prefix)] == prefix
        )

    # ---- Time --------------------------------------------------------------------------

    def advance(self, microseconds):
        self.now += microseconds
        for place, found in sorted(self.objects.items(), key=lambda item: repr(item[0])):
            due = [(end, 0, number) for number, end in found.field_ends.items()]
            due.append((found.ends, 1, 0))
            for end, is_object, number in sorted(due):
                if end > self.now:
                    break
                if is_object:
                    self._remove(place, 0)
                else:
                    self._expire_field(place, found, number)
                if place not in self.objects:
                    break

    def _expire_field(self, place, found, number):
        self._tell(place, 0, None, number)
        # Those who watch the whole object learn the field, too.
        for subscription in self.subscriptions:
            db, type, prefix, field = subscription.watches
            if (db, type) == place[:2] and field == 0 and place[2][: len(prefix)] == prefix:
                subscription.events.append((0, number, place[2], None))
        del found.content[number]
        found.field_ends.pop(number, None)
        if not found.content:
            del self.objects[place]

    # ---- Single values -----------------------------------------------------------------

    def _store(self, db, msg, carried, code, quiet=False, fields=None):
        place = (db, msg.type, msg.key)
        found = self.objects.get(place)
        old = found.content if found else {}
        if found is None:
            found = self._put(db, msg, SINGLE, None)
        found.content = dict(carried)
        if quiet:
            return found
        self._tell(place, code, message(*place[1:], carried))
        for number in msg.type.numbers if fields is None else fields:
            if number in carried or number in msg.type.keys:
                one = {number: carried[number]} if number in carried else {}
                self._tell(place, code, message(*place[1:], one), number)
            elif number in old:
                self._tell(place, 29, None, number)
        return found

    @_replying
    def get(self, db, msg):
        found = self._find(db, msg, SINGLE)
        return found and message(msg.type, msg.key, found.content)

    @_replying
    def set(self, db, msg, flag=0):
        self._find(db, msg, SINGLE)
        found = self._store(db, msg, dict(msg.fields), 1, flag & 1)
        if not flag & 2:
            found.ends = math.inf

    @_replying
    def setow(self, db, msg, owner, flag=0):
        found = self._find(db, msg, SINGLE)
        if found and found.owner not in (None, owner):
            return FAILED
        self.set(db, msg, flag)
        self._find(db, msg, SINGLE).owner = owner

    @_replying
    def setnx(self, db, msg):
        if self._find(db, msg, SINGLE):
            return False
        self._store(db, msg, dict(msg.fields), 1)
        return True

    setnx_noreply = setnx

    @_replying
    def incr(self, db, msg):
        found = self._find(db, msg, SINGLE)
        counter = msg.type.counter
        carried = dict(found.content if found else msg.fields)
        count = (carried.get(counter, 0) if found else 0) + 1
        if count > msg.type.counter_max:
            return FAILED
        carried[counter] = count
        self._store(db, msg, carried, 3, fields=[counter] if found else None)
        return count

    def delete(self, db, msg):
        place = (db, msg.type, msg.key)
        if place in self.objects:
            self._remove(place, 29)

    def delow(self, db, msg, owner, flag=0):
        place = (db, msg.type, msg.key)
        found = self.objects.get(place)
        if found is None or found.owner != owner:
            return
        if flag & 1:
            del self.objects[place]
        else:
            self._remove(place, 29)

    # ---- Hashes ------------------------------------------------------------------------

    def _write_fields(self, code, db, msg, tags, found):
        place = (db, msg.type, msg.key)
        carried = dict(msg.fields)
        named = sorted(set(tags or carried))
        old = found.content if found else {}
        if not any(number in carried or number in old for number in named):
            return
        written = {number: carried[number] for number in named if number in carried}
        self._tell(place, code, ("hash", message(*place[1:], written), tuple(named)))
        for number in named:
            if number in carried:
                one = message(*place[1:], {number: carried[number]})
                self._tell(place, code, ("hash", one, (number,)), number)
            elif number in old:
                self._tell(place, 29, None, number)
        if found is None:
            found = self._put(db, msg, HASH, {})
        for number in named:
            found.field_ends.pop(number, None)
            found.content.pop(number, None)
        found.content.update(written)
        if not found.content:
            del self.objects[place]
        elif code == 4 and not tags:
            found.ends = math.inf

    @_replying
    def hmset(self, db, msg, tags):
        self._write_fields(4, db, msg, tags, self._find(db, msg, HASH))

    @_replying
    def hmsetnx(self, db, msg, tags):
        found = self._find(db, msg, HASH)
        if not found or not any(number in found.content for number in tags or dict(msg.fields)):
            self._write_fields(6, db, msg, tags, found)

    @_replying
    def hmupdate(self, db, msg, tags):
        found = self._find(db, msg, HASH)
        if found:
            self._write_fields(9, db, msg, tags, found)

    @_replying
    def hmget(self, db, msg, tags):
        found = self._find(db, msg, HASH)
        if found is None:
            return None
        named = sorted(set(tags or found.content))
        there = {number: found.content[number] for number in named if number in found.content}
        return ("hash", message(msg.type, msg.key, there), tuple(named))

    def hgetall(self, db, msg):
        return self.hmget(db, msg, None)

    # ---- Lists -------------------------------------------------------------------------

    def _elements(self, db, msg):
        found = self._find(db, msg, LIST)
        return found.content if found else []

    def _tidy(self, db, msg):
        place = (db, msg.type, msg.key)
        if not self.objects[place].content:
            del self.objects[place]

    def _push(self, db, msg, code):
        found = self._find(db, msg, LIST) or self._put(db, msg, LIST, [])
        found.content.insert(0 if code == 10 else len(found.content), msg)
        self._tell((db, msg.type, msg.key), code, (msg,))

    @_replying
    def lpush(self, db, msg):
        self._push(db, msg, 10)

    @_replying
    def rpush(self, db, msg):
        self._push(db, msg, 11)

    def _pop(self, db, msg, code):
        elements = self._elements(db, msg)
        if not elements:
            return None
        popped = elements.pop(0 if code == 12 else -1)
        self._tell((db, msg.type, msg.key), code, (popped,))
        self._tidy(db, msg)
        return popped

    @_replying
    def lpop(self, db, msg):
        return self._pop(db, msg, 12)

    @_replying
    def rpop(self, db, msg):
        return self._pop(db, msg, 13)

    @_replying
    def llen(self, db, msg):
        return len(self._elements(db, msg))

    @_replying
    def lset(self, db, msg, pos):
        elements = self._elements(db, msg)
        if not -len(elements) <= pos < len(elements):
            return False
        elements[pos] = msg
        self._tell((db, msg.type, msg.key), 35, (msg,))
        return True

    @_replying
    def lrem(self, db, msg, count):
        elements = self._elements(db, msg)
        removed = elements.count(msg)
        if count:
            removed = min(removed, count)
        if not removed:
            return
        for _ in range(removed):
            elements.remove(msg)
        self._tell((db, msg.type, msg.key), 36, (msg,) * removed)
        self._tidy(db, msg)

    @_replying
    def linsert(self, db, pivot, msg, order):
        elements = self._elements(db, msg)
        if not elements:
            return 0
        if pivot not in elements:
            return -1
        elements.insert(elements.index(pivot) + order, msg)
        self._tell((db, msg.type, msg.key), 34, (msg,))
        return len(elements)

    @_replying
    def lrange(self, db, msg, start, stop):
        return tuple(_part(self._elements(db, msg), start, stop))

    # ---- Sets --------------------------------------------------------------------------

    def _members(self, db, msg):
        found = self._find(db, msg, SET)
        return found.content if found else set()

    @_replying
    def sadd(self, db, msg):
        if msg in self._members(db, msg):
            return
        (self._find(db, msg, SET) or self._put(db, msg, SET, set())).content.add(msg)
        self._tell((db, msg.type, msg.key), 18, (msg,))

    @_replying
    def srem(self, db, msg):
        members = self._members(db, msg)
        if msg in members:
            members.remove(msg)
            self._tell((db, msg.type, msg.key), 19, (msg,))
            self._tidy(db, msg)

    @_replying
    def smembers(self, db, msg):
        return frozenset(self._members(db, msg))

    @_replying
    def scard(self, db, msg):
        return len(self._members(db, msg))

    @_replying
    def sismember(self, db, msg):
        return msg in self._members(db, msg)

    # ---- Sorted sets -------------------------------------------------------------------

    def _scores(self, db, msg):
        found = self._find(db, msg, SORTED)
        return found.content if found else {}

    def _ranked(self, db, msg):
        pairs = self._scores(db, msg).items()
        return sorted(pairs, key=lambda pair: (pair[1], pair[0].data))

    @_replying
    def zadd(self, db, scores, messages):
        if not messages:
            return
        first = messages[0]
        old = self._scores(db, first)
        given = dict(zip(messages, scores))
        changed = {msg: score for msg, score in given.items() if old.get(msg) != score}
        if not changed:
            return
        found = self._find(db, first, SORTED) or self._put(db, first, SORTED, {})
        found.content.update(changed)
        self._tell((db, first.type, first.key), 39, frozenset(changed.items()))

    def _take(self, db, msg, pairs, code, unordered=False):
        if not pairs:
            return
        scores = self._scores(db, msg)
        for member, _ in pairs:
            del scores[member]
        self._tell((db, msg.type, msg.key), code, (frozenset if unordered else tuple)(pairs))
        self._tidy(db, msg)

    @_replying
    def zrem(self, db, messages):
        if not messages:
            return
        scores = self._scores(db, messages[0])
        pairs = [(msg, scores[msg]) for msg in set(messages) if msg in scores]
        self._take(db, messages[0], pairs, 40, unordered=True)

    @_replying
    def zremrangebyscore(self, db, msg, low, high):
        pairs = [pair for pair in self._ranked(db, msg) if low <= pair[1] <= high]
        self._take(db, msg, pairs, 41)

    @_replying
    def zremrangebyrank(self, db, msg, start, stop):
        self._take(db, msg, _part(self._ranked(db, msg), start, stop), 42)

    @_replying
    def zcard(self, db, msg):
        return len(self._scores(db, msg))

    @_replying
    def zrank(self, db, msg):
        members = [member for member, _ in self._ranked(db, msg)]
        return members.index(msg) if msg in members else None

    @_replying
    def zscore(self, db, msg):
        return self._scores(db, msg).get(msg)

    @_replying
    def zcount(self, db, msg, low, high):
        return sum(low <= score <= high for score in self._scores(db, msg).values())

    @_replying
    def zrange(self, db, msg, start, stop):
        return tuple(_part(self._ranked(db, msg), start, stop))

    @_replying
    def zrangebyscore(self, db, msg, low, high):
        return tuple(pair for pair in self._ranked(db, msg) if low <= pair[1] <= high)

    # ---- Levels: the keys of the objects acted on, sorted ----------------------------------

    def pdel(self, db, msg, level):
        places = self._matching(db, msg, level)
        for place in places:
            self._remove(place, 29)
        return [place[2] for place in places]

    def pexpire(self, db, msg, level, microseconds):
        places = self._matching(db, msg, level)
        for place in places:
            if microseconds <= 0:
                self._remove(place, 0)
            else:
                self.objects[place].ends = self.now + microseconds
        return [place[2] for place in places]

    def del_expire(self, db, msg, level):
        places = self._matching(db, msg, level)
        for place in places:
            self.objects[place].ends = math.inf
        return [place[2] for place in places]

    def pexpire_fields(self, db, msg, level, tags, microseconds):
        matching = self._matching(db, msg, level)
        hashes = [place for place in matching if self.objects[place].kind == HASH]
        places = [p for p in hashes if any(tag in self.objects[p].content for tag in tags)]
        if not places and len(hashes) < len(matching):
            return FAILED
        for place in places:
            found = self.objects[place]
            for number in sorted(set(tags)):
                if number not in found.content:
                    continue
                if microseconds <= 0:
                    self._expire_field(place, found, number)
                else:
                    found.field_ends[number] = self.now + microseconds
        return [place[2] for place in places]

    def scan(self, db, msg, level):
        """{key: (code, content)}"""
        return {
            place[2]: (self.objects[place].kind, self._content(place))
            for place in self._matching(db, msg, level)
        }

    def scan_index(self, db, msg, level):
        return {
            key: (37, message(type, key, {})) for _, type, key in self._matching(db, msg, level)
        }

    def _content(self, place):
        db, type, key = place
        found = self.objects[place]
        named = message(type, key, {})
        if found.kind == SINGLE:
            return message(type, key, found.content)
        if found.kind == HASH:
            return self.hgetall(db, named)
        if found.kind == LIST:
            return tuple(found.content)
        if found.kind == SET:
            return frozenset(found.content)
        return tuple(self._ranked(db, named))

    # ---- Subscriptions -------------------------------------------------------------------

    def subscribe(self, handle, db, msg, level, field=0):
        subscription = Subscription(handle, db, msg.type, msg.key[:level], field)
        self.subscriptions.append(subscription)
        return subscription

    def unsubscribe(self, handle, db, msg, level, fields=(0,)):
        for field in fields:
            self._end(
                lambda one: one.handle == handle
                and one.watches == (db, msg.type, msg.key[:level], field)
            )

    def close(self, handle):
        self._end(lambda one: one.handle == handle)

    def _end(self, ends):
        for subscription in self.subscriptions:
            if ends(subscription):
                subscription.events.append(ENDED)
        self.subscriptions = [one for one in self.subscriptions if not ends(one)]

    def publish(self, db, msg):
        self._tell((db, msg.type, msg.key), 24, Message(msg.type, msg.fields))
