"""The request: how the reply method is found, and how wrap_cb turns a reply into a call of it."""
import ctypes
import gc
import sys
import unittest
import weakref

import cases
import recorder
import support
import vu_mom
import vu_mom_common
from asking import GETFUNC, AskingTest, text_of
from support import Any, BindingTest, Client, Message, reports


class Name(AskingTest):

    def get(self, obj, client=None):
        (client or self.asking).get(0, obj, None)
        self.take_back(self.sent_context())
        recorder.clear()

    def message(self, package, short):
        obj = Message()
        obj.package_name, obj.short_name = package, short
        return obj

    def test_name(self):
        """Prefix, package name, _, short name; whatever these are."""
        for package, short in (("demo", "Counter"), ("", ""), (u"\u00e4", u"\u20ac"),
                               (u"a\U0001f600", "b"), ("a b", "1")):
            self.get(self.message(package, short))
            self.assertEqual(self.asking.asked.pop(), "on_get_" + package + "_" + short)

    def test_every_prefix(self):
        for row in cases.REPLYING:
            getattr(self.asking, row.name)(**support.values(row, None))
            self.take_back(self.sent_context())
            recorder.clear()
            self.assertEqual(self.asking.asked.pop(), row.prefix + "demo_Counter")

    def test_wrong_package_name(self):
        """Fails with the TypeError of +, before the short name is read."""
        class Odd(Message):
            package_name = 5  # type: ignore[assignment]

            @property
            def short_name(self):
                raise AssertionError("read")
        wrong = vars(Odd)["package_name"]
        with self.refuses(TypeError, text_of(lambda: "on_get_" + wrong), ["VuMom.get"]):
            self.asking.get(0, Odd(), None)
        self.assertEqual(self.asking.asked, [])
        self.assert_nothing_sent()

    def test_wrong_short_name(self):
        for short in (None, b"Counter", 5):  # type: Any
            with self.refuses(TypeError, text_of(lambda: "x" + short), ["VuMom.get"]):
                self.asking.get(0, self.message("demo", short), None)
        self.assertEqual(self.asking.asked, [])
        self.assert_nothing_sent()

    def test_three_additions(self):
        """In order, each a real one: operands may define them."""
        log = []

        class Part(object):
            def __init__(self, text):
                self.text = text

            def __radd__(self, left):
                log.append((left, "+", self.text))
                return Part(left + self.text)

            def __add__(self, right):
                log.append((self.text, "+", getattr(right, "text", right)))
                return Part(self.text + getattr(right, "text", right))
        self.get(self.message(Part("demo"), Part("Counter")))
        self.assertEqual(log, [("on_get_", "+", "demo"), ("on_get_demo", "+", "_"),
                               ("on_get_demo_", "+", "Counter")])
        self.assertEqual(self.asking.asked.pop().text, "on_get_demo_Counter")

    def test_string_subclasses(self):
        """Also those with additions of their own."""
        class Loud(str):
            def __radd__(self, left):
                return left + self.upper()
        self.get(self.message(Loud("demo"), Loud("Counter")))
        self.assertEqual(self.asking.asked.pop(), "on_get_DEMO_COUNTER")

    def test_names_are_read_each_time(self):
        """Nothing of an earlier call is remembered where it could be noticed."""
        obj = self.message("demo", "Counter")
        self.get(obj)
        obj.package_name = "other"
        self.get(obj)
        obj.short_name = "Thing"
        self.get(obj)
        self.get(self.message("demo", "Counter"))
        self.assertEqual(self.asking.asked, [
            "on_get_demo_Counter", "on_get_other_Counter", "on_get_other_Thing",
            "on_get_demo_Counter"])

    def test_same_strings_in_other_roles(self):
        for _ in range(2):
            self.get(self.message("a_b", "c"))
            self.get(self.message("a", "b_c"))
            self.get(self.message("a", "b"))
            self.get(self.message("b", "a"))
        self.assertEqual(self.asking.asked, 2 * ["on_get_a_b_c", "on_get_a_b_c", "on_get_a_b",
                                                 "on_get_b_a"])

    def test_many_names(self):
        for i in range(1500):
            self.get(self.message("p%d" % (i % 500), "s"))
            self.assertEqual(self.asking.asked.pop(), "on_get_p%d_s" % (i % 500))

    def test_method_is_fetched_each_time(self):
        class Changing(Client):
            def on_get_demo_Counter(self, msg, p):
                pass
        client = Changing(self.glb)  # type: Any
        self.glb.apps[:] = []

        def fetched():
            client.get(0, self.obj, None)
            context = self.sent_context()
            cb = recorder.object_at(context)["cb"]
            self.take_back(context)
            recorder.clear()
            return cb
        self.assertEqual(fetched(), client.on_get_demo_Counter)
        client.on_get_demo_Counter = "anything"
        self.assertEqual(fetched(), "anything")
        del client.on_get_demo_Counter
        del Changing.on_get_demo_Counter
        with self.refuses(AttributeError, "'Changing' object has no attribute "
                          "'on_get_demo_Counter'", ["VuMom.get", "VuMom.__getfunc"]):
            client.get(0, self.obj, None)
        self.assert_nothing_sent()

    def test_getfunc_of_the_instance(self):
        """__getfunc is looked up on the instance, then called with the one name."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        asked = []
        client.__dict__[GETFUNC] = lambda *a, **k: asked.append((a, k))
        self.get(self.obj, client)
        self.assertEqual(asked, [(("on_get_demo_Counter",), {})])

    def test_getfunc_that_fails(self):
        client = Client(self.glb)
        self.glb.apps[:] = []

        def fail(name):
            raise KeyError(name)
        client.__dict__[GETFUNC] = fail
        with self.refuses(KeyError, "'on_get_demo_Counter'", ["VuMom.get"]):
            client.get(0, self.obj, None)
        self.assert_nothing_sent()

    def test_class_of_the_message(self):
        """Is the attribute __class__, not the type."""
        class Proxy(Message):
            __class__ = int  # type: ignore[assignment]
        client = self.client
        client.get(0, Proxy(), None)
        context = self.sent_context()
        self.assertIs(recorder.object_at(context)["obj"], int)
        self.take_back(context)

    def test_handle_is_read_last(self):
        """When the library is called: get_ptr() may still change it."""
        glb = self.glb

        class Switching(Message):
            def get_ptr(self):
                glb.handle = 77
                return 5
        self.client.get(0, Switching(), None)
        self.assertEqual(self.only_arguments()["handle"], 77)
        self.take_back(self.sent_context())

    def test_keywords_that_are_no_strings(self):
        with self.assertRaises(TypeError) as caught:
            self.client.get(0, self.obj, None, **{1: 2})
        self.assertIn("keywords must be strings", str(caught.exception))
        self.assert_nothing_sent()

    def test_messages_are_not_kept(self):
        before = sys.getrefcount(self.obj)
        self.client.get(0, self.obj, None)
        self.assertEqual(sys.getrefcount(self.obj), before)
        self.take_back(self.sent_context())


class Failures(BindingTest):
    """Edges of the command template, on get."""

    def test_missing_reply_method(self):
        """AttributeError, and no library call."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(AttributeError, None, ["VuMom.get", "VuMom.__getfunc"]):
            client.get(0, self.obj, self.p)
        self.assert_nothing_sent()

    def test_bad_input(self):
        """A status of -2 raises InputError with empty arguments; str() of it is empty."""
        recorder.answer(-2)
        with self.assertRaises(vu_mom.InputError) as caught:
            self.client.get(0, self.obj, self.p)
        self.assertEqual((caught.exception.args, str(caught.exception)), ((), ""))
        self.take_back(self.sent_context())

    def test_db_is_converted_after_the_context_exists(self):
        before = sys.getrefcount(self.p)
        with self.refuses(TypeError, "an integer is required", ["VuMom.get"]):
            self.client.get("0", self.obj, self.p)
        self.assert_nothing_sent()
        self.assertEqual(sys.getrefcount(self.p), before + 1)
        kept = [id(d) for d in gc.get_referrers(self.p) if type(d) is dict and "cb" in d]
        self.assertEqual(len(kept), 1)
        self.take_back(kept[0])

    def test_exceptions_of_get_ptr(self):
        class Broken(Message):
            def get_ptr(self):
                raise KeyboardInterrupt("x")
        try:
            self.client.delete(0, Broken())
        except KeyboardInterrupt as error:
            self.assertEqual(support.binding_frames(error), ["vu_mom.VuMom.delete"])
            error.__traceback__ = None
        else:
            self.fail("nothing raised")
        self.assert_nothing_sent()


class WrapTest(BindingTest):

    def wrap(self, context, data=0, end_mark=0, type_code=0):
        """Delivers one reply, and returns what was reported."""
        record = self.record(type_code, data, end_mark)
        with reports() as found:
            recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context, 0x5A)
        return found


class Replies(WrapTest):

    def sent(self, row):
        getattr(self.client, row.name)(**support.values(row, self.p))
        context = self.sent_context()
        recorder.clear()
        return context

    def only_reply(self, row):
        self.assertEqual(len(self.client.replies), 1)
        name, msg, p = self.client.replies.pop()
        self.assertEqual(name, support.reply_name(row))
        self.assertIs(p, self.p)
        self.assertIs(type(msg), vu_mom_common.PubSubMsg)
        return msg

    def test_without_data(self):
        """A reply with data 0 has the result None, whatever the context."""
        for row in cases.WRAPPED:
            with self.subTest(command=row.name):
                before = sys.getrefcount(self.p)
                context = self.sent(row)
                self.assert_quiet(self.wrap(context, 0, row.flag or 0))
                self.assertIsNone(self.only_reply(row).result)
                self.assertEqual(sys.getrefcount(self.p), before)

    def test_with_data(self):
        """The result is built as the context says, from the signed address."""
        class Built(Message):
            def __init__(self, *args, **kwargs):
                self.arguments = args, kwargs
        for row in cases.WRAPPED:
            for data in (1, 0x1234, recorder.ctypes.c_size_t(-16).value):
                with self.subTest(command=row.name, data=data):
                    arguments = support.values(row, self.p)
                    obj = Built()
                    obj.address = 5
                    arguments["obj"] = obj
                    getattr(self.client, row.name)(**arguments)
                    context = self.sent_context()
                    recorder.clear()
                    self.assert_quiet(self.wrap(context, data, row.flag or 0))
                    result = self.only_reply(row).result
                    address = recorder.signed(data)
                    if row.result and "obj" in row.context:
                        self.assertIs(type(result), support.result_class(row))
                        self.assertEqual(result.arguments, ((address,), {"cls": Built}))
                    elif row.result:
                        self.assertIs(type(result), support.result_class(row))
                        self.assertEqual(result.arguments, ((address,), {}))
                    elif "obj" in row.context:
                        self.assertIs(type(result), Built)
                        self.assertEqual(result.arguments, ((address,), {}))
                    else:
                        self.assertIsNone(result)

    def test_released_once(self):
        """By the first reply without a flag; the context and all in it are freed."""
        for row in cases.WRAPPED:
            if row.flag:
                continue
            p = support.Privdata()
            gone = weakref.ref(p)
            getattr(self.client, row.name)(**support.values(row, p))
            context = self.sent_context()
            recorder.clear()
            del p
            self.assertIsNotNone(gone())
            self.assert_quiet(self.wrap(context, 0, 77))
            self.client.replies[:] = []
            self.assertIsNone(gone())

    def test_flags(self):
        """Replies with another end mark are delivered and leave the context; the one whose end
        mark is the flag is the last."""
        for row in cases.WRAPPED:
            if not row.flag:
                continue
            with self.subTest(command=row.name):
                before = sys.getrefcount(self.p)
                context = self.sent(row)
                for end_mark in [mark for mark in (0, 1, 2, 3, 4, 5, 6, 2 ** 32 - 1)
                                 if mark != row.flag]:
                    self.assert_quiet(self.wrap(context, 9, end_mark))
                    self.assertIsNone(self.only_reply(row).result)
                    self.assertEqual(self.extra_references(context), 1)
                self.assert_quiet(self.wrap(context, 0, row.flag))
                self.only_reply(row)
                self.assertEqual(sys.getrefcount(self.p), before)

    def test_message(self):
        """PubSubMsg is called with the signed address of the record alone; the result slot is
        set to None where there is no result."""
        context = self.sent(cases.BY_NAME["get"])
        record = self.reply(context)
        msg = self.only_reply(cases.BY_NAME["get"])
        self.assertEqual(msg.arguments, ((recorder.signed(ctypes.addressof(record)),), {}))
        self.assertIsNone(msg.result)  # which starts as NotImplemented

    def test_record_is_only_read(self):
        context = self.sent(cases.BY_NAME["get"])
        record = self.record(-7, 0x10, 0x20)
        before = ctypes.string_at(ctypes.addressof(record), ctypes.sizeof(record))
        recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context)
        self.client.replies[:] = []
        self.assertEqual(ctypes.string_at(ctypes.addressof(record), ctypes.sizeof(record)), before)

    def test_first_argument_and_type_code_are_ignored(self):
        for first in (None, 1, 2 ** (support.POINTER_BITS - 1)):
            for type_code in (-1, 0, 2, 2 ** 31 - 1):
                context = self.sent(cases.BY_NAME["get"])
                record = self.record(type_code)
                with reports() as found:
                    recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context, first)
                self.assert_quiet(found)
                self.only_reply(cases.BY_NAME["get"])

    def test_returned_value_is_ignored(self):
        for value in (None, 5, "x", ValueError):
            context = self.made(cb=lambda msg, p: value)
            self.assert_quiet(self.wrap(context.address))
            self.assertEqual(self.references(context), 0)


class Contexts(WrapTest):
    """Contexts made by hand."""

    def test_positional_arguments(self):
        p = object()
        context = self.made(p=p)
        self.assert_quiet(self.wrap(context.address))
        (msg, given), = context.seen
        self.assertIs(given, p)
        self.assertIs(type(msg), vu_mom_common.PubSubMsg)
        self.assertEqual(self.references(context), 0)

    def test_results(self):
        """obj and resobj are called with the address; with both, resobj with cls."""
        def build(name):
            return lambda *args, **kwargs: (name, args, kwargs)
        obj, resobj = build("obj"), build("resobj")
        for keys, wanted in (({"obj": obj}, ("obj", (16,), {})),
                             ({"resobj": resobj}, ("resobj", (16,), {})),
                             ({"obj": obj, "resobj": resobj}, ("resobj", (16,), {"cls": obj})),
                             ({}, None)):  # type: Any, Any
            context = self.made(**keys)
            self.assert_quiet(self.wrap(context.address, 16))
            self.assertEqual(context.seen.pop()[0].result, wanted)
            context = self.made(**keys)
            self.assert_quiet(self.wrap(context.address, 0))
            self.assertIsNone(context.seen.pop()[0].result)

    def test_without_data_obj_is_not_looked_up(self):
        asked = []

        class Context(dict):
            def __getitem__(self, key):
                asked.append(key)
                return dict.__getitem__(self, key)

            def __contains__(self, key):
                asked.append(key)
                return dict.__contains__(self, key)
        context = Context(p=None, cb=lambda msg, p: None, obj=None, resobj=None)
        self.assert_quiet(self.wrap(recorder.keep(context)))
        self.assertNotIn("obj", asked)

    def test_results_that_are_none(self):
        """Keys count, not their values: None is not callable."""
        context = self.made(obj=None)
        self.assert_quiet(self.wrap(context.address, 0))
        context = self.made(obj=None)
        found = self.wrap(context.address, 1)
        self.assert_reported(found, "wrap_cb", TypeError, "'NoneType' object is not callable")
        self.assertEqual(context.seen, [])
        self.take_back_made(context)

    def test_flag_of_one(self):
        """Survives replies whose end mark is 0, is released by the first whose end mark is 1."""
        context = self.made(flag=1)
        for end_mark, references in ((0, 1), (0, 1), (2, 1), (1, 0)):
            self.assert_quiet(self.wrap(context.address, 0, end_mark))
            self.assertEqual(self.references(context), references)
        self.assertEqual(len(context.seen), 4)

    def test_flag_is_compared_as_python_compares(self):
        """With the end mark as an unsigned integer; what == returns is taken for its truth."""
        class Flag(object):
            def __init__(self, answer):
                self.answer, self.seen = answer, []

            def __eq__(self, other):
                self.seen.append(other)
                return self.answer
            __hash__ = None  # type: ignore[assignment]
        for answer, references in ((True, 0), (False, 1), ([1], 0), ([], 1), (None, 1)):
            flag = Flag(answer)
            context = self.made(flag=flag)
            self.assert_quiet(self.wrap(context.address, 0, 2 ** 32 - 1))
            self.assertEqual(flag.seen, [2 ** 32 - 1])
            self.assertEqual(self.references(context), references)
            if references:
                self.take_back_made(context)
        for number, end_mark, references in ((2.0, 2, 0), (True, 1, 0), ("1", 1, 1),
                                             (-1, 2 ** 32 - 1, 1),
                                             (2 ** 32 - 1, 2 ** 32 - 1, 0), (None, 0, 1)):
            context = self.made(flag=number)
            self.assert_quiet(self.wrap(context.address, 0, end_mark))
            self.assertEqual(self.references(context), references)
            if references:
                self.take_back_made(context)

    def test_comparisons_that_fail(self):
        class Truthless(object):
            def __bool__(self):
                raise KeyError("truth")

        class Flag(object):
            def __init__(self, error):
                self.error = error

            def __eq__(self, other):
                if self.error is None:
                    return Truthless()
                raise self.error
            __hash__ = None  # type: ignore[assignment]
        for error, shown in ((KeyError("equality"), "'equality'"), (None, "'truth'")):
            context = self.made(flag=Flag(error))
            found = self.wrap(context.address, 0, 1)
            self.assert_reported(found, "wrap_cb", KeyError, shown)
            self.assertEqual(len(context.seen), 1)
            self.take_back_made(context)
            if error is not None:
                error.__traceback__ = None

    def test_null_record(self):
        context = self.made()
        with reports() as found:
            recorder.deliver(self.callbacks.wrap, None, context.address)
        self.assert_reported(found, "wrap_cb", vu_mom.MomCApiInnerError, "msg is NULL")
        self.assertEqual(context.seen, [])
        self.take_back_made(context)

    def test_null_context(self):
        found = self.wrap(None)
        self.assert_reported(found, "wrap_cb", vu_mom.MomCApiInnerError, "privdata is NULL")

    def test_both_null(self):
        with reports() as found:
            recorder.deliver(self.callbacks.wrap, None, None)
        self.assert_reported(found, "wrap_cb", vu_mom.MomCApiInnerError, "msg is NULL")

    def test_missing_keys(self):
        for keys, missing in (({}, "'p'"), ({"cb": len}, "'p'"), ({"p": 1}, "'cb'")):
            context = support.Made(keys)
            vu_mom_common.failures["PubSubMsg"] = RuntimeError("built too early")
            found = self.wrap(context.address, 1)
            self.assert_reported(found, "wrap_cb", KeyError, missing)
            self.take_back_made(context)
            vu_mom_common.failures.clear()

    def test_constructors_that_fail(self):
        """PubSubMsg, the result class, the message class: no call, the context stays."""
        def broken(*args, **kwargs):
            raise ValueError("broken")
        vu_mom_common.failures["PubSubMsg"] = ValueError("broken")
        context = self.made()
        found = self.wrap(context.address)
        self.assert_reported(found, "wrap_cb", ValueError, "broken")
        self.assertEqual(context.seen, [])
        self.take_back_made(context)
        vu_mom_common.failures.pop("PubSubMsg").__traceback__ = None
        for keys in ({"obj": broken}, {"resobj": broken},
                     {"obj": len, "resobj": broken}):  # type: Any
            context = self.made(**keys)
            found = self.wrap(context.address, 1)
            self.assert_reported(found, "wrap_cb", ValueError, "broken")
            self.assertEqual(context.seen, [])
            self.take_back_made(context)

    def test_reply_method_that_raises(self):
        """Is printed and reported as unraisable, does not reach the library, and leaves the
        context unreleased, with and without a flag."""
        def cb(msg, p):
            raise ValueError("mine")
        for keys in ({}, {"flag": 1}):  # type: Any
            context = self.made(cb=cb, **keys)
            found = self.wrap(context.address, 0, 1)
            self.assert_reported(found, "wrap_cb", ValueError, "mine")
            self.assertIn("in cb\n", found.text)
            self.take_back_made(context)

    def test_exceptions_that_end_programs(self):
        """End none here: they are reported like any other."""
        for error, shown in ((SystemExit(3), "3"), (SystemExit(), ""),
                             (KeyboardInterrupt("x"), "x"),
                             (GeneratorExit("y"), "y"), (MemoryError("z"), "z"),
                             (StopIteration("w"), "w")):
            def cb(msg, p):
                raise error
            context = self.made(cb=cb)
            found = self.wrap(context.address)
            self.assert_reported(found, "wrap_cb", type(error), shown)
            self.take_back_made(context)
            error.__traceback__ = None

    def test_cb_that_is_not_callable(self):
        context = self.made(cb=5)
        found = self.wrap(context.address)
        self.assert_reported(found, "wrap_cb", TypeError, "'int' object is not callable")
        self.take_back_made(context)

    def test_stderr_that_does_not_work(self):
        """There is nowhere to print to, and still nothing escapes."""
        class Broken(object):
            def write(self, text):
                raise OSError("no space")

            def flush(self):
                raise OSError("no space")
        for stream in (None, Broken()):  # type: Any
            context = self.made(cb=5)
            stderr, sys.stderr = sys.stderr, stream
            try:
                with support.silence():  # the interpreter may turn to the descriptor
                    record = self.record()
                    recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context.address)
            finally:
                sys.stderr = stderr
            self.take_back_made(context)

    def test_later_replies_after_an_error(self):
        """The context that an error left alive serves the next reply."""
        answers = [ValueError("once"), None]

        def cb(msg, p):
            error = answers.pop(0)
            if error:
                raise error
        context = self.made(cb=cb, flag=2)
        self.assert_reported(self.wrap(context.address, 0, 2), "wrap_cb", ValueError, "once")
        self.assertEqual(self.references(context), 1)
        self.assert_quiet(self.wrap(context.address, 0, 2))
        self.assertEqual(self.references(context), 0)

    def test_commands_from_a_reply_method(self):
        class Again(Client):
            def on_get_demo_Counter(self, msg, p):
                if p:
                    self.get(0, Message(), p - 1)
        client = Again(self.glb)
        self.glb.apps[:] = []
        client.get(0, self.obj, 2)
        for _ in range(3):
            context = self.sent_context()
            recorder.clear()
            self.reply(context)
        self.assert_nothing_sent()

    def test_last_reference_to_the_client(self):
        """A client that only its request keeps lives until the reply was delivered."""
        seen = []

        class Lonely(Client):
            def on_get_demo_Counter(self, msg, p):
                seen.append(p)
        client = Lonely(self.glb)
        self.glb.apps[:] = []
        gone = weakref.ref(client)
        client.get(0, self.obj, "p")
        del client
        self.assertIsNotNone(gone())
        self.reply(self.sent_context())
        self.assertEqual(seen, ["p"])
        self.assertIsNone(gone())

    def test_context_emptied_by_the_reply_method(self):
        """What the callback uses it holds itself."""
        def cb(msg, p):
            recorder.object_at(context.address).clear()
        context = support.Made({"p": support.Privdata(), "cb": cb, "flag": 1})
        kept = recorder.object_at(context.address)
        self.assert_quiet(self.wrap(context.address, 0, 5))
        self.assertEqual(kept, {})
        del kept, cb

    def test_flag_is_looked_for_after_the_reply_method(self):
        def cb(msg, p):
            recorder.object_at(context.address)["flag"] = 4
        context = support.Made({"p": None, "cb": cb})
        self.assert_quiet(self.wrap(context.address, 0, 5))
        self.take_back_made(context)


if __name__ == "__main__":
    unittest.main()
