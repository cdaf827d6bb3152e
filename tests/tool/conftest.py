"""What holds for all tests of the tool."""

import pathlib
import signal
import sys

# Its messages, and how to compare them, are those of the platform's tests.
sys.path.insert(1, str(pathlib.Path(__file__).parents[1] / "platform"))

# A shell starts background jobs with Ctrl-C ignored, and Python then leaves it so.
signal.signal(signal.SIGINT, signal.default_int_handler)
