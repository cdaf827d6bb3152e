// Python errors as one C++ exception.
#pragma once

#include <new>

#include "python/reference.h"

namespace py {

// Thrown where the Python error indicator is set, and nowhere else. It carries nothing:
// the error is in the interpreter. Only entries from the interpreter or from the store
// library catch it.
struct PythonError {};

[[noreturn]] inline void raise(PyObject* type) {
  PyErr_SetNone(type);
  throw PythonError();
}

// The format is PyErr_Format's.
template <typename... Arguments>
[[noreturn]] void raise(PyObject* type, const char* format, Arguments... arguments) {
  PyErr_Format(type, format, arguments...);
  throw PythonError();
}

// To be called where a C API function has failed and an error of class `type` is an answer like
// another: takes it away. Throws where the error is of another class.
inline void expect_error(PyObject* type) {
  if (!PyErr_ExceptionMatches(type)) throw PythonError();
  PyErr_Clear();
}

// Takes over what a C API function returned; null means that it failed.
inline Owned checked(PyObject* result) {
  if (result == nullptr) throw PythonError();
  return Owned::steal(result);
}

// The integer that a C API function returned; negative means that it failed.
inline int checked(int result) {
  if (result < 0) throw PythonError();
  return result;
}

// The body of an entry from the interpreter: runs `body`, which returns an Owned, and
// answers null with the error set where it throws.
template <typename Body>
PyObject* enter(Body&& body) noexcept {
  try {
    return body().release();
  } catch (const PythonError&) {
    return nullptr;
  } catch (const std::bad_alloc&) {
    return PyErr_NoMemory();
  }
}

// The same for entries that answer 0 or -1; `body` returns nothing.
template <typename Body>
int enter_status(Body&& body) noexcept {
  try {
    body();
    return 0;
  } catch (const PythonError&) {
    return -1;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    return -1;
  }
}

}  // namespace py
