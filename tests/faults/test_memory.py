"""Each allocation fails once, and all from the n-th on: through the interpreter's allocators, and
through the malloc of the process. Counted are all allocations during a call or a reply, whether
they are the binding's, the interpreter's, or those of methods that are called."""
import gc
import subprocess
import sys
import unittest

import cases
import inject
import outcomes
import scenarios
import test_calls

gc.freeze()

class Memory(unittest.TestCase):
    maxDiff = None
    kind, once = inject.PYTHON, True

    def runs(self, scenario):
        """(outcome, sites on the way) for each n up to the last that hits an allocation."""
        for n in range(1, 10000):
            last = n if self.once else inject.NEVER
            outcome = scenario.run(self.kind, n, last)
            was_hit, trace = inject.hit(), inject.trace()
            if not was_hit:
                return
            yield n, outcome, [test_calls.SITES[address] for address in trace]
        self.fail("%s: no end" % scenario)

    def check(self, scenarios_to_run, expect):
        hits = 0
        for scenario in scenarios_to_run:
            clean, sites = test_calls.clean_run(scenario)
            for n, outcome, passed in self.runs(scenario):
                expect(scenario, clean, sites, n, outcome, passed)
                hits += 1
            self.assertEqual(scenario.run(), clean, scenario)
        self.assertGreater(hits, 100)

    def expect_call(self, call, clean, sites, n, outcome, passed):
        """As clean, or MemoryError with what was done up to the last call on the common way."""
        outcome = outcome._replace(reports=clean.reports)  # they need memory
        if outcome.error is SystemError and "returned NULL without setting" in outcome.text:
            self.assertTrue(outcome.text.startswith("<function "), outcome)
            return  # the interpreter, in a function written in Python
        if outcome.error is not MemoryError or (clean.error is MemoryError
                                                and clean.calls == outcome.calls):
            if outcome.error is not None and not outcome.text:
                clean = clean._replace(text="")  # so does the text of the interpreter's own errors
            if call.untagged is not None:  # the array may be null, or kept, without an error
                clean = clean._replace(blocks=outcome.blocks)
            self.assertEqual(outcome, clean, (call, n))
            return
        sites, passed = ([site for site in way if not outcomes.shows(site)]
                         for way in (sites, passed))
        if call.untagged is not None:
            untagged = [site for site in test_calls.clean_run(call.untagged)[1]
                        if not outcomes.shows(site)]
            converting = sites[:len(sites) - len(untagged)]
            while passed and passed[0] in converting:
                passed.pop(0)
            sites = untagged
        common = 0
        while common < min(len(sites), len(passed)) and sites[common] == passed[common]:
            common += 1
        wanted = outcomes.Outcome(MemoryError, "", 0, 0, 0, ())
        if common > 0:
            wanted = outcomes.expected(clean, sites, common - 1, 0, MemoryError, "")
        wanted = wanted._replace(text=outcome.text, reports=clean.reports, error=MemoryError)
        if call.untagged is not None:
            self.assertLessEqual(outcome.blocks, 1, (call, n))
            wanted = wanted._replace(blocks=outcome.blocks)
        candidates = [wanted]
        if any(word in call.name for word in ("raising", "converted", "no int")):
            # A conversion written in Python fails after the last call, and not that call.
            candidates.append(wanted._replace(
                contexts=min(clean.contexts, outcomes.handed_over(sites, common)),
                blocks=wanted.blocks if call.untagged is not None else sum(
                    1 for site in sites[:common] if site.callee == "malloc")))
        self.assertIn(outcome, candidates, (call, n, sites[:common][-1:]))

    def expect_reply(self, reply, clean, sites, n, outcome, passed):
        """No error leaves the callback. The context stays where the reply was not finished."""
        self.assertLessEqual(outcome.calls, max(clean.calls, 1), (reply, n))
        self.assertLessEqual(len(outcome.reports), 1, (reply, n))
        if outcome.references != clean.references:
            self.assertEqual(outcome.references, 1, (reply, n))

    def calls(self):
        for row in cases.COMMANDS:
            for call in scenarios.command_calls(row):
                if inject.WHOLE or call.name.endswith(("status 0", "status -2", "no address",
                                                       "method", "[1] negative")):
                    yield call

    def test_commands(self):
        self.check(self.calls(), self.expect_call)

    def test_client(self):
        self.check(scenarios.client_calls(), self.expect_call)

    def test_replies(self):
        self.check(scenarios.replies(), self.expect_reply)


    def test_import(self):
        kind = {inject.PYTHON: "python", inject.MALLOC: "malloc"}[self.kind]
        found = test_calls.imports(kind, "once" if self.once else "on")
        self.assertGreater(len(found), 200)
        for scenario, number, site, _, wrong in found:
            self.assertEqual(wrong, "", (scenario, number, site))


class MemoryOn(Memory):
    once = False


class Malloc(Memory):
    kind = inject.MALLOC


class MallocOn(Malloc):
    once = False

    # What went wrong once.

    def test_first_error_without_memory_ended_the_process(self):
        """The state that a thread has for C++ exceptions was allocated with its first one."""
        source = """
import inject, support, vu_global
client = support.Client(vu_global.VuGlobal(1))
try:
    inject.run(inject.MALLOC, 1, inject.NEVER, client.get, (), None)
except (MemoryError, TypeError) as error:
    print(type(error).__name__, inject.hit() > 0)
"""
        output = subprocess.check_output([sys.executable, "-c", source]).decode()
        self.assertIn(output, ("MemoryError True\n", "TypeError True\n"))


if __name__ == "__main__":
    unittest.main()
