"""Contexts as the binding makes them: nothing in them but its own keys, in its own order. All are found
at once, and what was found does not count any more when somebody has changed the context."""
import ctypes
import sys
import unittest

import recorder
from support import Any, BindingTest, reports


def plain():
    """A dict that nobody else has, to compare counts with."""
    return {}


class Contexts(BindingTest):

    def kept(self, *pairs):
        """The address of a context with these pairs, in this order; the store has a reference."""
        self.context = {}  # type: Any
        for key, value in pairs:
            self.context[key] = value
        self.own = plain()
        return recorder.keep(self.context)

    def references_of_the_store(self):
        return sys.getrefcount(self.context) - sys.getrefcount(self.own)

    def deliver(self, callback, context, data, end_mark=0):
        record = self.record(1, data, end_mark)
        with reports() as found:
            if callback == "wrap":
                recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context)
            else:
                recorder.stream(self.callbacks.scan, ctypes.addressof(record), context)
        return found

    def test_missing_keys(self):
        """They are looked up, and the error is that of the dict."""
        for callback, pairs, missing in (
                ("wrap", (), "'p'"),
                ("wrap", (("cb", len),), "'p'"),
                ("wrap", (("p", 1), ("obj", len)), "'cb'"),
                ("scan", (("p", 1), ("cb", len)), "'obj'")):
            context = self.kept(*pairs)
            found = self.deliver(callback, context, 1)
            self.assert_reported(found, callback + "_cb", KeyError, missing)
            self.assertEqual(self.context, dict(pairs))
            self.assertEqual(self.references_of_the_store(), 1)
            recorder.give_back(context)

    def test_flag_that_the_message_class_sets(self):
        """Nothing was there when the delivery began. Whether a reply is the last is asked after it."""
        seen = []

        def message_class(address):
            self.context["flag"] = 9
            return address
        for end_mark, left in ((5, 1), (9, 0)):
            context = self.kept(("p", "p"), ("cb", lambda msg, p: seen.append((msg.result, p))),
                                ("obj", message_class))
            self.assert_quiet(self.deliver("wrap", context, 8, end_mark))
            self.assertEqual(seen.pop(), (8, "p"))
            self.assertEqual(self.references_of_the_store(), left)
            if left:
                recorder.give_back(context)

    def test_flag_that_the_message_class_takes_away(self):
        """Then each reply is the last."""
        def message_class(address):
            del self.context["flag"]
        context = self.kept(("p", 1), ("cb", lambda msg, p: None), ("obj", message_class),
                            ("flag", 5))
        self.assert_quiet(self.deliver("wrap", context, 8))
        self.assertEqual(self.references_of_the_store(), 0)


if __name__ == "__main__":
    unittest.main()
