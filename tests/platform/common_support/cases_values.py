"""Results of one value."""

import copy
import pickle
import unittest

from delivery import HASH, INTEGER, MESSAGES, SCORE, SCORED, common, payload

NUMBERS = [
    common.GetResult,
    common.IncrResult,
    common.LlenResult,
    common.LinsertResult,
    common.LminsertResult,
    common.LmremResult,
    common.SaveResult,
    common.ZcardResult,
    common.ZrankResult,
    common.ZcountResult,
    common.ScardResult,
]
TRUTHS = [common.SetnxResult, common.LsetResult, common.SismemberResult]
SCORES = [common.ZscoreResult]
ALL = NUMBERS + TRUTHS + SCORES
LEAST, MOST = -(2**63), 2**63 - 1


def kind_of(cls):
    return SCORE if cls in SCORES else INTEGER


def some(cls):
    return cls.of(True) if cls in TRUTHS else cls.of(3)


class FromPayloads(unittest.TestCase):
    def test_integers(self):
        for cls in NUMBERS:
            for value in (0, 1, -1, 3, 2**31, -(2**31) - 1, LEAST, MOST):
                with payload(INTEGER, integer=value, score=9.5) as data:
                    result = cls(data)
                self.assertEqual(result.value, value)
                self.assertIs(type(result.value), int)
                self.assertIs(type(result), cls)

    def test_truth_values(self):
        for cls in TRUTHS:
            for value in (0, 1, -1, 7, 2**40):
                with payload(INTEGER, integer=value) as data:
                    result = cls(data)
                self.assertIs(result.value, value != 0)

    def test_scores(self):
        for cls in SCORES:
            for value in (0.0, -1.5, 1e300, float("inf"), float("-inf")):
                with payload(SCORE, score=value, integer=9) as data:
                    result = cls(data)
                self.assertEqual(result.value, value)
                self.assertIs(type(result.value), float)

    def test_data_by_keyword(self):
        for cls in ALL:
            with payload(kind_of(cls), integer=1, score=1.0) as data:
                self.assertEqual(cls(data=data), 1)

    def test_an_address_that_is_not_delivered_is_refused(self):
        for cls in ALL:
            with payload(kind_of(cls)) as data:
                for wrong in (data + 8, -data, 0, 1, True, 2**32 + data, 2**64 + data, -(2**70)):
                    with self.assertRaises(ValueError) as caught:
                        cls(wrong)
                    self.assertEqual(
                        str(caught.exception),
                        "%s() argument 'data': %s is not the address of the data of the reply "
                        "being delivered" % (cls.__name__, wrong),
                    )
            with self.assertRaises(ValueError):
                cls(data)

    def test_another_kind_of_payload_is_refused(self):
        said = {HASH: "a hash", MESSAGES: "messages", SCORED: "messages with scores"}
        said.update({INTEGER: "an integer", SCORE: "a score", 77: "something unknown"})
        for cls in ALL:
            for kind in said:
                if kind == kind_of(cls):
                    continue
                with payload(kind) as data:
                    with self.assertRaises(ValueError) as caught:
                        cls(data)
                self.assertEqual(
                    str(caught.exception),
                    "%s() argument 'data': the reply carries %s, not %s"
                    % (cls.__name__, said[kind], said[kind_of(cls)]),
                )

    def test_wrong_arguments_are_named(self):
        for cls in ALL:
            name = cls.__name__
            with payload(kind_of(cls)) as data:
                for call, text in (
                    (lambda: cls(), "%s() missing required argument 'data'"),
                    (lambda: cls(data, data), "%s() takes at most 1 argument (2 given)"),
                    (lambda: cls(data, data=data), "%s() got multiple values for argument 'data'"),
                    (lambda: cls(data, cls=int), "%s() got an unexpected keyword argument 'cls'"),
                    (lambda: cls(None), "%s() argument 'data' must be an integer address, not "
                     "NoneType"),
                    (lambda: cls(1.0), "%s() argument 'data' must be an integer address, not "
                     "float"),
                ):
                    with self.assertRaises(TypeError) as caught:
                        call()
                    self.assertEqual(str(caught.exception), text % name)

    def test_the_base_has_no_instances(self):
        self.assertRaises(TypeError, common.ValueResult)
        self.assertRaises(TypeError, common.ValueResult, 1)
        self.assertFalse(hasattr(common.ValueResult, "of"))
        for cls in ALL:
            self.assertTrue(issubclass(cls, common.ValueResult))


class AsNumbers(unittest.TestCase):
    def test_conversions(self):
        result = common.LlenResult.of(3)
        self.assertEqual((int(result), float(result), bool(result)), (3, 3.0, True))
        self.assertEqual("abcd"[result], "d")
        self.assertEqual(list(range(result)), [0, 1, 2])
        self.assertFalse(common.LlenResult.of(0))

    def test_truth_values_are_integers_too(self):
        result = common.SetnxResult.of(True)
        self.assertIs(type(int(result)), int)
        self.assertEqual("ab"[result], "b")
        self.assertFalse(common.SetnxResult.of(False))

    def test_scores_have_no_index(self):
        result = common.ZscoreResult.of(2.5)
        self.assertEqual((int(result), float(result), bool(result)), (2, 2.5, True))
        self.assertFalse(hasattr(result, "__index__"))
        self.assertRaises(TypeError, lambda: "abc"[result])
        self.assertRaises(OverflowError, int, common.ZscoreResult.of(float("inf")))


class Comparison(unittest.TestCase):
    def test_with_numbers(self):
        for cls in NUMBERS + SCORES:
            result = cls.of(3)
            for equal in (3, 3.0, cls.of(3)):
                self.assertTrue(result == equal)
                self.assertTrue(equal == result)
                self.assertFalse(result != equal)
                self.assertTrue(result <= equal)
                self.assertTrue(result >= equal)
            for more in (4, 3.5, cls.of(4), float("inf")):
                self.assertFalse(result == more)
                self.assertTrue(result != more)
                self.assertTrue(result < more)
                self.assertTrue(more > result)
                self.assertFalse(result >= more)

    def test_of_truth_values(self):
        for cls in TRUTHS:
            self.assertEqual(cls.of(True), True)
            self.assertEqual(cls.of(False), False)
            self.assertEqual(cls.of(True), cls.of(True))
            self.assertNotEqual(cls.of(True), cls.of(False))

    def test_with_other_things(self):
        for cls in ALL:
            result = some(cls)
            for other in (None, "3", [3], some(ALL[ALL.index(cls) - 1]), object()):
                self.assertFalse(result == other)
                self.assertTrue(result != other)
                self.assertRaises(TypeError, lambda: result < other)

    def test_sorting(self):
        results = [common.ZrankResult.of(n) for n in (3, -1, 2)]
        self.assertEqual(sorted(results), [-1, 2, 3])

    def test_hash(self):
        for cls in ALL:
            result = some(cls)
            self.assertEqual(hash(result), hash(result.value))
            self.assertEqual({result: "x"}[result.value], "x")


class Keeping(unittest.TestCase):
    def test_repr(self):
        for cls in NUMBERS:
            self.assertEqual(repr(cls.of(-3)), cls.__name__ + "(value=-3)")
        for cls in TRUTHS:
            self.assertEqual(repr(cls.of(False)), cls.__name__ + "(value=False)")
        self.assertEqual(repr(common.ZscoreResult.of(1)), "ZscoreResult(value=1.0)")

    def test_copies(self):
        for cls in ALL:
            result = some(cls)
            for made in [copy.copy(result), copy.deepcopy(result)] + [
                pickle.loads(pickle.dumps(result, protocol))
                for protocol in range(pickle.HIGHEST_PROTOCOL + 1)
            ]:
                self.assertIs(type(made), cls)
                self.assertEqual(made, result)
                self.assertIs(type(made.value), type(result.value))

    def test_nothing_can_be_set(self):
        for cls in ALL:
            result = some(cls)
            with self.assertRaises(AttributeError):
                result.value = 4
            with self.assertRaises(AttributeError):
                result.other = 4
            with self.assertRaises(TypeError):
                type("Sub", (cls,), {})


class Of(unittest.TestCase):
    def test_integers(self):
        class Index:
            def __index__(self):
                return 5

        for cls in NUMBERS:
            self.assertEqual(cls.of(Index()), 5)
            self.assertIs(type(cls.of(True).value), int)
            self.assertEqual(cls.of(value=MOST), MOST)
            self.assertEqual(cls.of(LEAST), LEAST)
            for wrong in (1.0, "1", None):
                with self.assertRaises(TypeError) as caught:
                    cls.of(wrong)
                self.assertEqual(
                    str(caught.exception),
                    "%s.of() argument 'value' must be an integer, not %s"
                    % (cls.__name__, type(wrong).__name__),
                )
            for wrong in (MOST + 1, LEAST - 1, 2**200):
                with self.assertRaises(OverflowError) as overflow:
                    cls.of(wrong)
                self.assertEqual(
                    str(overflow.exception),
                    "%s.of() argument 'value' must be between %d and %d"
                    % (cls.__name__, LEAST, MOST),
                )

    def test_truth_values(self):
        for cls in TRUTHS:
            self.assertIs(cls.of(value=True).value, True)
            with self.assertRaises(TypeError) as caught:
                cls.of(1)
            self.assertEqual(
                str(caught.exception),
                cls.__name__ + ".of() argument 'value' must be a bool, not int",
            )

    def test_scores(self):
        self.assertEqual(common.ZscoreResult.of(2).value, 2.0)
        for wrong in ("1", None, b"1"):
            with self.assertRaises(TypeError) as caught:
                common.ZscoreResult.of(wrong)
            self.assertEqual(
                str(caught.exception),
                "ZscoreResult.of() argument 'value' must be a number, not "
                + type(wrong).__name__,
            )
        self.assertRaises(OverflowError, common.ZscoreResult.of, 10**400)


if __name__ == "__main__":
    unittest.main()
