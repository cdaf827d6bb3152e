"""Results that hold messages."""

import collections.abc
import copy
import pickle
import sys
import unittest

from delivery import HASH, INTEGER, MESSAGES, SCORE, SCORED, Message, common, payload

PLAIN = [common.SetResult, common.ListResult, common.SmembersResult, common.LrangeResult]
WITH_SCORES = [common.SortedsetResult, common.ZrangeResult, common.ZrangebyscoreResult]
SEQUENCES = PLAIN + WITH_SCORES
ALL = SEQUENCES + [common.HashResult]
ADDRESSES = [16, -32, 0, sys.maxsize, -sys.maxsize - 1]
POINTS = [-1.5, 0.0, 2.0, 1e300, float("inf")]


def kind_of(cls):
    if cls in WITH_SCORES:
        return SCORED
    return MESSAGES if cls in PLAIN else HASH


def delivered(cls, addresses=ADDRESSES, made_with=Message):
    """A result of a sequence class, after its delivery has ended."""
    with payload(kind_of(cls), messages=addresses, scores=POINTS[: len(addresses)]) as data:
        return cls(data, cls=made_with)


def items(cls, addresses=ADDRESSES):
    messages = [Message(address) for address in addresses]
    return list(zip(messages, POINTS)) if cls in WITH_SCORES else messages


class FromPayloads(unittest.TestCase):
    def test_messages_are_made_in_order_from_signed_addresses(self):
        for cls in SEQUENCES:
            seen: list[int] = []

            def make(address):
                seen.append(address)
                return len(seen)

            result = delivered(cls, made_with=make)
            self.assertEqual(seen, ADDRESSES)
            made = result.messages if cls in WITH_SCORES else tuple(result)
            self.assertEqual(made, (1, 2, 3, 4, 5))

    def test_content_outlives_the_delivery(self):
        for cls in SEQUENCES:
            result = delivered(cls)
            self.assertEqual(list(result), items(cls))
            self.assertIs(result.cls, Message)
            self.assertIs(type(result), cls)

    def test_scores(self):
        for cls in WITH_SCORES:
            result = delivered(cls)
            self.assertEqual(result.scores, tuple(POINTS))
            self.assertEqual(result.messages, tuple(Message(a) for a in ADDRESSES))
            for message, score in result:
                self.assertIs(type(message), Message)
                self.assertIs(type(score), float)
        for cls in PLAIN:
            self.assertFalse(hasattr(cls, "scores"))

    def test_empty(self):
        for cls in SEQUENCES:
            with payload(kind_of(cls)) as data:
                result = cls(data, Message)
            self.assertEqual(len(result), 0)
            self.assertFalse(result)
            self.assertEqual(list(result), [])

    def test_hash(self):
        with payload(HASH, messages=[-8], tags=[1, 3, 536870911]) as data:
            result = common.HashResult(data, cls=Message)
        self.assertEqual(result.obj, Message(-8))
        self.assertEqual(result.tags, (1, 3, 536870911))
        self.assertIs(result.cls, Message)

    def test_hash_without_a_message_or_tags(self):
        for messages in (None, [0]):
            with payload(HASH, messages=messages, tags=[2]) as data:
                result = common.HashResult(data, cls=Message)
            self.assertIsNone(result.obj)
            self.assertEqual(result.tags, (2,))
        with payload(HASH, messages=[8]) as data:
            self.assertEqual(common.HashResult(data, Message).tags, ())

    def test_a_message_class_that_raises(self):
        class Refusal(Exception):
            pass

        def refuse_second(address):
            if address == ADDRESSES[1]:
                raise Refusal
            return Message(address)

        for cls in SEQUENCES:
            self.assertRaises(Refusal, delivered, cls, made_with=refuse_second)
        with payload(HASH, messages=[ADDRESSES[1]], tags=[1]) as data:
            self.assertRaises(Refusal, common.HashResult, data, cls=refuse_second)

    def test_an_address_that_is_not_delivered_is_refused(self):
        for cls in ALL:
            with payload(kind_of(cls)) as data:
                for wrong in (data + 8, 0, -1, 2**70):
                    with self.assertRaises(ValueError) as caught:
                        cls(wrong, cls=Message)
                    self.assertEqual(
                        str(caught.exception),
                        "%s() argument 'data': %s is not the address of the data of the reply "
                        "being delivered" % (cls.__name__, wrong),
                    )
            self.assertRaises(ValueError, cls, data, cls=Message)

    def test_another_kind_of_payload_is_refused(self):
        for cls in ALL:
            for kind in (INTEGER, SCORE, HASH, MESSAGES, SCORED):
                if kind == kind_of(cls):
                    continue
                with payload(kind) as data:
                    with self.assertRaises(ValueError) as caught:
                        cls(data, cls=Message)
                self.assertIn(
                    cls.__name__ + "() argument 'data': the reply carries ", str(caught.exception)
                )

    def test_wrong_arguments_are_named(self):
        for cls in ALL:
            with payload(kind_of(cls)) as data:
                for call, text in (
                    (lambda: cls(), "%s() missing required argument 'data'"),
                    (lambda: cls(data), "%s() missing required argument 'cls'"),
                    (lambda: cls(cls=int), "%s() missing required argument 'data'"),
                    (lambda: cls(data, int, 3), "%s() takes at most 2 arguments (3 given)"),
                    (lambda: cls(data, int, cls=3), "%s() got multiple values for argument 'cls'"),
                    (lambda: cls(data, type=3), "%s() got an unexpected keyword argument 'type'"),
                    (lambda: cls(data, cls=3), "%s() argument 'cls' must be a message class, not "
                     "int"),
                    (lambda: cls("3", cls=int), "%s() argument 'data' must be an integer address, "
                     "not str"),
                ):
                    with self.assertRaises(TypeError) as caught:
                        call()
                    self.assertEqual(str(caught.exception), text % cls.__name__)

    def test_the_bases_have_no_instances(self):
        for base, classes in ((common.MessagesResult, PLAIN), (common.ScoredResult, WITH_SCORES)):
            self.assertRaises(TypeError, base)
            self.assertRaises(TypeError, base, 1, Message)
            self.assertFalse(hasattr(base, "of"))
            for cls in classes:
                self.assertTrue(issubclass(cls, base))


class AsSequences(unittest.TestCase):
    def test_positions(self):
        for cls in SEQUENCES:
            result, expected = delivered(cls), items(cls)
            self.assertEqual(len(result), 5)
            for at in range(-5, 5):
                self.assertEqual(result[at], expected[at])
            for at in (5, -6, sys.maxsize, -sys.maxsize - 1, 2**70):
                with self.assertRaises(IndexError):
                    result[at]
            with self.assertRaises(IndexError) as caught:
                result[5]
            self.assertEqual(str(caught.exception), cls.__name__ + " index out of range")

    def test_positions_that_are_none(self):
        for cls in SEQUENCES:
            for wrong in ("1", 1.0, None):
                with self.assertRaises(TypeError) as caught:
                    delivered(cls)[wrong]
                self.assertEqual(
                    str(caught.exception),
                    "%s indices must be integers or slices, not %s"
                    % (cls.__name__, type(wrong).__name__),
                )

    def test_slices(self):
        for cls in SEQUENCES:
            result, expected = delivered(cls), items(cls)
            for part in (slice(None), slice(1, 3), slice(None, None, -1), slice(9, 12)):
                self.assertEqual(list(result[part]), expected[part])
                self.assertIs(type(result[part]), cls)
                self.assertIs(result[part].cls, Message)

    def test_iteration_and_search(self):
        for cls in SEQUENCES:
            result, expected = delivered(cls, [8, 24, 8]), items(cls, [8, 24, 8])
            self.assertEqual(list(result), expected)
            self.assertEqual(list(reversed(result)), expected[::-1])
            self.assertIn(expected[1], result)
            self.assertNotIn(Message(9), result)
            self.assertEqual(result.index(expected[1]), 1)
            self.assertEqual(result.index(expected[2], 1), expected.index(expected[2], 1))
            self.assertRaises(ValueError, result.index, Message(9))
            self.assertRaises(ValueError, result.index, expected[1], 2)
            self.assertEqual(result.count(expected[0]), expected.count(expected[0]))

    def test_abstract_sequence(self):
        for cls in SEQUENCES:
            self.assertTrue(issubclass(cls, collections.abc.Sequence))
            self.assertIsInstance(delivered(cls), collections.abc.Sequence)
            self.assertNotIsInstance(delivered(cls), collections.abc.MutableSequence)

    @unittest.skipIf(sys.version_info < (3, 10), "match came with 3.10")
    def test_match(self):
        names = {"common": common, "found": None, "result": delivered(common.LrangeResult)}
        exec("match result:\n  case [first, *rest]: found = first, rest", names)
        self.assertEqual(names["found"], (Message(16), items(common.LrangeResult)[1:]))

    def test_nothing_can_be_set(self):
        for cls in SEQUENCES:
            result = delivered(cls)
            with self.assertRaises(TypeError):
                result[0] = Message(1)
            with self.assertRaises(TypeError):
                del result[0]
            with self.assertRaises(AttributeError):
                result.cls = int


class Comparison(unittest.TestCase):
    def test_equality_is_of_content(self):
        for cls in SEQUENCES:
            result, expected = delivered(cls), items(cls)
            self.assertTrue(result == delivered(cls))
            self.assertFalse(result != delivered(cls))
            self.assertTrue(result == expected)
            self.assertTrue(tuple(expected) == result)
            for other in (delivered(cls)[1:], delivered(cls)[::-1], expected[:-1], [], None, 5):
                self.assertFalse(result == other)
                self.assertTrue(result != other)
            self.assertRaises(TypeError, lambda: result < expected)

    def test_another_type_with_the_same_content_is_another_thing(self):
        for classes in (PLAIN, WITH_SCORES):
            self.assertNotEqual(delivered(classes[0]), delivered(classes[1]))

    def test_hash_is_that_of_a_tuple(self):
        class Unhashable:
            __hash__ = None  # type: ignore[assignment]

            def __init__(self, address):
                pass

        for cls in SEQUENCES:
            self.assertEqual(hash(delivered(cls)), hash(tuple(items(cls))))
            self.assertRaises(TypeError, hash, delivered(cls, made_with=Unhashable))
        self.assertRaises(TypeError, hash, common.HashResult.of([], (), Message))

    def test_hash_results(self):
        def make(*arguments):
            return common.HashResult.of(*arguments)

        result = make(Message(8), [1, 2], Message)
        self.assertTrue(result == make(Message(8), (1, 2), int))
        self.assertEqual(hash(result), hash(make(Message(8), (1, 2), int)))
        for other in (
            make(Message(9), [1, 2], Message),
            make(Message(8), [1], Message),
            make(None, [1, 2], Message),
            (Message(8), (1, 2)),
        ):
            self.assertFalse(result == other)
            self.assertTrue(result != other)


class Keeping(unittest.TestCase):
    def test_repr(self):
        for cls in PLAIN:
            self.assertEqual(
                repr(delivered(cls, [8, -24])), cls.__name__ + "([Message(8), Message(-24)])"
            )
        for cls in WITH_SCORES:
            self.assertEqual(
                repr(delivered(cls, [8, -24])),
                cls.__name__ + "([(Message(8), -1.5), (Message(-24), 0.0)])",
            )
        self.assertEqual(
            repr(common.HashResult.of(Message(8), [1], Message)),
            "HashResult(obj=Message(8), tags=(1,))",
        )

    def test_repr_of_what_contains_itself(self):
        inner = []
        result = common.LrangeResult.of([inner], Message)
        inner.append(result)
        self.assertEqual(repr(result), "LrangeResult([[LrangeResult(...)]])")
        fields = []
        hashed = common.HashResult.of(fields, [1], Message)
        fields.append(hashed)
        self.assertEqual(repr(hashed), "HashResult(obj=[HashResult(...)], tags=(1,))")

    def test_copies(self):
        results = [delivered(cls) for cls in SEQUENCES]
        results.append(common.HashResult.of(Message(8), [1, 7], Message))
        for result in results:
            for made in [copy.copy(result), copy.deepcopy(result)] + [
                pickle.loads(pickle.dumps(result, protocol))
                for protocol in range(pickle.HIGHEST_PROTOCOL + 1)
            ]:
                self.assertIs(type(made), type(result))
                self.assertEqual(made, result)
                self.assertIs(made.cls, Message)


class Of(unittest.TestCase):
    def test_sequences(self):
        for cls in SEQUENCES:
            made = cls.of(iter(items(cls)), cls=Message)
            self.assertEqual(made, delivered(cls))
            self.assertRaises(TypeError, cls.of, items(cls))
            self.assertRaises(TypeError, cls.of, 5, Message)
            with self.assertRaises(TypeError) as caught:
                cls.of([], 5)
            self.assertEqual(
                str(caught.exception),
                cls.__name__ + ".of() argument 'cls' must be a message class, not int",
            )

    def test_pairs(self):
        for cls in WITH_SCORES:
            self.assertEqual(cls.of([("m", 2)], str).scores, (2.0,))
            for wrong in ("ab", ("m",), ("m", 1, 2), ["m", 1], 5):
                with self.assertRaises(TypeError) as caught:
                    cls.of([wrong], str)
                self.assertEqual(
                    str(caught.exception),
                    "%s.of() argument 'pairs' must be (message, score) tuples, not %s"
                    % (cls.__name__, type(wrong).__name__),
                )
            with self.assertRaises(TypeError) as caught:
                cls.of([("m", "1")], str)
            self.assertEqual(
                str(caught.exception),
                cls.__name__ + ".of() argument 'score' must be a number, not str",
            )

    def test_hash(self):
        made = common.HashResult.of(obj=None, tags=range(3), cls=Message)
        self.assertEqual((made.obj, made.tags, made.cls), (None, (0, 1, 2), Message))
        for wrong, error in (([-1], OverflowError), ([1.0], TypeError), (5, TypeError)):
            self.assertRaises(error, common.HashResult.of, None, wrong, Message)


if __name__ == "__main__":
    unittest.main()
