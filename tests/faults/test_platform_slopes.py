"""What actions on the platform leave behind, over many repeats: references (on an interpreter that
counts them), blocks of memory, and descriptors. The commands run on the embedded engine, in every
way that a request can go on."""
import gc
import sys
import unittest

import allocations
import inject
import platform_actions
from slopes import SlopeTest

MOST = 100 if inject.WHOLE else 20


class Nowhere(object):
    """For the tracebacks of reply methods that raise."""

    def write(self, text):
        pass

    flush = write


class PlatformSlopes(SlopeTest):

    def setUp(self):
        self.hook, self.stderr = sys.unraisablehook, sys.stderr
        sys.unraisablehook = lambda found: None
        sys.stderr = Nowhere()  # type: ignore[assignment]
        gc.freeze()

    def tearDown(self):
        sys.unraisablehook, sys.stderr = self.hook, self.stderr
        gc.unfreeze()

    def check_all(self, actions):
        for name, action in actions:
            def act(action=action):
                try:
                    action()
                except Exception as error:
                    error.__traceback__ = None
                allocations.give_back_contexts()
            self.check(act, name, MOST)

    def test_messages(self):
        self.check_all(platform_actions.message_actions())

    def test_loop(self):
        self.check_all(platform_actions.loop_actions())

    def test_global(self):
        self.check_all(platform_actions.global_actions())

    def test_results(self):
        self.check_all(platform_actions.result_actions())

    def test_store(self):
        self.check_all(platform_actions.store_actions())

    def test_commands(self):
        self.check_all(platform_actions.command_actions())

    def test_requests(self):
        self.check_all(platform_actions.request_actions())


if __name__ == "__main__":
    unittest.main()
