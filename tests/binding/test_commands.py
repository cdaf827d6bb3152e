"""All 49 commands against the rows of cases.py, in every respect that they share."""
import sys
import unittest

import cases
import recorder
import support
import vu_mom
from support import (Any, BindingTest, Failure, Int, Message, Steps, binding_frames, positional,
                     values, watched_values)

ANSWERS = [(-2, vu_mom.InputError), (-3, MemoryError), (-1, vu_mom.Error), (7, vu_mom.Error),
           (1, vu_mom.Error), (-4, vu_mom.Error), (-2 ** 31, vu_mom.Error)]


def call_text(name, word, number, given):
    return "%s() takes %s %d positional argument%s (%d given)" % (
        name, word, number, "" if number == 1 else "s", given)


class CommandTest(BindingTest):
    """Runs a check for every row, as a test of its own in the report."""

    def each_row(self, check, rows=cases.COMMANDS):
        for row in rows:
            with self.subTest(command=row.name):
                recorder.clear()
                recorder.answer(0)
                check(row, getattr(self.client, row.name))
                recorder.clear()

    def contexts(self):
        """The addresses of the contexts of the calls so far."""
        found = []
        for call in recorder.calls():
            arguments = dict(call.arguments)
            found += arguments.get("contexts") or []
            if arguments.get("context") is not None:
                found.append(arguments["context"])
        return found

    def take_back_all(self):
        for context in self.contexts():
            self.take_back(context)


class Arguments(CommandTest):

    def frames(self, row):
        return ["VuMom." + row.name]

    def test_wrong_counts(self):
        """Too few and too many positional arguments, with the standard text."""
        def check(row, method):
            all_values = positional(row, values(row, None))
            few, many = row.count_word
            for given in range(len(row.required)):
                text = call_text(row.name, few, len(row.required), given)
                with self.refuses(TypeError, text, self.frames(row)):
                    method(*all_values[:given])
            for extra in (1, 2, 20):
                given = len(all_values) + extra
                text = call_text(row.name, many, len(all_values), given)
                with self.refuses(TypeError, text, self.frames(row)):
                    method(*(all_values + [None] * extra))
                with self.refuses(TypeError, text, self.frames(row)):
                    method(*(all_values + [None] * extra), unknown=1)
            self.assert_nothing_sent()
        self.each_row(check)

    def test_keywords(self):
        """Every split into positional and keyword arguments sends the same."""
        def check(row, method):
            arguments = values(row, None)
            wanted = None
            for leading in range(len(row.names) + 1):
                recorder.clear()
                keywords = dict((name, arguments[name]) for name in row.names[leading:])
                self.assertIsNone(method(*positional(row, arguments)[:leading], **keywords))
                call = self.only_call()
                self.take_back_all()
                sent = (call.function, [(name, value) for name, value in call.arguments
                                        if name not in ("context", "contexts")])
                wanted = wanted or sent
                self.assertEqual(sent, wanted)
        self.each_row(check)

    def test_missing_required_by_keyword(self):
        """The count text counts the arguments found before the first that is missing."""
        def check(row, method):
            arguments = values(row, None)
            few = row.count_word[0]
            for missing in row.required:
                index = row.names.index(missing)
                text = call_text(row.name, few, len(row.required), index)
                keywords = dict(arguments)
                del keywords[missing]
                if keywords:
                    with self.refuses(TypeError, text, self.frames(row)):
                        method(**keywords)
                    # Found missing before an unknown keyword is.
                    with self.refuses(TypeError, text, self.frames(row)):
                        method(unknown=1, **keywords)
                if index + 1 < len(row.names):
                    keywords = dict((name, arguments[name]) for name in row.names[index + 1:])
                    with self.refuses(TypeError, text, self.frames(row)):
                        method(*positional(row, arguments)[:index], **keywords)
            if row.required[1:]:
                # One given twice does not hide that another is missing.
                text = call_text(row.name, few, len(row.required), 1)
                with self.refuses(TypeError, text, self.frames(row)):
                    method(0, db=0)
            self.assert_nothing_sent()
        self.each_row(check)

    def test_unknown_keyword(self):
        def check(row, method):
            arguments = values(row, None)
            text = "%s() got an unexpected keyword argument 'unknown'" % row.name
            with self.refuses(TypeError, text, self.frames(row)):
                method(unknown=1, **arguments)
            with self.refuses(TypeError, text, self.frames(row)):
                method(*positional(row, arguments), unknown=1)
            self.assert_nothing_sent()
        self.each_row(check)

    def test_duplicate_keyword(self):
        def check(row, method):
            arguments = positional(row, values(row, None))
            for name in row.names:
                text = "%s() got multiple values for keyword argument '%s'" % (row.name, name)
                with self.refuses(TypeError, text, self.frames(row)):
                    method(*arguments, **{name: 0})
            self.assert_nothing_sent()
        self.each_row(check)

    def test_keyword_names_that_are_not_interned(self):
        """A name is compared by value, not only by identity."""
        def check(row, method):
            arguments = values(row, None)
            keywords = dict(("".join(list(name)), value) for name, value in arguments.items())
            method(**keywords)
            self.only_call()
            self.take_back_all()
        self.each_row(check)

    def test_defaults(self):
        """Leaving out what has a default is the same as giving the default."""
        def check(row, method):
            arguments = values(row, None)
            for name, default in row.parameters:
                if default is cases.REQUIRED:
                    continue
                sent = []
                for given in (False, True):
                    recorder.clear()
                    arguments[name] = default
                    keywords = dict(arguments)
                    if not given:
                        del keywords[name]
                    method(**keywords)
                    sent.append(self.only_call())
                self.assertEqual(sent[0], sent[1])
        self.each_row(check)


class WrongTypes(CommandTest):

    NOT_INTEGERS = ["5", b"5", None, [], (), {}, object(), support.OnlyIndex(),
                    support.OnlyTrunc()]

    def refused(self, row, method, arguments, error, text):
        """The command refuses these arguments, and sends nothing."""
        with self.refuses(error, text, ["VuMom." + row.name]):
            method(**arguments)
        self.assert_nothing_sent()

    def refused_at(self, row, method, name, value, error, text, step=None):
        """The same with one argument wrong; leaves behind what the failing step leaves."""
        p = support.Privdata()
        arguments = values(row, p)
        arguments[name] = value
        before = sys.getrefcount(p)
        self.refused(row, method, arguments, error, text)
        kept = contexts_kept(row, row.steps.index(step or name))
        self.assertEqual(sys.getrefcount(p) - before, kept)
        support.give_back_contexts(self, p, kept)
        recorder.free_blocks()

    def numbers(self, row):
        """The names and kinds of the parameters that are numbers."""
        return [(name, cases.KINDS[name]) for name in row.names if name in cases.KINDS]

    def test_integers(self):
        """Where an integer is wanted: no strings, None or containers, nothing that only has
        __index__ or __trunc__."""
        def check(row, method):
            for name, kind in self.numbers(row):
                if kind == cases.DOUBLE:
                    continue
                for value in self.NOT_INTEGERS:
                    self.refused_at(row, method, name, value, TypeError,
                                      "an integer is required")
        self.each_row(check)

    def test_integer_conversion_to_something_else(self):
        def check(row, method):
            for name, kind in self.numbers(row):
                if kind == cases.DOUBLE:
                    continue
                for value, type_name in [("5", "str"), (1.5, "float"), (None, "NoneType"),
                                         (Int(5), "Int")]:
                    self.refused_at(row, method, name, Int(value), TypeError,
                                      "__int__ returned non-int (type %s)" % type_name)
        self.each_row(check)

    def test_ranges(self):
        """One beyond either end of each width."""
        beyond = {
            cases.INT32: [(2 ** 31, support.LONG_OVERFLOW), (-2 ** 31 - 1, support.LONG_OVERFLOW),
                          (2 ** 63, support.LONG_OVERFLOW), (-10 ** 40, support.LONG_OVERFLOW)],
            cases.UINT32: [(2 ** 32, support.UNSIGNED_LONG_OVERFLOW),
                           (2 ** 64, support.UNSIGNED_LONG_OVERFLOW),
                           (-1, "can't convert negative value to unsigned int"),
                           (-2 ** 31, "can't convert negative value to unsigned int"),
                           (-10 ** 40, "can't convert negative value to unsigned int")],
            cases.SIZE: [(support.SIZE_LIMIT, support.UNSIGNED_LONG_OVERFLOW),
                         (10 ** 40, support.UNSIGNED_LONG_OVERFLOW),
                         (-1, "can't convert negative value to size_t"),
                         (-10 ** 40, "can't convert negative value to size_t")],
            cases.INT64: [(2 ** 63, None), (-2 ** 63 - 1, None), (10 ** 40, None)],
        }

        def check(row, method):
            for name, kind in self.numbers(row):
                for value, text in beyond.get(kind, []):
                    self.refused_at(row, method, name, value, OverflowError, text)
                    self.refused_at(row, method, name, Int(value), OverflowError, text)
        self.each_row(check)

    def test_doubles(self):
        def check(row, method):
            for name, kind in self.numbers(row):
                if kind != cases.DOUBLE:
                    continue
                for value in ("1.5", None, [], object(), Int(5)):
                    self.refused_at(row, method, name, value, TypeError,
                                      support.float_refusal(value))
        self.each_row(check)

    def test_lists(self):
        """Where a list is wanted, nothing else is taken: not even a subclass."""
        class Sub(list):
            pass

        def check(row, method):
            for name in row.names:
                if name not in cases.LISTS_OF:
                    continue
                for value in ((1,), Sub(), {}, "ab", 5, iter([])):
                    arguments = values(row, None)
                    arguments[name] = value
                    text = "Argument '%s' has incorrect type (expected list, got %s)" % (
                        name, type(value).__name__)
                    self.refused(row, method, arguments, TypeError, text)
                    self.assertEqual(recorder.live_blocks(), 0)
        self.each_row(check)

    def test_lists_are_checked_in_argument_order(self):
        def check(row, method):
            lists = [name for name in row.names if name in cases.LISTS_OF]
            for first in range(len(lists)):
                arguments = values(row, None)
                for name in lists[first:]:
                    arguments[name] = ()
                text = "Argument '%s' has incorrect type (expected list, got tuple)" % lists[first]
                self.refused(row, method, arguments, TypeError, text)
        self.each_row(check)

    def test_messages_that_are_none(self):
        """An obj without the attributes of a message."""
        def check(row, method):
            for name in ("obj", "pivot"):
                if name not in row.names:
                    continue
                step = "package" if name == "obj" and "package" in row.steps else name
                missing = "package_name" if step == "package" else "get_ptr"
                self.refused_at(row, method, name, object(), AttributeError,
                                "'object' object has no attribute '%s'" % missing, step)
        self.each_row(check)

    def test_addresses(self):
        """What get_ptr() returns is converted like an integer argument, as wide as a pointer."""
        limit = 2 ** (support.POINTER_BITS - 1)
        wrong = [("x", TypeError, "an integer is required"),
                 (None, TypeError, "an integer is required"),
                 (support.OnlyIndex(), TypeError, "an integer is required"),
                 (limit, OverflowError, support.LONG_OVERFLOW),
                 (-limit - 1, OverflowError, support.LONG_OVERFLOW)]

        def check(row, method):
            for name in ("obj", "pivot"):
                if name not in row.names:
                    continue
                for value, error, text in wrong:
                    self.refused_at(row, method, name, Message(value), error, text)
        self.each_row(check)


def contexts_kept(row, number):
    """How many contexts stay when the step with this number fails: those that were complete."""
    before = row.steps[:number]
    if row.name == "subscribe_field":
        return before.count("class")
    if not row.has_context:
        return 0
    return 1 if ("class" if "class" in row.steps else "call") in before else 0


class Order(CommandTest):
    """The order of all steps, observed from within them."""

    client_class = support.WatchedListener

    def tearDown(self):
        self.client.log = None
        super(Order, self).tearDown()

    def run_steps(self, row, method, fail_at=None):
        log = self.client.log = Steps(fail_at)
        arguments = watched_values(row, log)
        if "privdata" in arguments:
            arguments["privdata"] = self.p
        if "args" in arguments:
            arguments["args"] = [self.p, self.p]
        try:
            method(**arguments)
        finally:
            self.client.log = None
        return log

    def swallows(self, row, step):
        """Whether an error of this step is reported and not raised."""
        return row.name in ("hmset", "hmsetnx", "hmupdate", "hmget") and step.startswith("field_")

    def test_order(self):
        def check(row, method):
            log = self.run_steps(row, method)
            self.assertEqual(log.seen, row.steps)
            self.only_call()
            self.take_back_all()
        self.each_row(check)

    def test_failures_stop_there(self):
        """A step that fails is the last one; its exception arrives; the store is not called; the
        context is kept exactly if it existed; arrays are kept."""
        def check(row, method):
            for number, step in enumerate(row.steps):
                if self.swallows(row, step):
                    continue
                recorder.clear()
                before = sys.getrefcount(self.p)
                try:
                    self.run_steps(row, method, fail_at=number)
                except Failure as error:
                    self.assertEqual(str(error), step)
                    self.assertEqual(binding_frames(error), ["vu_mom.VuMom." + row.name])
                    error.__traceback__ = None
                else:
                    self.fail("step %d of %s does not fail" % (number, row.name))
                self.assert_nothing_sent()
                kept = contexts_kept(row, number)
                self.assertEqual(sys.getrefcount(self.p) - before, kept)
                support.give_back_contexts(self, self.p, kept)
                self.assert_arrays(row, number)
                recorder.free_blocks()
        self.each_row(check)

    def test_steps_before_a_failure(self):
        def check(row, method):
            for number, step in enumerate(row.steps):
                if self.swallows(row, step):
                    continue
                log = self.client.log = Steps(number)
                arguments = watched_values(row, log)
                if "privdata" in arguments:
                    arguments["privdata"] = self.p
                if "args" in arguments:
                    arguments["args"] = [self.p, self.p]
                try:
                    method(**arguments)
                except Failure as error:
                    error.__traceback__ = None
                self.client.log = None
                self.assertEqual(log.seen, row.steps[:number + 1])
                support.give_back_contexts(self, self.p, contexts_kept(row, number))
                recorder.free_blocks()
        self.each_row(check)

    def assert_arrays(self, row, number):
        """Arrays exist from before their first element, and no failure frees them."""
        before = row.steps[:number + 1]
        if any("[" in step for step in before):
            arrays = {"zadd": 2, "subscribe_field": 3, "unsubscribe_field": 2}.get(row.name, 1)
        else:
            arrays = 0
        self.assertEqual(recorder.live_blocks(), arrays)


class Sent(CommandTest):

    def native(self, row, arguments):
        """What the row says must arrive, except the contexts."""
        wanted = [("handle", support.HANDLE)]
        for name in row.native:
            tags = arguments.get("field_tags", arguments.get("fields"))
            length = len(tags if tags is not None else arguments.get("objs", []))
            value = {
                "message": ("message", getattr(arguments.get("obj"), "address", None)),
                "pivot": ("pivot", getattr(arguments.get("pivot"), "address", None)),
                "tags": ("tags", tags),
                "length": ("count", length),
                "messages": ("messages", [m.address for m in arguments.get("objs", [])]),
                "seconds": ("seconds", support.SECONDS),
                "microseconds": ("microseconds", support.MICROSECONDS),
                "wrap": ("callback", self.callbacks.wrap),
                "scan": ("callback", self.callbacks.scan),
                "sub": ("callback", self.callbacks.sub),
                "callbacks": ("callbacks", [self.callbacks.sub] * length),
                "context": ("context", "some"),
                "contexts": ("contexts", "some"),
            }.get(name)
            wanted.append(value or (name, arguments.get(name)))
        return self.name_nulls(row, wanted)

    def name_nulls(self, row, wanted):
        """The two nulls are the callback and the context; one alone is the context."""
        names = ["callback", "context"] if row.native.count("null") == 2 else ["context"]
        if "callbacks" in row.native:
            names = ["contexts"]
        return [(names.pop(0), None) if name == "null" else (name, value)
                for name, value in wanted]

    def test_native_arguments(self):
        """Every argument of the store's function, in order, with values at the ends of their
        ranges and all different."""
        def check(row, method):
            arguments = values(row, self.p)
            method(*positional(row, arguments))
            call = self.only_call()
            self.assertEqual(call.function, row.function)
            sent = [(name, "some" if name in ("context", "contexts") and value else value)
                    for name, value in call.arguments]
            self.assertEqual(sent, self.native(row, arguments))
            self.take_back_all()
        self.each_row(check)

    def test_numbers_from_conversions(self):
        """Floats, bools and whatever has __int__ are taken where an integer is wanted."""
        def check(row, method):
            for convert, number in ((lambda n: n + 0.75, 3), (Int, 3),
                                    (lambda n: True, 1)):  # type: Any, int
                arguments = values(row, self.p, dict.fromkeys(support.NUMBERS, 3))
                for name in row.names:
                    if cases.KINDS.get(name, cases.DOUBLE) != cases.DOUBLE:
                        arguments[name] = convert(3)
                recorder.clear()
                method(**arguments)
                sent = self.only_arguments()
                for name in row.names:
                    if cases.KINDS.get(name, cases.DOUBLE) != cases.DOUBLE:
                        self.assertEqual(sent[name], number)
                self.take_back_all()
        self.each_row(check)

    def test_ends_of_ranges(self):
        ends = {
            cases.INT32: [-2 ** 31, -1, 0, 1, 2 ** 15, 2 ** 30, 2 ** 31 - 1],
            cases.UINT32: [0, 1, 2 ** 15, 2 ** 30, 2 ** 31, 2 ** 32 - 1],
            cases.INT64: [-2 ** 63, -2 ** 31 - 1, -1, 0, 2 ** 31, 2 ** 45, 2 ** 63 - 1],
            cases.SIZE: [0, 1, 2 ** 30, 2 ** 31, support.SIZE_LIMIT - 1],
            cases.DOUBLE: [],
        }

        def check(row, method):
            for name in row.names:
                for value in ends[cases.KINDS.get(name, cases.DOUBLE)]:
                    arguments = values(row, self.p)
                    arguments[name] = value
                    recorder.clear()
                    method(**arguments)
                    self.assertEqual(self.only_arguments()[name], value)
                    self.take_back_all()
        self.each_row(check)

    def test_addresses(self):
        """Any address of the width of a pointer, also negative ones and zero."""
        limit = 2 ** (support.POINTER_BITS - 1)

        def check(row, method):
            for address in (0, 1, -1, limit - 1, -limit, Int(77), 5.5):
                arguments = values(row, self.p)
                for name, native in (("obj", "message"), ("pivot", "pivot")):
                    if name not in arguments:
                        continue
                    arguments[name] = Message(address)
                    recorder.clear()
                    method(**arguments)
                    wanted = 77 if isinstance(address, Int) else int(address)
                    self.assertEqual(self.only_arguments()[native], wanted)
                    self.take_back_all()
        self.each_row(check)

    def test_handle_is_read_afresh(self):
        def check(row, method):
            for handle in (0, 1, 0xFFFFFFFF, support.HANDLE):
                self.glb.handle = handle
                recorder.clear()
                method(**values(row, self.p))
                self.assertEqual(self.only_call().arguments[0], ("handle", handle))
                self.take_back_all()
        self.each_row(check)

    def test_arrays_are_freed(self):
        """After the call, whatever the status; zrem's is the library's."""
        def check(row, method):
            for status in (0, -1, -2, -3, 7):
                recorder.clear()
                recorder.answer(status)
                try:
                    method(**values(row, self.p))
                except (vu_mom.Error, vu_mom.InputError, MemoryError):
                    pass
                self.take_back_all()
                self.assertEqual(recorder.live_blocks(), 0)
                self.assertEqual(recorder.taken_blocks(), 1 if row.name == "zrem" else 0)
                self.assertEqual(recorder.wrong_frees(), 0)
        self.each_row(check)


class Status(CommandTest):

    def test_statuses(self):
        """0 is None; -2, -3 and anything else are bare exceptions."""
        def check(row, method):
            arguments = values(row, self.p)
            self.assertIsNone(method(**arguments))
            self.take_back_all()
            for status, error in ANSWERS:
                recorder.clear()
                recorder.answer(status)
                if row.name == cases.SWALLOWS_FAILURE and error is vu_mom.Error:
                    self.assertIsNone(method(**arguments))
                    continue
                try:
                    method(**arguments)
                except Exception as raised:
                    self.assertIs(type(raised), error)
                    self.assertEqual(raised.args, ())
                    self.assertEqual(str(raised), "")
                    self.assertEqual(binding_frames(raised), ["vu_mom.VuMom." + row.name])
                    raised.__traceback__ = None
                else:
                    self.fail("status %d raises nothing" % status)
                self.only_call()
                self.take_back_all()
        self.each_row(check)


class Contexts(CommandTest):

    def test_contexts(self):
        """Exactly the keys of the row, with exactly their values, in order."""
        def check(row, method):
            p = support.Privdata()
            arguments = values(row, p)
            method(**arguments)
            context = recorder.object_at(self.sent_context())
            self.assertIs(type(context), dict)
            self.assertEqual(set(context), set(row.context))
            if sys.version_info >= (3, 7):
                self.assertEqual(list(context), row.context)
            self.assertIs(context["p"], p)
            self.assertIs(context["cb"].__self__, self.client)
            self.assertEqual(context["cb"], getattr(self.client, support.reply_name(row)))
            if "obj" in context:
                self.assertIs(context["obj"], Message)
            if "resobj" in context:
                self.assertIs(context["resobj"], support.result_class(row))
            if "flag" in context:
                self.assertEqual(context["flag"], row.flag)
                self.assertIs(type(context["flag"]), int)
            context = None
            self.take_back_all()
        self.each_row(check, cases.REPLYING)

    def test_one_reference_is_the_stores(self):
        """Accepted or refused, a context has exactly one reference when the command is over, and
        with it everything in it stays."""
        def check(row, method):
            for status in (0, -1, -2, -3, 7):
                recorder.clear()
                recorder.answer(status)
                p = support.Privdata()
                arguments = values(row, p)
                before = sys.getrefcount(p), sys.getrefcount(self.client)
                try:
                    method(**arguments)
                except (vu_mom.Error, vu_mom.InputError, MemoryError):
                    pass
                self.assertEqual(self.extra_references(self.sent_context()), 1)
                self.assertEqual((sys.getrefcount(p), sys.getrefcount(self.client)),
                                 (before[0] + 1, before[1] + 1))
                self.take_back_all()
                self.assertEqual((sys.getrefcount(p), sys.getrefcount(self.client)), before)
        self.each_row(check, cases.REPLYING)

    def test_no_context_without_a_reply(self):
        def check(row, method):
            arguments = values(row, self.p)
            if row.name == "subscribe_field":
                return
            before = sys.getrefcount(self.p)
            method(**arguments)
            sent = self.only_arguments()
            self.assertIsNone(sent.get("context"))
            self.assertIsNone(sent.get("contexts"))
            self.assertEqual(sys.getrefcount(self.p), before)
        self.each_row(check, [row for row in cases.COMMANDS if not row.prefix])

    def test_missing_reply_method(self):
        """Fails in __getfunc, before anything is sent or kept."""
        client = support.Client(self.glb)

        def check(row, method):
            p = support.Privdata()
            arguments = values(row, p)
            before = sys.getrefcount(p)
            with self.refuses(AttributeError,
                              "'Client' object has no attribute '%s'" % support.reply_name(row),
                              ["VuMom." + row.name, "VuMom.__getfunc"]):
                getattr(client, row.name)(**arguments)
            self.assert_nothing_sent()
            self.assertEqual(sys.getrefcount(p), before)
            recorder.free_blocks()  # the tags of hmget and pexpire_fields stay
        self.each_row(check, cases.REPLYING)

    def test_no_reply_method_needed(self):
        client = support.Client(self.glb)

        def check(row, method):
            self.assertIsNone(getattr(client, row.name)(**values(row, self.p)))
            self.only_call()
            self.take_back_all()
        self.each_row(check, [row for row in cases.COMMANDS if not row.prefix])


if __name__ == "__main__":
    unittest.main()
