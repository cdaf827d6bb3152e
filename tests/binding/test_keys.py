"""get, incr, setnx, set, setow, delow, delete, setnx_noreply: what is special about each."""
import sys
import unittest

import recorder
import support
import vu_mom
from support import BindingTest, Client, Int


class Keys(BindingTest):

    def sent(self, method, *arguments, **keywords):
        recorder.clear()
        self.assertIsNone(method(*arguments, **keywords))
        return self.only_call()

    def test_flag_defaults_to_zero(self):
        """set(db, obj) is set(db, obj, 0); setow(db, obj, owner) is setow(db, obj, owner, 0)."""
        self.assertEqual(self.sent(self.client.set, 1, self.obj),
                         self.sent(self.client.set, 1, self.obj, 0))
        for method in (self.client.setow, self.client.delow):
            self.assertEqual(self.sent(method, 1, self.obj, 9),
                             self.sent(method, 1, self.obj, 9, 0))
        self.assertEqual(self.only_arguments()["flag"], 0)

    def test_missing_reply_method(self):
        """get without the method for the message raises AttributeError and calls nothing."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(AttributeError, "'Client' object has no attribute "
                          "'on_get_demo_Counter'", ["VuMom.get", "VuMom.__getfunc"]):
            client.get(0, self.obj, None)
        self.assert_nothing_sent()

    def test_context_keys(self):
        """incr and setnx put no obj into the context, get no resobj."""
        for method, keys in ((self.client.get, {"p", "cb", "obj"}),
                             (self.client.incr, {"p", "cb", "resobj"}),
                             (self.client.setnx, {"p", "cb", "resobj"})):
            self.sent(method, 0, self.obj, None)
            context = self.sent_context()
            self.assertEqual(set(recorder.object_at(context)), keys)
            self.take_back(context)

    def test_owner(self):
        """Signed and 64 bits wide; 2**63 is too much."""
        for method in (self.client.setow, self.client.delow):
            for owner in (-1, -2 ** 63, 2 ** 63 - 1, 2 ** 32, -2 ** 32 - 1):
                self.assertEqual(dict(self.sent(method, 0, self.obj, owner).arguments)["owner"],
                                 owner)
            recorder.clear()
            for owner in (2 ** 63, -2 ** 63 - 1):
                with self.refuses(OverflowError) as _:
                    method(0, self.obj, owner)
            try:
                method(0, self.obj, 2 ** 63)
            except OverflowError as error:
                self.assertIn(str(error), support.LONG_LONG_OVERFLOWS)
                error.__traceback__ = None
            with self.refuses(TypeError, "an integer is required"):
                method(0, self.obj, "1")
            self.assert_nothing_sent()

    def test_owner_comes_last(self):
        """After flag, db and the address; a bad flag is found before a bad db."""
        for name in ("setow", "delow"):
            method = getattr(self.client, name)
            with self.refuses(OverflowError, support.LONG_OVERFLOW):
                method(2 ** 31, self.obj, "owner")
            with self.refuses(TypeError, "an integer is required"):
                method(2 ** 31, self.obj, 1, "flag")
            with self.refuses(AttributeError):
                method(0, object(), "owner")
            self.assert_nothing_sent()

    def test_bad_input_keeps_the_context(self):
        """When the store answers -2, the context keeps one extra reference for good."""
        recorder.answer(-2)
        before = sys.getrefcount(self.p)
        with self.refuses(vu_mom.InputError, ""):
            self.client.get(0, self.obj, self.p)
        self.assertEqual(sys.getrefcount(self.p), before + 1)
        self.take_back(self.sent_context())

    def test_no_privdata(self):
        """delete and setnx_noreply take two arguments and no privdata."""
        for name in ("delete", "setnx_noreply"):
            text = name + "() takes exactly 2 positional arguments (3 given)"
            with self.refuses(TypeError, text, ["VuMom." + name]):
                getattr(self.client, name)(0, self.obj, None)
            text = name + "() got an unexpected keyword argument 'privdata'"
            with self.refuses(TypeError, text, ["VuMom." + name]):
                getattr(self.client, name)(0, self.obj, privdata=None)

    def test_counts(self):
        for name, word, limit, given in (("set", "at least", 2, 1), ("set", "at most", 3, 4),
                                         ("setow", "at least", 3, 2), ("setow", "at most", 4, 5),
                                         ("delow", "at least", 3, 0), ("delow", "at most", 4, 6),
                                         ("get", "exactly", 3, 2), ("get", "exactly", 3, 4)):
            text = "%s() takes %s %d positional arguments (%d given)" % (name, word, limit, given)
            with self.refuses(TypeError, text, ["VuMom." + name]):
                getattr(self.client, name)(*[0] * given)

    def test_flag_is_passed_by_address(self):
        for value, wanted in ((5, 5), (Int(-1), -1), (2.7, 2)):
            for method, rest in ((self.client.set, ()), (self.client.setow, (1,)),
                                 (self.client.delow, (1,))):
                call = self.sent(method, 0, self.obj, *rest, flag=value)
                self.assertEqual(dict(call.arguments)["flag"], wanted)


if __name__ == "__main__":
    unittest.main()
