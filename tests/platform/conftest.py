"""What holds for all tests of the platform."""

import platform
import signal

from hypothesis import settings

SLOW = platform.machine().startswith("arm")  # a device, or an emulator

# An example takes as long as the processor needs.
settings.register_profile("vu", deadline=None, max_examples=20 if SLOW else 100)
settings.load_profile("vu")

# A shell starts background jobs with Ctrl-C ignored, and Python then leaves it so. The tests
# that send it, here and to children, want it as a person at a terminal has it.
signal.signal(signal.SIGINT, signal.default_int_handler)
