// The rule that everything here has in common, the interpreter lock, checked where assertions
// are (NDEBUG is not defined).
#pragma once

#include <cstdio>
#include <cstdlib>

#include "python/compat.h"

namespace py {

// To be called where C code that is not the interpreter enters: ends the process, and says on
// stderr that `function` was called, unless this thread holds the interpreter lock.
inline void require_lock([[maybe_unused]] const char* function) noexcept {
#ifndef NDEBUG
  if (PyGILState_Check() != 0) return;
  std::fprintf(stderr, "%s: called on a thread that does not hold the interpreter lock\n",
               function);
  std::abort();
#endif
}

}  // namespace py
