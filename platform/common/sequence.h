// What every sequence type of the module is made of: an immutable tuple of items, and the
// message class they were made with.
#pragma once

#include "object.h"

namespace vu {

// A new sequence of the static type `type`, one made on a sequence_base.
py::Owned make_sequence(PyTypeObject* type, py::Owned items, py::Owned cls);

// The tuple of a sequence, and an entry of a tuple.
py::Borrowed items_of(PyObject* sequence);
py::Borrowed item_at(py::Borrowed tuple, std::size_t i);

// An abstract type with everything that sequences do; `attributes` begin with class_attribute.
PyTypeObject sequence_base(const char* name, const char* doc, PyGetSetDef* attributes);
PyGetSetDef class_attribute();

// collections.abc.Sequence.register(type)
void register_sequence(PyTypeObject& type);

}  // namespace vu
