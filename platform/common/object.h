// Making Python objects and their types.
#pragma once

#include <memory>

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

// How a type is called: the names of its arguments, all of them required, and what makes the
// object of them.
template <std::size_t kCount>
struct Constructor {
  std::array<const char*, kCount> names;
  py::Owned (*make)(PyTypeObject* type, const std::array<py::Borrowed, kCount>& arguments);
};

// Gives the type that constructor.
template <const auto& kConstructor>
void set_constructor(PyTypeObject& type) {
  type.tp_new = [](PyTypeObject* cls, PyObject* arguments, PyObject* keywords) {
    return py::enter([&] {
      constexpr auto& names = kConstructor.names;
      return kConstructor.make(cls, bind(Callee{cls}, names, names.size(), arguments, keywords));
    });
  };
  py::set_type_call(
      type, [](PyObject* cls, PyObject* const* arguments, std::size_t count, PyObject* keywords) {
        return py::enter([&] {
          constexpr auto& names = kConstructor.names;
          auto* const called = reinterpret_cast<PyTypeObject*>(cls);
          std::array<py::Borrowed, names.size()> bound;
          bind_vector(Callee{called}, names.data(), names.size(), arguments,
                      static_cast<std::size_t>(py::vector_count(count)), keywords, bound.data());
          return kConstructor.make(called, bound);
        });
      });
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
    void operator()(PyObject* object) const { Py_ReprLeave(object); }
  };
  const std::unique_ptr<PyObject, Leave> entered_repr(self);
  return body();
}

// cls[...]: the class itself. For annotations; what is in the brackets is for type checkers.
PyObject* generic_class(PyObject* cls, PyObject* parameters);
inline constexpr const char* kGenericDoc = "The class itself: for annotations.";

// Makes `type` ready and adds it to `module` under its own name.
void add_type(py::Borrowed module, PyTypeObject& type);

}  // namespace vu
