"""The list commands: what is special about each."""
import unittest

import recorder
import support
from support import BindingTest, Client, Message


class Lists(BindingTest):

    def test_negative_count(self):
        """lrem(db, obj, -1) raises and does not call the store."""
        with self.refuses(OverflowError, "can't convert negative value to size_t",
                          ["VuMom.lrem"]):
            self.client.lrem(0, self.obj, -1)
        self.assert_nothing_sent()

    def test_count_is_converted_last(self):
        with self.refuses(TypeError, "an integer is required", ["VuMom.lrem"]):
            self.client.lrem("db", self.obj, -1)
        with self.refuses(AttributeError):
            self.client.lrem(0, object(), -1)

    def test_lrem_ignores_its_fourth_argument(self):
        """And needs no reply method."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        sent = []
        for more in ((), (None,), (self.p,)):
            recorder.clear()
            self.assertIsNone(client.lrem(0, self.obj, 2, *more))
            sent.append(self.only_call())
        self.assertEqual(sent, sent[:1] * 3)
        arguments = dict(sent[0].arguments)
        self.assertEqual((arguments["callback"], arguments["context"]), (None, None))

    def test_lpush_with_three_arguments(self):
        with self.refuses(TypeError, "lpush() takes exactly 2 positional arguments (3 given)",
                          ["VuMom.lpush"]):
            self.client.lpush(0, self.obj, None)

    def test_lrem_counts(self):
        with self.refuses(TypeError, "lrem() takes at least 3 positional arguments (2 given)"):
            self.client.lrem(0, self.obj)
        with self.refuses(TypeError, "lrem() takes at most 4 positional arguments (5 given)"):
            self.client.lrem(0, self.obj, 1, None, None)

    def test_linsert_without_the_reply_method(self):
        """Fails before pivot.get_ptr() is called; the name comes from obj, never from pivot."""
        class Pivot(Message):
            package_name = "other"

            def get_ptr(self):
                raise AssertionError("called")

        class Other(Client):
            def on_linsert_other_Counter(self, msg, p):
                raise AssertionError("found")
        client = Other(self.glb)
        self.glb.apps[:] = []
        with self.refuses(AttributeError, "'Other' object has no attribute "
                          "'on_linsert_demo_Counter'", ["VuMom.linsert", "VuMom.__getfunc"]):
            client.linsert(0, Pivot(), self.obj, 0, None)
        self.assert_nothing_sent()

    def test_linsert_pivot_first(self):
        """pivot's address is converted before obj.get_ptr() is called."""
        class Obj(Message):
            def get_ptr(self):
                raise AssertionError("called")
        with self.refuses(TypeError, "an integer is required", ["VuMom.linsert"]):
            self.client.linsert(0, Message("pivot"), Obj(), 0, self.p)
        support.give_back_contexts(self, self.p, 1)

    def test_linsert_needs_no_names_of_the_pivot(self):
        class Pivot(object):
            def get_ptr(self):
                return 88
        self.client.linsert(0, Pivot(), self.obj, 1, None)
        arguments = self.only_arguments()
        self.assertEqual((arguments["pivot"], arguments["message"], arguments["order"]),
                         (88, support.ADDRESS, 1))
        self.take_back(arguments["context"])

    def test_numbers_that_are_converted_while_binding(self):
        """order of linsert, start and stop of lrange fail before anything is looked up; pos of
        lset fails last, when there is a context."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(TypeError, "an integer is required"):
            client.linsert("db", object(), object(), "x", None)
        with self.refuses(TypeError, "an integer is required"):
            client.lrange("db", object(), "x", 2 ** 31, None)
        with self.refuses(OverflowError, support.LONG_OVERFLOW):
            client.lrange("db", object(), 0, 2 ** 31, None)
        with self.refuses(AttributeError):
            self.client.lset(0, object(), "x", None)
        with self.refuses(TypeError, "an integer is required"):
            self.client.lset(0, self.obj, "x", self.p)
        support.give_back_contexts(self, self.p, 1)
        self.assert_nothing_sent()

    def test_lpush_returns_at_once(self):
        """None, and nothing is ever delivered: there is no callback."""
        self.assertIsNone(self.client.lpush(0, self.obj))
        arguments = self.only_arguments()
        self.assertEqual((arguments["callback"], arguments["context"]), (None, None))
        self.assertEqual(self.client.replies, [])


if __name__ == "__main__":
    unittest.main()
