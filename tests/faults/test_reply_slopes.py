"""What requests with their replies leave behind, for every command in every way that a request can
go on: reply methods that raise, several replies, a client that goes and a handle that closes while
the request is pending, and commands inside replies and conversions. Measured as in test_slopes."""
import ctypes
import itertools
import unittest

import cases
import recorder
import scenarios
import support
from slopes import EVERY, SlopeTest

DATA = 0x1000


class Raising(support.Listener):
    """Every reply method raises."""


class Calling(support.Listener):
    """Every reply method calls the command again, so many times."""
    left, again = 0, None


def _raise(self, msg, p):
    raise ValueError("from a reply method")


def _call_again(self, msg, p):
    if self.left:
        self.left -= 1
        self.again()


for _row in cases.REPLYING:
    setattr(Raising, support.reply_name(_row), _raise)
    setattr(Calling, support.reply_name(_row), _call_again)


def client_of(cls):
    client = cls(scenarios.GLOBAL)
    del scenarios.GLOBAL.apps[:]
    return client


def arguments_of(row, client, **changed):
    values = support.values(row, object())
    if "funcs" in values:
        method = getattr(client, "on_get_demo_Counter")
        values["funcs"] = [method for _ in values["funcs"]]
    values.update(changed)
    return values


def pending(call):
    """The callbacks and contexts of the request that a call of the library made."""
    arguments = dict(call.arguments)
    if "contexts" in arguments:
        return [("sub", context) for context in arguments["contexts"] or []]
    if arguments.get("context") is None:
        return []
    row = ROWS_BY_FUNCTION[call.function]
    kind = [name for name in ("wrap", "scan", "sub") if name in row.native][0]
    return [(kind, arguments["context"])]


ROWS_BY_FUNCTION = dict((row.function, row) for row in cases.COMMANDS)


def deliver(kind, context, **fields):
    record = recorder.Reply(**fields)
    callback = getattr(scenarios.CALLBACKS, kind)
    if kind == "wrap":
        recorder.deliver(callback, ctypes.addressof(record), context)
    else:
        recorder.stream(callback, ctypes.addressof(record), context)


def last(kind, context, row, data=None):
    """The reply that completes a request; with data it carries some where it can."""
    if kind == "sub":
        deliver(kind, context, type_code=28)
    elif kind == "scan":
        deliver(kind, context, type_code=0, end_mark=1)
    else:
        deliver(kind, context, data=data, end_mark=row.flag or 0)


def several(kind, context, row):
    """Replies that do not complete a request, if there are any."""
    for _ in range(3):
        if kind == "sub":
            deliver(kind, context, type_code=1, data=DATA)
        elif kind == "scan":
            deliver(kind, context, type_code=4, data=DATA)
        elif row.flag:
            deliver(kind, context, end_mark=0)


class Replies(SlopeTest):

    def start(self):
        recorder.clear()
        recorder.answer(0)

    def requests(self):
        """What is pending after all calls since start()."""
        return [request for call in recorder.calls() for request in pending(call)]

    def way(self, row, name, act):
        self.check(act, "%s, %s" % (row.name, name))

    def every_way(self, row):
        yield "raising", self.raising
        yield "several replies", self.several_replies
        yield "client gone", self.client_gone
        yield "closed", self.closed
        yield "again in the reply", self.again_in_the_reply
        yield "again in a conversion", self.again_in_a_conversion

    def raising(self, row):
        client = client_of(Raising)

        def act():
            self.start()
            getattr(client, row.name)(**arguments_of(row, client))
            self.assertEqual(bool(self.requests()), row.has_context or "contexts" in row.native)
            with support.reports() as found:
                for kind, context in self.requests():
                    if row.prefix or kind == "sub":
                        deliver(kind, context, type_code=1 if kind != "wrap" else 0, data=DATA)
                        recorder.give_back(context)  # an error keeps it, on purpose
                    else:
                        last(kind, context, row, DATA)
            if row.prefix:
                self.assertIn("from a reply method", found.text)
        return act

    def several_replies(self, row):
        client = client_of(support.Listener)

        def act():
            self.start()
            getattr(client, row.name)(**arguments_of(row, client))
            for kind, context in self.requests():
                several(kind, context, row)
                last(kind, context, row, DATA)
            del client.replies[:]
        return act

    def client_gone(self, row):
        def act():
            self.start()
            client = client_of(support.Listener)
            getattr(client, row.name)(**arguments_of(row, client))
            del client
            for kind, context in self.requests():
                last(kind, context, row, DATA)
        return act

    def closed(self, row):
        """A handle that closes completes its requests without data."""
        def act():
            self.start()
            client = client_of(support.Listener)
            for _ in range(3):
                getattr(client, row.name)(**arguments_of(row, client))
            del client
            for kind, context in self.requests():
                last(kind, context, row)
        return act

    def again_in_the_reply(self, row):
        client = client_of(Calling)
        client.again = lambda: getattr(client, row.name)(**arguments_of(row, client))

        def act():
            self.start()
            client.left = 3
            client.again()
            done = 0
            while done < len(self.requests()):
                kind, context = self.requests()[done]
                done += 1
                several(kind, context, row)
                last(kind, context, row, DATA)
        return act

    def again_in_a_conversion(self, row):
        client = client_of(support.Listener)
        name = "db"

        class Number(object):
            def __int__(self):
                getattr(client, row.name)(**arguments_of(row, client))
                return 3

        def act():
            self.start()
            getattr(client, row.name)(**arguments_of(row, client, **{name: Number()}))
            for kind, context in self.requests():
                last(kind, context, row, DATA)
            del client.replies[:]
        return act


def _test(row):
    def test(self):
        for name, make in itertools.islice(self.every_way(row), len(row.name) % EVERY,
                                           None, EVERY):
            self.way(row, name, make(row))
    return test


for _row in cases.COMMANDS:
    setattr(Replies, "test_" + _row.name, _test(_row))


if __name__ == "__main__":
    unittest.main()
