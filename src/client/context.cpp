#include "client/context.h"

namespace vu_mom {
namespace {

const std::array<Name, kKeys> names = {Name("p"), Name("cb"), Name("obj"), Name("resobj"),
                                       Name("flag")};

}  // namespace

const Name& name_of(Key key) { return names[static_cast<std::size_t>(key)]; }

Context::Context(py::Borrowed context) : context_(py::Owned::share(context)) {
  if (!PyDict_CheckExact(context.get())) return;
  const std::uint64_t version = py::dict_version(context.get());
  Py_ssize_t position = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  std::size_t i = 0;
  for (Py_ssize_t left = PyDict_Size(context.get()); left > 0; --left) {
    PyDict_Next(context.get(), &position, &key, &value);
    while (i < kKeys && !names[i].get().is(key)) ++i;  // the binding puts them in this order
    if (i == kKeys) return;
    found_[i++] = value;
  }
  version_ = version;
}

py::Owned Context::look_for(Key key) const {
  PyObject* const name = name_of(key).get().get();
  if (PyDict_CheckExact(context_.get())) {
    PyObject* const value = PyDict_GetItemWithError(context_.get(), name);
    if (value == nullptr && PyErr_Occurred()) throw py::PythonError();
    return py::Owned::share(py::Borrowed(value));
  }
  const int found = py::checked(PySequence_Contains(context_.get(), name));
  return found != 0 ? py::checked(PyObject_GetItem(context_.get(), name)) : py::Owned();
}

py::Owned Context::look_up(Key key) const {
  return py::checked(PyObject_GetItem(context_.get(), name_of(key).get().get()));
}

void Context::release() { const py::Owned the_stores = py::Owned::steal(context_.get()); }

}  // namespace vu_mom
