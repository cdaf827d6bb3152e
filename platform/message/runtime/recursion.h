// Guards what follows Python values to any depth.
#pragma once

#include "python/error.h"

namespace vu {

// Counts one level for as long as it lives. RecursionError at the interpreter's limit.
class Recursion {
 public:
  explicit Recursion(const char* where) {
    if (Py_EnterRecursiveCall(const_cast<char*>(where)) != 0) throw py::PythonError();
  }
  ~Recursion() { Py_LeaveRecursiveCall(); }
  Recursion(const Recursion&) = delete;
  Recursion& operator=(const Recursion&) = delete;
};

}  // namespace vu
