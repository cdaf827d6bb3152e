"""The platform's modules without memory: each allocation fails once, and all from the n-th on,
through the interpreter's allocators and through the malloc of the process.

Each action runs in a process of its own. An allocation that fails may show as MemoryError or
not at all; the action then does again what it did before, and repeats leave nothing behind.
"""
import copy
import gc
import os
import pickle
import sys
import unittest

import vu_global
import vu_mom
import vu_mom_common
import vu_thread

import contract_vu
import inject
import vu_test_scalars_vu
import vu_test_tree_vu

MOST_OPERATIONS = 5000


class Wrong(Exception):
    pass


def port():
    return contract_vu.Port(name="eth0", site="here", rack=3, slot=-4, lanes=[1, 2, 3], up=True,
                            last=contract_vu.Port.Sample(time=5, load=0.5), note="none")


# --- actions: functions that make what they need, and return what can be compared -------------


def message_actions():
    message, other = port(), port()
    data = message.SerializeToString()

    def assign():
        made = contract_vu.Port()
        made.name = "a longer name than fits into a small string object"
        made.rack, made.up = 5, False
        made.lanes = [5, 6, 7]
        made.lanes.append(8)
        made.lanes.extend(range(20))
        del made.lanes[3:5]
        made.last.time = 7
        made.last.CopyFrom(contract_vu.Port.Sample(load=2.5))
        return made.SerializeToString()

    def parse():
        made = contract_vu.Port()
        made.ParseFromString(data)
        made.MergeFromString(data)
        return repr(made)
    yield "construct", lambda: repr(port())
    yield "assign", assign
    yield "parse", parse
    yield "serialise", lambda: message.SerializeToString(deterministic=True)
    yield "from string", lambda: contract_vu.Port.FromString(data) == message
    yield "repr", lambda: repr(message)
    yield "equal", lambda: (message == other, message == 5)
    yield "copy", lambda: repr(copy.copy(message)) + repr(copy.deepcopy(message))
    yield "from address", lambda: repr(contract_vu.Port(message.get_ptr()))
    yield "merge", lambda: contract_vu.Port().MergeFrom(message)
    yield "fields", lambda: len(message.ListFields())
    yield "clear", lambda: (port().Clear(), port().ClearField("name"), port().HasField("up"))
    yield "pickle", lambda: pickle.loads(pickle.dumps(message)) == message
    yield "wrong field", lambda: contract_vu.Port(nothing=1)
    yield "wrong value", lambda: contract_vu.Port(rack="three")
    yield "wrong data", lambda: contract_vu.Port.FromString(b"\xff\xff\xff")
    yield "many messages", lambda: [repr(getattr(module, name)()) for module in
                                    (vu_test_scalars_vu, vu_test_tree_vu, contract_vu)
                                    for name in sorted(vars(module))
                                    if isinstance(getattr(module, name), type)
                                    and hasattr(getattr(module, name), "get_ptr")]


def result_actions():
    of = vu_mom_common.PubSubMsg.of
    msg = of(result="r", type_code=1, error="e", key=(1, "two", b"three"), time=2.5)
    yield "message", lambda: repr(of(result="r", type_code=1, error="e", key=(1, "two", b"three")))
    # A tuple that is shown without memory is shown as (...) from then on, by the interpreter.
    yield "message read", lambda: (msg.result, msg.key, msg.time, msg.error, msg == msg)
    yield "message pickled", lambda: pickle.loads(pickle.dumps(msg)) == msg


kept_loop = None


def loop():
    """A new loop, or the one that is kept: libuv ends the process where malloc fails while it
    makes its loop."""
    return kept_loop if kept_loop is not None else vu_thread.VuThreadMaster()


def loop_actions():
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

    def watch():
        master = loop()
        readable, writable = os.pipe()
        try:
            reader = master.add_reader(readable, lambda: None)
            writer = master.add_writer(writable, lambda: None)
            master.run_once(0)
            return reader.cancel(), writer.cancel(), reader.cancelled
        finally:
            os.close(readable)
            os.close(writable)
    yield "soon", soon
    yield "watch", watch
    yield "new loop", lambda: loop().running
    yield "wrong timer", lambda: loop().add_timer("x", print)


class Client(vu_mom.VuMom):
    def __getattr__(self, name):
        if name.startswith("on_"):
            return self.note
        raise AttributeError(name)

    def note(self, msg, p):
        p.append(msg.type_code)


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


def result_of(action):
    """What the action came to, as something that can be compared."""
    try:
        return "answered", action()
    except Exception as error:
        kind = type(error).__name__
        error.__traceback__ = error.__context__ = error.__cause__ = None
        return "raised", kind


def armed(action, kind, first, last):
    try:
        return "answered", inject.run(kind, first, last, action, (), None)
    except Exception as error:
        kind = type(error).__name__
        error.__traceback__ = error.__context__ = error.__cause__ = None
        return "raised", kind


# SystemError is the interpreter's own where memory is short. InputError comes of the commands on
# hashes: field numbers that cannot be converted reach the store as a null array.
SHOWS_NO_MEMORY = ("MemoryError", "SystemError", "InputError")


def run_out_of_memory(action, kind, once, note):
    """Raises Wrong where something is; returns how many allocations have failed."""
    clean = result_of(action)
    for n in range(1, MOST_OPERATIONS):
        note(n)
        what, found = armed(action, kind, n, n if once else inject.NEVER)
        was_hit = inject.hit() > 0
        if what == "raised" and found not in SHOWS_NO_MEMORY and (what, found) != clean:
            raise Wrong("operation %d: %s" % (n, found))
        again = result_of(action)
        if again != clean:
            raise Wrong("after operation %d: %r, and was %r" % (n, again, clean))
        if not was_hit:
            return n - 1
    raise Wrong("no end")


def leaves_nothing(action, kind, once):
    """The blocks that are left by all the failures of an action, once caches have settled."""
    left = []
    for _ in range(4):
        gc.collect()
        before = sys.getallocatedblocks()
        run_out_of_memory(action, kind, once, lambda n: None)
        gc.collect()
        left.append(sys.getallocatedblocks() - before)
    return left


def in_child(function):
    """What the function says, which a child process calls; how the child ended where it says
    nothing."""
    readable, writable = os.pipe()
    pid = os.fork()
    if pid == 0:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
        try:
            answer = function(lambda n: os.pwrite(progress, b"%8d" % n, 0))
        except BaseException as error:
            answer = "%s: %s" % (type(error).__name__, error)
        os.write(writable, answer.encode())
        os._exit(0)
    os.close(writable)
    with os.fdopen(readable, "rb") as answers:
        answer = answers.read().decode()
    status = os.waitpid(pid, 0)[1]
    if status != 0:
        return "operation %s ended the process, status %d" % (
            os.pread(progress, 8, 0).decode().strip(), status)
    return answer


progress = os.memfd_create("progress")


class Platform(unittest.TestCase):
    kind, once = inject.PYTHON, True

    def check(self, actions):
        failures = 0
        for name, action in actions:
            def run(note, action=action):
                global kept_loop
                if self.kind == inject.MALLOC:
                    kept_loop = vu_thread.VuThreadMaster()
                count = run_out_of_memory(action, self.kind, self.once, note)
                left = leaves_nothing(action, self.kind, self.once)
                return "%d %d" % (count, min(left[1:]))
            with self.subTest(action=name):
                answer = in_child(run)
                self.assertRegex(answer, r"^\d+ -?\d+$", name)
                count, left = (int(word) for word in answer.split())
                self.assertLessEqual(left, 2, "%s leaves blocks in %d failures" % (name, count))
                failures += count
        print("* %s: %d failures" % (self.id(), failures))

    def test_messages(self):
        self.check(message_actions())

    def test_results(self):
        self.check(result_actions())

    def test_loop(self):
        self.check(loop_actions())

    def test_store(self):
        self.check(store_actions())

    # What went wrong once.

    def test_no_memory_was_called_a_wrong_store(self):
        """ValueError, where the store could not be opened for lack of memory."""
        action = dict(store_actions())["open and close"]
        self.check([("open and close", action)])


class PlatformOn(Platform):
    once = False


class Malloc(Platform):
    kind = inject.MALLOC


class MallocOn(Malloc):
    once = False


if __name__ == "__main__":
    unittest.main()
