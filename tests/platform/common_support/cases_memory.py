"""What is made is freed: reference counts, Python's memory and the C heap."""

import gc
import sys
import unittest
from typing import Any

from delivery import HASH, INTEGER, MESSAGES, SCORE, SCORED, Message, common, identity, library
from delivery import payload, record

from cases_messages import PLAIN, SEQUENCES, WITH_SCORES
from cases_values import NUMBERS, SCORES, TRUTHS

LONG = "a text that no small buffer holds" * 8


def make_values():
    for cls in NUMBERS + TRUTHS:
        with payload(INTEGER, integer=2**40) as data:
            use(cls(data))
    for cls in SCORES:
        with payload(SCORE, score=1.5) as data:
            use(cls(data))


def make_messages():
    for kind, classes in ((MESSAGES, PLAIN), (SCORED, WITH_SCORES)):
        for cls in classes:
            with payload(kind, messages=[8, 16, 24], scores=[1.0, 2.0, 3.0]) as data:
                result = cls(data, cls=Message)
            use(result)
            use(result[1:])
            list(result)
            if kind == SCORED:
                use(result.scores)
                use(result.messages)


def make_hashes():
    with payload(HASH, messages=[8], tags=[1000, 2000]) as data:
        use(common.HashResult(data, cls=Message))


def make_records():
    key = identity(LONG, 2**40, LONG.encode(), True)
    with record(status=-1, error=LONG.encode(), key=key, time_us=10**15) as address:
        msg = common.PubSubMsg(address)
    use(msg)
    for name in "type_code end status error db key tag time count result".split():
        getattr(msg, name)


def use(result):
    repr(result)
    hash(result) if not isinstance(result, common.PubSubMsg) else None
    assert result == result and not result != result
    if not isinstance(result, tuple):
        function, arguments = result.__reduce__()
        assert function(*arguments) == result


def refuse(call, error):
    try:
        call()
    except error:
        return
    raise AssertionError("not refused")


def make_errors():
    def raising(address):
        if address == 16:
            raise LookupError
        return Message(address)

    for cls in NUMBERS + TRUTHS + SCORES:
        refuse(lambda: cls(12), ValueError)
        refuse(lambda: cls(), TypeError)
        refuse(lambda: cls.of("x"), TypeError)
    for cls in SEQUENCES:
        kind = SCORED if cls in WITH_SCORES else MESSAGES
        with payload(kind, messages=[8, 16, 24], scores=[1.0, 2.0, 3.0]) as data:
            refuse(lambda: cls(data, cls=raising), LookupError)
            refuse(lambda: cls(data, cls=5), TypeError)
    with payload(HASH, messages=[16], tags=[1000]) as data:
        refuse(lambda: common.HashResult(data, cls=raising), LookupError)
    with record(key=identity(LONG, 2**40)[:-1]) as address:
        refuse(lambda: common.PubSubMsg(address), ValueError)
    refuse(lambda: common.PubSubMsg.of(key=[LONG, 1.0]), TypeError)
    refuse(lambda: common.PubSubMsg.of(error=LONG, time="x"), TypeError)
    refuse(lambda: common.HashResult.of(Message(1), [1000, -1], Message), OverflowError)
    refuse(lambda: common.ZrangeResult.of([(1, 2.0), 3], Message), TypeError)


BODIES = [make_values, make_messages, make_hashes, make_records, make_errors]
ROUNDS = 200


def growth(measure, body, limit):
    """How much `measure` grows over ROUNDS calls of `body`, tried again while it is `limit`
    or more: what the interpreter and ctypes set aside comes to an end, a leak does not."""
    for _ in range(20):
        gc.collect()
        before = measure()
        for _ in range(ROUNDS):
            body()
        gc.collect()
        grown = measure() - before
        if grown < limit:
            break
    return grown


class Balance(unittest.TestCase):
    def check(self, measure, per_round=1):
        limit = ROUNDS * per_round // 2
        for body in BODIES:
            self.assertLess(growth(measure, body, limit), limit, body.__name__)

    @unittest.skipUnless(hasattr(sys, "gettotalrefcount"), "needs a debug interpreter")
    def test_references(self):
        self.check(sys.gettotalrefcount)

    def test_python_memory(self):
        if sys.getallocatedblocks() == 0:
            self.skipTest("this allocator keeps no account")
        self.check(sys.getallocatedblocks)

    def test_c_heap(self):
        if library.support_heap_bytes() == 0:
            self.skipTest("this allocator keeps no account")
        self.check(library.support_heap_bytes, per_round=40)  # the least that a leak would take

    def test_the_message_class_is_given_back(self):
        class Local:
            def __init__(self, address):
                pass

        before = sys.getrefcount(Local)
        for kind, classes in ((MESSAGES, PLAIN), (SCORED, WITH_SCORES)):
            for cls in classes:
                with payload(kind, messages=[8, 16], scores=[1.0, 2.0]) as data:
                    result = cls(data, cls=Local)
                self.assertEqual(sys.getrefcount(Local), before + 3)
                del result
        with payload(HASH, messages=[8], tags=[1]) as data:
            result = common.HashResult(data, cls=Local)
        self.assertEqual(sys.getrefcount(Local), before + 2)
        del result
        self.assertEqual(sys.getrefcount(Local), before)


class Cycles(unittest.TestCase):
    """Results do not change, so the collector breaks a cycle at the other object in it."""

    def check(self, make):
        # Weak references are cleared before anything is freed; a count tells the truth.
        marker = object()
        before = sys.getrefcount(marker)
        gc.disable()
        self.addCleanup(gc.enable)
        make(marker)
        self.assertGreater(sys.getrefcount(marker), before)
        gc.collect()
        self.assertEqual(sys.getrefcount(marker), before)

    def test_through_a_message(self):
        def through(build):
            def make(marker):
                message: Any = Message(1)
                message.result = build(message, marker)

            self.check(make)

        for cls in PLAIN:
            through(lambda message, marker: cls.of([message, marker], Message))
        for cls in WITH_SCORES:
            through(lambda message, marker: cls.of([(message, 1.0), (marker, 2.0)], Message))
        through(lambda message, marker: common.HashResult.of([message, marker], [1], Message))

    def test_through_the_message_class(self):
        def make(marker):
            class Local:
                result: Any
                fields: Any

            Local.result = common.LrangeResult.of([marker], Local)
            Local.fields = common.HashResult.of(marker, [], Local)

        self.check(make)


if __name__ == "__main__":
    unittest.main()
