"""The peers: dicts, sqlite3 in memory, and redis-py with a server of its own.

All keep the bytes of python3-protobuf's messages and give messages back. Their keys are made
beforehand; the store reads its own from the messages.
"""

import bisect
import collections
import os
import shutil
import sqlite3
import subprocess
import tempfile
import time

import hiredis  # noqa: F401  redis-py uses it where it is there
import port_pb2
import redis
from store.work import FIELDS, LENGTH, MEMBERS, OBJECTS, PAGE, Work, content


class Dict(Work):
    """The floor: dicts of bytes, and what Python has for lists and order."""

    def __init__(self):
        super().__init__(port_pb2.Port)
        self.data = {}
        self.calls = list(zip(self.keys, self.messages))
        for key, message in self.calls:
            self.data[key] = message.SerializeToString()

    def set(self):
        data = self.data

        def do(key, message):
            data[key] = message.SerializeToString()

        return self.cycle(do, self.calls)

    def get(self):
        data, parse = self.data, port_pb2.Port.FromString
        return self.cycle(lambda key: parse(data[key]), [(key,) for key in self.keys])

    get_in_flight = get

    def incr(self):
        counters = dict.fromkeys(self.keys, 0)

        def do(key):
            counters[key] += 1

        return self.cycle(do, [(key,) for key in self.keys])

    def hmset(self):
        hashes = self.hashes = {key: {} for key in self.keys}

        def do(key, message):
            fields = hashes[key]
            for name in FIELDS:
                fields[name] = getattr(message, name)

        return self.cycle(do, self.calls)

    def hmget(self):
        self.hmset()(OBJECTS)
        hashes, Port = self.hashes, port_pb2.Port

        def do(key):
            fields = hashes[key]
            return Port(**{name: fields[name] for name in FIELDS})

        return self.cycle(do, [(key,) for key in self.keys])

    def lpush(self):
        elements = collections.deque()

        def run(repeat, push=elements.appendleft, message=self.messages[0]):
            for _ in range(repeat):
                push(message.SerializeToString())
            elements.clear()

        return run

    def lrange(self):
        elements = [self.messages[0].SerializeToString() for _ in range(LENGTH)]
        parse = port_pb2.Port.FromString

        def do(start):
            return [parse(data) for data in elements[start : start + PAGE]]

        return self.cycle(do, [(i,) for i in range(50)])

    def zset(self):
        def member(i):
            port = content(port_pb2.Port)
            port.octets = i
            return port

        return [member(i) for i in range(MEMBERS)]

    def zadd(self):
        scores, order = {}, []

        def do(message, score):
            member = message.SerializeToString()
            old = scores.get(member)
            if old is not None:
                del order[bisect.bisect_left(order, (old, member))]
            scores[member] = score
            bisect.insort(order, (score, member))

        members = self.zset()
        calls = [(m, float(i * 7919 % MEMBERS)) for i, m in enumerate(members)]
        moved = [(m, float(i * 6007 % MEMBERS)) for i, m in enumerate(members)]
        return self.cycle(do, calls + moved)

    def zrangebyscore(self):
        order = [(float(i), m.SerializeToString()) for i, m in enumerate(self.zset())]
        parse = port_pb2.Port.FromString

        def do(least, most):
            first = bisect.bisect_left(order, (least,))
            behind = bisect.bisect_right(order, (most, b"\xff"))
            return [(parse(member), score) for score, member in order[first:behind]]

        return self.cycle(do, [(float(i), float(i + PAGE - 1)) for i in range(0, 900, 7)])

    def publish(self):
        parse = port_pb2.Port.FromString
        subscribers = {self.keys[0]: [lambda data: parse(data)]}

        def do(key, message):
            data = message.SerializeToString()
            for subscriber in subscribers[key]:
                subscriber(data)

        return self.cycle(do, self.calls[:1])

    def close(self):
        pass


class Sqlite(Dict):
    """sqlite3 in memory, one statement per operation, each its own transaction."""

    def __init__(self):
        super().__init__()
        self.db = sqlite3.connect(":memory:", isolation_level=None)
        execute = self.execute = self.db.execute
        execute("CREATE TABLE object (key TEXT PRIMARY KEY, data BLOB) WITHOUT ROWID")
        execute("CREATE TABLE counter (key TEXT PRIMARY KEY, n INTEGER) WITHOUT ROWID")
        execute(
            "CREATE TABLE hash (key TEXT PRIMARY KEY, speed INTEGER, note TEXT, octets INTEGER,"
            " load REAL, up INTEGER) WITHOUT ROWID"
        )
        execute("CREATE TABLE list (key TEXT, pos INTEGER, data BLOB, PRIMARY KEY (key, pos))")
        for name in ("zadd", "zrange"):
            execute(
                "CREATE TABLE %s (key TEXT, member BLOB, score REAL, PRIMARY KEY (key, member))"
                " WITHOUT ROWID" % name
            )
            execute("CREATE INDEX %s_score ON %s (key, score)" % (name, name))
        self.set()(OBJECTS)

    def set(self):
        execute = self.execute

        def do(key, message):
            execute("REPLACE INTO object VALUES (?, ?)", (key, message.SerializeToString()))

        return self.cycle(do, self.calls)

    def get(self):
        execute, parse = self.execute, port_pb2.Port.FromString

        def do(key):
            [data] = execute("SELECT data FROM object WHERE key = ?", (key,)).fetchone()
            return parse(data)

        return self.cycle(do, [(key,) for key in self.keys])

    get_in_flight = get

    def incr(self):
        execute = self.execute

        def do(key):
            return execute(
                "INSERT INTO counter VALUES (?, 1) ON CONFLICT DO UPDATE SET n = n + 1 RETURNING n",
                (key,),
            ).fetchone()

        return self.cycle(do, [(key,) for key in self.keys])

    def hmset(self):
        execute = self.execute

        def do(key, port):
            execute(
                "REPLACE INTO hash VALUES (?, ?, ?, ?, ?, ?)",
                (key, port.speed, port.note, port.octets, port.load, port.up),
            )

        return self.cycle(do, self.calls)

    def hmget(self):
        self.hmset()(OBJECTS)
        execute, Port = self.execute, port_pb2.Port

        def do(key):
            row = execute("SELECT speed, note, octets, load, up FROM hash WHERE key = ?", (key,))
            speed, note, octets, load, up = row.fetchone()
            return Port(speed=speed, note=note, octets=octets, load=load, up=up)

        return self.cycle(do, [(key,) for key in self.keys])

    def lpush(self):
        execute = self.execute

        def push(key, message):
            execute(
                "INSERT INTO list VALUES"
                " (?1, (SELECT coalesce(min(pos), 0) - 1 FROM list WHERE key = ?1), ?2)",
                (key, message.SerializeToString()),
            )

        cycle = self.cycle(push, [("pushed", self.messages[0])] * OBJECTS)

        def run(repeat):
            cycle(repeat)
            execute("DELETE FROM list WHERE key = 'pushed'")

        return run

    def lrange(self):
        data = self.messages[0].SerializeToString()
        for i in range(LENGTH):
            self.execute("INSERT INTO list VALUES ('read', ?, ?)", (i, data))
        execute, parse = self.execute, port_pb2.Port.FromString

        def do(start):
            rows = execute(
                "SELECT data FROM list WHERE key = 'read' ORDER BY pos LIMIT ? OFFSET ?",
                (PAGE, start),
            )
            return [parse(data) for data, in rows]

        return self.cycle(do, [(i,) for i in range(50)])

    def zadd(self):
        execute = self.execute

        def do(message, score):
            execute(
                "REPLACE INTO zadd VALUES ('z', ?, ?)", (message.SerializeToString(), score)
            )

        members = self.zset()
        calls = [(m, float(i * 7919 % MEMBERS)) for i, m in enumerate(members)]
        moved = [(m, float(i * 6007 % MEMBERS)) for i, m in enumerate(members)]
        return self.cycle(do, calls + moved)

    def zrangebyscore(self):
        execute, parse = self.execute, port_pb2.Port.FromString
        for i, m in enumerate(self.zset()):
            execute("INSERT INTO zrange VALUES ('z', ?, ?)", (m.SerializeToString(), float(i)))

        def do(least, most):
            rows = execute(
                "SELECT member, score FROM zrange WHERE key = 'z' AND score BETWEEN ? AND ?"
                " ORDER BY score",
                (least, most),
            )
            return [(parse(member), score) for member, score in rows]

        return self.cycle(do, [(float(i), float(i + PAGE - 1)) for i in range(0, 900, 7)])

    publish = None  # it has nothing of the kind

    def close(self):
        self.db.close()


class Redis(Dict):
    """redis-py, synchronous; its server runs on the same core."""

    def __init__(self):
        super().__init__()
        self.directory = tempfile.mkdtemp(prefix="vu_bench_")
        path = os.path.join(self.directory, "redis.sock")
        self.server = subprocess.Popen(
            ["redis-server", "--port", "0", "--unixsocket", path, "--save", "", "--dir"]
            + [self.directory],
            stdout=subprocess.DEVNULL,
        )
        self.redis = redis.Redis(unix_socket_path=path)
        for _ in range(500):
            try:
                self.redis.ping()
                break
            except redis.ConnectionError:
                time.sleep(0.01)
        self.set()(OBJECTS)

    def set(self):
        put = self.redis.set
        return self.cycle(lambda key, message: put(key, message.SerializeToString()), self.calls)

    def get(self):
        get, parse = self.redis.get, port_pb2.Port.FromString
        return self.cycle(lambda key: parse(get(key)), [(key,) for key in self.keys])

    get_in_flight = None  # that is what its pipelines are for, which are not synchronous

    def incr(self):
        return self.cycle(self.redis.incr, [("n:" + key,) for key in self.keys])

    def hmset(self):
        hset = self.redis.hset

        def do(key, port):
            hset(
                key,
                mapping={
                    "speed": port.speed,
                    "note": port.note,
                    "octets": port.octets,
                    "load": port.load,
                    "up": int(port.up),
                },
            )

        return self.cycle(do, [("h:" + key, message) for key, message in self.calls])

    def hmget(self):
        self.hmset()(OBJECTS)
        hmget, Port = self.redis.hmget, port_pb2.Port

        def do(key):
            speed, note, octets, load, up = hmget(key, FIELDS)
            return Port(
                speed=int(speed),
                note=note.decode(),
                octets=int(octets),
                load=float(load),
                up=bool(int(up)),
            )

        return self.cycle(do, [("h:" + key,) for key in self.keys])

    def lpush(self):
        lpush = self.redis.lpush

        def run(repeat, message=self.messages[0]):
            for _ in range(repeat):
                lpush("pushed", message.SerializeToString())
            self.redis.delete("pushed")

        return run

    def lrange(self):
        data = self.messages[0].SerializeToString()
        self.redis.rpush("read", *[data] * LENGTH)
        lrange, parse = self.redis.lrange, port_pb2.Port.FromString

        def do(start):
            return [parse(data) for data in lrange("read", start, start + PAGE - 1)]

        return self.cycle(do, [(i,) for i in range(50)])

    def zadd(self):
        zadd = self.redis.zadd

        def do(message, score):
            zadd("zadd", {message.SerializeToString(): score})

        members = self.zset()
        calls = [(m, float(i * 7919 % MEMBERS)) for i, m in enumerate(members)]
        moved = [(m, float(i * 6007 % MEMBERS)) for i, m in enumerate(members)]
        return self.cycle(do, calls + moved)

    def zrangebyscore(self):
        self.redis.zadd("zrange", {m.SerializeToString(): i for i, m in enumerate(self.zset())})
        zrangebyscore, parse = self.redis.zrangebyscore, port_pb2.Port.FromString

        def do(least, most):
            pairs = zrangebyscore("zrange", least, most, withscores=True)
            return [(parse(member), score) for member, score in pairs]

        return self.cycle(do, [(float(i), float(i + PAGE - 1)) for i in range(0, 900, 7)])

    def publish(self):
        subscriber = self.redis.pubsub(ignore_subscribe_messages=True)
        subscriber.subscribe("channel")
        subscriber.get_message(timeout=1)
        publish, parse = self.redis.publish, port_pb2.Port.FromString

        def do(message):
            publish("channel", message.SerializeToString())
            return parse(subscriber.get_message(timeout=1)["data"])

        return self.cycle(do, [(self.messages[0],)])

    def close(self):
        self.redis.close()
        self.server.terminate()
        self.server.wait()
        shutil.rmtree(self.directory)
