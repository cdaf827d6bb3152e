"""What holds for all tests of the platform."""

import signal

from hypothesis import settings

# An example takes as long as the processor needs, which may be an emulated one.
settings.register_profile("vu", deadline=None)
settings.load_profile("vu")

# A shell starts background jobs with Ctrl-C ignored, and Python then leaves it so. The tests
# that send it, here and to children, want it as a person at a terminal has it.
signal.signal(signal.SIGINT, signal.default_int_handler)
