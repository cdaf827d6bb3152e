"""The subscription commands, and sub_cb with every type code."""
import ctypes
import sys
import unittest

import recorder
import support
import vu_mom
import vu_mom_common
from support import BindingTest, Client, Message, reports

WITHOUT_VALUE = (0, 28, 29)
MESSAGES = (1, 3, 24)
RESULTS = {
    4: "HashResult", 6: "HashResult", 9: "HashResult",
    18: "SetResult", 19: "SetResult",
    10: "ListResult", 11: "ListResult", 12: "ListResult", 13: "ListResult", 34: "ListResult",
    35: "ListResult", 36: "ListResult",
    39: "SortedsetResult", 40: "SortedsetResult", 41: "SortedsetResult", 42: "SortedsetResult",
}
ENDED = 28
TAKEN = set(WITHOUT_VALUE) | set(MESSAGES) | set(RESULTS)
REFUSED = [code for code in list(range(-5, 70)) + [2 ** 31 - 1, -2 ** 31, 257, 256 + 28, 65536]
           if code not in TAKEN]


class Deliveries(BindingTest):

    def deliver(self, context, type_code, data=0, end_mark=0):
        """One message; the store is always answered 0. Returns what was reported."""
        record = self.record(type_code, data, end_mark)
        with reports() as found:
            answer = recorder.stream(self.callbacks.sub, ctypes.addressof(record), context, 0x44)
        self.assertEqual(answer, 0)
        return found

    def test_refused_list_is_whole(self):
        """Exactly the codes 2, 5, 7, 8, 14 to 17, 20 to 23, 25 to 27, 30 to 33, 37, 38, 43 and
        above, and negatives."""
        self.assertEqual([code for code in REFUSED if 0 <= code <= 45],
                         [2, 5, 7, 8, 14, 15, 16, 17, 20, 21, 22, 23, 25, 26, 27, 30, 31, 32, 33,
                          37, 38, 43, 44, 45])

    def test_every_type_code_with_data(self):
        """Each builds its value over the data; only 28 ends the subscription."""
        for data in (1, 0x7000, ctypes.c_size_t(-32).value):
            address = recorder.signed(data)
            for code in sorted(TAKEN):
                made = self.made(obj=Message)
                self.assert_quiet(self.deliver(made.address, code, data))
                (msg, p), = made.seen
                self.assertEqual(p, "private")
                self.assertIs(type(msg), vu_mom_common.PubSubMsg)
                if code in WITHOUT_VALUE:
                    self.assertIsNone(msg.result)
                elif code in MESSAGES:
                    self.assertIs(type(msg.result), Message)
                    self.assertEqual(msg.result.address, address)
                else:
                    self.assertIs(type(msg.result), getattr(vu_mom_common, RESULTS[code]))
                    self.assertEqual(msg.result.arguments, ((address,), {"cls": Message}))
                if code == ENDED:
                    self.assertEqual(self.references(made), 0)
                else:
                    self.take_back_made(made)

    def test_every_type_code_without_data(self):
        """The result is None (also of 4: no empty HashResult), and obj is not looked up."""
        for code in sorted(TAKEN):
            made = self.made()
            self.assert_quiet(self.deliver(made.address, code, 0))
            (msg, _), = made.seen
            self.assertIsNone(msg.result)
            self.assertEqual(self.references(made), 0 if code == ENDED else 1)
            if code != ENDED:
                self.take_back_made(made)

    def test_codes_without_value_do_not_look_up_obj(self):
        for code in WITHOUT_VALUE:
            made = self.made()
            self.assert_quiet(self.deliver(made.address, code, 0x10))
            self.assertEqual(len(made.seen), 1)
            if code != ENDED:
                self.take_back_made(made)

    def test_refused_type_codes(self):
        """Never reach the callable, are reported, and release the context."""
        for code in REFUSED:
            for data in (0, 0x10):
                made = self.made(obj=Message)
                self.assert_reported(self.deliver(made.address, code, data), "sub_cb",
                                     vu_mom.MomCApiInnerError)
                self.assertEqual(made.seen, [])
                self.assertEqual(self.references(made), 0)

    def test_type_code_2(self):
        made = self.made(obj=Message)
        self.assert_reported(self.deliver(made.address, 2, 0x10), "sub_cb",
                             vu_mom.MomCApiInnerError)
        self.assertEqual((made.seen, self.references(made)), ([], 0))

    def test_refused_type_code_needs_its_keys_first(self):
        """Steps before the type code still count: the context is kept where they fail."""
        for keys, missing in (({}, "'p'"), ({"p": 1}, "'cb'")):
            made = support.Made(keys)
            self.assert_reported(self.deliver(made.address, 2), "sub_cb", KeyError, missing)
            self.take_back_made(made)

    def test_end_mark_is_not_read(self):
        for end_mark in (0, 1, 28, 2 ** 32 - 1):
            made = self.made()
            self.assert_quiet(self.deliver(made.address, 29, 0, end_mark))
            self.take_back_made(made)

    def test_context_serves_many_messages(self):
        """Until 28, which is delivered and then frees the context."""
        made = self.made(obj=Message)
        codes = [1, 4, 18, 10, 39, 29, 0] * 3
        for code in codes:
            self.assert_quiet(self.deliver(made.address, code, 0x10))
            self.assertEqual(self.references(made), 1)
        self.assert_quiet(self.deliver(made.address, ENDED))
        self.assertEqual(self.references(made), 0)
        self.assertEqual(len(made.seen), len(codes) + 1)

    def test_context_is_there_during_the_last_message(self):
        seen = []

        def cb(msg, p):
            seen.append(self.references(made))
        made = self.made(cb=cb)
        self.assert_quiet(self.deliver(made.address, ENDED))
        self.assertGreaterEqual(seen[0], 1)
        self.assertEqual(self.references(made), 0)

    def test_nulls(self):
        made = self.made()
        with reports() as found:
            self.assertEqual(recorder.stream(self.callbacks.sub, None, made.address), 0)
        self.assert_reported(found, "sub_cb", vu_mom.MomCApiInnerError, "msg is NULL")
        self.take_back_made(made)
        self.assert_reported(self.deliver(None, 1), "sub_cb", vu_mom.MomCApiInnerError,
                             "privdata is NULL")

    def test_missing_obj(self):
        for code in sorted(TAKEN - set(WITHOUT_VALUE)):
            made = self.made()
            self.assert_reported(self.deliver(made.address, code, 1), "sub_cb", KeyError, "'obj'")
            self.assertEqual(made.seen, [])
            self.take_back_made(made)

    def test_context_of_another_type(self):
        """Any object that supports item lookup is accepted."""
        class Lookup(object):
            def __init__(self):
                self.asked, self.seen = [], []

            def __getitem__(self, key):
                self.asked.append(key)
                return {"p": "private", "cb": lambda *a: self.seen.append(a), "obj": Message}[key]
        context = Lookup()
        address = recorder.keep(context)
        self.assert_quiet(self.deliver(address, 1, 0x20))
        self.assertEqual(context.asked, ["p", "cb", "obj"])
        self.assertEqual(context.seen[0][0].result.address, 0x20)
        self.assert_quiet(self.deliver(address, ENDED, 0x20))
        self.assertEqual(context.asked, ["p", "cb", "obj", "p", "cb"])

    def test_context_that_supports_no_lookup(self):
        context = support.Privdata()
        address = recorder.keep(context)
        found = self.deliver(address, 1)
        self.assertEqual(len(found.unraisable), 1 if hasattr(sys, "unraisablehook") else 0)
        self.assertIn("TypeError", found.text)
        self.assertEqual(self.extra_references(address), 2)  # ours and the store's
        recorder.give_back(address)

    def test_callables_that_raise(self):
        """Do not stop later deliveries, and keep the context even with 28."""
        errors = [ValueError("mine"), SystemExit("mine"), KeyboardInterrupt("mine")]
        for error in errors:
            def cb(msg, p):
                raise error
            for code in (1, ENDED):
                made = self.made(cb=cb, obj=Message)
                self.assert_reported(self.deliver(made.address, code), "sub_cb", type(error),
                                     "mine")
                self.assertEqual(self.references(made), 1)
                recorder.object_at(made.address)["cb"] = lambda msg, p: None
                self.assert_quiet(self.deliver(made.address, ENDED))
                self.assertEqual(self.references(made), 0)
                error.__traceback__ = None

    def test_constructors_that_fail(self):
        def broken(address):
            raise ValueError("broken")
        for code in MESSAGES:
            made = self.made(obj=broken)
            self.assert_reported(self.deliver(made.address, code, 1), "sub_cb", ValueError,
                                 "broken")
            self.assertEqual(made.seen, [])
            self.take_back_made(made)
        for code, name in sorted(RESULTS.items()) + [(ENDED, "PubSubMsg")]:
            error = vu_mom_common.failures[name] = ValueError("broken")
            made = self.made(obj=Message)
            self.assert_reported(self.deliver(made.address, code, 1), "sub_cb", ValueError,
                                 "broken")
            self.assertEqual(made.seen, [])
            self.take_back_made(made)
            vu_mom_common.failures.clear()
            error.__traceback__ = None

    def test_message(self):
        made = self.made()
        record = self.record(ENDED)
        recorder.stream(self.callbacks.sub, ctypes.addressof(record), made.address)
        self.assertEqual(made.seen.pop()[0].arguments,
                         ((recorder.signed(ctypes.addressof(record)),), {}))

    def test_subscribe_from_end_to_end(self):
        before = sys.getrefcount(self.p)
        self.client.subscribe(0, self.obj, 1, self.p)
        context = self.sent_context()
        self.assert_quiet(self.deliver(context, 1, 0x50))
        self.assert_quiet(self.deliver(context, ENDED))
        self.assertEqual([name for name, _, _ in self.client.replies],
                         ["on_subscribe_demo_Counter"] * 2)
        self.assertEqual(self.client.replies[0][1].result.address, 0x50)
        self.client.replies[:] = []
        self.assertEqual(sys.getrefcount(self.p), before)


class Subscribe(BindingTest):

    def test_missing_reply_method(self):
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(AttributeError, "'Client' object has no attribute "
                          "'on_subscribe_demo_Counter'", ["VuMom.subscribe", "VuMom.__getfunc"]):
            client.subscribe(0, self.obj, 0, None)
        self.assert_nothing_sent()

    def test_orders(self):
        """subscribe converts db, then level, then looks the method up; unsubscribe level, then
        db."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(TypeError, "an integer is required", ["VuMom.subscribe"]):
            client.subscribe("db", object(), -1, None)
        with self.refuses(OverflowError, "can't convert negative value to unsigned int",
                          ["VuMom.subscribe"]):
            client.subscribe(0, object(), -1, None)
        with self.refuses(OverflowError, "can't convert negative value to unsigned int",
                          ["VuMom.unsubscribe"]):
            client.unsubscribe("db", object(), -1)
        with self.refuses(TypeError, "an integer is required", ["VuMom.unsubscribe"]):
            client.unsubscribe("db", object(), 0)
        self.assert_nothing_sent()

    def test_unsubscribe(self):
        """Passes sub_cb and a null context, and needs no reply method."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        client.unsubscribe(3, self.obj, 2)
        arguments = self.only_arguments()
        self.assertEqual((arguments["callback"], arguments["context"]),
                         (self.callbacks.sub, None))


class Fields(BindingTest):

    FRAMES = ["VuMom.subscribe_field"]
    END_FRAMES = ["VuMom.unsubscribe_field"]

    def contexts(self):
        return self.only_arguments()["contexts"]

    def test_contexts(self):
        """One per field: its argument, its function, the message class."""
        a, b = support.Privdata(), support.Privdata()
        functions = [lambda msg, p: None, lambda msg, p: None]
        before = sys.getrefcount(a), sys.getrefcount(functions[0])
        self.client.subscribe_field(0, self.obj, 1, [7, 9], functions, [a, b])
        arguments = self.only_arguments()
        self.assertEqual((arguments["tags"], arguments["count"]), ([7, 9], 2))
        self.assertEqual(arguments["callbacks"], [self.callbacks.sub] * 2)
        self.assertEqual(len(set(arguments["contexts"])), 2)
        for address, p, cb in zip(arguments["contexts"], (a, b), functions):
            context = recorder.object_at(address)
            if sys.version_info >= (3, 7):
                self.assertEqual(list(context), ["p", "cb", "obj"])
            self.assertEqual(context, {"p": p, "cb": cb, "obj": Message})
            del context
            self.take_back(address)
        del p, cb
        self.assertEqual((sys.getrefcount(a), sys.getrefcount(functions[0])), before)

    def test_functions_are_taken_as_they_are(self):
        """No reply method is looked up, nothing is checked before a message arrives."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        client.subscribe_field(0, self.obj, 1, [7], ["no function"], [None])
        address, = self.contexts()
        record = self.record(28)
        with reports() as found:
            recorder.stream(self.callbacks.sub, ctypes.addressof(record), address)
        self.assert_reported(found, "sub_cb", TypeError, "'str' object is not callable")
        self.take_back(address)

    def test_empty_lists(self):
        """Return None and send nothing."""
        self.assertIsNone(self.client.subscribe_field("db", object(), 0, [], [], []))
        self.assertIsNone(self.client.unsubscribe_field("db", object(), 0, []))
        self.assert_nothing_sent()

    def test_none(self):
        good = {"fields": [1], "funcs": [len], "args": [None]}
        for name in good:
            with self.refuses(vu_mom.InputError, "fields or funcs or args is None", self.FRAMES):
                self.client.subscribe_field("db", object(), 0, **dict(good, **{name: None}))
        with self.refuses(vu_mom.InputError, "fields is None", self.END_FRAMES):
            self.client.unsubscribe_field("db", object(), 0, None)
        self.assert_nothing_sent()

    def test_unequal_lengths(self):
        text = "len of fields,funcs,args is not equal"
        for fields, funcs, args in (([1, 2], [len], ["a", "b"]), ([1, 2], [len, len], ["a"]),
                                    ([], [len], []), ([], [], ["a"]), ([1], [], [])):
            with self.refuses(vu_mom.InputError, text, self.FRAMES):
                self.client.subscribe_field("db", object(), 0, fields, funcs, args)
        self.assert_nothing_sent()

    def test_types(self):
        """In argument order, after level, before None and lengths."""
        text = "Argument '%s' has incorrect type (expected list, got tuple)"
        for arguments, name in ((([1], (len,), [None]), "funcs"), (((1,), None, ()), "fields"),
                                ((None, (), ()), "funcs"), (([1], None, ()), "args")):
            with self.refuses(TypeError, text % name, self.FRAMES):
                self.client.subscribe_field("db", object(), 0, *arguments)
        with self.refuses(OverflowError, "can't convert negative value to unsigned int",
                          self.FRAMES):
            self.client.subscribe_field("db", object(), -1, (), (), ())
        with self.refuses(TypeError, text % "fields", self.END_FRAMES):
            self.client.unsubscribe_field("db", object(), 0, ())
        with self.refuses(TypeError, "an integer is required", self.END_FRAMES):
            self.client.unsubscribe_field("db", object(), "x", ())

    def test_bad_fields(self):
        """A field that fails in the loop leaves the contexts made so far, and the arrays."""
        p = support.Privdata()
        for wrong, error, text in (
                (-1, OverflowError, "can't convert negative value to size_t"),
                (support.SIZE_LIMIT, OverflowError, support.UNSIGNED_LONG_OVERFLOW),
                ("x", TypeError, "an integer is required")):
            with self.refuses(error, text, self.FRAMES):
                self.client.subscribe_field("db", self.obj, 0, [1, 2, wrong, 4], [len] * 4,
                                            [p] * 4)
            self.assertEqual((recorder.live_blocks(), recorder.live_bytes()),
                             (3, 3 * 4 * support.POINTER_BITS // 8))
            recorder.free_blocks()
            support.give_back_contexts(self, p, 2)
            with self.refuses(error, text, self.END_FRAMES):
                self.client.unsubscribe_field("db", object(), 0, [1, wrong])
            self.assertEqual((recorder.live_blocks(), recorder.live_bytes()),
                             (2, 2 * 2 * support.POINTER_BITS // 8))
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_class_is_read_for_each_field(self):
        reads = []

        class Counting(Message):
            @property  # type: ignore[misc]
            def __class__(self):
                reads.append(1)
                if len(reads) == 3:
                    raise KeyError("third")
                return Message
        with self.refuses(KeyError, "'third'", self.FRAMES):
            self.client.subscribe_field(0, Counting(), 0, [1, 2, 3], [len] * 3, [self.p] * 3)
        support.give_back_contexts(self, self.p, 2)
        recorder.free_blocks()

    def test_later_failures_keep_the_contexts(self):
        for db, obj, error in (("db", self.obj, TypeError), (0, Message("x"), TypeError),
                               (0, object(), AttributeError)):
            with self.refuses(error, None, self.FRAMES):
                self.client.subscribe_field(db, obj, 0, [1, 2], [len] * 2, [self.p] * 2)
            support.give_back_contexts(self, self.p, 2)
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_no_memory(self):
        """The arrays that were allocated so far are freed, and no context was made."""
        before = sys.getrefcount(self.p)
        for failing in (1, 2, 3):
            recorder.fail_allocation(failing)
            with self.refuses(MemoryError, "", self.FRAMES):
                self.client.subscribe_field(0, self.obj, 0, [1], [len], [self.p])
            self.assertEqual((recorder.live_blocks(), recorder.wrong_frees()), (0, 0))
        for failing in (1, 2):
            recorder.fail_allocation(failing)
            with self.refuses(MemoryError, "", self.END_FRAMES):
                self.client.unsubscribe_field(0, self.obj, 0, [1])
            self.assertEqual((recorder.live_blocks(), recorder.wrong_frees()), (0, 0))
        self.assertEqual(sys.getrefcount(self.p), before)
        self.assert_nothing_sent()

    def test_lists_that_shrink(self):
        """A field's conversion may shorten any of the lists; nothing is read beyond them."""
        for name in ("fields", "funcs", "args"):
            lists = {
                "fields": [None, 2], "funcs": [len, len], "args": [self.p, self.p]}  # type: dict

            class Shrinking(object):
                def __int__(self):
                    del lists[name][1:]
                    return 1
            lists["fields"][0] = Shrinking()
            with self.refuses(IndexError, "list index out of range", self.FRAMES):
                self.client.subscribe_field(0, self.obj, 0, lists["fields"], lists["funcs"],
                                            lists["args"])
            lists.clear()
            support.give_back_contexts(self, self.p, 1)
            recorder.free_blocks()
        self.assert_nothing_sent()

    def test_refused_by_the_store(self):
        """The arrays are freed before the status is looked at, the contexts are kept."""
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError), (9, vu_mom.Error)):
            recorder.clear()
            recorder.answer(status)
            with self.refuses(error, "", self.FRAMES):
                self.client.subscribe_field(0, self.obj, 0, [1, 2], [len] * 2, [self.p] * 2)
            self.assertEqual(recorder.live_blocks(), 0)
            for context in self.contexts():
                self.take_back(context)
            recorder.clear()
            with self.refuses(error, "", self.END_FRAMES):
                self.client.unsubscribe_field(0, self.obj, 0, [1, 2])
            self.assertEqual(recorder.live_blocks(), 0)

    def test_unsubscribe_field(self):
        """Every slot is sub_cb, the contexts are null."""
        self.client.unsubscribe_field(2, self.obj, 1, [5, 6])
        arguments = self.only_arguments()
        self.assertEqual((arguments["tags"], arguments["callbacks"], arguments["contexts"],
                          arguments["count"]), ([5, 6], [self.callbacks.sub] * 2, None, 2))

    def test_counts(self):
        for name, count in (("subscribe", 4), ("unsubscribe", 3), ("subscribe_field", 6),
                            ("unsubscribe_field", 4)):
            text = "%s() takes exactly %d positional arguments (%d given)"
            for given in (count - 1, count + 1):
                with self.refuses(TypeError, text % (name, count, given), ["VuMom." + name]):
                    getattr(self.client, name)(*[0] * given)


if __name__ == "__main__":
    unittest.main()
