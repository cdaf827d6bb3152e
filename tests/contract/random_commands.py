"""Random commands of all families, on few objects with odd keys, in batches."""

import collections
import random

import contract_vu

STRINGS = ["", "a", "a/b", "a%2Fb", "%", "ä€", "\0", "x" * 70, "{a}", "a:b!meta", " \r\n"]
NUMBERS = [0, 1, -1, 2**31 - 1, -(2**31), 17]
SCORES = [0.0, -0.0, 1.0, -1.5, 1e300, 0.1, float("inf"), float("-inf")]
LIFETIMES = [-1, 0, 0.000001, 1, 1, 2.5, 60]
LEVELS = [0, 1, 2, 3, 3, 3, 3, 99]
HANDLES = 3
DATABASES = 2

# Names of commands and how often each is drawn.
WEIGHTS = collections.Counter(
    "get get get set set set setnx setnx_noreply incr incr delete publish publish setow setow delow "
    "set_flag hmset hmset hmset hmsetnx hmupdate hmget hgetall "
    "lpush lpush rpush rpush lpop rpop llen lset lrem linsert linsert lrange "
    "sadd sadd sadd srem smembers scard sismember "
    "zadd zadd zadd zrem zcard zrank zscore zcount zrange zrangebyscore "
    "zremrangebyscore zremrangebyrank "
    "pexpire pexpire pexpire_field pexpire_fields pexpire_fields del_expire pdel "
    "scan scan_index subscribe subscribe_field unsubscribe unsubscribe_field "
    "advance advance close".split()
)


def one_of(rng, some):
    return some[rng.randrange(len(some))]


class Maker:
    """Messages that often name the same few objects, one of them for each family."""

    def __init__(self, rng, lifetimes):
        self.rng = rng
        self.lifetimes = lifetimes

    def key(self, family):
        rng = self.rng
        if rng.random() < 0.7:
            return dict(site="s%d" % family, rack=1, slot=rng.randrange(2))
        site, rack = one_of(rng, STRINGS + ["s0", "s1"]), rng.randrange(3)
        return dict(site=site, rack=rack, slot=one_of(rng, NUMBERS))

    def carried(self):
        rng = self.rng
        choices = {
            "name": lambda: one_of(rng, STRINGS),
            "speed": lambda: one_of(rng, [0, 1, 2**63, 2**64 - 1]),
            "up": lambda: rng.random() < 0.5,
            "hits": lambda: one_of(rng, NUMBERS),
            "lanes": lambda: [one_of(rng, NUMBERS) for _ in range(rng.randrange(4))],
            "note": lambda: one_of(rng, STRINGS),
        }
        return {name: make() for name, make in choices.items() if rng.random() < 0.35}

    def port(self, family):
        return contract_vu.Port(**self.key(family), **self.carried())

    def other(self):
        """A message of another type, by chance one that counts or has odd keys."""
        rng = self.rng
        kind = rng.randrange(8)
        text = one_of(rng, STRINGS)
        if kind == 0:
            return contract_vu.Settings(mode=text, starts=one_of(rng, [0, 2**32 - 1, 5]))
        if kind == 1:
            return contract_vu.ByString(id=one_of(rng, STRINGS), text=text)
        if kind == 2:
            raw = one_of(rng, [b"", b"\0", b"\xff\xfe", b"a/b"])
            return contract_vu.Mixed(text=text, raw=raw, word=text, colour=rng.choice([0, 1, 5]))
        if kind == 3:
            return contract_vu.ByInt(id=one_of(rng, [0, -1, 2**63 - 1, -(2**63)]), text=text)
        if kind == 4:
            return contract_vu.ByUnsigned(id=one_of(rng, [0, 2**64 - 1]), text=text)
        if kind == 5:
            return contract_vu.CountInt64(value=one_of(rng, [0, -1, 2**63 - 2, -(2**53)]))
        if kind == 6:
            return contract_vu.CountUint64(value=one_of(rng, [0, 2**53, 2**63 - 1, 2**64 - 1]))
        return contract_vu.CountInt32(value=one_of(rng, [0, -1, 2**31 - 2]), text=text)

    def message(self, family):
        return self.port(family) if self.rng.random() < 0.85 else self.other()

    def same_object(self, message):
        """Another message of its object."""
        other = type(message)()
        other.CopyFrom(message)
        if isinstance(message, contract_vu.Port):
            for name, value in self.carried().items():
                if name == "lanes":
                    other.lanes[:] = value
                else:
                    setattr(other, name, value)
        return other

    def fields(self, message):
        numbers = [field for field in range(1, 11) if isinstance(message, contract_vu.Port)] or [1]
        return sorted(self.rng.sample(numbers, self.rng.randint(1, min(3, len(numbers)))))


def family_of(command):
    for family, beginnings in enumerate((("h",), ("l", "rp"), ("s",), ("z",))):
        if command in ("set", "setnx", "setow", "set_flag", "setnx_noreply"):
            return 4
        if command.startswith(beginnings):
            return family
    return 4


def arguments(maker, command):
    """What follows the database: the message and the rest."""
    rng = maker.rng
    message = maker.message(family_of(command))
    if command in ("subscribe", "unsubscribe", "pdel", "del_expire", "scan", "scan_index"):
        return (message, one_of(rng, LEVELS))
    if command == "pexpire":
        return (message, one_of(rng, LEVELS), one_of(rng, maker.lifetimes))
    if command in ("pexpire_field", "pexpire_fields"):
        fields = maker.fields(message)
        if command == "pexpire_field":
            fields = fields[0]
        return (message, one_of(rng, LEVELS), fields, one_of(rng, maker.lifetimes))
    if command in ("subscribe_field", "unsubscribe_field"):
        return (message, one_of(rng, LEVELS), maker.fields(message))
    if command == "set_flag":
        return (message, rng.randrange(4))
    if command == "incr":
        countable = "hits value starts".split()
        while not any(hasattr(message, name) for name in countable):
            message = maker.message(4)
        return (message,)
    if command in ("setow", "delow"):
        return (message, one_of(rng, [0, 7, -(2**63)]))
    if command in ("hmset", "hmsetnx", "hmupdate", "hmget"):
        return (message, maker.fields(message) if rng.random() < 0.8 else None)
    if command == "lset":
        return (message, rng.randint(-3, 3))
    if command == "lrem":
        return (message, rng.randrange(3))
    if command == "linsert":
        return (message, maker.same_object(message), rng.randrange(2))
    if command in ("lrange", "zrange", "zremrangebyrank"):
        return (message, rng.randint(-4, 4), rng.randint(-4, 4))
    if command in ("zcount", "zrangebyscore", "zremrangebyscore"):
        return (message, one_of(rng, SCORES), one_of(rng, SCORES))
    if command in ("zadd", "zrem"):
        members = [message] + [maker.same_object(message) for _ in range(rng.randrange(4))]
        scores = [one_of(rng, SCORES) for _ in members]
        return (scores, members) if command == "zadd" else (members,)
    return (message,)


def batches(seed, leave_out=(), lifetimes=LIFETIMES):
    """Lists of steps, for ever: handle, command, database, arguments."""
    rng = random.Random(seed)
    maker = Maker(rng, lifetimes)
    names, weights = zip(*sorted(item for item in WEIGHTS.items() if item[0] not in leave_out))
    while True:
        batch = []
        for _ in range(rng.choice([1, 5, 20, 80])):
            [command] = rng.choices(names, weights)
            if command == "advance":
                args = (one_of(rng, [0.000001, 1, 1, 2.5, 60]),)
            else:
                args = () if command == "close" else arguments(maker, command)
            db = DATABASES - 1 if rng.random() < 0.1 else 0
            batch.append((rng.randrange(HANDLES), command, db, args))
        yield batch
