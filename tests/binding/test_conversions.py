"""Integers and lists on their way to the store."""
import sys
import unittest

import recorder
import support
from support import BindingTest, Int, reports


class Integers(BindingTest):
    """As db of delete, level of pdel, count of lrem, owner of setow."""

    def db(self, value):
        recorder.clear()
        self.client.delete(value, self.obj)
        return self.only_arguments()["db"]

    def test_accepted(self):
        class Sub(int):
            pass
        for value, wanted in ((0, 0), (True, 1), (False, 0), (Sub(5), 5), (2.0, 2), (-2.9, -2),
                              (2.9, 2), (Int(7), 7), (Int(True), 1), (Int(Sub(8)), 8),
                              (1e9, 10 ** 9), (-0.0, 0)):
            with support.warnings_ignored():  # of an __int__ that returns no exact int
                self.assertEqual(self.db(value), wanted)

    def test_other_numbers(self):
        import decimal
        import fractions
        self.assertEqual(self.db(decimal.Decimal("-7.9")), -7)
        if hasattr(fractions.Fraction, "__int__"):
            self.assertEqual(self.db(fractions.Fraction(15, 2)), 7)

    def test_floats_that_are_no_numbers(self):
        """Their own conversion says so."""
        with self.refuses(ValueError, None, ["VuMom.delete"]):
            self.db(float("nan"))
        for value in (float("inf"), -float("inf")):
            with self.refuses(OverflowError, None, ["VuMom.delete"]):
                self.db(value)
        with self.refuses(OverflowError, support.LONG_OVERFLOW, ["VuMom.delete"]):
            self.db(2.0 ** 31)
        self.assert_nothing_sent()

    def test_int_of_the_instance_does_not_count(self):
        """The type must provide the conversion."""
        class Plain(object):
            pass
        plain = Plain()
        plain.__int__ = lambda: 5  # type: ignore[attr-defined]
        with self.refuses(TypeError, "an integer is required", ["VuMom.delete"]):
            self.db(plain)

    def test_conversions_that_fail(self):
        class Failing(object):
            def __int__(self):
                raise KeyError("inside")
        with self.refuses(KeyError, "'inside'", ["VuMom.delete"]):
            self.db(Failing())

    def test_results_that_are_no_integers(self):
        long_name = "L" * 300
        for value, name in (("5", "str"), (5.0, "float"), (None, "NoneType"),
                            (type(long_name, (object,), {})(), long_name[:200])):
            with self.refuses(TypeError, "__int__ returned non-int (type %s)" % name,
                              ["VuMom.delete"]):
                self.db(Int(value))

    def test_widths(self):
        """The two ends of each width, and one beyond."""
        def size(value):
            return self.client.lrem(0, self.obj, value)

        def unsigned(value):
            self.client.unsubscribe(0, self.obj, value)

        def owner(value):
            self.client.delow(0, self.obj, value)

        def signed(value):
            self.client.delete(value, self.obj)
        for send, name, low, high in ((signed, "db", -2 ** 31, 2 ** 31 - 1),
                                      (unsigned, "level", 0, 2 ** 32 - 1),
                                      (size, "count", 0, support.SIZE_LIMIT - 1),
                                      (owner, "owner", -2 ** 63, 2 ** 63 - 1)):
            for value in (low, high):
                for wrapped in (value, Int(value)):
                    recorder.clear()
                    send(wrapped)
                    self.assertEqual(self.only_arguments()[name], value)
            recorder.clear()
            for value in (low - 1, high + 1):
                with self.refuses(OverflowError):
                    send(value)
                self.assert_nothing_sent()


class Tags(BindingTest):
    """Lists of size_t that are converted without raising: those of hmset."""

    def tags(self, value):
        """(array, count) as they arrive, and what was reported meanwhile."""
        recorder.clear()
        with reports() as found:
            self.assertIsNone(self.client.hmset(0, self.obj, value))
        arguments = self.only_arguments()
        return (arguments["tags"], arguments["count"]), found

    def sent(self, value):
        arrived, found = self.tags(value)
        self.assert_quiet(found)
        return arrived

    def assert_fails(self, value, error, text, left):
        """Reported once, and goes on with a null array and the full length; an array that was
        begun stays allocated."""
        arrived, found = self.tags(value)
        self.assertEqual(arrived, (None, len(value)))
        self.assert_reported(found, "size_t_list_to_carr", error, text)
        self.assertEqual(recorder.live_blocks(), left)
        self.assertEqual(recorder.live_bytes(), left * len(value) * support.POINTER_BITS // 8)
        recorder.free_blocks()

    def test_none_and_empty(self):
        """Both give length 0 and a null array, and allocate nothing."""
        before = recorder.allocations()
        self.assertEqual(self.sent(None), (None, 0))
        self.assertEqual(self.sent([]), (None, 0))
        self.assertEqual(recorder.allocations(), before)

    def test_elements(self):
        self.assertEqual(self.sent([3]), ([3], 1))
        self.assertEqual(self.sent([3, 1, 2, 2 ** 31, support.SIZE_LIMIT - 1, 0]),
                         ([3, 1, 2, 2 ** 31, support.SIZE_LIMIT - 1, 0], 6))
        many = list(range(10000, 0, -1))
        self.assertEqual(self.sent(many), (many, 10000))

    def test_elements_that_convert(self):
        """True converts to 1, 2.0 through the float's integer conversion to 2."""
        self.assertEqual(self.sent([True, 2.0]), ([1, 2], 2))
        self.assertEqual(self.sent([Int(5), 7.9]), ([5, 7], 2))

    def test_negative_element(self):
        """Seen as the null array of an empty list, with the error printed as unraisable."""
        self.assert_fails([1, -1], OverflowError, "can't convert negative value to size_t", 1)
        self.assert_fails([-2 ** 100], OverflowError, "can't convert negative value to size_t", 1)

    def test_element_beyond_the_range(self):
        """One more than size_t holds: the interpreter's overflow error for unsigned long."""
        self.assert_fails([support.SIZE_LIMIT], OverflowError, support.UNSIGNED_LONG_OVERFLOW, 1)

    def test_elements_that_are_no_integers(self):
        for wrong in ("1", None, [], support.OnlyIndex(), support.OnlyTrunc()):
            self.assert_fails([1, wrong, 2], TypeError, "an integer is required", 1)
        self.assert_fails([Int("x")], TypeError, "__int__ returned non-int (type str)", 1)

    def test_conversion_that_raises(self):
        class Failing(object):
            def __init__(self, error):
                self.error = error

            def __int__(self):
                raise self.error
        for error in (ValueError("mine"), SystemExit("mine"), KeyboardInterrupt("mine")):
            self.assert_fails([Failing(error)], type(error), "mine", 1)
            error.__traceback__ = None

    def test_no_memory(self):
        """The allocation of the array fails: MemoryError, reported, and the call goes on."""
        recorder.fail_allocation(1)
        self.assert_fails([1, 2], MemoryError, "", 0)

    def test_list_that_shrinks(self):
        """An element that shortens its list is no way to read beyond it."""
        tags = [None, 2, 3]  # type: list

        class Shrinking(object):
            def __int__(self):
                del tags[1:]
                return 1
        tags[0] = Shrinking()
        arrived, found = self.tags(tags)
        tags[0] = None
        self.assertEqual(arrived, (None, 1))  # the length is taken after the array
        self.assert_reported(found, "size_t_list_to_carr", IndexError, "list index out of range")
        recorder.free_blocks()

    def test_conversion_happens_once_per_element(self):
        log = support.Steps()
        self.assertEqual(self.sent([Int(4, log, "first"), Int(5, log, "second")]), ([4, 5], 2))
        self.assertEqual(log.seen, ["first", "second"])

    def test_lists_are_not_changed_or_kept(self):
        tags = [1, 2.5]
        before = sys.getrefcount(tags)
        self.sent(tags)
        self.assertEqual(sys.getrefcount(tags), before)
        self.assertEqual(tags, [1, 2.5])


if __name__ == "__main__":
    unittest.main()
