// The functions of the interpreter that the binding calls, each in a form that can be made to
// fail. The list of functions is this file's: CMake reads it, and a test holds it against what
// the binding imports. Each sets an error as the real one would.
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <frameobject.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "faults.h"
#include "wrap.h"

WRAP(PyObject*, PyBytes_FromStringAndSize, nullptr, (const char* text, Py_ssize_t size),
     (text, size))
WRAP(PyObject*, PyCMethod_New, nullptr,
     (PyMethodDef * method, PyObject* self, PyObject* module, PyTypeObject* type),
     (method, self, module, type))
WRAP(PyCodeObject*, PyCode_NewEmpty, nullptr, (const char* file, const char* name, int line),
     (file, name, line))
WRAP(PyObject*, PyDescr_NewMethod, nullptr, (PyTypeObject * type, PyMethodDef* method),
     (type, method))
WRAP(int, PyDict_DelItem, -1, (PyObject * dict, PyObject* key), (dict, key))
WRAP(PyObject*, PyDict_GetItemWithError, nullptr, (PyObject * dict, PyObject* key), (dict, key))
WRAP(PyObject*, PyDict_New, nullptr, (), ())
WRAP(int, PyDict_SetItem, -1, (PyObject * dict, PyObject* key, PyObject* value), (dict, key, value))
WRAP(int, PyDict_SetItemString, -1, (PyObject * dict, const char* key, PyObject* value),
     (dict, key, value))
WRAP_RAISE(PyErr_SetNone, (PyObject * type), (type))
WRAP_RAISE(PyErr_SetObject, (PyObject * type, PyObject* value), (type, value))
WRAP_RAISE(PyErr_SetString, (PyObject * type, const char* text), (type, text))
WRAP(int, PyException_SetTraceback, -1, (PyObject * error, PyObject* traceback), (error, traceback))
WRAP(double, PyFloat_AsDouble, -1, (PyObject * number), (number))
WRAP(PyFrameObject*, PyFrame_New, nullptr,
     (PyThreadState * thread, PyCodeObject* code, PyObject* globals, PyObject* locals),
     (thread, code, globals, locals))
WRAP(PyObject*, PyImport_ImportModule, nullptr, (const char* name), (name))
WRAP(long, PyLong_AsLong, -1, (PyObject * number), (number))
WRAP(long long, PyLong_AsLongLong, -1, (PyObject * number), (number))
WRAP(unsigned long, PyLong_AsUnsignedLong, static_cast<unsigned long>(-1), (PyObject * number),
     (number))
WRAP(PyObject*, PyLong_FromDouble, nullptr, (double value), (value))
WRAP(PyObject*, PyLong_FromLong, nullptr, (long value), (value))
WRAP(PyObject*, PyLong_FromSsize_t, nullptr, (Py_ssize_t value), (value))
WRAP(PyObject*, PyLong_FromString, nullptr, (const char* text, char** end, int base),
     (text, end, base))
WRAP(PyObject*, PyLong_FromUnsignedLong, nullptr, (unsigned long value), (value))
WRAP(PyObject*, PyModule_Create2, nullptr, (PyModuleDef * definition, int version),
     (definition, version))
WRAP(PyObject*, PyNumber_Add, nullptr, (PyObject * left, PyObject* right), (left, right))
WRAP(PyObject*, PyObject_Call, nullptr, (PyObject * callable, PyObject* tuple, PyObject* dict),
     (callable, tuple, dict))
WRAP(PyObject*, PyObject_GetAttr, nullptr, (PyObject * object, PyObject* name), (object, name))
WRAP(PyObject*, PyObject_GetAttrString, nullptr, (PyObject * object, const char* name),
     (object, name))
WRAP(PyObject*, PyObject_GetItem, nullptr, (PyObject * object, PyObject* key), (object, key))
WRAP(int, PyObject_IsTrue, -1, (PyObject * object), (object))
WRAP(PyObject*, PyObject_RichCompare, nullptr, (PyObject * left, PyObject* right, int operation),
     (left, right, operation))
WRAP(int, PyObject_SetAttr, -1, (PyObject * object, PyObject* name, PyObject* value),
     (object, name, value))
WRAP(int, PyObject_SetAttrString, -1, (PyObject * object, const char* name, PyObject* value),
     (object, name, value))
WRAP(PyObject*, PyObject_Vectorcall, nullptr,
     (PyObject * callable, PyObject* const* vector, std::size_t count, PyObject* names),
     (callable, vector, count, names))
WRAP(PyObject*, PyObject_VectorcallMethod, nullptr,
     (PyObject * name, PyObject* const* vector, std::size_t count, PyObject* names),
     (name, vector, count, names))
WRAP(PyObject*, PySequence_Concat, nullptr, (PyObject * left, PyObject* right), (left, right))
WRAP(int, PySequence_Contains, -1, (PyObject * container, PyObject* value), (container, value))
WRAP(PyObject*, PySequence_GetItem, nullptr, (PyObject * sequence, Py_ssize_t i), (sequence, i))
WRAP(int, PyTraceBack_Here, -1, (PyFrameObject * frame), (frame))
WRAP(PyObject*, PyTuple_New, nullptr, (Py_ssize_t size), (size))
WRAP(int, PyType_Ready, -1, (PyTypeObject * type), (type))
WRAP(PyObject*, PyUnicode_FromString, nullptr, (const char* text), (text))
WRAP(PyObject*, PyUnicode_FromStringAndSize, nullptr, (const char* text, Py_ssize_t size),
     (text, size))
WRAP(PyObject*, PyUnicode_InternFromString, nullptr, (const char* text), (text))

// Its failure is an attribute that is bound, and is not there.
extern "C" int __real__PyObject_GetMethod(PyObject* object, PyObject* name, PyObject** method);
WRAP_VARIADIC(int, _PyObject_GetMethod, (PyObject * object, PyObject* name, PyObject** method)) {
  if (faults_fail_call("_PyObject_GetMethod", HERE)) return 0;
  return __real__PyObject_GetMethod(object, name, method);
}

WRAP_VARIADIC(PyObject*, PyErr_Format, (PyObject * type, const char* format, ...)) {
  if (faults_fail_call("PyErr_Format", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  PyErr_FormatV(type, format, arguments);
  va_end(arguments);
  return nullptr;
}

WRAP_VARIADIC(int, PyErr_WarnFormat,
              (PyObject * category, Py_ssize_t level, const char* format, ...)) {
  if (faults_fail_call("PyErr_WarnFormat", HERE)) return -1;
  va_list arguments;
  va_start(arguments, format);
  PyObject* text = PyUnicode_FromFormatV(format, arguments);
  va_end(arguments);
  if (text == nullptr) return -1;
  const int status = PyErr_WarnEx(category, PyUnicode_AsUTF8(text), level);
  Py_DECREF(text);
  return status;
}

extern "C" PyObject* _Py_VaBuildValue_SizeT(const char* format, va_list arguments);

WRAP_VARIADIC(PyObject*, _Py_BuildValue_SizeT, (const char* format, ...)) {
  const bool fails = faults_fail_call("_Py_BuildValue_SizeT", HERE);
  PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
  if (fails) PyErr_Fetch(&type, &value, &traceback);
  va_list arguments;
  va_start(arguments, format);
  PyObject* result = _Py_VaBuildValue_SizeT(format, arguments);
  va_end(arguments);
  if (!fails) return result;
  Py_XDECREF(result);  // what N stands for is taken over by a call that fails too
  PyErr_Restore(type, value, traceback);
  return nullptr;
}

namespace {

// The arguments up to a null pointer, or `limit` of them.
struct Objects {
  explicit Objects(va_list arguments, std::size_t limit = 8) {
    while (count < limit) {
      // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has begun it
      PyObject* const object = va_arg(arguments, PyObject*);
      if (object == nullptr) return;
      if (count == values.size()) std::abort();
      values[count++] = object;
    }
  }

  std::array<PyObject*, 9> values{};
  std::size_t count = 0;
};

}  // namespace

WRAP_VARIADIC(PyObject*, PyTuple_Pack, (Py_ssize_t size, ...)) {
  if (faults_fail_call("PyTuple_Pack", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, size);
  const Objects objects(arguments, static_cast<std::size_t>(size));
  va_end(arguments);
  PyObject* tuple = __real_PyTuple_New(size);
  if (tuple == nullptr) return nullptr;
  for (std::size_t i = 0; i < objects.count; ++i) {
    Py_INCREF(objects.values[i]);
    PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(i), objects.values[i]);
  }
  return tuple;
}

WRAP_VARIADIC(PyObject*, PyObject_CallFunctionObjArgs, (PyObject * callable, ...)) {
  if (faults_fail_call("PyObject_CallFunctionObjArgs", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, callable);
  const Objects objects(arguments);
  va_end(arguments);
  return __real_PyObject_Vectorcall(callable, objects.values.data(), objects.count, nullptr);
}

WRAP_VARIADIC(PyObject*, PyObject_CallMethodObjArgs, (PyObject * object, PyObject* name, ...)) {
  if (faults_fail_call("PyObject_CallMethodObjArgs", HERE)) return nullptr;
  va_list arguments;
  va_start(arguments, name);
  const Objects objects(arguments);
  va_end(arguments);
  PyObject* vector[10] = {object};
  for (std::size_t i = 0; i < objects.count; ++i) vector[i + 1] = objects.values[i];
  return __real_PyObject_VectorcallMethod(name, vector, objects.count + 1, nullptr);
}

extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
  return faults_fail_allocation("malloc", HERE) ? nullptr : __real_malloc(size);
}

// operator new(std::size_t)
#if __SIZEOF_SIZE_T__ == 8
#define NEW __wrap__Znwm
#else
#define NEW __wrap__Znwj
#endif
extern "C" void* NEW(std::size_t size) {
  if (faults_fail_allocation("new", HERE)) throw std::bad_alloc();
  void* const block = __real_malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// The running version, as a test wants it to be.
extern "C" {
extern __attribute__((visibility("default"))) const char* faults_version;
const char* faults_version = nullptr;

const char* __real_Py_GetVersion();
const char* __wrap_Py_GetVersion() {
  return faults_version != nullptr ? faults_version : __real_Py_GetVersion();
}
}
