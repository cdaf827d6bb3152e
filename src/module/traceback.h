// How errors are shown: every function of the module that fails leaves its entry in the
// traceback, with the source file `vu_mom`.
#pragma once

#include "python/error.h"
#include "python/threads.h"

namespace vu_mom {

// Adds the entry of `function` ("vu_mom.VuMom.get") to the error that is set.
void add_traceback(const char* function);

// The body of an entry from the interpreter: runs `body`, which returns an Owned; where
// it throws, adds the traceback entry of `function` and answers null.
template <typename Body>
PyObject* enter_traced(const char* function, Body&& body) noexcept {
  try {
    return body().release();
  } catch (const py::PythonError&) {
    add_traceback(function);
    return nullptr;
  }
}

// The same for entries that answer 0 or -1; `body` returns nothing.
template <typename Body>
int enter_traced_status(const char* function, Body&& body) noexcept {
  try {
    body();
    return 0;
  } catch (const py::PythonError&) {
    add_traceback(function);
    return -1;
  }
}

// For functions that no error may leave: adds the entry, prints the error with its
// traceback and reports it as unraisable under the same name. Clears the error.
void report_unraisable(const char* function);

// Runs the body of a callback from the store, or of a helper that cannot fail; returns
// whether it ran to its end. What it throws is reported under `function`.
template <typename Body>
bool enter_unraisable(const char* function, Body&& body) noexcept {
  py::require_lock(function);
  try {
    body();
    return true;
  } catch (const py::PythonError&) {
    report_unraisable(function);
    return false;
  }
}

}  // namespace vu_mom
