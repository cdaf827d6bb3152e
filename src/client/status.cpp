#include "client/status.h"

#include "module/exceptions.h"
#include "vu_mom_impl.h"

namespace vu_mom {
namespace {

PyObject* memory_error = nullptr;  // owned, kept for good
PyObject* range = nullptr;

py::Owned builtin(PyObject* builtins, const char* name) {
  py::Owned value = py::Owned::steal(PyObject_GetAttrString(builtins, name));
  if (value.is_null()) py::raise(PyExc_NameError, "name '%.200s' is not defined", name);
  return value;
}

}  // namespace

void cache_builtins(PyObject* builtins) {
  py::replace(memory_error, builtin(builtins, "MemoryError"));
  py::replace(range, builtin(builtins, "range"));
}

void accept_unless_refused(std::int32_t status) {
  switch (status) {
    case VU_MOM_BAD_INPUT:
      py::raise(reinterpret_cast<PyObject*>(&InputError));
    case VU_MOM_NO_MEMORY:
      py::raise(memory_error);
    default:
      return;
  }
}

void accept(std::int32_t status) {
  if (status == VU_MOM_OK) return;
  accept_unless_refused(status);
  py::raise(reinterpret_cast<PyObject*>(&Error));
}

}  // namespace vu_mom
