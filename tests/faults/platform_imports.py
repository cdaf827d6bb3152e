"""Imports of the platform's modules without memory: platform_imports.py KIND ONCE_OR_ON STEP MODULE,
a program of its own.

Each import happens in a child process, to which what the module imports is loaded and the module
is not. One allocation fails, or all from one on. Says for each STEP-th allocation what was wrong,
and in the end how many have failed.
"""
import ctypes
import gc
import importlib.util
import sys
import types
import _imp

import inject
from children import in_child

# What is loaded before the module is: what it imports. The interpreter's own search for modules
# runs for ever without memory.
NEEDS = {
    "vu_message": ("_collections_abc",),
    "vu_thread": ("atexit", "_signal"),
    "vu_global": ("vu_thread", "atexit"),
    "vu_mom_common": ("vu_message", "_collections_abc"),
    "contract_vu": ("vu_message", "vu_enum"),
    "store_page_vu": ("vu_message",),
}
MOST_OPERATIONS = 50000


def use_message(module):
    timestamp = module.message_class("google.protobuf.Timestamp")
    return timestamp.FromString(timestamp(seconds=5).SerializeToString()).seconds == 5


def use_thread(module):
    seen = []
    master = module.VuThreadMaster()
    master.call_soon(seen.append, 5)
    master.run_once(0)
    return seen == [5]


def use_global(module):
    with module.VuGlobal(store="embedded:imports") as glb:
        glb.run_once(0)
        return "embedded" in repr(glb)


def use_common(module):
    return module.IncrResult.of(5) == 5 and module.PubSubMsg.of(result="r").result == "r"


def use_generated(module):
    message = getattr(module, "Port", None) or module.Interface
    return message.FromString(message(name="x").SerializeToString()).name == "x"


USES = {"vu_message": use_message, "vu_thread": use_thread, "vu_global": use_global,
        "vu_mom_common": use_common, "contract_vu": use_generated,
        "store_page_vu": use_generated}


def importer(name):
    """A function that does what an import of the module does once its file is read."""
    spec = importlib.util.find_spec(name)
    assert spec is not None, name
    if spec.origin.endswith(".so"):
        ctypes.PyDLL(spec.origin)  # not the dynamic linker's allocations
        return lambda: _imp.create_dynamic(spec)
    code = spec.loader.get_code(name)

    def run():
        module = types.ModuleType(name)
        exec(code, vars(module))
        return module
    return run


# What the interpreter puts in the place of a MemoryError: a module's lock, and enum.
IN_ITS_PLACE = ("can't allocate lock", "_value_ not set in __new__, unable to create it")


def shows_no_memory(error):
    # A SystemError is of a function written in Python that lost its error.
    return isinstance(error, (MemoryError, ImportError, SystemError)) or str(error) in IN_ITS_PLACE


def import_without_memory(load, use, kind, first, last):
    """Says whether an allocation has failed, and raises what is wrong."""
    try:
        inject.run(kind, first, last, load, (), None)
    except Exception as error:
        if inject.hit() == 0 or not shows_no_memory(error):
            raise
        error.__traceback__ = error.__context__ = error.__cause__ = None
    was_hit = inject.hit() > 0
    if not use(load()):
        raise ValueError("what was imported does not work")
    return "hit" if was_hit else "done"


def main(kind, every, step, name):
    for other in NEEDS[name]:
        importlib.import_module(other)
    load = importer(name)
    # A thread's state of exceptions ends the process where it cannot be made.
    ctypes.CDLL("libstdc++.so.6")._ZSt19uncaught_exceptionsv()
    kind = {"python": inject.PYTHON, "malloc": inject.MALLOC}[kind]
    gc.freeze()
    failures = 0
    for n in range(1, MOST_OPERATIONS, int(step)):
        last = n if every == "once" else inject.NEVER

        def one(note):
            note(n)
            return import_without_memory(load, USES[name], kind, n, last)
        answer = in_child(one)
        if answer == "done":
            break
        if answer == "hit":
            failures += 1
        else:
            print("allocation %d: %s" % (n, answer))
    print("%d failures" % failures)


if __name__ == "__main__":
    main(*sys.argv[1:])
