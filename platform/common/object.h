// Making Python objects and their types.
#pragma once

#include "arguments.h"

namespace vu {

// A new object of the static type `type`, whose struct is `Object`. All of its fields
// are null; the caller fills them in before it runs any other code.
template <typename Object>
Object* allocate(PyTypeObject* type) {
  return reinterpret_cast<Object*>(py::checked(type->tp_alloc(type, 0)).release());
}

template <typename Object>
Object& as(PyObject* self) {
  return *reinterpret_cast<Object*>(self);
}

template <typename Object>
py::Owned finished(Object* object) {
  return py::Owned::steal(reinterpret_cast<PyObject*>(object));
}

// A tuple of make(0) … make(count - 1).
template <typename Make>
py::Owned tuple_of(std::size_t count, Make&& make) {
  py::Owned tuple = py::checked(PyTuple_New(static_cast<Py_ssize_t>(count)));
  for (std::size_t i = 0; i < count; ++i) {
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), make(i).release());
  }
  return tuple;
}

// (type.of, arguments): how a finished object is pickled and copied.
py::Owned rebuilt_by_of(const PyTypeObject* type, py::Owned arguments);

// What `body` returns, or "Type(...)" where self contains itself.
template <typename Body>
py::Owned guarded_repr(PyObject* self, Body&& body) {
  const int entered = py::checked(Py_ReprEnter(self));
  if (entered > 0) return py::checked(PyUnicode_FromFormat("%s(...)", short_name(Py_TYPE(self))));
  struct Leave {
    PyObject* self;
    ~Leave() { Py_ReprLeave(self); }
  } leave{self};
  return body();
}

// cls[...]: the class itself. For annotations; what is in the brackets is for type checkers.
PyObject* generic_class(PyObject* cls, PyObject* parameters);
inline constexpr const char* kGenericDoc = "The class itself: for annotations.";

// Makes `type` ready and adds it to `module` under its own name.
void add_type(py::Borrowed module, PyTypeObject& type);

}  // namespace vu
