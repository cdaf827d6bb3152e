"""What calls leave behind, over N, 10 N and 100 N of them: references (on an interpreter that
counts them), blocks of memory, and descriptors. Every way to call every command, and every
reply, alone; then what takes several of them. References that are kept on purpose are given
back after each call, once each: one too many or too few shows here."""
import ctypes
import gc
import itertools
import unittest

import cases
import recorder
import scenarios
import support
from slopes import EVERY, SlopeTest


class Slopes(SlopeTest):

    def test_client(self):
        for call in itertools.islice(scenarios.client_calls(), 0, None, EVERY):
            self.check(call.run, call)

    def test_replies(self):
        for reply in itertools.islice(scenarios.replies(), 0, None, EVERY):
            self.check(reply.run, reply)


def _command_test(row):
    def test(self):
        for call in itertools.islice(scenarios.command_calls(row), 0, None, EVERY):
            self.check(call.run, call)
    return test


for _row in cases.COMMANDS:
    setattr(Slopes, "test_" + _row.name, _command_test(_row))


class Conversations(Slopes):
    """Requests and replies together."""

    test_client = test_replies = None

    def context(self):
        return dict(recorder.calls()[-1].arguments)["context"]

    def deliver(self, callback, context, **fields):
        record = recorder.Reply(**fields)
        if callback == "wrap":
            recorder.deliver(scenarios.CALLBACKS.wrap, ctypes.addressof(record), context)
        else:
            recorder.stream(getattr(scenarios.CALLBACKS, callback), ctypes.addressof(record), context)

    def test_several_replies(self):
        def talk():
            recorder.clear()
            recorder.answer(0)
            scenarios.CLIENT.pdel(0, support.Message(), 0, object())
            context = self.context()
            for mark in (0, 0, 1, 5):
                self.deliver("wrap", context, end_mark=mark)
            self.assertEqual(len(scenarios.CLIENT.replies), 4)
            del scenarios.CLIENT.replies[:]
        self.check(talk, "several replies")

    def test_scan(self):
        def talk():
            recorder.clear()
            recorder.answer(0)
            scenarios.CLIENT.scan(0, support.Message(), 0, object())
            context = self.context()
            for code, mark in ((1, 0), (4, 0), (10, 0), (0, 1)):
                self.deliver("scan", context, type_code=code, data=0x1000, end_mark=mark)
            self.assertEqual(len(scenarios.CLIENT.replies), 4)
            del scenarios.CLIENT.replies[:]
        self.check(talk, "scan")

    def test_subscription(self):
        def talk():
            recorder.clear()
            recorder.answer(0)
            scenarios.CLIENT.subscribe(0, support.Message(), 0, object())
            context = self.context()
            for code in (1, 4, 10, 18, 39, 29, 28):
                self.deliver("sub", context, type_code=code, data=0x1000)
            self.assertEqual(len(scenarios.CLIENT.replies), 7)
            del scenarios.CLIENT.replies[:]
        self.check(talk, "subscription")

    def test_client_goes_while_a_request_is_pending(self):
        """The context keeps it for the reply."""
        def talk():
            recorder.clear()
            recorder.answer(0)
            client = support.Listener(scenarios.GLOBAL)
            del scenarios.GLOBAL.apps[:]
            client.get(0, support.Message(), None)
            context = self.context()
            replies = client.replies
            del client
            gc.collect(0)
            self.deliver("wrap", context, data=0x1000)
            self.assertEqual(len(replies), 1)
        self.check(talk, "client gone")

    def test_reply_method_calls_commands(self):
        class Chatty(support.Listener):
            left = 0

            def on_get_demo_Counter(self, msg, p):
                if self.left:
                    self.left -= 1
                    self.get(0, p, p)
                    case.deliver("wrap", case.context(), data=0x1000)
        case = self
        client = Chatty(scenarios.GLOBAL)
        del scenarios.GLOBAL.apps[:]

        def talk():
            recorder.clear()
            recorder.answer(0)
            client.left = 5
            client.get(0, support.Message(), support.Message())
            self.deliver("wrap", self.context(), data=0x1000)
            self.assertEqual(client.left, 0)
            self.assertEqual(len(recorder.calls()), 6)
        self.check(talk, "commands in replies")

    def test_conversion_calls_commands(self):
        """A number whose conversion calls the same command on the same client."""
        class Calling(object):
            def __int__(self):
                scenarios.CLIENT.set(0, support.Message())
                scenarios.CLIENT.__init__(scenarios.GLOBAL)  # type: ignore[misc]
                return 3

        def talk():
            recorder.clear()
            recorder.answer(0)
            scenarios.CLIENT.set(Calling(), support.Message(), Calling())
            scenarios.CLIENT.hmset(Calling(), support.Message(), [Calling(), Calling()])
            self.assertEqual(len(recorder.calls()), 7)
            del scenarios.GLOBAL.apps[:]
        self.check(talk, "commands in conversions")

    def test_list_shrinks_while_it_is_converted(self):
        def talk():
            recorder.clear()
            recorder.answer(0)
            tags = []

            class Shrinking(object):
                def __int__(self):
                    del tags[:]
                    return 1
            tags.extend([Shrinking(), 2, 3])
            with self.assertRaises(IndexError):
                scenarios.CLIENT.unsubscribe_field(0, support.Message(), 0, tags)
            recorder.free_blocks()
        self.check(talk, "shrinking list")

    def test_client_in_a_cycle(self):
        def talk():
            client = support.Listener(scenarios.GLOBAL)
            client.me = client
            del scenarios.GLOBAL.apps[:]
        self.check(talk, "cycle")


for _row in cases.COMMANDS:
    setattr(Conversations, "test_" + _row.name, None)


if __name__ == "__main__":
    unittest.main()
