"""scan and scan_index, and scan_cb with every type code."""
import ctypes
import unittest

import recorder
import support
import vu_mom
import vu_mom_common
from support import BindingTest, Client, Message, reports

MESSAGES = (1, 37)
RESULTS = {4: "HashResult", 18: "SmembersResult", 39: "ZrangeResult", 10: "LrangeResult"}
TAKEN = set(MESSAGES) | set(RESULTS) | {0}
REFUSED = [code for code in list(range(-5, 60)) + [2 ** 31 - 1, -2 ** 31, 256, 257, 65537]
           if code not in TAKEN]


class Scan(BindingTest):

    def scan(self, method="scan"):
        recorder.clear()
        getattr(self.client, method)(0, self.obj, 2, self.p)
        return self.sent_context()

    def deliver(self, context, type_code, data=0, end_mark=0):
        """One reply; the store is always answered 0. Returns what was reported."""
        record = self.record(type_code, data, end_mark)
        with reports() as found:
            answer = recorder.stream(self.callbacks.scan, ctypes.addressof(record), context, 0x33)
        self.assertEqual(answer, 0)
        return found

    def test_callback_is_its_own(self):
        self.assertNotIn(self.callbacks.scan, (self.callbacks.wrap, self.callbacks.sub))

    def test_type_code_0(self):
        """Calls the reply method with the result None, whatever the data."""
        for data in (0, 5):
            context = self.scan()
            self.assert_quiet(self.deliver(context, 0, data, 1))
            (name, msg, p), = self.client.replies
            self.client.replies[:] = []
            self.assertEqual(name, "on_scan_demo_Counter")
            self.assertIs(type(msg), vu_mom_common.PubSubMsg)
            self.assertIsNone(msg.result)
            self.assertIs(p, self.p)

    def test_type_code_4_without_data(self):
        """Delivers None, not an empty HashResult."""
        context = self.scan()
        self.assert_quiet(self.deliver(context, 4, 0, 1))
        self.assertIsNone(self.client.replies.pop()[1].result)

    def test_every_type_code_without_data(self):
        for code in TAKEN:
            context = self.scan()
            self.assert_quiet(self.deliver(context, code, 0, 1))
            self.assertIsNone(self.client.replies.pop()[1].result)

    def test_every_type_code_with_data(self):
        for data in (1, 0x7000, ctypes.c_size_t(-32).value):
            address = recorder.signed(data)
            for code in sorted(TAKEN - {0}):
                context = self.scan()
                self.assert_quiet(self.deliver(context, code, data, 1))
                result = self.client.replies.pop()[1].result
                if code in MESSAGES:
                    self.assertIs(type(result), Message)
                    self.assertEqual(result.address, address)
                else:
                    self.assertIs(type(result), getattr(vu_mom_common, RESULTS[code]))
                    self.assertEqual(result.arguments, ((address,), {"cls": Message}))

    def test_message(self):
        """PubSubMsg gets the signed address of the record."""
        context = self.scan()
        record = self.record(0, 0, 1)
        recorder.stream(self.callbacks.scan, ctypes.addressof(record), context)
        msg = self.client.replies.pop()[1]
        self.assertEqual(msg.arguments, ((recorder.signed(ctypes.addressof(record)),), {}))

    def test_three_replies(self):
        """End marks 0, 0, 1: three calls; the context is freed after the third and not before."""
        made = self.made(obj=Message)
        for end_mark, references in ((0, 1), (0, 1), (1, 0)):
            self.assert_quiet(self.deliver(made.address, 1, 0x10, end_mark))
            self.assertEqual(self.references(made), references)
        self.assertEqual(len(made.seen), 3)

    def test_end_marks(self):
        """Only 1 is the end."""
        made = self.made()
        for end_mark in (0, 2, 3, 257, 2 ** 31 + 1, 2 ** 32 - 1):
            self.assert_quiet(self.deliver(made.address, 0, 0, end_mark))
            self.assertEqual(self.references(made), 1)
        self.assert_quiet(self.deliver(made.address, 0, 0, 1))
        self.assertEqual(self.references(made), 0)

    def test_type_code_5(self):
        """Calls nothing, prints an unraisable MomCApiInnerError, leaves the context alive."""
        made = self.made(obj=Message)
        self.assert_reported(self.deliver(made.address, 5, 0x10), "scan_cb",
                             vu_mom.MomCApiInnerError)
        self.assertEqual(made.seen, [])
        self.take_back_made(made)

    def test_refused_type_codes(self):
        """The same for every code that is not in the table, with and without the end mark."""
        for code in REFUSED:
            for data, end_mark in ((0, 0), (0x10, 1)):
                made = self.made(obj=Message)
                self.assert_reported(self.deliver(made.address, code, data, end_mark), "scan_cb",
                                     vu_mom.MomCApiInnerError)
                self.assertEqual(made.seen, [])
                self.take_back_made(made)

    def test_nulls(self):
        made = self.made()
        with reports() as found:
            self.assertEqual(recorder.stream(self.callbacks.scan, None, made.address), 0)
        self.assert_reported(found, "scan_cb", vu_mom.MomCApiInnerError, "msg is NULL")
        self.take_back_made(made)
        self.assert_reported(self.deliver(None, 0), "scan_cb", vu_mom.MomCApiInnerError,
                             "privdata is NULL")
        with reports() as found:
            self.assertEqual(recorder.stream(self.callbacks.scan, None, None), 0)
        self.assert_reported(found, "scan_cb", vu_mom.MomCApiInnerError, "msg is NULL")

    def test_missing_keys(self):
        """p, then cb; obj only where a value is built."""
        for keys, missing in (({}, "'p'"), ({"cb": len, "obj": Message}, "'p'"),
                              ({"p": 1, "obj": Message}, "'cb'")):
            made = support.Made(keys)
            self.assert_reported(self.deliver(made.address, 1, 1, 1), "scan_cb", KeyError, missing)
            self.take_back_made(made)
        for code in sorted(TAKEN - {0}):
            made = self.made()
            self.assert_reported(self.deliver(made.address, code, 1, 1), "scan_cb", KeyError,
                                 "'obj'")
            self.assertEqual(made.seen, [])
            self.assertEqual(self.references(made), 1)
            self.assert_quiet(self.deliver(made.address, code, 0, 1))
            self.assertEqual(self.references(made), 0)

    def test_constructors_that_fail(self):
        def broken(address):
            raise ValueError("broken")
        made = self.made(obj=broken)
        self.assert_reported(self.deliver(made.address, 1, 1, 1), "scan_cb", ValueError, "broken")
        self.assertEqual(made.seen, [])
        self.take_back_made(made)
        for code, name in sorted(RESULTS.items()) + [(0, "PubSubMsg")]:
            error = vu_mom_common.failures[name] = ValueError("broken")
            made = self.made(obj=Message)
            self.assert_reported(self.deliver(made.address, code, 1, 1), "scan_cb", ValueError,
                                 "broken")
            self.assertEqual(made.seen, [])
            self.take_back_made(made)
            vu_mom_common.failures.clear()
            error.__traceback__ = None

    def test_reply_methods_that_raise(self):
        """The context stays, even with the end mark; nothing ends the process."""
        for error in (ValueError("mine"), SystemExit("mine"), KeyboardInterrupt("mine")):
            def cb(msg, p):
                raise error
            made = self.made(cb=cb)
            self.assert_reported(self.deliver(made.address, 0, 0, 1), "scan_cb", type(error),
                                 "mine")
            self.take_back_made(made)
            error.__traceback__ = None

    def test_flag_and_resobj_are_not_looked_for(self):
        made = self.made(obj=Message, flag=7, resobj=len)
        self.assert_quiet(self.deliver(made.address, 1, 0x10, 1))
        self.assertEqual(self.references(made), 0)
        self.assertIs(type(made.seen.pop()[0].result), Message)

    def test_level(self):
        """-1 raises before the reply method is looked up; 2**32 is the interpreter's own error."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        for name in ("scan", "scan_index"):
            for level, error, text in (
                    (-1, OverflowError, "can't convert negative value to unsigned int"),
                    (2 ** 32, OverflowError, support.UNSIGNED_LONG_OVERFLOW),
                    ("1", TypeError, "an integer is required")):
                with self.refuses(error, text, ["VuMom." + name]):
                    getattr(client, name)("db", object(), level, None)
        self.assert_nothing_sent()

    def test_scan_index(self):
        """Delivers to the method named with on_scanindex_."""
        context = self.scan("scan_index")
        self.assertEqual(self.only_call().function, "vu_mom_scan_index")
        self.assert_quiet(self.deliver(context, 37, 0x60, 0))
        self.assert_quiet(self.deliver(context, 0, 0, 1))
        self.assertEqual([name for name, _, _ in self.client.replies],
                         ["on_scanindex_demo_Counter"] * 2)
        self.assertEqual(self.client.replies[0][1].result.address, 0x60)
        self.client.replies[:] = []


if __name__ == "__main__":
    unittest.main()
