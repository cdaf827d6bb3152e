"""What is allocated at the moment, and giving back what is kept on purpose."""
import ctypes
import gc


class _Mallinfo(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks",
        "fordblks", "keepcost")]


_mallinfo2 = ctypes.PyDLL(None).mallinfo2
_mallinfo2.restype = _Mallinfo


def allocated_bytes():
    """Bytes from malloc; with PYTHONMALLOC=malloc that is all that the interpreter has too."""
    gc.collect()
    return _mallinfo2().uordblks


def give_back_contexts():
    """Drops the reference that each context has which a failed reply or command has kept, as it
    is documented to do. Requires that no request is pending."""
    for found in gc.get_objects():
        if type(found) is dict and "cb" in found and "p" in found:
            ctypes.pythonapi.Py_DecRef(ctypes.py_object(found))
