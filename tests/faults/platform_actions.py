"""Actions on the platform's modules to let operations fail in: functions that make what they need,
return what can be compared, can be called again and again, and leave nothing behind.

An action with a parameter does the part that is to fail through it: `arm(callable)`.
"""
import os
import pickle
import resource
from typing import Any

import vu_global
import vu_mom
import vu_mom_common
import vu_thread

import contract_vu
from message_actions import WRITES_JSON, message_actions, port, raised


def without_descriptors(function, *arguments, room=0):
    """A call while no descriptor can be opened, or so many."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    taken = os.dup(0)
    os.close(taken)
    resource.setrlimit(resource.RLIMIT_NOFILE, (taken + room, hard))
    try:
        return function(*arguments)
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


# Where not even an int can be made, CPython 3.11 runs for ever in a function in which the error
# passes a `finally` or `with` far from its beginning. So these are short.


def with_pipe(function):
    readable, writable = os.pipe()
    try:
        return function(readable, writable)
    finally:
        os.close(readable)
        os.close(writable)


def with_global(function):
    with vu_global.VuGlobal(loop()) as glb:
        return function(glb)


kept_loop = None  # type: Any


def loop():
    """A new loop, or the one that is kept: libuv ends the process where malloc fails while it
    makes its loop."""
    return kept_loop if kept_loop is not None else vu_thread.VuThreadMaster()


class Client(vu_mom.VuMom):
    def __getattr__(self, name):
        if name.startswith("on_"):
            return self.note
        raise AttributeError(name)

    def note(self, msg, p):
        p.append(msg.type_code)


def loop_actions():
    def texts(readable, writable):
        master = loop()
        watch = master.add_reader(readable, print)
        timer = master.add_timer(9, print)
        seen = [repr(timer)[:20], repr(watch)[:20]]
        timer.cancel()
        watch.cancel()
        return seen + [repr(timer), master.fileno() >= 0]

    def file():
        opened = os.open(__file__, os.O_RDONLY)
        try:
            raised(loop().add_reader, opened, print)
        finally:
            os.close(opened)

    def interrupt():
        def stop():
            raise KeyboardInterrupt
        master = loop()
        master.call_soon(stop)
        try:
            master.run_once(1)
        except KeyboardInterrupt:
            return "interrupted"

    def nested():
        master = loop()
        seen = []
        master.call_soon(lambda: seen.append(raised(master.run)))
        master.run_once(0)

    def errors():
        master = loop()
        for call in (lambda: master.call_soon(), lambda: master.call_soon(5),
                     lambda: master.add_timer(), lambda: master.add_timer("x", print),
                     lambda: master.add_timer(-1, print), lambda: master.add_timer(2e9, print),
                     lambda: master.add_timer(1, print, again=True),
                     lambda: master.add_timer(0, print, repeat=True),
                     lambda: master.add_reader(-1, print), lambda: master.add_reader("x", print),
                     lambda: master.add_reader(0), lambda: master.run_once("x"),
                     lambda: master.run_once(-5), lambda: vu_thread.Thread()):
            raised(call)
        master.add_timer(1, print, repeat=1).cancel()

    def watched_twice(readable, writable):
        master = loop()
        watch = master.add_reader(readable, print)
        text = raised(master.add_reader, readable, print)[:10]
        watch.cancel()
        return text

    def turn(master, *added):
        seen = []
        for add in added:
            add(seen)
        for _ in range(3):
            master.run_once(0)
        return seen

    def soon():
        master = loop()
        return turn(master, lambda seen: master.call_soon(seen.append, 1),
                    lambda seen: master.add_timer(0, seen.append, 2))

    def watch(readable, writable):
        master = loop()
        reader = master.add_reader(readable, lambda: None)
        writer = master.add_writer(writable, lambda: None)
        master.run_once(0)
        return reader.cancel(), writer.cancel(), reader.cancelled
    yield "soon", soon
    yield "watch", lambda: with_pipe(watch)
    yield "new loop", lambda: loop().running
    yield "wrong timer", lambda: loop().add_timer("x", print)
    yield "texts", lambda: with_pipe(texts)
    yield "a file cannot be watched", file
    yield "interrupt", interrupt
    yield "run inside run", nested
    yield "wrong arguments", errors
    yield "watched twice", lambda: with_pipe(watched_twice)
    yield "wrong loop", lambda: raised(vu_thread.VuThreadMaster, 5)
    # With one to three libuv itself leaves one open.
    yield "no descriptor for a loop", lambda: len([
        raised(without_descriptors, vu_thread.VuThreadMaster, room=room) for room in (0, 4, 5)])
    yield "no descriptor for a timer", lambda: raised(
        lambda: without_descriptors(vu_thread.VuThreadMaster().fileno))


class App(object):
    pass


def global_actions():
    def whole(glb):
        glb.regist_app(App())
        seen = [repr(glb), glb.apps, glb.thread_master, glb.store, glb.store_text, glb.closed]
        seen += glb.stats().items()
        glb.fileno()
        glb._advance_clock(1)
        raised(glb._advance_clock, "x")
        raised(glb._advance_clock, -1)
        raised(glb.regist_app, None)
        raised(glb.__init__)
        glb.stop()
        return len(seen), glb.__reduce__()

    def run(glb):
        glb.thread_master.call_soon(glb.stop)
        glb.run()

    def closed():
        glb = vu_global.VuGlobal(loop())
        glb.close()
        repr(glb)
        raised(glb.regist_app, App())
        raised(glb.__enter__)
        raised(glb._advance_clock, 1)
        glb.stats()

    def raw():
        glb = vu_global.VuGlobal.__new__(vu_global.VuGlobal)
        repr(glb)
        raised(glb.close)

    def reopened():
        with vu_global._reopen(vu_global.VuGlobal, "embedded:again") as glb:
            return vu_global._reopen(vu_global.VuGlobal, "embedded:again") is glb
    yield "ends with an error", lambda: raised(lambda: [vu_global.VuGlobal(loop()), int("x")])
    yield "whole", lambda: with_global(whole)
    yield "run", lambda: with_global(run)
    yield "closed", closed
    yield "not initialised", raw
    yield "reopened", reopened
    yield "wrong class", lambda: raised(vu_global._reopen, int, "embedded:")
    yield "wrong master", lambda: raised(vu_global.VuGlobal, 5)
    yield "wrong store", lambda: raised(vu_global.VuGlobal, loop(), 5)
    yield "unknown store", lambda: raised(vu_global.VuGlobal, loop(), "nowhere:")
    yield "null in store", lambda: raised(vu_global.VuGlobal, loop(), "embedded:\0")


def result_actions():
    common = vu_mom_common
    for name in sorted(vars(common)):
        cls = getattr(common, name)
        if not isinstance(cls, type) or not hasattr(cls, "of"):
            continue
        yield name + " of an address", lambda cls=cls: raised(cls, 8)
        yield name + " of nothing", lambda cls=cls: raised(cls)
        yield name + " of a text", lambda cls=cls: raised(cls, "x")
        yield name + ".of nothing", lambda cls=cls: raised(cls.of, unknown=1)

    port = contract_vu.Port

    def use(result, *others):
        repr(result)
        hash(result)
        function, arguments = result.__reduce__()
        return [function(*arguments) == result, result == 5] + [result == each for each in others]

    def sequence(result):
        use(result, list(result), tuple(result))
        return (len(result), result[0], result[-1], result[:1], result[0] in result,
                result.index(result[0]), result.count(result[0]), raised(lambda: result[99]),
                raised(result.__getitem__, "x"), [each for each in result])

    def numbers():
        for cls, value in ((common.IncrResult, 5), (common.ZscoreResult, 2.5),
                           (common.SetnxResult, True)):  # type: Any, Any
            result = cls.of(value)
            use(result, value)
            bool(result), int(result), float(result), result.value
            raised(cls.of, "x")
            raised(cls.of, 2 ** 70)
            raised(cls.of)
            raised(cls.of, value, value)

    def recursive():
        held = []  # type: Any
        result = common.LrangeResult.of([held], port)
        held.append(result)
        text = repr(result)
        del held[:]
        return text

    def recursive_scored():
        held = []  # type: Any
        result = common.ZrangeResult.of([(held, 1.0)], port)
        held.append(result)
        text = repr(result)
        del held[:]
        return text

    def recursive_hash():
        held = []  # type: Any
        result = common.HashResult.of(held, [1], port)
        held.append(result)
        text = repr(result)
        del held[:]
        return text

    def scored():
        result = common.ZrangeResult.of([(port(), 1.5), (port(), 2)], port)
        raised(common.ZrangeResult.of, [5], port)
        raised(common.ZrangeResult.of, [(port(), "x")], port)
        return sequence(result), result.scores, result.messages

    def hashes():
        result = common.HashResult.of(port(), [1, 7], port)
        raised(common.HashResult.of, port(), ["x"], port)
        raised(common.HashResult.of, port(), [-1], port)
        raised(common.HashResult.of, port(), 5, port)
        return use(result), result.obj, result.tags

    def message():
        of = common.PubSubMsg.of
        msg = of(result=5, type_code=1, status=-1, error="e", db=3, key=(1, "x", b"y"), tag=4,
                 end=2, count=9, time=1.5)
        raised(of, key=5)
        raised(of, time="x")
        raised(of, type_code=2 ** 40)
        raised(of, error=5)
        reduced = msg.__reduce__()  # type: Any
        function, arguments = reduced
        return repr(msg), function(*arguments) == msg, [getattr(msg, name) for name in dir(msg)
                                                        if name[0] != "_" and name != "of"]
    yield "numbers", numbers
    yield "messages", lambda: sequence(common.LrangeResult.of([port(), port()], port))
    yield "scored", scored
    yield "hashes", hashes
    yield "message", message
    yield "recursive", recursive
    yield "recursive, scored", recursive_scored
    yield "recursive hash", recursive_hash
    of = vu_mom_common.PubSubMsg.of
    msg = of(result="r", type_code=1, error="e", key=(1, "two", b"three"), time=2.5)
    yield "message", lambda: repr(of(result="r", type_code=1, error="e", key=(1, "two", b"three")))
    # A tuple that is shown without memory is shown as (...) from then on, by the interpreter.
    yield "message read", lambda: (msg.result, msg.key, msg.time, msg.error, msg == msg)
    yield "message pickled", lambda: pickle.loads(pickle.dumps(msg)) == msg


def store_actions():
    def conversation(talk):
        def action():
            with vu_global.VuGlobal(loop(), "embedded:") as glb:
                client = Client(glb)
                seen = []
                talk(client, seen)
                for _ in range(20):
                    glb.run_once(0)
                return len(seen)
        return action

    def values(client, seen):
        client.set(0, port())
        client.get(0, port(), seen)
        client.incr(0, port(), seen)
        client.delete(0, port())

    def hashes(client, seen):
        client.hmset(0, port(), [1, 7, 8])
        client.hmget(0, port(), [1], seen)
        client.hgetall(0, port(), seen)

    def lists(client, seen):
        for push in (client.lpush, client.rpush):
            push(0, port())
        client.lrange(0, port(), 0, -1, seen)
        client.lpop(0, port(), seen)
        client.llen(0, port(), seen)

    def sets(client, seen):
        client.sadd(0, port())
        client.smembers(0, port(), seen)
        client.scard(0, port(), seen)

    def sorted_sets(client, seen):
        client.zadd(0, [1.5, 2.5], [port(), port()])
        client.zrange(0, port(), 0, -1, seen)
        client.zcount(0, port(), 0, 9, seen)

    def streams(client, seen):
        client.subscribe(0, port(), 1, seen)
        client.set(0, port())
        client.publish(0, port())
        client.scan(0, port(), 0, seen)
        client.pexpire(0, port(), 3, 100, seen)
        client.unsubscribe(0, port(), 1)

    yield "open and close", conversation(lambda client, seen: None)
    for talk in (values, hashes, lists, sets, sorted_sets, streams):
        yield talk.__name__, conversation(talk)
    yield "wrong store", lambda: vu_global.VuGlobal(loop(), "nowhere:")


def command_actions(nothing=True):
    """Every command, on an object of its kind and, unless told otherwise, where there is none,
    with subscribers that are told of it."""
    def prepared(command, make):
        def action(arm=lambda function: function()):
            seen = []
            with vu_global.VuGlobal(loop(), "embedded:") as glb:
                client = Client(glb)

                def drive():
                    for _ in range(6):
                        glb.run_once(0)
                if make is not None:
                    make(client)
                client.subscribe(0, port(), 0, seen)
                client.subscribe_field(0, port(), 0, [1], [client.note], [seen])
                drive()

                def act():
                    CALLS[command](client, 0, port(), seen)
                    drive()
                arm(act)
            return seen
        return action
    for command in sorted(CALLS):
        yield command, prepared(command, KINDS.get(kind_of(command)))
        if nothing and kind_of(command) is not None:
            yield command + " of nothing", prepared(command, None)


class RaisingClient(Client):
    def note(self, msg, p):
        raise ValueError("from a reply method")


class CallingClient(Client):
    """Whose reply methods call the command again, so many times."""
    again = None  # type: Any
    left = 0

    def note(self, msg, p):
        if self.left:
            self.left -= 1
            self.again()


def request_actions():
    """Every command in the ways that its request can go on."""
    def prepared(command, cls, end):
        def action():
            with vu_global.VuGlobal(loop(), "embedded:") as glb:
                client = cls(glb)
                make = KINDS.get(kind_of(command))
                if make is not None:
                    make(client)
                client.subscribe(0, port(), 0, [])
                client.again = lambda: CALLS[command](client, 0, port(), [])
                client.left = 3
                client.again()
                end(glb, client)
                for _ in range(8):
                    glb.run_once(0)
                client.again = None
        return action

    def close(glb, client):
        glb.close()

    def go_on(glb, client):
        pass
    for command in sorted(CALLS):
        yield command + ", raising", prepared(command, RaisingClient, go_on)
        yield command + ", closed", prepared(command, Client, close)
        yield command + ", again in the reply", prepared(command, CallingClient, go_on)
        yield command + ", without reply method", prepared(command, vu_mom.VuMom, go_on)


# --- the commands of the store ----------------------------------------------------------------

# Each command as a call with a client, a database, a message and a privdata.
CALLS = {
    "get": lambda client, db, obj, p: client.get(db, obj, p),
    "incr": lambda client, db, obj, p: client.incr(db, obj, p),
    "setnx": lambda client, db, obj, p: client.setnx(db, obj, p),
    "set": lambda client, db, obj, p: client.set(db, obj),
    "setow": lambda client, db, obj, p: client.setow(db, obj, 1),
    "delow": lambda client, db, obj, p: client.delow(db, obj, 1),
    "delete": lambda client, db, obj, p: client.delete(db, obj),
    "setnx_noreply": lambda client, db, obj, p: client.setnx_noreply(db, obj),
    "hmset": lambda client, db, obj, p: client.hmset(db, obj, [1, 7]),
    "hmsetnx": lambda client, db, obj, p: client.hmsetnx(db, obj, [1, 7]),
    "hmupdate": lambda client, db, obj, p: client.hmupdate(db, obj, [1, 7]),
    "hmget": lambda client, db, obj, p: client.hmget(db, obj, [1], p),
    "hgetall": lambda client, db, obj, p: client.hgetall(db, obj, p),
    "scan": lambda client, db, obj, p: client.scan(db, obj, 0, p),
    "scan_index": lambda client, db, obj, p: client.scan_index(db, obj, 0, p),
    "lpush": lambda client, db, obj, p: client.lpush(db, obj),
    "rpush": lambda client, db, obj, p: client.rpush(db, obj),
    "lpop": lambda client, db, obj, p: client.lpop(db, obj, p),
    "rpop": lambda client, db, obj, p: client.rpop(db, obj, p),
    "llen": lambda client, db, obj, p: client.llen(db, obj, p),
    "lset": lambda client, db, obj, p: client.lset(db, obj, 0, p),
    "lrem": lambda client, db, obj, p: client.lrem(db, obj, 0),
    "linsert": lambda client, db, obj, p: client.linsert(db, obj, obj, 0, p),
    "lrange": lambda client, db, obj, p: client.lrange(db, obj, 0, -1, p),
    "sadd": lambda client, db, obj, p: client.sadd(db, obj),
    "srem": lambda client, db, obj, p: client.srem(db, obj),
    "smembers": lambda client, db, obj, p: client.smembers(db, obj, p),
    "scard": lambda client, db, obj, p: client.scard(db, obj, p),
    "sismember": lambda client, db, obj, p: client.sismember(db, obj, p),
    "zadd": lambda client, db, obj, p: client.zadd(db, [1.0], [obj]),
    "zrem": lambda client, db, obj, p: client.zrem(db, [obj]),
    "zcard": lambda client, db, obj, p: client.zcard(db, obj, p),
    "zrank": lambda client, db, obj, p: client.zrank(db, obj, p),
    "zscore": lambda client, db, obj, p: client.zscore(db, obj, p),
    "zcount": lambda client, db, obj, p: client.zcount(db, obj, 0, 9, p),
    "zrange": lambda client, db, obj, p: client.zrange(db, obj, 0, -1, p),
    "zrangebyscore": lambda client, db, obj, p: client.zrangebyscore(db, obj, 0, 9, p),
    "zremrangebyscore": lambda client, db, obj, p: client.zremrangebyscore(db, obj, 0, 9),
    "zremrangebyrank": lambda client, db, obj, p: client.zremrangebyrank(db, obj, 0, -1),
    "pexpire": lambda client, db, obj, p: client.pexpire(db, obj, 0, 0, p),
    "pexpire_field": lambda client, db, obj, p: client.pexpire_field(db, obj, 0, 1, 0, p),
    "pexpire_fields": lambda client, db, obj, p: client.pexpire_fields(db, obj, 0, [1], 0, p),
    "del_expire": lambda client, db, obj, p: client.del_expire(db, obj, 0, p),
    "pdel": lambda client, db, obj, p: client.pdel(db, obj, 0, p),
    "subscribe": lambda client, db, obj, p: client.subscribe(db, obj, 1, p),
    "unsubscribe": lambda client, db, obj, p: client.unsubscribe(db, obj, 0),
    "subscribe_field": lambda client, db, obj, p: client.subscribe_field(
        db, obj, 1, [7], [client.note], [p]),
    "unsubscribe_field": lambda client, db, obj, p: client.unsubscribe_field(db, obj, 0, [1]),
    "publish": lambda client, db, obj, p: client.publish(db, obj),
}

KINDS = {
    "value": lambda client: client.set(0, port()),
    "owned": lambda client: client.setow(0, port(), 1),
    "hash": lambda client: client.hmset(0, port(), [1, 7, 8]),
    "list": lambda client: (client.rpush(0, port()), client.rpush(0, port())),
    "set": lambda client: client.sadd(0, port()),
    "sorted set": lambda client: client.zadd(0, [1.5], [port()]),
}


def kind_of(command):
    """The kind of object that a command is for; None: it needs none."""
    if command in ("subscribe", "unsubscribe", "subscribe_field", "unsubscribe_field", "publish"):
        return None
    if command in ("setow", "delow"):
        return "owned"
    if command.startswith(("hm", "hget", "pexpire_field")):
        return "hash"
    if command.startswith("z"):
        return "sorted set"
    if command in ("sadd", "srem", "smembers", "scard", "sismember"):
        return "set"
    if command in ("lpush", "rpush", "lpop", "rpop", "llen", "lset", "lrem", "linsert", "lrange"):
        return "list"
    return "value"


# Where the callback that ends it fails, it does not end.
RUNS_ON = ("run",)

# What a library ends the process in where malloc fails: libuv while it makes a loop, and others.
ENDED_BY_LIBRARIES = WRITES_JSON + (
    "no descriptor for a loop", "no descriptor for a timer", "reopened", "new loop", "wrong loop")


def all_actions():
    for actions in (message_actions, loop_actions, global_actions, result_actions, store_actions,
                    command_actions):  # type: Any
        for name, action in actions():
            yield "%s: %s" % (actions.__name__[:-len("_actions")], name), action
