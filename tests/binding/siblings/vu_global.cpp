// Stand-in for vu_global: VuGlobal(handle=0), whose handle is any number, with the registered
// applications in `apps`.
#include "records.h"

namespace {

VuGlobalObject* self_of(PyObject* object) { return reinterpret_cast<VuGlobalObject*>(object); }

PyObject* apps_of(PyObject* object) { return static_cast<PyObject*>(self_of(object)->fields[0]); }

vu_mom_handle* to_handle(PyObject* number) {
  void* handle = PyLong_AsVoidPtr(number);
  if (handle == nullptr && PyErr_Occurred() != nullptr) throw py::PythonError();
  return static_cast<vu_mom_handle*>(handle);
}

PyObject* create(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    static char name[] = "handle";
    static char* names[] = {name, nullptr};
    PyObject* number = nullptr;
    if (PyArg_ParseTupleAndKeywords(arguments, keywords, "|O:VuGlobal", names, &number) == 0) {
      throw py::PythonError();
    }
    py::Owned self = py::checked(type->tp_alloc(type, 0));
    if (number != nullptr) self_of(self.get())->handle = to_handle(number);
    self_of(self.get())->fields[0] = py::checked(PyList_New(0)).release();
    return self;
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(apps_of(self));
  return 0;
}

int clear(PyObject* self) {
  PyObject* apps = apps_of(self);
  self_of(self)->fields[0] = nullptr;
  Py_XDECREF(apps);
  return 0;
}

void destroy(PyObject* self) {
  PyObject_GC_UnTrack(self);
  clear(self);
  Py_TYPE(self)->tp_free(self);
}

PyObject* get_handle(PyObject* self, void*) {
  return PyLong_FromUnsignedLongLong(reinterpret_cast<uintptr_t>(self_of(self)->handle));
}

int set_handle(PyObject* self, PyObject* value, void*) {
  return py::enter_status([&] {
    if (value == nullptr) py::raise(PyExc_AttributeError, "handle cannot be deleted");
    self_of(self)->handle = to_handle(value);
  });
}

PyObject* get_apps(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(apps_of(self))).release();
}

PyObject* regist_app(PyObject* self, PyObject* app) {
  return PyList_Append(apps_of(self), app) < 0 ? nullptr : Py_BuildValue("");
}

PyObject* reduce(PyObject* self, PyObject*) {
  return Py_BuildValue("(O(N))", reinterpret_cast<PyObject*>(Py_TYPE(self)),
                       get_handle(self, nullptr));
}

PyGetSetDef attributes[] = {
    py::attribute("handle", get_handle, set_handle, "The native handle, as a number."),
    py::attribute("apps", get_apps, nullptr, "The registered applications, in order."),
    {}};

PyMethodDef methods[] = {{"regist_app", regist_app, METH_O, "Appends to apps."},
                         {"__reduce__", reduce, METH_NOARGS, "VuGlobal(handle)."},
                         {nullptr, nullptr, 0, nullptr}};

PyTypeObject global = py::static_type("vu_global.VuGlobal", sizeof(VuGlobalObject));

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "vu_global", nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace

VU_MODULE_INIT PyInit_vu_global() {
  return py::enter([] {
    global.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
    global.tp_new = create;
    global.tp_dealloc = destroy;
    global.tp_traverse = traverse;
    global.tp_clear = clear;
    global.tp_getset = attributes;
    global.tp_methods = methods;
    PyTypeObject* const types[] = {&global};
    return siblings::module_of_types(definition, types, 1);
  });
}
