"""pexpire, pexpire_field, pexpire_fields, del_expire, pdel: what is special about each."""
import unittest

import recorder
import support
import vu_mom
from support import BindingTest, Client, Float


class Time(BindingTest):

    def split(self, time):
        """As each of the three commands splits it: all do it alike."""
        found = set()
        for name, more in (("pexpire", ()), ("pexpire_field", (1,)), ("pexpire_fields", ([1],))):
            recorder.clear()
            self.assertIsNone(
                getattr(self.client, name)(0, self.obj, 0, *(more + (time, None))))
            arguments = self.only_arguments()
            found.add((arguments["seconds"], arguments["microseconds"]))
            self.take_back(arguments["context"])
        self.assertEqual(len(found), 1)
        return found.pop()

    def test_examples(self):
        """Truncated, not rounded; both parts have the sign."""
        for time, wanted in ((1.001, (1, 999)), (2.25, (2, 250000)), (-1.5, (-1, -500000)),
                             (1e-07, (0, 0)), (5, (5, 0)), (0, (0, 0)), (-0.0, (0, 0)),
                             (True, (1, 0)), (Float(3.5), (3, 500000)), (-1.0, (-1, 0)),
                             (-1, (-1, 0)),
                             (2 ** 31 - 1, (2 ** 31 - 1, 0)), (-2 ** 31, (-2 ** 31, 0)),
                             (2147483647.75, (2 ** 31 - 1, 750000)), (0.9999999, (0, 999999)),
                             (-1e-06, (0, -1)), (1e-300, (0, 0))):
            self.assertEqual(self.split(time), wanted)

    def test_as_python_computes(self):
        for i in range(-200, 200):
            time = i * 0.7310585786300049 + i ** 3 * 1e-7
            whole = int(time)
            self.assertEqual(self.split(time), (whole, int((time - whole) * 1000000)))

    def test_times_out_of_range(self):
        """The seconds stay at the nearest end of their range; what int() refuses is refused."""
        self.assertEqual(self.split(2.0 ** 31), (2 ** 31 - 1, 0))
        self.assertEqual(self.split(1e300), (2 ** 31 - 1, 0))
        self.assertEqual(self.split(-2147483649.5), (-2 ** 31, -500000))
        recorder.clear()
        for time, error, text in (
                (float("inf"), OverflowError, "cannot convert float infinity to integer"),
                (float("-inf"), OverflowError, "cannot convert float infinity to integer"),
                (float("nan"), ValueError, "cannot convert float NaN to integer")):
            for name, more in (("pexpire", ()), ("pexpire_field", (1,)),
                               ("pexpire_fields", ([1],))):
                with self.refuses(error, text, ["VuMom." + name]):
                    getattr(self.client, name)("db", object(), 0, *(more + (time, None)))
        self.assert_nothing_sent()

    def test_wrong_times(self):
        for wrong in ("1.0", None, []):
            for name, more in (("pexpire", ()), ("pexpire_field", (1,)),
                               ("pexpire_fields", ([1],))):
                with self.refuses(TypeError, support.float_refusal(wrong), ["VuMom." + name]):
                    getattr(self.client, name)("db", object(), 0, *(more + (wrong, None)))
        self.assert_nothing_sent()


class Levels(BindingTest):

    COMMANDS = (("pexpire", (1.0,)), ("pexpire_field", (1, 1.0)), ("pexpire_fields", ([1], 1.0)),
                ("del_expire", ()), ("pdel", ()))

    def test_negative_levels(self):
        """Before anything is looked up."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        for name, more in self.COMMANDS:
            with self.refuses(OverflowError, "can't convert negative value to unsigned int",
                              ["VuMom." + name]):
                getattr(client, name)("db", object(), -1, *(more + (None,)))
            with self.refuses(OverflowError, support.UNSIGNED_LONG_OVERFLOW, ["VuMom." + name]):
                getattr(client, name)("db", object(), 2 ** 32, *(more + (None,)))
        self.assert_nothing_sent()

    def test_tag_is_converted_between_level_and_time(self):
        with self.refuses(OverflowError, support.LONG_OVERFLOW, ["VuMom.pexpire_field"]):
            self.client.pexpire_field("db", object(), 0, 2 ** 31, "time", None)
        with self.refuses(OverflowError, "can't convert negative value to unsigned int"):
            self.client.pexpire_field("db", object(), -1, 2 ** 31, "time", None)
        self.client.pexpire_field(0, self.obj, 0, -5, 1.0, None)
        self.assertEqual(self.only_arguments()["tag"], -5)
        self.take_back(self.sent_context())

    def test_missing_reply_methods(self):
        """Each by its own prefix, before the library is called."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        for (name, more), prefix in zip(self.COMMANDS, ("pexpire", "pexpirefield", "pexpirefields",
                                                        "delexpire", "pdel")):
            with self.refuses(AttributeError,
                              "'Client' object has no attribute 'on_%s_demo_Counter'" % prefix,
                              ["VuMom." + name, "VuMom.__getfunc"]):
                getattr(client, name)(0, self.obj, 0, *(more + (None,)))
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_end_marks(self):
        """A reply with another end mark leaves the context alive, the right one releases it; the
        result stays None even with data."""
        for (name, more), flag in zip(self.COMMANDS, (2, 4, 4, 3, 5)):
            recorder.clear()
            getattr(self.client, name)(0, self.obj, 0, *(more + (self.p,)))
            context = self.sent_context()
            for end_mark in (0, 1, flag + 1, flag - 1):
                self.reply(context, 0x10, end_mark)
                self.assertEqual(self.extra_references(context), 1)
            self.reply(context, 0x10, flag)
            self.assertEqual([msg.result for _, msg, _ in self.client.replies], [None] * 5)
            self.client.replies[:] = []


class Fields(BindingTest):

    FRAMES = ["VuMom.pexpire_fields"]

    def test_empty_list(self):
        """Returns None, sends nothing, needs no reply method."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        self.assertIsNone(client.pexpire_fields("db", object(), 0, [], 1.0, None))
        self.assert_nothing_sent()

    def test_none(self):
        with self.refuses(vu_mom.InputError, "field_tags is None", self.FRAMES):
            self.client.pexpire_fields("db", object(), 0, None, 1.0, None)
        with self.refuses(TypeError, support.float_refusal("soon"), self.FRAMES):
            self.client.pexpire_fields("db", object(), 0, None, "soon", None)
        self.assert_nothing_sent()

    def test_tuple(self):
        """After level and time."""
        text = "Argument 'field_tags' has incorrect type (expected list, got tuple)"
        with self.refuses(TypeError, text, self.FRAMES):
            self.client.pexpire_fields("db", object(), 0, (), 1.0, None)
        with self.refuses(TypeError, support.float_refusal("soon"), self.FRAMES):
            self.client.pexpire_fields("db", object(), 0, (), "soon", None)
        with self.refuses(TypeError, "an integer is required", self.FRAMES):
            self.client.pexpire_fields("db", object(), "x", (), "soon", None)

    def test_bad_elements(self):
        """Raise, unlike those of hmset; the array stays and is not handed to the library."""
        for wrong, error, text in (
                (-1, OverflowError, "can't convert negative value to size_t"),
                (support.SIZE_LIMIT, OverflowError, support.UNSIGNED_LONG_OVERFLOW),
                ("x", TypeError, "an integer is required")):
            with self.refuses(error, text, self.FRAMES):
                self.client.pexpire_fields("db", object(), 0, [1, wrong], 1.0, None)
            self.assertEqual((recorder.live_blocks(), recorder.live_bytes()),
                             (1, 2 * support.POINTER_BITS // 8))
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_no_memory(self):
        recorder.fail_allocation(1)
        with self.refuses(MemoryError, "", self.FRAMES):
            self.client.pexpire_fields("db", object(), 0, [1], 1.0, None)
        self.assert_nothing_sent()

    def test_list_that_shrinks(self):
        tags = [None, 2]  # type: list

        class Shrinking(object):
            def __int__(self):
                del tags[1:]
                return 1
        tags[0] = Shrinking()
        with self.refuses(IndexError, "list index out of range", self.FRAMES):
            self.client.pexpire_fields(0, self.obj, 0, tags, 1.0, None)
        del tags[:]
        recorder.free_blocks()

    def test_array_is_freed(self):
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError), (9, vu_mom.Error)):
            recorder.clear()
            recorder.answer(status)
            with self.refuses(error, "", self.FRAMES):
                self.client.pexpire_fields(0, self.obj, 0, [1], 1.0, None)
            self.assertEqual(recorder.live_blocks(), 0)
            self.take_back(self.sent_context())


if __name__ == "__main__":
    unittest.main()
