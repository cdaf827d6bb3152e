"""Imports of vu_mom to let operations fail in: imports.py KIND ONCE_OR_ON, a program of its own.

Each import happens in a child process, to which the sibling modules are loaded and vu_mom is
not. One operation fails, or all from one on. Writes one line of JSON for each import: the
scenario, the number of the operation, the address of the call site, and what was wrong (""
where nothing was). An import that went wrong has to raise the error of its
operation and to leave nothing half done: the next one succeeds, and all of the module works.
"""
import ctypes
import gc
import importlib.machinery
import importlib.util
import json
import os
import pickle
import sys
import types
import warnings
import _imp

import recorder  # loads the store library

import vu_global
import vu_mom_common
import vu_thread

import cases
import inject

SITES = None  # type: inject.Sites  # type: ignore[assignment]
SPEC = importlib.util.spec_from_file_location("vu_mom", inject.MODULE)
COUNTS_REFERENCES = hasattr(sys, "gettotalrefcount")
MOST_OPERATIONS = 20000  # of any import


class Message(object):
    package_name, short_name = "demo", "Counter"

    def get_ptr(self):
        return 0x1000


def import_once(kind=inject.NONE, first=0, last=0):
    """Loads the module as an import does; returns it or raises."""
    return inject.run(kind, first, last, _imp.create_dynamic, (SPEC,), None)


# --- scenarios: what the child prepares, and the error of an import without a failure ---------


def plain():
    pass


def other_version():
    library = ctypes.CDLL(inject.MODULE)
    ctypes.c_char_p.in_dll(library, "faults_version").value = b"2.7.1"
    warnings.simplefilter("ignore")


def other_version_refused():
    other_version()
    warnings.simplefilter("error")


def main_program():
    ctypes.c_int.in_dll(ctypes.CDLL(inject.MODULE), "vu_mom_is_main").value = 1


def larger_type():
    import builtins
    size = vars(type)["__basicsize__"].__get__(type) + tuple.__itemsize__
    fake = types.ModuleType("builtins")
    fake.__dict__.update(vars(builtins))
    slots = (size - object.__basicsize__) // tuple.__itemsize__
    vars(fake)["type"] = type("type", (), {"__slots__": ["a%d" % i for i in range(slots)]})
    sys.modules["builtins"] = fake
    warnings.simplefilter("ignore")


def larger_type_refused():
    larger_type()
    warnings.simplefilter("error")


def wrong_size():
    vu_mom_common.GetResult = vu_mom_common.HashResult


def no_type():
    vu_mom_common.ScardResult = 5


def no_sibling():
    sys.modules["vu_thread"] = None  # type: ignore[assignment]


def no_attribute():
    del vu_mom_common.SismemberResult


def no_builtin():
    import builtins
    fake = types.ModuleType("builtins")
    fake.__dict__.update(vars(builtins))
    del fake.range
    sys.modules["builtins"] = fake


SCENARIOS = [
    (plain, None), (other_version, None), (main_program, None), (larger_type, None),
    (other_version_refused, RuntimeWarning), (larger_type_refused, RuntimeWarning),
    (wrong_size, ValueError), (no_type, TypeError), (no_sibling, ModuleNotFoundError),
    (no_attribute, AttributeError), (no_builtin, NameError),
]


# --- checks, in the child ---------------------------------------------------------------------


def check_module(module):
    """All of it is there and works."""
    commands = [name for name in vars(module.VuMom) if not name.startswith("__")]
    expected = sorted([row.name for row in cases.COMMANDS] + ["debug_show_all"])
    if sorted(commands) != expected:
        return "the commands are %s" % commands
    for name in ("InputError", "Error", "MomCApiInnerError", "__builtins__"):
        if not hasattr(module, name):
            return "no %s" % name
    if vars(module)["__test__"] != {}:
        return "no __test__"
    if sys.modules.get("vu_mom") is not module:
        return "not in sys.modules"

    class Client(module.VuMom):  # type: ignore[name-defined]
        seen = None

        def on_get_demo_Counter(self, msg, p):
            self.seen = p
    client = Client(vu_global.VuGlobal(7))
    recorder.clear()
    client.get(0, Message(), "p")
    arguments = dict(recorder.calls()[0].arguments)
    record = recorder.Reply()
    recorder.deliver(arguments["callback"], ctypes.addressof(record), arguments["context"])
    if client.seen != "p":
        return "no reply"
    plain_client = module.VuMom(vu_global.VuGlobal(7))
    if type(pickle.loads(pickle.dumps(plain_client))) is not module.VuMom:
        return "not pickled"
    try:
        client.get(0, Message())
    except TypeError:
        return ""
    return "no error"


def frames(error):
    names, traceback = [], error.__traceback__
    while traceback is not None:
        names.append(traceback.tb_frame.f_code.co_name)
        traceback = traceback.tb_next
    return names


def check_error(error, site, clean_error, kind):
    """Whether this is the right error for the operation that failed."""
    wanted = [MemoryError]  # type: list
    if site.caller.startswith("vu_mom::(anonymous namespace)::builtin("):
        wanted = [NameError]  # whatever the reason
    showing = any(name in site.caller for name in ("add_traceback", "make_frame", "SavedError",
                                                   "drop_module", "sys_modules_entry"))
    if clean_error is not None and (showing or kind != inject.CALLS):
        wanted.append(clean_error)
    if kind != inject.CALLS:
        wanted.append(NameError)
    if type(error) not in wanted:
        return "%s: %s" % (type(error).__name__, error)
    if kind == inject.CALLS and not showing and "init vu_mom" not in frames(error):
        return "no traceback entry"
    return ""


def references_of_failures(kind, first, last):
    """What failing again and again leaves behind: the slope has to be zero."""
    import_fails_at_its_end()
    totals = [0] * 6
    for i in range(len(totals)):
        try:
            import_once(kind, first, last)
        except Exception as error:
            error.__traceback__ = error.__context__ = None
        else:
            return ""
        gc.collect()
        totals[i] = sys.gettotalrefcount()
    slopes = [after - before for before, after in zip(totals, totals[1:])][2:]
    return "" if sorted(slopes)[len(slopes) // 2] == 0 else "references left: %s" % slopes


def import_fails_at_its_end():
    vu_mom_common.SismemberResult, last = 5, vu_mom_common.SismemberResult
    try:
        import_once()
    except TypeError as error:
        error.__traceback__ = None
    vu_mom_common.SismemberResult = last


def child(prepare, clean_error, kind, first, last):
    """One import with a failure; returns (whether it was hit, call site, what was wrong)."""
    prepare()
    before = dict(sys.modules)
    try:
        module = import_once(kind, first, last)
    except Exception as error:
        trace = inject.trace()
        was_hit = inject.hit() > 0
        index = first - 1 if kind == inject.CALLS and was_hit else len(trace) - 1
        address = trace[index] if trace else 0
        if not was_hit:
            wrong = "" if type(error) is clean_error else "without a failure: %r" % error
            return False, 0, wrong
        wrong = check_error(error, SITES[address], clean_error, kind)
        error.__traceback__ = error.__context__ = None
        del error
        left = sys.modules.get("vu_mom") is not None
        if left and kind == inject.CALLS and SITES[address].caller.endswith(
                ("drop_module()", "sys_modules_entry()")):
            left = False  # these cannot fail but by being replaced
        if left and kind != inject.CALLS and "add_test_attribute" in SITES[address].caller:
            left = False  # the module was done; the interpreter did not get on
        if left:
            wrong = wrong or "left in sys.modules"
        if clean_error is None:
            module = import_once()
            wrong = wrong or check_module(module)
        return True, address, wrong
    else:
        was_hit = inject.hit() > 0
        trace = inject.trace()
        address = trace[first - 1] if was_hit and kind == inject.CALLS else 0
        wrong = "imported in spite of the failure" if kind == inject.CALLS and was_hit else ""
        if clean_error is not None:
            wrong = "no error"
        return was_hit, address, wrong or check_module(module)


def in_child(function, *arguments):
    """The answer of a function that a child process calls; how it ended if there is none."""
    readable, writable = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            answer = function(*arguments)
        except BaseException as error:
            answer = inject.hit() > 0, 0, "%s: %s" % (type(error).__name__, error)
        os.write(writable, json.dumps(answer).encode())
        if "LLVM_PROFILE_FILE" in os.environ:
            sys.exit(0)  # what was covered is written at exit
        os._exit(0)
    os.close(writable)
    with os.fdopen(readable, "rb") as answers:
        answer = answers.read()
    status = os.waitpid(pid, 0)[1]
    if not answer or status != 0:
        return True, 0, "ended with status %d" % status
    return json.loads(answer.decode())


def main(kind, every):
    global SITES
    SITES = inject.Sites()
    ctypes.PyDLL(inject.MODULE)  # not the dynamic linker's allocations
    # Nor that of a thread's state of exceptions, which ends the process where it fails.
    ctypes.CDLL("libstdc++.so.6")._ZSt19uncaught_exceptionsv()
    kind = {"calls": inject.CALLS, "python": inject.PYTHON, "malloc": inject.MALLOC}[kind]
    # Without memory the interpreter itself fails in some of the others.
    for prepare, clean_error in SCENARIOS if kind == inject.CALLS else SCENARIOS[:1]:
        n = 0
        while n < MOST_OPERATIONS:
            n += 1
            last = n if every == "once" else inject.NEVER
            was_hit, address, wrong = in_child(child, prepare, clean_error, kind, n, last)
            if was_hit and not wrong and COUNTS_REFERENCES and prepare is plain:
                wrong = in_child(references_of_failures, kind, n, last)
                wrong = wrong if isinstance(wrong, str) else wrong[2]
            print(json.dumps([prepare.__name__, n, address, wrong]), flush=True)
            if not was_hit:
                break


if __name__ == "__main__":
    main(*sys.argv[1:])
