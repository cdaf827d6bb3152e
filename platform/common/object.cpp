#include "object.h"

namespace vu {

py::Owned rebuilt_by_of(const PyTypeObject* type, py::Owned arguments) {
  auto* object = reinterpret_cast<PyObject*>(const_cast<PyTypeObject*>(type));
  const py::Owned of = py::checked(PyObject_GetAttrString(object, "of"));
  return py::checked(PyTuple_Pack(2, of.get(), arguments.get()));
}

PyObject* generic_class(PyObject* cls, PyObject*) {
  return py::Owned::share(py::Borrowed(cls)).release();
}

void add_type(py::Borrowed module, PyTypeObject& type) {
  py::checked(PyType_Ready(&type));
  auto* object = reinterpret_cast<PyObject*>(&type);
  py::checked(PyObject_SetAttrString(module.get(), short_name(&type), object));
}

}  // namespace vu
