// What differs between CPython 3.4 and 3.13. No other file looks at PY_VERSION_HEX.
#pragma once

#ifndef PY_SSIZE_T_CLEAN
#define PY_SSIZE_T_CLEAN
#endif
#include <Python.h>

#if PY_VERSION_HEX < 0x030B0000
#include <longintrepr.h>
#endif

#include <cstddef>
#include <limits>

// The declaration of a module's init function. Below 3.9 PyMODINIT_FUNC says nothing of
// visibility, and the project compiles with everything hidden.
#define VU_MODULE_INIT extern "C" __attribute__((visibility("default"))) PyObject*

// Set on every static type that has or inherits a finaliser; means nothing from 3.8 on.
#ifdef Py_TPFLAGS_HAVE_FINALIZE
#define VU_HAVE_FINALIZE Py_TPFLAGS_HAVE_FINALIZE
#else
#define VU_HAVE_FINALIZE 0
#endif

// Set on sequence and mapping types for the match statement, which came with 3.10.
#ifdef Py_TPFLAGS_SEQUENCE
#define VU_SEQUENCE Py_TPFLAGS_SEQUENCE
#define VU_MAPPING Py_TPFLAGS_MAPPING
#else
#define VU_SEQUENCE 0
#define VU_MAPPING 0
#endif

// Methods are called with a vector of arguments from 3.7 on, with a tuple and a dict below.
#if PY_VERSION_HEX >= 0x03070000
#define VU_VECTOR_METHODS 1
#else
#define VU_VECTOR_METHODS 0
#endif

namespace py {

// The value of an int of at most two internal digits, or one where a long is too narrow for
// two (below 3.12; from then on of one that is compact), without a call into the interpreter.
// False for a larger one.
inline bool small_int(PyObject* integer, long& value) {
#if PY_VERSION_HEX >= 0x030C0000
  const auto* native = reinterpret_cast<const PyLongObject*>(integer);
  if (!PyUnstable_Long_IsCompact(native)) return false;
  value = static_cast<long>(PyUnstable_Long_CompactValue(native));
  return true;
#else
  constexpr bool two_fit = 2 * PyLong_SHIFT <= std::numeric_limits<long>::digits;
  const Py_ssize_t size = Py_SIZE(integer);
  const Py_ssize_t count = size < 0 ? -size : size;
  if (count > (two_fit ? 2 : 1)) return false;
  const digit* digits = reinterpret_cast<const PyLongObject*>(integer)->ob_digit;
  long long magnitude = count > 0 ? digits[0] : 0;
  if (count == 2) magnitude |= static_cast<long long>(digits[1]) << PyLong_SHIFT;
  value = static_cast<long>(size < 0 ? -magnitude : magnitude);
  return true;
#endif
}

// callable(*arguments), `count` positional arguments. arguments[-1] may be overwritten
// during the call and is restored. Returns a new reference, or null with the error set.
inline PyObject* call_vector(PyObject* callable, PyObject** arguments, std::size_t count) {
#if PY_VERSION_HEX >= 0x03090000
  return PyObject_Vectorcall(callable, arguments, count | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr);
#elif PY_VERSION_HEX >= 0x03080000
  return _PyObject_Vectorcall(callable, arguments, count | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr);
#else
  PyObject* tuple = PyTuple_New(static_cast<Py_ssize_t>(count));
  if (tuple == nullptr) return nullptr;
  for (std::size_t i = 0; i < count; ++i) {
    Py_INCREF(arguments[i]);
    PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(i), arguments[i]);
  }
  PyObject* result = PyObject_Call(callable, tuple, nullptr);
  Py_DECREF(tuple);
  return result;
#endif
}

// callable(argument, keyword=value), `keywords` being the tuple (keyword,).
inline PyObject* call_with_keyword(PyObject* callable, PyObject* argument, PyObject* keywords,
                                   PyObject* value) {
#if PY_VERSION_HEX >= 0x03090000
  PyObject* vector[] = {nullptr, argument, value};
  return PyObject_Vectorcall(callable, vector + 1, 1 | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords);
#elif PY_VERSION_HEX >= 0x03080000
  PyObject* vector[] = {nullptr, argument, value};
  return _PyObject_Vectorcall(callable, vector + 1, 1 | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords);
#else
  PyObject* tuple = PyTuple_Pack(1, argument);
  PyObject* dict = tuple == nullptr ? nullptr : PyDict_New();
  PyObject* result = nullptr;
  if (dict != nullptr && PyDict_SetItem(dict, PyTuple_GET_ITEM(keywords, 0), value) == 0) {
    result = PyObject_Call(callable, tuple, dict);
  }
  Py_XDECREF(tuple);
  Py_XDECREF(dict);
  return result;
#endif
}

// object.name(): a method call without arguments.
inline PyObject* call_method(PyObject* object, PyObject* name) {
#if PY_VERSION_HEX >= 0x03090000
  return PyObject_CallMethodNoArgs(object, name);
#else
  return PyObject_CallMethodObjArgs(object, name, nullptr);
#endif
}

// The error indicator, taken out of the interpreter while other code runs.
class SavedError {
 public:
#if PY_VERSION_HEX >= 0x030C0000
  SavedError() : error_(PyErr_GetRaisedException()) {}
  ~SavedError() { Py_XDECREF(error_); }

  // Puts the error back, in place of any other that came in the meantime.
  void restore() {
    PyErr_SetRaisedException(error_);
    error_ = nullptr;
  }

  // Sets the error, and keeps it.
  void restore_copy() const {
    Py_XINCREF(error_);
    PyErr_SetRaisedException(error_);
  }

  // Prints the error with its traceback to sys.stderr; SystemExit too.
  void display() const { PyErr_DisplayException(error_); }

 private:
  PyObject* error_;
#else
  SavedError() {
    PyErr_Fetch(&type_, &value_, &traceback_);
    PyErr_NormalizeException(&type_, &value_, &traceback_);
    if (traceback_ != nullptr && PyException_SetTraceback(value_, traceback_) < 0) PyErr_Clear();
  }
  ~SavedError() {
    Py_XDECREF(type_);
    Py_XDECREF(value_);
    Py_XDECREF(traceback_);
  }

  // Puts the error back, in place of any other that came in the meantime.
  void restore() {
    PyErr_Restore(type_, value_, traceback_);
    type_ = value_ = traceback_ = nullptr;
  }

  // Sets the error, and keeps it.
  void restore_copy() const {
    Py_XINCREF(type_);
    Py_XINCREF(value_);
    Py_XINCREF(traceback_);
    PyErr_Restore(type_, value_, traceback_);
  }

  // Prints the error with its traceback to sys.stderr; SystemExit too.
  void display() const { PyErr_Display(type_, value_, traceback_); }

 private:
  PyObject* type_ = nullptr;
  PyObject* value_ = nullptr;
  PyObject* traceback_ = nullptr;
#endif

 public:
  SavedError(const SavedError&) = delete;
  SavedError& operator=(const SavedError&) = delete;
};

// A static type to fill in, field by field: their order and number differ by version.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
inline PyTypeObject static_type(const char* name, std::size_t size) {
  PyTypeObject type = {PyVarObject_HEAD_INIT(nullptr, 0)};
  type.tp_name = name;
  type.tp_basicsize = static_cast<Py_ssize_t>(size);
  return type;
}
#pragma GCC diagnostic pop

// The namespace of a static type that is ready; borrowed.
inline PyObject* type_dict(PyTypeObject& type) { return type.tp_dict; }

// An attribute of a static type; 3.4 declares the texts without const.
inline PyGetSetDef attribute(const char* name, getter get, setter set, const char* doc) {
  return {const_cast<char*>(name), get, set, const_cast<char*>(doc), nullptr};
}

// Any of the C signatures that PyMethodDef takes by its flags.
template <typename Function>
PyCFunction method_pointer(Function* function) {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

}  // namespace py
