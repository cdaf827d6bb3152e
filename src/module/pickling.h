// Pickling of the client. The state is its one field, guarded by a checksum of the field
// list: a pickle of another layout is refused. Unpickling does not run __init__.
#pragma once

#include "python/error.h"

namespace vu_mom {

// Gives VuMom its __reduce__ and __setstate__, where it has the defaults of object. Any
// failure is a RuntimeError unless an error is set already.
void install_pickling();

// The module function __pyx_unpickle_VuMom, which pickles call.
py::Owned make_unpickle_function(py::Borrowed module_name);

}  // namespace vu_mom
