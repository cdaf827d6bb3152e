// What goes into modules while they are made.
#pragma once

#include "python/error.h"

namespace py {

// module.name = value
inline void add_to_module(Borrowed module, const char* name, Borrowed value) {
  checked(PyObject_SetAttrString(module.get(), name, value.get()));
}

inline void add_to_module(Borrowed module, const char* name, PyTypeObject& type) {
  add_to_module(module, name, Borrowed(reinterpret_cast<PyObject*>(&type)));
}

}  // namespace py
