#include "interpreter.h"

#include "input.h"

namespace vu::fuzz {

void start_interpreter() {
  if (Py_IsInitialized() != 0) return;
  PyConfig config;
  PyConfig_InitPythonConfig(&config);
  config.install_signal_handlers = 0;
  config.site_import = 0;
  config.write_bytecode = 0;
  config.use_hash_seed = 1;
  config.hash_seed = 0;
  const PyStatus status = Py_InitializeFromConfig(&config);
  PyConfig_Clear(&config);
  check(PyStatus_Exception(status) == 0, "the interpreter does not start");
}

py::Owned import_object(const char* module, const char* name) {
  const py::Owned imported = py::Owned::steal(PyImport_ImportModule(module));
  PyObject* const found =
      imported.is_null() ? nullptr : PyObject_GetAttrString(imported.get(), name);
  if (found == nullptr) {
    PyErr_Print();
    fail(name);
  }
  return py::Owned::steal(found);
}

namespace {

void check_error(bool failed) {
  if (!failed) {
    if (PyErr_Occurred() != nullptr) {
      PyErr_Print();
      fail("a call succeeded with an error set");
    }
    return;
  }
  check(PyErr_Occurred() != nullptr, "a call failed without an error");
  if (PyErr_ExceptionMatches(PyExc_SystemError) != 0) {
    PyErr_Print();
    fail("a call raised SystemError");
  }
  PyErr_Clear();
}

}  // namespace

py::Owned ended(PyObject* result) {
  check_error(result == nullptr);
  return py::Owned::steal(result);
}

void ended(int status) { check_error(status < 0); }

}  // namespace vu::fuzz
