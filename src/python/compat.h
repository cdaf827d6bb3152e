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
#include <cstdint>
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

// Methods are called with a vector of arguments from 3.7 on, with a tuple and a dict below, or
// where the build says so.
#ifndef VU_VECTOR_METHODS
#define VU_VECTOR_METHODS (PY_VERSION_HEX >= 0x03070000)
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

// A number that a dict changes whenever it changes, and that no two dicts share; 0 where the
// interpreter has none.
inline std::uint64_t dict_version([[maybe_unused]] PyObject* dict) {
#if PY_VERSION_HEX >= 0x03060000 && PY_VERSION_HEX < 0x030C0000
  return reinterpret_cast<PyDictObject*>(dict)->ma_version_tag;
#else
  return 0;
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

// A function for calls of a type, cls(...): as many arguments as vector_count(count) says, then
// one for each of `names`, a tuple or null.
using TypeCall = PyObject* (*)(PyObject* type, PyObject* const* arguments, std::size_t count,
                               PyObject* names);

inline Py_ssize_t vector_count(std::size_t count) {
#if PY_VERSION_HEX >= 0x03080000
  return PyVectorcall_NARGS(count);
#else
  return static_cast<Py_ssize_t>(count);
#endif
}

// Makes it the function for calls of `type`, where types have one (from 3.9 on); elsewhere
// tp_new and tp_init are called as ever. Subclasses do not inherit it.
inline void set_type_call(PyTypeObject& type, TypeCall call) {
#if PY_VERSION_HEX >= 0x03090000
  type.tp_vectorcall = call;
#else
  static_cast<void>(type);
  static_cast<void>(call);
#endif
}

// type(...) by tp_new and tp_init, with the same arguments. Returns a new reference, or null
// with the error set.
inline PyObject* call_type_slots(PyObject* type, PyObject* const* arguments, std::size_t count,
                                 PyObject* names) {
  const Py_ssize_t positional = vector_count(count);
  PyObject* tuple = PyTuple_New(positional);
  PyObject* dict = tuple == nullptr || names == nullptr ? nullptr : PyDict_New();
  PyObject* result = nullptr;
  if (tuple != nullptr && (names == nullptr || dict != nullptr)) {
    for (Py_ssize_t i = 0; i < positional; ++i) {
      Py_INCREF(arguments[i]);
      PyTuple_SET_ITEM(tuple, i, arguments[i]);
    }
    const Py_ssize_t named = names == nullptr ? 0 : PyTuple_GET_SIZE(names);
    Py_ssize_t i = 0;
    while (i < named &&
           PyDict_SetItem(dict, PyTuple_GET_ITEM(names, i), arguments[positional + i]) == 0) {
      ++i;
    }
    if (i == named) result = PyType_Type.tp_call(type, tuple, dict);
  }
  Py_XDECREF(tuple);
  Py_XDECREF(dict);
  return result;
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

// What the type of `object` has under `name`, an interned string, borrowed; null where there is
// nothing, or where only an ordinary lookup tells what object.name is: the type looks attributes
// up in a way of its own, or the object has attributes beside those of its type.
// Runs no Python code and sets no error.
inline PyObject* class_attribute(PyObject* object, PyObject* name) {
  PyTypeObject* const type = Py_TYPE(object);
  if (type->tp_getattro != PyObject_GenericGetAttr || type->tp_dictoffset != 0) return nullptr;
  return _PyType_Lookup(type, name);
}

// object.name, `name` being an interned string. Quick for a plain value that the type has.
inline PyObject* get_attribute(PyObject* object, PyObject* name) {
  PyObject* const value = class_attribute(object, name);
  if (value == nullptr || Py_TYPE(value)->tp_descr_get != nullptr) {
    return PyObject_GetAttr(object, name);
  }
  Py_INCREF(value);
  return value;
}

// object.__class__, `name` being that string, interned. Quick where it is the type.
inline PyObject* get_class(PyObject* object, PyObject* name) {
  PyTypeObject* const type = Py_TYPE(object);
  const bool ordinary = type->tp_getattro == PyObject_GenericGetAttr &&
                        _PyType_Lookup(type, name) == _PyType_Lookup(&PyBaseObject_Type, name);
  if (!ordinary) return PyObject_GetAttr(object, name);
  Py_INCREF(type);
  return reinterpret_cast<PyObject*>(type);
}

// The function in C behind a method of an object's type; null where it is none with `flags`.
inline PyCFunction function_of(PyObject* object, PyObject* method, int flags) {
  if (Py_TYPE(method) != &PyMethodDescr_Type) return nullptr;
  const auto* descriptor = reinterpret_cast<PyMethodDescrObject*>(method);
  if (descriptor->d_method->ml_flags != flags) return nullptr;
  if (!PyObject_TypeCheck(object, descriptor->d_common.d_type)) return nullptr;
  return descriptor->d_method->ml_meth;
}

// object.name(): a method call without arguments, `name` being an interned string. Quick for a
// method written in C.
inline PyObject* call_method(PyObject* object, PyObject* name) {
  PyObject* const method = class_attribute(object, name);
  if (method != nullptr) {
    const PyCFunction function = function_of(object, method, METH_NOARGS);
    if (function != nullptr) return function(object, nullptr);
  }
#if PY_VERSION_HEX >= 0x03090000
  return PyObject_CallMethodNoArgs(object, name);
#else
  return PyObject_CallMethodObjArgs(object, name, nullptr);
#endif
}

// object.name, `name` being an interned string, to be called later with one argument: a new
// reference, or null with the error set. Where it is a method of the object's type in C, what is
// returned is not bound to the object, and `function` is what to call with it; else null.
inline PyObject* look_up_method(PyObject* object, PyObject* name, PyCFunction& function) {
  function = nullptr;
#if PY_VERSION_HEX >= 0x03080000 && PY_VERSION_HEX < 0x030C0000
  PyObject* method = nullptr;
  if (_PyObject_GetMethod(object, name, &method) == 0) return method;
  function = function_of(object, method, METH_O);
  if (function != nullptr) return method;
  Py_DECREF(method);
#elif PY_VERSION_HEX < 0x03080000
  PyTypeObject* const type = Py_TYPE(object);
  if (type->tp_getattro == PyObject_GenericGetAttr) {
    PyObject* const method = _PyType_Lookup(type, name);
    PyObject** const own = _PyObject_GetDictPtr(object);
    const bool hidden = own != nullptr && *own != nullptr && PyDict_GetItem(*own, name) != nullptr;
    if (method != nullptr && !hidden) function = function_of(object, method, METH_O);
    if (function != nullptr) {
      Py_INCREF(method);
      return method;
    }
  }
#endif
  return PyObject_GetAttr(object, name);
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

// Makes a new object of one that was destroyed and kept, not freed, by its type: with one
// reference, and tracked by the garbage collector.
inline void use_again(PyObject* object) {
  _Py_NewReference(object);
  PyObject_GC_Track(object);
}

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
