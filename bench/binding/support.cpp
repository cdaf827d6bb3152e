// What the benchmark's clients share: a message type that costs next to nothing, a way to
// have replies delivered, and the empty call as the floor.
#include "python/error.h"

extern "C" void trivial_poll(void);

namespace {

struct Message {
  PyObject_HEAD
};

// Message() or Message(address): the address of a reply is taken and forgotten.
PyObject* create(PyTypeObject* type, PyObject*, PyObject*) { return type->tp_alloc(type, 0); }

PyObject* create_from_vector(PyObject* type, PyObject* const*, std::size_t, PyObject*) {
  return create(reinterpret_cast<PyTypeObject*>(type), nullptr, nullptr);
}

PyObject* get_ptr(PyObject* self, PyObject*) { return PyLong_FromVoidPtr(self); }

PyObject* empty(PyObject*, PyObject*) { Py_RETURN_NONE; }

PyObject* nothing(PyObject*, PyObject* const*, Py_ssize_t, PyObject*) { Py_RETURN_NONE; }

PyMethodDef methods[] = {
    {"get_ptr", get_ptr, METH_NOARGS, "The address of the native message."},
    {"empty", empty, METH_NOARGS, "The empty call."},
    {"nothing", py::method_pointer(nothing), METH_FASTCALL | METH_KEYWORDS,
     "The empty call with arguments."},
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject message_type() {
  PyTypeObject type = py::static_type("bench_support.Message", sizeof(Message));
  type.tp_flags = Py_TPFLAGS_DEFAULT;
  type.tp_doc = "A message without contents.";
  type.tp_new = create;
  py::set_type_call(type, create_from_vector);
  type.tp_methods = methods;
  return type;
}

PyTypeObject MessageType = message_type();

PyObject* poll(PyObject*, PyObject*) {
  trivial_poll();
  Py_RETURN_NONE;
}

PyMethodDef functions[] = {
    {"poll", poll, METH_NOARGS, "Deliver the replies to what is pending."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {};

}  // namespace

VU_MODULE_INIT PyInit_bench_support() {
  return py::enter([] {
    definition.m_base = PyModuleDef_HEAD_INIT;
    definition.m_name = "bench_support";
    definition.m_size = -1;
    definition.m_methods = functions;
    py::checked(PyType_Ready(&MessageType));
    const py::Owned package = py::checked(PyUnicode_InternFromString("demo"));
    const py::Owned name = py::checked(PyUnicode_InternFromString("Counter"));
    py::checked(PyDict_SetItemString(py::type_dict(MessageType), "package_name", package.get()));
    py::checked(PyDict_SetItemString(py::type_dict(MessageType), "short_name", name.get()));
    py::Owned module = py::checked(PyModule_Create(&definition));
    py::checked(
        PyObject_SetAttrString(module.get(), "Message", reinterpret_cast<PyObject*>(&MessageType)));
    return module;
  });
}
