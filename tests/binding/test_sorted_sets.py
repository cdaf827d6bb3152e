"""The sorted-set commands: the arrays of zadd and zrem, and what is special about the others."""
import unittest

import recorder
import support
import vu_mom
from support import Any, BindingTest, Client, Float, Message

POINTER = support.POINTER_BITS // 8
DOUBLE = 8


class Unmoved(Message):
    """A message that must not be asked for its address."""

    def get_ptr(self):
        raise AssertionError("called")


class Failing(Message):
    def get_ptr(self):
        raise KeyError("no address")


class ZAdd(BindingTest):

    FRAMES = ["VuMom.zadd"]

    def sent(self, scores, objs):
        recorder.clear()
        self.assertIsNone(self.client.zadd(0, scores, objs))
        return self.only_arguments()

    def test_arrays(self):
        arguments = self.sent([1.5, -2.0, float("inf")], [Message(1), Message(-2), Message(3)])
        self.assertEqual(arguments["scores"], [1.5, -2.0, float("inf")])
        self.assertEqual(arguments["messages"], [1, -2, 3])
        self.assertEqual(arguments["count"], 3)

    def test_empty_lists(self):
        """Return None without calling the store, whatever db is."""
        self.assertIsNone(self.client.zadd("db", [], []))
        self.assert_nothing_sent()

    def test_none(self):
        for scores, objs in ((None, [self.obj]), ([1.0], None), (None, None), (None, [])):
            with self.refuses(vu_mom.InputError, "scores or objs is None", self.FRAMES):
                self.client.zadd("db", scores, objs)
        self.assert_nothing_sent()

    def test_message_of_the_error_is_one_tuple(self):
        """Made once, not per error."""
        seen = []
        for _ in range(2):
            try:
                self.client.zadd(0, None, None)
            except vu_mom.InputError as error:
                seen.append(error.args)
                error.__traceback__ = None
        self.assertEqual(seen[0], ("scores or objs is None",))
        self.assertIs(seen[0][0], seen[1][0])

    def test_unequal_lengths(self):
        for scores, objs in (([1.0], []), ([], [self.obj]), ([1.0, 2.0], [self.obj])):
            with self.refuses(vu_mom.InputError, "len(scores) != len(objs)", self.FRAMES):
                self.client.zadd("db", scores, objs)
        self.assert_nothing_sent()

    def test_tuples(self):
        text = "Argument '%s' has incorrect type (expected list, got tuple)"
        with self.refuses(TypeError, text % "scores", self.FRAMES):
            self.client.zadd(0, (1.0,), [self.obj])
        with self.refuses(TypeError, text % "objs", self.FRAMES):
            self.client.zadd(0, [1.0], (self.obj,))
        with self.refuses(TypeError, text % "scores", self.FRAMES):
            self.client.zadd(0, (1.0,), (self.obj,))
        with self.refuses(TypeError, text % "objs", self.FRAMES):
            self.client.zadd(0, None, (self.obj,))  # types before the check for None

    def test_scores_that_convert(self):
        """3 is sent as the double 3.0; -1.0 is a score like any other."""
        class Score(float):
            pass
        self.assertEqual(self.sent([3, True, Float(-1.0), -1.0, -1, Score(0.1), 2 ** 60],
                                   [Message(i) for i in range(7)])["scores"],
                         [3.0, 1.0, -1.0, -1.0, -1.0, 0.1, 2.0 ** 60])
        arrived = self.sent([float("nan")], [self.obj])["scores"]
        self.assertNotEqual(arrived[0], arrived[0])

    def test_scores_that_are_no_numbers(self):
        """The error propagates at once, the store is not called, both arrays stay."""
        for wrong in ("1.0", None, []):
            with self.refuses(TypeError, support.float_refusal(wrong), self.FRAMES):
                self.client.zadd(0, [1.0, wrong, 2.0], [self.obj, self.obj, Unmoved()])
            self.assert_nothing_sent()
            self.assertEqual(recorder.live_blocks(), 2)
            self.assertEqual(recorder.live_bytes(), 3 * (POINTER + DOUBLE))
            recorder.free_blocks()
        with self.refuses(OverflowError):
            self.client.zadd(0, [10 ** 400], [self.obj])
        recorder.free_blocks()

    def test_messages_that_fail(self):
        """The address of an element comes before its score."""
        with self.refuses(KeyError, "'no address'", self.FRAMES):
            self.client.zadd(0, ["x"], [Failing()])
        self.assertEqual(recorder.live_blocks(), 2)
        recorder.free_blocks()
        with self.refuses(AttributeError, None, self.FRAMES):
            self.client.zadd(0, [1.0, 1.0], [self.obj, None])
        recorder.free_blocks()
        with self.refuses(TypeError, "an integer is required", self.FRAMES):
            self.client.zadd(0, [1.0], [Message("x")])
        recorder.free_blocks()
        self.assert_nothing_sent()

    def test_db_comes_last(self):
        with self.refuses(KeyError, "'no address'"):
            self.client.zadd("db", [1.0], [Failing()])
        recorder.free_blocks()

    def test_no_memory(self):
        """For the first array nothing is left; for the second the first is released."""
        for failing in (1, 2):
            recorder.fail_allocation(failing)
            with self.refuses(MemoryError, "", self.FRAMES):
                self.client.zadd(0, [1.0], [Unmoved()])
            self.assertEqual((recorder.live_blocks(), recorder.wrong_frees()), (0, 0))
        self.assert_nothing_sent()

    def test_lists_that_shrink(self):
        """get_ptr() may shorten the lists; nothing is read beyond them."""
        for name in ("scores", "objs"):
            lists = {"scores": [1.0, 2.0, 3.0], "objs": [None, self.obj, self.obj]}  # type: dict

            class Shrinking(Message):
                def get_ptr(self):
                    del lists[name][1:]
                    return 1
            lists["objs"][0] = Shrinking()
            with self.refuses(IndexError, "list index out of range", self.FRAMES):
                self.client.zadd(0, lists["scores"], lists["objs"])
            self.assert_nothing_sent()
            recorder.free_blocks()
            lists.clear()

    def test_arrays_are_released(self):
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError), (9, vu_mom.Error)):
            recorder.answer(status)
            with self.refuses(error, "", self.FRAMES):
                self.client.zadd(0, [1.0], [self.obj])
            self.assertEqual(recorder.live_blocks(), 0)


class ZRem(BindingTest):

    FRAMES = ["VuMom.zrem"]

    def sent(self, objs):
        recorder.clear()
        self.assertIsNone(self.client.zrem(0, objs))
        arguments = self.only_arguments()
        return arguments["messages"], arguments["count"]

    def test_arrays(self):
        self.assertEqual(self.sent([Message(1), Message(-2)]), ([1, -2], 2))

    def test_none_and_empty(self):
        """Call the store with a null array and a count of 0."""
        before = recorder.allocations()
        self.assertEqual(self.sent([]), (None, 0))
        self.assertEqual(self.sent(None), (None, 0))
        self.assertEqual(recorder.allocations(), before)
        with self.refuses(TypeError, "an integer is required", self.FRAMES):
            self.client.zrem("db", None)

    def test_array_is_the_stores(self):
        """The module does not release it, whatever the status."""
        for status in (0, -1, -2, -3, 7):
            recorder.clear()
            recorder.answer(status)
            try:
                self.client.zrem(0, [self.obj, self.obj])
            except (vu_mom.InputError, vu_mom.Error, MemoryError):
                self.assertNotEqual(status, 0)
            self.assertEqual((recorder.taken_blocks(), recorder.wrong_frees()), (1, 0))

    def test_messages_that_fail(self):
        """The array stays, the store is not called."""
        for wrong, error in ((Failing(), KeyError), (None, AttributeError),
                             (Message("x"), TypeError)):
            with self.refuses(error, None, self.FRAMES):
                self.client.zrem("db", [self.obj, wrong, Unmoved()])
            self.assertEqual((recorder.live_blocks(), recorder.live_bytes()), (1, 3 * POINTER))
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_no_memory(self):
        recorder.fail_allocation(1)
        with self.refuses(MemoryError, "", self.FRAMES):
            self.client.zrem(0, [Unmoved()])
        self.assert_nothing_sent()

    def test_list_that_shrinks(self):
        objs = [None, self.obj]

        class Shrinking(Message):
            def get_ptr(self):
                del objs[1:]
                return 1
        objs[0] = Shrinking()
        with self.refuses(IndexError, "list index out of range", self.FRAMES):
            self.client.zrem(0, objs)
        self.assert_nothing_sent()
        recorder.free_blocks()
        del objs[:]

    def test_tuple(self):
        with self.refuses(TypeError, "Argument 'objs' has incorrect type (expected list, got "
                          "tuple)", self.FRAMES):
            self.client.zrem(0, ())


class Bounds(BindingTest):

    def test_strings_fail_while_binding(self):
        """Before any reply method is looked up; min before max, start before stop."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        for name in ("zcount", "zrangebyscore"):
            for low, high, wrong in (("a", None, "a"), (0, None, None)):
                with self.refuses(TypeError, support.float_refusal(wrong), ["VuMom." + name]):
                    getattr(client, name)("db", object(), low, high, None)
        for low, high, error in (("x", 2 ** 31, TypeError), (2 ** 31, "x", OverflowError)):
            with self.refuses(error):
                client.zrange("db", object(), low, high, None)
        self.assert_nothing_sent()

    def test_removals_convert_bounds_before_db(self):
        with self.refuses(TypeError, support.float_refusal("x")):
            self.client.zremrangebyscore("db", object(), "x", 1)
        with self.refuses(TypeError, "an integer is required"):
            self.client.zremrangebyscore("db", object(), 0, 1)
        with self.refuses(OverflowError, support.LONG_OVERFLOW):
            self.client.zremrangebyrank("db", object(), 2 ** 31, 0)
        with self.refuses(TypeError, "an integer is required"):
            self.client.zremrangebyrank("db", object(), 0, 0)
        self.assert_nothing_sent()

    def test_scores(self):
        for low, high in ((-1.0, -1), (float("-inf"), float("inf")), (Float(0.25), True),
                          (2 ** 53, 1e308)):  # type: Any, Any
            for name, more in (("zcount", (None,)), ("zrangebyscore", (None,)),
                               ("zremrangebyscore", ())):
                recorder.clear()
                getattr(self.client, name)(0, self.obj, low, high, *more)
                arguments = self.only_arguments()
                self.assertEqual((arguments["min"], arguments["max"]), (float(low), float(high)))
                if more:
                    self.take_back(arguments["context"])


if __name__ == "__main__":
    unittest.main()
