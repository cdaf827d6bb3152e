// What the stand-ins for the sibling types have in common.
#pragma once

#include <cstring>

#include "python/error.h"
#include "vu_mom_types.h"

namespace siblings {

// A module made of ready types, each under the last part of its name.
inline py::Owned module_of_types(PyModuleDef& definition, PyTypeObject* const* types,
                                 std::size_t count) {
  py::Owned module = py::checked(PyModule_Create(&definition));
  for (std::size_t i = 0; i < count; ++i) {
    py::checked(PyType_Ready(types[i]));
    const char* name = std::strrchr(types[i]->tp_name, '.') + 1;
    py::checked(PyObject_SetAttrString(module.get(), name, reinterpret_cast<PyObject*>(types[i])));
  }
  return module;
}

}  // namespace siblings
