// Results that are one value: a number or a truth value.
#pragma once

#include "python/reference.h"

namespace vu {

// ValueResult, the abstract base, and IncrResult, LlenResult, … . Once, at import.
void add_value_results(py::Borrowed module);

}  // namespace vu
