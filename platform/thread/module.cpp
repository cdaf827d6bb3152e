// The extension module vu_thread.
#include "python/module.h"

#include <time.h>

#include "loop.h"
#include "master_type.h"
#include "python/threads.h"
#include "signal_wakeup.h"
#include "thread_type.h"
#include "vu_thread_api.h"

namespace vu_thread {
namespace {

// ---- The interface for other extension modules ------------------------------------

vu_thread_source* add_source(PyObject* master, vu_thread_deliver deliver,
                             vu_thread_next_due next_due, void* user) {
  py::require_lock("vu_thread_api.add_source");
  vu_thread_source* source = nullptr;
  py::enter_status([&] { source = loop_of(master).add_source(deliver, next_due, user); });
  return source;
}

void remove_source(vu_thread_source* source) {
  py::require_lock("vu_thread_api.remove_source");
  source->loop->remove_source(source);
}

void wake(vu_thread_source* source) {
  py::require_lock("vu_thread_api.wake");
  source->loop->wake(source);
}

uv_loop_s* uv_loop(PyObject* master) {
  py::require_lock("vu_thread_api.uv_loop");
  return loop_of(master).uv();
}

int is_from_parent(PyObject* master) {
  py::require_lock("vu_thread_api.is_from_parent");
  return loop_of(master).is_from_parent() ? 1 : 0;
}

void leave_loops() {
  py::require_lock("vu_thread_api.leave_loops");
  constexpr int kMostWaits = 1000;
  constexpr timespec kMillisecond = {0, 1000000};
  for (int waits = 0; waits < kMostWaits && Loop::any_driven_elsewhere(); ++waits) {
    Loop::stop_others();
    PyThreadState* const state = PyEval_SaveThread();
    nanosleep(&kMillisecond, nullptr);
    PyEval_RestoreThread(state);
  }
}

vu_thread_api api = {.version = VU_THREAD_API_VERSION,
                     .master_type = &master_type,
                     .add_source = add_source,
                     .remove_source = remove_source,
                     .wake = wake,
                     .uv_loop = uv_loop,
                     .is_from_parent = is_from_parent,
                     .leave_loops = leave_loops};

// ---- The module -----------------------------------------------------------------------

// Daemon threads may be running loops when the interpreter ends. They are asked to leave,
// and those that do not are kept from coming back.
PyObject* at_exit(PyObject*, PyObject*) {
  leave_loops();
  hold_waiting_threads();
  Py_RETURN_NONE;
}

PyMethodDef at_exit_method = {"_at_exit", at_exit, METH_NOARGS, nullptr};

void register_at_exit() {
  const py::Owned function = py::checked(PyCFunction_New(&at_exit_method, nullptr));
  const py::Owned atexit = py::checked(PyImport_ImportModule("atexit"));
  py::checked(PyObject_CallMethod(atexit.get(), "register", "O", function.get()));
}

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "vu_thread",
    "The event loop of the process: VuThreadMaster, and Thread, one piece of work in it.",
    -1,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

py::Owned make_module() {
  prepare_signal_wakeup();
  prepare_thread_type();
  prepare_master_type();
  py::Owned module = py::checked(PyModule_Create(&definition));
  py::add_to_module(module, "Thread", thread_type);
  py::add_to_module(module, "VuThreadMaster", master_type);
  const py::Owned capsule = py::checked(PyCapsule_New(&api, VU_THREAD_API_NAME, nullptr));
  py::add_to_module(module, "_api", capsule);
  register_at_exit();
  return module;
}

}  // namespace
}  // namespace vu_thread

VU_MODULE_INIT PyInit_vu_thread() { return py::enter(vu_thread::make_module); }
