"""The threading rules of the platform's C interfaces: builds with assertions end the process
of a caller without the interpreter lock."""

import os
import signal
import subprocess
import sys

import pytest

import vu_global
import vu_thread

with open(vu_thread.__file__, "rb") as _file:
    HAS_CHECKS = b"PyGILState_Check" in _file.read()

pytestmark = pytest.mark.skipif(not HAS_CHECKS, reason="this build has no assertions")

LIBRARY = os.path.join(
    os.path.dirname(os.path.dirname(vu_global.__file__)), "lib", "libvu_mom_impl.so"
)

# A function pointer called through ctypes.CFUNCTYPE runs without the lock.
API = """
import ctypes, vu_thread
pointer = ctypes.pythonapi.PyCapsule_GetPointer
pointer.restype, pointer.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
words = ctypes.cast(pointer(vu_thread._api, b"vu_thread._api"), ctypes.POINTER(ctypes.c_void_p))
# A version, in a word of its own, and a type come first.
functions = dict(zip(("add_source", "remove_source", "wake", "uv_loop", "is_from_parent",
                      "leave_loops"), words[2:8]))
"""


def end_of(source):
    """The first line that the process says before it aborts."""
    process = subprocess.run([sys.executable, "-c", source], capture_output=True, text=True)
    assert process.returncode == -signal.SIGABRT, process
    return process.stderr.splitlines()[0]


@pytest.mark.parametrize(
    "name", ["add_source", "remove_source", "wake", "uv_loop", "is_from_parent", "leave_loops"]
)
def test_vu_thread_without_the_lock(name):
    source = API + "ctypes.CFUNCTYPE(None)(functions[%r])()" % name
    assert end_of(source) == (
        "vu_thread_api.%s: called on a thread that does not hold the interpreter lock" % name
    )


@pytest.mark.parametrize(
    "name",
    ["vu_mom_get", "vu_mom_zrem", "vu_platform_deliver", "vu_platform_message_is_live"],
)
def test_store_without_the_lock(name):
    source = "import ctypes, vu_global\nctypes.CDLL(%r).%s(None)" % (LIBRARY, name)
    assert end_of(source) == (
        "%s: called on a thread that does not hold the interpreter lock" % name
    )


def test_store_on_a_thread_of_its_own():
    """A thread that Python does not know."""
    source = (
        "import ctypes, vu_global\n"
        "function = ctypes.CDLL(%r).vu_platform_message_is_live\n"
        "thread = ctypes.c_size_t()\n"
        "libc = ctypes.CDLL(None)\n"
        "libc.pthread_create(ctypes.byref(thread), None, function, None)\n"
        "libc.pthread_join(thread, None)\n" % LIBRARY
    )
    assert end_of(source) == (
        "vu_platform_message_is_live: called on a thread that does not hold the interpreter lock"
    )
