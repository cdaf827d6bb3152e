// The Python constants of the module: created once, at import, and kept for good.
#pragma once

#include "python/error.h"

namespace vu_mom {

// A constant is a static object of the file that uses it; import creates them all.
class Constant {
 public:
  Constant(const Constant&) = delete;
  Constant& operator=(const Constant&) = delete;

  py::Borrowed get() const { return py::Borrowed(object_); }

 protected:
  Constant(const char* text, Constant*& list) : text_(text), next_(list) { list = this; }
  ~Constant() = default;

  static void create_all(Constant* list, PyObject* (*make)(const char* text));

 private:
  const char* text_;
  Constant* next_;
  PyObject* object_ = nullptr;
};

// An interned string: an attribute, a key, a prefix of reply methods.
class Name : public Constant {
 public:
  explicit Name(const char* text) : Constant(text, list_) {}
  static void create_all();

 private:
  static Constant* list_;
};

// The argument tuple of an exception whose text is fixed.
class MessageTuple : public Constant {
 public:
  explicit MessageTuple(const char* text) : Constant(text, list_) {}
  static void create_all();

 private:
  static Constant* list_;
};

// The names of the one keyword of a call, as the interpreter takes them.
class KeywordTuple : public Constant {
 public:
  explicit KeywordTuple(const char* text) : Constant(text, list_) {}
  static void create_all();

 private:
  static Constant* list_;
};

// Raises `type` with the text of `message`.
[[noreturn]] void raise(PyTypeObject& type, const MessageTuple& message);

}  // namespace vu_mom
