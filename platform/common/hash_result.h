// HashResult: fields of a message stored field by field.
#pragma once

#include "python/reference.h"

namespace vu {

// Once, at import.
void add_hash_result(py::Borrowed module);

}  // namespace vu
