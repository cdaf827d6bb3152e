// The extension module vu_message: the base class and the runtime of message wrappers.
#include "python/module.h"

#include "descriptors.h"
#include "errors.h"
#include "field.h"
#include "file.h"
#include "map_view.h"
#include "message_class.h"
#include "repeated_view.h"

namespace vu {

PyObject* encode_error = nullptr;
PyObject* decode_error = nullptr;

namespace {

constexpr const char* kDoc =
    "Protocol buffer messages for the object store.\n\n"
    "protoc-gen-vu turns telemetry.proto into telemetry_vu.py; the classes there derive\n"
    "from Message. Nothing but such modules needs to import this one.";

void add_exception(py::Borrowed module, const char* name, PyObject*& exception, const char* doc) {
  const py::Owned full_name = py::checked(PyUnicode_FromFormat("vu_message.%s", name));
  const char* text = PyUnicode_AsUTF8(full_name.get());
  if (text == nullptr) throw py::PythonError();
  py::replace(exception,
              py::checked(PyErr_NewExceptionWithDoc(const_cast<char*>(text), const_cast<char*>(doc),
                                                    PyExc_ValueError, nullptr)));
  py::add_to_module(module, name, py::Borrowed(exception));
}

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "vu_message",
                          kDoc,
                          -1,
                          file_functions,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace
}  // namespace vu

VU_MODULE_INIT PyInit_vu_message() {
  return py::enter([] {
    py::Owned module = py::checked(PyModule_Create(&vu::definition));
    vu::add_exception(module, "EncodeError", vu::encode_error,
                      "A message cannot be turned into bytes.");
    vu::add_exception(module, "DecodeError", vu::decode_error, "Bytes are no such message.");
    vu::add_descriptor_types(module);
    vu::add_field_type(module);
    vu::add_message_types(module);
    vu::add_repeated_types(module);
    vu::add_map_types(module);
    vu::add_file_type(module);
    return module;
  });
}
