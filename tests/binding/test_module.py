"""Importing vu_mom: what it defines, what it demands of its siblings, how it fails."""
import ctypes
import gc
import inspect
import os
import pickle
import sys
import unittest

import cases
import recorder
import vu_mom
from support import Any, BindingTest, run_python

POINTER = ctypes.sizeof(ctypes.c_void_p)
TARGET = POINTER == 4 and object.__basicsize__ == 8

HAVE_GC = 1 << 14  # Py_TPFLAGS_HAVE_GC

# Module, type, the size on the 32-bit target, the number of pointers after the object head.
TYPES = [
    ("builtins", "type", 412, None),
    ("vu_thread", "Thread", 20, 3),
    ("vu_thread", "VuThreadMaster", 80, 18),
    ("vu_global", "VuGlobal", 24, 4),
    ("vu_mom_common", "PubSubMsg", 20, 3),
    ("vu_mom_common", "HashResult", 20, 3),
    ("vu_mom_common", "SetResult", 20, 3),
    ("vu_mom_common", "ListResult", 20, 3),
    ("vu_mom_common", "SortedsetResult", 20, 3),
    ("vu_mom_common", "GetResult", 16, 2),
    ("vu_mom_common", "IncrResult", 16, 2),
    ("vu_mom_common", "SetnxResult", 16, 2),
    ("vu_mom_common", "SmembersResult", 20, 3),
    ("vu_mom_common", "LlenResult", 16, 2),
    ("vu_mom_common", "LrangeResult", 20, 3),
    ("vu_mom_common", "LinsertResult", 16, 2),
    ("vu_mom_common", "LminsertResult", 16, 2),
    ("vu_mom_common", "LmremResult", 16, 2),
    ("vu_mom_common", "LsetResult", 16, 2),
    ("vu_mom_common", "SaveResult", 16, 2),
    ("vu_mom_common", "ZcardResult", 16, 2),
    ("vu_mom_common", "ZrankResult", 16, 2),
    ("vu_mom_common", "ZscoreResult", 16, 2),
    ("vu_mom_common", "ZcountResult", 16, 2),
    ("vu_mom_common", "ZrangeResult", 20, 3),
    ("vu_mom_common", "ZrangebyscoreResult", 20, 3),
    ("vu_mom_common", "ScardResult", 16, 2),
    ("vu_mom_common", "SismemberResult", 16, 2),
]
SIBLINGS = TYPES[1:]  # type: Any


class Attributes(BindingTest):

    def test_attributes(self):
        """Exactly these names, besides those that every module has."""
        usual = {"__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__",
                 "__cached__", "__path__"}
        self.assertEqual(set(vars(vu_mom)) - usual,
                         {"InputError", "Error", "MomCApiInnerError", "VuMom",
                          "__pyx_unpickle_VuMom", "__test__", "__builtins__"})
        self.assertEqual(vu_mom.__name__, "vu_mom")
        self.assertIsNone(vu_mom.__doc__)
        self.assertEqual(vars(vu_mom)["__test__"], {})
        self.assertIs(type(vars(vu_mom)["__test__"]), dict)
        self.assertIs(vars(vu_mom)["__builtins__"], sys.modules["builtins"])

    def test_exceptions(self):
        """Three classes of their own, none the base of another, nothing added to Exception."""
        for name in ("InputError", "Error", "MomCApiInnerError"):
            found = getattr(vu_mom, name)
            self.assertEqual(found.__name__, name)
            self.assertEqual(found.__module__, "vu_mom")
            self.assertEqual(repr(found), "<class 'vu_mom.%s'>" % name)
            self.assertTrue(issubclass(found, Exception))
            self.assertEqual(found.__bases__, (Exception,))
            self.assertEqual(found.__basicsize__, Exception.__basicsize__)
            self.assertEqual(set(vars(found)) - {"__doc__", "__module__", "__new__", "__init__"},
                             set())
            self.assertTrue(found.__flags__ & HAVE_GC)
            self.assertEqual(found(1, "two").args, (1, "two"))

            class Sub(found):  # type: ignore[misc, valid-type]
                pass
            with self.assertRaises(found):
                raise Sub()
        self.assertFalse(issubclass(vu_mom.InputError, vu_mom.Error))
        self.assertFalse(issubclass(vu_mom.MomCApiInnerError, vu_mom.Error))
        self.assertFalse(issubclass(vu_mom.Error, vu_mom.InputError))

    def test_exceptions_take_part_in_garbage_collection(self):
        class Sub(vu_mom.Error):
            gone = 0

            def __del__(self):
                Sub.gone += 1
        error = Sub()
        error.itself = error  # type: ignore[attr-defined]
        del error
        gc.collect()
        self.assertEqual(Sub.gone, 1)

    def test_exceptions_pickle(self):
        found = pickle.loads(pickle.dumps(vu_mom.InputError("why")))
        self.assertIs(type(found), vu_mom.InputError)
        self.assertEqual(found.args, ("why",))

    def test_second_import(self):
        """Importing twice, and initialising twice, gives the same module."""
        import vu_mom as again
        self.assertIs(again, vu_mom)
        library = ctypes.PyDLL(vu_mom.__file__)
        library.PyInit_vu_mom.restype = ctypes.py_object
        before = sys.getrefcount(vu_mom)
        third = library.PyInit_vu_mom()
        self.assertIs(third, vu_mom)
        self.assertEqual(sys.getrefcount(vu_mom), before + 1)


class TheClass(BindingTest):

    def test_methods(self):
        """The 49 commands and the four others, and nothing else."""
        names = set(vars(vu_mom.VuMom))
        self.assertEqual(len(cases.COMMANDS), 49)
        plain = set(name for name in names if not name.startswith("__"))
        self.assertEqual(plain, set(row.name for row in cases.COMMANDS) | {"debug_show_all"})
        self.assertEqual(names - plain, {"__getfunc", "__reduce__", "__setstate__", "__init__",
                                         "__new__", "__doc__"})

    def test_class(self):
        self.assertEqual(vu_mom.VuMom.__name__, "VuMom")
        self.assertEqual(vu_mom.VuMom.__module__, "vu_mom")
        self.assertEqual(vu_mom.VuMom.__bases__, (object,))

    def test_docstrings(self):
        """The class and every method say what they do, and more than their signature."""
        self.assertTrue(vu_mom.VuMom.__doc__)
        for name, method in vars(vu_mom.VuMom).items():
            if name in ("__init__", "__new__", "__doc__"):
                continue
            with self.subTest(method=name):
                self.assertGreater(len(method.__doc__ or ""), 20)

    def test_signatures(self):
        for row in cases.COMMANDS:
            with self.subTest(command=row.name):
                signature = inspect.signature(getattr(vu_mom.VuMom, row.name))
                parameters = list(signature.parameters.values())
                self.assertEqual([p.name for p in parameters], ["self"] + row.names)
                for parameter, (_, default) in zip(parameters[1:], row.parameters):
                    wanted = inspect.Parameter.empty if default is cases.REQUIRED else default
                    self.assertEqual(parameter.default, wanted)
                    self.assertEqual(parameter.kind, inspect.Parameter.POSITIONAL_OR_KEYWORD)


class Stub(BindingTest):
    """vu_mom.pyi against the module."""

    repeats = False

    def setUp(self):
        super(Stub, self).setUp()
        if sys.version_info < (3, 8):
            self.skipTest("this interpreter does not parse stubs")
        import ast
        self.ast = ast
        with open(os.path.join(recorder.BUILD, "python", "vu_mom.pyi")) as stub:
            self.tree = ast.parse(stub.read())
        self.classes = dict((node.name, node) for node in self.tree.body
                            if isinstance(node, ast.ClassDef))

    def functions(self, node):
        found = [item for item in node.body if isinstance(item, self.ast.FunctionDef)]
        self.assertEqual(len(found), len(set(item.name for item in found)))
        return dict((item.name, item) for item in found)

    def test_names(self):
        self.assertEqual(set(self.classes),
                         {"InputError", "Error", "MomCApiInnerError", "VuMom"} | set(
                             name for name in self.classes if name.startswith("_")))
        for name in ("InputError", "Error", "MomCApiInnerError"):
            bases = self.classes[name].bases  # type: Any
            self.assertEqual([base.id for base in bases], ["Exception"])
        public = set(name for name in vars(vu_mom) if not name.startswith("_"))
        self.assertEqual(public, set(n for n in self.classes if not n.startswith("_")))

    def test_methods(self):
        """Names, parameters and defaults of every method."""
        methods = self.functions(self.classes["VuMom"])
        wanted = dict((row.name, row.parameters) for row in cases.COMMANDS)
        wanted["debug_show_all"] = []
        wanted["__init__"] = [("glb", cases.REQUIRED)]
        public = set(name for name in methods if not name.startswith("_")) | {"__init__"}
        self.assertEqual(public, set(wanted))
        for name, parameters in wanted.items():
            with self.subTest(method=name):
                arguments = methods[name].args
                self.assertEqual([a.arg for a in arguments.args],
                                 ["self"] + [parameter for parameter, _ in parameters])
                self.assertEqual((arguments.vararg, arguments.kwarg, arguments.kwonlyargs),
                                 (None, None, []))
                defaults = [default.value for default in arguments.defaults]
                self.assertEqual(defaults, [default for _, default in parameters
                                            if default is not cases.REQUIRED])
                for argument in arguments.args[1:]:
                    self.assertIsNotNone(argument.annotation, argument.arg)
                self.assertIsNotNone(methods[name].returns)


class ImportTest(unittest.TestCase):
    """Imports in fresh interpreters."""

    PRELUDE = '''
import builtins, sys, warnings
import recorder
import vu_thread, vu_global, vu_mom_common

class Before(object):
    """Changes an attribute during an import of vu_mom, which it expects to fail."""
    def __init__(self, module, name, value=None):
        self.module, self.name, self.value = module, name, value

    def run(self):
        original = getattr(self.module, self.name)
        if self.value is None:
            delattr(self.module, self.name)
        else:
            setattr(self.module, self.name, self.value)
        try:
            import vu_mom
        except Exception as error:
            return error
        finally:
            setattr(self.module, self.name, original)

def frames(error):
    names, traceback = [], error.__traceback__
    while traceback is not None:
        if traceback.tb_frame.f_code.co_filename == "vu_mom":
            names.append(traceback.tb_frame.f_code.co_name)
        traceback = traceback.tb_next
    return names

def show(error):
    print("%s|%s|%s" % (type(error).__name__, error, ",".join(frames(error))))

def of_size(size):
    """A type with instances of this many bytes."""
    slots = (size - object.__basicsize__) // tuple.__itemsize__
    return type("Other", (object,), {"__slots__": ["a%d" % i for i in range(slots)]})
'''

    def run_after_prelude(self, source, environment=None):
        status, output, errors = run_python(self.PRELUDE + source, environment)
        self.assertEqual(status, 0, errors)
        return output.splitlines(), errors


class Siblings(ImportTest):

    def test_sizes_here(self):
        """The sizes are those of the table on the target, and the same structs elsewhere."""
        for module_name, name, size, pointers in SIBLINGS:
            with self.subTest(type=name):
                found = getattr(sys.modules[module_name], name)
                self.assertEqual(found.__basicsize__, object.__basicsize__ + pointers * POINTER)
                if TARGET:
                    self.assertEqual(found.__basicsize__, size)
        if TARGET and sys.version_info[:2] == (3, 4):
            self.assertEqual(type.__basicsize__, 412)

    def test_wrong_sizes(self):
        """A sibling type of any other size, larger or smaller, fails the import; the actual size
        comes first in the text. The module can still be imported afterwards."""
        lines, errors = self.run_after_prelude('''
for module_name, name in %r:
    module = sys.modules[module_name]
    size = getattr(module, name).__basicsize__
    for wrong in (size + tuple.__itemsize__, size - tuple.__itemsize__, object.__basicsize__):
        show(Before(module, name, of_size(wrong)).run())
import vu_mom
print(vu_mom.VuMom.__name__)
''' % [row[:2] for row in SIBLINGS])
        wanted = []
        for module_name, name, _, pointers in SIBLINGS:
            size = object.__basicsize__ + pointers * POINTER
            for wrong in (size + POINTER, size - POINTER, object.__basicsize__):
                wanted.append("ValueError|%s.%s has the wrong size, try recompiling. Expected %d, "
                              "got %d|init vu_mom" % (module_name, name, wrong, size))
        self.assertEqual(lines, wanted + ["VuMom"])
        self.assertEqual(errors, "")

    def test_get_result_of_another_size(self):
        """A GetResult that is larger or smaller than it was built against."""
        lines, _ = self.run_after_prelude('''
size = vu_mom_common.GetResult.__basicsize__
show(Before(vu_mom_common, "GetResult", of_size(size + 8)).run())
show(Before(vu_mom_common, "GetResult", of_size(size - 8)).run())
''')
        self.assertEqual(len(lines), 2)
        for line in lines:
            self.assertIn("ValueError|vu_mom_common.GetResult has the wrong size", line)

    def test_missing_types(self):
        lines, _ = self.run_after_prelude('''
for module_name, name in %r:
    show(Before(sys.modules[module_name], name).run())
import vu_mom
''' % [row[:2] for row in SIBLINGS])
        self.assertEqual(len(lines), len(SIBLINGS))
        for line, (_, name, _, _) in zip(lines, SIBLINGS):
            error, text, frames = line.split("|")
            self.assertEqual((error, frames), ("AttributeError", "init vu_mom"))
            self.assertIn(repr(name), text)

    def test_attributes_that_are_no_types(self):
        lines, _ = self.run_after_prelude('''
for module_name, name in %r:
    show(Before(sys.modules[module_name], name, "not a type").run())
''' % [row[:2] for row in TYPES])
        self.assertEqual(lines, ["TypeError|%s.%s is not a type object|init vu_mom" % row[:2]
                                 for row in TYPES])

    def test_missing_modules(self):
        lines, _ = self.run_after_prelude('''
for name in ("vu_thread", "vu_global", "vu_mom_common"):
    module = sys.modules[name]
    sys.modules[name] = None
    try:
        import vu_mom
    except ImportError as error:
        print("%s|%s|%s" % (isinstance(error, ImportError), name in str(error), frames(error)))
    sys.modules[name] = module
''')
        self.assertEqual(lines, ["True|True|['init vu_mom']"] * 3)

    def test_order(self):
        """The types are imported in the order of the table; the first that is wrong counts."""
        lines, _ = self.run_after_prelude('''
table = %r
originals = {}
for module_name, name in table:
    originals[name] = getattr(sys.modules[module_name], name)
    setattr(sys.modules[module_name], name, 0)
for module_name, name in table:
    try:
        import vu_mom
    except TypeError as error:
        print(error)
    setattr(sys.modules[module_name], name, originals[name])
import vu_mom
''' % [row[:2] for row in TYPES])
        self.assertEqual(lines, ["%s.%s is not a type object" % row[:2] for row in TYPES])

    def test_type_of_another_size(self):
        """builtins.type is checked too: larger is a warning, smaller an error."""
        lines, errors = self.run_after_prelude('''
size = type.__basicsize__
show(Before(builtins, "type", of_size(size - tuple.__itemsize__)).run())
with warnings.catch_warnings():
    warnings.simplefilter("error")
    show(Before(builtins, "type", of_size(size + tuple.__itemsize__)).run())
with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    print(Before(builtins, "type", of_size(size + tuple.__itemsize__)).run())
for warning in caught:
    print("%s|%s" % (warning.category.__name__, warning.message))
print("vu_mom" in sys.modules)
''')
        builtin = type  # type: Any
        size = builtin.__basicsize__
        warning = ("RuntimeWarning|builtins.type size changed, may indicate binary "
                   "incompatibility. Expected %d, got %d" % (size + POINTER, size))
        self.assertEqual(lines, [
            "ValueError|builtins.type has the wrong size, try recompiling. Expected %d, got %d"
            "|init vu_mom" % (size - POINTER, size),
            warning + "|init vu_mom", "None", warning, "True"])

    def test_failed_import_leaves_no_module(self):
        """What failed to import is not there afterwards, and importing it again fails again."""
        lines, _ = self.run_after_prelude('''
vu_mom_common.GetResult = 0
for attempt in range(2):
    try:
        import vu_mom
    except TypeError as error:
        print(error)
    print("vu_mom" in sys.modules)
''')
        self.assertEqual(lines, ["vu_mom_common.GetResult is not a type object", "False"] * 2)

    def test_main_program(self):
        """Where a program runs the module as its main program, that is the module's name."""
        status, output, errors = run_python('''
import ctypes, sys
import recorder
path, = [entry + "/vu_mom.so" for entry in sys.path if entry.endswith("binding/python")]
ctypes.c_int.in_dll(ctypes.PyDLL(path), "vu_mom_is_main").value = 1
library = ctypes.PyDLL(path)
library.PyInit_vu_mom.restype = ctypes.py_object
module = library.PyInit_vu_mom()
print(module.__name__, sys.modules["vu_mom"] is module)
''')
        self.assertEqual((status, output, errors), (0, "__main__ True\n", ""))

    def test_import_without_builtins(self):
        """MemoryError and range are looked up at import."""
        lines, _ = self.run_after_prelude('''
for name in ("MemoryError", "range"):
    show(Before(builtins, name).run())
''')
        self.assertEqual(lines, ["NameError|name '%s' is not defined|init vu_mom" % name
                                 for name in ("MemoryError", "range")])


class Version(ImportTest):
    """The build that sees another interpreter version."""

    SOURCE = '''
sys.path.insert(0, %r)
with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    import vu_mom
    mismatch = vu_mom.__file__
for warning in caught:
    print("%%s|%%s|%%s" %% (warning.category.__name__, warning.message, warning.filename))
print(mismatch)
''' % os.path.join(recorder.DIRECTORY, "mismatch")

    COMPILED = "%d.%d" % sys.version_info[:2]

    def imported(self, version):
        lines, _ = self.run_after_prelude(self.SOURCE, {"VU_MOM_TEST_VERSION": version})
        self.assertIn("mismatch", lines.pop())
        return lines

    def test_other_major_version(self):
        """A warning, of the default category, at the import statement's level."""
        lines = self.imported("2.7.18 (fake)")
        self.assertEqual(len(lines), 1)
        category, text, filename = lines[0].split("|")
        self.assertEqual(category, "RuntimeWarning")
        self.assertEqual(text, "compiletime version %s of module 'vu_mom' does not match runtime "
                               "version 2.7" % self.COMPILED)
        self.assertIn("importlib", filename)

    def test_other_minor_version(self):
        other = "3.%d.0 (fake)" % (int(self.COMPILED[2]) + 1)
        lines = self.imported(other)
        self.assertEqual(len(lines), 1)
        self.assertIn("runtime version " + other[:3], lines[0])

    def test_same_version(self):
        """Only the first and the third character of the versions are compared."""
        for version in (sys.version, self.COMPILED[:3] + "9.5 (fake)",
                        self.COMPILED[0] + "x" + self.COMPILED[2]):
            self.assertEqual(self.imported(version), [])

    def test_warning_as_error(self):
        """The only way in which another version stops the import."""
        lines, _ = self.run_after_prelude('''
sys.path.insert(0, %r)
warnings.simplefilter("error", RuntimeWarning)
try:
    import vu_mom
except Exception as error:
    show(error)
print("vu_mom" in sys.modules)
''' % os.path.join(recorder.DIRECTORY, "mismatch"), {"VU_MOM_TEST_VERSION": "2.7.18"})
        self.assertEqual(lines, [
            "RuntimeWarning|compiletime version %s of module 'vu_mom' does not match runtime "
            "version 2.7|init vu_mom" % self.COMPILED, "False"])

    def test_no_warning_here(self):
        """The module proper imports without a word."""
        status, output, errors = run_python("import recorder, vu_mom; print(vu_mom.__file__)")
        self.assertEqual((status, errors), (0, ""))
        self.assertNotIn("mismatch", output)


if __name__ == "__main__":
    unittest.main()
