#include "module/traceback.h"

#include <frameobject.h>

#include "module/vu_mom.h"

namespace vu_mom {
namespace {

constexpr const char kFile[] = "vu_mom";
constexpr int kLine = 1;

// A frame that never ran, for the traceback; null without an error where memory is short.
py::Owned make_frame(const char* function) {
  // Errors before the module exists have no globals of its own to show.
  const py::Owned globals =
      module_dict().is_null() ? py::Owned::steal(PyDict_New()) : py::Owned::share(module_dict());
  if (globals.is_null()) return {};
  const py::Owned code =
      py::Owned::steal(reinterpret_cast<PyObject*>(PyCode_NewEmpty(kFile, function, kLine)));
  if (code.is_null()) return {};
  return py::Owned::steal(reinterpret_cast<PyObject*>(PyFrame_New(
      PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()), globals.get(), nullptr)));
}

}  // namespace

void add_traceback(const char* function) {
  py::SavedError error;
  const py::Owned frame = make_frame(function);
  error.restore_copy();  // also drops an error of making the frame: the first error counts
  if (frame.is_null()) return;
  if (PyTraceBack_Here(reinterpret_cast<PyFrameObject*>(frame.get())) < 0) error.restore();
}

void report_unraisable(const char* function) {
  add_traceback(function);
  py::SavedError error;
  error.display();
  const py::Owned name = py::Owned::steal(PyUnicode_FromString(function));
  error.restore();
  PyErr_WriteUnraisable(name.get());
}

}  // namespace vu_mom
