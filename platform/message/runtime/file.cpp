#include "file.h"

#include "descriptors.h"
#include "message_class.h"
#include "pickle.h"
#include "pool.h"
#include "python/module.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

struct File : PyObject {
  const pb::FileDescriptor* descriptor;
};

PyTypeObject file_type = py::static_type("vu_message.File", sizeof(File));

const pb::FileDescriptor& self_file(PyObject* self) {
  return *static_cast<File*>(self)->descriptor;
}

PyObject* get_name(PyObject* self, void*) {
  return PyUnicode_FromString(self_file(self).name().c_str());
}

PyObject* get_package(PyObject* self, void*) {
  return PyUnicode_FromString(self_file(self).package().c_str());
}

// A str argument as UTF-8; borrowed from it.
const char* text_argument(const char* function, PyObject* value) {
  if (!PyUnicode_Check(value)) {
    py::raise(PyExc_TypeError, "%s: expected a str, got %.200s", function, Py_TYPE(value)->tp_name);
  }
  const char* text = PyUnicode_AsUTF8(value);
  if (text == nullptr) throw py::PythonError();
  return text;
}

PyObject* message(PyObject* self, PyObject* name) {
  return py::enter([&] {
    const pb::Descriptor* type =
        self_file(self).pool()->FindMessageTypeByName(text_argument("message()", name));
    if (type == nullptr || type->file() != &self_file(self)) {
      py::raise(PyExc_ValueError, "%s has no message %R", self_file(self).name().c_str(), name);
    }
    return py::Owned::share(py::Borrowed(&info_of(*type)));
  });
}

PyObject* repr(PyObject* self) {
  return PyUnicode_FromFormat("<file %s>", self_file(self).name().c_str());
}

PyObject* add_file(PyObject* /*module*/, PyObject* data) {
  return py::enter([&] {
    if (!PyBytes_Check(data)) {
      py::raise(PyExc_TypeError, "add_file(): expected bytes, got %.200s", Py_TYPE(data)->tp_name);
    }
    const pb::FileDescriptor& added = Pool::instance().add(
        {PyBytes_AS_STRING(data), static_cast<std::size_t>(PyBytes_GET_SIZE(data))});
    py::Owned file = py::checked(PyType_GenericAlloc(&file_type, 0));
    static_cast<File*>(file.get())->descriptor = &added;
    return file;
  });
}

PyObject* find_class(PyObject* /*module*/, PyObject* name) {
  return py::enter([&] {
    MessageInfo& info = known_type("message_class()", py::Borrowed(name));
    return py::Owned::share(py::Borrowed(reinterpret_cast<PyObject*>(class_of(info))));
  });
}

PyObject* find_descriptor(PyObject* /*module*/, PyObject* name) {
  return py::enter([&] {
    return py::Owned::share(py::Borrowed(&known_type("descriptor()", py::Borrowed(name))));
  });
}

PyGetSetDef attributes[] = {
    py::attribute("name", get_name, nullptr, "The name of the .proto file."),
    py::attribute("package", get_package, nullptr, "The package of the file, with dots."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyMethodDef methods[] = {
    {"message", message, METH_O,
     "message(full_name)\n--\n\nThe MessageDescriptor of a message of this file."},
    {nullptr, nullptr, 0, nullptr}};

}  // namespace

MessageInfo& known_type(const char* function, py::Borrowed full_name) {
  const pb::Descriptor* type =
      Pool::instance().find_message(text_argument(function, full_name.get()));
  if (type == nullptr) py::raise(PyExc_KeyError, "no message type %R is known", full_name.get());
  return info_of(*type);
}

PyMethodDef file_functions[] = {
    {"add_file", add_file, METH_O,
     "add_file(serialized)\n--\n\n"
     "Makes a serialised FileDescriptorProto known. The files it imports come first."},
    {"descriptor", find_descriptor, METH_O,
     "descriptor(full_name)\n--\n\n"
     "The MessageDescriptor of a message type of any file that was imported, or of a\n"
     "well-known type. KeyError: it is not known."},
    {"message_class", find_class, METH_O,
     "message_class(full_name)\n--\n\n"
     "The class of a message type of any file that was imported, or of a well-known type:\n"
     "message_class(\"google.protobuf.Timestamp\"). KeyError: it is not known."},
    {"_unpickle", unpickle_by_name, METH_VARARGS,
     "A message from its type's full name and its bytes, as pickles have them."},
    {nullptr, nullptr, 0, nullptr}};

void add_file_type(py::Borrowed module) {
  file_type.tp_flags = Py_TPFLAGS_DEFAULT;
  file_type.tp_doc = "A .proto file that was made known.";
  file_type.tp_repr = repr;
  file_type.tp_getset = attributes;
  file_type.tp_methods = methods;
  py::checked(PyType_Ready(&file_type));
  py::add_to_module(module, "File", file_type);
}

}  // namespace vu
