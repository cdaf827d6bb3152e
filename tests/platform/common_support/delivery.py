"""Deliveries made by hand, for the cases in this directory.

Import this module before vu_mom_common: its library answers for the store's.
"""

import contextlib
import ctypes
import importlib.util
import os
import struct
import sys
from typing import Any

INTEGER, SCORE, HASH, MESSAGES, SCORED = 1, 2, 3, 4, 5

if "vu_mom_common" in sys.modules:
    raise ImportError("vu_mom_common is loaded already and asks the real store")
_build = os.path.dirname(os.path.dirname(str(importlib.util.find_spec("vu_mom_common").origin)))
library = ctypes.CDLL(os.path.join(_build, "lib", "libvu_common_support.so"), ctypes.RTLD_GLOBAL)
library.support_payload.restype = ctypes.c_ssize_t
library.support_payload.argtypes = [
    ctypes.c_int32,
    ctypes.c_uint32,
    ctypes.c_int64,
    ctypes.c_double,
    ctypes.c_void_p,
    ctypes.c_void_p,
    ctypes.c_void_p,
]
library.support_record.restype = ctypes.c_ssize_t
library.support_record.argtypes = [
    ctypes.c_int32,
    ctypes.c_uint32,
    ctypes.c_int32,
    ctypes.c_char_p,
    ctypes.c_int32,
    ctypes.c_char_p,
    ctypes.c_uint32,
    ctypes.c_uint32,
    ctypes.c_int64,
    ctypes.c_int64,
]
library.support_end.restype = None
library.support_heap_bytes.restype = ctypes.c_size_t

import vu_mom_common  # noqa: E402  (after its counterpart)

# Type checkers let its types be given anything, as the tests do.
common: Any = vu_mom_common

assert vu_mom_common is not None


def _array(kind, values):
    return None if values is None else (kind * len(values))(*values)


@contextlib.contextmanager
def payload(kind, integer=0, score=0.0, messages=None, scores=None, tags=None):
    """The address of a payload that is being delivered, until the block is left."""
    counted = tags if kind == HASH else messages
    address = library.support_payload(
        kind,
        0 if counted is None else len(counted),
        integer,
        score,
        _array(ctypes.c_ssize_t, messages),
        _array(ctypes.c_double, scores),
        _array(ctypes.c_size_t, tags),
    )
    try:
        yield address
    finally:
        library.support_end()


@contextlib.contextmanager
def record(type_code=0, end=0, status=0, error=b"", db=0, key=None, tag=0, time_us=0, count=0):
    """The address of a record that is being delivered, until the block is left."""
    size = 0 if key is None else len(key)
    address = library.support_record(
        type_code, end, status, error, db, key, size, tag, time_us, count
    )
    try:
        yield address
    finally:
        library.support_end()


def identity(*components):
    """Key components as a record carries them; ("u", n) is an unsigned integer."""
    encoded = b""
    for component in components:
        if isinstance(component, bool):
            encoded += struct.pack("<cB", b"b", component)
        elif isinstance(component, tuple):
            encoded += struct.pack("<cQ", b"u", component[1])
        elif isinstance(component, int):
            encoded += struct.pack("<cq", b"i", component)
        elif isinstance(component, str):
            text = component.encode("utf-8", "surrogateescape")
            encoded += struct.pack("<cI", b"s", len(text)) + text
        else:
            encoded += struct.pack("<cI", b"y", len(component)) + component
    return encoded


class Message:
    """A message class: keeps the address it was made from."""

    def __init__(self, address):
        self.address = address

    def __eq__(self, other):
        return type(other) is Message and other.address == self.address

    def __hash__(self):
        return hash(self.address)

    def __repr__(self):
        return "Message(%d)" % self.address
