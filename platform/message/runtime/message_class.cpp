#include "message_class.h"

#include <string>

#include "message.h"
#include "names.h"
#include "python/module.h"

namespace vu {

namespace pb = google::protobuf;

PyTypeObject message_meta = py::static_type("vu_message.MessageType", sizeof(MessageClass));
MessageClass message_base;

namespace {

// The value of a key of a dict, borrowed; null where there is none.
PyObject* look_up(PyObject* dict, py::Borrowed key) {
  PyObject* const found = PyDict_GetItemWithError(dict, key.get());
  if (found == nullptr && PyErr_Occurred() != nullptr) throw py::PythonError();
  return found;
}

bool contains(PyObject* dict, py::Borrowed key) { return look_up(dict, key) != nullptr; }

void set_attribute_if_absent(py::Borrowed cls, PyObject* body, const char* name,
                             py::Borrowed value) {
  const py::Owned key = py::checked(PyUnicode_InternFromString(name));
  if (contains(body, key)) return;
  py::checked(PyObject_SetAttr(cls.get(), key.get(), value.get()));
}

// Makes `cls` the wrapper class of the type and gives it what its body does not spell out.
void bind(py::Borrowed cls, PyObject* body, MessageInfo& info) {
  reinterpret_cast<MessageClass*>(cls.get())->info = &info;
  for (Field* field : *info.fields) {
    // Such a field is reached by its Field: DESCRIPTOR.field("__init__").
    if (is_attribute_of_all(field->descriptor->name())) continue;
    if (!contains(body, py::Borrowed(field->name))) {
      py::checked(PyObject_SetAttr(cls.get(), field->name, field));
    }
  }
  const py::Owned package =
      py::checked(PyUnicode_FromString(package_name(*info.descriptor).c_str()));
  set_attribute_if_absent(cls, body, "package_name", package);
  const py::Owned name = py::checked(PyUnicode_FromString(short_name(*info.descriptor).c_str()));
  set_attribute_if_absent(cls, body, "short_name", name);
  py::replace(info.cls, py::Owned::share(cls));
}

PyObject* new_class(PyTypeObject* meta, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    py::Owned cls = py::checked(PyType_Type.tp_new(meta, arguments, keywords));
    auto* type = reinterpret_cast<PyTypeObject*>(cls.get());
    py::set_type_call(*type, call_class);
    PyObject* body = PyTuple_GET_ITEM(arguments, 2);
    const py::Owned key = py::checked(PyUnicode_InternFromString("DESCRIPTOR"));
    PyObject* descriptor = look_up(body, key);
    if (descriptor == nullptr) {
      PyTypeObject* base = type->tp_base;
      if (base != nullptr && is_message_class(base)) {
        reinterpret_cast<MessageClass*>(type)->info = bound_info(base);
      }
      return cls;
    }
    bind(cls, body, descriptor_argument(py::Borrowed(descriptor)));
    return cls;
  });
}

}  // namespace

MessageInfo& concrete_info(PyTypeObject* type) {
  MessageInfo* const info = bound_info(type);
  if (info == nullptr) {
    py::raise(PyExc_TypeError, "%.200s is abstract: use a class made by protoc-gen-vu",
              type->tp_name);
  }
  return *info;
}

PyTypeObject* make_class(MessageInfo& info) {
  if (info.descriptor->file()->pool() == pb::DescriptorPool::generated_pool()) {
    // Binds its classes to the well-known types, this one perhaps among them.
    const py::Owned module = py::checked(PyImport_ImportModule("vu_well_known"));
  }
  if (info.cls == nullptr) {
    const py::Owned body = py::checked(PyDict_New());
    const py::Owned module = py::checked(PyUnicode_FromString("vu_message"));
    const py::Owned slots = py::checked(PyTuple_New(0));
    py::checked(PyDict_SetItemString(body.get(), "__module__", module.get()));
    py::checked(PyDict_SetItemString(body.get(), "__slots__", slots.get()));
    py::checked(PyDict_SetItemString(body.get(), "DESCRIPTOR", &info));
    const py::Owned made = py::checked(PyObject_CallFunction(
        reinterpret_cast<PyObject*>(&message_meta), const_cast<char*>("s(O)O"),
        info.descriptor->name().c_str(), message_type(), body.get()));
    reinterpret_cast<MessageClass*>(made.get())->made_here = true;
  }
  return reinterpret_cast<PyTypeObject*>(info.cls);
}

void add_message_types(py::Borrowed module) {
  message_meta.tp_base = &PyType_Type;
  message_meta.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
  message_meta.tp_doc = "The type of message classes.";
  message_meta.tp_new = new_class;
  py::checked(PyType_Ready(&message_meta));

  PyTypeObject& base = message_base.heap.ht_type;
  base = py::static_type("vu_message.Message", sizeof(MessageObject));
  base.ob_base.ob_base.ob_type = &message_meta;
  fill_message_type(base);
  py::checked(PyType_Ready(&base));

  for (PyTypeObject* type : {&message_meta, &base}) {
    const char* name = type == &base ? "Message" : "MessageType";
    py::add_to_module(module, name, *type);
  }
}

}  // namespace vu
