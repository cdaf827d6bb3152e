// The module object.
#pragma once

#include "python/error.h"

namespace vu_mom {

// The module's namespace; null before the module is created.
py::Borrowed module_dict();

}  // namespace vu_mom
