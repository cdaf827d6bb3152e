"""Each call that the binding makes of the interpreter, of malloc and of new fails once."""
import gc
import json
import os
import subprocess
import sys
import unittest

import cases
import inject
import outcomes
import recorder
import scenarios
import support

gc.freeze()  # looking for contexts need not look at what is there now
SITES = inject.Sites()
FAILED = set()  # addresses of the call sites that have failed
RAN = set()  # names of the tests of Calls

NEW = "_Znwm" if sys.maxsize > 2 ** 32 else "_Znwj"
INJECTED = MemoryError, "injected"


def clean_run(scenario):
    """The outcome without a failure, and the call sites on the way."""
    scenario.run()
    outcome = scenario.run()
    return outcome, [SITES[address] for address in inject.trace()]


def faulty_runs(scenario, sites):
    """The outcomes where each of the calls fails, with the index of its site."""
    for i in range(len(sites)):
        outcome = scenario.run(inject.CALLS, i + 1, i + 1)
        if inject.hit() != 1:
            raise AssertionError("%s: call %d was not made" % (scenario, i))
        FAILED.add(inject.trace()[i])
        yield i, outcome


def converting(call, sites):
    """How many of the sites convert a list of field numbers: those that a call without it does
    not have."""
    if call.untagged is None:
        return 0
    return len(sites) - len(clean_run(call.untagged)[1])


class Calls(unittest.TestCase):
    maxDiff = None

    def tearDown(self):
        RAN.add(self._testMethodName)

    def check(self, calls):
        for call in calls:
            clean, sites = clean_run(call)
            first = converting(call, sites)
            for i, outcome in faulty_runs(call, sites):
                self.assertEqual(outcome, outcomes.expected(clean, sites, i, first, *INJECTED),
                                 "%s: %s" % (call, sites[i]))
            self.assertEqual(call.run(), clean, call)

    def test_client(self):
        self.check(scenarios.client_calls())
        self.check(scenarios.calls_without())

    def test_replies(self):
        for reply in scenarios.replies():
            clean, sites = clean_run(reply)
            for i, outcome in faulty_runs(reply, sites):
                self.assertEqual(outcome, outcomes.expected_reply(clean, sites, i, reply.callback,
                                                                  *INJECTED),
                                 "%s: %s" % (reply, sites[i]))
            self.assertEqual(reply.run(), clean, reply)


def _command_test(row):
    def test(self):
        self.check(scenarios.command_calls(row))
    return test


for _row in cases.COMMANDS:
    setattr(Calls, "test_" + _row.name, _command_test(_row))

def imports(kind, once_or_on):
    """What came of the imports in which operations fail: (scenario, number, site, address,
    what was wrong)."""
    command = [sys.executable, os.path.join(os.path.dirname(__file__), "imports.py")]
    output = subprocess.check_output(command + [kind, once_or_on]).decode()
    found = []
    for line in output.splitlines():
        scenario, number, address, wrong = json.loads(line)
        found.append((scenario, number, SITES[address], address, wrong))
    return found


class Imports(unittest.TestCase):  # after Calls and before Sites, as they are sorted
    """Of every way to import, each call fails once."""

    found = []  # type: list

    @classmethod
    def setUpClass(cls):
        cls.found = imports("calls", "once")
        FAILED.update(address for _, _, _, address, _ in cls.found)

    def test_all(self):
        self.assertGreater(len(self.found), 1000)
        for scenario, number, site, _, wrong in self.found:
            self.assertEqual(wrong, "", (scenario, number, site))

    def found_at(self, caller, callee):
        """What was wrong where that call failed."""
        return [wrong for _, _, site, _, wrong in self.found
                if caller in site.caller and site.callee == callee]

    # What went wrong once.

    def test_failed_new_ended_the_process(self):
        """While the table of methods was built; nothing caught std::bad_alloc."""
        found = self.found_at("", NEW)
        self.assertGreater(len(found), 10)
        self.assertEqual(set(found), {""})

    def test_failed_new_left_half_the_methods(self):
        """The next import took the table for finished. A module with all commands is checked
        after each failure."""
        found = self.found_at("", NEW)
        self.assertGreater(len(found), 10)
        self.assertEqual(set(found), {""})

    def test_failed_import_left_no_setstate(self):
        """__reduce__ was there, so that the next import added nothing; clients did not pickle."""
        found = self.found_at("add_method", "PyDescr_NewMethod")
        self.assertGreaterEqual(len(found), 2)
        self.assertEqual(set(found), {""})


class Errors(unittest.TestCase):

    def test_error_was_replaced_by_that_of_its_traceback(self):
        """InputError became MemoryError where the entry in the traceback could not be made."""
        call = scenarios.Call("publish", scenarios.CLIENT.publish,
                              lambda token: ((0, support.Message()), None), status=-2)
        clean, sites = clean_run(call)
        entry = [i for i, site in enumerate(sites) if site.callee == "PyTraceBack_Here"]
        self.assertEqual(len(entry), 1)
        outcome = call.run(inject.CALLS, entry[0] + 1, entry[0] + 1)
        self.assertEqual(outcome.error.__name__, "InputError")
        self.assertEqual(outcome, clean)


class Alone(unittest.TestCase):
    """What needs an interpreter of its own."""

    def output(self, source):
        return subprocess.check_output([sys.executable, "-c", source]).decode()

    def test_class_of_a_failed_import(self):
        """It can be found, and has no VuGlobal to check its argument against."""
        self.assertEqual(self.output("""
import recorder, sys
sys.modules["vu_thread"] = None
try:
    import vu_mom
except ImportError:
    pass
found = [cls for cls in object.__subclasses__() if cls.__name__ == "VuMom"]
try:
    found[0](42)
except SystemError as error:
    print(error)
"""), "Missing type object\n")

    def test_name_is_taken_in_sys_modules(self):
        """An import that fails leaves that alone."""
        self.assertEqual(self.output("""
import recorder, imports, sys, types, vu_mom_common
sys.modules["vu_mom"] = other = types.ModuleType("other")
del vu_mom_common.ScardResult
try:
    imports.import_once()
except AttributeError:
    print(sys.modules["vu_mom"] is other)
"""), "True\n")

    def test_message_type_that_makes_something_else(self):
        self.assertEqual(self.output("""
import ctypes, recorder, vu_mom_common
class Odd(vu_mom_common.PubSubMsg):
    __slots__ = ()
    def __new__(cls, address):
        return 5
vu_mom_common.PubSubMsg = Odd
import support
record = recorder.Reply()
context = dict(p=1, cb=None)
with support.reports() as found:
    recorder.deliver(support.callbacks().wrap, ctypes.addressof(record), recorder.keep(context))
for name, error, text in found.unraisable:
    print(name, error.__name__, text)
"""), "vu_mom.wrap_cb TypeError Cannot convert int to Odd\n")


class Finaliser(unittest.TestCase):
    """Of a type that derives from VuMom in C and inherits the rest."""

    def setUp(self):
        self.type = inject.finalizable(scenarios.vu_mom.VuMom)

    def test_it_runs_once(self):
        before = inject.finalized()
        self.type(scenarios.GLOBAL)
        del scenarios.GLOBAL.apps[:]
        self.assertEqual(inject.finalized(), before + 1)

    def test_it_brings_the_client_back(self):
        inject.resurrect(True)
        self.type(scenarios.GLOBAL)
        before = inject.finalized()
        del scenarios.GLOBAL.apps[:]
        self.assertEqual(inject.finalized(), before + 1)
        client = inject.resurrected()
        self.assertIs(type(client), self.type)
        recorder.answer(0)
        client.debug_show_all()
        inject.resurrect(False)
        references = sys.getrefcount(scenarios.GLOBAL)
        del client
        self.assertEqual(inject.finalized(), before + 1)  # no second time
        self.assertEqual(sys.getrefcount(scenarios.GLOBAL), references - 1)


# Calls that no test lets fail, and why none can: (caller, callee).
UNREACHABLE = {
    # For an exception without an error set, which nothing throws.
    ("PyInit_vu_mom", "PyErr_SetString"),
    # The standard library's, for constant expressions.
    ("std::allocator<PyMethodDef>::allocate(unsigned long)", "_Znwm"),
}


class Sites(unittest.TestCase):
    """All calls that the binding makes can be made to fail, and each has failed."""

    # Functions of the interpreter that the binding calls and that cannot be made to fail.
    CANNOT_FAIL = {
        "PyDict_Next": "gives a borrowed pair or none",
        "PyDict_Size": "fails for what is no dict only",
        "PyErr_Clear": "", "PyErr_Occurred": "", "PyErr_Fetch": "", "PyErr_Restore": "",
        "PyErr_ExceptionMatches": "", "PyGILState_Check": "",
        "PyErr_Display": "prints what it can",
        "PyErr_NoMemory": "sets the error that every failure here sets",
        "PyErr_NormalizeException": "replaces the error by its own",
        "PyErr_WriteUnraisable": "prints what it can",
        "PyImport_GetModuleDict": "", "PyModule_GetDict": "", "PyThreadState_Get": "",
        "PyLong_AsLongAndOverflow": "fails for what is no int only",
        "PyOS_snprintf": "",
        "PyObject_CallFinalizerFromDealloc": "its failure is no error: the object lives on",
        "PyObject_GC_UnTrack": "",
        "PyObject_GenericGetAttr": "is compared with, not called",
        "PyType_IsSubtype": "", "PyType_Modified": "",
        "PyUnicode_CompareWithASCIIString": "sets no error",
        "PyUnicode_InternInPlace": "leaves the string as it is",
        "_PyType_Lookup": "gives what there is, borrowed, or nothing",
        "_Py_Dealloc": "",
        "_Py_NegativeRefcount": "ends the process of a debug interpreter",
    }

    def test_all_functions_are_known(self):
        """What the shipped module imports from the interpreter is in calls.cpp or above."""
        symbols = inject.undefined_symbols(os.path.join(
            inject.BUILD, "tests", "binding", "python", "vu_mom.so"))
        imported = set(name for name in symbols if name.lstrip("_").startswith("Py"))
        data = set(name for name in imported if name.endswith("_Type")
                   or name.startswith(("PyExc_", "_Py_NoneStruct", "_Py_RefTotal")))
        wrapped = inject.wrapped_functions()
        unknown = imported - data - wrapped - set(self.CANNOT_FAIL) - {"Py_GetVersion"}
        self.assertEqual(unknown, set())
        self.assertEqual(wrapped & set(self.CANNOT_FAIL), set())

    def test_each_has_failed(self):
        if RAN != set(name for name in dir(Calls) if name.startswith("test_")):
            self.skipTest("not all tests were run before")
        never = set(SITES[address] for address in set(SITES.callees) - FAILED)
        left = sorted(site for site in never
                      if not site.line.startswith("calls.cpp") and site.callee != "Py_GetVersion"
                      and not site.caller.startswith("__llvm_")
                      and (site.caller, site.callee) not in UNREACHABLE)
        self.assertEqual(left, [])
        print("* %d call sites of the binding failed once each" % len(FAILED))


if __name__ == "__main__":
    unittest.main()
