// The interpreter that fuzz targets of extension modules run in, and calls that check how
// they end.
//
// The environment says where the modules are: PYTHONPATH names build/PRESET/python and
// tests/fuzz. With PYTHONMALLOC=malloc a sanitizer watches Python's objects, too.
#pragma once

#include <string>

#include "python/reference.h"

namespace vu::fuzz {

// Starts the interpreter where it does not run yet. It is never ended.
void start_interpreter();

// MODULE.NAME; ends the process where there is none.
py::Owned import_object(const char* module, const char* name);

// What a call returned: null where an error is set, and only there. The error is taken
// away; SystemError is none that a call may raise.
py::Owned ended(PyObject* result);
// The same for calls that return -1 for an error.
void ended(int status);
// The same, telling whether the call succeeded.
inline bool succeeded(PyObject* result) { return !ended(result).is_null(); }

}  // namespace vu::fuzz
