"""The recording store library as the tests see it.

Importing this module loads the library, which takes the place of the real one: import it
before vu_mom.
"""
import collections
import ctypes
import os

BUILD = os.environ["VU_MOM_TEST_BUILD"]
DIRECTORY = os.path.join(BUILD, "tests", "binding")

# PyDLL keeps the interpreter lock during calls, as the store library's callers do.
_library = ctypes.PyDLL(
    os.path.join(DIRECTORY, "lib", "libvu_mom_impl.so"), mode=ctypes.RTLD_GLOBAL)
_library.recorder_calls.restype = ctypes.c_char_p
_library.recorder_clear.restype = None
_library.recorder_answer.restype = None
_library.recorder_answer.argtypes = [ctypes.c_int32]
_library.recorder_live_bytes.restype = ctypes.c_size_t
_library.recorder_fail_allocation.restype = None
_library.recorder_free_blocks.restype = None

clear = _library.recorder_clear
answer = _library.recorder_answer
live_blocks = _library.recorder_live_blocks
live_bytes = _library.recorder_live_bytes
taken_blocks = _library.recorder_taken_blocks
wrong_frees = _library.recorder_wrong_frees
allocations = _library.recorder_allocations
fail_allocation = _library.recorder_fail_allocation
free_blocks = _library.recorder_free_blocks


def watch(suffix):
    return _library.recorder_watch(suffix.encode("ascii"))


# One call of the library: the function's name, and (name, value) of each argument in order.
Call = collections.namedtuple("Call", "function arguments")

_DOUBLES = ("scores", "min", "max")


def _scalar(name, text):
    if text == "null":
        return None
    if name in _DOUBLES:
        return float.fromhex(text)
    return int(text.lstrip("&"))


def _value(name, text):
    if text.startswith("["):
        return [_scalar(name, item) for item in text[1:-1].split()]
    return _scalar(name, text)


def _call(line):
    function, _, rest = line.partition(" ")
    arguments = []
    while rest:
        name, _, rest = rest.partition("=")
        if rest.startswith("["):
            text, _, rest = rest.partition("]")
            text, rest = text + "]", rest[1:]
        else:
            text, _, rest = rest.partition(" ")
        arguments.append((name, _value(name, text)))
    return Call(function, arguments)


def calls():
    """All calls since clear(), oldest first."""
    return [_call(line) for line in _library.recorder_calls().decode("ascii").splitlines()]


class Reply(ctypes.Structure):
    """A reply record."""
    _fields_ = [
        ("details", ctypes.c_ubyte * 644),
        ("type_code", ctypes.c_int32),
        ("data", ctypes.c_void_p),
        ("unread", ctypes.c_uint32),
        ("end_mark", ctypes.c_uint32),
    ]


_REPLY_CALLBACK = ctypes.PYFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p)
_STREAM_CALLBACK = ctypes.PYFUNCTYPE(
    ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p)


def deliver(callback, record, context, first=None):
    """Calls a vu_mom_reply_cb. An error that it left set is raised here."""
    _REPLY_CALLBACK(callback)(first, record, context)


def stream(callback, record, context, first=None):
    """Calls a vu_mom_stream_cb and returns what it answered."""
    return _STREAM_CALLBACK(callback)(first, record, context)


def signed(address):
    """An address as the signed integer in which Python code sees it."""
    return ctypes.c_ssize_t(address).value


def object_at(address):
    return ctypes.cast(address, ctypes.py_object).value


def give_back(context):
    """Drops one reference to the object at an address: what the store's reference was."""
    ctypes.pythonapi.Py_DecRef(ctypes.c_void_p(context))


def keep(thing):
    """Adds one reference to an object and returns its address."""
    ctypes.pythonapi.Py_IncRef(ctypes.py_object(thing))
    return id(thing)
