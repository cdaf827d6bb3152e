"""The rule about threads: callbacks are called with the interpreter lock held. A build with
assertions ends the process of a store library that breaks it."""
import signal
import subprocess
import sys
import unittest

import support
import vu_mom

with open(vu_mom.__file__, "rb") as _file:
    HAS_CHECKS = b"PyGILState_Check" in _file.read()

# A function pointer called through ctypes.CFUNCTYPE runs without the lock.
FOREIGN = """
import ctypes, recorder, support, threading
record = recorder.Reply(end_mark=1)
context = dict(p=1, cb=print, obj=support.Message)
callback = ctypes.CFUNCTYPE(ctypes.c_int32, *3 * [ctypes.c_void_p])(support.callbacks().%s)
def call():
    callback(None, ctypes.addressof(record), recorder.keep(context))
"""


@unittest.skipUnless(HAS_CHECKS, "this build has no assertions")
class Threads(unittest.TestCase):

    def check(self, name, call):
        process = subprocess.Popen([sys.executable, "-c", FOREIGN % name + call],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        output, errors = (text.decode() for text in process.communicate())
        self.assertEqual(
            errors.splitlines()[:1],
            ["vu_mom.%s_cb: called on a thread that does not hold the interpreter lock" % name])
        self.assertEqual((process.returncode, output), (-signal.SIGABRT, ""))

    def test_callback_without_the_lock(self):
        for name in ("wrap", "scan", "sub"):
            self.check(name, "call()")

    def test_callback_on_a_foreign_thread(self):
        for name in ("wrap", "scan", "sub"):
            self.check(name, "thread = threading.Thread(target=call)\n"
                             "thread.start()\nthread.join()")

    def test_callback_with_the_lock(self):
        """On any thread: the lock is what counts."""
        source = FOREIGN % "wrap" + """
callback = ctypes.PYFUNCTYPE(None, *3 * [ctypes.c_void_p])(support.callbacks().wrap)
context["cb"] = lambda msg, p: print(p)
del context["obj"]
thread = threading.Thread(target=call)
thread.start()
thread.join()
"""
        output = subprocess.check_output([sys.executable, "-c", source]).decode()
        self.assertEqual(output, "1\n")


if __name__ == "__main__":
    unittest.main()
