"""hmset, hmsetnx, hmupdate, hmget, hgetall: what is special about each."""
import unittest

import recorder
import support
import vu_mom
import vu_mom_common
from support import BindingTest, Client, Message, reports


class Hashes(BindingTest):

    WRITING = ("hmset", "hmsetnx", "hmupdate")

    def test_none_and_empty_lists(self):
        """Both call the store with a null array and count 0, and return None."""
        for name in self.WRITING:
            for tags in (None, []):
                recorder.clear()
                self.assertIsNone(getattr(self.client, name)(0, self.obj, tags))
                arguments = self.only_arguments()
                self.assertEqual((arguments["tags"], arguments["count"]), (None, 0))
        for tags in (None, []):
            recorder.clear()
            self.assertIsNone(self.client.hmget(0, self.obj, tags, None))
            arguments = self.only_arguments()
            self.assertEqual((arguments["tags"], arguments["count"]), (None, 0))
            self.take_back(arguments["context"])

    def test_tuples(self):
        """Are refused by name, before anything else happens."""
        text = "Argument 'field_tags' has incorrect type (expected list, got tuple)"
        for name in self.WRITING:
            with self.refuses(TypeError, text, ["VuMom." + name]):
                getattr(self.client, name)("db", object(), (1, 2))
        with self.refuses(TypeError, text, ["VuMom.hmget"]):
            self.client.hmget("db", object(), (1, 2), None)
        self.assert_nothing_sent()

    def test_bad_tags(self):
        """hmget(db, obj, [3, -1], p) prints an unraisable OverflowError, and still calls the store
        with a null array and count 2."""
        with reports() as found:
            self.client.hmget(0, self.obj, [3, -1], None)
        self.assert_reported(found, "size_t_list_to_carr", OverflowError,
                             "can't convert negative value to size_t")
        arguments = self.only_arguments()
        self.assertEqual((arguments["tags"], arguments["count"]), (None, 2))
        self.take_back(arguments["context"])
        recorder.free_blocks()
        for name in self.WRITING:
            recorder.clear()
            with reports() as found:
                getattr(self.client, name)(0, self.obj, [3, "x"])
            self.assert_reported(found, "size_t_list_to_carr", TypeError, "an integer is required")
            arguments = self.only_arguments()
            self.assertEqual((arguments["tags"], arguments["count"]), (None, 2))
            recorder.free_blocks()

    def test_reply_of_hgetall(self):
        """Reaches on_hgetall_ with a HashResult that knows the message class."""
        self.client.hgetall(0, self.obj, self.p)
        self.reply(self.sent_context(), 0x40)
        (name, msg, p), = self.client.replies
        self.client.replies[:] = []
        self.assertEqual(name, "on_hgetall_demo_Counter")
        self.assertIs(p, self.p)
        self.assertIs(type(msg.result), vu_mom_common.HashResult)
        self.assertEqual(msg.result.arguments, ((0x40,), {"cls": Message}))

    def test_array_is_freed_on_failure(self):
        """Also when the store answers with a failure."""
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError), (5, vu_mom.Error)):
            recorder.answer(status)
            for name in self.WRITING:
                with self.refuses(error, ""):
                    getattr(self.client, name)(0, self.obj, [1, 2])
                self.assertEqual(recorder.live_blocks(), 0)
            recorder.clear()
            with self.refuses(error, ""):
                self.client.hmget(0, self.obj, [1, 2], None)
            self.assertEqual(recorder.live_blocks(), 0)
            self.take_back(self.sent_context())
            recorder.clear()

    def test_array_that_stays(self):
        """A failure between the array and the call leaves the array allocated."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        size = 3 * support.POINTER_BITS // 8
        for attempt, error in (
                (lambda: client.hmset("db", self.obj, [1, 2, 3]), TypeError),
                (lambda: client.hmsetnx(0, object(), [1, 2, 3]), AttributeError),
                (lambda: client.hmupdate(0, Message("x"), [1, 2, 3]), TypeError),
                (lambda: client.hmget(0, self.obj, [1, 2, 3], None), AttributeError)):
            with self.refuses(error):
                attempt()
            self.assertEqual((recorder.live_blocks(), recorder.live_bytes()), (1, size))
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_tags_are_converted_first(self):
        """Before the reply method is looked up and before db is converted."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        with reports() as found:
            with self.refuses(AttributeError):
                client.hmget("db", self.obj, [-1], None)
        self.assert_reported(found, "size_t_list_to_carr", OverflowError,
                             "can't convert negative value to size_t")
        recorder.free_blocks()

    def test_list_that_changes_while_it_is_converted(self):
        """One that grows counts no further than the array; one that shrinks gives none."""
        class Tag(object):
            def __init__(self, change):
                self.change = change

            def __int__(self):
                self.change()
                return 7

        tags = []  # type: list
        tags[:] = [Tag(lambda: tags.extend([1] * 1000)), 2]
        self.client.hmset(0, self.obj, tags)
        arguments = self.only_arguments()
        self.assertEqual((arguments["tags"], arguments["count"]), ([7, 2], 2))
        recorder.clear()
        tags[:] = [Tag(tags.pop), 2]
        with reports() as found:
            self.client.hmset(0, self.obj, tags)
        self.assert_reported(found, "size_t_list_to_carr", IndexError, "list index out of range")
        arguments = self.only_arguments()
        self.assertEqual((arguments["tags"], arguments["count"]), (None, 1))
        del tags[:]
        recorder.free_blocks()


if __name__ == "__main__":
    unittest.main()
