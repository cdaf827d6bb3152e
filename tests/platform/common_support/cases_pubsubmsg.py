"""PubSubMsg: what arrived."""

import copy
import ctypes
import gc
import pickle
import sys
import unittest
import weakref

from delivery import Message, common, identity, record

LrangeResult, PubSubMsg = common.LrangeResult, common.PubSubMsg

ATTRIBUTES = "result type_code end status error db key tag time count".split()
DEFAULTS = (None, 0, 0, 0, "", 0, (), 0, 0.0, 0)


def content(msg):
    return tuple(getattr(msg, name) for name in ATTRIBUTES)


class FromRecords(unittest.TestCase):
    def test_everything_is_copied(self):
        with record(
            type_code=39,
            end=1,
            status=-1,
            error=b"closed",
            db=7,
            key=identity("eth0", 3),
            tag=12,
            time_us=1500000000250000,
            count=2**40,
        ) as address:
            msg = PubSubMsg(address)
        self.assertEqual(
            content(msg),
            (None, 39, 1, -1, "closed", 7, ("eth0", 3), 12, 1500000000.25, 2**40),
        )

    def test_extremes(self):
        least, most = -(2**31), 2**31 - 1
        for number, unsigned, wide in ((least, 0, -(2**63)), (most, 2**32 - 1, 2**63 - 1)):
            with record(
                type_code=number,
                end=unsigned,
                status=number,
                db=number,
                tag=unsigned,
                time_us=wide,
                count=wide,
            ) as address:
                msg = PubSubMsg(address)
            self.assertEqual((msg.type_code, msg.status, msg.db), (number,) * 3)
            self.assertEqual((msg.end, msg.tag, msg.count), (unsigned, unsigned, wide))
            self.assertEqual(msg.time, wide / 1e6)

    def test_an_empty_record(self):
        with record() as address:
            self.assertEqual(content(PubSubMsg(record=address)), DEFAULTS)

    def test_types(self):
        with record(key=identity(1)) as address:
            msg = PubSubMsg(address)
        self.assertIs(type(msg.time), float)
        self.assertIs(type(msg.error), str)
        self.assertIs(type(msg.key), tuple)

    def test_error_texts(self):
        for raw, text in (
            (b"", ""),
            ("w\u00e4hrend".encode("utf-8"), "w\u00e4hrend"),
            (b"x" * 256, "x" * 256),
            (b"x" * 300, "x" * 256),
            (b"cut \xc3", "cut \udcc3"),
        ):
            with record(status=-1, error=raw) as address:
                msg = PubSubMsg(address)
            self.assertEqual(msg.error, text)

    def test_keys(self):
        for components in (
            (),
            (0, -1, 2**63 - 1, -(2**63)),
            (True, False),
            ("", "eth0", "\u20ac\0x", "\udcff"),
            (b"", b"\0\xff", b"y" * 1000),
            (1, "a", b"b", True, "c" * 300),
        ):
            with record(key=identity(*components)) as address:
                msg = PubSubMsg(address)
            self.assertEqual(msg.key, components)
            self.assertEqual([type(c) for c in msg.key], [type(c) for c in components])

    def test_unsigned_keys(self):
        with record(key=identity(("u", 2**64 - 1), ("u", 0))) as address:
            self.assertEqual(PubSubMsg(address).key, (2**64 - 1, 0))

    def test_broken_keys_are_refused(self):
        whole = identity("eth0", 3)
        for key, text in (
            (whole[:-1], "the record's key is cut short"),
            (whole[:6], "the record's key is cut short"),
            (whole[:3], "the record's key is cut short"),
            (b"s\xff\xff\xff\xff", "the record's key is cut short"),
            (b"b", "the record's key is cut short"),
            (whole + b"z", "the record's key has a component of unknown kind 122"),
        ):
            with record(key=key) as address:
                with self.assertRaises(ValueError) as caught:
                    PubSubMsg(address)
            self.assertEqual(str(caught.exception), text)

    def test_an_address_that_is_not_delivered_is_refused(self):
        with record() as address:
            for wrong in (address + 8, -address, 0, 2**32 + address, 2**64 + address):
                with self.assertRaises(ValueError) as caught:
                    PubSubMsg(wrong)
                self.assertEqual(
                    str(caught.exception),
                    "PubSubMsg() argument 'record': %s is not the address of the reply being "
                    "delivered" % wrong,
                )
        self.assertRaises(ValueError, PubSubMsg, address)

    def test_wrong_arguments_are_named(self):
        for call, text in (
            (lambda: PubSubMsg(), "PubSubMsg() missing required argument 'record'"),
            (lambda: PubSubMsg(1, 2), "PubSubMsg() takes at most 1 argument (2 given)"),
            (lambda: PubSubMsg(x=1), "PubSubMsg() got an unexpected keyword argument 'x'"),
            (lambda: PubSubMsg("1"), "PubSubMsg() argument 'record' must be an integer address, "
             "not str"),
        ):
            with self.assertRaises(TypeError) as caught:
                call()
            self.assertEqual(str(caught.exception), text)


class ResultSlot(unittest.TestCase):
    """The slot right after the object's head belongs to the binding, which is native."""

    @staticmethod
    def slot(msg):
        return ctypes.c_ssize_t.from_address(id(msg) + object.__basicsize__)

    def test_it_is_none_to_begin_with(self):
        with record() as address:
            msg = PubSubMsg(address)
        self.assertEqual(self.slot(msg).value, id(None))

    def put(self, msg, result):
        ctypes.pythonapi.Py_IncRef(ctypes.py_object(result))
        slot = self.slot(msg)
        previous, slot.value = slot.value, id(result)
        self.assertEqual(previous, id(None))
        ctypes.pythonapi.Py_DecRef(ctypes.py_object(None))

    def test_what_is_put_there_is_the_result(self):
        msg, result = PubSubMsg.of(), Message(3)
        alive = weakref.ref(result)
        self.put(msg, result)
        self.assertIs(msg.result, result)
        del result
        self.assertEqual(msg.result, Message(3))
        del msg
        self.assertIsNone(alive())

    def test_a_cycle_that_only_the_slot_can_break_is_freed(self):
        msg, marker = PubSubMsg.of(), object()
        before = sys.getrefcount(marker)
        self.put(msg, LrangeResult.of([msg, marker], Message))
        self.assertEqual(sys.getrefcount(marker), before + 1)
        del msg
        gc.collect()
        self.assertEqual(sys.getrefcount(marker), before)

    def test_from_python_it_is_read_only(self):
        msg = PubSubMsg.of()
        for name in ATTRIBUTES:
            with self.assertRaises(AttributeError):
                setattr(msg, name, 1)
            with self.assertRaises(AttributeError):
                delattr(msg, name)
        with self.assertRaises(AttributeError):
            msg.other = 1
        with self.assertRaises(TypeError):
            type("Sub", (PubSubMsg,), {})


class Behaviour(unittest.TestCase):
    CHANGED = dict(
        result=Message(1),
        type_code=1,
        end=2,
        status=-1,
        error="x",
        db=3,
        key=("a",),
        tag=4,
        time=1.5,
        count=5,
    )

    def test_equality_is_of_content(self):
        whole = PubSubMsg.of(**self.CHANGED)
        self.assertTrue(whole == PubSubMsg.of(**self.CHANGED))
        self.assertFalse(whole != PubSubMsg.of(**self.CHANGED))
        for name in ATTRIBUTES:
            partly = dict(self.CHANGED)
            del partly[name]
            self.assertFalse(whole == PubSubMsg.of(**partly), name)
            self.assertTrue(whole != PubSubMsg.of(**partly), name)
        self.assertFalse(whole == content(whole))
        self.assertRaises(TypeError, lambda: whole < whole)

    def test_an_error_in_comparing_results_is_passed_on(self):
        class Refusal(Exception):
            pass

        class Refusing:
            def __eq__(self, other):
                raise Refusal

        one, two = PubSubMsg.of(Refusing()), PubSubMsg.of(Refusing())
        self.assertRaises(Refusal, lambda: one == two)
        self.assertRaises(Refusal, lambda: one != two)

    def test_no_hash(self):
        self.assertRaises(TypeError, hash, PubSubMsg.of())

    def test_repr(self):
        self.assertEqual(
            repr(PubSubMsg.of(Message(8), 1, key=("eth0",))),
            "PubSubMsg(type_code=1, key=('eth0',), result=Message(8))",
        )
        self.assertEqual(
            repr(PubSubMsg.of(**self.CHANGED)),
            "PubSubMsg(type_code=1, end=2, db=3, tag=4, count=5, status=-1, error='x', "
            "key=('a',), result=Message(1))",
        )
        self.assertEqual(repr(PubSubMsg.of()), "PubSubMsg(type_code=0, key=(), result=None)")

    def test_repr_of_what_contains_itself(self):
        inner = []
        msg = PubSubMsg.of(inner)
        inner.append(msg)
        self.assertEqual(repr(msg), "PubSubMsg(type_code=0, key=(), result=[PubSubMsg(...)])")

    def test_copies(self):
        for msg in (PubSubMsg.of(), PubSubMsg.of(**self.CHANGED)):
            for made in [copy.copy(msg), copy.deepcopy(msg)] + [
                pickle.loads(pickle.dumps(msg, protocol))
                for protocol in range(pickle.HIGHEST_PROTOCOL + 1)
            ]:
                self.assertIs(type(made), PubSubMsg)
                self.assertEqual(made, msg)
        with record(error=b"cut \xc3", key=identity("\udcff", b"\xff"), time_us=1) as address:
            msg = PubSubMsg(address)
        self.assertEqual(pickle.loads(pickle.dumps(msg)), msg)

    def test_cycles_are_freed(self):
        marker = object()
        before = sys.getrefcount(marker)
        held = [marker]
        held.append(PubSubMsg.of(held))
        self.assertTrue(gc.is_tracked(held[1]))
        del held
        gc.collect()
        self.assertEqual(sys.getrefcount(marker), before)


class Of(unittest.TestCase):
    def test_defaults(self):
        self.assertEqual(content(PubSubMsg.of()), DEFAULTS)

    def test_by_position_and_by_name(self):
        values = ("r", 1, 2, -3, "e", 4, (5, "s", b"b", True), 6, 7.5, 8)
        self.assertEqual(content(PubSubMsg.of(*values)), values)
        self.assertEqual(content(PubSubMsg.of(**dict(zip(ATTRIBUTES, values)))), values)

    def test_ranges(self):
        signed, unsigned = (-(2**31), 2**31 - 1), (0, 2**32 - 1)
        limits = {"type_code": signed, "status": signed, "db": signed, "end": unsigned}
        limits.update({"tag": unsigned, "count": (-(2**63), 2**63 - 1)})
        for name, (least, most) in limits.items():
            for good in (least, most):
                self.assertEqual(getattr(PubSubMsg.of(**{name: good}), name), good)
            for bad in (least - 1, most + 1):
                with self.assertRaises(OverflowError) as overflow:
                    PubSubMsg.of(**{name: bad})
                self.assertEqual(
                    str(overflow.exception),
                    "PubSubMsg.of() argument '%s' must be between %d and %d" % (name, least, most),
                )
            with self.assertRaises(TypeError) as caught:
                PubSubMsg.of(**{name: 1.0})
            self.assertEqual(
                str(caught.exception),
                "PubSubMsg.of() argument '%s' must be an integer, not float" % name,
            )

    def test_time(self):
        for seconds in (0, -1.25, 1500000000.123456):
            self.assertEqual(PubSubMsg.of(time=seconds).time, seconds)
        for bad in (1e13, -1e13, float("nan"), float("inf")):
            with self.assertRaises(OverflowError) as caught:
                PubSubMsg.of(time=bad)
            self.assertEqual(
                str(caught.exception), "PubSubMsg.of() argument 'time' is out of range"
            )
        self.assertRaises(TypeError, PubSubMsg.of, time="1")

    def test_key_and_error(self):
        self.assertEqual(PubSubMsg.of(key=[1, "a"]).key, (1, "a"))
        for bad in (5, [1.0], [None], [("a",)]):
            self.assertRaises(TypeError, PubSubMsg.of, key=bad)
        with self.assertRaises(TypeError) as caught:
            PubSubMsg.of(error=b"x")
        self.assertEqual(
            str(caught.exception), "PubSubMsg.of() argument 'error' must be a str, not bytes"
        )


if __name__ == "__main__":
    unittest.main()
