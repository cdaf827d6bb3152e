// The exception classes of the module. Each derives from Exception directly: catching
// one of them catches no other.
#pragma once

#include "python/error.h"

namespace vu_mom {

extern PyTypeObject InputError;         // the store, or a command's own check, refuses an argument
extern PyTypeObject Error;              // the store refuses the request for any other reason
extern PyTypeObject MomCApiInnerError;  // the store delivered what no reply can be

// Makes a class ready and an attribute of the module.
void add_exception(PyObject* module, const char* attribute, PyTypeObject& type);

}  // namespace vu_mom
