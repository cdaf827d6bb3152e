// vu_global.VuGlobal, as Python sees it.
#pragma once

#include "link.h"

namespace vu_global {

extern PyTypeObject global_type;

// Raises.
void prepare_global_type();

// Finds or makes the VuGlobal that a pickle stands for: reopen(type, store).
PyObject* reopen(PyObject* module, PyObject* args);
extern const char* const kReopenDoc;

}  // namespace vu_global
