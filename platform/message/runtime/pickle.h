// How messages are pickled: as their bytes.
#pragma once

#include "message.h"

namespace vu {

// The method Message.__reduce__.
PyObject* reduce_message(PyObject* self, PyObject* nothing);

// What a pickle calls for a class that no module has: (full_name, bytes).
PyObject* unpickle_by_name(PyObject* module, PyObject* arguments);

}  // namespace vu
