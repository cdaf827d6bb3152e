// The functions of the interpreter that the platform's modules call beside those of calls.cpp,
// in the same form.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdarg>
#include <cstddef>

#include "faults.h"
#include "wrap.h"

WRAP(int, PyBytes_AsStringAndSize, -1, (PyObject * bytes, char** text, Py_ssize_t* size),
     (bytes, text, size))
WRAP(void*, PyCapsule_Import, nullptr, (const char* name, int no_block), (name, no_block))
WRAP(PyObject*, PyCapsule_New, nullptr,
     (void* pointer, const char* name, PyCapsule_Destructor destroy), (pointer, name, destroy))
WRAP(PyObject*, PyDictProxy_New, nullptr, (PyObject * dict), (dict))
WRAP(PyObject*, PyDict_Copy, nullptr, (PyObject * dict), (dict))
WRAP(int, PyErr_CheckSignals, -1, (), ())
WRAP(PyObject*, PyErr_NewExceptionWithDoc, nullptr,
     (const char* name, const char* doc, PyObject* base, PyObject* dict), (name, doc, base, dict))
WRAP(PyObject*, PyErr_SetFromErrno, nullptr, (PyObject * type), (type))
WRAP(PyObject*, PyFloat_FromDouble, nullptr, (double value), (value))
WRAP(int, PyList_Append, -1, (PyObject * list, PyObject* item), (list, item))
WRAP(PyObject*, PyList_AsTuple, nullptr, (PyObject * list), (list))
WRAP(PyObject*, PyList_New, nullptr, (Py_ssize_t size), (size))
WRAP(int, PyList_Sort, -1, (PyObject * list), (list))
WRAP(unsigned long long, PyLong_AsUnsignedLongLong, static_cast<unsigned long long>(-1),
     (PyObject * number), (number))
WRAP(PyObject*, PyLong_FromLongLong, nullptr, (long long value), (value))
WRAP(PyObject*, PyLong_FromSize_t, nullptr, (std::size_t value), (value))
WRAP(PyObject*, PyLong_FromUnsignedLongLong, nullptr, (unsigned long long value), (value))
WRAP(Py_ssize_t, PyNumber_AsSsize_t, -1, (PyObject * number, PyObject* error), (number, error))
WRAP(PyObject*, PyNumber_Float, nullptr, (PyObject * number), (number))
WRAP(PyObject*, PyNumber_Index, nullptr, (PyObject * number), (number))
WRAP(PyObject*, PyNumber_Long, nullptr, (PyObject * number), (number))
WRAP(int, PyObject_AsFileDescriptor, -1, (PyObject * file), (file))
WRAP(PyObject*, PyObject_CallObject, nullptr, (PyObject * callable, PyObject* tuple),
     (callable, tuple))
WRAP(int, PyObject_GetBuffer, -1, (PyObject * object, Py_buffer* buffer, int flags),
     (object, buffer, flags))
WRAP(PyObject*, PyObject_GetIter, nullptr, (PyObject * object), (object))
WRAP(Py_hash_t, PyObject_Hash, -1, (PyObject * object), (object))
WRAP(PyObject*, PyObject_Repr, nullptr, (PyObject * object), (object))
WRAP(int, PyObject_RichCompareBool, -1, (PyObject * left, PyObject* right, int operation),
     (left, right, operation))
WRAP(PyObject*, PySeqIter_New, nullptr, (PyObject * sequence), (sequence))
WRAP(PyObject*, PySequence_List, nullptr, (PyObject * sequence), (sequence))
WRAP(PyObject*, PySequence_Tuple, nullptr, (PyObject * sequence), (sequence))
WRAP(int, PySlice_Unpack, -1,
     (PyObject * slice, Py_ssize_t* start, Py_ssize_t* stop, Py_ssize_t* step),
     (slice, start, stop, step))
WRAP(PyObject*, PyTuple_GetSlice, nullptr, (PyObject * tuple, Py_ssize_t low, Py_ssize_t high),
     (tuple, low, high))
WRAP(PyObject*, PyUnicode_AsEncodedString, nullptr,
     (PyObject * text, const char* encoding, const char* errors), (text, encoding, errors))
WRAP(const char*, PyUnicode_AsUTF8, nullptr, (PyObject * text), (text))
WRAP(const char*, PyUnicode_AsUTF8AndSize, nullptr, (PyObject * text, Py_ssize_t* size),
     (text, size))
WRAP(PyObject*, PyUnicode_AsUTF8String, nullptr, (PyObject * text), (text))
WRAP(PyObject*, PyUnicode_DecodeUTF8, nullptr,
     (const char* text, Py_ssize_t size, const char* errors), (text, size, errors))
WRAP(PyObject*, PyUnicode_Join, nullptr, (PyObject * separator, PyObject* parts),
     (separator, parts))
WRAP(int, Py_EnterRecursiveCall, -1, (const char* where), (where))
WRAP(int, Py_ReprEnter, -1, (PyObject * object), (object))
WRAP(PyObject*, _PyObject_GC_New, nullptr, (PyTypeObject * type), (type))

WRAP_VARIADIC(PyObject*, PyUnicode_FromFormat, (const char* format, ...)) {
  if (faults_fail_call("PyUnicode_FromFormat", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  PyObject* const text = PyUnicode_FromFormatV(format, arguments);
  va_end(arguments);
  return text;
}

extern "C" int _PyArg_VaParse_SizeT(PyObject* tuple, const char* format, va_list arguments);
extern "C" int _PyArg_VaParseTupleAndKeywords_SizeT(PyObject* tuple, PyObject* dict,
                                                    const char* format, char** names,
                                                    va_list arguments);
extern "C" PyObject* _Py_VaBuildValue_SizeT(const char* format, va_list arguments);
extern "C" PyObject* __real_PyTuple_New(Py_ssize_t size);
extern "C" PyObject* __real_PyObject_GetAttrString(PyObject* object, const char* name);
extern "C" PyObject* __real_PyObject_CallObject(PyObject* callable, PyObject* tuple);

WRAP_VARIADIC(int, _PyArg_ParseTuple_SizeT, (PyObject * tuple, const char* format, ...)) {
  if (faults_fail_call("PyArg_ParseTuple", HERE)) return 0;
  va_list arguments;
  va_start(arguments, format);
  const int parsed = _PyArg_VaParse_SizeT(tuple, format, arguments);
  va_end(arguments);
  return parsed;
}

WRAP_VARIADIC(int, _PyArg_ParseTupleAndKeywords_SizeT,
              (PyObject * tuple, PyObject* dict, const char* format, char** names, ...)) {
  if (faults_fail_call("PyArg_ParseTupleAndKeywords", HERE)) return 0;
  va_list arguments;
  va_start(arguments, names);
  const int parsed = _PyArg_VaParseTupleAndKeywords_SizeT(tuple, dict, format, names, arguments);
  va_end(arguments);
  return parsed;
}

namespace {

// callable(*what the format says): a tuple, or the one argument that it makes. Takes `value`.
PyObject* call_with_built(PyObject* callable, PyObject* value) {
  if (value == nullptr) return nullptr;
  PyObject* tuple = value;
  if (!PyTuple_Check(value)) {
    tuple = __real_PyTuple_New(1);
    if (tuple == nullptr) {
      Py_DECREF(value);
      return nullptr;
    }
    PyTuple_SET_ITEM(tuple, 0, value);
  }
  PyObject* const result = __real_PyObject_CallObject(callable, tuple);
  Py_DECREF(tuple);
  return result;
}

}  // namespace

WRAP_VARIADIC(PyObject*, _PyObject_CallFunction_SizeT,
              (PyObject * callable, const char* format, ...)) {
  if (faults_fail_call("PyObject_CallFunction", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  PyObject* const value = _Py_VaBuildValue_SizeT(format, arguments);
  va_end(arguments);
  return call_with_built(callable, value);
}

WRAP_VARIADIC(PyObject*, _PyObject_CallMethod_SizeT,
              (PyObject * object, const char* name, const char* format, ...)) {
  if (faults_fail_call("PyObject_CallMethod", HERE)) return nullptr;
  PyObject* const method = __real_PyObject_GetAttrString(object, name);
  if (method == nullptr) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  PyObject* const value = format == nullptr || *format == '\0'
                              ? __real_PyTuple_New(0)
                              : _Py_VaBuildValue_SizeT(format, arguments);
  va_end(arguments);
  PyObject* const result = call_with_built(method, value);
  Py_DECREF(method);
  return result;
}
