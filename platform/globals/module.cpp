// The extension module vu_global.
#include "global_type.h"

namespace vu_global {
namespace {

void import_thread_api() {
  const void* const pointer = PyCapsule_Import(VU_THREAD_API_NAME, 0);
  if (pointer == nullptr) throw py::PythonError();
  thread_api = static_cast<const vu_thread_api*>(pointer);
  if (thread_api->version != VU_THREAD_API_VERSION) {
    py::raise(PyExc_ImportError, "vu_thread has version %d of its C interface, not %d",
              static_cast<int>(thread_api->version), static_cast<int>(VU_THREAD_API_VERSION));
  }
}

// While Python is still there: pending commands are completed, and nobody is called later.
PyObject* at_exit(PyObject*, PyObject*) {
  thread_api->leave_loops();
  Link::close_all_at_exit();
  Py_RETURN_NONE;
}

PyMethodDef at_exit_method = {"_at_exit", at_exit, METH_NOARGS, nullptr};

void register_at_exit() {
  const py::Owned function = py::checked(PyCFunction_New(&at_exit_method, nullptr));
  const py::Owned atexit = py::checked(PyImport_ImportModule("atexit"));
  py::checked(PyObject_CallMethod(atexit.get(), "register", "O", function.get()));
}

PyMethodDef functions[] = {{"_reopen", reopen, METH_VARARGS, kReopenDoc},
                           {nullptr, nullptr, 0, nullptr}};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "vu_global",
    "VuGlobal: opens the store, drives it in the event loop and keeps the applications.",
    -1,
    functions,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

py::Owned make_module() {
  import_thread_api();
  vu_platform_check_threads(PyGILState_Check);
  prepare_global_type();
  py::Owned module = py::checked(PyModule_Create(&definition));
  py::checked(
      PyObject_SetAttrString(module.get(), "VuGlobal", reinterpret_cast<PyObject*>(&global_type)));
  register_at_exit();
  return module;
}

}  // namespace
}  // namespace vu_global

VU_MODULE_INIT PyInit_vu_global() { return py::enter(vu_global::make_module); }
