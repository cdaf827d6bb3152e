// References to Python objects, with ownership in the type.
//
//  * Owned holds one reference and gives it back when it goes away.
//  * Borrowed holds none: somebody else keeps the object alive for as long as it is used.
//    Function parameters are Borrowed; the caller keeps what it passes.
//  * A raw PyObject* is a value on its way into or out of the C API, never kept.
//
// Entrances are named: steal takes over a reference that a C function handed out, share
// adds one. release is the only exit. Neither class converts to PyObject* or bool by
// itself. All of it requires the interpreter lock.
#pragma once

#include <utility>

#include "python/compat.h"

namespace py {

class Owned;

class Borrowed {
 public:
  constexpr Borrowed() = default;
  constexpr explicit Borrowed(PyObject* object) : object_(object) {}
  inline Borrowed(const Owned& owned);  // NOLINT(google-explicit-constructor): lending is free

  PyObject* get() const { return object_; }
  bool is(const void* other) const { return object_ == other; }
  bool is_none() const { return object_ == Py_None; }
  bool is_null() const { return object_ == nullptr; }

 private:
  PyObject* object_ = nullptr;
};

class Owned {
 public:
  Owned() = default;
  static Owned steal(PyObject* object) { return Owned(object); }
  static Owned share(Borrowed object) {
    Py_XINCREF(object.get());
    return Owned(object.get());
  }

  Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Owned& operator=(Owned&& other) noexcept {
    PyObject* previous = std::exchange(object_, std::exchange(other.object_, nullptr));
    Py_XDECREF(previous);  // last: it may run any Python code
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { Py_XDECREF(object_); }

  PyObject* get() const { return object_; }
  bool is(const void* other) const { return object_ == other; }
  bool is_none() const { return object_ == Py_None; }
  bool is_null() const { return object_ == nullptr; }
  [[nodiscard]] PyObject* release() { return std::exchange(object_, nullptr); }

 private:
  explicit Owned(PyObject* object) : object_(object) {}

  PyObject* object_ = nullptr;
};

inline Borrowed::Borrowed(const Owned& owned) : object_(owned.get()) {}

// Replaces the reference in the field of a C struct, releasing the previous one last.
inline void replace(PyObject*& field, Owned value) {
  const Owned previous = Owned::steal(std::exchange(field, value.release()));
}

}  // namespace py
