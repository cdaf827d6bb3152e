"""Each call that the platform's modules make of the interpreter fails once: the error is raised (or
reported, where it is in a reply or a callback of the loop), nothing is left behind, and the same
action works again. The actions are the modules' own tests, those of platform_actions.py, and
imports; call_failures.py lets them fail."""
import collections
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

import call_failures
import inject

HERE = os.path.dirname(os.path.abspath(__file__))
PLATFORM_TESTS = os.path.join(os.path.dirname(HERE), "platform")
MEMORY_ERROR = re.compile("MemoryError: (injected)?$")

# Failures that do not show, and why: (part of the caller, callee).
SILENT = {
    ("vu_thread::(anonymous namespace)::set_wakeup", ""):
        "without the wake-up signals still interrupt the waits of the main thread",
    ("py::SavedError::SavedError", "PyException_SetTraceback"): "the error counts, not its traceback",
}

# Call sites that nothing reaches, and why.
UNREACHABLE = {
    ("vu::get_entry(", "PyErr_SetObject"): "whoever asks has found the key a moment ago",
    ("vu_global::(anonymous namespace)::run_once", "PyUnicode_InternFromString"):
        "makes a name once, in the first call of a process",
    ("py::raise<int, int>(", "PyErr_Format"): "takes a vu_thread with another C interface",
}

Failed = collections.namedtuple("Failed", "action site error reported again leaks")


class PlatformCalls(unittest.TestCase):
    maxDiff = None
    sites = {}  # type: dict
    failed = []  # type: list
    hit = {}  # type: dict  # addresses by module

    @classmethod
    def setUpClass(cls):
        cls.sites = dict((name, inject.Sites(call_failures.module_path(name)))
                         for name in call_failures.MODULES)
        cls.failed = []
        cls.hit = collections.defaultdict(set)
        messages = sorted(name for name in os.listdir(PLATFORM_TESTS)
                          if re.match(r"test_message_\w+\.py$", name))
        cls.let_fail("pytest", "-k", "not every_pair",  # it takes thousands of ways through one thing
                     *[os.path.join(PLATFORM_TESTS, name) for name in messages])
        cls.let_fail("pytest", *[os.path.join(PLATFORM_TESTS, name)
                                 for name in ("test_thread.py", "test_global.py")])
        cls.let_fail("cases", os.path.join(PLATFORM_TESTS, "common_support"))
        cls.let_fail("actions")
        for name in call_failures.MODULES + ("contract_vu",):
            cls.let_fail("imports", name)

    @classmethod
    def let_fail(cls, *arguments):
        with tempfile.NamedTemporaryFile("r", suffix=".json") as found:
            command = [sys.executable, os.path.join(HERE, "call_failures.py"), arguments[0], found.name]
            process = subprocess.run(command + list(arguments[1:]), stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT)
            rows = [json.loads(line) for line in found]
        if process.returncode != 0 or not rows or rows[-1].get("status") != 0:
            raise AssertionError("%s ended with %d\n%s" % (
                " ".join(arguments), process.returncode, process.stdout.decode()[-4000:]))
        for row in rows[:-1]:
            name = row["library"][:-3]
            site = None
            if name in cls.sites:
                site = cls.sites[name][row["address"]]
                cls.hit[name].add(row["address"])
            cls.failed.append(Failed(row["action"], site, row["error"], row["reported"],
                                     row["again"], row["leaks"]))

    def test_the_error_is_shown(self):
        for failed in self.failed:
            if failed.site is not None and any(
                    caller in failed.site.caller and callee in failed.site.callee
                    for caller, callee in SILENT):
                continue
            shown = "MemoryError" in failed.reported or MEMORY_ERROR.match(failed.error or "")
            self.assertTrue(shown, failed)

    def test_the_next_call_works(self):
        for failed in self.failed:
            self.assertIsNone(failed.again, failed)

    def test_nothing_is_left(self):
        for failed in self.failed:
            self.assertFalse(any(failed.leaks), failed)

    def test_each_has_failed(self):
        left = []
        for name, sites in sorted(self.sites.items()):
            for address in set(sites.callees) - self.hit[name]:
                site = sites[address]
                if site.callee.startswith(("_Zn", "malloc")) or "calls.cpp" in site.line:
                    continue  # allocations are let fail by test_platform.py
                if not any(caller in site.caller and callee == site.callee
                           for caller, callee in UNREACHABLE):
                    left.append((name, site))
        self.assertEqual(left, [])
        print("* %d call sites of the platform's modules failed once each"
              % sum(len(addresses) for addresses in self.hit.values()))

    def test_all_functions_are_known(self):
        """What the shipped modules import from the interpreter can be made to fail, or cannot."""
        unknown = set()
        for name in call_failures.MODULES:
            shipped = inject.undefined_symbols(os.path.join(inject.BUILD, "python", name + ".so"))
            wrapped = inject.wrapped_functions(call_failures.module_path(name))
            unknown |= set(symbol for symbol in shipped
                           if symbol.lstrip("_").startswith("Py")
                           and not symbol.endswith(("_Type", "Struct"))
                           and not symbol.startswith(("PyExc_", "_Py_RefTotal",
                                                      "_PyByteArray_empty"))) - wrapped
        self.assertEqual(unknown - set(CANNOT_FAIL), set())

    def found_at(self, caller, callee):
        return [failed for failed in self.failed if failed.site is not None
                and caller in failed.site.caller and callee == failed.site.callee]

    # What went wrong once.

    def check_raised(self, caller, callee):
        found = self.found_at(caller, callee)
        self.assertNotEqual(found, [])
        for failed in found:
            self.assertRegex(failed.error, MEMORY_ERROR)

    def test_text_was_shown_as_bytes_for_lack_of_memory(self):
        self.check_raised("text_of_string", "PyUnicode_DecodeUTF8")

    def test_no_memory_was_called_a_null_character(self):
        """In the name of a store."""
        self.check_raised("vu_global::Link::Link", "PyBytes_AsStringAndSize")

    def test_class_lost_its_descriptor_for_lack_of_memory(self):
        """The lookup in its body dropped the error, and the class was one of no message type."""
        self.check_raised("new_class", "PyUnicode_InternFromString")


# Functions of the interpreter that cannot be made to fail, and why where it is not plain.
CANNOT_FAIL = {
    "PyBool_FromLong", "PyBuffer_Release", "PyCallable_Check", "PyErr_Clear",
    "PyErr_ExceptionMatches", "PyErr_Fetch", "PyErr_Occurred", "PyErr_Restore", "PyIndex_Check",
    "PyDict_Next", "PyDict_Size", "PyEval_RestoreThread", "PyEval_SaveThread",
    "PyErr_NoMemory",  # sets the error that every failure here sets
    "PyErr_NormalizeException",  # replaces the error by its own
    "PyErr_WriteUnraisable",  # prints what it can
    "PyGILState_Check", "PyImport_GetModuleDict", "PyModule_GetDict",
    "PyLong_AsLongAndOverflow", "PyLong_AsLongLongAndOverflow",  # fail for what is no int only
    "PyObject_CallFinalizerFromDealloc",  # its failure is no error: the object lives on
    "PyObject_ClearWeakRefs", "PyObject_GC_Del", "PyObject_GC_Track", "PyObject_GC_UnTrack",
    "PyObject_HashNotImplemented",  # a slot, as the two below; never called here
    "PySlice_AdjustIndices", "PyType_GenericAlloc", "PyType_GenericNew", "PyType_IsSubtype",
    "PyType_Modified", "PyUnicode_Compare",  # of two strings
    "PyUnicode_CompareWithASCIIString", "PyUnicode_InternInPlace", "Py_LeaveRecursiveCall",
    "Py_ReprLeave", "_Py_Dealloc", "_Py_NegativeRefcount", "_Py_NewReference",
}


if __name__ == "__main__":
    unittest.main()
