#include "module/exceptions.h"

namespace vu_mom {
namespace {

PyTypeObject exception_type(const char* name, const char* doc) {
  PyTypeObject type = py::static_type(name, sizeof(PyBaseExceptionObject));
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;  // the rest is inherited
  type.tp_doc = doc;
  return type;
}

}  // namespace

PyTypeObject InputError = exception_type(
    "vu_mom.InputError", "An argument was refused, by the store or before it was asked.");
PyTypeObject Error =
    exception_type("vu_mom.Error", "The store refused a request (closed, queue full, failed).");
PyTypeObject MomCApiInnerError = exception_type(
    "vu_mom.MomCApiInnerError", "The store delivered something that is no valid reply.");

void add_exception(PyObject* module, const char* attribute, PyTypeObject& type) {
  type.tp_base = reinterpret_cast<PyTypeObject*>(PyExc_Exception);
  py::checked(PyType_Ready(&type));
  py::checked(PyObject_SetAttrString(module, attribute, reinterpret_cast<PyObject*>(&type)));
}

}  // namespace vu_mom
