"""Runs calls with failures, and knows which calls of the interpreter the binding makes."""
import collections
import ctypes
import os
import re
import subprocess

BUILD = os.environ["VU_MOM_TEST_BUILD"]
DIRECTORY = os.path.join(BUILD, "tests", "faults")
MODULE = os.path.join(DIRECTORY, "python", "vu_mom.so")
WHOLE = "VU_FAULTS_WHOLE" in os.environ

# Kinds of operations.
NONE, CALLS, PYTHON, MALLOC = range(4)
NEVER = 2 ** 31 - 1

_library = ctypes.PyDLL(os.path.join(DIRECTORY, "lib", "libvu_faults.so"), mode=ctypes.RTLD_GLOBAL)
_library.faults_run.restype = ctypes.py_object
_library.faults_run.argtypes = [ctypes.c_int, ctypes.c_long, ctypes.c_long,
                                *3 * [ctypes.py_object]]
_library.faults_deliver.restype = None
_library.faults_deliver.argtypes = [ctypes.c_int, ctypes.c_long, ctypes.c_long, ctypes.c_size_t,
                                    ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p]
_library.faults_counted.restype = ctypes.c_long
_library.faults_hit.restype = ctypes.c_long
_library.faults_trace.restype = ctypes.POINTER(ctypes.c_size_t)
_library.faults_trace_libraries.restype = ctypes.POINTER(ctypes.c_char_p)

_library.faults_finalizable.restype = ctypes.py_object
_library.faults_finalizable.argtypes = [ctypes.py_object]
_library.faults_resurrected.restype = ctypes.py_object
_library.faults_resurrect.restype = None

run = _library.faults_run
deliver = _library.faults_deliver
counted = _library.faults_counted
hit = _library.faults_hit
have_malloc = _library.faults_have_malloc
finalizable = _library.faults_finalizable
finalized = _library.faults_finalized
resurrect = _library.faults_resurrect
resurrected = _library.faults_resurrected


def trace():
    """Where the binding called the interpreter or malloc during the last run, in order."""
    if _library.faults_traced() > _library.faults_trace_limit():
        raise OverflowError("%d calls" % _library.faults_traced())
    addresses = _library.faults_trace()
    return [addresses[i] for i in range(_library.faults_traced())]


def places():
    """The same with the libraries, (file name, address) each, as far as they were recorded."""
    libraries, addresses = _library.faults_trace_libraries(), _library.faults_trace()
    return [(os.path.basename(libraries[i]).decode(), addresses[i])
            for i in range(min(_library.faults_traced(), _library.faults_trace_limit()))]


# --- the call sites of the test build ---------------------------------------------------------

# `caller` is the function in which the call of `callee` stands.
Site = collections.namedtuple("Site", "caller callee line")


def _output(*command):
    return subprocess.check_output(command).decode()


def _callees(module):
    """Return address of each call of a function that can be made to fail, and that function."""
    call = re.compile(r"^ *[0-9a-f]+:\t(?:call|bl)q? .*<__wrap_(\w+)>$")
    found, callee = {}, None
    for line in _output("objdump", "-d", "--no-show-raw-insn", module).splitlines():
        if callee is not None:
            found[int(line.split(":")[0], 16)] = callee
            callee = None
        matched = call.match(line)
        if matched:
            callee = matched.group(1)
    return found


def _places(module, addresses):
    """Function and line of each address."""
    lines = _output("addr2line", "-Cfse", module,
                    *["%x" % (address - 1) for address in addresses]).splitlines()
    return dict((address, (lines[2 * i], lines[2 * i + 1].split(" ")[0]))
                for i, address in enumerate(addresses))


def undefined_symbols(library):
    """What a library imports, without versions."""
    lines = _output("nm", "-D", "--undefined-only", library).splitlines()
    return set(line.split()[-1].split("@")[0] for line in lines)


def wrapped_functions(module=MODULE):
    """The functions that can be made to fail, as a test build has them."""
    symbols = set(line.split()[-1] for line in _output("nm", module).splitlines())
    return set(name[7:] for name in symbols if name.startswith("__wrap_"))


class Sites(object):
    """All call sites of a test build, by return address."""

    def __init__(self, module=MODULE):
        self.module = module
        self.callees = _callees(module)
        self.places = _places(module, list(self.callees))

    def __getitem__(self, address):
        if address == 0:
            return Site("before any call", "?", "?")
        if address not in self.places:  # called through a pointer
            self.places.update(_places(self.module, [address]))
        return Site(self.places[address][0], self.callees.get(address, "?"),
                    self.places[address][1])
