"""References over many calls: each command over N, 10 N and 100 N calls changes the counts by
exactly what it keeps per call, which is nothing, or on purpose a context."""
import ctypes
import gc
import sys
import unittest

import cases
import recorder
import support
import vu_mom
from support import BindingTest, Listener, Message, values

N = 3
TIMES = (N, 10 * N, 100 * N)
FAILURES = (vu_mom.InputError, vu_mom.Error, MemoryError)


class ManyCalls(BindingTest):

    repeats = False

    def contexts_of(self, call):
        arguments = dict(call.arguments)
        found = list(arguments.get("contexts") or [])
        if arguments.get("context") is not None:
            found.append(arguments["context"])
        return found

    def finish(self, row):
        """Delivers the reply that ends each request so far."""
        recorder_calls = recorder.calls()
        recorder.clear()
        record = self.record(28 if "callbacks" in row.native or row.name == "subscribe" else 0, 0,
                             row.flag or 1)
        for call in recorder_calls:
            for context in self.contexts_of(call):
                if "wrap" in row.native:
                    recorder.deliver(self.callbacks.wrap, ctypes.addressof(record), context)
                elif "scan" in row.native:
                    recorder.stream(self.callbacks.scan, ctypes.addressof(record), context)
                else:
                    recorder.stream(self.callbacks.sub, ctypes.addressof(record), context)
        self.client.replies[:] = []

    def watched(self, row):
        """The objects that the contexts of a row hold, each with how often one context does."""
        result = [self.p]  # type: list
        if row.prefix:
            result += [self.client, vars(Listener)[support.reply_name(row)]]
        else:
            result += [support.ignore]
        if "obj" in row.context or "contexts" in row.native:
            result.append(Message)
        if row.result:
            result.append(support.result_class(row))
        # From 3.12 on the types of extension modules live for good, without a count.
        return [thing for thing in result if sys.getrefcount(thing) < 2 ** 28]

    def counts(self, things):
        return [sys.getrefcount(thing) for thing in things]

    def calls(self, row, status, times):
        method = getattr(self.client, row.name)
        arguments = values(row, self.p)
        recorder.answer(status)
        for _ in range(times):
            try:
                method(**arguments)
            except FAILURES as error:
                error.__traceback__ = None

    def check(self, row, status):
        things = self.watched(row)
        per_call = 2 if "contexts" in row.native else 1 if row.has_context else 0
        for times in TIMES:
            recorder.clear()
            before = self.counts(things)
            self.calls(row, status, times)
            kept = [after - count for after, count in zip(self.counts(things), before)]
            self.assertEqual(kept, [times * per_call] * len(things))
            contexts = [context for call in recorder.calls() for context in self.contexts_of(call)]
            self.assertEqual(len(set(contexts)), times * per_call)
            if status == 0:
                self.finish(row)
            else:
                for context in contexts:
                    self.take_back(context)
            self.assertEqual(self.counts(things), before)

    def test_accepted(self):
        """Calls whose replies have arrived leave nothing."""
        for row in cases.COMMANDS:
            with self.subTest(command=row.name):
                self.check(row, 0)

    def test_refused(self):
        """Each refused call leaves its context, once."""
        for row in cases.COMMANDS:
            for status in (-1, -2, -3, 7):
                with self.subTest(command=row.name, status=status):
                    self.check(row, status)

    @unittest.skipUnless(support.COUNTS_REFERENCES, "the interpreter does not count references")
    def test_totals_of_accepted(self):
        for row in cases.COMMANDS:
            with self.subTest(command=row.name):
                def rounds(times):
                    for _ in range(times):
                        recorder.clear()
                        self.calls(row, 0, 1)
                        self.finish(row)
                for times in TIMES:
                    changes = support.changes_of_references(lambda: rounds(times))
                    self.assertIn(0, changes)
                    self.assertEqual(sorted(changes)[len(changes) // 2], 0)

    @unittest.skipUnless(support.COUNTS_REFERENCES, "the interpreter does not count references")
    def test_totals_of_refused(self):
        """The total grows by the references of the kept contexts and no other: by as much as with
        contexts made and kept by hand."""
        for row in cases.COMMANDS:
            with self.subTest(command=row.name):
                recorder.answer(0)
                getattr(self.client, row.name)(**values(row, self.p))
                contexts = [context for call in recorder.calls()
                            for context in self.contexts_of(call)]
                by_hand = []

                def keep_by_hand(times):
                    for _ in range(times):
                        for context in contexts:
                            twin = dict(recorder.object_at(context))
                            if row.prefix:
                                twin["cb"] = getattr(self.client, support.reply_name(row))
                            ctypes.pythonapi.Py_IncRef(ctypes.py_object(twin))
                            by_hand.append("%d" % id(twin))

                def drop_by_hand():
                    for address in by_hand:
                        recorder.give_back(int(address))
                    del by_hand[:]

                def give_back_all():
                    for call in recorder.calls():
                        for context in self.contexts_of(call):
                            recorder.give_back(context)
                    recorder.clear()

                for context in contexts:
                    self.assertEqual(self.extra_references(context), 1)
                # The list of addresses adds one reference per context, to a string.
                wanted = self.slopes(keep_by_hand, drop_by_hand)
                each = [slope - len(contexts) for slope in wanted]
                give_back_all()
                found = self.slopes(lambda times: self.calls(row, -2, times), give_back_all)
                self.assertEqual(found, each)
                if contexts:
                    self.assertGreater(found[0], 0)
                else:
                    self.assertEqual(found, [0, 0])

    def slopes(self, action, undo):
        """The growth of the total of references per call, from N to 10 N to 100 N calls. What the
        interpreter itself takes or gives back meanwhile is no multiple of the calls: it is measured
        again then, twice at most."""
        action(1)
        undo()
        for _ in range(3):
            changes = []
            for times in TIMES + TIMES:
                gc.collect()
                before = sys.gettotalrefcount()
                action(times)
                changes.append(sys.gettotalrefcount() - before)
                undo()
            changes = changes[3:]  # the first round lets things settle
            few, many = changes[1] - changes[0], changes[2] - changes[1]
            if (few % (9 * N), many % (90 * N)) == (0, 0):
                return [few // (9 * N), many // (90 * N)]
        self.fail("growth that no number of references per call explains: %r" % changes)


if __name__ == "__main__":
    unittest.main()
