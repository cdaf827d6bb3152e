// What the store answers to a request, as Python exceptions.
#pragma once

#include <cstdint>

#include "python/error.h"

namespace vu_mom {

// Looks up the built-ins that errors are raised with. Once, at import.
void cache_builtins(PyObject* builtins);

// Raises InputError, MemoryError or Error for every status but 0, as a bare class.
void accept(std::int32_t status);

// The same for a command that only knows bad input and lack of memory as failures.
void accept_unless_refused(std::int32_t status);

}  // namespace vu_mom
