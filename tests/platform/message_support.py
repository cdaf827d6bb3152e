"""What the tests of vu_message share: protobuf's own Python classes, and the store's ledger."""

import ctypes
import functools
import importlib
import os
import pathlib
import subprocess
import sys
import tempfile

import vu_message

# Protobuf's other implementation reads large unsigned integers as negative on 32-bit targets.
os.environ.setdefault("PROTOCOL_BUFFERS_PYTHON_IMPLEMENTATION", "python")

PROTOS = pathlib.Path(__file__).parent / "protos"
BUILD = pathlib.Path(vu_message.__file__).resolve().parent.parent


@functools.lru_cache(maxsize=None)
def _google_directory():
    directory = tempfile.TemporaryDirectory(prefix="vu_pb2_")
    protos = sorted(str(path.relative_to(PROTOS)) for path in PROTOS.glob("**/*.proto"))
    subprocess.run(
        ["protoc", "--python_out", directory.name, "-I", str(PROTOS), "-I", str(BUILD / "share")]
        + protos
        + ["vu/options.proto"],
        check=True,
    )
    sys.path.append(directory.name)
    return directory


def google_module(name):
    """The module that protobuf's own compiler makes: "vu_test_tree_pb2"."""
    _google_directory()
    return importlib.import_module(name)


@functools.lru_cache(maxsize=None)
def _store():
    store = ctypes.PyDLL(str(BUILD / "lib" / "libvu_mom_impl.so"))
    store.vu_platform_message_is_live.argtypes = [ctypes.c_ssize_t]
    return store


def is_live(address):
    """Whether the store would accept the address as that of a message."""
    return _store().vu_platform_message_is_live(address) != 0
