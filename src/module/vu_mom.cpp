// The module frame: what `import vu_mom` does, step by step.
#include "module/vu_mom.h"

#include <new>

#include "client/client.h"
#include "client/status.h"
#include "commands/commands.h"
#include "module/constants.h"
#include "module/exceptions.h"
#include "module/imported_types.h"
#include "module/pickling.h"
#include "module/traceback.h"

// Set by a program that embeds the interpreter and runs the module as its main program.
extern "C" __attribute__((visibility("default"))) int vu_mom_is_main;
int vu_mom_is_main = 0;

namespace vu_mom {
namespace {

const Name module_name("vu_mom");
const Name name_attribute("__name__");
const Name main_name("__main__");

PyModuleDef definition = {};
PyMethodDef no_functions[] = {{nullptr, nullptr, 0, nullptr}};

PyObject* module = nullptr;  // owned; null before and after a failed import
PyObject* empty_tuple = nullptr;
PyObject* empty_bytes = nullptr;
PyObject* empty_string = nullptr;

// Compares major digit and first minor digit only: 3.10 passes for 3.11.
void check_version() {
  char compiled[16];
  PyOS_snprintf(compiled, sizeof compiled, "%d.%d", PY_MAJOR_VERSION, PY_MINOR_VERSION);
  char running[4];
  PyOS_snprintf(running, sizeof running, "%s", Py_GetVersion());
  if (compiled[0] == running[0] && compiled[2] == running[2]) return;
  py::checked(PyErr_WarnFormat(
      nullptr, 1, "compiletime version %s of module '%.100s' does not match runtime version %s",
      compiled, "vu_mom", running));
}

void create_empty_constants() {
  py::replace(empty_tuple, py::checked(PyTuple_New(0)));
  py::replace(empty_bytes, py::checked(PyBytes_FromStringAndSize("", 0)));
  py::replace(empty_string, py::checked(PyUnicode_FromStringAndSize("", 0)));
}

py::Owned import_builtins() { return py::checked(PyImport_ImportModule("builtins")); }

void create_module(const py::Owned& builtins) {
  definition.m_base = PyModuleDef_HEAD_INIT;
  definition.m_name = "vu_mom";
  definition.m_size = -1;
  definition.m_methods = no_functions;
  module = py::checked(PyModule_Create(&definition)).release();
  py::checked(PyObject_SetAttrString(module, "__builtins__", builtins.get()));
}

void name_main_program() {
  if (vu_mom_is_main == 0) return;
  py::checked(PyObject_SetAttr(module, name_attribute.get().get(), main_name.get().get()));
}

// The entry of the module's name in sys.modules, borrowed; null where there is none, or with
// an error set.
PyObject* sys_modules_entry() {
  return PyDict_GetItemWithError(PyImport_GetModuleDict(), module_name.get().get());
}

void add_to_sys_modules() {
  if (sys_modules_entry() != nullptr) return;
  if (PyErr_Occurred()) throw py::PythonError();
  py::checked(PyDict_SetItem(PyImport_GetModuleDict(), module_name.get().get(), module));
}

void ready_types() {
  add_exception(module, "InputError", InputError);
  add_exception(module, "Error", Error);
  add_exception(module, "MomCApiInnerError", MomCApiInnerError);
  ready_client_type(all_methods());
  py::checked(PyObject_SetAttrString(module, "VuMom", reinterpret_cast<PyObject*>(&VuMomType)));
  install_pickling();
}

void add_unpickle_function() {
  const py::Owned function = make_unpickle_function(module_name.get());
  py::checked(PyDict_SetItemString(module_dict().get(), "__pyx_unpickle_VuMom", function.get()));
}

void add_test_attribute() {
  const py::Owned empty = py::checked(PyDict_New());
  py::checked(PyDict_SetItemString(module_dict().get(), "__test__", empty.get()));
}

// The first exception of a thread makes the C++ library allocate that thread's state, and the
// process ends if there is no memory then. Importing threads have theirs from here on.
void prepare_exceptions() {
  try {
    throw std::bad_alloc();
  } catch (const std::bad_alloc&) {
    // It has what it needs now.
  }
}

void initialise() {
  prepare_exceptions();
  check_version();
  create_empty_constants();
  const py::Owned builtins = import_builtins();
  create_module(builtins);
  Name::create_all();
  name_main_program();
  add_to_sys_modules();
  cache_builtins(builtins.get());
  MessageTuple::create_all();
  KeywordTuple::create_all();
  ready_types();
  import_types();
  add_unpickle_function();
  add_test_attribute();
}

// The next import starts afresh. Works where memory is short: the name is a constant.
void drop_module() {
  if (module == nullptr) return;
  py::SavedError error;
  if (!module_name.get().is_null() && sys_modules_entry() == module) {
    PyDict_DelItem(PyImport_GetModuleDict(), module_name.get().get());
  }
  py::replace(module, py::Owned());
  error.restore();
}

}  // namespace

py::Borrowed module_dict() {
  return py::Borrowed(module == nullptr ? nullptr : PyModule_GetDict(module));
}

}  // namespace vu_mom

VU_MODULE_INIT PyInit_vu_mom() {
  using namespace vu_mom;
  if (module != nullptr) return py::Owned::share(py::Borrowed(module)).release();
  try {
    initialise();
    return py::Owned::share(py::Borrowed(module)).release();
  } catch (const py::PythonError&) {
    if (!PyErr_Occurred()) PyErr_SetString(PyExc_ImportError, "init vu_mom");
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  }
  add_traceback("init vu_mom");
  drop_module();
  return nullptr;
}
